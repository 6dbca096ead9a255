// Row-pointer matrices for the fitting code: an array of row pointers, each row its own
// block, indexed m[row][col] from 0. The caller owns the result and releases it with
// FreeDMatrix, integer matrices included. Standard library only.
//
//   double** m = QXMatrixAlloc::DMatrix(3, 4);
//   if (m != nullptr) { m[2][3] = 1.0; QXMatrixAlloc::FreeDMatrix(m, 3); }
#pragma once

#include <cstdint>

namespace qxpkutil {

class QXMatrixAlloc {
 public:
  QXMatrixAlloc() = default;
  virtual ~QXMatrixAlloc() = default;

  // A rows x cols matrix of uninitialised doubles, or null when memory runs out or
  // cols < 0. rows < 1 gives an empty pointer array (still to be freed). A failure part-way
  // releases the rows already made.
  [[nodiscard]] static double** DMatrix(std::int32_t rows, std::int32_t cols);
  // The same for ints.
  [[nodiscard]] static int** IMatrix(std::int32_t rows, std::int32_t cols);
  // Releases rows m[0..rows-1] (none for rows < 1) and then the pointer array. `rows` must be
  // the count the matrix was made with. A null `m` is ignored.
  static void FreeDMatrix(double** m, std::int32_t rows);
  static void FreeDMatrix(int** m, std::int32_t rows);
};

}  // namespace qxpkutil
