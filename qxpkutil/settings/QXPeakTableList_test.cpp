#include "qxpkutil/settings/QXPeakTableList.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

using testing::SettingFields;
using Fields = decltype(SettingFields(QXPeakDetectSetting()));

constexpr std::int32_t kMinIndex = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMaxIndex = std::numeric_limits<std::int32_t>::max();

// Tag 0 is a default setting; any other tag gives a setting whose every field differs
// from the default's and from other tags', so a slot shows where it came from.
QXPeakDetectSetting Tagged(int tag) {
  if (tag == 0) return QXPeakDetectSetting();
  const double d = tag;
  return QXPeakDetectSetting(d, d + 0.5, d + 0.25, d * 2, tag, tag + 20, tag + 10, d * 3,
                             d * 4, tag + 30, tag + 100, 0, d * 5, tag + 40, d * 6, tag + 50,
                             tag + 60, 0.01 * d, 0.5 + 0.01 * d);
}

std::vector<Fields> TaggedFields(const std::vector<int>& tags) {
  std::vector<Fields> out;
  for (int tag : tags) out.push_back(SettingFields(Tagged(tag)));
  return out;
}

std::vector<Fields> Segments(const QXPeakTableList& list) {
  std::vector<Fields> out;
  for (std::int32_t i = 0; i < list.GetNumDetectionSettings(); ++i) {
    QXPeakDetectSetting s;
    EXPECT_EQ(list.GetDetectionSetting(i, s), 1);
    out.push_back(SettingFields(s));
  }
  return out;
}

// A list whose segments carry `tags`, with settingsChanged cleared.
void FillSegments(QXPeakTableList& list, const std::vector<int>& tags) {
  for (int tag : tags) {
    list.AddDetectionSetting(-1);
    list.SetDetectionSetting(list.GetNumDetectionSettings() - 1, Tagged(tag));
  }
  list.ForceSettingChange(0);
}

// The protected default block, for the tests that need to see it.
struct ListProbe : QXPeakTableList {
  auto DefaultBlock() const {
    return std::make_tuple(m_bDefaultMassProcessing, m_bDefaultUseResolutionFlag,
                           m_bDefaultGaussFit, m_bDefaultAutoSNCalc, m_dDefaultResolution);
  }
  Fields DefaultSetting() const { return SettingFields(m_DefaultSetting); }
};

// One slot per field in the order of GetAllDetectionSettings; the getter and setter
// forms below read and write their own subset.
struct Values {
  double rangeX1, rangeX2, relThreshold, absThreshold;
  int filterType, filterWidth, filterInc;
  double minPeakArea, pctPeakArea;
  int minPeakWidth, maxPeakWidth, autoPeakWidth;
  double noiseThreshold;
  int integratedMethod;
  double pctCentroid, divisor;
  int maxCharge, maxIsotope;
  double relMin, relMax;

  auto Tie() const {
    return std::tie(rangeX1, rangeX2, relThreshold, absThreshold, filterType, filterWidth,
                    filterInc, minPeakArea, pctPeakArea, minPeakWidth, maxPeakWidth,
                    autoPeakWidth, noiseThreshold, integratedMethod, pctCentroid, divisor,
                    maxCharge, maxIsotope, relMin, relMax);
  }
  bool operator==(const Values& o) const { return Tie() == o.Tie(); }
};

Values Filled(double v) {
  const int n = static_cast<int>(v);
  return {v, v, v, v, n, n, n, v, v, n, n, n, v, n, v, v, n, n, v, v};
}

Values Distinct() {
  return {1.5, 2.5, 3.5, 4.5, 5, 6, 7, 8.5, 9.5, 10, 11, 12, 13.5, 14, 15.5, 16.5, 17, 18, 19.5,
          20.5};
}

int Get19(const QXPeakTableList& l, std::int32_t i, Values& v) {
  return l.GetDetectionSetting(i, v.rangeX1, v.rangeX2, v.relThreshold, v.absThreshold,
                               v.filterType, v.filterWidth, v.filterInc, v.minPeakArea,
                               v.pctPeakArea, v.minPeakWidth, v.maxPeakWidth, v.autoPeakWidth,
                               v.noiseThreshold, v.integratedMethod, v.pctCentroid,
                               v.maxCharge, v.maxIsotope, v.relMin, v.relMax);
}
int Set19(QXPeakTableList& l, std::int32_t i, const Values& v) {
  return l.SetDetectionSetting(i, v.rangeX1, v.rangeX2, v.relThreshold, v.absThreshold,
                               v.filterType, v.filterWidth, v.filterInc, v.minPeakArea,
                               v.pctPeakArea, v.minPeakWidth, v.maxPeakWidth, v.autoPeakWidth,
                               v.noiseThreshold, v.integratedMethod, v.pctCentroid,
                               v.maxCharge, v.maxIsotope, v.relMin, v.relMax);
}
int Get10(const QXPeakTableList& l, std::int32_t i, Values& v) {
  return l.GetDetectionSetting(i, v.rangeX1, v.rangeX2, v.relThreshold, v.pctCentroid,
                               v.divisor, v.integratedMethod, v.maxCharge, v.maxIsotope,
                               v.relMin, v.relMax);
}
int Set10(QXPeakTableList& l, std::int32_t i, const Values& v) {
  return l.SetDetectionSetting(i, v.rangeX1, v.rangeX2, v.relThreshold, v.pctCentroid,
                               v.divisor, v.integratedMethod, v.maxCharge, v.maxIsotope,
                               v.relMin, v.relMax);
}
int GetAll(const QXPeakTableList& l, std::int32_t i, Values& v) {
  return l.GetAllDetectionSettings(i, v.rangeX1, v.rangeX2, v.relThreshold, v.absThreshold,
                                   v.filterType, v.filterWidth, v.filterInc, v.minPeakArea,
                                   v.pctPeakArea, v.minPeakWidth, v.maxPeakWidth,
                                   v.autoPeakWidth, v.noiseThreshold, v.integratedMethod,
                                   v.pctCentroid, v.divisor, v.maxCharge, v.maxIsotope,
                                   v.relMin, v.relMax);
}

// ---- Segments ----

