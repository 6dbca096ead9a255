// printf-style formatting into a std::string of whatever length the values need (a "%f"
// of a double near its limit prints over 300 digits). The library's text formats, messages
// and settings lines are printf formats, so they are written with this. Also the one way
// text from a file is quoted in a message.
//
//   std::string line = QXFormat("%lf\t%lf\n", x, y);
//   QXAppendFormat(text, "# Peaks\t%ld\n", count);
//   error = "'" + QXPrintable(line) + "' is not a number";
#pragma once

#include <string>
#include <string_view>

namespace qxpkutil {

// The formatted text; empty for a null `format` or an encoding error.
[[gnu::format(printf, 1, 2)]] std::string QXFormat(const char* format, ...);
// Appends the formatted text to `text`.
[[gnu::format(printf, 2, 3)]] void QXAppendFormat(std::string& text, const char* format, ...);

// `text` safe to show on a terminal in one line: a tab becomes \t and every other control
// character (NUL, line ends and escape sequences included) and DEL \xNN, so that quoted
// text can never move the cursor, recolour the screen or hide what follows it.
std::string QXPrintable(std::string_view text);

}  // namespace qxpkutil
