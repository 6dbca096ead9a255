#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

TEST(Mean, BothFamiliesAndNoGuardOnCount) {
  const double v[] = {1, 2, 3, 6};
  const std::uint32_t counts[] = {4294967295u, 4294967295u, 4294967295u, 4294967295u};
  EXPECT_DOUBLE_EQ(U::Mean(v, 4), 3.0);
  EXPECT_DOUBLE_EQ(U::Mean(counts, 4), 4294967295.0);  // no 32-bit overflow in the sum
  EXPECT_TRUE(std::isnan(U::Mean(v, 0)));
  EXPECT_TRUE(std::isnan(U::Mean(static_cast<const double*>(nullptr), 4)));
}

TEST(Deviation, SampleAndPopulationDivisorsDiffer) {
  const double v[] = {1, 3};
  double mean = 0, variance = 0, sd = 0, rms = 0;
  ASSERT_EQ(U::StandardDev(v, 2, mean, variance, sd), 1);
  EXPECT_DOUBLE_EQ(mean, 2.0);
  EXPECT_DOUBLE_EQ(variance, 2.0);
  EXPECT_DOUBLE_EQ(sd, std::sqrt(2.0));
  mean = 0;
  ASSERT_EQ(U::RMSNoise(v, 2, mean, rms), 1);
  EXPECT_DOUBLE_EQ(mean, 2.0);
  EXPECT_DOUBLE_EQ(rms, 1.0);

  double untouched = -7;
  EXPECT_EQ(U::StandardDev(v, 1, untouched, untouched, untouched), 0);
  EXPECT_EQ(U::RMSNoise(v, 1, untouched, untouched), 0);
  EXPECT_EQ(U::RMSNoise(nullptr, 2, untouched, untouched), 0);
  EXPECT_EQ(untouched, -7);
}

TEST(Deviation, ConstantDataHasZeroNoiseNotNaN) {
  const std::vector<double> v(1000, 0.1);
  double mean = 0, rms = -1;
  ASSERT_EQ(U::RMSNoise(v.data(), 1000, mean, rms), 1);
  EXPECT_EQ(rms, 0.0);
}

TEST(DCompare, StrictThresholdOfTenToMinusPrecision) {
  struct Case {
    double a, b;
    std::int32_t precision;
    int expected;
  };
  for (const Case& c : {Case{1.0, 1.002, 3, 0}, Case{1.0, 1.0005, 3, 1}, Case{5.0, 5.0, 0, 1},
                        Case{1.0, 1.5, 0, 1}, Case{1.0, 2.0, 0, 0}, Case{1.0, 6.0, -1, 1}}) {
    EXPECT_EQ(U::dCompare(c.a, c.b, c.precision), c.expected) << c.a << " " << c.b;
  }
}

TEST(FitLine, TwoPointsOrNothing) {
  double slope = 9, intercept = 9;
  EXPECT_EQ(U::FitLine(1, 1, 1, 5, slope, intercept), 0);
  EXPECT_EQ(slope, 9);
  ASSERT_EQ(U::FitLine(0, 1, 2, 5, slope, intercept), 1);
  EXPECT_DOUBLE_EQ(slope, 2.0);
  EXPECT_DOUBLE_EQ(intercept, 1.0);
}

TEST(LinearFit, ExactLineHasZeroErrors) {
  std::vector<double> x, y;
  for (int i = 0; i < 10; ++i) {
    x.push_back(i);
    y.push_back(3.0 - 0.5 * i);
  }
  double slope, intercept, interceptError = -1, slopeError = -1;
  U::LinearFit(x.data(), y.data(), 10, &slope, &intercept, &interceptError, &slopeError);
  EXPECT_NEAR(slope, -0.5, 1e-14);
  EXPECT_NEAR(intercept, 3.0, 1e-14);
  EXPECT_NEAR(interceptError, 0.0, 1e-7);
  EXPECT_NEAR(slopeError, 0.0, 1e-7);
}

TEST(LinearFit, TwoPointsGiveUnscaledErrors) {
  const double x[] = {0, 2}, y[] = {1, 5};
  double slope, intercept, interceptError, slopeError;
  U::LinearFit(x, y, 2, &slope, &intercept, &interceptError, &slopeError);
  EXPECT_DOUBLE_EQ(slope, 2.0);
  EXPECT_DOUBLE_EQ(intercept, 1.0);
  EXPECT_DOUBLE_EQ(interceptError, 1.0);  // sqrt((1 + Sx^2/(n*St2)) / n) = sqrt((1 + 4/4) / 2)
  EXPECT_DOUBLE_EQ(slopeError, std::sqrt(0.5));
}

TEST(LinearFit, NoisyDataMatchesTextbookFormulas) {
  const auto s = testing::MakeSignal(500, 10.0, 0.5, {}, {.baseline = 4.0, .slope = 0.3,
                                                            .noiseSigma = 2.0});
  double slope, intercept, interceptError, slopeError;
  U::LinearFit(s.x.data(), s.y.data(), 500, &slope, &intercept, &interceptError, &slopeError);
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (int i = 0; i < 500; ++i) {
    sx += s.x[i];
    sy += s.y[i];
    sxx += s.x[i] * s.x[i];
    sxy += s.x[i] * s.y[i];
  }
  const double b = (500 * sxy - sx * sy) / (500 * sxx - sx * sx);
  const double a = (sy - b * sx) / 500;
  double chi2 = 0;
  for (int i = 0; i < 500; ++i) chi2 += std::pow(s.y[i] - a - b * s.x[i], 2);
  const double sigma = std::sqrt(chi2 / 498);
  const double centred = sxx - sx * sx / 500;
  EXPECT_NEAR(slope, b, 1e-9);
  EXPECT_NEAR(intercept, a, 1e-7);
  EXPECT_NEAR(slopeError, sigma / std::sqrt(centred), 1e-9);
  EXPECT_NEAR(interceptError, sigma * std::sqrt(sxx / (500 * centred)), 1e-9);
}

TEST(Fits, RejectMoreThan65535Points) {
  const std::vector<double> v(65536, 1.0);
  double slope = 7, c0 = 7;
  U::LinearFit(v.data(), v.data(), 65536, &slope, nullptr, nullptr, nullptr);
  U::QuadraticFit(v.data(), v.data(), 65536, &c0, nullptr, nullptr);
  EXPECT_EQ(slope, 7);
  EXPECT_EQ(c0, 7);
}

TEST(QuadraticFit, ExactParabolaAndSingularSystem) {
  std::vector<double> x, y;
  for (int i = -3; i <= 5; ++i) {
    x.push_back(i);
    y.push_back(2.0 - 3.0 * i + 0.5 * i * i);
  }
  double c0, c1, c2;
  U::QuadraticFit(x.data(), y.data(), 9, &c0, &c1, &c2);
  EXPECT_NEAR(c0, 2.0, 1e-12);
  EXPECT_NEAR(c1, -3.0, 1e-12);
  EXPECT_NEAR(c2, 0.5, 1e-12);

  const double twoX[] = {1, 1, 2, 2}, twoY[] = {1, 2, 3, 4};
  U::QuadraticFit(twoX, twoY, 4, &c0, &c1, &c2);
  EXPECT_EQ(c0, 0.0);
  EXPECT_EQ(c1, 0.0);
  EXPECT_EQ(c2, 0.0);
}

}  // namespace
}  // namespace qxpkutil
