#include "qxpkutil/platform/QXFormat.h"

#include <cstdarg>
#include <cstdio>

namespace qxpkutil {
namespace {

// Formats once into a stack buffer, and a second time only when the text is longer.
void AppendFormatV(std::string& text, const char* format, std::va_list args) {
  if (format == nullptr) return;
  char small[512];
  std::va_list again;
  va_copy(again, args);
  const int length = std::vsnprintf(small, sizeof small, format, args);
  if (length >= static_cast<int>(sizeof small)) {
    const std::size_t old = text.size();
    text.resize(old + static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data() + old, static_cast<std::size_t>(length) + 1, format, again);
    text.resize(old + static_cast<std::size_t>(length));
  } else if (length > 0) {
    text.append(small, static_cast<std::size_t>(length));
  }
  va_end(again);
}

}  // namespace

std::string QXFormat(const char* format, ...) {
  std::string text;
  std::va_list args;
  va_start(args, format);
  AppendFormatV(text, format, args);
  va_end(args);
  return text;
}

void QXAppendFormat(std::string& text, const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  AppendFormatV(text, format, args);
  va_end(args);
}

std::string QXPrintable(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (c == '\t') {
      out += "\\t";
    } else if (u < 0x20 || u == 0x7f) {
      ((out += "\\x") += kHex[u >> 4]) += kHex[u & 15];
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace qxpkutil
