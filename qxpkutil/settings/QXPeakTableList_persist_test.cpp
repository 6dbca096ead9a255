#include <gtest/gtest.h>

#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

using testing::SettingFields;
using Lines = std::vector<std::string>;
using Fields = testing::SettingFieldsTuple;
using testing::SegmentFields;

// What restoring a saved segment gives: the same, with a new segment's PctCentroid (14)
// and mass values (16..19) when mass processing is off.
Fields Restored(const QXPeakDetectSetting& s, bool mass) {
  Fields f = SettingFields(s);
  const Fields fresh = SettingFields(QXPeakDetectSetting());
  if (!mass) {
    [&]<std::size_t... I>(std::index_sequence<I...>) {
      ((std::get<I>(f) = std::get<I>(fresh)), ...);
    }
    (std::index_sequence<14, 16, 17, 18, 19>{});
  }
  return f;
}
std::vector<Fields> Restored(std::initializer_list<int> segments, bool mass) {
  std::vector<Fields> out;
  for (int k : segments) out.push_back(Restored(testing::Tagged(k), mass));
  return out;
}

auto Switches(const QXPeakTableList& list) {
  return std::make_tuple(list.MassProcessingOn(), list.GetResolution(), list.GetUseResolutionFlag(),
                         list.IsGaussFitOn(), list.IsAutoSNCalcOn());
}

// A list with segments 1..count and every switch away from its default.
QXPeakTableList SavedList(int count, int mass) {
  std::vector<QXPeakDetectSetting> segments;
  for (int k = 1; k <= count; ++k) segments.push_back(testing::Tagged(k));
  QXPeakTableList list = testing::ListOf(segments);
  list.SetMassProcessing(mass);
  list.SetResolution(12345.5);
  list.SetUseResolutionFlag(1);
  list.SetGaussFit(1);
  list.SetAutoSNCalcOn(1);
  return list;
}

std::string AsText(const Lines& lines) {
  std::string text;
  QXPersistUtils::FormStringFromList(text, lines);
  return text;
}

using ListPersist = testing::AppProfileTest;

enum class Route { kProfile, kText, kMap };

class ListRoundTrip : public ListPersist,
                      public ::testing::WithParamInterface<std::tuple<Route, int>> {};

TEST_P(ListRoundTrip, RestoresEverySegmentAndSwitch) {
  const auto [route, mass] = GetParam();
  QXPeakTableList saved = SavedList(3, mass);
  Lines lines;
  saved.PersistSettings("App", 2, route == Route::kProfile ? nullptr : &lines,
                        route == Route::kProfile ? 1 : 0);

  QXPeakTableList restored = SavedList(5, 1 - mass);  // replaced, not merged
  const std::string text = AsText(lines);
  if (route == Route::kMap) {
    restored.RestoreSettings("App", testing::LinesToMap(lines), 2, kQXPersistFromText);
  } else {
    const bool profile = route == Route::kProfile;
    restored.RestoreSettings("App", 2, profile ? nullptr : text.c_str(),
                             profile ? kQXPersistFromProfile : kQXPersistFromText);
  }
  EXPECT_EQ(SegmentFields(restored), Restored({1, 2, 3}, mass != 0));
  EXPECT_EQ(Switches(restored), Switches(saved));
}

INSTANTIATE_TEST_SUITE_P(RoutesAndMassProcessing, ListRoundTrip,
                         ::testing::Combine(::testing::Values(Route::kProfile, Route::kText,
                                                              Route::kMap),
                                            ::testing::Values(0, 1)));

TEST_F(ListPersist, WritesExactLinesAndProfileEntries) {
  QXPeakTableList list;
  list.AddDetectionSetting(-1);
  list.SetDetectionSetting(0, 100.5, 2000.25, 0.5, 1250.0, 2, 7, 1, 10.0, 1.5, 5, 400, 0, 3.0, 2,
                           40.0, 4, 20, 0.1, 0.9);
  list.SetMassProcessing(1);
  list.SetGaussFit(1);
  Lines lines{"kept"};
  list.PersistSettings("App", 2, &lines, 1);

  std::istringstream entries(
      "NumDetectSegments=1 DetectRangeX1-0=100.500000 DetectRangeX2-0=2000.250000 "
      "PeakThresholdPct-0=0.500000 AbsoluteThreshold-0=1.250000e+03 PeakFilterType-0=2 "
      "PeakFilterWidth-0=7 PeakFilterIncrement-0=1 MinPeakArea-0=10.000000 "
      "PctPeakArea-0=1.500000 MinPeakWidth-0=5 MaxPeakWidth-0=400 AutoPeakWidth-0=0 "
      "PeakIntegrateMethod-0=2 NoiseThreshold-0=3.000000 PeakCentroidPct-0=40.000000 "
      "MaxCharge-0=4 MaxIsotope-0=20 RelMinIntensity-0=0.100000 RelMaxIntensity-0=0.900000 "
      "Mass-Processing-0=1 Resolution-0=2000.000000 UseResolutionForPkDetect=0 GaussianFit=1 "
      "AutomaticNoiseThreshold=0");
  Lines expected{"kept"};
  for (std::string entry; entries >> entry;) {
    expected.push_back("App\\PeakSettingsTrace-2\\" + entry + "\r\n");
  }
  EXPECT_EQ(lines, expected);
  const char* section = "App\\PeakSettingsTrace-2";
  EXPECT_EQ(profile_.GetProfileString(section, "AbsoluteThreshold-0", ""), "1.250000e+03");
  EXPECT_EQ(profile_.GetProfileInt(section, "MaxPeakWidth-0", 0), 400);
  EXPECT_EQ(profile_.GetProfileInt(section, "Mass-Processing-0", 0), 1);
}

