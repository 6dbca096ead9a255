#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::GaussPeak;
using testing::MakeSignal;
using testing::Signal;

class Table : public QXPeakTable {
 public:
  using QXPeakTable::CentroidFindPeaks;
  using QXPeakTable::ComputeCentroid;
  using QXPeakTable::FindMaxIndex;

  long Find(const Signal& s, double threshold, double divisor, int method = 0, int finish = 1,
            double start = 0.0, double end = 0.0, double pct = 50.0) {
    return FindPeaks(s.x.data(), s.y.data(), N(s), threshold, divisor, pct, method, 0, 0, 0, 0.0,
                     0.0, finish, start, end, 0);
  }
  static std::uint32_t N(const Signal& s) { return static_cast<std::uint32_t>(s.x.size()); }
  const QXPeakTableElement& operator[](long i) const { return *GetPeak(i); }
};

const double kSqrt2Pi = std::sqrt(2.0 * std::acos(-1.0));

// ---- FindMaxIndex ----

struct MaxCase {
  std::uint32_t from;
  std::uint32_t to;
  long plain;
  double threshold;
  int result;
  long index;
};

TEST(FindMaxIndex, PlainAndThresholdForms) {
  const std::vector<double> y{1, 3, 3, 2, 5, 5, 0};
  const std::vector<MaxCase> cases{
      {0, 6, 1, 0, 1, 4},    // first of two equal highest points
      {1, 3, 1, 0, 1, 1},
      {2, 2, 1, 0, 1, 2},
      {5, 3, 1, 0, 1, 5},    // from > to: from itself
      {3, 100, 1, 0, 1, 4},  // `to` past the array is cut back
      {0, 6, 0, 2.5, 1, 1},  // climbing stops on the first point of a plateau
      {0, 6, 0, 4.0, 1, 4},
      {3, 6, 0, 0.0, 1, 4},  // the first local top, not the range's first point
      {0, 6, 0, 6.0, 0, -1},
      {5, 3, 0, 0.0, 0, -1},
  };
  Table t;
  for (const MaxCase& c : cases) {
    long index = 99;
    EXPECT_EQ(t.FindMaxIndex(y.data(), 7, c.from, c.to, c.plain, index, c.threshold), c.result)
        << c.from << ".." << c.to << " plain " << c.plain;
    EXPECT_EQ(index, c.index) << c.from << ".." << c.to << " plain " << c.plain;
  }
}

TEST(FindMaxIndex, ThresholdFormFindsFirstLocalTopNotHighest) {
  const std::vector<double> y{0, 4, 2, 9, 1};
  Table t;
  long index = 0;
  ASSERT_EQ(t.FindMaxIndex(y.data(), 5, 0, 4, 0, index, 3.0), 1);
  EXPECT_EQ(index, 1);
}

TEST(FindMaxIndex, NaNNeverWinsAndNullFails) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const std::vector<double> y{nan, 1, nan, 2, 0};
  Table t;
  long index = 0;
  EXPECT_EQ(t.FindMaxIndex(y.data(), 5, 0, 4, 1, index, 0.0), 1);
  EXPECT_EQ(index, 3);
  EXPECT_EQ(t.FindMaxIndex(nullptr, 5, 0, 4, 1, index, 0.0), 0);
  EXPECT_EQ(index, -1);
}

// ---- ComputeCentroid ----

struct Measured {
  long result;
  double centroid = -7, area = -7, leftX = -7, leftY = -7, rightX = -7, rightY = -7;
};

Measured Measure(const std::vector<double>& x, const std::vector<double>& y, double pct,
                 long left, long right) {
  Table t;
  Measured m{};
  m.result = t.ComputeCentroid(x.data(), y.data(), static_cast<std::uint32_t>(x.size()), pct,
                               left, right, m.centroid, m.area, m.leftX, m.leftY, m.rightX,
                               m.rightY);
  return m;
}

// A triangle from x = 1 to 7 with its top 3 at x = 4: area 9, half height at x = 2.5 and 5.5.
const std::vector<double> kTriX{0, 1, 2, 3, 4, 5, 6, 7, 8};
const std::vector<double> kTriY{0, 0, 1, 2, 3, 2, 1, 0, 0};

