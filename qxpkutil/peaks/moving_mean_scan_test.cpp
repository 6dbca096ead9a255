#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::GaussPeak;
using testing::MakeSignal;
using testing::Signal;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct ScanArgs {
  double threshold = 50.0;
  int filterType = 0;
  int filterWidth = 7;
  int filterInc = 1;
  double minArea = 0.0;
  int maxPeakWidth = 1000;
  double noiseThreshold = 0.0;
  double centroidPct = 50.0;
  int integration = 1;
  int massProcessing = 0;
  int finish = 1;
  double startX = 0.0;
  double endX = 0.0;
};

std::int32_t Scan(QXPeakTable& t, const double* x, const double* y, std::uint32_t n,
          const ScanArgs& a = {}) {
  return t.FindPeaks(x, y, n, 1.0, a.threshold, a.filterType, a.filterWidth, a.filterInc,
                     a.minArea, 0, a.maxPeakWidth, a.noiseThreshold, a.centroidPct, a.integration,
                     a.massProcessing, 3, 4, 0.05, 2.0, a.finish, a.startX, a.endX, 0);
}

std::int32_t Scan(QXPeakTable& t, const Signal& s, const ScanArgs& a = {}) {
  return Scan(t, s.x.data(), s.y.data(), static_cast<std::uint32_t>(s.x.size()), a);
}

// Three separated peaks (x = 0..99.9, dx = 0.1) on a flat baseline of 10.
const std::vector<GaussPeak> kThree{{20.0, 1000.0, 0.4}, {50.0, 600.0, 0.5}, {80.0, 300.0, 0.3}};
Signal ThreePeaks() { return MakeSignal(1000, 0.0, 0.1, kThree, {.baseline = 10.0}); }

TEST(MovingMeanScan, FindsSeparatedPeaksWithTheirApexBoundsAndAreas) {
  const Signal s = ThreePeaks();
  for (int filterType : {0, 1}) {
    QXPeakTable plain;
    QXPeakTable tight;
    ASSERT_EQ(Scan(plain, s, {.filterType = filterType}), 3) << filterType;
    // A noise threshold moves each bound to where the window mean first moves by that much.
    ASSERT_EQ(Scan(tight, s, {.filterType = filterType, .noiseThreshold = 5.0}), 3);
    for (int k = 0; k < 3; ++k) {
      const QXPeakTableElement& p = *plain.GetPeak(k);
      const GaussPeak& g = kThree[static_cast<std::size_t>(k)];
      EXPECT_NEAR(p.m_dApexX, g.centre, 1e-9);
      EXPECT_NEAR(p.m_dApexY, g.height + 10.0, 1e-9);
      // Without a noise threshold the bounds reach down to the baseline, so the summed area
      // is the Gaussian's integral over the point spacing: height * sigma * sqrt(2 pi) / dx.
      const double expected = g.height * g.sigma * std::sqrt(2 * M_PI) / 0.1;
      EXPECT_NEAR(p.m_dArea, expected, 1e-3 * expected) << k;
      EXPECT_NEAR(p.m_dLeftY, 10.0, 1e-6);
      EXPECT_NEAR(p.m_dRightY, 10.0, 1e-6);

      const QXPeakTableElement& q = *tight.GetPeak(k);
      EXPECT_EQ(q.m_nApexIndex, p.m_nApexIndex);
      EXPECT_GT(q.m_nLeftIndex, p.m_nLeftIndex);
      EXPECT_LT(q.m_nLeftIndex, q.m_nApexIndex);
      EXPECT_LT(q.m_nRightIndex, p.m_nRightIndex);
      EXPECT_GT(q.m_nRightIndex, q.m_nApexIndex);
      EXPECT_GT(q.m_dArea, 0.8 * p.m_dArea);
      EXPECT_LT(q.m_dArea, p.m_dArea);
    }
    EXPECT_EQ(plain.GetSortMethod(), 0);
  }
}

