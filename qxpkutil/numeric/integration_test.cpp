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

TEST(IntegrateSummedRegion, AreaAboveLineOrFlatBaseline) {
  const double x[] = {0, 1, 2};
  const double peak[] = {1, 5, 1}, tilted[] = {2, 5, 1}, dip[] = {5, 1, 5};
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(x, peak, 0, 2, 1), 7.0 - 3.0);
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(x, tilted, 0, 2, 0), 8.0 - 3.0);
  EXPECT_EQ(U::IntegrateSummedRegion(x, dip, 0, 2, 1), 0.0);  // baseline clipped to the signal
  const double sameX[] = {1, 1, 1};
  EXPECT_DOUBLE_EQ(U::IntegrateSummedRegion(sameX, peak, 0, 2, 1), 7.0);  // zero baseline
  EXPECT_EQ(U::IntegrateSummedRegion(x, peak, 2, 1, 1), 0.0);
  EXPECT_EQ(U::IntegrateSummedRegion(x, peak, -1, 1, 1), 0.0);
}

TEST(IntegrateTrapezoidRegion, SignedAreaAgainstTheLine) {
  const double x[] = {0, 1, 2}, y[] = {0, 2, 0};
  EXPECT_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 1, 0, 0), 0.0);
  EXPECT_DOUBLE_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 3, 0, 0), 2.0);
  EXPECT_DOUBLE_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 3, 0, 2), -2.0);
  EXPECT_EQ(U::IntegrateTrapezoidRegion(x, y, 4294967295u, 0, 0, 0), 0.0);
}

TEST(IntegrateTrapezoidRegion, CountPairsWrapIn32Bits) {
  const float x[] = {0, 1};
  const std::uint32_t y[] = {4294967295u, 1};
  EXPECT_EQ(U::IntegrateTrapezoidRegion(x, y, 0, 2, 0, 0), 0.0);
  const double dx[] = {0, 1}, dy[] = {4294967295.0, 1};
  EXPECT_EQ(U::IntegrateTrapezoidRegion(dx, dy, 0, 2, 0, 0), 2147483648.0);
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
                               left, right, apex, c.leftX, c.leftY, c.rightX, c.rightY,
                               c.centroid);
  return c;
}

TEST(CentroidRegion, TriangleCutAtHalfHeight) {
  const std::vector<double> x = {0, 1, 2, 3, 4}, y = {0, 1, 2, 1, 0};
  const Centroid c = CentroidOf(x, y, 50, 0, 4, 2);
  EXPECT_EQ(c.status, 1);
  EXPECT_DOUBLE_EQ(c.centroid, 2.0);
  EXPECT_DOUBLE_EQ(c.leftX, 1.0);
  EXPECT_DOUBLE_EQ(c.rightX, 3.0);
  EXPECT_DOUBLE_EQ(c.leftY, 1.0);
  EXPECT_DOUBLE_EQ(c.rightY, 1.0);

  const Centroid apex = CentroidOf(x, y, 0, 0, 4, 2);
  EXPECT_EQ(apex.status, 1);
  EXPECT_EQ(apex.centroid, 2.0);
  EXPECT_EQ(apex.leftY, 2.0);

  const Centroid given = CentroidOf(x, y, 150, 0, 4, 2, 0.5, 3.5);  // caller's bounds
  EXPECT_EQ(given.status, 1);
  EXPECT_DOUBLE_EQ(given.centroid, 2.0);
  EXPECT_DOUBLE_EQ(given.leftY, 0.5);
  EXPECT_DOUBLE_EQ(given.rightY, 0.5);
}

TEST(CentroidRegion, FailuresLeaveTheNotComputedMark) {
  const std::vector<double> x = {0, 1, 2, 3, 4}, y = {0, 1, 2, 1, 0};
  const Centroid outside = CentroidOf(x, y, 50, 3, 4, 2);  // apex left of the region
  EXPECT_EQ(outside.status, 0);
  EXPECT_EQ(outside.centroid, kQXUnsetValue);
  EXPECT_DOUBLE_EQ(outside.leftY, 1.5);  // the level is written before the check
  // Crossing segments or caller bounds beyond the array fail instead of reading past it.
  for (const Centroid& c : {CentroidOf(x, y, 50, 0, 4, 4), CentroidOf(x, y, 50, 0, 9, 2),
                            CentroidOf(x, y, 150, 0, 4, 2, -1.0, 3.0),
                            CentroidOf(x, y, 150, 0, 4, 2, 1.0, 4.5),
                            CentroidOf(x, y, std::nan(""), 0, 4, 2),
                            CentroidOf(x, y, 50, 0, 4, 5)}) {
    EXPECT_EQ(c.status, 0);
    EXPECT_EQ(c.centroid, kQXUnsetValue);
  }
}