TEST(QXPeakTableList, NewListIsEmptyWithSettingsChangedAndItsOwnDefaultSetting) {
  ListProbe list;
  EXPECT_EQ(list.GetNumDetectionSettings(), 0);
  EXPECT_EQ(list.GetNumPeakTablesInList(), 0);
  EXPECT_EQ(list.SettingsChanged(), 1);
  EXPECT_EQ(list.GetResolution(), 2000.0);
  EXPECT_EQ(list.DefaultBlock(), std::make_tuple(0, 0, 0, 0, 2000.0));
  QXPeakDetectSetting expected;
  expected.SetPctCentroid(1.0);
  EXPECT_EQ(list.DefaultSetting(), SettingFields(expected));
}

struct AddCase {
  const char* name;
  std::vector<int> before;
  std::int32_t index;
  int massProcessing;
  std::vector<int> after;  // empty with `before` non-empty: nothing may change
};

class AddDetectionSettingTest : public ::testing::TestWithParam<AddCase> {};

TEST_P(AddDetectionSettingTest, InsertsAppendsGrowsAndCopiesThePredecessor) {
  const AddCase& c = GetParam();
  QXPeakTableList list;
  FillSegments(list, c.before);
  list.SetMassProcessing(c.massProcessing);
  list.AddDetectionSetting(c.index);
  const bool ignored = c.after.empty();
  EXPECT_EQ(Segments(list), TaggedFields(ignored ? c.before : c.after));
  EXPECT_EQ(list.SettingsChanged(), ignored ? 0 : 1);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AddDetectionSettingTest,
    ::testing::Values(
        AddCase{"GrowEmptyToIndexPlusOne", {}, 3, 0, {0, 0, 0, 0}},
        AddCase{"SecondCopiesFirst", {1}, 1, 0, {1, 1}},
        AddCase{"InsertCopiesPredecessor", {1, 2, 3}, 1, 0, {1, 1, 2, 3}},
        AddCase{"InsertBeforeLast", {1, 2, 3}, 2, 0, {1, 2, 2, 3}},
        AddCase{"InsertAtZeroIsDefault", {1, 2, 3}, 0, 0, {0, 1, 2, 3}},
        AddCase{"InsertAtZeroUnderMassProcessing", {1, 2, 3}, 0, 1, {0, 1, 2, 3}},
        AddCase{"MinusOneAppendsDefault", {1, 2, 3}, -1, 0, {1, 2, 3, 0}},
        AddCase{"MinusOneUnderMassProcessing", {1, 2, 3}, -1, 1, {1, 2, 3, 0}},
        AddCase{"AtCountCopiesLast", {1, 2, 3}, 3, 0, {1, 2, 3, 3}},
        AddCase{"PastCountGrowsWithDefaults", {1, 2, 3}, 5, 0, {1, 2, 3, 0, 0, 0}},
        AddCase{"BelowMinusOneIgnored", {1, 2}, -2, 0, {}},
        AddCase{"MostNegativeIgnored", {1, 2}, kMinIndex, 0, {}},
        AddCase{"HugeIndexIgnored", {1, 2}, kMaxIndex, 0, {}}),
    [](const ::testing::TestParamInfo<AddCase>& info) { return info.param.name; });

TEST(QXPeakTableList, AddDetectionSettingStopsAtTheSegmentLimit) {
  QXPeakTableList list;
  list.AddDetectionSetting(QXPeakTableList::kMaxDetectionSettings);
  EXPECT_EQ(list.GetNumDetectionSettings(), 0);
  list.AddDetectionSetting(QXPeakTableList::kMaxDetectionSettings - 1);
  EXPECT_EQ(list.GetNumDetectionSettings(), QXPeakTableList::kMaxDetectionSettings);
  list.AddDetectionSetting(-1);
  EXPECT_EQ(list.GetNumDetectionSettings(), QXPeakTableList::kMaxDetectionSettings);
}

struct DeleteCase {
  const char* name;
  std::vector<int> before;
  std::int32_t index;
  int result;
  std::vector<int> after;
  int settingsChanged;
};

class DeleteDetectionSettingTest : public ::testing::TestWithParam<DeleteCase> {};

TEST_P(DeleteDetectionSettingTest, ResultSegmentsAndSettingsChanged) {
  const DeleteCase& c = GetParam();
  QXPeakTableList list;
  FillSegments(list, c.before);
  EXPECT_EQ(list.DeleteDetectionSetting(c.index), c.result);
  EXPECT_EQ(Segments(list), TaggedFields(c.after));
  EXPECT_EQ(list.SettingsChanged(), c.settingsChanged);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DeleteDetectionSettingTest,
    ::testing::Values(DeleteCase{"EmptyLast", {}, -1, 0, {}, 0},
                      DeleteCase{"EmptyFirst", {}, 0, 0, {}, 0},
                      DeleteCase{"MinusOneIsLast", {1, 2}, -1, 1, {1}, 1},
                      DeleteCase{"First", {1, 2}, 0, 1, {2}, 1},
                      DeleteCase{"OutOfRangeStillMarksChange", {1, 2}, 7, 0, {1, 2}, 1},
                      DeleteCase{"BelowMinusOneStillMarksChange", {1, 2}, -2, 0, {1, 2}, 1}),
    [](const ::testing::TestParamInfo<DeleteCase>& info) { return info.param.name; });

TEST(QXPeakTableList, DeleteAllDetectionSettingsLeavesSettingsChanged) {
  QXPeakTableList list;
  FillSegments(list, {1, 2, 3});
  list.DeleteAllDetectionSettings();
  EXPECT_EQ(list.GetNumDetectionSettings(), 0);
  EXPECT_EQ(list.SettingsChanged(), 0);
}

// Every indexed segment operation on a bad index: result 0, outputs, segments and
// settingsChanged untouched.
struct IndexedOp {
  const char* name;
  // Returns the operation's result; sets `untouched` when its outputs kept their values.
  std::function<int(QXPeakTableList&, std::int32_t, bool& untouched)> run;
};

class BadSegmentIndexTest
    : public ::testing::TestWithParam<std::tuple<IndexedOp, std::int32_t>> {};

TEST_P(BadSegmentIndexTest, FailsAndChangesNothing) {
  const auto& [op, index] = GetParam();
  QXPeakTableList list;
  FillSegments(list, {1, 2});
  bool untouched = false;
  EXPECT_EQ(op.run(list, index, untouched), 0);
  EXPECT_TRUE(untouched);
  EXPECT_EQ(Segments(list), TaggedFields({1, 2}));
  EXPECT_EQ(list.SettingsChanged(), 0);
}

