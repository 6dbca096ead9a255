#include "qxpkutil/settings/QXPeakDetectSetting.h"

#include <gtest/gtest.h>

#include <tuple>

#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

using testing::SettingFields;

TEST(QXPeakDetectSetting, DefaultsAreTheDocumentedValues) {
  const QXPeakDetectSetting s;
  EXPECT_EQ(SettingFields(s), std::make_tuple(0.0, 0.0, 1.0, 0.0, 0, 3, 1, 0.0, 1.0, 3, 10000, 1,
                                              0.0, 1, 50.0, kQXUnsetValue, 6, 40, 0.05, 0.99));
  EXPECT_STREQ(s.GetRuntimeClass()->m_lpszClassName, "QXPeakDetectSetting");
  EXPECT_TRUE(s.IsKindOf(&QXObject::classQXObject));
}

TEST(QXPeakDetectSetting, ValueConstructorTakesRangeFirstAndWidthBeforeIncrement) {
  // Distinct values expose any argument that lands in the wrong field.
  const QXPeakDetectSetting s(1.5, 2.5, 3.5, 4.5, 5, 6, 7, 8.5, 9.5, 10, 11, 12, 13.5, 14, 15.5, 16,
                              17, 18.5, 19.5);
  EXPECT_EQ(SettingFields(s), std::make_tuple(1.5, 2.5, 3.5, 4.5, 5, 6, 7, 8.5, 9.5, 10, 11, 12,
                                              13.5, 14, 15.5, kQXUnsetValue, 16, 17, 18.5, 19.5));
  EXPECT_EQ(SettingFields(QXPeakDetectSetting(s)), SettingFields(s));
}

TEST(QXPeakDetectSetting, EachSetterStoresItsOwnField) {
  QXPeakDetectSetting s;
  s.SetRelThreshold(1.5);
  s.SetAbsThreshold(2.5);
  s.SetPctCentroid(3.5);
  s.SetFilterType(4);
  s.SetFilterInc(5);
  s.SetFilterWidth(6);
  s.SetMinPeakArea(7.5);
  s.SetPctPeakArea(8.5);
  s.SetNoiseThreshold(9.5);
  s.SetIntegratedMethod(10);
  s.SetRangeX1(11.5);
  s.SetRangeX2(12.5);
  EXPECT_EQ(SettingFields(s), std::make_tuple(11.5, 12.5, 1.5, 2.5, 4, 6, 5, 7.5, 8.5, 3, 10000, 1,
                                              9.5, 10, 3.5, kQXUnsetValue, 6, 40, 0.05, 0.99));
  s.SetDetectionRange(13.5, 14.5);
  double x1 = 0.0;
  double x2 = 0.0;
  s.GetDetectionRange(x1, x2);
  EXPECT_EQ(std::make_tuple(x1, x2, s.GetRangeX1(), s.GetRangeX2()),
            std::make_tuple(13.5, 14.5, 13.5, 14.5));
}

}  // namespace
}  // namespace qxpkutil
