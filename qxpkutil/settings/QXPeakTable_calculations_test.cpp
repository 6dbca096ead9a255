#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <tuple>
#include <utility>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/settings/PeakCalc.h"
#include "testing/QXTestSettings.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using ::testing::DoubleNear;
using ::testing::ElementsAre;
using testing::GaussPeak;
using ::testing::Gt;
using testing::MakeSignal;
using ::testing::Pair;
using testing::Signal;
using testing::WithTargets;

// The peak of `s` whose apex is its highest point, bounded `halfWidth` points either side.
QXPeakTableElement PeakAtMax(const Signal& s, std::uint32_t halfWidth) {
  const auto apex =
      static_cast<std::uint32_t>(std::max_element(s.y.begin(), s.y.end()) - s.y.begin());
  const std::uint32_t left = apex - halfWidth;
  const std::uint32_t right = apex + halfWidth;
  return QXPeakTableElement(s.x[apex], s.y[apex], apex, s.x[left], s.y[left], left, s.x[right],
                            s.y[right], right);
}

// Each target's result and found x.
std::vector<std::pair<double, double>> Outcomes(const PeakCalcBaseList& calc) {
  std::vector<std::pair<double, double>> out;
  for (std::int32_t i = 0; i < calc.GetNumSettings(); ++i) {
    out.emplace_back(calc.GetSetting(i)->GetResult(), calc.GetSetting(i)->GetFoundX());
  }
  return out;
}

class GaussianResolution : public ::testing::TestWithParam<int> {};

TEST_P(GaussianResolution, MatchesTheWidthAtThePercentOfTheHeight) {
  const int percent = GetParam();
  const double sigma = 0.05;
  const Signal s = MakeSignal(2001, 499.0, 0.001, {GaussPeak{500.0, 1000.0, sigma}});
  QXPeakTable table;
  table.AddPeak(PeakAtMax(s, 400));
  auto calc = WithTargets<ResCalcPeakCalc>({500.0}, 0.5);
  calc.SetPercent(percent);
  ASSERT_EQ(table.DoResCalcOnList(s.x.data(), s.y.data(), &calc), 1);
  // A Gaussian falls to p % of its height at sigma * sqrt(2 ln(100 / p)) from its centre.
  const double resolution = 500.0 / (2.0 * sigma * std::sqrt(2.0 * std::log(100.0 / percent)));
  EXPECT_THAT(Outcomes(calc), ElementsAre(Pair(DoubleNear(resolution, 0.001 * resolution), 500.0)));
}

INSTANTIATE_TEST_SUITE_P(Percents, GaussianResolution, ::testing::Values(10, 50, 90));

TEST(DoResCalcOnPeak, KnownWidthOrMinusOneReadingOnlyInsideTheBounds) {
  struct Case {
    const char* name;
    std::vector<double> x, y;
    std::uint32_t apex, left, right;
    std::int32_t result;
  };
  // Exactly 0.01 as the percent factor would put the first case's crossings at 999.75 and
  // 1000.25: resolution 2000. The single-precision factor lowers the level a little, widens
  // the peak and gives 1999.
  const Case cases[] = {{"single-precision level", {999.5, 1000, 1000.5}, {0, 1, 0}, 1, 0, 2, 1999},
                        {"left side stays high", {1, 2, 3, 4, 5}, {0, 9, 10, 5, 0}, 2, 1, 4, -1},
                        {"high at index zero", {1, 2, 3}, {9, 10, 0}, 1, 0, 2, -1},
                        {"right side stays high", {1, 2, 3}, {0, 10, 9}, 1, 0, 2, -1},
                        {"apex beyond right bound", {1, 2, 3, 4, 5}, {0, 5, 10, 5, 0}, 4, 0, 3, -1},
                        {"zero width", {1, 1, 1}, {0, 10, 0}, 1, 0, 2, -1},
                        {"no rise above the level at the edge", {1, 2, 3}, {0, 0, 0}, 2, 0, 2, -1}};
  for (const Case& c : cases) {
    // Copies sized to the bounds, so that a read outside them is caught by the sanitizer.
    const std::vector<double> x(c.x.begin(), c.x.begin() + c.right + 1);
    const std::vector<double> y(c.y.begin(), c.y.begin() + c.right + 1);
    const double apexY = c.apex < y.size() ? y[c.apex] : 10.0;
    const QXPeakTableElement peak(1000.0, apexY, c.apex, 0.0, 0.0, c.left, 0.0, 0.0, c.right);
    std::int32_t result = 0;
    peak.DoResCalcOnPeak(x.data(), y.data(), 50.0, result);
    EXPECT_EQ(result, c.result) << c.name;
  }
  const QXPeakTableElement peak(3.0, 10.0, 1, 0.0, 0.0, 0, 0.0, 0.0, 2);
  std::int32_t result = 0;
  peak.DoResCalcOnPeak(nullptr, nullptr, 50.0, result);
  EXPECT_EQ(result, -1);
}

