#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <vector>

#include "qxpkutil/numeric/QXWaveletAnalysis.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "testing/QXTestPeaks.h"
#include "testing/QXTestSettings.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::MakeSignal;
using testing::Signal;

// Isolated peaks of heights 1000, 470, 430 and 200 at x = 10, 30, 50 and 70, each centre a
// sample, on a zero baseline.
const Signal& Peaks() {
  static const Signal s =
      MakeSignal(2000, 0.0, 0.05,
                 {{10.0, 1000.0, 0.5}, {30.0, 470.0, 0.5}, {50.0, 430.0, 0.5}, {70.0, 200.0, 0.5}});
  return s;
}

QXPeakDetectSetting Segment(double x1, double x2, double rel, double abs = 0.0,
                            double pctArea = 0.0, double minArea = 0.0) {
  QXPeakDetectSetting s;
  s.SetDetectionRange(x1, x2);
  s.SetRelThreshold(rel);
  s.SetAbsThreshold(abs);
  s.SetPctPeakArea(pctArea);
  s.SetMinPeakArea(minArea);
  return s;
}

QXPeakTableList MakeList(const std::vector<QXPeakDetectSetting>& segments, int tables = 1) {
  QXPeakTableList list = testing::ListOf(segments);
  for (int t = 0; t < tables; ++t) list.AddPeakTableToList();
  return list;
}

auto Fields(const QXPeakTableElement& p) {
  return std::make_tuple(p.m_dApexX, p.m_dApexY, p.m_nLeftIndex, p.m_nRightIndex, p.m_dArea,
                         p.m_dCentroidX, p.m_nCharge, p.m_dwFlags);
}
using PeakFields = decltype(Fields(QXPeakTableElement()));

std::vector<PeakFields> TablePeaks(const QXPeakTable* table) {
  return testing::EachPeak(*table, Fields);
}

std::vector<double> ApexHeights(const QXPeakTable* table) {
  return testing::EachPeak(*table,
                           [](const QXPeakTableElement& p) { return std::round(p.m_dApexY); });
}

std::int32_t Detect(QXPeakTableList& list, const Signal& s, std::int32_t table = 0) {
  return list.FindPeaks(s.x.data(), s.y.data(), static_cast<std::uint32_t>(s.x.size()), 1000.0, 1.0,
                        table);
}

TEST(DetectionDriver, UnusableInputFailsAndChangesNothing) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  Signal bad = Peaks();
  bad.y[500] = nan;
  Signal badX = Peaks();
  badX.x[7] = inf;
  Signal badLastX = Peaks();  // past the last window's start: read by no mean
  badLastX.x.back() = nan;
  const Signal& s = Peaks();
  const double* x = s.x.data();
  const double* y = s.y.data();
  const auto fails = [](const double* xs, const double* ys, std::uint32_t n, double yMax,
                        double scale, std::int32_t table = 0, int tables = 1) {
    // With an area percentage the trials run; without automatic noise they test x on their
    // way.
    for (const int autoSN : {0, 1}) {
      SCOPED_TRACE(::testing::Message() << xs << ' ' << ys << ' ' << n << ' ' << yMax << ' '
                                        << scale << ' ' << table << ' ' << tables << ' ' << autoSN);
      QXPeakTableList list = MakeList({Segment(0.0, 0.0, 1.0, 0.0, 1.0)}, tables);
      list.SetAutoSNCalcOn(autoSN);
      if (tables > 0) list.GetPeakTableFromList(0)->AddPeak(QXPeakTableElement(1.0, 2.0));
      EXPECT_EQ(list.FindPeaks(xs, ys, n, yMax, scale, table), -2);
      EXPECT_EQ(list.GetNumPeaksFromList(0), tables > 0 ? 1 : -1);
      EXPECT_EQ(list.SettingsChanged(), 1);
      if (table == 0 && tables == 1 && std::isfinite(yMax)) {
        EXPECT_EQ(list.ComputeMaxPeakArea(xs, ys, n, scale), 0.0);
        EXPECT_EQ(list.ComputeBasePeakArea(xs, ys, n, yMax, scale), 0.0);
      }
      QXPeakDetectSetting after;
      list.GetDetectionSetting(0, after);
      EXPECT_EQ(after.GetNoiseThreshold(), 0.0);
    }
  };
  fails(x, y, 2000, 1000.0, 1.0, 0, 0);
  fails(x, y, 2000, 1000.0, 1.0, 1);
  fails(x, y, 2000, 1000.0, 1.0, -2);
  fails(x, y, 0, 1000.0, 1.0);
  fails(nullptr, y, 2000, 1000.0, 1.0);
  fails(x, nullptr, 2000, 1000.0, 1.0);
  fails(x, bad.y.data(), 2000, 1000.0, 1.0);
  fails(badX.x.data(), y, 2000, 1000.0, 1.0);
  fails(badLastX.x.data(), y, 2000, 1000.0, 1.0);
  fails(x, y, 2000, nan, 1.0);
  fails(x, y, 2000, 1000.0, -inf);
}

