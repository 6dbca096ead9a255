// Plain statistics over a run of values, the fuzzy equality test and the re-allocatable
// array.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>
#include <optional>

#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {

namespace {

using numeric_detail::Wide;

template <class T>
double MeanOf(const T* v, int n) {
  if (v == nullptr) return std::numeric_limits<double>::quiet_NaN();
  Wide sum = 0;
  for (int i = 0; i < n; ++i) sum += static_cast<double>(v[i]);
  // No guard on n, as in the routine this replaces: 0 points give 0/0, negative counts 0/n.
  return static_cast<double>(sum / n);
}

}  // namespace

double QXDataExpUtils::Mean(const double* v, int n) { return MeanOf(v, n); }
double QXDataExpUtils::Mean(const std::uint32_t* v, int n) { return MeanOf(v, n); }

int QXDataExpUtils::StandardDev(const double* v, std::uint32_t n, double& mean, double& variance,
                                double& stdDev) {
  if (v == nullptr || n < 2) return 0;
  Wide sum = 0;
  for (std::uint32_t i = 0; i < n; ++i) sum += v[i];
  const double m = static_cast<double>(sum / n);
  Wide squares = 0;
  for (std::uint32_t i = 0; i < n; ++i) squares += (v[i] - m) * static_cast<Wide>(v[i] - m);
  mean = m;
  variance = static_cast<double>(squares / (n - 1));
  stdDev = std::sqrt(variance);
  return 1;
}

int QXDataExpUtils::RMSNoise(const double* v, std::uint32_t n, double& mean, double& rms) {
  if (v == nullptr || n < 2) return 0;
  Wide sum = 0;
  Wide squares = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    sum += v[i];
    squares += static_cast<Wide>(v[i]) * v[i];
  }
  const Wide m = sum / n;
  // One-pass form: rounding can take a zero variance just below zero.
  const Wide variance = squares / n - m * m;
  mean = static_cast<double>(m);
  rms = static_cast<double>(variance < 0 ? 0 : std::sqrt(variance));
  return 1;
}

int QXDataExpUtils::dCompare(double a, double b, std::int32_t precision) {
  return std::fabs(a - b) < 1.0 / std::pow(10.0, precision) ? 1 : 0;
}

bool QXDataExpUtils::ReAllocArray(double*& p, std::int32_t n) {
  delete[] p;
  p = n > 0 ? new (std::nothrow) double[n] : nullptr;
  return p != nullptr;
}

namespace numeric_detail {
namespace {

// RangeIfFinite in one pass that keeps running minima and maxima in two vectors of V (the
// compiler leaves the same loop on plain arrays scalar).
template <class V>
[[gnu::always_inline]] inline std::optional<ValueRange> RangeByLanes(const double* v,
                                                                    std::size_t n) {
  constexpr std::size_t kLanes = sizeof(V) / sizeof(double);
  V lo[2];
  V hi[2];
  V check[2] = {};  // as in AllFinite
  for (int k = 0; k < 2; ++k) lo[k] = hi[k] = V{} + v[0];
  std::size_t i = 0;
  for (; i + 2 * kLanes <= n; i += 2 * kLanes) {
    for (std::size_t k = 0; k < 2; ++k) {
      V x;
      std::memcpy(&x, v + i + kLanes * k, sizeof x);
      lo[k] = x < lo[k] ? x : lo[k];
      hi[k] = x > hi[k] ? x : hi[k];
      check[k] += x - x;
    }
  }
  double lowest = v[0];
  double highest = v[0];
  double bad = 0.0;
  for (int k = 0; k < 2; ++k) {
    for (std::size_t l = 0; l < kLanes; ++l) {
      lowest = std::min(lowest, lo[k][l]);
      highest = std::max(highest, hi[k][l]);
      bad += check[k][l];
    }
  }
  for (; i < n; ++i) {
    lowest = std::min(lowest, v[i]);
    highest = std::max(highest, v[i]);
    bad += v[i] - v[i];
  }
  if (!(bad == 0.0)) return std::nullopt;
  return ValueRange{lowest, highest};
}

#if defined(__x86_64__) && defined(__GNUC__)
// RangeByLanes four lanes to a vector.
[[gnu::target("avx")]] std::optional<ValueRange> RangeIfFiniteAvx(const double* v,
                                                                  std::size_t n) {
  using Quad = double __attribute__((vector_size(32)));
  return RangeByLanes<Quad>(v, n);
}
#endif

}  // namespace

std::optional<ValueRange> RangeIfFinite(const double* v, std::size_t n) {
#if defined(__x86_64__) && defined(__GNUC__)
  static const bool hasAvx = __builtin_cpu_supports("avx") != 0;
  if (hasAvx) return RangeIfFiniteAvx(v, n);
#endif
  using Pair = double __attribute__((vector_size(16)));
  return RangeByLanes<Pair>(v, n);
}

}  // namespace numeric_detail

}  // namespace qxpkutil
