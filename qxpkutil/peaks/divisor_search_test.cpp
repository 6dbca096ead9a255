#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestPeaks.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::GaussPeak;
using testing::MakeSignal;
using testing::RecordValues;
using testing::Signal;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
const double kSqrt2Pi = std::sqrt(2.0 * std::acos(-1.0));

class Table : public QXPeakTable {
 public:
  using QXPeakTable::CentroidFindPeaks;
  using QXPeakTable::ComputeCentroid;
  using QXPeakTable::FindMaxIndex;

  std::int32_t Find(const Signal& s, double threshold, double divisor, int method = 0,
                    int finish = 1, double start = 0.0, double end = 0.0, double pct = 50.0) {
    return FindPeaks(s.x.data(), s.y.data(), N(s), threshold, divisor, pct, method, 0, 0, 0, 0.0,
                     0.0, finish, start, end, 0);
  }
  static std::uint32_t N(const Signal& s) { return static_cast<std::uint32_t>(s.x.size()); }
  const QXPeakTableElement& operator[](std::int32_t i) const { return *GetPeak(i); }
};

TEST(FindMaxIndex, PlainAndThresholdForms) {
  const std::vector<double> y{1, 3, 3, 2, 5, 5, 0, 9, 1}, withNaN{kNaN, 1, kNaN, 2, 0};
  const struct {
    const double* y;
    std::uint32_t n, from, to;
    std::int32_t plain;
    double threshold;
    int result;
    std::int32_t index;
  } cases[] = {
      {y.data(), 9, 0, 8, 1, 0, 1, 7},   {y.data(), 9, 4, 6, 1, 0, 1, 4},  // first of equal tops
      {y.data(), 9, 2, 2, 1, 0, 1, 2},   {y.data(), 9, 5, 3, 1, 0, 1, 5},  // from > to: from
      {y.data(), 9, 6, 100, 1, 0, 1, 7},                   // `to` past the array is cut back
      {y.data(), 9, 0, 8, 0, 2.5, 1, 1},  // climbing stops on a plateau's first point
      {y.data(), 9, 0, 8, 0, 4.0, 1, 4},  // the first local top, not the highest
      {y.data(), 9, 0, 8, 0, 10.0, 0, -1}, {y.data(), 9, 5, 3, 0, 0.0, 0, -1},
      {withNaN.data(), 5, 0, 4, 1, 0.0, 1, 3}, {withNaN.data(), 5, 0, 1, 0, 5.0, 0, -1},
      {nullptr, 5, 0, 4, 1, 0.0, 0, -1}};
  Table t;
  for (const auto& c : cases) {
    std::int32_t index = 99;
    const int result = t.FindMaxIndex(c.y, c.n, c.from, c.to, c.plain, index, c.threshold);
    EXPECT_EQ(std::make_pair(result, index), std::make_pair(c.result, c.index))
        << c.from << ".." << c.to << " plain " << c.plain;
  }
}

struct Measured {
  std::int32_t result;
  double centroid = -7, area = -7, leftX = -7, leftY = -7, rightX = -7, rightY = -7;
  std::vector<double> Outputs() const { return {centroid, area, leftX, leftY, rightX, rightY}; }
};

Measured Measure(const std::vector<double>& x, const std::vector<double>& y, double pct,
                 std::int32_t left, std::int32_t right) {
  Table t;
  Measured m{};
  m.result = t.ComputeCentroid(x.data(), y.data(), static_cast<std::uint32_t>(x.size()), pct,
                               left, right, m.centroid, m.area, m.leftX, m.leftY, m.rightX,
                               m.rightY);
  return m;
}

const std::vector<double> kX{0, 1, 2, 3, 4, 5, 6, 7, 8};
// A triangle from x = 1 to 7 with its top 3 at x = 4: area 9, half height at 2.5 and 5.5.
const std::vector<double> kTriangle{0, 0, 1, 2, 3, 2, 1, 0, 0};
// Trapezoids over x = 1..7: area 0.5 + 2.5 + 3.5 + 2.5 + 1.5 + 0.5 = 11, moment
// 1 + 7 + 12 + 11 + 8 + 3 = 42.
const std::vector<double> kLopsided{0, 0, 1, 4, 3, 2, 1, 0, 0};

