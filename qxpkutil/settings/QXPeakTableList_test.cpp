#include "qxpkutil/settings/QXPeakTableList.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestArchive.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

using testing::SegmentFields;
using testing::SettingFields;
using testing::Tagged;
using Fields = testing::SettingFieldsTuple;
constexpr std::int32_t kMinIndex = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMaxIndex = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kMaxSegments = QXPeakTableList::kMaxDetectionSettings;

std::vector<Fields> Tags(const std::vector<int>& tags) {
  std::vector<Fields> out;
  for (int tag : tags) out.push_back(SettingFields(Tagged(tag)));
  return out;
}
// Segments carrying `tags`, with settingsChanged cleared.
void Fill(QXPeakTableList& list, const std::vector<int>& tags) {
  for (int tag : tags) {
    list.AddDetectionSetting(-1);
    list.SetDetectionSetting(list.GetNumDetectionSettings() - 1, Tagged(tag));
  }
  list.ForceSettingChange(0);
}

struct ListProbe : QXPeakTableList {
  auto Defaults() const {
    return std::make_tuple(m_bDefaultMassProcessing, m_bDefaultUseResolutionFlag,
                           m_bDefaultGaussFit, m_bDefaultAutoSNCalc, m_dDefaultResolution,
                           SettingFields(m_DefaultSetting));
  }
};

// The parameters of the bulk forms as positions in Fields (15 is Divisor): every field, the
// nineteen values of the value constructor, and the mass-processing subset.
using AllForm = std::make_index_sequence<20>;
using ValueForm =
    std::index_sequence<0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 16, 17, 18, 19>;
using MassForm = std::index_sequence<0, 1, 2, 14, 15, 13, 16, 17, 18, 19>;

template <std::size_t... I>
int Get(const QXPeakTableList& l, std::int32_t i, Fields& f, std::index_sequence<I...>) {
  if constexpr (sizeof...(I) == 20) {
    return l.GetAllDetectionSettings(i, std::get<I>(f)...);
  } else {
    return l.GetDetectionSetting(i, std::get<I>(f)...);
  }
}
template <std::size_t... I>
int Set(QXPeakTableList& l, std::int32_t i, const Fields& f, std::index_sequence<I...>) {
  return l.SetDetectionSetting(i, std::get<I>(f)...);
}
// Field k holds first + k * step.
Fields Counted(int first, int step) {
  Fields f;
  std::apply([&](auto&... field) { ((field = first, first += step), ...); }, f);
  return f;
}

// Reads segment 0 through `form`, edits, writes it back.
template <class Form, class Edit>
void Resend(QXPeakTableList& l, Form form, Edit edit) {
  Fields f;
  Get(l, 0, f, form);
  edit(f);
  Set(l, 0, f, form);
}

// ---- Segments ----

TEST(QXPeakTableList, AddDetectionSettingInsertsAppendsGrowsCopiesThePredecessorUpToTheLimit) {
  // before, index, mass processing, after (empty: the add is ignored)
  const std::tuple<std::vector<int>, std::int32_t, int, std::vector<int>> cases[] = {
      {{}, 3, 0, {0, 0, 0, 0}},
      {{1}, 1, 0, {1, 1}},  {{1}, 2, 0, {1, 0, 0}},  // one past the end
      {{1, 2, 3}, 1, 0, {1, 1, 2, 3}},
      {{1, 2, 3}, 2, 0, {1, 2, 2, 3}},
      {{1, 2, 3}, 0, 1, {0, 1, 2, 3}},
      {{1, 2, 3}, -1, 1, {1, 2, 3, 0}},
      {{1, 2, 3}, 3, 0, {1, 2, 3, 3}},
      {{1, 2, 3}, 5, 0, {1, 2, 3, 0, 0, 0}},
      {{1, 2}, -2, 0, {}},
      {{1, 2}, kMinIndex, 0, {}},
      {{1, 2}, kMaxIndex, 0, {}},
      {{}, kMaxSegments - 1, 0, std::vector<int>(kMaxSegments, 0)},  // up to the limit
      {{}, kMaxSegments, 0, {}},
      {std::vector<int>(kMaxSegments, 1), -1, 0, {}}};
  for (const auto& [before, index, massProcessing, after] : cases) {
    SCOPED_TRACE(::testing::Message() << before.size() << " segments, index " << index);
    QXPeakTableList list;
    Fill(list, before);
    list.SetMassProcessing(massProcessing);
    list.AddDetectionSetting(index);
    EXPECT_EQ(SegmentFields(list), Tags(after.empty() ? before : after));
    EXPECT_EQ(list.SettingsChanged(), after.empty() ? 0 : 1);
  }
}