TEST(ComputeCentroid, SymmetricTriangleAtHalfHeight) {
  const Measured m = Measure(kTriX, kTriY, 50.0, 1, 7);
  ASSERT_EQ(m.result, 1);
  EXPECT_DOUBLE_EQ(m.centroid, 4.0);
  EXPECT_DOUBLE_EQ(m.area, 9.0);
  EXPECT_DOUBLE_EQ(m.leftX, 2.5);
  EXPECT_DOUBLE_EQ(m.rightX, 5.5);
  EXPECT_DOUBLE_EQ(m.leftY, 1.5);
  EXPECT_DOUBLE_EQ(m.rightY, 1.5);
}

TEST(ComputeCentroid, PercentOutsideRangeUsesTheWholeStretch) {
  const std::vector<double> y{0, 0, 1, 4, 3, 2, 1, 0, 0};
  const Measured m = Measure(kTriX, y, 150.0, 1, 7);
  ASSERT_EQ(m.result, 1);
  // Trapezoids over x = 1..7: area 0.5 + 2.5 + 3.5 + 2.5 + 1.5 + 0.5, moment
  // 1 + 7 + 12 + 11 + 8 + 3.
  EXPECT_DOUBLE_EQ(m.area, 11.0);
  EXPECT_NEAR(m.centroid, 42.0 / 11.0, 1e-12);
  EXPECT_DOUBLE_EQ(m.leftX, 1.0);
  EXPECT_DOUBLE_EQ(m.rightX, 7.0);
}

TEST(ComputeCentroid, AreaIsAboveTheLineThroughTheBounds) {
  // The triangle lifted onto the ramp 10 + x/4: the ramp is not part of the area.
  std::vector<double> y = kTriY;
  for (std::size_t i = 0; i < y.size(); ++i) y[i] += 10.0 + 0.25 * kTriX[i];
  const Measured m = Measure(kTriX, y, 50.0, 1, 7);
  ASSERT_EQ(m.result, 1);
  EXPECT_NEAR(m.area, 9.0, 1e-12);
}

TEST(ComputeCentroid, DescendingAxisGivesTheSameMeasurement) {
  const std::vector<double> y{0, 0, 1, 4, 3, 2, 1, 0, 0};
  const std::vector<double> rx(kTriX.rbegin(), kTriX.rend());
  const std::vector<double> ry(y.rbegin(), y.rend());
  for (double pct : {50.0, 150.0}) {
    const Measured up = Measure(kTriX, y, pct, 1, 7);
    const Measured down = Measure(rx, ry, pct, 1, 7);
    ASSERT_EQ(up.result, 1);
    ASSERT_EQ(down.result, 1);
    EXPECT_NEAR(down.centroid, up.centroid, 1e-12);
    EXPECT_NEAR(down.area, up.area, 1e-12);
    EXPECT_NEAR(down.leftX, up.leftX, 1e-12);  // the lower-x end of the region
    EXPECT_NEAR(down.rightX, up.rightX, 1e-12);
  }
}

TEST(ComputeCentroid, FailsWithoutTouchingOutputs) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  std::vector<double> withNaN = kTriY;
  withNaN[4] = nan;
  const struct {
    std::vector<double> y;
    double pct;
    long left, right;
  } cases[] = {
      {kTriY, 50.0, 4, 7},          // apex on the left bound
      {kTriY, 50.0, 1, 4},          // apex on the right bound
      {kTriY, 50.0, 5, 3},          // bounds reversed
      {kTriY, 50.0, -1, 7},
      {kTriY, 50.0, 1, 9},          // right bound past the array
      {{0, 0, 0, 0, 0, 0, 0, 0, 0}, 50.0, 1, 7},
      {kTriY, nan, 1, 7},
      {withNaN, 50.0, 3, 5},
  };
  for (const auto& c : cases) {
    const Measured m = Measure(kTriX, c.y, c.pct, c.left, c.right);
    EXPECT_EQ(m.result, 0) << c.left << ".." << c.right;
    EXPECT_EQ(m.centroid, -7);
    EXPECT_EQ(m.area, -7);
    EXPECT_EQ(m.leftX, -7);
    EXPECT_EQ(m.rightY, -7);
  }
}

// ---- Detection on profile spectra ----