TEST(DoResCalcOnList, RecordsFoundPeaksAndMeasuresOnlyThoseIntenseEnough) {
  const Signal s =
      MakeSignal(3001, 99.0, 0.001, {GaussPeak{100.0, 1000.0, 0.05}, GaussPeak{101.5, 40.0, 0.05}});
  QXPeakTable table;
  table.AddPeak(QXPeakTableElement(100.0, 1000.0, 1000, 99.6, 0.0, 600, 100.4, 0.0, 1400));
  table.AddPeak(QXPeakTableElement(101.5, 40.0, 2500, 101.1, 0.0, 2100, 101.9, 0.0, 2900));
  auto calc = WithTargets<ResCalcPeakCalc>({100.0, 101.5, 103.0}, 0.2);  // minimum apex 50
  EXPECT_EQ(table.DoResCalcOnList(s.x.data(), s.y.data(), &calc), 1);
  EXPECT_THAT(Outcomes(calc),
              ElementsAre(Pair(Gt(0.0), 100.0), Pair(-1.0, 101.5), Pair(-1.0, 0.0)));

  auto missing = WithTargets<ResCalcPeakCalc>({50.0}, 1.0);
  EXPECT_EQ(table.DoResCalcOnList(s.x.data(), s.y.data(), &missing), 0);
  EXPECT_EQ(missing.GetSetting(0)->GetResult(), -1.0);
  ResCalcPeakCalc empty;
  EXPECT_EQ(table.DoResCalcOnList(s.x.data(), s.y.data(), &empty), 0);
  EXPECT_EQ(table.DoResCalcOnList(s.x.data(), s.y.data(), nullptr), 0);
  QXPeakTable noPeaks;
  EXPECT_EQ(noPeaks.DoResCalcOnList(s.x.data(), s.y.data(), &calc), 0);
}

TEST(DoSignalToNoiseOnList, MatchesThePeakHeightOverTheBaselineNoise) {
  const double height = 1000.0;
  const double noise = 5.0;
  const Signal s = MakeSignal(2000, 0.0, 0.05, {GaussPeak{75.0, height, 0.3}},
                              {.baseline = 100.0, .noiseSigma = noise, .seed = 7});
  QXPeakTable table;
  table.AddPeak(PeakAtMax(s, 20));
  auto calc = WithTargets<SNPeakCalc>({75.0, 20.0}, 1.0);
  calc.SetBaselineX1(5.0);
  calc.SetBaselineX2(55.0);
  ASSERT_EQ(table.DoSignalToNoiseOnList(s.x.data(), s.y.data(), 2000, &calc), 1);
  EXPECT_NEAR(calc.GetBaseline(), 100.0, 1.0);
  EXPECT_NEAR(calc.GetNoise(), noise, 0.5);
  EXPECT_THAT(Outcomes(calc), ElementsAre(Pair(DoubleNear(height / noise, 0.1 * height / noise),
                                               DoubleNear(75.0, 0.1)),
                                          Pair(-1.0, 0.0)));
}

TEST(DoSignalToNoiseOnList, EqualBaselineBoundsGiveTheRawApexIntensity) {
  QXPeakTable table;
  table.AddPeak(QXPeakTableElement(10.0, 750.0, 3));
  auto calc = WithTargets<SNPeakCalc>({10.0}, 1.0);
  calc.SetBaselineX1(4.0);
  calc.SetBaselineX2(4.0);
  calc.SetNoise(9.0);
  // No measurement happens, so no data is needed.
  EXPECT_EQ(table.DoSignalToNoiseOnList(nullptr, nullptr, 0, &calc), 1);
  EXPECT_EQ(std::make_tuple(calc.GetSetting(0)->GetResult(), calc.GetBaseline(), calc.GetNoise()),
            std::make_tuple(750.0, 0.0, 1.0));
  EXPECT_EQ(table.GetPeak(0)->DoSigToNoiseOnPeak(50.0, 0.0), 700.0);
  EXPECT_EQ(table.GetPeak(0)->DoSigToNoiseOnPeak(50.0, 7.0), 100.0);
}

TEST(DoSignalToNoiseOnList, FailsWithoutPeaksOrMeasurementAndLeavesTheTargets) {
  const Signal s = MakeSignal(100, 0.0, 1.0, {}, {.baseline = 10.0, .noiseSigma = 1.0});
  auto calc = WithTargets<SNPeakCalc>({10.0}, 1.0);
  calc.SetBaselineX2(50.0);
  QXPeakTable noPeaks;
  EXPECT_EQ(noPeaks.DoSignalToNoiseOnList(s.x.data(), s.y.data(), 100, &calc), 0);
  EXPECT_NEAR(calc.GetBaseline(), 10.0, 1.0);  // measured before the table was looked at

  QXPeakTable table;
  table.AddPeak(QXPeakTableElement(10.0, 750.0, 10));
  calc.SetBaselineX1(std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(table.DoSignalToNoiseOnList(s.x.data(), s.y.data(), 100, &calc), 0);
  EXPECT_EQ(table.DoSignalToNoiseOnList(s.x.data(), s.y.data(), 100, nullptr), 0);
  EXPECT_THAT(Outcomes(calc), ElementsAre(Pair(123.0, 456.0)));
}

}  // namespace
}  // namespace qxpkutil