TEST(QXPeakTableList, DeleteDetectionSettingResultsAndSettingsChanged) {
  // before, index, result, after, settingsChanged
  const std::tuple<std::vector<int>, std::int32_t, int, std::vector<int>, int> cases[] = {
      {{}, -1, 0, {}, 0},     {{}, 0, 0, {}, 0},         {{1, 2}, -1, 1, {1}, 1},
      {{1, 2}, 0, 1, {2}, 1}, {{1, 2}, 7, 0, {1, 2}, 1}, {{1, 2}, -2, 0, {1, 2}, 1}};
  for (const auto& [before, index, result, after, changed] : cases) {
    SCOPED_TRACE(::testing::Message() << before.size() << " segments, index " << index);
    QXPeakTableList list;
    Fill(list, before);
    EXPECT_EQ(list.DeleteDetectionSetting(index), result);
    EXPECT_EQ(SegmentFields(list), Tags(after));
    EXPECT_EQ(list.SettingsChanged(), changed);
  }
}

TEST(QXPeakTableList, SegmentOperationsFailOutsideTheListAndChangeNothing) {
  for (const std::int32_t i : {-1, 2, -2, kMinIndex, kMaxIndex}) {
    SCOPED_TRACE(i);
    QXPeakTableList list;
    Fill(list, {1, 2});
    QXPeakDetectSetting s = Tagged(9);
    Fields out = Counted(77, 0);
    double x1 = 77.0;
    double x2 = 77.0;
    const int results[] = {
        list.GetDetectionSetting(i, s),        list.SetDetectionSetting(i, Tagged(9)),
        Get(list, i, out, ValueForm()),        Get(list, i, out, MassForm()),
        Get(list, i, out, AllForm()),          Set(list, i, out, ValueForm()),
        Set(list, i, out, MassForm()),         list.GetDetectionRange(i, x1, x2),
        list.SetDetectionRange(i, 77.0, 78.0), i == -1 ? 0 : list.SetNoiseThreshold(77.0, i)};
    EXPECT_THAT(results, ::testing::Each(0));
    EXPECT_EQ(SettingFields(s), SettingFields(Tagged(9)));
    EXPECT_EQ(out, Counted(77, 0));
    EXPECT_EQ(std::make_tuple(x1, x2), std::make_tuple(77.0, 77.0));
    EXPECT_EQ(SegmentFields(list), Tags({1, 2}));
    EXPECT_EQ(list.SettingsChanged(), 0);
  }
}