const IndexedOp kIndexedOps[] = {
    {"GetSetting",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       QXPeakDetectSetting s = Tagged(9);
       const int r = l.GetDetectionSetting(i, s);
       u = SettingFields(s) == SettingFields(Tagged(9));
       return r;
     }},
    {"SetSetting",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       u = true;
       return l.SetDetectionSetting(i, Tagged(9));
     }},
    {"Get19",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       Values v = Filled(77);
       const int r = Get19(l, i, v);
       u = v == Filled(77);
       return r;
     }},
    {"Set19",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       u = true;
       return Set19(l, i, Filled(77));
     }},
    {"Get10",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       Values v = Filled(77);
       const int r = Get10(l, i, v);
       u = v == Filled(77);
       return r;
     }},
    {"Set10",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       u = true;
       return Set10(l, i, Filled(77));
     }},
    {"GetAll",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       Values v = Filled(77);
       const int r = GetAll(l, i, v);
       u = v == Filled(77);
       return r;
     }},
    {"GetRange",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       double x1 = 77.0;
       double x2 = 77.0;
       const int r = l.GetDetectionRange(i, x1, x2);
       u = x1 == 77.0 && x2 == 77.0;
       return r;
     }},
    {"SetRange",
     [](QXPeakTableList& l, std::int32_t i, bool& u) {
       u = true;
       return l.SetDetectionRange(i, 77.0, 78.0);
     }},
};

INSTANTIATE_TEST_SUITE_P(
    Ops, BadSegmentIndexTest,
    ::testing::Combine(::testing::ValuesIn(kIndexedOps),
                       ::testing::Values(-1, 2, -2, kMinIndex, kMaxIndex)),
    [](const ::testing::TestParamInfo<BadSegmentIndexTest::ParamType>& info) {
      const std::int32_t i = std::get<1>(info.param);
      return std::string(std::get<0>(info.param).name) + "_" +
             (i < 0 ? "minus" + std::to_string(-std::int64_t{i}) : std::to_string(i));
    });

TEST(QXPeakTableList, SetNoiseThresholdOnOneOrEverySegment) {
  QXPeakTableList list;
  EXPECT_EQ(list.SetNoiseThreshold(5.0, -1), 1);  // no segments: nothing to do
  FillSegments(list, {1, 2, 3});
  EXPECT_EQ(list.SetNoiseThreshold(5.0, 3), 0);
  EXPECT_EQ(list.SetNoiseThreshold(5.0, -2), 0);
  EXPECT_EQ(Segments(list), TaggedFields({1, 2, 3}));
  EXPECT_EQ(list.SetNoiseThreshold(7.0, 1), 1);
  EXPECT_EQ(list.SetNoiseThreshold(9.0, -1), 1);
  QXPeakDetectSetting s;
  for (std::int32_t i = 0; i < 3; ++i) {
    ASSERT_EQ(list.GetDetectionSetting(i, s), 1);
    EXPECT_EQ(s.GetNoiseThreshold(), 9.0);
    s.SetNoiseThreshold(Tagged(i + 1).GetNoiseThreshold());
    EXPECT_EQ(SettingFields(s), SettingFields(Tagged(i + 1)));
  }
  EXPECT_EQ(list.SettingsChanged(), 0);
}

TEST(QXPeakTableList, ValueFormsKeepTheirDocumentedOrder) {
  QXPeakTableList list;
  FillSegments(list, {0});
  const Values in = Distinct();
  ASSERT_EQ(Set19(list, 0, in), 1);
  Values all = Filled(0);
  ASSERT_EQ(GetAll(list, 0, all), 1);
  Values expected = in;
  expected.divisor = kQXUnsetValue;
  EXPECT_EQ(all.Tie(), expected.Tie());

  Values got19 = Filled(0);
  ASSERT_EQ(Get19(list, 0, got19), 1);
  got19.divisor = kQXUnsetValue;
  EXPECT_EQ(got19.Tie(), expected.Tie());

  Values got10 = Filled(0);
  ASSERT_EQ(Get10(list, 0, got10), 1);
  EXPECT_EQ(std::tie(got10.rangeX1, got10.rangeX2, got10.relThreshold, got10.pctCentroid,
                     got10.divisor, got10.integratedMethod, got10.maxCharge, got10.maxIsotope,
                     got10.relMin, got10.relMax),
            std::make_tuple(1.5, 2.5, 3.5, 15.5, kQXUnsetValue, 14, 17, 18, 19.5, 20.5));
}

TEST(QXPeakTableList, MassFormWritesDivisorAndDropsFilterAndWidthLimits) {
  QXPeakTableList list;
  FillSegments(list, {1});
  Values mass = Filled(0);
  ASSERT_EQ(Get10(list, 0, mass), 1);
  mass.divisor = 0.25;
  mass.pctCentroid = 33.0;
  ASSERT_EQ(Set10(list, 0, mass), 1);

  QXPeakDetectSetting expected = Tagged(1);
  expected.SetPctCentroid(33.0);
  expected.SetFilterType(0);
  expected.SetFilterWidth(0);
  expected.SetFilterInc(0);
  expected.SetAbsThreshold(0.0);
  Fields want = SettingFields(expected);
  std::get<9>(want) = 0;    // MinPeakWidth
  std::get<10>(want) = 0;   // MaxPeakWidth
  std::get<15>(want) = 0.25;  // Divisor
  EXPECT_EQ(Segments(list), std::vector<Fields>{want});

  // Copies carry the divisor; the nineteen-value form resets it.
  QXPeakDetectSetting copy;
  ASSERT_EQ(list.GetDetectionSetting(0, copy), 1);
  EXPECT_EQ(QXPeakDetectSetting(copy).GetDivisor(), 0.25);
  Values values = Filled(0);
  ASSERT_EQ(Get19(list, 0, values), 1);
  ASSERT_EQ(Set19(list, 0, values), 1);
  ASSERT_EQ(list.GetDetectionSetting(0, copy), 1);
  EXPECT_EQ(copy.GetDivisor(), kQXUnsetValue);
}

// A change to one field through a bulk setter.
struct FieldBump {
  const char* name;
  std::function<void(Values&)> bump;
  bool inValueForm;  // one of the nineteen
  bool inMassForm;   // one of the ten
};