TEST(ComputeCentroid, KnownShapesOnEitherAxisDirection) {
  std::vector<double> ramped = kTriangle;  // lifted onto 10 + x/4, which is no part of the area
  for (std::size_t i = 0; i < ramped.size(); ++i) ramped[i] += 10.0 + 0.25 * kX[i];
  const struct {
    const std::vector<double>& y;
    double pct, centroid, area, leftX, rightX;
  } cases[] = {
      {kTriangle, 50.0, 4.0, 9.0, 2.5, 5.5},
      {ramped, 50.0, kNaN, 9.0, kNaN, kNaN},  // cut above the higher bound: area only
      {kLopsided, 150.0, 42.0 / 11.0, 11.0, 1.0, 7.0},  // outside 0..100: the whole stretch
  };
  for (const auto& c : cases) {
    for (bool descending : {false, true}) {
      const std::vector<double> x = descending ? std::vector<double>(kX.rbegin(), kX.rend()) : kX;
      const std::vector<double> y =
          descending ? std::vector<double>(c.y.rbegin(), c.y.rend()) : c.y;
      const Measured m = Measure(x, y, c.pct, 1, 7);
      ASSERT_EQ(m.result, 1) << c.pct << " descending " << descending;
      EXPECT_NEAR(m.area, c.area, 1e-12);
      if (std::isnan(c.centroid)) continue;
      EXPECT_NEAR(m.centroid, c.centroid, 1e-12);
      EXPECT_NEAR(m.leftX, c.leftX, 1e-12);  // the lower-x end of the region
      EXPECT_NEAR(m.rightX, c.rightX, 1e-12);
    }
  }
}

TEST(ComputeCentroid, FailsWithoutTouchingOutputs) {
  std::vector<double> withNaN = kTriangle;
  withNaN[4] = kNaN;
  const struct {
    std::vector<double> y;
    double pct;
    std::int32_t left, right;
  } cases[] = {
      {kTriangle, 50.0, 4, 7},  // apex on a bound
      {kTriangle, 50.0, 1, 4},  {kTriangle, 50.0, 5, 3},  {kTriangle, 50.0, -1, 7},
      {kTriangle, 50.0, 1, 9},  // right bound past the array
      {std::vector<double>(9, 1.0), 50.0, 1, 7}, {kTriangle, kNaN, 1, 7}, {withNaN, 50.0, 3, 5},
  };
  for (const auto& c : cases) {
    const Measured m = Measure(kX, c.y, c.pct, c.left, c.right);
    EXPECT_EQ(m.result, 0) << c.left << ".." << c.right;
    EXPECT_EQ(m.Outputs(), std::vector<double>(6, -7.0));
  }
}

// Peaks at x = 10, 20, 30 (indices 1000, 2000, 3000 at dx = 0.01) whose width grows with x,
// as at constant resolution: sigma = index / 500 points. With Divisor 83 a window is six
// sigma wide, so each peak's bounds reach its foot and its area is the whole Gaussian.
constexpr double kDx = 0.01;
constexpr double kDivisor = 83.0;
const std::vector<GaussPeak> kPeaks{
    {10.0, 1000.0, 0.02}, {20.0, 2000.0, 0.04}, {30.0, 2500.0, 0.06}};

Signal Spectrum(const testing::SignalOptions& options = {}) {
  return MakeSignal(4000, 0.0, kDx, kPeaks, options);
}

// Positions and bounds are compared with the straightforward search below; here, the areas
// the finishing step leaves.
TEST(FindPeaksDivisor, FinishedAreasAreSumsAboveTheBaselineOrTheSearchsTrapezoids) {
  const Signal s = Spectrum({.baseline = 10.0});
  // Integration method 2 keeps the search's trapezoid areas over x, as does a search that
  // is not finished; method 0 sums intensities above a flat baseline.
  Table kept, unfinished, summed;
  ASSERT_EQ(kept.Find(s, 100.0, kDivisor, 2), 3);
  ASSERT_EQ(unfinished.Find(s, 100.0, kDivisor, 0, 0), 3);
  ASSERT_EQ(summed.Find(s, 100.0, kDivisor, 0), 3);
  for (std::int32_t i = 0; i < 3; ++i) {
    const GaussPeak& g = kPeaks[static_cast<std::size_t>(i)];
    EXPECT_NEAR(summed[i].m_dArea, g.height * g.sigma / kDx * kSqrt2Pi, 1e-3 * summed[i].m_dArea);
    EXPECT_NEAR(kept[i].m_dArea, g.height * g.sigma * kSqrt2Pi, 1e-3 * kept[i].m_dArea);
    EXPECT_EQ(unfinished[i].m_dArea, kept[i].m_dArea);
  }
}