TEST(QXPeakTableList, BulkFormsKeepTheirOrderAndTheMassFormDropsFilterAndLimits) {
  QXPeakTableList list;
  Fill(list, {1});
  Resend(list, MassForm(), [](Fields& f) { std::get<15>(f) = 0.5; });  // a Divisor to reset
  Fields in = Counted(100, 1);
  ASSERT_EQ(Set(list, 0, in, ValueForm()), 1);
  std::get<15>(in) = kQXUnsetValue;  // the nineteen-value form resets Divisor
  EXPECT_EQ(SegmentFields(list), std::vector<Fields>{in});
  Fields all = Counted(77, 0);
  ASSERT_EQ(Get(list, 0, all, AllForm()), 1);
  EXPECT_EQ(all, in);
  // The getters hand back what the setters take; the mass form zeroes AbsThreshold, the
  // filter's type, width and increment, and both width limits.
  QXPeakTableList other;
  Fill(other, {0});
  const auto copy = [&](auto form) {
    Fields f = Counted(77, 0);
    ASSERT_EQ(Get(list, 0, f, form), 1);
    std::get<15>(f) = 0.25;
    ASSERT_EQ(Set(other, 0, f, form), 1);
  };
  copy(ValueForm());
  EXPECT_EQ(SegmentFields(other), SegmentFields(list));
  copy(MassForm());
  std::get<15>(in) = 0.25;
  std::get<3>(in) = 0.0;
  std::get<4>(in) = std::get<5>(in) = std::get<6>(in) = std::get<9>(in) = std::get<10>(in) = 0;
  EXPECT_EQ(SegmentFields(other), std::vector<Fields>{in});
}

TEST(QXPeakTableList, SettingsChangedFollowsEachOperation) {
  using L = QXPeakTableList;
  const std::pair<std::function<void(L&)>, int> cases[] = {
      {[](L& l) { l.SetDetectionSetting(0, Tagged(5)); }, 0},
      {[](L& l) { Resend(l, ValueForm(), [](Fields&) {}); }, 0},
      {[](L& l) { Resend(l, ValueForm(), [](Fields& f) { std::get<6>(f) += 1; }); }, 1},
      {[](L& l) { Resend(l, ValueForm(), [](Fields& f) { std::get<19>(f) += 1; }); }, 1},
      {[](L& l) { Resend(l, MassForm(), [](Fields&) {}); }, 0},
      {[](L& l) { Resend(l, MassForm(), [](Fields& f) { std::get<15>(f) = 2.0; }); }, 1},
      {[](L& l) { Resend(l, MassForm(), [](Fields& f) { std::get<17>(f) += 1; }); }, 1},
      {[](L& l) {  // a NaN never equals itself
         Resend(l, ValueForm(), [](Fields& f) { std::get<2>(f) = std::nan(""); });
         l.ForceSettingChange(0);
         Resend(l, ValueForm(), [](Fields&) {});
       },
       1},
      {[](L& l) { l.SetDetectionRange(0, 1.0, 1.5); }, 0},
      {[](L& l) { l.SetDetectionRange(0, 2.0, 1.5); }, 1},
      {[](L& l) { l.SetDetectionRange(0, 1.0, 2.0); }, 1},
      {[](L& l) { l.SetNoiseThreshold(4.0, -1); }, 0},
      {[](L& l) { l.DeleteAllDetectionSettings(); }, 0},
      {[](L& l) { l.SetMassProcessing(1); }, 0},
      {[](L& l) { l.SetCentroidSpecData(1); }, 0},
      {[](L& l) { l.SetUseResolutionFlag(0); }, 0},
      {[](L& l) { l.SetUseResolutionFlag(1); }, 1},
      {[](L& l) { l.SetGaussFit(0); }, 0},
      {[](L& l) { l.SetGaussFit(1); }, 1},
      {[](L& l) { l.SetAutoSNCalcOn(0); }, 0},
      {[](L& l) { l.SetAutoSNCalcOn(1); }, 1},
      {[](L& l) { l.SetResolution(2000.0); }, 0},
      {[](L& l) { l.SetResolution(3000.0); }, 1},
      {[](L& l) {
         l.SetDefaults(2, 3, 4, 5, 6, 7, 8, 9, 10, 0, 11, 2, 1, 12, 1, 3, 4, 0.1, 0.9, 5000, 1, 1);
       },
       0}};
  for (std::size_t i = 0; i < std::size(cases); ++i) {
    QXPeakTableList list;
    Fill(list, {1, 2});
    cases[i].first(list);
    EXPECT_EQ(list.SettingsChanged(), cases[i].second) << "case " << i;
  }
}