// Peaks at x = 10, 20, 30 (indices 1000, 2000, 3000 at dx = 0.01) whose width grows with x,
// as at constant resolution: sigma = index / 500 points. With Divisor 83 a window is six
// sigma wide, so each peak's bounds reach its foot and its area is the whole Gaussian.
constexpr double kDx = 0.01;
constexpr double kDivisor = 83.0;
const std::vector<GaussPeak> kPeaks{{10.0, 1000.0, 0.02}, {20.0, 2000.0, 0.04}, {30.0, 2500.0, 0.06}};

Signal CleanSpectrum(double baseline = 0.0) {
  return MakeSignal(4000, 0.0, kDx, kPeaks, {.baseline = baseline});
}

TEST(FindPeaksDivisor, CleanPeaksHaveExactPositionsBoundsAndAreas) {
  const double baseline = 10.0;
  const Signal s = CleanSpectrum(baseline);
  Table t;
  ASSERT_EQ(t.Find(s, 100.0, kDivisor, 0), 3);
  EXPECT_EQ(t.GetSortMethod(), 0);
  for (long i = 0; i < 3; ++i) {
    const QXPeakTableElement& p = t[i];
    const GaussPeak& g = kPeaks[static_cast<std::size_t>(i)];
    const double sigmaPoints = g.sigma / kDx;
    EXPECT_EQ(p.m_nApexIndex, static_cast<std::uint32_t>(std::lround(g.centre / kDx)));
    EXPECT_DOUBLE_EQ(p.m_dApexY, g.height + baseline);
    EXPECT_NEAR(p.m_dCentroidX, g.centre, 1e-9);
    // Half-height crossings of a Gaussian lie 1.1774 sigma from its centre.
    EXPECT_NEAR(p.m_dCentroidRightX - p.m_dCentroidLeftX, 2 * 1.1774 * g.sigma, 0.1 * g.sigma);
    // Bounds: symmetric, at the foot (beyond 5 sigma), within one window width.
    EXPECT_EQ(p.m_nApexIndex - p.m_nLeftIndex, p.m_nRightIndex - p.m_nApexIndex);
    const double reach = p.m_nRightIndex - p.m_nApexIndex;
    EXPECT_GT(reach, 5 * sigmaPoints);
    EXPECT_LE(reach, g.centre / kDx / kDivisor);
    // Method 0: the plain sum above the flat baseline is the Gaussian's area in points.
    EXPECT_NEAR(p.m_dArea, g.height * sigmaPoints * kSqrt2Pi, 1e-3 * p.m_dArea);
  }
}

TEST(FindPeaksDivisor, AreaKindsFollowTheMethodAndTheFinishFlag) {
  const Signal s = CleanSpectrum(10.0);
  const auto areas = [&](int method, int finish) {
    Table t;
    EXPECT_EQ(t.Find(s, 100.0, kDivisor, method, finish), 3);
    std::vector<double> a;
    for (long i = 0; i < 3; ++i) a.push_back(t[i].m_dArea);
    return a;
  };
  const std::vector<double> unfinished = areas(1, 0);
  const std::vector<double> kept = areas(2, 1);
  const std::vector<double> summed = areas(1, 1);
  for (std::size_t i = 0; i < 3; ++i) {
    const GaussPeak& g = kPeaks[i];
    // The search writes trapezoid areas over x; method 2 and an unfinished search keep them.
    EXPECT_NEAR(unfinished[i], g.height * g.sigma * kSqrt2Pi, 1e-3 * unfinished[i]);
    EXPECT_EQ(kept[i], unfinished[i]);
    EXPECT_NEAR(summed[i], g.height * g.sigma / kDx * kSqrt2Pi, 1e-3 * summed[i]);
  }
}

TEST(FindPeaksDivisor, NoisyPeaksOnADriftingBaseline) {
  const Signal s = MakeSignal(4000, 0.0, kDx, kPeaks,
                              {.baseline = 50.0, .slope = 3.0, .noiseSigma = 4.0, .seed = 3});
  Table t;
  ASSERT_EQ(t.Find(s, 250.0, kDivisor, 1), 3);
  for (long i = 0; i < 3; ++i) {
    const QXPeakTableElement& p = t[i];
    const GaussPeak& g = kPeaks[static_cast<std::size_t>(i)];
    EXPECT_NEAR(p.m_dCentroidX, g.centre, 0.1 * g.sigma);
    EXPECT_LT(p.m_dLeftX, g.centre - 2 * g.sigma);
    EXPECT_GT(p.m_dRightX, g.centre + 2 * g.sigma);
    // The line baseline removes the drift; the bounds may sit a little up the flanks.
    EXPECT_NEAR(p.m_dArea, g.height * g.sigma / kDx * kSqrt2Pi, 0.06 * p.m_dArea);
  }
}