TEST(FindPeaksDivisor, RangesInEitherOrderAndApexXOrder) {
  const Signal s = Spectrum();
  Table t;
  ASSERT_EQ(t.Find(s, 100.0, kDivisor, 0, 0, 25.0, 35.0), 1);
  ASSERT_EQ(t.Find(s, 100.0, kDivisor, 0, 0, 15.0, 5.0), 2);  // ends in either order
  EXPECT_EQ(t.GetSortMethod(), 0);
  EXPECT_NEAR(t[0].m_dCentroidX, 10.0, 1e-9);  // sorted by apex x, not by search order
  EXPECT_NEAR(t[1].m_dCentroidX, 30.0, 1e-9);
}

TEST(FindPeaksDivisor, FailuresLeaveTheTableAlone) {
  const Signal s = Spectrum();
  Table t;
  t.AddPeak(QXPeakTableElement(1.0, 2.0, 3));
  t.SortPeakTable(1);
  EXPECT_EQ(t.Find(s, 5000.0, kDivisor), -1);
  EXPECT_EQ(t.Find(s, 100.0, kDivisor, 0, 1, 40.0, 45.0), -1);  // a range without peaks
  EXPECT_EQ(t.CentroidFindPeaks(s.x.data(), s.y.data(), Table::N(s), 0, 0, 5000, kDivisor, 50),
            -3);
  for (double d : {-1.0, kQXUnsetValue, kNaN, std::numeric_limits<double>::infinity()}) {
    EXPECT_EQ(t.Find(s, 100.0, d), -1) << d;
    EXPECT_EQ(t.CentroidFindPeaks(s.x.data(), s.y.data(), Table::N(s), 0, 0, 100, d, 50), -1);
  }
  EXPECT_EQ(t.Find(Signal{}, 0.0, kDivisor), -1);
  EXPECT_EQ(t.FindPeaks(nullptr, s.y.data(), 10, 0, 60, 50, 1, 0, 0, 0, 0, 0, 1, 0, 0, 0), -1);
  EXPECT_EQ(t.GetNumPeaks(), 1);
  EXPECT_EQ(t.GetSortMethod(), 1);
}

TEST(FindPeaksDivisor, HostileInputNeverBreaks) {
  Signal noisy = MakeSignal(3000, 0.0, kDx, kPeaks, {.noiseSigma = 50.0, .seed = 9});
  noisy.y[1001] = kNaN;
  noisy.y[2000] = std::numeric_limits<double>::infinity();
  noisy.y[0] = kNaN;
  noisy.y[2999] = 1e300;
  const Signal flat{std::vector<double>(50, 1.0), std::vector<double>(50, 5.0)};
  for (const Signal& s : {noisy, flat, Signal{{1.0}, {5.0}}, Signal{{1.0, 2.0}, {5.0, 1.0}}}) {
    for (double d : {0.0, 1e-300, 1e-3, 60.0, 1e300}) {
      for (double pct : {0.0, 50.0, 100.0, 150.0, -5.0}) {
        Table t;
        EXPECT_GE(t.Find(s, 0.0, d, 1, 1, 0.0, 0.0, pct), -1);
        for (std::int32_t i = 0; i < t.GetNumPeaks(); ++i) {
          EXPECT_LT(t[i].m_nRightIndex, Table::N(s));
          EXPECT_LE(t[i].m_nLeftIndex, t[i].m_nApexIndex);
          EXPECT_LE(t[i].m_nApexIndex, t[i].m_nRightIndex);
        }
      }
    }
  }
  // A record from longer arrays keeps its area instead of being read past these arrays.
  Table t;
  t.AddPeak(5.0, 1.0, 5000, 4.0, 0.0, 4000, 6.0, 0.0, 6000, 5.0, 123.0, 0, 0, 0, 0, 0);
  EXPECT_EQ(t.Find(Spectrum(), 100.0, kDivisor), 4);
  EXPECT_EQ(t[0].m_dArea, 123.0);
}