TEST(QXPeakTableList, NoiseThresholdGoesToOneOrEverySegment) {
  QXPeakTableList list;
  EXPECT_EQ(list.SetNoiseThreshold(5.0, -1), 1);  // no segments: nothing to do
  Fill(list, {1, 2, 3});
  EXPECT_EQ(list.SetNoiseThreshold(7.0, 1), 1);
  EXPECT_EQ(list.SetNoiseThreshold(9.0, -1), 1);
  for (const auto& fields : SegmentFields(list)) EXPECT_EQ(std::get<12>(fields), 9.0);
}

TEST(QXPeakTableList, SwitchesAndDefaultsKeepToThemselves) {
  ListProbe list;
  EXPECT_EQ(std::make_tuple(list.GetNumDetectionSettings(), list.GetNumPeakTablesInList(),
                            list.SettingsChanged()),
            std::make_tuple(0, 0, 1));
  QXPeakDetectSetting fallback;  // a new list falls back on 1 % centroids, not 50 %
  fallback.SetPctCentroid(1.0);
  EXPECT_EQ(list.Defaults(), std::make_tuple(0, 0, 0, 0, 2000.0, SettingFields(fallback)));
  Fill(list, {1});
  list.SetDefaults(2.5, 3.5, 4, 5, 6, 7.5, 8.5, 9, 10, 0, 11.5, 2, 20, 12.5, 30, 3, 4, 0.125, 0.875,
                   5000.0, 40, 50);
  EXPECT_EQ(list.Defaults(),
            std::make_tuple(30, 40, 50, 20, 5000.0,
                            std::make_tuple(0.0, 0.0, 2.5, 3.5, 4, 5, 6, 7.5, 8.5, 9, 10, 0, 11.5,
                                            2, 12.5, kQXUnsetValue, 3, 4, 0.125, 0.875)));
  EXPECT_EQ(SegmentFields(list), Tags({1}));
  EXPECT_EQ(std::make_tuple(list.MassProcessingOn(), list.GetUseResolutionFlag(),
                            list.IsGaussFitOn(), list.IsAutoSNCalcOn(), list.GetResolution()),
            std::make_tuple(0, 0, 0, 0, 2000.0));
  list.SetMassProcessing(1);
  list.SetCentroidSpecData(1);
  EXPECT_EQ(list.CentroidSpecData(), 1);
  list.SetMassProcessing(0);  // centroided input goes with mass processing
  EXPECT_EQ(list.CentroidSpecData(), 0);
}

// ---- Time to mass and the default segment lists ----

TEST(QXPeakTableList, TimeToMassFollowsTheSquareRootLaw) {
  // t, t1, t2, m1, m2, mass. First t = 500 + 100 sqrt(m), whose calibration points map onto
  // themselves; then no calibration: t2 or m2 not above 0.01, one point twice, a negative m1.
  const double cases[][6] = {{2500, 1500, 3500, 100, 900, 400}, {1500, 1500, 3500, 100, 900, 100},
                             {3500, 1500, 3500, 100, 900, 900}, {2000, 1000, 0.01, 100, 900, 0},
                             {2000, 1000, 3000, 100, 0.01, 0},  {2000, 1000, 3000, 900, 900, 0},
                             {2000, 3000, 3000, 100, 900, 0},   {2000, 1000, 3000, -4, 900, 0}};
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(QXPeakTableList::TimeToMass(c[0], c[1], c[2], c[3], c[4]), c[5]) << c[0];
  }
}