const FieldBump kFieldBumps[] = {
    {"RangeX1", [](Values& v) { v.rangeX1 += 1; }, true, true},
    {"RangeX2", [](Values& v) { v.rangeX2 += 1; }, true, true},
    {"RelThreshold", [](Values& v) { v.relThreshold += 1; }, true, true},
    {"AbsThreshold", [](Values& v) { v.absThreshold += 1; }, true, false},
    {"FilterType", [](Values& v) { v.filterType += 1; }, true, false},
    {"FilterWidth", [](Values& v) { v.filterWidth += 1; }, true, false},
    {"FilterInc", [](Values& v) { v.filterInc += 1; }, true, false},
    {"MinPeakArea", [](Values& v) { v.minPeakArea += 1; }, true, false},
    {"PctPeakArea", [](Values& v) { v.pctPeakArea += 1; }, true, false},
    {"MinPeakWidth", [](Values& v) { v.minPeakWidth += 1; }, true, false},
    {"MaxPeakWidth", [](Values& v) { v.maxPeakWidth += 1; }, true, false},
    {"AutoPeakWidth", [](Values& v) { v.autoPeakWidth += 1; }, true, false},
    {"NoiseThreshold", [](Values& v) { v.noiseThreshold += 1; }, true, false},
    {"IntegratedMethod", [](Values& v) { v.integratedMethod += 1; }, true, true},
    {"PctCentroid", [](Values& v) { v.pctCentroid += 1; }, true, true},
    {"Divisor", [](Values& v) { v.divisor = 3.0; }, false, true},
    {"MaxCharge", [](Values& v) { v.maxCharge += 1; }, true, true},
    {"MaxIsotope", [](Values& v) { v.maxIsotope += 1; }, true, true},
    {"RelMasMinIntensity", [](Values& v) { v.relMin += 1; }, true, true},
    {"RelMassMaxIntensity", [](Values& v) { v.relMax += 1; }, true, true},
};

class BulkSetterChangeTest : public ::testing::TestWithParam<FieldBump> {};

TEST_P(BulkSetterChangeTest, MarksAChangeExactlyWhenAValueOfItsFormDiffers) {
  const FieldBump& f = GetParam();
  QXPeakTableList list;
  FillSegments(list, {1});
  Values v = Filled(0);
  ASSERT_EQ(GetAll(list, 0, v), 1);
  f.bump(v);
  ASSERT_EQ(Set19(list, 0, v), 1);
  EXPECT_EQ(list.SettingsChanged(), f.inValueForm ? 1 : 0) << "nineteen-value form";

  list.ForceSettingChange(0);
  ASSERT_EQ(GetAll(list, 0, v), 1);
  f.bump(v);
  ASSERT_EQ(Set10(list, 0, v), 1);
  EXPECT_EQ(list.SettingsChanged(), f.inMassForm ? 1 : 0) << "mass form";
}

INSTANTIATE_TEST_SUITE_P(
    Fields, BulkSetterChangeTest, ::testing::ValuesIn(kFieldBumps),
    [](const ::testing::TestParamInfo<FieldBump>& info) { return info.param.name; });

TEST(QXPeakTableList, BulkSettersWithEqualValuesMarkNoChange) {
  QXPeakTableList list;
  FillSegments(list, {1});
  Values v = Filled(0);
  ASSERT_EQ(Get19(list, 0, v), 1);
  ASSERT_EQ(Set19(list, 0, v), 1);
  EXPECT_EQ(list.SettingsChanged(), 0);
  ASSERT_EQ(Get10(list, 0, v), 1);
  ASSERT_EQ(Set10(list, 0, v), 1);  // zeroes the filter, but the ten values are equal
  EXPECT_EQ(list.SettingsChanged(), 0);
  // A NaN never equals itself: storing one again is a change.
  v.relThreshold = std::nan("");
  ASSERT_EQ(Set10(list, 0, v), 1);
  list.ForceSettingChange(0);
  ASSERT_EQ(Set10(list, 0, v), 1);
  EXPECT_EQ(list.SettingsChanged(), 1);
}

// Operations whose effect on settingsChanged a caller can see, from a cleared flag.
struct ChangeCase {
  const char* name;
  std::function<void(QXPeakTableList&)> act;
  int settingsChanged;
};

class SettingsChangedTest : public ::testing::TestWithParam<ChangeCase> {};

TEST_P(SettingsChangedTest, FollowsTheOperation) {
  QXPeakTableList list;
  FillSegments(list, {1, 2});
  GetParam().act(list);
  EXPECT_EQ(list.SettingsChanged(), GetParam().settingsChanged);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsChangedTest,
    ::testing::Values(
        ChangeCase{"SetSettingObject", [](auto& l) { l.SetDetectionSetting(0, Tagged(5)); }, 0},
        ChangeCase{"SameRange", [](auto& l) { l.SetDetectionRange(0, 1.0, 1.5); }, 0},
        ChangeCase{"NewRangeStart", [](auto& l) { l.SetDetectionRange(0, 2.0, 1.5); }, 1},
        ChangeCase{"NewRangeEnd", [](auto& l) { l.SetDetectionRange(0, 1.0, 2.0); }, 1},
        ChangeCase{"NoiseThreshold", [](auto& l) { l.SetNoiseThreshold(4.0, -1); }, 0},
        ChangeCase{"MassProcessing", [](auto& l) { l.SetMassProcessing(1); }, 0},
        ChangeCase{"CentroidSpecData", [](auto& l) { l.SetCentroidSpecData(1); }, 0},
        ChangeCase{"SameUseResolution", [](auto& l) { l.SetUseResolutionFlag(0); }, 0},
        ChangeCase{"NewUseResolution", [](auto& l) { l.SetUseResolutionFlag(1); }, 1},
        ChangeCase{"SameGaussFit", [](auto& l) { l.SetGaussFit(0); }, 0},
        ChangeCase{"NewGaussFit", [](auto& l) { l.SetGaussFit(1); }, 1},
        ChangeCase{"SameAutoSN", [](auto& l) { l.SetAutoSNCalcOn(0); }, 0},
        ChangeCase{"NewAutoSN", [](auto& l) { l.SetAutoSNCalcOn(1); }, 1},
        ChangeCase{"SameResolution", [](auto& l) { l.SetResolution(2000.0); }, 0},
        ChangeCase{"NewResolution", [](auto& l) { l.SetResolution(3000.0); }, 1},
        ChangeCase{"Defaults",
                   [](auto& l) {
                     l.SetDefaults(2, 3, 4, 5, 6, 7, 8, 9, 10, 0, 11, 2, 1, 12, 1, 3, 4, 0.1,
                                   0.9, 5000, 1, 1);
                   },
                   0},
        ChangeCase{"Forced", [](auto& l) { l.ForceSettingChange(1); }, 1}),
    [](const ::testing::TestParamInfo<ChangeCase>& info) { return info.param.name; });

