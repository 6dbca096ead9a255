// Reads traces from a signal file of either kind the library knows, told apart by content,
// not by name: mzML when the first character (after a byte order mark and blanks) is '<',
// two-column text otherwise; either may be gzip-compressed. One interface for front ends
// that take whatever file a user gives them.
//
//   TraceReader reader;  std::string error;
//   if (!reader.Open(path, {}, error)) { std::cerr << error << '\n'; }
//   for (Trace t; reader.Next(t);) { ... }
//   if (!reader.Error().empty()) { std::cerr << reader.Error() << '\n'; }
#pragma once

#include <string>

#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil {

class TraceReader {
 public:
  // Opens `path` ("-" is standard input). For mzML, as MzmlReader::Open; for text, the
  // whole signal is read here (one trace) and a text that cannot be read fails here. Text
  // is a spectrum, or a chromatogram (x in seconds) when the selection's list is
  // kChromatograms.
  [[nodiscard]] bool Open(const std::string& path, const MzmlReadOptions& options,
                          std::string& error);
  // The next trace, as MzmlReader::Next; a text file gives one trace, always selected.
  bool Next(Trace& trace);
  const std::string& Error() const;

  bool IsMzml() const { return m_isMzml; }
  // The mzML reader behind a file that is mzML (for the writer and the list's name).
  const MzmlReader& Mzml() const { return m_mzml; }
  MzmlReader& Mzml() { return m_mzml; }

 private:
  MzmlReader m_mzml;
  bool m_isMzml = false;
  bool m_textPending = false;
  Trace m_text;
  std::string m_noError;
};

}  // namespace qxpkutil
