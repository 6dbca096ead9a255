#include "qxpkutil/settings/QXPeakDetectSetting.h"

#include <gtest/gtest.h>

#include <functional>
#include <tuple>
#include <utility>

#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

using testing::SettingFields;

TEST(QXPeakDetectSetting, DefaultsAreTheDocumentedValues) {
  const QXPeakDetectSetting s;
  EXPECT_EQ(SettingFields(s),
            std::make_tuple(0.0, 0.0, 1.0, 0.0, 0, 3, 1, 0.0, 1.0, 3, 10000, 1, 0.0, 1, 50.0,
                            kQXUnsetValue, 6, 40, 0.05, 0.99));
  EXPECT_STREQ(s.GetRuntimeClass()->m_lpszClassName, "QXPeakDetectSetting");
  EXPECT_TRUE(s.IsKindOf(&QXObject::classQXObject));
}

TEST(QXPeakDetectSetting, ValueConstructorTakesRangeFirstAndWidthBeforeIncrement) {
  // Distinct values expose any argument that lands in the wrong field.
  const QXPeakDetectSetting s(1.5, 2.5, 3.5, 4.5, 5, 6, 7, 8.5, 9.5, 10, 11, 12, 13.5, 14,
                              15.5, 16, 17, 18.5, 19.5);
  EXPECT_EQ(SettingFields(s), std::make_tuple(1.5, 2.5, 3.5, 4.5, 5, 6, 7, 8.5, 9.5, 10, 11,
                                              12, 13.5, 14, 15.5, kQXUnsetValue, 16, 17, 18.5,
                                              19.5));
  EXPECT_EQ(s.GetFilterWidth(), 6);
  EXPECT_EQ(s.GetFilterInc(), 7);
}

template <class Tuple, std::size_t... I>
int CountDifferences(const Tuple& a, const Tuple& b, std::index_sequence<I...>) {
  return ((std::get<I>(a) != std::get<I>(b) ? 1 : 0) + ...);
}

struct SetterCase {
  const char* name;
  std::function<void(QXPeakDetectSetting&)> set;
  std::function<bool(const QXPeakDetectSetting&)> stored;
  int fieldsChanged;
};

class SetterTest : public ::testing::TestWithParam<SetterCase> {};

TEST_P(SetterTest, StoresItsOwnFieldAndNothingElse) {
  const SetterCase& c = GetParam();
  QXPeakDetectSetting s;
  c.set(s);
  EXPECT_TRUE(c.stored(s));
  const auto before = SettingFields(QXPeakDetectSetting());
  EXPECT_EQ(CountDifferences(before, SettingFields(s),
                             std::make_index_sequence<std::tuple_size_v<decltype(before)>>()),
            c.fieldsChanged);
}

using S = QXPeakDetectSetting;
INSTANTIATE_TEST_SUITE_P(
    Setters, SetterTest,
    ::testing::Values(
        SetterCase{"RelThreshold", [](S& s) { s.SetRelThreshold(7.5); },
                   [](const S& s) { return s.GetRelThreshold() == 7.5; }, 1},
        SetterCase{"AbsThreshold", [](S& s) { s.SetAbsThreshold(7.5); },
                   [](const S& s) { return s.GetAbsThreshold() == 7.5; }, 1},
        SetterCase{"PctCentroid", [](S& s) { s.SetPctCentroid(7.5); },
                   [](const S& s) { return s.GetPctCentroid() == 7.5; }, 1},
        SetterCase{"FilterType", [](S& s) { s.SetFilterType(7); },
                   [](const S& s) { return s.GetFilterType() == 7; }, 1},
        SetterCase{"FilterInc", [](S& s) { s.SetFilterInc(7); },
                   [](const S& s) { return s.GetFilterInc() == 7; }, 1},
        SetterCase{"FilterWidth", [](S& s) { s.SetFilterWidth(7); },
                   [](const S& s) { return s.GetFilterWidth() == 7; }, 1},
        SetterCase{"MinPeakArea", [](S& s) { s.SetMinPeakArea(7.5); },
                   [](const S& s) { return s.GetMinPeakArea() == 7.5; }, 1},
        SetterCase{"PctPeakArea", [](S& s) { s.SetPctPeakArea(7.5); },
                   [](const S& s) { return s.GetPctPeakArea() == 7.5; }, 1},
        SetterCase{"NoiseThreshold", [](S& s) { s.SetNoiseThreshold(7.5); },
                   [](const S& s) { return s.GetNoiseThreshold() == 7.5; }, 1},
        SetterCase{"IntegratedMethod", [](S& s) { s.SetIntegratedMethod(7); },
                   [](const S& s) { return s.GetIntegratedMethod() == 7; }, 1},
        SetterCase{"RangeX1", [](S& s) { s.SetRangeX1(7.5); },
                   [](const S& s) { return s.GetRangeX1() == 7.5; }, 1},
        SetterCase{"RangeX2", [](S& s) { s.SetRangeX2(7.5); },
                   [](const S& s) { return s.GetRangeX2() == 7.5; }, 1},
        SetterCase{"DetectionRange", [](S& s) { s.SetDetectionRange(7.5, 8.5); },
                   [](const S& s) {
                     double x1 = 0.0;
                     double x2 = 0.0;
                     s.GetDetectionRange(x1, x2);
                     return x1 == 7.5 && x2 == 8.5;
                   },
                   2}),
    [](const ::testing::TestParamInfo<SetterCase>& info) { return info.param.name; });

}  // namespace
}  // namespace qxpkutil