TEST(FindPeaksDivisor, ClosePeaksShareTheirValley) {
  const Signal s = MakeSignal(2000, 0.0, kDx, {{10.0, 1000.0, 0.02}, {10.12, 1000.0, 0.02}});
  Table t;
  ASSERT_EQ(t.Find(s, 100.0, kDivisor), 2);
  EXPECT_EQ(t[0].m_nRightIndex, 1006u);
  EXPECT_EQ(t[1].m_nLeftIndex, 1006u);
  EXPECT_NEAR(t[0].m_dCentroidX, 10.0, 1e-3);
  EXPECT_NEAR(t[1].m_dCentroidX, 10.12, 1e-3);
}

TEST(FindPeaksDivisor, NoiseSplitTopIsOnePeak) {
  // A top of 100 with a dip and a second, lower top one point away is a single peak.
  std::vector<double> y(200, 1.0);
  const std::vector<double> top{5, 20, 60, 100, 80, 95, 50, 15, 4};
  std::copy(top.begin(), top.end(), y.begin() + 96);
  Signal s{std::vector<double>(200), y};
  for (std::size_t i = 0; i < 200; ++i) s.x[i] = static_cast<double>(i);
  Table t;
  ASSERT_EQ(t.Find(s, 10.0, 10.0), 1);
  EXPECT_EQ(t[0].m_nApexIndex, 99u);
  EXPECT_EQ(t[0].m_nLeftIndex, 95u);  // the first baseline points on either side
  EXPECT_EQ(t[0].m_nRightIndex, 105u);
}

TEST(FindPeaksDivisor, RangeSelectsPeaksAndSegmentsAccumulateInOrder) {
  const Signal s = CleanSpectrum();
  Table t;
  ASSERT_EQ(t.Find(s, 100.0, kDivisor, 0, 0, 25.0, 35.0), 1);
  ASSERT_EQ(t.Find(s, 100.0, kDivisor, 0, 0, 15.0, 5.0), 2);  // ends in either order
  ASSERT_EQ(t.GetNumPeaks(), 2);
  EXPECT_EQ(t.GetSortMethod(), 0);
  EXPECT_NEAR(t[0].m_dCentroidX, 10.0, 1e-9);  // sorted by apex x, not by search order
  EXPECT_NEAR(t[1].m_dCentroidX, 30.0, 1e-9);
}

TEST(FindPeaksDivisor, DescendingAxisFindsTheSamePeaks) {
  const Signal up = CleanSpectrum();
  Signal down{std::vector<double>(up.x.rbegin(), up.x.rend()),
              std::vector<double>(up.y.rbegin(), up.y.rend())};
  // Windows are sized by index, so the mirrored spectrum needs windows sized from its end.
  Table a;
  Table b;
  ASSERT_EQ(a.Find(up, 100.0, 0.0), 3);
  ASSERT_EQ(b.Find(down, 100.0, 0.0), 3);
  EXPECT_EQ(b.GetSortMethod(), 0);
  for (long i = 0; i < 3; ++i) {
    EXPECT_NEAR(b[i].m_dCentroidX, a[i].m_dCentroidX, 1e-9);
    EXPECT_NEAR(b[i].m_dApexX, a[i].m_dApexX, 1e-12);
    EXPECT_LE(b[i].m_dApexX, i < 2 ? b[i + 1].m_dApexX : 1e9);
  }
}

TEST(FindPeaksDivisor, DivisorZeroAdaptsWindowsToThePeaks) {
  const Signal s = CleanSpectrum(10.0);
  Table t;
  ASSERT_EQ(t.Find(s, 100.0, 0.0), 3);
  for (long i = 0; i < 3; ++i) {
    EXPECT_NEAR(t[i].m_dCentroidX, kPeaks[static_cast<std::size_t>(i)].centre, 1e-9);
  }
}

