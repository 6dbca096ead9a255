#include "qxpkutil/platform/QXParse.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>
#include <utility>

namespace qxpkutil {
namespace {

// The result (1 or 0, or the length read) and the value a parser leaves; 7 is untouched.
template <class T, class R>
std::pair<double, double> Parse(R (*parse)(std::string_view, T&), const char* text) {
  T value = 7;
  const R result = parse(text, value);
  return {static_cast<double>(result), static_cast<double>(value)};
}

// What the random texts of DoubleAgreesWithTheGrammarAndStrtod cannot reach (other blanks,
// words strtod would take, other separators, the ends of the double range), and the
// integer and prefix forms.
TEST(QXParse, EachFormTakesItsNumbersAndLeavesTheValueOtherwise) {
  using P = std::pair<double, double>;
  const auto d = [](const char* t) { return Parse(&QXParseDouble, t); };
  const auto i = [](const char* t) { return Parse(&QXParseInt, t); };
  const auto u = [](const char* t) { return Parse(&QXParseUInt64, t); };
  const auto lead = [](const char* t) { return Parse(&QXParseLeadingInt, t); };
  const auto dp = [](const char* t) { return Parse(&QXParseDoublePrefix, t); };
  const auto ip = [](const char* t) { return Parse(&QXParseIntPrefix, t); };
  const P cases[][2] = {
      {d(" \t-2e3\r\n"), {1, -2000}}, {d("1e308"), {1, 1e308}}, {d("4.9e-324"), {1, 4.9e-324}},
      {d("nan"), {0, 7}}, {d("-inf"), {0, 7}}, {d("infinity"), {0, 7}}, {d("0x10"), {0, 7}},
      {d("1e400"), {0, 7}}, {d("1e-400"), {0, 7}}, {d("1,5"), {0, 7}},
      {i(" -2147483648 "), {1, INT32_MIN}}, {i("+12"), {1, 12}}, {i("2147483648"), {0, 7}},
      {i("1.0"), {0, 7}}, {i("1e2"), {0, 7}}, {i("+-1"), {0, 7}}, {i("0x1"), {0, 7}},
      {i(""), {0, 7}}, {i("12a"), {0, 7}},
      {u("18446744073709551615"), {1, static_cast<double>(UINT64_MAX)}},
      {u("18446744073709551616"), {0, 7}}, {u("-0"), {0, 7}}, {u("-1"), {0, 7}},
      // Prefix forms: the length read; the exponent needs a digit.
      {dp("  1.5e2 3"), {7, 150}}, {dp("2e+x"), {1, 2}}, {dp(" nan"), {0, 7}},
      {ip("\t-3.5"), {3, -3}}, {ip("+-3"), {0, 7}},
      // As atoi, clamped; 2^64 + 1 must not wrap.
      {lead(" +12abc"), {1, 12}}, {lead("-99999999999999999999"), {1, INT32_MIN}},
      {lead("18446744073709551617"), {1, INT32_MAX}}, {lead("+-3"), {0, 7}}, {lead(" x1"), {0, 7}}};
  for (std::size_t k = 0; k < std::size(cases); ++k) EXPECT_EQ(cases[k][0], cases[k][1]) << k;
}

// The rule as a naive matcher over the characters used below (std::regex would do, but
// GCC 12 warns inside it under the sanitizers): [ ]*[+-]?(d+.?d*|.d+)([eE][+-]?d+)?[ ]*
bool MatchesRule(const std::string& t) {
  std::size_t i = 0;
  const auto digits = [&] {
    const std::size_t from = i;
    while (i < t.size() && t[i] >= '0' && t[i] <= '9') ++i;
    return i > from;
  };
  while (i < t.size() && t[i] == ' ') ++i;
  if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
  bool mantissa = digits();
  if (i < t.size() && t[i] == '.') {
    ++i;
    mantissa = digits() || mantissa;
  }
  if (!mantissa) return false;
  if (i < t.size() && (t[i] == 'e' || t[i] == 'E')) {
    ++i;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) ++i;
    if (!digits()) return false;
  }
  while (i < t.size() && t[i] == ' ') ++i;
  return i == t.size();
}

// Random texts over the characters numbers are made of: the parser accepts exactly what the
// rule accepts and strtod finds in range, with strtod's value.
TEST(QXParse, DoubleAgreesWithTheGrammarAndStrtod) {
  const std::string alphabet = "0123456789+-.eE x";
  std::mt19937 rng(18);
  for (int trial = 0; trial < 20000; ++trial) {
    std::string text(rng() % 9, ' ');
    for (char& c : text) c = alphabet[rng() % alphabet.size()];
    double out = 7.0;
    errno = 0;
    const double expected = std::strtod(text.c_str(), nullptr);
    const bool inRange = errno == 0;
    const bool ok = QXParseDouble(text, out);
    ASSERT_EQ(ok, inRange && MatchesRule(text)) << '"' << text << '"';
    ASSERT_EQ(out, ok ? expected : 7.0) << '"' << text << '"';
  }
}

}  // namespace
}  // namespace qxpkutil
