#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

TEST(Mean, BothFamiliesWithoutOverflowAndNoGuardOnCount) {
  const double v[] = {1, 2, 3, 6};
  const std::uint32_t counts[] = {4294967295u, 4294967295u, 4294967295u};
  EXPECT_DOUBLE_EQ(U::Mean(v, 4), 3.0);
  EXPECT_DOUBLE_EQ(U::Mean(counts, 3), 4294967295.0);
  EXPECT_TRUE(std::isnan(U::Mean(v, 0)));
}

TEST(Deviation, SampleAndPopulationDivisorsDiffer) {
  const double v[] = {1, 3};
  double mean = 0, variance = 0, sd = 0, rms = 0;
  ASSERT_EQ(U::StandardDev(v, 2, mean, variance, sd), 1);
  EXPECT_DOUBLE_EQ(variance, 2.0);
  EXPECT_DOUBLE_EQ(sd, std::sqrt(2.0));
  ASSERT_EQ(U::RMSNoise(v, 2, mean, rms), 1);
  EXPECT_DOUBLE_EQ(mean, 2.0);
  EXPECT_DOUBLE_EQ(rms, 1.0);
  const std::vector<double> flat(1000, 0.1);  // one-pass rounding must not give NaN
  ASSERT_EQ(U::RMSNoise(flat.data(), 1000, mean, rms), 1);
  EXPECT_EQ(rms, 0.0);

  EXPECT_EQ(U::StandardDev(v, 1, mean, variance, sd) + U::RMSNoise(nullptr, 2, mean, rms), 0);
  EXPECT_EQ(variance, 2.0);  // untouched
}

TEST(DCompare, StrictThresholdOfTenToMinusPrecision) {
  struct Case {
    double a, b;
    std::int32_t precision;
    int expected;
  };
  for (const Case& c : {Case{1.0, 1.002, 3, 0}, Case{1.0, 1.0005, 3, 1}, Case{5.0, 5.0, 0, 1},
                        Case{1.0, 2.0, 0, 0}, Case{1.0, 6.0, -1, 1}}) {
    EXPECT_EQ(U::dCompare(c.a, c.b, c.precision), c.expected) << c.a << " " << c.b;
  }
}

// Logarithms stay within a few units in the last place of std::log over the whole normal
// range, near 1 (where the result is tiny), at both sides of every power of two and of
// every sqrt(2) 2^e (where the reduction switches), and whatever the position of a value in
// a run (the last few take a padded path).
TEST(LogsOfPositive, CloseToStdLogEverywhereAndTheSameInAnyRun) {
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> exponent(-1022.0, 1023.0), unit(0.0, 1.0);
  std::vector<double> v{DBL_MIN, DBL_MAX, 1.0};
  for (int e = -1022; e < 1023; ++e) {
    for (const double m : {1.0, std::numbers::sqrt2}) {
      v.push_back(std::nextafter(std::ldexp(m, e), 0.0));
      v.push_back(std::ldexp(m, e));
      v.push_back(std::nextafter(std::ldexp(m, e), INFINITY));
    }
  }
  for (int i = 0; i < 20000; ++i) {
    v.push_back(std::ldexp(1.0 + unit(rng), static_cast<int>(exponent(rng))));
    v.push_back(1.0 + (unit(rng) - 0.5) * std::pow(10.0, -15.0 * unit(rng)));
  }
  std::vector<double> logs(v.size());
  numeric_detail::LogsOfPositive(v.data(), v.size(), logs.data());
  for (std::size_t i = 0; i < v.size(); ++i) {
    const double truth = std::log(v[i]);
    const double ulp = std::fabs(std::nextafter(truth, INFINITY) - truth);
    ASSERT_LE(std::fabs(logs[i] - truth), 4.0 * std::max(ulp, DBL_TRUE_MIN)) << v[i];
  }
  for (std::size_t count = 1; count <= 9; ++count) {
    std::vector<double> some(count);
    numeric_detail::LogsOfPositive(v.data() + 5, count, some.data());
    for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(some[i], logs[5 + i]);
  }
}

}  // namespace
}  // namespace qxpkutil