// On centroided input each stick at the threshold is a peak; a minimum area above the
// threshold raises it, and the area percentage is of yMax. Thresholds count from the lowest
// point (the -100), so the 50 % relative threshold is 450.
TEST(DetectionDriver, SticksUseYMaxForTheAreaPercentage) {
  const std::tuple<QXPeakDetectSetting, std::vector<double>> cases[] = {
      {Segment(0, 0, 50.0), {1000, 470}},
      {Segment(0, 0, 10.0, 0.0, 45.0), {1000, 470}},
      {Segment(0, 0, 10.0, 0.0, 0.0, 300.0), {1000, 470, 430}}};
  for (const auto& [segment, kept] : cases) {
    QXPeakTableList list = MakeList({segment});
    list.SetCentroidSpecData(1);
    Detect(list, Signal{{10, 30, 50, 70, 90}, {1000, 470, 430, 200, -100}});
    EXPECT_EQ(ApexHeights(list.GetPeakTableFromList(0)), kept);
  }
}

// A segment with a Divisor runs the divisor search with its own values and the derived
// threshold (15 % of yMax above the lowest point), and no minimum area at all.
TEST(DetectionDriver, DivisorSegmentsPassTheirOwnValues) {
  const Signal s =
      MakeSignal(2000, 0.0, 0.05, {{10.0, 1000.0, 0.5}, {30.0, 470.0, 0.7}, {50.0, 250.0, 0.4}},
                 {.noiseSigma = 2.0});
  const auto n = static_cast<std::uint32_t>(s.x.size());
  const double minY = *std::min_element(s.y.begin(), s.y.end());
  const double threshold = 0.15 * (1000.0 - minY) + minY;
  QXPeakTableList list = MakeList({Segment(0, 0, 0, 0.0, 0.0, 1e12)});
  list.SetMassProcessing(1);
  list.SetDetectionSetting(0, 0, 0, 15.0, 40.0, 8.0, 1, 3, 12, 0.1, 0.9);
  QXPeakTable divisor;
  divisor.FindPeaks(s.x.data(), s.y.data(), n, threshold, 8.0, 40.0, 1, 1, 3, 12, 0.1, 0.9, 1, 0.0,
                    0.0, 0);
  list.FindPeaks(s.x.data(), s.y.data(), n, 1000.0, 1.5, 0);
  EXPECT_EQ(TablePeaks(list.GetPeakTableFromList(0)), TablePeaks(&divisor));
  EXPECT_GE(divisor.GetNumPeaks(), 3);
}

TEST(DetectionDriver, TablesAndRanges) {
  QXPeakTableList list = MakeList({Segment(30.0, 30.0, 1.0), Segment(50.0, 50.0, 1.0)}, 2);
  list.GetPeakTableFromList(1)->AddPeak(QXPeakTableElement(1.0, 2.0));
  // An empty first range is the whole data; an empty later range adds nothing.
  EXPECT_EQ(Detect(list, Peaks(), -1), 4);
  EXPECT_EQ(ApexHeights(list.GetPeakTableFromList(1)), (std::vector<double>{1000, 470, 430, 200}));
  EXPECT_EQ(list.GetNumPeaksFromList(0), 0);
}

