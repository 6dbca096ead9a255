// One pass over a trace that finds the two things every reader and search must refuse or
// repair first: a value that is not finite and an x that falls.
#pragma once

#include <cstddef>

namespace qxpkutil {

struct TraceScan {
  std::size_t first_not_finite;  // the first point whose x or y is NaN or infinite; n if none
  std::size_t first_fall;        // the first i with x[i] < x[i - 1]; n if none
};

// Blocks of points are tested without a branch per point; only a block with a flaw is
// walked point by point, so a clean trace costs about what reading it costs.
TraceScan ScanTrace(const double* x, const double* y, std::size_t n);

}  // namespace qxpkutil