// What every built list shares: odd widths used as filter and minimum peak width, growing
// along the axis; filter type 0, increment 1, automatic width; neighbours overlapping.
void ExpectGrowingSegments(const std::vector<QXPeakDetectSetting>& segs) {
  for (std::size_t i = 0; i < segs.size(); ++i) {
    const QXPeakDetectSetting& s = segs[i];
    SCOPED_TRACE(i);
    EXPECT_EQ(std::make_tuple(s.GetFilterWidth() % 2, s.GetMinPeakWidth(), s.GetFilterType(),
                              s.GetFilterInc(), s.GetAutoPeakWidth()),
              std::make_tuple(1, s.GetFilterWidth(), 0, 1, 1));
    EXPECT_LT(s.GetRangeX1(), s.GetRangeX2());
    if (i == 0) continue;
    EXPECT_GE(s.GetFilterWidth(), segs[i - 1].GetFilterWidth());
    EXPECT_GT(s.GetRangeX1(), segs[i - 1].GetRangeX1());
    EXPECT_LT(s.GetRangeX1(), segs[i - 1].GetRangeX2());
  }
}

// A time axis sampled every dt = 1000, R = 500: peaks t / (2 dt R) points wide, 5.5 at t1;
// masses follow t = k sqrt(m) through (t1, m1).
constexpr double kDt = 1000.0;
constexpr double kT1 = 5.5e6;
constexpr double kR = 500.0;
constexpr double kM1 = 12.1;

int BuildTof(QXPeakTableList& list, double dt, double t1, double t2, double m1, double m2,
             double R) {
  return list.CreateDefaultSegment(dt, t1, t2, m1, m2, R, 0.5, 10.0, 1.0, 2.0, 400, 3.0, 2, 40.0, 4,
                                   20, 0.1, 0.9);
}
int BuildMass(QXPeakTableList& list, double resolution, double dx, double x1, double x2) {
  return list.CreateDefaultSegment(resolution, dx, x1, x2, 2.0, 0.4, 10.0, 1.0, 2.0, 400, 3.0, 2,
                                   40.0, 4, 20, 0.1, 0.9);
}

// Peaks 100 points wide at t2 = 1e8 close the walk with a segment up to m2. At 1.019e8 they
// are 101.9 wide: widths 5, 11, ..., 101 stop short of t2 and the next step ends the walk
// without a closing segment, yet counts one.
TEST(QXPeakTableList, TimeOfFlightSegmentsWidenAlongTheAxisAndCloseAtM2) {
  for (const double t2 : {1e8, 1.019e8}) {
    const bool closed = t2 == 1e8;
    QXPeakTableList list;
    Fill(list, {1, 2});
    const double m2 = kM1 * (t2 / kT1) * (t2 / kT1);
    const int n = BuildTof(list, kDt, kT1, t2, kM1, m2, kR);
    const auto segs = testing::Segments(list);
    ASSERT_EQ(n, static_cast<int>(segs.size()) + (closed ? 0 : 1));
    ASSERT_GE(segs.size(), 10u);
    ExpectGrowingSegments(segs);
    EXPECT_EQ(std::make_tuple(segs.front().GetRangeX1(), segs.back().GetFilterWidth()),
              std::make_tuple(kM1, 101));
    // Each segment ends where peaks are as wide as its filter, or at m2 (with peaks up to
    // 10000 points) when it closes the walk; the next starts 5 % of its span below that end
    // (3200 / dt is below the 5 % floor).
    for (std::size_t i = 0; i < segs.size(); ++i) {
      SCOPED_TRACE(i);
      const bool closing = closed && i + 1 == segs.size();
      const double end = closing ? m2
                                 : QXPeakTableList::TimeToMass(
                                       2.0 * segs[i].GetFilterWidth() * kDt * kR, kT1, t2, kM1, m2);
      EXPECT_EQ(std::make_tuple(segs[i].GetRangeX2(), segs[i].GetMaxPeakWidth()),
                std::make_tuple(end, closing ? 10000 : 400));
      if (i + 1 < segs.size()) {
        EXPECT_DOUBLE_EQ(segs[i + 1].GetRangeX1(), end - (end - segs[i].GetRangeX1()) * 0.05);
      }
    }
    const QXPeakDetectSetting& s = segs[3];
    EXPECT_EQ(std::make_tuple(s.GetRelThreshold(), s.GetAbsThreshold(), s.GetMinPeakArea(),
                              s.GetPctPeakArea(), s.GetNoiseThreshold(), s.GetIntegratedMethod(),
                              s.GetPctCentroid(), s.GetMaxCharge(), s.GetMaxIsotope(),
                              s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity()),
              std::make_tuple(0.5, 10.0, 1.0, 2.0, 3.0, 2, 40.0, 4, 20, 0.1, 0.9));
  }
}

