#include "qxpkutil/numeric/QXXYData.h"

#include <gtest/gtest.h>

#include <tuple>

namespace qxpkutil {
namespace {

TEST(QXXYData, ShrinkingKeepsArraysAndEmptinessFollowsAllocationNotSize) {
  QXXYData data;
  double *x = nullptr, *y = nullptr, *x2 = nullptr, *y2 = nullptr;
  EXPECT_FALSE(data.AllocateData(0));  // nothing held, nothing asked
  ASSERT_TRUE(data.AllocateData(10));
  data.GetXYRefs(x, y);
  x[3] = y[9] = 1.5;
  ASSERT_TRUE(data.SetDataSize(4));
  data.GetXYRefs(x2, y2);
  EXPECT_EQ(std::make_tuple(x2, data.GetDataSize(), x[3]), std::make_tuple(x, 4, 1.5));

  ASSERT_TRUE(data.SetDataSize(0));  // zeroes every allocated element, keeps the arrays
  EXPECT_FALSE(data.IsEmpty());
  EXPECT_EQ(x[3] + y[9], 0.0);
  EXPECT_FALSE(data.SetDataSize(-1));
  EXPECT_EQ(data.GetDataSize(), 0);

  ASSERT_TRUE(data.SetDataSize(20));  // beyond the allocation: grows
  data.GetXYRefs(x, y);
  x[19] = y[19] = 1.0;
  data.Empty();
  data.GetXYRefs(x, y);
  EXPECT_EQ(std::make_tuple(data.IsEmpty(), x, data.GetDataSize()),
            std::make_tuple(true, nullptr, 0));
}

}  // namespace
}  // namespace qxpkutil
