#include "qxpkutil/platform/QXParse.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <system_error>

namespace qxpkutil {
namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t SkipBlanks(std::string_view text, std::size_t i) {
  while (i < text.size() && IsBlank(text[i])) ++i;
  return i;
}

std::size_t SkipDigits(std::string_view text, std::size_t i) {
  while (i < text.size() && IsDigit(text[i])) ++i;
  return i;
}

// Where the number that starts at `i` ends by the rule, or `i` when none starts there. The
// grammar is checked here rather than left to from_chars, which would take "inf" and "nan".
std::size_t ScanNumber(std::string_view text, std::size_t i, bool fraction) {
  const std::size_t start = i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  const std::size_t intStart = i;
  i = SkipDigits(text, i);
  bool digits = i > intStart;
  if (fraction && i < text.size() && text[i] == '.') {
    const std::size_t fracStart = i + 1;
    const std::size_t fracEnd = SkipDigits(text, fracStart);
    if (digits || fracEnd > fracStart) {
      digits = true;
      i = fracEnd;
    }
  }
  if (!digits) return start;
  if (fraction && i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    std::size_t e = i + 1;
    if (e < text.size() && (text[e] == '+' || text[e] == '-')) ++e;
    const std::size_t expEnd = SkipDigits(text, e);
    if (expEnd > e) i = expEnd;  // "1e" or "1e+" end before the 'e'
  }
  return i;
}

// Converts text[begin, end), which ScanNumber accepted; from_chars takes no '+'.
template <typename T>
bool Convert(std::string_view text, std::size_t begin, std::size_t end, T& out) {
  if (text[begin] == '+') ++begin;
  T parsed{};
  const char* first = text.data() + begin;
  const char* last = text.data() + end;
  const auto [ptr, ec] = std::from_chars(first, last, parsed);
  if (ec != std::errc() || ptr != last) return false;
  out = parsed;
  return true;
}

template <typename T>
std::size_t ParsePrefix(std::string_view text, T& out, bool fraction) {
  const std::size_t begin = SkipBlanks(text, 0);
  const std::size_t end = ScanNumber(text, begin, fraction);
  if (end == begin || !Convert(text, begin, end, out)) return 0;
  return end;
}

template <typename T>
bool ParseWhole(std::string_view text, T& out, bool fraction) {
  T parsed{};
  const std::size_t end = ParsePrefix(text, parsed, fraction);
  if (end == 0 || SkipBlanks(text, end) != text.size()) return false;
  out = parsed;
  return true;
}

}  // namespace

bool QXParseDouble(std::string_view text, double& out) { return ParseWhole(text, out, true); }
bool QXParseInt(std::string_view text, int& out) { return ParseWhole(text, out, false); }

// from_chars takes no '-' for an unsigned type, so "-0" is refused too.
bool QXParseUInt32(std::string_view text, std::uint32_t& out) {
  return ParseWhole(text, out, false);
}

std::size_t QXParseDoublePrefix(std::string_view text, double& out) {
  return ParsePrefix(text, out, true);
}
std::size_t QXParseIntPrefix(std::string_view text, int& out) {
  return ParsePrefix(text, out, false);
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
  out = static_cast<int>(std::clamp<long long>(negative ? -magnitude : magnitude, INT_MIN, INT_MAX));
  return true;
}

}  // namespace qxpkutil