class CentroidPercent : public ::testing::TestWithParam<double> {};

// A peak symmetric about a sample has its centroid at that sample whatever the cut, and
// the count family gives what the double family gives on the same values.
TEST_P(CentroidPercent, SymmetricPeakCentresOnItsApexInBothFamilies) {
  const double percent = GetParam();
  const auto counts = testing::ToCountFamily(
      testing::MakeSignal(201, 0.0, 0.25, {{25.0, 5000.0, 2.0}}, {.baseline = 100.0}));
  const auto wide = testing::FromCountFamily(counts);
  const Centroid d = CentroidOf(wide.x, wide.y, percent, 40, 160, 100, 20.0, 30.0);
  const Centroid f = CentroidOf(counts.x, counts.y, percent, 40, 160, 100, 20.0, 30.0);
  ASSERT_EQ(d.status, 1);
  EXPECT_NEAR(d.centroid, 25.0, 1e-9);
  EXPECT_NEAR(d.leftX + d.rightX, 50.0, 1e-9);
  EXPECT_EQ(f.status, d.status);
  EXPECT_EQ(f.centroid, d.centroid);
  EXPECT_EQ(f.leftX, d.leftX);
  EXPECT_EQ(f.rightY, d.rightY);
}

INSTANTIATE_TEST_SUITE_P(Cuts, CentroidPercent, ::testing::Values(0.0, 10.0, 50.0, 90.0, 100.0, 150.0));

TEST(RegionFamilies, CountFamilyMatchesDoubleFamilyOnTheSameValues) {
  const auto counts = testing::ToCountFamily(testing::MakeSignal(
      300, 10.0, 0.1, {{20.0, 3000.0, 1.0}}, {.baseline = 50.0, .slope = 2.0, .noiseSigma = 5.0}));
  const auto wide = testing::FromCountFamily(counts);
  for (std::int32_t first : {0, 37, 90}) {
    for (std::int32_t last : {first, first + 1, 150, 299}) {
      for (int line : {0, 1}) {
        EXPECT_EQ(U::IntegrateSummedRegion(counts.x.data(), counts.y.data(), first, last, line),
                  U::IntegrateSummedRegion(wide.x.data(), wide.y.data(), first, last, line));
      }
      EXPECT_EQ(U::IntegrateTrapezoidRegion(counts.x.data(), counts.y.data(), first, last + 1, 2.0, 30.0),
                U::IntegrateTrapezoidRegion(wide.x.data(), wide.y.data(), first, last + 1, 2.0, 30.0));
    }
  }
}

TEST(ComputeBaseline, BandLeavesOutliersButNoiseKeepsThem) {
  std::vector<double> x(10), y(10, 1.0);
  for (int i = 0; i < 10; ++i) x[i] = i;
  y[9] = 10.0;
  // Mean 1.9; sample deviation sqrt(8.1) puts 10 outside one sigma; population deviation 2.7.
  double baseline = 0, noise = 0;
  ASSERT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 9.2, -0.3, 1, baseline, noise), 1);
  EXPECT_DOUBLE_EQ(baseline, 1.0);
  EXPECT_NEAR(noise, 2.7, 1e-12);
  ASSERT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 0, 9, 0, baseline, noise), 1);
  EXPECT_NEAR(baseline, 1.9, 1e-12);

  ASSERT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 2.4, 5.6, 3, baseline, noise), 1);
  EXPECT_EQ(baseline, 1.0);  // points 2..6 only
  EXPECT_EQ(noise, 0.0);

  const std::vector<double> rx(x.rbegin(), x.rend()), ry(y.rbegin(), y.rend());
  ASSERT_EQ(U::ComputeBaseline(rx.data(), ry.data(), 10, 0, 9, 1, baseline, noise), 1);
  EXPECT_DOUBLE_EQ(baseline, 1.0);

  baseline = noise = -5;
  EXPECT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, 4.0, 4.0, 1, baseline, noise), 0);
  EXPECT_EQ(U::ComputeBaseline(x.data(), y.data(), 1, 0.0, 4.0, 1, baseline, noise), 0);
  EXPECT_EQ(U::ComputeBaseline(x.data(), y.data(), 10, std::nan(""), 4.0, 1, baseline, noise), 0);
  EXPECT_EQ(baseline, -5);
  EXPECT_EQ(noise, -5);
}

}  // namespace
}  // namespace qxpkutil