TEST(FindPeaksDivisor, NothingAtTheThresholdLeavesTheTableAlone) {
  const Signal s = CleanSpectrum();
  Table t;
  t.AddPeak(QXPeakTableElement(1.0, 2.0, 3));
  t.SortPeakTable(1);
  EXPECT_EQ(t.Find(s, 5000.0, kDivisor), -1);
  EXPECT_EQ(t.Find(s, 100.0, kDivisor, 0, 1, 40.0, 45.0), -1);  // a range without peaks
  EXPECT_EQ(t.GetNumPeaks(), 1);
  EXPECT_EQ(t.GetSortMethod(), 1);
  EXPECT_EQ(t.CentroidFindPeaks(s.x.data(), s.y.data(), Table::N(s), 0, 0, 5000.0, kDivisor, 50.0),
            -3);
}

TEST(FindPeaksDivisor, UnusableDivisorFails) {
  const Signal s = CleanSpectrum();
  for (double d : {-1.0, kQXUnsetValue, std::numeric_limits<double>::quiet_NaN(),
                   std::numeric_limits<double>::infinity()}) {
    Table t;
    EXPECT_EQ(t.Find(s, 100.0, d), -1) << d;
    EXPECT_EQ(t.CentroidFindPeaks(s.x.data(), s.y.data(), Table::N(s), 0, 0, 100.0, d, 50.0), -1);
    EXPECT_EQ(t.GetNumPeaks(), 0);
  }
}

// Every record the search writes points into the arrays with L <= apex <= R.
void ExpectSaneRecords(const Table& t, std::uint32_t n) {
  for (long i = 0; i < t.GetNumPeaks(); ++i) {
    const QXPeakTableElement& p = t[i];
    EXPECT_LT(p.m_nRightIndex, n);
    EXPECT_LE(p.m_nLeftIndex, p.m_nApexIndex);
    EXPECT_LE(p.m_nApexIndex, p.m_nRightIndex);
    EXPECT_GE(p.m_dArea, 0.0);
  }
}

TEST(FindPeaksDivisor, HostileInputNeverBreaks) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  Signal noisy = MakeSignal(3000, 0.0, kDx, kPeaks, {.noiseSigma = 50.0, .seed = 9});
  noisy.y[1001] = nan;
  noisy.y[2000] = inf;
  noisy.y[0] = nan;
  noisy.y[2999] = 1e300;
  const Signal flat{std::vector<double>(50, 1.0), std::vector<double>(50, 5.0)};
  const Signal one{{1.0}, {5.0}};
  const Signal two{{1.0, 2.0}, {5.0, 1.0}};
  for (const Signal* s : std::vector<const Signal*>{&noisy, &flat, &one, &two}) {
    for (double d : {0.0, 1e-300, 1e-3, 60.0, 1e300}) {
      for (double pct : {0.0, 50.0, 100.0, 150.0, -5.0}) {
        Table t;
        const long r = t.Find(*s, 0.0, d, 1, 1, 0.0, 0.0, pct);
        EXPECT_GE(r, -1);
        ExpectSaneRecords(t, Table::N(*s));
      }
    }
  }
  Table t;
  EXPECT_EQ(t.Find(Signal{}, 0.0, 60.0), -1);
  EXPECT_EQ(t.FindPeaks(nullptr, noisy.y.data(), 10, 0, 60, 50, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0), -1);
  // Records from longer arrays keep their areas instead of being read past these arrays.
  t.AddPeak(5.0, 1.0, 5000, 4.0, 0.0, 4000, 6.0, 0.0, 6000, 5.0, 123.0, 0, 0, 0, 0, 0);
  EXPECT_EQ(t.Find(CleanSpectrum(), 100.0, kDivisor), 4);
  EXPECT_EQ(t[0].m_dArea, 123.0);
}

