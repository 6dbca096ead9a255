// Text from files and the command line made safe for a terminal: control characters
// (NUL and escape sequences included) and DEL become \xNN, so that an id or a value can
// never move the cursor, recolour the screen or hide what follows it.
//
//   err << "qxpeak: " << Printable(trace.id) << ": skipped\n";
#pragma once

#include <string>
#include <string_view>

namespace qxpkutil::qxpeak {

inline std::string Printable(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f) {
      out += "\\x";
      out += kHex[u >> 4];
      out += kHex[u & 15];
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace qxpkutil::qxpeak