TEST(MovingMeanScan, RangeEndsAreaScaleAndFilterTypeRules) {
  const Signal s = ThreePeaks();
  QXPeakTable t;
  // An end of 0 alone searches up to the last point.
  EXPECT_EQ(Scan(t, s, {.startX = 35.0}), 2);
  EXPECT_NEAR(t.GetPeak(0)->m_dApexX, 50.0, 1e-9);
  // A range that ends two points after an apex still closes that peak, inside the range.
  t.DeleteAllPeaks();
  ASSERT_EQ(Scan(t, s, {.startX = 35.0, .endX = 50.2}), 1);
  EXPECT_EQ(t.GetPeak(0)->m_nApexIndex, 500u);
  EXPECT_LE(t.GetPeak(0)->m_nRightIndex, 502u);
  // A filter type without a window mean sees no rise after the first window.
  t.DeleteAllPeaks();
  EXPECT_EQ(Scan(t, s, {.filterType = 2}), 0);
  // The area scale multiplies every stored area.
  QXPeakTable plain;
  QXPeakTable scaled;
  Scan(plain, s);
  scaled.FindPeaks(s.x.data(), s.y.data(), 1000, 2.5, 50.0, 0, 7, 1, 0.0, 0, 1000, 0.0, 50.0, 1,
                   0, 3, 4, 0.05, 2.0, 1, 0.0, 0.0, 0);
  ASSERT_EQ(scaled.GetNumPeaks(), 3);
  for (std::int32_t k = 0; k < 3; ++k) {
    EXPECT_DOUBLE_EQ(scaled.GetPeak(k)->m_dArea, 2.5 * plain.GetPeak(k)->m_dArea);
  }
}

TEST(MovingMeanScan, AcceptanceLimitsAreInclusive) {
  const Signal s = ThreePeaks();
  QXPeakTable reference, atWidth, belowWidth, atArea;
  Scan(reference, s);
  const QXPeakTableElement& first = *reference.GetPeak(0);
  const int width = static_cast<int>(first.m_nRightIndex - first.m_nLeftIndex) - 1;
  Scan(atWidth, s, {.maxPeakWidth = width});
  EXPECT_EQ(atWidth.GetPeak(0)->m_dApexX, first.m_dApexX);  // width equal to the limit: kept
  Scan(belowWidth, s, {.maxPeakWidth = width - 1});
  EXPECT_NE(belowWidth.GetPeak(0)->m_dApexX, first.m_dApexX);
  // Area equal to the minimum: kept.
  EXPECT_EQ(Scan(atArea, s, {.minArea = reference.GetPeak(2)->m_dArea}), 3);
}

TEST(MovingMeanScan, ARiseFromTheFirstPointIsNeverReported) {
  // The first peak tops inside the first window, so the mean rises only from index 0.
  const Signal s = MakeSignal(400, 0.0, 0.1, {{0.2, 800.0, 0.15}, {25.0, 800.0, 0.3}},
                              {.baseline = 0.0});
  QXPeakTable t;
  ASSERT_EQ(Scan(t, s), 1);
  EXPECT_NEAR(t.GetPeak(0)->m_dApexX, 25.0, 1e-9);
}

TEST(MovingMeanScan, RangesAccumulateOnOneTable) {
  const Signal s = ThreePeaks();
  QXPeakTable whole, t;
  Scan(whole, s);
  EXPECT_EQ(Scan(t, s, {.finish = 0, .startX = 0.0, .endX = 35.0}), 1);
  EXPECT_EQ(t.GetPeak(0)->m_dCentroidX, 0.0);  // no finishing step, no centroid
  EXPECT_EQ(Scan(t, s, {.finish = 0, .startX = 35.0, .endX = 99.9}), 3);
  for (std::int32_t k = 0; k < 3; ++k) EXPECT_EQ(t.GetPeak(k)->m_dApexX, whole.GetPeak(k)->m_dApexX);
}

TEST(MovingMeanScan, FinishingStepCentroidsAndChargesIsotopeSeries) {
  // A charge-2 series: spacing 1.007825 / 2, intensities falling.
  const double step = 1.007825 / 2;
  std::vector<GaussPeak> peaks;
  for (int k = 0; k < 4; ++k) peaks.push_back({500.0 + k * step, 1000.0 * std::pow(0.6, k), 0.02});
  const Signal s = MakeSignal(4000, 499.0, 0.001, peaks, {.baseline = 5.0});
  // On a noise-free baseline the last right bound runs to the end: no width limit.
  QXPeakTable t;
  ASSERT_EQ(Scan(t, s, {.maxPeakWidth = 4000, .massProcessing = 1}), 4);
  for (std::int32_t k = 0; k < 4; ++k) {
    const QXPeakTableElement& p = *t.GetPeak(k);
    EXPECT_NEAR(p.m_dCentroidX, peaks[k].centre, 2e-4) << k;
    EXPECT_EQ(p.m_nCharge, 2) << k;
    EXPECT_TRUE(p.m_dwFlags & kQXPeakChargeAssigned);
  }
  EXPECT_TRUE(t.GetPeak(0)->m_dwFlags & kQXPeakSeriesLow);
  EXPECT_TRUE(t.GetPeak(0)->m_dwFlags & kQXPeakSeriesMostIntense);
}