TEST(QXPeakTableList, SwitchesStoreTheirValues) {
  QXPeakTableList list;
  list.SetMassProcessing(1);
  list.SetCentroidSpecData(1);
  list.SetUseResolutionFlag(1);
  list.SetGaussFit(1);
  list.SetAutoSNCalcOn(1);
  list.SetResolution(12500.0);
  EXPECT_EQ(std::make_tuple(list.MassProcessingOn(), list.CentroidSpecData(),
                            list.GetUseResolutionFlag(), list.IsGaussFitOn(),
                            list.IsAutoSNCalcOn(), list.GetResolution()),
            std::make_tuple(1, 1, 1, 1, 1, 12500.0));
  // Centroided input only makes sense with mass processing.
  list.SetMassProcessing(0);
  EXPECT_EQ(list.CentroidSpecData(), 0);
}

TEST(QXPeakTableList, SetDefaultsFillsTheFallbacksOnly) {
  ListProbe list;
  FillSegments(list, {1});
  list.SetDefaults(2.5, 3.5, 4, 5, 6, 7.5, 8.5, 9, 10, 0, 11.5, 2, 1, 12.5, 1, 3, 4, 0.125,
                   0.875, 5000.0, 1, 1);
  EXPECT_EQ(list.DefaultSetting(),
            std::make_tuple(0.0, 0.0, 2.5, 3.5, 4, 5, 6, 7.5, 8.5, 9, 10, 0, 11.5, 2, 12.5,
                            kQXUnsetValue, 3, 4, 0.125, 0.875));
  EXPECT_EQ(list.DefaultBlock(), std::make_tuple(1, 1, 1, 1, 5000.0));
  EXPECT_EQ(std::make_tuple(list.MassProcessingOn(), list.GetUseResolutionFlag(),
                            list.IsGaussFitOn(), list.IsAutoSNCalcOn(), list.GetResolution()),
            std::make_tuple(0, 0, 0, 0, 2000.0));
  EXPECT_EQ(Segments(list), TaggedFields({1}));
}

// ---- Time to mass and the default segment lists ----

TEST(QXPeakTableList, TimeToMassFollowsTheSquareRootLaw) {
  // t = 100 sqrt(m): both calibration points map back onto themselves.
  EXPECT_DOUBLE_EQ(QXPeakTableList::TimeToMass(2000.0, 1000.0, 3000.0, 100.0, 900.0), 400.0);
  EXPECT_DOUBLE_EQ(QXPeakTableList::TimeToMass(1000.0, 1000.0, 3000.0, 100.0, 900.0), 100.0);
  EXPECT_DOUBLE_EQ(QXPeakTableList::TimeToMass(3000.0, 1000.0, 3000.0, 100.0, 900.0), 900.0);
  // An offset t0 = 500: t = 500 + 100 sqrt(m).
  EXPECT_DOUBLE_EQ(QXPeakTableList::TimeToMass(2500.0, 1500.0, 3500.0, 100.0, 900.0), 400.0);
}

TEST(QXPeakTableList, TimeToMassWithoutACalibrationIsZero) {
  const double cases[][5] = {
      {2000.0, 1000.0, 0.01, 100.0, 900.0},   // t2 not above 0.01
      {2000.0, 1000.0, 3000.0, 100.0, 0.01},  // m2 not above 0.01
      {2000.0, 1000.0, 3000.0, 900.0, 900.0},  // one mass twice
      {2000.0, 3000.0, 3000.0, 100.0, 900.0},  // one time twice
      {2000.0, 1000.0, 3000.0, -4.0, 900.0},   // negative mass
  };
  for (const auto& c : cases) {
    EXPECT_EQ(QXPeakTableList::TimeToMass(c[0], c[1], c[2], c[3], c[4]), 0.0) << c[2];
  }
}

struct SegmentView {
  double x1, x2, relThreshold;
  int width, minPeakWidth, filterType, filterInc, autoPeakWidth, maxPeakWidth;
};

std::vector<SegmentView> View(const QXPeakTableList& list) {
  std::vector<SegmentView> out;
  for (std::int32_t i = 0; i < list.GetNumDetectionSettings(); ++i) {
    QXPeakDetectSetting s;
    list.GetDetectionSetting(i, s);
    out.push_back({s.GetRangeX1(), s.GetRangeX2(), s.GetRelThreshold(), s.GetFilterWidth(),
                   s.GetMinPeakWidth(), s.GetFilterType(), s.GetFilterInc(),
                   s.GetAutoPeakWidth(), s.GetMaxPeakWidth()});
  }
  return out;
}

// What every built segment shares: an odd width used as filter and minimum peak width,
// filter type 0, increment 1, automatic width; and widths growing along the axis.
void ExpectGrowingOddWidths(const std::vector<SegmentView>& segs) {
  for (std::size_t i = 0; i < segs.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(segs[i].width % 2, 1);
    EXPECT_EQ(segs[i].minPeakWidth, segs[i].width);
    EXPECT_EQ(std::make_tuple(segs[i].filterType, segs[i].filterInc, segs[i].autoPeakWidth),
              std::make_tuple(0, 1, 1));
    EXPECT_LT(segs[i].x1, segs[i].x2);
    if (i > 0) {
      EXPECT_GE(segs[i].width, segs[i - 1].width);
      EXPECT_LT(segs[i].x1, segs[i - 1].x2);  // no gap between neighbours
      EXPECT_GT(segs[i].x1, segs[i - 1].x1);
    }
  }
}

// A time axis sampled every dt = 1000 with peaks t / (2 dt R) points wide, R = 500:
// 5.5 points at t1 and 100 at t2 = 1e8; masses follow t = k sqrt(m).
constexpr double kDt = 1000.0;
constexpr double kT1 = 5.5e6;
constexpr double kR = 500.0;
constexpr double kM1 = 12.1;

int BuildTof(QXPeakTableList& list, double t2, double m2) {
  return list.CreateDefaultSegment(kDt, kT1, t2, kM1, m2, kR, 0.5, 10.0, 1.0, 2.0, 400, 3.0,
                                   2, 40.0, 4, 20, 0.1, 0.9);
}

