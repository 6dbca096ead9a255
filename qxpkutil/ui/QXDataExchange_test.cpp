#include "qxpkutil/ui/QXDataExchange.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <string>
#include <utility>

#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

constexpr double kInf = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(DDX_TextSpace, ReadsANumberBetweenBlanksAndABlankFieldAsUnset) {
  const std::pair<const char*, double> accepted[] = {
      {" \t12.5 \r\n", 12.5}, {"-3", -3.0},           {"+3", 3.0}, {".5", 0.5},
      {"", kQXUnsetValue},    {" \t ", kQXUnsetValue}};
  for (const auto& [text, expected] : accepted) {
    double value = 0.0;
    std::string message = "untouched";
    EXPECT_TRUE(DDX_TextSpace(text, value, message)) << '"' << text << '"';
    EXPECT_EQ(value, expected) << '"' << text << '"';
    EXPECT_EQ(message, "untouched");
  }
  for (const char* text :
       {"12abc", "1 2", "+-3", "++3", "+", "1,5", "0x10", "inf", "nan", "1e999"}) {
    double value = 7.0;
    std::string message;
    EXPECT_FALSE(DDX_TextSpace(text, value, message)) << '"' << text << '"';
    EXPECT_EQ(value, 7.0) << '"' << text << '"';
    EXPECT_EQ(message, QXLoadString(24738));
  }
}

TEST(DDX_TextSpace, ShowsWhatPrintfShowsAndTheUnsetValueAsABlankField) {
  std::mt19937_64 rng(42);
  std::uniform_real_distribution<double> mantissa(-10.0, 10.0);
  std::uniform_int_distribution<int> exponent(-12, 40), decimals(0, 20);
  for (int i = 0; i < 2000; ++i) {
    const double value = mantissa(rng) * std::pow(10.0, exponent(rng));
    const int precision = decimals(rng);
    char expected[512];
    std::snprintf(expected, sizeof expected, "%.*f", precision, value);
    ASSERT_EQ(DDX_TextSpace(value, precision), expected) << value << " at " << precision;
  }
  EXPECT_EQ(DDX_TextSpace(2.5, -3), "2");  // an exact half rounds to even, as in printf
  EXPECT_EQ(DDX_TextSpace(kQXUnsetValue, 2), "");
  EXPECT_EQ(DDX_TextSpace(std::numeric_limits<double>::max(), 1 << 30).size(),
            309u + 1u + kQXMaxDisplayPrecision);
  // Precisions past every double's last decimal read back exactly.
  EXPECT_EQ(QXRoundToPrecision(4.9e-324, 1 << 30), 4.9e-324);
  EXPECT_EQ(QXRoundToPrecision(-kInf, 2), -kInf);
}

TEST(DDV, ChecksReturnTheirMessageOnlyOnFailure) {
  const struct {
    bool passes;
    int id;
    bool (*check)(std::string&);
  } cases[] = {
      {true, 0, [](std::string& m) { return DDV_MinDouble(1.0, 1.0, m); }},
      {false, 24714, [](std::string& m) { return DDV_MinDouble(0.999, 1.0, m); }},
      {false, 24714, [](std::string& m) { return DDV_MinDouble(kNaN, 0.0, m); }},
      {true, 0, [](std::string& m) { return DDV_OddMinMaxInt(2001, 3, 2001, m); }},
      {false, 24712, [](std::string& m) { return DDV_OddMinMaxInt(4, 3, 2001, m); }},
      {false, 24739, [](std::string& m) { return DDV_OddMinMaxInt(2003, 3, 2001, m); }},
      {false, 24739, [](std::string& m) { return DDV_OddMinMaxInt(0, 3, 2001, m); }},
      {false, 24739, [](std::string& m) { return DDV_OddMinMaxInt(5, 7, 3, m); }},
      {true, 0, [](std::string& m) { return DDV_ZeroOddMinMaxInt(0, 3, 2001, m); }},
      {false, 24713, [](std::string& m) { return DDV_ZeroOddMinMaxInt(4, 3, 2001, m); }},
      {false, 24739, [](std::string& m) { return DDV_ZeroOddMinMaxInt(1, 3, 2001, m); }},
      {true, 0, [](std::string& m) { return DDV_SegmentRange(0, 10, m); }},
      {false, 24701, [](std::string& m) { return DDV_SegmentRange(-1, 10, m); }},
      {false, 24701, [](std::string& m) { return DDV_SegmentRange(0, kInf, m); }},
      {false, 24705, [](std::string& m) { return DDV_SegmentRange(10, 5, m); }},
      {false, 24702, [](std::string& m) { return DDV_SegmentRange(5, 5, m); }},
  };
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    std::string message = "untouched";
    EXPECT_EQ(cases[i].check(message), cases[i].passes) << "case " << i;
    EXPECT_EQ(message, cases[i].passes ? "untouched" : QXLoadString(cases[i].id)) << "case " << i;
  }
}

}  // namespace
}  // namespace qxpkutil
