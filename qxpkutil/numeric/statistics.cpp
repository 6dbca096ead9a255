// Plain statistics over a run of values, the fuzzy equality test and the re-allocatable
// array.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <numbers>
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

// LogsOfPositive over vectors of four doubles V (bits U): v = m 2^e with m in [sqrt(1/2),
// sqrt(2)), ln m = 2 atanh(z) for z = (m - 1) / (m + 1), |z| < 0.172, by its series up to
// z^21 (the next term is below 1e-18 of the sum), and e ln 2 in two parts, the first with
// enough trailing zeros that e times it is exact.
template <class V, class U>
[[gnu::always_inline]] inline void LogsByLanes(const double* v, std::size_t n, double* out) {
  constexpr std::size_t kLanes = sizeof(V) / sizeof(double);
  constexpr double kTwoTo52 = 4503599627370496.0;
  constexpr double kLn2High = 6.93147180369123816490e-01;
  constexpr double kLn2Low = 1.90821492927058770002e-10;
  const auto logs = [](V& x) {  // in place: a vector return would change the ABI
    U bits;
    std::memcpy(&bits, &x, sizeof bits);
    // The mantissa with the exponent of 1, and the biased exponent in the low bits of 2^52.
    const U mantissaBits = (bits & 0x000FFFFFFFFFFFFFu) | 0x3FF0000000000000u;
    const U exponentBits = (bits >> 52) | 0x4330000000000000u;
    V m, e;
    std::memcpy(&m, &mantissaBits, sizeof m);
    std::memcpy(&e, &exponentBits, sizeof e);
    e -= kTwoTo52 + 1023.0;
    const auto above = m > std::numbers::sqrt2;
    m = above ? m * 0.5 : m;
    e = above ? e + 1.0 : e;
    const V z = (m - 1.0) / (m + 1.0);
    const V w = z * z;
    V series = V{} + 1.0 / 21.0;
    for (const double c : {1.0 / 19.0, 1.0 / 17.0, 1.0 / 15.0, 1.0 / 13.0, 1.0 / 11.0, 1.0 / 9.0,
                           1.0 / 7.0, 1.0 / 5.0, 1.0 / 3.0, 1.0}) {
      series = series * w + c;
    }
    x = e * kLn2High + ((z + z) * series + e * kLn2Low);
  };
  std::size_t i = 0;
  for (; i + kLanes <= n; i += kLanes) {
    V x;
    std::memcpy(&x, v + i, sizeof x);
    logs(x);
    std::memcpy(out + i, &x, sizeof x);
  }
  if (i < n) {  // the last few through the same lanes, padded with ones
    V x = V{} + 1.0;
    std::memcpy(&x, v + i, (n - i) * sizeof(double));
    logs(x);
    std::memcpy(out + i, &x, (n - i) * sizeof(double));
  }
}

using Quad = double __attribute__((vector_size(32)));
using QuadBits = std::uint64_t __attribute__((vector_size(32)));

#if defined(__x86_64__) && defined(__GNUC__)
// LogsByLanes in 256-bit registers (AVX has no fused multiply-add to change the bits).
[[gnu::target("avx")]] void LogsOfPositiveAvx(const double* v, std::size_t n, double* out) {
  LogsByLanes<Quad, QuadBits>(v, n, out);
}

// RangeByLanes four lanes to a vector.
[[gnu::target("avx")]] std::optional<ValueRange> RangeIfFiniteAvx(const double* v,
                                                                  std::size_t n) {
  return RangeByLanes<Quad>(v, n);
}
#endif

}  // namespace

void LogsOfPositive(const double* v, std::size_t n, double* out) {
#if defined(__x86_64__) && defined(__GNUC__)
  static const bool hasAvx = __builtin_cpu_supports("avx") != 0;
  if (hasAvx) return LogsOfPositiveAvx(v, n, out);
#endif
  LogsByLanes<Quad, QuadBits>(v, n, out);
}

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
