// Plain statistics over a run of values, the fuzzy equality test and the re-allocatable
// array.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <cmath>
#include <limits>
#include <new>

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

}  // namespace qxpkutil
