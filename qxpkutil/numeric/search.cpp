// Index search in sorted x arrays, ascending or descending: nearest element by bisection,
// and the bracketing search that hunts outward from a remembered start.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

namespace {

// Narrows lo < hi (lo may be -1, hi may be n) until they are adjacent; lo moves whenever
// "x[mid] <= value" agrees with the array's direction. Indices are 64-bit so that no sum
// can overflow.
template <class X>
std::int64_t Bisect(const X* x, std::int64_t lo, std::int64_t hi, double value, bool ascending) {
  while (hi - lo > 1) {
    const std::int64_t mid = (lo + hi) >> 1;
    if ((static_cast<double>(x[mid]) <= value) == ascending) {
      lo = mid;
    } else {
      hi = mid;
    }
  }
  return lo;
}

template <class X>
bool IsAscending(const X* x, std::uint32_t n) {
  // Equal ends count as descending, a one-point array included.
  return x[0] < x[n - 1];
}

template <class X>
std::int32_t NearestIndexOf(const X* x, std::uint32_t n, double value) {
  if (x == nullptr || n > kQXMaxPoints || std::isnan(value)) return -1;
  if (n <= 1) return 0;
  const std::int64_t last = n;
  const std::int64_t lo = std::clamp<std::int64_t>(
      Bisect(x, -1, last, value, IsAscending(x, n)), 0, last - 2);
  // An exact midpoint goes to the lower index.
  const bool lowerIsNearer = std::fabs(value - static_cast<double>(x[lo])) <=
                             std::fabs(value - static_cast<double>(x[lo + 1]));
  return static_cast<std::int32_t>(lowerIsNearer ? lo : lo + 1);
}

template <class X>
std::int32_t HuntIndexOf(const X* x, std::uint32_t n, std::uint32_t start, double value) {
  if (x == nullptr || n == 0 || n > kQXMaxPoints) return -1;
  const bool ascending = IsAscending(x, n);
  const std::int64_t count = n;
  const auto before = [&](std::int64_t i) {  // x[i] lies at or before value in array order
    return (static_cast<double>(x[i]) <= value) == ascending;
  };
  std::int64_t lo = -1;
  std::int64_t hi = count;
  if (start < n && before(start)) {
    if (start >= count - 1) return static_cast<std::int32_t>(count - 1);
    std::int64_t step = 1;
    lo = start;
    hi = lo + 1;
    while (before(hi)) {
      lo = hi;
      step *= 2;
      hi = lo + step;
      if (hi >= count) {
        hi = count;
        break;
      }
    }
  } else if (start < n) {
    if (start == 0) return -1;
    std::int64_t step = 1;
    hi = start;
    lo = hi - 1;
    while ((value < static_cast<double>(x[lo])) == ascending) {
      hi = lo;
      lo -= 2 * step;
      step *= 2;
      if (lo < 0) {
        lo = -1;
        break;
      }
    }
  }
  return static_cast<std::int32_t>(Bisect(x, lo, hi, value, ascending));
}

}  // namespace

std::int32_t QXDataExpUtils::FindNearestIndex(const double* x, std::uint32_t n, double value) {
  return NearestIndexOf(x, n, value);
}
std::int32_t QXDataExpUtils::FindNearestIndex(const float* x, std::uint32_t n, double value) {
  return NearestIndexOf(x, n, value);
}

std::int32_t QXDataExpUtils::HuntIndex(const double* x, std::uint32_t n, std::uint32_t start,
                                       double value) {
  return HuntIndexOf(x, n, start, value);
}
std::int32_t QXDataExpUtils::HuntIndex(const float* x, std::uint32_t n, std::uint32_t start,
                                       double value) {
  return HuntIndexOf(x, n, start, value);
}

}  // namespace qxpkutil