TEST_F(ListPersist, WithoutMassProcessingNoMassKeysAreSavedAndStoredOnesAreIgnored) {
  QXPeakTableList list = SavedList(2, 0);
  Lines lines;
  list.PersistSettings("App", 0, &lines, 0);
  const std::string text = AsText(lines);
  for (const char* key :
       {"PeakCentroidPct", "MaxCharge", "MaxIsotope", "RelMinIntensity", "RelMaxIntensity"}) {
    EXPECT_EQ(text.find(key), std::string::npos) << key;
  }
  lines.push_back("App\\PeakSettingsTrace-0\\MaxCharge-0=3\r\n");
  lines.push_back("App\\PeakSettingsTrace-0\\PeakCentroidPct-1=20.0\r\n");
  QXPeakTableList restored;
  restored.SetMassProcessing(1);
  restored.SetCentroidSpecData(1);
  restored.RestoreSettings("App", 0, AsText(lines).c_str(), kQXPersistFromText);
  EXPECT_EQ(SegmentFields(restored), Restored({1, 2}, false));
  EXPECT_EQ(restored.MassProcessingOn(), 0);
  EXPECT_EQ(restored.CentroidSpecData(), 0);
}

class RestoreDefaults : public ListPersist, public ::testing::WithParamInterface<int> {};

TEST_P(RestoreDefaults, MissingKeysGiveOneSegmentOfDefaultsInTheirSavedForm) {
  const int defaultMass = GetParam();
  QXPeakTableList list = SavedList(2, 1);
  list.SetDefaults(0.1234567, 2.5, 1, 5, 2, 3.0, 4.0, 7, 300, 0, 6.0, 2, 1, 12.5, defaultMass, 3, 9,
                   0.25, 0.75, 5000.0, 1, 1);
  list.RestoreSettings("App", 0, "App\\Other=1\r\n", 0);

  // RelThreshold went through "%f": six decimals.
  const QXPeakDetectSetting expected(0, 0, 0.123457, 2.5, 1, 5, 2, 3.0, 4.0, 7, 300, 0, 6.0, 2,
                                     12.5, 3, 9, 0.25, 0.75);
  EXPECT_EQ(SegmentFields(list), std::vector<Fields>{Restored(expected, defaultMass != 0)});
  EXPECT_EQ(Switches(list), std::make_tuple(defaultMass, 5000.0, 1, 1, 1));
}

INSTANTIATE_TEST_SUITE_P(DefaultMassProcessing, RestoreDefaults, ::testing::Values(0, 1));

TEST_F(ListPersist, SectionLookupIsASubstringSearchOfTheText) {
  Lines lines;
  SavedList(1, 1).PersistSettings("AB", 0, &lines, 0);
  SavedList(2, 0).PersistSettings("B", 0, &lines, 0);
  QXPeakTableList restored;
  restored.RestoreSettings("B", 0, AsText(lines).c_str(), kQXPersistFromText);
  // "B\PeakSettingsTrace-0\..." is found first inside AB's lines.
  EXPECT_EQ(SegmentFields(restored), Restored({1}, true));

  restored.RestoreSettings("B", testing::LinesToMap(lines), 0, kQXPersistFromText);
  EXPECT_EQ(SegmentFields(restored), Restored({1, 2}, false));
}

TEST_F(ListPersist, SegmentCountsOutsideTheListsRangeAreBounded) {
  QXPeakTableList list = SavedList(2, 0);
  const std::string key = "App\\PeakSettingsTrace-0\\NumDetectSegments";
  list.RestoreSettings("App", {{key, "-3"}}, 0, kQXPersistFromText);
  EXPECT_EQ(list.GetNumDetectionSettings(), 0);
  list.RestoreSettings("App", {{key, "99999999999"}}, 0, kQXPersistFromText);
  EXPECT_EQ(list.GetNumDetectionSettings(), QXPeakTableList::kMaxDetectionSettings);
}

TEST(ListPersistWithoutProfile, NothingIsWrittenOrRestored) {
  QXSetAppProfile(nullptr);
  QXPeakTableList list = SavedList(2, 1);
  Lines lines;
  list.PersistSettings("App", 0, &lines, 1);
  EXPECT_TRUE(lines.empty());
  list.RestoreSettings("App", 0, "App\\PeakSettingsTrace-0\\NumDetectSegments=5\r\n",
                       kQXPersistFromText);
  list.RestoreSettings("App", std::map<std::string, std::string>{}, 0, 0);
  EXPECT_EQ(SegmentFields(list), Restored({1, 2}, true));
  EXPECT_EQ(Switches(list), Switches(SavedList(2, 1)));
}

}  // namespace
}  // namespace qxpkutil
