#include "qxpkutil/numeric/QXMatrixAlloc.h"

#include <gtest/gtest.h>

namespace qxpkutil {
namespace {

// Every element is written, so the sanitizer build catches a short row, and a missed
// release shows up as a leak.
TEST(QXMatrixAlloc, RowsAreUsableAndReleasedByFreeDMatrix) {
  double** d = QXMatrixAlloc::DMatrix(3, 4);
  int** m = QXMatrixAlloc::IMatrix(2, 5);
  ASSERT_NE(d, nullptr);
  ASSERT_NE(m, nullptr);
  for (int k = 0; k < 12; ++k) d[k / 4][k % 4] = m[k % 2][k % 5] = k;
  EXPECT_EQ(d[2][3], 11.0);
  QXMatrixAlloc::FreeDMatrix(d, 3);
  QXMatrixAlloc::FreeDMatrix(m, 2);
  double** none = QXMatrixAlloc::DMatrix(0, 4);  // an empty pointer array, still to be freed
  EXPECT_NE(none, nullptr);
  QXMatrixAlloc::FreeDMatrix(none, 0);
  EXPECT_EQ(QXMatrixAlloc::DMatrix(3, -1), nullptr);
}

}  // namespace
}  // namespace qxpkutil