TEST(QXPeakTableList, TimeOfFlightSegmentsWidenAlongTheAxisAndReachM2) {
  QXPeakTableList list;
  FillSegments(list, {1, 2});
  const double t2 = 1e8;
  const double m2 = kM1 * (t2 / kT1) * (t2 / kT1);
  const int n = BuildTof(list, t2, m2);
  const auto segs = View(list);
  ASSERT_EQ(n, list.GetNumDetectionSettings());
  ASSERT_GE(segs.size(), 10u);
  ExpectGrowingOddWidths(segs);
  EXPECT_GT(segs.back().width, 5 * segs.front().width);
  EXPECT_EQ(segs.front().x1, kM1);
  EXPECT_EQ(segs.back().x2, m2);
  EXPECT_EQ(segs.back().maxPeakWidth, 10000);
  // Each segment ends where peaks are as wide as its filter, and the next starts 5 % of
  // its span below that end (3200 / dt is below the 5 % floor here).
  for (std::size_t i = 0; i + 1 < segs.size(); ++i) {
    SCOPED_TRACE(i);
    const double end = QXPeakTableList::TimeToMass(2.0 * segs[i].width * kDt * kR, kT1, t2,
                                                   kM1, m2);
    EXPECT_EQ(segs[i].x2, end);
    EXPECT_DOUBLE_EQ(segs[i + 1].x1, end - (end - segs[i].x1) * 0.05);
    EXPECT_EQ(segs[i].maxPeakWidth, 400);
  }
  // The given values reach every segment.
  QXPeakDetectSetting s;
  list.GetDetectionSetting(3, s);
  EXPECT_EQ(std::make_tuple(s.GetRelThreshold(), s.GetAbsThreshold(), s.GetMinPeakArea(),
                            s.GetPctPeakArea(), s.GetNoiseThreshold(), s.GetIntegratedMethod(),
                            s.GetPctCentroid(), s.GetMaxCharge(), s.GetMaxIsotope(),
                            s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity(),
                            s.GetDivisor()),
            std::make_tuple(0.5, 10.0, 1.0, 2.0, 3.0, 2, 40.0, 4, 20, 0.1, 0.9, kQXUnsetValue));
}

TEST(QXPeakTableList, TimeOfFlightWalkThatStepsPastT2CountsOneSegmentTooMany) {
  // Peaks are 101.9 points wide at t2: the widths 5, 11, ..., 101 stop short of t2 and
  // the next step leaves the walk without a closing segment.
  QXPeakTableList list;
  const double t2 = 1.019e8;
  const double m2 = kM1 * (t2 / kT1) * (t2 / kT1);
  const int n = BuildTof(list, t2, m2);
  EXPECT_EQ(n, list.GetNumDetectionSettings() + 1);
  const auto segs = View(list);
  ASSERT_FALSE(segs.empty());
  EXPECT_EQ(segs.back().width, 101);
  EXPECT_LT(segs.back().x2, m2);
  EXPECT_EQ(segs.back().maxPeakWidth, 400);
}

TEST(QXPeakTableList, TimeOfFlightRefusesUnusableInstrumentValues) {
  const double nan = std::nan("");
  const double inf = std::numeric_limits<double>::infinity();
  const double cases[][6] = {
      // dt, t1, t2, m1, m2, R
      {kDt, kT1, 0.0, kM1, 4000.0, kR},   {kDt, kT1, -1.0, kM1, 4000.0, kR},
      {0.0, kT1, 1e8, kM1, 4000.0, kR},   {-kDt, kT1, 1e8, kM1, 4000.0, kR},
      {kDt, kT1, 1e8, kM1, 4000.0, 0.0},  {kDt, -kT1, 1e8, kM1, 4000.0, kR},
      {nan, kT1, 1e8, kM1, 4000.0, kR},   {kDt, nan, 1e8, kM1, 4000.0, kR},
      {kDt, kT1, nan, kM1, 4000.0, kR},   {kDt, kT1, inf, kM1, 4000.0, kR},
      {kDt, kT1, 1e8, kM1, inf, kR},      {kDt, kT1, 1e8, kM1, 4000.0, inf},
  };
  for (const auto& c : cases) {
    QXPeakTableList list;
    FillSegments(list, {1, 2});
    EXPECT_EQ(list.CreateDefaultSegment(c[0], c[1], c[2], c[3], c[4], c[5], 0.5, 10.0, 1.0,
                                        2.0, 400, 3.0, 2, 40.0, 4, 20, 0.1, 0.9),
              0);
    EXPECT_EQ(Segments(list), TaggedFields({1, 2}));
  }
}

TEST(QXPeakTableList, TimeOfFlightWithExtremeScalesStaysSmall) {
  // Widths of ~1e300 points saturate instead of overflowing; the walk still takes about
  // sixteen steps.
  QXPeakTableList list;
  const int n = list.CreateDefaultSegment(1e-300, 0.0, 1e300, 1.0, 1e6, 1.0, 0.5, 10.0, 1.0,
                                          2.0, 400, 3.0, 2, 40.0, 4, 20, 0.1, 0.9);
  EXPECT_GT(n, 0);
  EXPECT_LE(list.GetNumDetectionSettings(), 40);
}

int BuildMass(QXPeakTableList& list, double resolution, double dx, double x1, double x2) {
  return list.CreateDefaultSegment(resolution, dx, x1, x2, 2.0, 0.4, 10.0, 1.0, 2.0, 400, 3.0,
                                   2, 40.0, 4, 20, 0.1, 0.9);
}

TEST(QXPeakTableList, MassAxisSegmentsFollowTheResolvingPower) {
  // Peaks m / (R dx) points wide: 21 at 100, 401 at 2000.
  QXPeakTableList list;
  const int n = BuildMass(list, 5000.0, 0.001, 100.0, 2000.0);
  const auto segs = View(list);
  ASSERT_EQ(n, static_cast<int>(segs.size()));
  ASSERT_GE(segs.size(), 10u);
  ExpectGrowingOddWidths(segs);
  EXPECT_EQ(segs.front().x1, 100.0);
  EXPECT_EQ(segs.front().width, 21);
  EXPECT_EQ(segs.back().x2, 2000.0);
  EXPECT_EQ(segs.back().maxPeakWidth, 10000);
  for (std::size_t i = 0; i + 1 < segs.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_DOUBLE_EQ(segs[i].x2, segs[i].width * 5000.0 * 0.001);
    EXPECT_EQ(segs[i].relThreshold, 2.0);
    EXPECT_EQ(segs[i].maxPeakWidth, 400);
  }
}

