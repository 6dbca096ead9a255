#include "qxpkutil/numeric/QXMatrixAlloc.h"

#include <new>

namespace qxpkutil {

namespace {

template <class T>
void FreeMatrix(T** m, std::int32_t rows) {
  if (m == nullptr) return;
  for (std::int32_t i = 0; i < rows; ++i) delete[] m[i];
  delete[] m;
}

template <class T>
T** MakeMatrix(std::int32_t rows, std::int32_t cols) {
  if (cols < 0) return nullptr;
  const std::int32_t count = rows > 0 ? rows : 0;
  T** m = new (std::nothrow) T*[count];
  if (m == nullptr) return nullptr;
  for (std::int32_t i = 0; i < count; ++i) {
    m[i] = new (std::nothrow) T[cols];
    if (m[i] == nullptr) {
      // The routine this replaces leaked the finished rows here; release them instead.
      FreeMatrix(m, i);
      return nullptr;
    }
  }
  return m;
}

}  // namespace

double** QXMatrixAlloc::DMatrix(std::int32_t rows, std::int32_t cols) {
  return MakeMatrix<double>(rows, cols);
}
int** QXMatrixAlloc::IMatrix(std::int32_t rows, std::int32_t cols) {
  return MakeMatrix<int>(rows, cols);
}

void QXMatrixAlloc::FreeDMatrix(double** m, std::int32_t rows) { FreeMatrix(m, rows); }
void QXMatrixAlloc::FreeDMatrix(int** m, std::int32_t rows) { FreeMatrix(m, rows); }

}  // namespace qxpkutil
