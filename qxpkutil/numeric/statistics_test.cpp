#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"

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

}  // namespace
}  // namespace qxpkutil