TEST(QXPeakTableList, MassAxisSegmentsFollowTheResolvingPowerUpToTheFilterCap) {
  const double lowered = 2.0 - (2.0 - 0.4) * 0.05;
  // resolution, dx, x2, width of the last segment, its threshold. Peaks are m / (R dx)
  // points wide: 400 at x2 in the first case; past the 2001-point cap in the second and
  // third; 2000 in the last, which still fits a filter.
  const std::tuple<double, double, double, int, double> cases[] = {
      {5000.0, 1e-3, 2000.0, 417, 2.0},
      {5000.0, 1e-4, 2000.0, 2001, lowered},
      {1500.0, 0.5 / 1500.0, 2000.0, 2001, lowered},
      {5000.0, 1e-4, 1000.0, 2001, 2.0}};
  for (const auto& [resolution, dx, x2, lastWidth, lastThreshold] : cases) {
    SCOPED_TRACE(::testing::Message() << resolution << " " << dx << " " << x2);
    QXPeakTableList list;
    const int n = BuildMass(list, resolution, dx, 100.0, x2);
    const auto segs = testing::Segments(list);
    ASSERT_EQ(n, static_cast<int>(segs.size()));
    ASSERT_GE(segs.size(), 10u);
    ExpectGrowingSegments(segs);
    EXPECT_EQ(std::make_tuple(segs.front().GetRangeX1(), segs.back().GetRangeX2(),
                              segs.back().GetFilterWidth(), segs.back().GetRelThreshold(),
                              segs.back().GetMaxPeakWidth()),
              std::make_tuple(100.0, x2, lastWidth, lastThreshold, 10000));
    for (std::size_t i = 0; i + 1 < segs.size(); ++i) {
      EXPECT_DOUBLE_EQ(segs[i].GetRangeX2(), segs[i].GetFilterWidth() * resolution * dx);
      EXPECT_EQ(std::make_tuple(segs[i].GetRelThreshold(), segs[i].GetMaxPeakWidth()),
                std::make_tuple(2.0, 400));
    }
  }
  // A resolving power of 1000 or less stands for a low-resolution instrument: R = x2.
  QXPeakTableList low;
  QXPeakTableList explicitR;
  EXPECT_EQ(BuildMass(low, 1000.0, 0.05, 50.0, 1500.0),
            BuildMass(explicitR, 1500.0, 0.05, 50.0, 1500.0));
  EXPECT_EQ(SegmentFields(low), SegmentFields(explicitR));
}

