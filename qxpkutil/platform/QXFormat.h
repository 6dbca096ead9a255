// printf-style formatting into a std::string of whatever length the values need (a "%f"
// of a double near its limit prints over 300 digits). The library's text formats, messages
// and settings lines are printf formats, so they are written with this.
//
//   std::string line = QXFormat("%lf\t%lf\n", x, y);
//   QXAppendFormat(text, "# Peaks\t%ld\n", count);
#pragma once

#include <string>

namespace qxpkutil {

// The formatted text; empty for a null `format` or an encoding error.
[[gnu::format(printf, 1, 2)]] std::string QXFormat(const char* format, ...);
// Appends the formatted text to `text`.
[[gnu::format(printf, 2, 3)]] void QXAppendFormat(std::string& text, const char* format, ...);

}  // namespace qxpkutil
