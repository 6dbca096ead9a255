#include "qxpkutil/platform/QXParse.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <system_error>

namespace qxpkutil {
namespace {

// Space, or one of '\t' '\n' '\v' '\f' '\r' (consecutive codes).
bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t SkipBlanks(std::string_view text, std::size_t i) {
  while (i < text.size() && IsBlank(text[i])) ++i;
  return i;
}

// The number that starts at text[begin] by the rule, converted; how far it reaches, or 0.
// std::from_chars reads the rule's grammar except for three things, handled here: it takes
// no '+' (skipped, but "+-3" must not become -3), and it takes "inf" and "nan" (so a digit
// or a point must follow the sign). Integers take no '.' from it, doubles no hexadecimal.
template <typename T>
std::size_t Convert(std::string_view text, std::size_t begin, T& out) {
  const char* first = text.data() + begin;
  const char* const last = text.data() + text.size();
  if (first != last && *first == '+') {
    ++first;
    if (first != last && *first == '-') return 0;
  }
  const char* lead = first != last && *first == '-' ? first + 1 : first;
  if (lead == last || !(IsDigit(*lead) || *lead == '.')) return 0;
  T parsed{};
  const auto [ptr, ec] = std::from_chars(first, last, parsed);
  if (ec != std::errc()) return 0;
  out = parsed;
  return static_cast<std::size_t>(ptr - text.data());
}

template <typename T>
std::size_t ParsePrefix(std::string_view text, T& out) {
  return Convert(text, SkipBlanks(text, 0), out);
}

template <typename T>
bool ParseWhole(std::string_view text, T& out) {
  T parsed{};
  const std::size_t end = ParsePrefix(text, parsed);
  if (end == 0 || SkipBlanks(text, end) != text.size()) return false;
  out = parsed;
  return true;
}

}  // namespace

bool QXParseDouble(std::string_view text, double& out) { return ParseWhole(text, out); }
bool QXParseInt(std::string_view text, int& out) { return ParseWhole(text, out); }

// from_chars takes no '-' for an unsigned type, so "-0" is refused too.
bool QXParseUInt64(std::string_view text, std::uint64_t& out) {
  return ParseWhole(text, out);
}

std::size_t QXParseDoublePrefix(std::string_view text, double& out) {
  return ParsePrefix(text, out);
}
std::size_t QXParseIntPrefix(std::string_view text, int& out) {
  return ParsePrefix(text, out);
}

bool QXParseLeadingInt(std::string_view text, int& out) {
  std::size_t i = SkipBlanks(text, 0);
  const bool negative = i < text.size() && text[i] == '-';
  if (i < text.size() && (text[i] == '-' || text[i] == '+')) ++i;
  if (i == text.size() || !IsDigit(text[i])) return false;
  long long magnitude = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) {
    magnitude = std::min(magnitude * 10 + (text[i] - '0'), 1LL + INT_MAX);
  }
  out =
      static_cast<int>(std::clamp<long long>(negative ? -magnitude : magnitude, INT_MIN, INT_MAX));
  return true;
}

}  // namespace qxpkutil