TEST(QXPeakTableList, MassAxisPastTheFilterCapLowersTheThreshold) {
  // With R dx = 0.5, peaks are 2000 points wide at 1000 and 4000 at 2000: the walk stops
  // at the 2001-point cap in both cases, and only peaks broader than any filter lower the
  // threshold of the rest.
  const double lowered = 2.0 - (2.0 - 0.4) * 0.05;
  for (const auto& [resolution, x2, lastThreshold] :
       {std::tuple{5000.0, 2000.0, lowered}, std::tuple{1500.0, 2000.0, lowered},
        std::tuple{5000.0, 1000.0, 2.0}}) {
    SCOPED_TRACE(resolution);
    SCOPED_TRACE(x2);
    QXPeakTableList list;
    const double dx = 0.5 / resolution;
    const int n = BuildMass(list, resolution, dx, 100.0, x2);
    const auto segs = View(list);
    ASSERT_EQ(n, static_cast<int>(segs.size()));
    ASSERT_GE(segs.size(), 10u);
    ExpectGrowingOddWidths(segs);
    EXPECT_EQ(segs.back().x2, x2);
    EXPECT_EQ(segs.back().width, 2001);
    EXPECT_EQ(segs.back().relThreshold, lastThreshold);
    for (std::size_t i = 0; i + 1 < segs.size(); ++i) {
      EXPECT_LT(segs[i].width, 2001);
      EXPECT_EQ(segs[i].relThreshold, 2.0);
      EXPECT_LE(segs[i].x2, 2001 * 0.5);
    }
  }
}

TEST(QXPeakTableList, MassAxisAtLowResolutionTakesTheUpperBoundAsResolution) {
  QXPeakTableList low;
  QXPeakTableList explicitR;
  EXPECT_EQ(BuildMass(low, 800.0, 0.05, 50.0, 1500.0),
            BuildMass(explicitR, 1500.0, 0.05, 50.0, 1500.0));
  EXPECT_EQ(Segments(low), Segments(explicitR));
  // 1000 itself counts as low.
  QXPeakTableList thousand;
  BuildMass(thousand, 1000.0, 0.05, 50.0, 1500.0);
  EXPECT_EQ(Segments(thousand), Segments(explicitR));
}

TEST(QXPeakTableList, MassAxisRefusesUnusableAxes) {
  const double nan = std::nan("");
  const double cases[][4] = {
      // resolution, dx, x1, x2
      {5000.0, 0.001, 100.0, 0.0},  {5000.0, 0.001, 100.0, -5.0}, {5000.0, 0.0, 100.0, 2000.0},
      {5000.0, -0.001, 100.0, 2000.0}, {5000.0, 0.001, -1.0, 2000.0},
      {5000.0, 0.001, 2000.0, 2000.0}, {5000.0, nan, 100.0, 2000.0},
      {5000.0, 0.001, nan, 2000.0},  {5000.0, 0.001, 100.0, nan},
      {std::numeric_limits<double>::infinity(), 0.001, 100.0, 2000.0},
  };
  for (const auto& c : cases) {
    QXPeakTableList list;
    FillSegments(list, {1, 2});
    EXPECT_EQ(BuildMass(list, c[0], c[1], c[2], c[3]), 0);
    EXPECT_EQ(Segments(list), TaggedFields({1, 2}));
  }
}

// ---- Peak tables ----

// A table whose peaks have apex x = the given values and a few other archived fields.
void FillTable(QXPeakTable& t, const std::vector<double>& xs) {
  for (double x : xs) {
    t.AddPeak(QXPeakTableElement(x, 10.0 * x, 1, x - 0.5, 1.0, 0, x + 0.5, 2.0, 2, x + 0.01,
                                 3.0 * x, x - 0.2, 4.0, x + 0.2, 5.0, 1));
  }
}

std::string Store(QXPeakTableList& list) {
  std::ostringstream out;
  {
    QXArchive ar(out);
    list.Serialize(ar);
  }
  return out.str();
}

TEST(QXPeakTableList, TableIndexRules) {
  QXPeakTableList list;
  EXPECT_EQ(list.GetPeakTableFromList(-1), nullptr);
  EXPECT_EQ(list.GetPeakTableFromList(0), nullptr);
  EXPECT_EQ(list.GetNumPeaksFromList(-1), -1);
  EXPECT_EQ(list.GetPeakFromTableList(-1, 0), nullptr);
  EXPECT_EQ(list.DeletePeakTableFromList(-1), 0);
  EXPECT_EQ(list.ClearPeakTableInList(-1), 0);

  list.AddPeakTableToList();
  list.AddPeakTableToList();
  FillTable(*list.GetPeakTableFromList(0), {1.0});
  FillTable(*list.GetPeakTableFromList(1), {2.0, 3.0});
  EXPECT_EQ(list.GetPeakTableFromList(-1), list.GetPeakTableFromList(1));
  EXPECT_EQ(list.GetNumPeaksFromList(-1), 2);
  EXPECT_EQ(list.GetNumPeaksFromList(0), 1);
  for (const std::int32_t bad : {2, 5, -2, kMinIndex, kMaxIndex}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(list.GetPeakTableFromList(bad), nullptr);
    EXPECT_EQ(list.GetNumPeaksFromList(bad), -1);
    EXPECT_EQ(list.GetPeakFromTableList(bad, 0), nullptr);
    EXPECT_EQ(list.DeletePeakTableFromList(bad), 0);
    EXPECT_EQ(list.ClearPeakTableInList(bad), 0);
  }
  EXPECT_EQ(list.GetNumPeakTablesInList(), 2);
  EXPECT_EQ(list.GetPeakFromTableList(-1, -1)->m_dApexX, 3.0);
  EXPECT_EQ(list.GetPeakFromTableList(0, 0)->m_dApexX, 1.0);
  EXPECT_EQ(list.GetPeakFromTableList(0, 1), nullptr);

  EXPECT_EQ(list.ClearPeakTableInList(-1), 1);
  EXPECT_EQ(list.GetNumPeakTablesInList(), 2);
  EXPECT_EQ(list.GetNumPeaksFromList(1), 0);
  EXPECT_EQ(list.DeletePeakTableFromList(0), 1);
  EXPECT_EQ(list.GetNumPeakTablesInList(), 1);
  EXPECT_EQ(list.GetNumPeaksFromList(0), 0);
  list.DeleteAllPeakTables();
  EXPECT_EQ(list.GetNumPeakTablesInList(), 0);
}

