// A matrix for tests of routines that take rows as double**: a row-major block with its
// row pointers. Copies hold their own values.
//
//   qxpkutil::testing::Matrix a(3, 4);
//   a[1][2] = 5.0;  Routine(a.get(), 3, 4);
#pragma once

#include <cstddef>
#include <vector>

namespace qxpkutil::testing {

struct Matrix {
  Matrix(int r, int c) : rows(r), cols(c), data(static_cast<std::size_t>(r * c)) {}
  double* operator[](int i) { return data.data() + i * cols; }
  // Row pointers into this matrix's own block, valid until the next copy or move.
  double** get() {
    ptr.resize(static_cast<std::size_t>(rows));
    for (int i = 0; i < rows; ++i) ptr[i] = (*this)[i];
    return ptr.data();
  }
  int rows, cols;
  std::vector<double> data;
  std::vector<double*> ptr;
};

}  // namespace qxpkutil::testing