TEST(FindPeaksDivisor, FinishingRunsMassProcessingAndFitsOnlyWhenAsked) {
  // An isotope series 500, 501.007825, 502.01565 as profile peaks about 21 points (six
  // sigma) wide, searched in a range around it.
  const std::vector<GaussPeak> series{
      {500.0, 1000.0, 0.07}, {501.007825, 600.0, 0.07}, {502.01565, 200.0, 0.07}};
  const Signal s = MakeSignal(25300, 0.0, 0.02, series, {.noiseSigma = 5.0, .seed = 4});
  const auto run = [&](int finish, int gaussFit, Table& t) {
    return t.FindPeaks(s.x.data(), s.y.data(), Table::N(s), 50.0, 1190.0, 50.0, 1, 1, 2, 3, 0.1,
                       1.0, finish, 499.0, 503.0, gaussFit);
  };
  Table unfinished;
  Table finished;
  Table fitted;
  ASSERT_EQ(run(0, 1, unfinished), 3);
  ASSERT_EQ(run(1, 0, finished), 3);
  ASSERT_EQ(run(1, 1, fitted), 3);
  bool fitMoved = false;
  for (long i = 0; i < 3; ++i) {
    EXPECT_EQ(unfinished[i].m_nCharge, 0);
    EXPECT_EQ(unfinished[i].m_dwFlags, kQXPeakNormal);
    EXPECT_EQ(finished[i].m_nCharge, 1);
    EXPECT_TRUE(finished[i].m_dwFlags & kQXPeakChargeAssigned);
    EXPECT_NEAR(fitted[i].m_dCentroidX, series[static_cast<std::size_t>(i)].centre, 0.01);
    fitMoved = fitMoved || fitted[i].m_dCentroidX != finished[i].m_dCentroidX;
  }
  EXPECT_EQ(finished[0].m_dwFlags, kQXPeakNormal | kQXPeakChargeAssigned | kQXPeakSeriesLow |
                                       kQXPeakSeriesMostIntense);
  EXPECT_TRUE(fitMoved);
}

// ---- Centroided spectra ----

TEST(BuildCentroidPeakTable, EachStickAtTheThresholdIsOnePeak) {
  const std::vector<double> x{100, 101, 102, 103, 104};
  const std::vector<double> y{5, 50, 4.9, 50, std::numeric_limits<double>::quiet_NaN()};
  Table t;
  ASSERT_EQ(t.BuildCentroidPeakTable(x.data(), y.data(), 5, 5.0, 2, 3, 0.1, 1.0, 0, 0, 0), 3);
  EXPECT_EQ(t.GetSortMethod(), 0);
  const std::uint32_t indices[] = {0, 1, 3};
  for (long i = 0; i < 3; ++i) {
    const QXPeakTableElement& p = t[i];
    const std::uint32_t k = indices[i];
    EXPECT_EQ(p.m_nApexIndex, k);
    EXPECT_EQ(p.m_nLeftIndex, k);
    EXPECT_EQ(p.m_nRightIndex, k);
    for (double v : {p.m_dApexX, p.m_dCentroidX, p.m_dLeftX, p.m_dRightX, p.m_dCentroidLeftX,
                     p.m_dCentroidRightX}) {
      EXPECT_EQ(v, x[k]);
    }
    for (double v : {p.m_dApexY, p.m_dArea, p.m_dLeftY, p.m_dRightY, p.m_dCentroidLeftY,
                     p.m_dCentroidRightY}) {
      EXPECT_EQ(v, y[k]);
    }
  }
  EXPECT_EQ(t.BuildCentroidPeakTable(nullptr, y.data(), 5, 5.0, 2, 3, 0.1, 1.0, 0, 0, 0), -1);
}

TEST(BuildCentroidPeakTable, RangeOrderAndCharges) {
  // Sticks in descending x: an isotope series and a lone stick outside the range.
  const std::vector<double> x{900.0, 502.01565, 501.007825, 500.0};
  const std::vector<double> y{80, 20, 60, 100};
  Table t;
  ASSERT_EQ(t.BuildCentroidPeakTable(x.data(), y.data(), 4, 10.0, 2, 3, 0.1, 1.0, 1, 499.0, 503.0),
            3);
  EXPECT_EQ(t.GetSortMethod(), 0);
  for (long i = 0; i < 3; ++i) {
    EXPECT_EQ(t[i].m_dApexX, x[static_cast<std::size_t>(3 - i)]);
    EXPECT_EQ(t[i].m_nCharge, 1);
  }
  Table unfinished;
  unfinished.BuildCentroidPeakTable(x.data(), y.data(), 4, 10.0, 2, 3, 0.1, 1.0, 0, 0, 0);
  EXPECT_EQ(unfinished.GetNumPeaks(), 4);
  EXPECT_EQ(unfinished[0].m_nCharge, 0);
}

}  // namespace
}  // namespace qxpkutil