TEST(FindPeaksDivisor, FinishingRunsMassProcessingAndFitsOnlyWhenAsked) {
  // An isotope series as profile peaks about 21 points (six sigma) wide, searched in a
  // range around it.
  const std::vector<GaussPeak> series{
      {500.0, 1000.0, 0.07}, {501.007825, 600.0, 0.07}, {502.01565, 200.0, 0.07}};
  const Signal s = MakeSignal(25300, 0.0, 0.02, series, {.noiseSigma = 5.0, .seed = 4});
  const auto run = [&](int finish, int gaussFit, Table& t) {
    return t.FindPeaks(s.x.data(), s.y.data(), Table::N(s), 50.0, 1190.0, 50.0, 1, 1, 2, 3, 0.1,
                       1.0, finish, 499.0, 503.0, gaussFit);
  };
  Table unfinished, finished, fitted;
  ASSERT_EQ(run(0, 1, unfinished), 3);
  ASSERT_EQ(run(1, 0, finished), 3);
  ASSERT_EQ(run(1, 1, fitted), 3);
  bool fitMoved = false;
  for (std::int32_t i = 0; i < 3; ++i) {
    EXPECT_EQ(unfinished[i].m_dwFlags, kQXPeakNormal);
    EXPECT_EQ(finished[i].m_nCharge, 1);
    EXPECT_NEAR(fitted[i].m_dCentroidX, series[static_cast<std::size_t>(i)].centre, 0.01);
    fitMoved = fitMoved || fitted[i].m_dCentroidX != finished[i].m_dCentroidX;
  }
  EXPECT_EQ(finished[0].m_dwFlags, kQXPeakNormal | kQXPeakChargeAssigned | kQXPeakSeriesLow |
                                       kQXPeakSeriesMostIntense);
  EXPECT_TRUE(fitMoved);
}

// The search as first written: a division and a full scan for every window, over the whole
// array. The library skips windows below the threshold and divides only where the width
// changes; both must take the same peaks.
// Each peak as its RecordValues.
std::vector<std::vector<double>> StraightforwardSearch(Table& t, const Signal& s, double threshold,
                                                       double d) {
  const double* y = s.y.data();
  const auto n = static_cast<std::int64_t>(s.y.size());
  std::vector<std::vector<double>> out;
  std::int32_t first = 0;
  if (!t.FindMaxIndex(y, Table::N(s), 0, Table::N(s) - 1, 0, first, threshold)) return out;
  const auto isTop = [&](std::int64_t a, std::int64_t h) {
    for (std::int64_t k = std::max<std::int64_t>(a - h, 0); k <= std::min(a + h, n - 1); ++k) {
      if (k < a ? y[k] >= y[a] : y[k] > y[a]) return false;
    }
    return true;
  };
  const auto valley = [&](std::int64_t a, std::int64_t limit, std::int64_t step) {
    std::int64_t low = a;
    for (std::int64_t k = a + step; step > 0 ? k <= limit : k >= limit; k += step) {
      if (step > 0 ? y[k] > y[a] : y[k] >= y[a]) break;
      if (y[k] < y[low]) low = k;
      else if (d == 0 && y[k] > y[low]) break;
    }
    return low;
  };
  std::int64_t span = 0, previous = -1, pending = -1, reach = 0;
  double lastCentroid = 0.0, lastApexY = 0.0;
  const auto measure = [&](std::int64_t a, std::int64_t next) {
    const std::int64_t l = valley(a, std::max<std::int64_t>({a - reach, previous + 1, 0}), -1);
    const std::int64_t r = valley(a, std::min({a + reach, next - 1, n - 1}), 1);
    previous = a;
    span = r - l;
    QXPeakTableElement p(s.x[a], y[a], a, s.x[l], y[l], l, s.x[r], y[r], r);
    if (t.ComputeCentroid(s.x.data(), y, Table::N(s), 50.0, l, r, p.m_dCentroidX, p.m_dArea,
                          p.m_dCentroidLeftX, p.m_dCentroidLeftY, p.m_dCentroidRightX,
                          p.m_dCentroidRightY) &&
        !(QXDataExpUtils::dCompare(p.m_dCentroidX, lastCentroid, 4) &&
          QXDataExpUtils::dCompare(y[a], lastApexY, 4))) {
      lastCentroid = p.m_dCentroidX;
      lastApexY = y[a];
      out.push_back(RecordValues(p));
    }
  };
  auto st = static_cast<std::int64_t>(d == 0 ? 0.0 : std::max(0.0, first - 0.5 * first / d));
  for (;;) {
    const std::int64_t w = std::max<std::int64_t>(
        2, d == 0 ? std::min(span, n) : static_cast<std::int64_t>(std::min(st / d, 1.0 * n)));
    const std::int64_t e = std::min(st + w - 1, n - 1);
    std::int32_t a = 0;
    t.FindMaxIndex(y, Table::N(s), static_cast<std::uint32_t>(st), static_cast<std::uint32_t>(e),
                   1, a, 0.0);
    if (y[a] > threshold && a > pending && isTop(a, w / 2)) {
      if (pending >= 0) measure(pending, a);
      pending = a;
      reach = d == 0 ? n : w;
    }
    if (e >= n - 1) break;
    st += w / 2;
  }
  if (pending >= 0) measure(pending, n);
  return out;
}

