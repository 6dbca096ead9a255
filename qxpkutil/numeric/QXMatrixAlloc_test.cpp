#include "qxpkutil/numeric/QXMatrixAlloc.h"

#include <gtest/gtest.h>

#include "qxpkutil/numeric/QXDataExpUtils.h"

namespace qxpkutil {
namespace {

// Every element is written, so the sanitizer build catches a short row; a missed release
// shows up as a leak.
TEST(QXMatrixAlloc, RowsAreUsableAndReleasedByFreeDMatrix) {
  double** d = QXMatrixAlloc::DMatrix(3, 4);
  int** m = QXMatrixAlloc::IMatrix(2, 5);
  ASSERT_NE(d, nullptr);
  ASSERT_NE(m, nullptr);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 4; ++j) d[i][j] = i * 4 + j;
  }
  for (int i = 0; i < 2; ++i) {
    for (int j = 0; j < 5; ++j) m[i][j] = i * 5 + j;
  }
  EXPECT_EQ(d[2][3], 11.0);
  EXPECT_EQ(m[1][4], 9);
  QXMatrixAlloc::FreeDMatrix(d, 3);
  QXMatrixAlloc::FreeDMatrix(m, 2);
}

TEST(QXMatrixAlloc, DegenerateShapes) {
  double** none = QXMatrixAlloc::DMatrix(0, 4);
  EXPECT_NE(none, nullptr);  // an empty pointer array, still to be freed
  QXMatrixAlloc::FreeDMatrix(none, 0);
  EXPECT_EQ(QXMatrixAlloc::DMatrix(3, -1), nullptr);
  QXMatrixAlloc::FreeDMatrix(static_cast<double**>(nullptr), 3);
}

TEST(ReAllocArray, NonPositiveCountLeavesNull) {
  double* p = nullptr;
  ASSERT_TRUE(QXDataExpUtils::ReAllocArray(p, 5));
  p[4] = 1.0;
  ASSERT_TRUE(QXDataExpUtils::ReAllocArray(p, 8));
  p[7] = 1.0;
  EXPECT_FALSE(QXDataExpUtils::ReAllocArray(p, 0));
  EXPECT_EQ(p, nullptr);
}

}  // namespace
}  // namespace qxpkutil
