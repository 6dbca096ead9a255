#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

TEST(IntegrateSummedRegion, AreaAboveLineOrFlatBaselineNeverNegative) {
  const double x[] = {0, 1, 2}, sameX[] = {1, 1, 1};
  const double peak[] = {1, 5, 1}, tilted[] = {2, 5, 1}, dip[] = {5, 1, 5};
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(x, peak, 0, 2, 1), 7.0 - 3.0);
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(x, tilted, 0, 2, 0), 8.0 - 3.0);
  EXPECT_EQ(U::IntegrateSummedRegion(x, dip, 0, 2, 1), 0.0);  // baseline clipped to the signal
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(sameX, peak, 0, 2, 1), 7.0);  // zero baseline
  EXPECT_EQ(U::IntegrateSummedRegion(x, peak, 2, 1, 1), 0.0);
  EXPECT_EQ(U::IntegrateSummedRegion(x, peak, -1, 1, 1), 0.0);
  const float fx[] = {0, 1, 2};
  const std::uint32_t countPeak[] = {1, 5, 1}, countTilted[] = {2, 5, 1};
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(fx, countPeak, 0, 2, 1), 4.0);
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(fx, countTilted, 0, 2, 0), 5.0);
}

TEST(IntegrateTrapezoidRegion, SignedAreaAgainstTheLineAndCountPairsWrap) {
  const double x[] = {0, 1, 2}, y[] = {0, 2, 0};
  EXPECT_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 1, 0, 0), 0.0);
  EXPECT_DOUBLE_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 3, 0, 0), 2.0);
  EXPECT_DOUBLE_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 3, 0, 2), -2.0);
  const float fx[] = {0, 1};
  const std::uint32_t counts[] = {4294967295u, 1};  // 2^32 wraps to 0 before widening
  EXPECT_EQ(U::IntegrateTrapezoidRegion(fx, counts, 0, 2, 0, 0), 0.0);
}

struct Centroid {
  int status;
  double leftX, leftY, rightX, rightY, centroid;
};

template <class X, class Y>
Centroid CentroidOf(const std::vector<X>& x, const std::vector<Y>& y, double percent,
                    std::uint32_t left, std::uint32_t right, std::uint32_t apex,
                    double leftX = 0, double rightX = 0) {
  Centroid c{0, leftX, -1, rightX, -1, -1};
  c.status = U::CentroidRegion(x.data(), y.data(), static_cast<std::uint32_t>(x.size()), percent,
                               left, right, apex, c.leftX, c.leftY, c.rightX, c.rightY, c.centroid);
  return c;
}

TEST(CentroidRegion, TriangleAtHalfHeightBetweenCallerBoundsOrNotAtAll) {
  const std::vector<double> x = {0, 1, 2, 3, 4}, y = {0, 1, 2, 1, 0};
  const Centroid half = CentroidOf(x, y, 50, 0, 4, 2);
  const Centroid given = CentroidOf(x, y, 150, 0, 4, 2, 0.5, 3.5);
  ASSERT_EQ(half.status, 1);
  ASSERT_EQ(given.status, 1);
  EXPECT_EQ((std::vector<double>{half.centroid, half.leftX, half.rightX, half.leftY, half.rightY}),
            (std::vector<double>{2, 1, 3, 1, 1}));
  EXPECT_DOUBLE_EQ(given.centroid, 2.0);
  EXPECT_DOUBLE_EQ(given.leftY, 0.5);  // interpolated at the caller's bounds
  EXPECT_DOUBLE_EQ(given.rightY, 0.5);

  const Centroid outside = CentroidOf(x, y, 50, 3, 4, 2);  // apex left of the region
  EXPECT_EQ(outside.status, 0);
  EXPECT_DOUBLE_EQ(outside.leftY, 1.5);  // the level is written before that check
  // Crossing segments or caller bounds beyond the array fail instead of reading past it.
  for (const Centroid& c :
       {outside, CentroidOf(x, y, 50, 0, 4, 4), CentroidOf(x, y, 50, 0, 9, 2),
        CentroidOf(x, y, 150, 0, 4, 2, -1.0, 3.0), CentroidOf(x, y, 150, 0, 4, 2, 1.0, 4.5),
        CentroidOf(x, y, std::nan(""), 0, 4, 2), CentroidOf(x, y, 50, 0, 4, 5)}) {
    EXPECT_EQ(c.status, 0);
    EXPECT_EQ(c.centroid, kQXUnsetValue);
  }
}

// A peak symmetric about a sample centres on it whatever the cut, and the count family
// gives exactly what the double family gives on the same values.
class CentroidPercent : public ::testing::TestWithParam<double> {};

TEST_P(CentroidPercent, SymmetricPeakCentresOnItsApexInBothFamilies) {
  const auto counts = testing::ToCountFamily(
      testing::MakeSignal(201, 0.0, 0.25, {{25.0, 5000.0, 2.0}}, {.baseline = 100.0}));
  const auto wide = testing::FromCountFamily(counts);
  const Centroid d = CentroidOf(wide.x, wide.y, GetParam(), 40, 160, 100, 20.0, 30.0);
  const Centroid f = CentroidOf(counts.x, counts.y, GetParam(), 40, 160, 100, 20.0, 30.0);
  ASSERT_EQ(d.status, 1);
  EXPECT_NEAR(d.centroid, 25.0, 1e-9);
  EXPECT_NEAR(d.leftX + d.rightX, 50.0, 1e-9);
  EXPECT_EQ((std::vector<double>{double(f.status), f.centroid, f.leftX, f.rightY}),
            (std::vector<double>{double(d.status), d.centroid, d.leftX, d.rightY}));
}

INSTANTIATE_TEST_SUITE_P(Cuts, CentroidPercent, ::testing::Values(0.0, 10.0, 50.0, 100.0, 150.0));

TEST(ComputeBaseline, BandLeavesOutliersOutButNoiseKeepsThem) {
  std::vector<double> x(10), y(10, 1.0);
  for (int i = 0; i < 10; ++i) x[i] = i;
  y[9] = 10.0;  // 8.1 above the mean 1.9: beyond one sample deviation, sqrt(8.1)
  double baseline = 0, noise = 0;
  ASSERT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 9.2, -0.3, 1, baseline, noise), 1);
  EXPECT_DOUBLE_EQ(baseline, 1.0);
  EXPECT_NEAR(noise, 2.7, 1e-12);
  ASSERT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 0, 9, 0, baseline, noise), 1);
  EXPECT_NEAR(baseline, 1.9, 1e-12);
  ASSERT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 2.4, 5.6, 3, baseline, noise), 1);
  EXPECT_EQ(noise, 0.0);  // points 2..6 only
  const std::vector<double> rx(x.rbegin(), x.rend()), ry(y.rbegin(), y.rend());
  ASSERT_EQ(U::ComputeBaseline(rx.data(), ry.data(), 10, 0, 9, 1, baseline, noise), 1);
  EXPECT_DOUBLE_EQ(baseline, 1.0);

  baseline = noise = -5;
  EXPECT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 4.0, 4.0, 1, baseline, noise), 0);
  EXPECT_EQ(U::ComputeBaseline(x.data(), y.data(), 1, 0.0, 4.0, 1, baseline, noise), 0);
  EXPECT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, std::nan(""), 4.0, 1, baseline, noise), 0);
  EXPECT_EQ(baseline + noise, -10);
}

}  // namespace
}  // namespace qxpkutil