TEST(QXPeakTableList, SegmentBuildersRefuseUnusableAxes) {
  const double nan = std::nan("");
  const double inf = std::numeric_limits<double>::infinity();
  // dt, t1, t2, m1, m2, R; and resolution, dx, x1, x2.
  const double tof[][6] = {{kDt, kT1, 0.0, kM1, 4e3, kR},
                           {0.0, kT1, 1e8, kM1, 4e3, kR},
                           {kDt, -kT1, 1e8, kM1, 4e3, kR},
                           {kDt, kT1, 1e8, kM1, 4e3, nan},
                           {kDt, kT1, inf, kM1, 4e3, kR}};
  const double mass[][4] = {{5e3, 1e-3, 100.0, -5.0},
                            {5e3, 0.0, 100.0, 2e3},
                            {5e3, 1e-3, 2e3, 2e3},
                            {inf, 1e-3, 100.0, 2e3},
                            {5e3, 1e-3, nan, 2e3}};
  for (std::size_t i = 0; i < 10; ++i) {
    QXPeakTableList list;
    Fill(list, {1, 2});
    const double* t = tof[i % 5];
    const double* m = mass[i % 5];
    EXPECT_EQ(i < 5 ? BuildTof(list, t[0], t[1], t[2], t[3], t[4], t[5])
                    : BuildMass(list, m[0], m[1], m[2], m[3]),
              0)
        << i;
    EXPECT_EQ(SegmentFields(list), Tags({1, 2})) << i;
  }
  // Widths of ~1e300 points saturate instead of overflowing; the walk stays short.
  QXPeakTableList list;
  EXPECT_GT(BuildTof(list, 1e-300, 0.0, 1e300, 1.0, 1e6, 1.0), 0);
  EXPECT_LE(list.GetNumDetectionSettings(), 40);
}

// ---- Peak tables ----

void FillTable(QXPeakTable& t, const std::vector<double>& xs) {
  for (double x : xs) {
    t.AddPeak(QXPeakTableElement(x, 10.0 * x, 1, x - 0.5, 1.0, 0, x + 0.5, 2.0, 2, x + 0.01,
                                 3.0 * x, x - 0.2, 4.0, x + 0.2, 5.0, 1));
  }
}

TEST(QXPeakTableList, TableIndexRules) {
  QXPeakTableList list;
  EXPECT_EQ(std::make_tuple(list.GetPeakTableFromList(-1), list.GetNumPeaksFromList(-1),
                            list.DeletePeakTableFromList(-1)),
            std::make_tuple(nullptr, -1, 0));
  list.AddPeakTableToList();
  list.AddPeakTableToList();
  FillTable(*list.GetPeakTableFromList(0), {1.0});
  FillTable(*list.GetPeakTableFromList(1), {2.0, 3.0});
  for (const std::int32_t bad : {2, 5, -2, kMinIndex, kMaxIndex}) {
    EXPECT_EQ(std::make_tuple(list.GetPeakTableFromList(bad), list.GetNumPeaksFromList(bad),
                              list.GetPeakFromTableList(bad, 0), list.DeletePeakTableFromList(bad),
                              list.ClearPeakTableInList(bad)),
              std::make_tuple(nullptr, -1, nullptr, 0, 0))
        << bad;
  }
  EXPECT_EQ(list.GetPeakTableFromList(-1), list.GetPeakTableFromList(1));
  EXPECT_EQ(std::make_tuple(list.GetNumPeaksFromList(-1), list.GetNumPeaksFromList(0)),
            std::make_tuple(2, 1));
  EXPECT_EQ(list.GetPeakFromTableList(-1, -1)->m_dApexX, 3.0);
  EXPECT_EQ(list.GetPeakFromTableList(0, 1), nullptr);
  EXPECT_EQ(list.ClearPeakTableInList(-1), 1);
  EXPECT_EQ(std::make_tuple(list.GetNumPeakTablesInList(), list.GetNumPeaksFromList(1)),
            std::make_tuple(2, 0));
  EXPECT_EQ(list.DeletePeakTableFromList(0), 1);
  EXPECT_EQ(std::make_tuple(list.GetNumPeakTablesInList(), list.GetNumPeaksFromList(0)),
            std::make_tuple(1, 0));
}

// A list with something in every part that a copy must carry.
void FillEverything(ListProbe& list) {
  list.AddPeakTableToList();
  list.AddPeakTableToList();
  FillTable(*list.GetPeakTableFromList(0), {1.0, 2.0});
  FillTable(*list.GetPeakTableFromList(1), {5.0});
  Fill(list, {1, 2, 3});
  list.SetMassProcessing(1);
  list.SetCentroidSpecData(1);
  list.SetUseResolutionFlag(1);
  list.SetGaussFit(1);
  list.SetAutoSNCalcOn(1);
  list.SetResolution(7000.0);
  list.SetDefaults(2.5, 3.5, 4, 5, 6, 7.5, 8.5, 9, 10, 0, 11.5, 2, 1, 12.5, 1, 3, 4, 0.125, 0.875,
                   5000.0, 1, 1);
  list.ForceSettingChange(0);
}

