// Reading one input of the tool: an mzML run (told apart from text by its first character)
// or a two-column text signal, whole, through the library's io component.
//
//   LoadedInput input;  std::string error;
//   if (!LoadInput("run.mzML", selection, input, error)) { report(error); }
//   for (Trace& t : input.Traces()) { ... }
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil::qxpeak {

// An input read into memory: the mzML run it came from, or traces read from text.
struct LoadedInput {
  std::unique_ptr<MzmlRun> mzml;  // null for text input
  std::vector<Trace> text;
  std::vector<Trace>& Traces() { return mzml ? mzml->Traces() : text; }
};

// Reads `path` ("-" is standard input): mzML when its first character (after blanks and a
// byte order mark) is '<', else two-column text. False with one line in `error` when the
// input cannot be read, is malformed, or has no trace that `selection` accepts.
[[nodiscard]] bool LoadInput(const std::string& path, const MzmlSelection& selection,
                             LoadedInput& input, std::string& error);

}  // namespace qxpkutil::qxpeak
