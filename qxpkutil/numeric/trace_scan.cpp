#include "qxpkutil/numeric/trace_scan.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>

namespace qxpkutil {

namespace {

bool Finite(double v) { return std::abs(v) <= DBL_MAX; }  // false for NaN too

// Two doubles at a time through the compiler's vector types: plain loops over comparisons
// are not vectorised, since a compare may trap and the compiler keeps the order of traps.
using Pair = double __attribute__((vector_size(16)));

Pair Load(const double* p) {
  Pair v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

}  // namespace

TraceScan ScanTrace(const double* x, const double* y, std::size_t n) {
  TraceScan scan{n, n};
  if (n == 0) return scan;
  if (!Finite(x[0]) || !Finite(y[0])) scan.first_not_finite = 0;
  constexpr std::size_t kBlock = 256;
  for (std::size_t start = 1; start < n; start += kBlock) {
    const std::size_t end = std::min(n, start + kBlock);
    // v - v is NaN exactly when v is not finite, and NaN stays in a sum; between finite
    // values x[i] - x[i - 1] is negative exactly when x falls (it never rounds to zero).
    Pair nanSum = {0.0, 0.0}, lowestStep = {0.0, 0.0};
    std::size_t i = start;
    for (; i + 2 <= end; i += 2) {
      const Pair xs = Load(x + i), ys = Load(y + i);
      nanSum += (xs - xs) + (ys - ys);
      const Pair step = xs - Load(x + i - 1);
      lowestStep = step < lowestStep ? step : lowestStep;
    }
    bool anyNotFinite = nanSum[0] + nanSum[1] != 0.0;
    bool anyFall = lowestStep[0] < 0.0 || lowestStep[1] < 0.0;
    for (; i < end; ++i) {
      anyNotFinite |= !Finite(x[i]) || !Finite(y[i]);
      anyFall |= x[i] < x[i - 1];
    }
    if (anyNotFinite && scan.first_not_finite == n) {
      std::size_t k = start;
      while (Finite(x[k]) && Finite(y[k])) ++k;
      scan.first_not_finite = k;
    }
    if (anyFall && scan.first_fall == n) {
      std::size_t k = start;
      while (!(x[k] < x[k - 1])) ++k;
      scan.first_fall = k;
    }
    if (scan.first_not_finite < n && scan.first_fall < n) break;
  }
  return scan;
}

}  // namespace qxpkutil