TEST(FindPeaksDivisor, AgreesWithTheStraightforwardSearch) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> unit(0.0, 1.0);
  for (int trial = 0; trial < 12; ++trial) {
    std::vector<GaussPeak> peaks;
    for (int k = 0; k < 40; ++k) {
      const double centre = 5.0 + 50.0 * unit(rng);
      peaks.push_back({centre, 50.0 + 2000.0 * unit(rng), centre / 800.0 * (0.5 + unit(rng))});
    }
    Signal s = MakeSignal(6000, 0.0, kDx, peaks,
                          {.baseline = 20.0, .slope = 1.0, .noiseSigma = 6.0,
                           .seed = static_cast<unsigned>(trial)});
    if (trial % 2) {  // whole numbers: ties on tops and in valleys
      for (double& v : s.y) v = std::round(v);
    }
    for (double d : {0.0, 0.37, 7.3, 150.0, 1191.0, 5e4}) {
      Table t;
      const auto expected = StraightforwardSearch(t, s, 120.0, d);
      EXPECT_EQ(t.Find(s, 120.0, d, 2, 0), static_cast<std::int32_t>(expected.size())) << d;
      EXPECT_EQ(testing::EachPeak(t, RecordValues), expected) << d;
    }
  }
}

TEST(BuildCentroidPeakTable, EachStickAtTheThresholdIsOnePeak) {
  const std::vector<double> x{100, 101, 102, 103, 104};
  const std::vector<double> y{5, 50, 4.9, 50, kNaN};
  Table t;
  ASSERT_EQ(t.BuildCentroidPeakTable(x.data(), y.data(), 5, 5.0, 2, 3, 0.1, 1.0, 0, 0, 0), 3);
  EXPECT_EQ(t.GetSortMethod(), 0);
  // A stick is its own apex, bounds, centroid and centroid region; its area is its intensity.
  const std::vector<double> sticks[] = {
      {100, 5, 0, 100, 5, 0, 100, 5, 0, 100, 5, 100, 5, 100, 5, 0, 0, 0, 0, 0},
      {101, 50, 1, 101, 50, 1, 101, 50, 1, 101, 50, 101, 50, 101, 50, 0, 0, 0, 0, 0},
      {103, 50, 3, 103, 50, 3, 103, 50, 3, 103, 50, 103, 50, 103, 50, 0, 0, 0, 0, 0}};
  for (std::int32_t i = 0; i < 3; ++i) EXPECT_EQ(RecordValues(t[i]), sticks[i]);
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
  for (std::int32_t i = 0; i < 3; ++i) {
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