// A list with something in every part that a copy must carry.
void FillEverything(ListProbe& list) {
  list.AddPeakTableToList();
  list.AddPeakTableToList();
  FillTable(*list.GetPeakTableFromList(0), {1.0, 2.0});
  FillTable(*list.GetPeakTableFromList(1), {5.0});
  FillSegments(list, {1, 2, 3});
  list.SetMassProcessing(1);
  list.SetCentroidSpecData(1);
  list.SetUseResolutionFlag(1);
  list.SetGaussFit(1);
  list.SetAutoSNCalcOn(1);
  list.SetResolution(7000.0);
  list.SetDefaults(2.5, 3.5, 4, 5, 6, 7.5, 8.5, 9, 10, 0, 11.5, 2, 1, 12.5, 1, 3, 4, 0.125,
                   0.875, 5000.0, 1, 1);
  list.ForceSettingChange(0);
}

auto Switches(const QXPeakTableList& l) {
  return std::make_tuple(l.MassProcessingOn(), l.CentroidSpecData(), l.GetUseResolutionFlag(),
                         l.IsGaussFitOn(), l.IsAutoSNCalcOn(), l.GetResolution(),
                         l.SettingsChanged());
}

struct CopyWay {
  const char* name;
  std::function<void(ListProbe& target, const ListProbe& source)> copy;
};

class ListCopyTest : public ::testing::TestWithParam<CopyWay> {};

TEST_P(ListCopyTest, IsDeepAndComplete) {
  ListProbe source;
  FillEverything(source);
  const std::string sourceBytes = Store(source);
  // The target starts with content of its own that the copy must replace.
  ListProbe target;
  target.AddPeakTableToList();
  FillTable(*target.GetPeakTableFromList(0), {9.0});
  FillSegments(target, {7});
  GetParam().copy(target, source);

  EXPECT_EQ(Store(target), sourceBytes);
  EXPECT_EQ(Segments(target), Segments(source));
  EXPECT_EQ(Switches(target), Switches(source));
  EXPECT_EQ(target.DefaultBlock(), source.DefaultBlock());
  EXPECT_EQ(target.DefaultSetting(), source.DefaultSetting());

  // Changing the copy leaves the source alone.
  ASSERT_NE(target.GetPeakTableFromList(0), source.GetPeakTableFromList(0));
  target.GetPeakFromTableList(0, 0)->m_dApexX = -1.0;
  target.ClearPeakTableInList(1);
  target.SetDetectionRange(0, -5.0, -4.0);
  EXPECT_EQ(Store(source), sourceBytes);
  EXPECT_EQ(Segments(source), TaggedFields({1, 2, 3}));
}

INSTANTIATE_TEST_SUITE_P(
    Ways, ListCopyTest,
    ::testing::Values(
        CopyWay{"Assignment", [](ListProbe& t, const ListProbe& s) { t = s; }},
        CopyWay{"CopyPeakTableList", [](ListProbe& t, const ListProbe& s) { t.CopyPeakTableList(&s); }},
        CopyWay{"CopyConstructor", [](ListProbe& t, const ListProbe& s) { t = ListProbe(s); }}),
    [](const ::testing::TestParamInfo<CopyWay>& info) { return info.param.name; });

TEST(QXPeakTableList, CopyFromNullOrItselfChangesNothing) {
  ListProbe list;
  FillEverything(list);
  const std::string bytes = Store(list);
  list.CopyPeakTableList(nullptr);
  list.CopyPeakTableList(&list);
  QXPeakTableList& self = list;
  self = *&self;
  EXPECT_EQ(Store(list), bytes);
  EXPECT_EQ(Segments(list), TaggedFields({1, 2, 3}));
  EXPECT_EQ(list.SettingsChanged(), 0);
}

TEST(QXPeakTableList, ArchiveHoldsTheTablesOnly) {
  ListProbe source;
  FillEverything(source);
  source.AddPeakTableToList();  // an empty table travels too
  const std::string bytes = Store(source);

  QXPeakTableList loaded;
  loaded.AddPeakTableToList();
  FillTable(*loaded.GetPeakTableFromList(0), {9.0});
  FillSegments(loaded, {7});
  {
    std::istringstream in(bytes);
    QXArchive ar(in);
    loaded.Serialize(ar);
    EXPECT_FALSE(ar.Failed());
  }
  ASSERT_EQ(loaded.GetNumPeakTablesInList(), 3);
  EXPECT_EQ(loaded.GetNumPeaksFromList(0), 2);
  EXPECT_EQ(loaded.GetPeakFromTableList(0, 1)->m_dApexX, 2.0);
  EXPECT_EQ(loaded.GetPeakFromTableList(1, 0)->m_dArea, 15.0);
  EXPECT_EQ(loaded.GetNumPeaksFromList(2), 0);
  EXPECT_EQ(Store(loaded), bytes);
  // Segments and switches are not part of the archive.
  EXPECT_EQ(Segments(loaded), TaggedFields({7}));
  EXPECT_EQ(loaded.MassProcessingOn(), 0);

  QXPeakTableList empty;
  EXPECT_EQ(Store(empty), std::string(2, '\0'));
}

TEST(QXPeakTableList, BadArchiveBytesLeaveNoTables) {
  ListProbe source;
  FillEverything(source);
  const std::string bytes = Store(source);
  std::vector<std::string> bad;
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) bad.push_back(bytes.substr(0, cut));
  bad.push_back(std::string("\x01\x00\x00\x00", 4));  // a null table
  std::string renamed = bytes;
  renamed[renamed.find("QXPeakTable")] = 'Z';
  bad.push_back(renamed);
  for (const std::string& b : bad) {
    SCOPED_TRACE(b.size());
    QXPeakTableList list;
    list.AddPeakTableToList();
    FillSegments(list, {7});
    std::istringstream in(b);
    QXArchive ar(in);
    list.Serialize(ar);
    EXPECT_TRUE(ar.Failed());
    EXPECT_EQ(list.GetNumPeakTablesInList(), 0);
    EXPECT_EQ(Segments(list), TaggedFields({7}));
  }
}

}  // namespace
}  // namespace qxpkutil