TEST(MovingMeanScan, CountFamilyAgreesWithTheDoubleFamilyOnIntegerData) {
  Signal s = MakeSignal(3000, 100.0, 0.01,
                        {{105.0, 5000.0, 0.05}, {112.0, 900.0, 0.04}, {121.0, 20000.0, 0.06}},
                        {.baseline = 40.0, .slope = 2.0, .noiseSigma = 6.0, .seed = 3});
  const testing::CountSignal counts = testing::ToCountFamily(s);
  const Signal widened = testing::FromCountFamily(counts);
  for (int filterType : {0, 1}) {
    for (double noise : {0.0, 20.0}) {
      const ScanArgs a{.threshold = 300.0, .filterType = filterType, .noiseThreshold = noise};
      QXPeakTable wide;
      Scan(wide, widened, a);
      // This family centroids on every call unless the percentage is negative.
      const double centroidPct = noise == 0.0 ? -1.0 : 50.0;
      QXPeakTable narrow;
      narrow.FindPeaks(counts.x.data(), counts.y.data(), 3000, 1.0, a.threshold, filterType,
                       a.filterWidth, a.filterInc, 0.0, 0, a.maxPeakWidth, noise, centroidPct, 1);
      ASSERT_EQ(narrow.GetNumPeaks(), wide.GetNumPeaks());
      EXPECT_GE(wide.GetNumPeaks(), 3);
      for (std::int32_t k = 0; k < wide.GetNumPeaks(); ++k) {
        EXPECT_EQ(narrow.GetPeak(k)->m_nApexIndex, wide.GetPeak(k)->m_nApexIndex);
        EXPECT_EQ(narrow.GetPeak(k)->m_nLeftIndex, wide.GetPeak(k)->m_nLeftIndex);
        EXPECT_EQ(narrow.GetPeak(k)->m_nRightIndex, wide.GetPeak(k)->m_nRightIndex);
        EXPECT_DOUBLE_EQ(narrow.GetPeak(k)->m_dArea, wide.GetPeak(k)->m_dArea);
        const QXPeakTableElement& p = *narrow.GetPeak(k);
        if (centroidPct < 0.0) {
          EXPECT_EQ(p.m_dCentroidX, 0.0);
        } else {
          EXPECT_GT(p.m_dCentroidX, p.m_dLeftX);
          EXPECT_LT(p.m_dCentroidX, p.m_dRightX);
        }
      }
    }
  }
}

TEST(MovingMeanScan, HostileInputFailsCleanly) {
  QXPeakTable t;
  const Signal s = ThreePeaks();
  EXPECT_EQ(Scan(t, nullptr, s.y.data(), 10), -1);
  EXPECT_EQ(Scan(t, s.x.data(), s.y.data(), 0), -1);
  // Steps that would never advance, a window wider than the data, a NaN range: nothing found.
  for (const ScanArgs& a : {ScanArgs{.filterInc = 0}, ScanArgs{.filterInc = -3},
                            ScanArgs{.filterWidth = 5000}, ScanArgs{.startX = kNaN}}) {
    EXPECT_EQ(Scan(t, s, a), 0);
  }

  Signal bad = ThreePeaks();
  for (std::size_t i = 0; i < bad.y.size(); i += 37) bad.y[i] = kNaN;
  bad.y[500] = std::numeric_limits<double>::infinity();
  for (int filterType : {0, 1, 2}) {
    QXPeakTable u;
    EXPECT_GE(Scan(u, bad, {.filterType = filterType, .massProcessing = 1}), 0);
  }
}

}  // namespace
}  // namespace qxpkutil
