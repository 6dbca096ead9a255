// Reads a signal from plain text, gzip-compressed or not: two columns, x and y, separated by
// a tab, a comma or blanks, one point per line. Blank lines and lines starting with '#' are
// skipped; "\n" and "\r\n" line ends both work; numbers are read in the C locale's form
// whatever the process locale. The first other line may be a header when none of its fields
// looks like a number ("m/z<TAB>intensity"); any later line that is not two finite numbers
// is an error with its line number, never silently dropped. x out of order is sorted (with
// a note in Trace::note).
//
//   Trace trace;  std::string error;
//   if (!ReadTextSignal("scan.txt.gz", trace, error)) { std::cerr << error << '\n'; }
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "qxpkutil/io/Trace.h"

namespace qxpkutil {

// The longest line read; a longer one is not a text signal (or is /dev/zero).
inline constexpr std::size_t kMaxTextLineBytes = std::size_t{1} << 20;

// Reads the file at `path` ("-" is standard input) into `trace` (a spectrum, index 0).
// False with one line in `error` for an unreadable file, and as ParseTextSignal says.
[[nodiscard]] bool ReadTextSignal(const std::string& path, Trace& trace, std::string& error);

// Parses `text`; `name` only labels messages. False, with `trace` untouched and the line
// number in `error`, for a line (other than a leading header) that is not exactly two
// finite numbers, a line longer than kMaxTextLineBytes, UTF-16 text, no data line at all,
// or more than kQXMaxPoints points.
[[nodiscard]] bool ParseTextSignal(std::string_view text, const std::string& name, Trace& trace,
                                   std::string& error);

}  // namespace qxpkutil