auto Switches(const QXPeakTableList& l) {
  return std::make_tuple(l.MassProcessingOn(), l.CentroidSpecData(), l.GetUseResolutionFlag(),
                         l.IsGaussFitOn(), l.IsAutoSNCalcOn(), l.GetResolution(),
                         l.SettingsChanged());
}

TEST(QXPeakTableList, CopiesAreDeepAndComplete) {
  const std::function<void(ListProbe&, const ListProbe&)> ways[] = {
      [](ListProbe& t, const ListProbe& s) { t = s; },
      [](ListProbe& t, const ListProbe& s) { t.CopyPeakTableList(&s); },
      [](ListProbe& t, const ListProbe& s) { t = ListProbe(s); }};
  for (std::size_t way = 0; way < std::size(ways); ++way) {
    SCOPED_TRACE(way);
    ListProbe source;
    FillEverything(source);
    const std::string sourceBytes = testing::Stored(source);
    ListProbe target;  // with content of its own that the copy replaces
    target.AddPeakTableToList();
    FillTable(*target.GetPeakTableFromList(0), {9.0});
    Fill(target, {7});
    ways[way](target, source);
    EXPECT_EQ(testing::Stored(target), sourceBytes);
    EXPECT_EQ(SegmentFields(target), SegmentFields(source));
    EXPECT_EQ(Switches(target), Switches(source));
    EXPECT_EQ(target.Defaults(), source.Defaults());
    // Changing the copy leaves the source alone.
    target.GetPeakFromTableList(0, 0)->m_dApexX = -1.0;
    target.ClearPeakTableInList(1);
    target.SetDetectionRange(0, -5.0, -4.0);
    EXPECT_EQ(testing::Stored(source), sourceBytes);
    EXPECT_EQ(SegmentFields(source), Tags({1, 2, 3}));
  }
  ListProbe list;
  FillEverything(list);
  const std::string bytes = testing::Stored(list);
  list.CopyPeakTableList(nullptr);
  list.CopyPeakTableList(&list);
  EXPECT_EQ(testing::Stored(list), bytes);
  EXPECT_EQ(SegmentFields(list), Tags({1, 2, 3}));
}

TEST(QXPeakTableList, ArchiveCarriesTheTablesOnlyAndBadBytesLeaveNone) {
  ListProbe source;
  FillEverything(source);
  source.AddPeakTableToList();  // an empty table travels too
  const std::string bytes = testing::Stored(source);
  QXPeakTableList loaded;
  loaded.AddPeakTableToList();
  Fill(loaded, {7});
  EXPECT_TRUE(testing::Loaded(loaded, bytes));
  EXPECT_EQ(testing::Stored(loaded), bytes);
  EXPECT_EQ(SegmentFields(loaded), Tags({7}));
  EXPECT_EQ(loaded.MassProcessingOn(), 0);
  QXPeakTableList empty;
  EXPECT_EQ(testing::Stored(empty), std::string(2, '\0'));

  std::vector<std::string> bad;
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) bad.push_back(bytes.substr(0, cut));
  bad.push_back(std::string("\x01\x00\x00\x00", 4));  // a null table
  bad.push_back(bytes);
  bad.back()[bytes.find("QXPeakTable")] = 'Z';  // a class of another name
  for (const std::string& b : bad) {
    QXPeakTableList list;
    list.AddPeakTableToList();
    EXPECT_FALSE(testing::Loaded(list, b)) << b.size();
    EXPECT_EQ(list.GetNumPeakTablesInList(), 0) << b.size();
  }
}

}  // namespace
}  // namespace qxpkutil
