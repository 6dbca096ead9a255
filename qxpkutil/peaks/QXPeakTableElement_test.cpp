#include "qxpkutil/peaks/QXPeakTableElement.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "testing/QXTestArchive.h"
#include "testing/QXTestPeaks.h"

namespace qxpkutil {
namespace {

using testing::RecordValues;

// Every value distinct: 1 to 20 in argument order.
QXPeakTableElement MakeFullRecord() {
  return QXPeakTableElement(1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20);
}

TEST(QXPeakTableElement, ConstructorAndSetElementStoreEveryArgument) {
  QXPeakTableElement p = MakeFullRecord();
  std::vector<double> oneToTwenty(20);
  std::iota(oneToTwenty.begin(), oneToTwenty.end(), 1.0);
  EXPECT_EQ(RecordValues(p), oneToTwenty);
  EXPECT_EQ(p.m_dwFlags, kQXPeakNormal);
  EXPECT_TRUE(p.m_strLabel.empty());
  EXPECT_EQ(p.GetXVal(0), 1);
  EXPECT_EQ(p.GetXVal(5), 10);
  EXPECT_TRUE(p.IsKindOf(&QXObject::classQXObject));
  EXPECT_STREQ(p.GetRuntimeClass()->m_lpszClassName, "QXPeakTableElement");

  // SetElement overwrites all twenty values, defaults included; label and marks stay.
  p.m_strLabel = "b7";
  p.m_dwFlags |= kQXPeakLabelled;
  p.SetElement(9, 8, 7);
  EXPECT_EQ(RecordValues(p),
            (std::vector<double>{9, 8, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
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

TEST(QXPeakTableElement, FilterDecidesAsTheBitsSay) {
  // A peak of intensity 100, area 50, charge 2, marked lowest-of-series; the filter's
  // intensity equals the peak's (which passes), its minimum area lies just above.
  QXPeakTableElement p(10, 100);
  p.m_dArea = 50;
  p.m_nCharge = 2;
  p.m_dwFlags |= kQXPeakSeriesLow;
  const tagQXPeakFilterStruct filter{100, 2, 50.5};
  const struct {
    std::uint32_t flags;
    bool withFilter, passes;
  } cases[] = {
      {0, false, true},     {0x01 | 0x40, false, true},  // 0x01 passes even a null filter
      {0x02, false, true},  {0x04, false, false}, {0x08, false, false},  // marks
      {0x10, false, false},                              // a threshold without a filter
      {0x40, true, true},   {0x10, true, true},   {0x20, true, false},  {0x50, true, true}};
  for (const auto& c : cases) {
    EXPECT_EQ(p.DoesPeakMatchCriteria(c.flags, c.withFilter ? &filter : nullptr), c.passes ? 1 : 0)
        << std::hex << c.flags << (c.withFilter ? " with filter" : "");
  }
}

TEST(QXPeakTableElement, ArchiveBodyIsTwelveDoublesInFieldOrder) {
  QXPeakTableElement p = MakeFullRecord();
  const std::string bytes = testing::Stored(p);
  ASSERT_EQ(bytes.size(), 96u);
  std::vector<double> body(12);
  std::memcpy(body.data(), bytes.data(), 96);  // this machine is little-endian
  EXPECT_EQ(body, (std::vector<double>{1, 2, 10, 11, 12, 13, 14, 15, 4, 5, 7, 8}));

  // Indices, charge, spare values, flags and label are not archived.
  QXPeakTableElement loaded;
  EXPECT_TRUE(testing::Loaded(loaded, bytes));
  const std::vector<double> kept{1, 2, 0, 4, 5, 0, 7, 8, 0, 10, 11, 12, 13, 14, 15, 0, 0, 0, 0, 0};
  EXPECT_EQ(RecordValues(loaded), kept);
  EXPECT_EQ(loaded.m_dwFlags, kQXPeakNormal);
}

}  // namespace
}  // namespace qxpkutil