TEST(DetectionDriver, TrialAreas) {
  const Signal& s = Peaks();
  QXPeakTable direct;
  direct.FindPeaks(s.x.data(), s.y.data(), 2000, 2.0, 0.0, 0, 3, 1, 0.0, 3, 10000, 0.0, 50.0, 1, 0,
                   6, 40, 0.05, 0.99, 0, 0.0, 0.0, 0);
  ASSERT_EQ(direct.GetNumPeaks(), 4);
  const double area1000 = direct.GetPeak(0)->m_dArea;
  const double area470 = direct.GetPeak(1)->m_dArea;
  // Only the absolute threshold counts; a width limit that rejects everything is retried
  // without it; the largest area over all segments wins.
  QXPeakTableList list = MakeList({Segment(20, 40, 100.0), Segment(0, 20, 100.0, 2000.0)});
  EXPECT_DOUBLE_EQ(list.ComputeMaxPeakArea(s.x.data(), s.y.data(), 2000, 2.0), area470);
  list.SetDetectionSetting(1, 0, 20, 100.0, 0.0, 0, 3, 1, 0.0, 0.0, 3, 2, 1, 0.0, 1, 50.0, 6, 40,
                           0.05, 0.99);
  EXPECT_DOUBLE_EQ(list.ComputeMaxPeakArea(s.x.data(), s.y.data(), 2000, 2.0), area1000);
  // The base peak: the most intense of the peaks reaching 0.8 x d1, areas scaled by d2.
  for (double d1 : {500.0, 1200.0}) {
    EXPECT_NEAR(list.ComputeBasePeakArea(s.x.data(), s.y.data(), 2000, d1, 2.0), area1000,
                1e-9 * area1000);
  }
  EXPECT_EQ(list.ComputeBasePeakArea(s.x.data(), s.y.data(), 2000, 1300.0, 2.0), 0.0);
}

// FindPeaks sets every segment's noise threshold, whatever path it takes; the base-peak
// search only that of the segment whose range holds the lowest point, or of segment 0.
TEST(DetectionDriver, AutomaticNoiseThreshold) {
  const Signal s = MakeSignal(4096, 0.0, 0.05, {{50.0, 1000.0, 0.5}}, {.noiseSigma = 3.0});
  const double noise = 0.75 * QXWaveletAnalysis::CalcWhiteNoiseLevel(s.y.data(), 4096);
  ASSERT_GT(noise, 1.0);
  for (int sticks : {0, 1}) {
    QXPeakTableList list = MakeList({Segment(0, 60, 5.0), Segment(60, 120, 5.0)});
    list.SetDetectionSetting(1, 60.0, 120.0, 5.0, 50.0, 10.0, 1, 6, 40, 0.05, 0.99);
    list.SetCentroidSpecData(sticks);
    list.SetAutoSNCalcOn(1);
    EXPECT_GE(Detect(list, s), 1);
    EXPECT_EQ(list.SettingsChanged(), 0);
    for (const QXPeakDetectSetting& seg : testing::Segments(list))
      EXPECT_EQ(seg.GetNoiseThreshold(), noise);
  }
  const double lowX = s.x[std::min_element(s.y.begin(), s.y.end()) - s.y.begin()];
  for (const auto& [holder, x1, x2] :
       {std::make_tuple(1, lowX, lowX + 1.0), std::make_tuple(1, lowX - 1.0, lowX),
        std::make_tuple(0, lowX + 1.0, lowX + 2.0)}) {
    QXPeakTableList list = MakeList({Segment(500, 600, 1.0), Segment(x1, x2, 1.0)});
    list.SetAutoSNCalcOn(1);
    EXPECT_GT(list.ComputeBasePeakArea(s.x.data(), s.y.data(), 4096, 1000.0, 1.0), 0.0);
    const auto segs = testing::Segments(list);
    for (std::size_t i = 0; i < segs.size(); ++i)
      EXPECT_EQ(segs[i].GetNoiseThreshold(), int(i) == holder ? noise : 0.0) << i;
  }
}

}  // namespace
}  // namespace qxpkutil
