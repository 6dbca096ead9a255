#include "qxpkutil/peaks/QXPeakTableElement.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "qxpkutil/platform/QXArchive.h"

namespace qxpkutil {
namespace {

QXPeakTableElement MakeFullRecord() {
  return QXPeakTableElement(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20);
}

TEST(QXPeakTableElement, ConstructorStoresEveryArgumentAndMarksNormal) {
  const QXPeakTableElement p = MakeFullRecord();
  EXPECT_EQ(p.m_dApexX, 1);
  EXPECT_EQ(p.m_dApexY, 2);
  EXPECT_EQ(p.m_nApexIndex, 3u);
  EXPECT_EQ(p.m_dLeftX, 4);
  EXPECT_EQ(p.m_dLeftY, 5);
  EXPECT_EQ(p.m_nLeftIndex, 6u);
  EXPECT_EQ(p.m_dRightX, 7);
  EXPECT_EQ(p.m_dRightY, 8);
  EXPECT_EQ(p.m_nRightIndex, 9u);
  EXPECT_EQ(p.m_dCentroidX, 10);
  EXPECT_EQ(p.m_dArea, 11);
  EXPECT_EQ(p.m_dCentroidLeftX, 12);
  EXPECT_EQ(p.m_dCentroidLeftY, 13);
  EXPECT_EQ(p.m_dCentroidRightX, 14);
  EXPECT_EQ(p.m_dCentroidRightY, 15);
  EXPECT_EQ(p.m_nCharge, 16);
  EXPECT_EQ(p.m_dExtra1, 17);
  EXPECT_EQ(p.m_dExtra4, 20);
  EXPECT_EQ(p.m_dwFlags, kQXPeakNormal);
  EXPECT_TRUE(p.m_strLabel.empty());
  EXPECT_EQ(p.GetXVal(0), 1);
  EXPECT_EQ(p.GetXVal(5), 10);
  EXPECT_TRUE(p.IsKindOf(&QXObject::classQXObject));
  EXPECT_STREQ(p.GetRuntimeClass()->m_lpszClassName, "QXPeakTableElement");
}

TEST(QXPeakTableElement, SetElementKeepsLabelAndMarks) {
  QXPeakTableElement p;
  p.m_strLabel = "b7";
  p.m_dwFlags |= kQXPeakLabelled;
  p.SetElement(9, 8, 7);
  EXPECT_EQ(p.m_dApexX, 9);
  EXPECT_EQ(p.m_nApexIndex, 7u);
  EXPECT_EQ(p.m_strLabel, "b7");
  EXPECT_EQ(p.m_dwFlags, kQXPeakNormal | kQXPeakLabelled);
}

TEST(QXPeakTableElement, EqualityAssignsTheFourthSpareValueInsteadOfComparingIt) {
  QXPeakTableElement a = MakeFullRecord();
  QXPeakTableElement b = a;
  b.m_dExtra4 = 0.0;
  a.m_dExtra4 = 5.0;
  EXPECT_EQ(a == b, 0);  // equal in every field, yet unequal: the spare value is zero
  EXPECT_EQ(a.m_dExtra4, 0.0);
  b.m_dExtra4 = 3.0;
  EXPECT_EQ(a == b, 1);
  EXPECT_EQ(a.m_dExtra4, 3.0);
  b.m_strLabel = "x";
  EXPECT_EQ(a == b, 0);
  b = a;
  b.m_dExtra3 = -1;
  EXPECT_EQ(a == b, 0);
}

struct FilterCase {
  const char* name;
  unsigned long flags;
  bool withFilter;
  bool expected;
};

class PeakFilter : public ::testing::TestWithParam<FilterCase> {};

TEST_P(PeakFilter, DecidesAsTheBitsSay) {
  // A peak of intensity 100, area 50, charge 2, marked lowest-of-series.
  QXPeakTableElement p(10, 100);
  p.m_dArea = 50;
  p.m_nCharge = 2;
  p.m_dwFlags |= kQXPeakSeriesLow;
  tagQXPeakFilterStruct filter{};
  filter.dMinIntensity = 100;  // equal intensity passes
  filter.nCharge = 2;
  filter.dMinArea = 50.5;
  const FilterCase& c = GetParam();
  EXPECT_EQ(p.DoesPeakMatchCriteria(c.flags, c.withFilter ? &filter : nullptr) == 1, c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Bits, PeakFilter,
    ::testing::Values(FilterCase{"NoBits", 0, false, true},
                      FilterCase{"AllOverridesNullFilter", 0x01 | 0x40, false, true},
                      FilterCase{"SeriesLowMarkPresent", 0x02, false, true},
                      FilterCase{"MostIntenseMarkMissing", 0x04, false, false},
                      FilterCase{"LabelMarkMissing", 0x08, false, false},
                      FilterCase{"ThresholdWithNullFilter", 0x10, false, false},
                      FilterCase{"IntensityEqualPasses", 0x40, true, true},
                      FilterCase{"ChargeMatches", 0x10, true, true},
                      FilterCase{"AreaBelowMinimum", 0x20, true, false},
                      FilterCase{"IntensityAndChargePass", 0x50, true, true}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(QXPeakTableElement, ArchiveBodyIsTwelveDoublesInFieldOrder) {
  QXPeakTableElement p = MakeFullRecord();
  std::ostringstream out;
  {
    QXArchive ar(out);
    p.Serialize(ar);
  }
  const std::string bytes = out.str();
  ASSERT_EQ(bytes.size(), 96u);
  const double expected[12] = {1, 2, 10, 11, 12, 13, 14, 15, 4, 5, 7, 8};
  for (int i = 0; i < 12; ++i) {
    double v;
    std::memcpy(&v, bytes.data() + 8 * i, 8);  // the test machine is little-endian
    EXPECT_EQ(v, expected[i]) << "double " << i;
  }

  QXPeakTableElement loaded;
  std::istringstream in(bytes);
  QXArchive load(in);
  loaded.Serialize(load);
  EXPECT_FALSE(load.Failed());
  EXPECT_EQ(loaded.m_dCentroidRightY, 15);
  EXPECT_EQ(loaded.m_dRightY, 8);
  EXPECT_EQ(loaded.m_nApexIndex, 0u);  // indices, charge, flags and label are not archived
  EXPECT_EQ(loaded.m_nCharge, 0);
  EXPECT_EQ(loaded.m_dwFlags, kQXPeakNormal);
  EXPECT_EQ(loaded.m_dExtra4, 0.0);
}

}  // namespace
}  // namespace qxpkutil
