#include "qxpkutil/platform/QXParse.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <random>
#include <string>

namespace qxpkutil {
namespace {

struct DoubleCase {
  const char* text;
  bool ok;
  double value;
};

// What the random texts of DoubleAgreesWithTheGrammarAndStrtod cannot reach: other blanks,
// words strtod would take, other separators, and the ends of the double range.
TEST(QXParse, DoubleFollowsTheOneRule) {
  const DoubleCase cases[] = {
      {" \t-2e3\r\n", true, -2000.0}, {"1e308", true, 1e308}, {"4.9e-324", true, 4.9e-324},
      {"nan", false, 0},    {"-inf", false, 0},   {"infinity", false, 0}, {"0x10", false, 0},
      {"1e400", false, 0},  {"1e-400", false, 0}, {"1,5", false, 0},
  };
  for (const DoubleCase& c : cases) {
    double out = 7.0;
    EXPECT_EQ(QXParseDouble(c.text, out), c.ok) << '"' << c.text << '"';
    EXPECT_EQ(out, c.ok ? c.value : 7.0) << '"' << c.text << '"';
  }
}

TEST(QXParse, IntegersTakeNoFractionAndStayInRange) {
  int i = 7;
  EXPECT_TRUE(QXParseInt(" -2147483648 ", i));
  EXPECT_EQ(i, INT32_MIN);
  EXPECT_TRUE(QXParseInt("+12", i));
  EXPECT_EQ(i, 12);
  for (const char* bad : {"2147483648", "1.0", "1e2", "+-1", "0x1", "", "12a"}) {
    i = 7;
    EXPECT_FALSE(QXParseInt(bad, i)) << bad;
    EXPECT_EQ(i, 7);
  }
  std::uint32_t u = 7;
  EXPECT_TRUE(QXParseUInt32("4294967295", u));
  EXPECT_EQ(u, 4294967295u);
  for (const char* bad : {"4294967296", "-0", "-1"}) {
    u = 7;
    EXPECT_FALSE(QXParseUInt32(bad, u)) << bad;
    EXPECT_EQ(u, 7u);
  }
}

TEST(QXParse, PrefixFormsStopWhereTheNumberEnds) {
  double x = 0.0;
  EXPECT_EQ(QXParseDoublePrefix("  1.5e2 3", x), 7u);
  EXPECT_EQ(x, 150.0);
  EXPECT_EQ(QXParseDoublePrefix("2e+x", x), 1u);  // the exponent needs a digit
  EXPECT_EQ(x, 2.0);
  EXPECT_EQ(QXParseDoublePrefix(" nan", x), 0u);
  int i = 0;
  EXPECT_EQ(QXParseIntPrefix("\t-3.5", i), 3u);
  EXPECT_EQ(i, -3);
  EXPECT_EQ(QXParseIntPrefix("+-3", i), 0u);
  EXPECT_EQ(i, -3);
}

TEST(QXParse, LeadingIntReadsAsAtoiAndClamps) {
  int i = 7;
  EXPECT_TRUE(QXParseLeadingInt(" +12abc", i));
  EXPECT_EQ(i, 12);
  EXPECT_TRUE(QXParseLeadingInt("-99999999999999999999", i));
  EXPECT_EQ(i, INT32_MIN);
  EXPECT_TRUE(QXParseLeadingInt("18446744073709551617", i));  // 2^64 + 1 must not wrap
  EXPECT_EQ(i, INT32_MAX);
  i = 7;
  EXPECT_FALSE(QXParseLeadingInt("+-3", i));
  EXPECT_FALSE(QXParseLeadingInt(" x1", i));
  EXPECT_EQ(i, 7);
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
