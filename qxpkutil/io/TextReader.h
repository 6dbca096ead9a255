// Reads a signal from plain text: two columns, x and y, separated by a tab, a comma or
// blanks, one point per line. A first line that is not two numbers is taken as a header;
// blank lines and lines starting with '#' are skipped; "\n" and "\r\n" line ends both work.
// Numbers are read in the C locale's form whatever the process locale.
//
//   Trace trace;  std::string error;
//   if (!ReadTextSignal("scan.txt", trace, error)) { std::cerr << error << '\n'; }
#pragma once

#include <string>
#include <string_view>

#include "qxpkutil/io/Trace.h"

namespace qxpkutil {

// Reads the file at `path` ("-" is standard input) into `trace` (a spectrum, index 0).
// False with one line in `error` for an unreadable file, and as ParseTextSignal says.
[[nodiscard]] bool ReadTextSignal(const std::string& path, Trace& trace, std::string& error);

// Parses `text`; `name` only labels messages. False, with `trace` untouched and the line
// number in `error`, for a line (other than a leading header) that is not exactly two
// finite numbers, x values out of ascending order, no data line at all, or more points than
// the library can index.
[[nodiscard]] bool ParseTextSignal(std::string_view text, const std::string& name, Trace& trace,
                                   std::string& error);

}  // namespace qxpkutil
