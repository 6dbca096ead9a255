// Reading inputs for the commands that need a single trace (`qxpeak settings FILE`): the
// file's format is told by content (mzML, or two-column text; gzip or not) by the library's
// TraceReader, which the batch runs also stream from.
//
//   Trace first;  std::string error;
//   if (!ReadFirstTrace("run.mzML", selection, first, error)) { report(error); }
#pragma once

#include <string>

#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil::qxpeak {

// The first selected trace of `path` that can be searched. False with one line in `error`
// when the file cannot be read, is broken, or holds no such trace.
[[nodiscard]] bool ReadFirstTrace(const std::string& path, const MzmlSelection& selection,
                                  Trace& trace, std::string& error);

}  // namespace qxpkutil::qxpeak
