// Straight-line and quadratic least-squares fits, and the line through two points.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <cmath>

#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {

namespace {

using numeric_detail::Wide;

// Point counts are 16-bit in these fits; longer arrays never had a result, and returning
// none keeps callers from trusting one.
constexpr std::uint32_t kMaxFitPoints = 65535;

// Determinant of the 3x3 matrix given row by row, expanded along its first row.
Wide Det3(Wide a, Wide b, Wide c, Wide d, Wide e, Wide f, Wide g, Wide h, Wide i) {
  return a * (e * i - f * h) - b * (d * i - f * g) + c * (d * h - e * g);
}

void Store(double* out, Wide value) {
  if (out != nullptr) *out = static_cast<double>(value);
}

}  // namespace

int QXDataExpUtils::FitLine(double x1, double y1, double x2, double y2, double& slope,
                            double& intercept) {
  const double dx = x1 - x2;
  if (dx == 0 || !std::isfinite(dx)) return 0;
  slope = (y1 - y2) / dx;
  intercept = y1 - slope * x1;
  return 1;
}

void QXDataExpUtils::LinearFit(const double* x, const double* y, std::uint32_t n, double* slope,
                               double* intercept, double* interceptError, double* slopeError) {
  if (x == nullptr || y == nullptr || n < 2 || n > kMaxFitPoints) return;
  Wide sx = 0;
  Wide sy = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    sx += x[i];
    sy += y[i];
  }
  // Centring x on its mean keeps the sums well conditioned.
  const Wide xMean = sx / n;
  Wide st2 = 0;
  Wide sty = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    const Wide t = x[i] - xMean;
    st2 += t * t;
    sty += t * y[i];
  }
  if (st2 == 0) return;  // all x equal: no line
  const Wide b = sty / st2;
  const Wide a = (sy - b * sx) / n;
  Wide aError = std::sqrt((1 + sx * sx / (n * st2)) / n);
  Wide bError = std::sqrt(1 / st2);
  if (n > 2) {
    Wide chi2 = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
      const Wide residual = y[i] - a - b * x[i];
      chi2 += residual * residual;
    }
    const Wide scale = std::sqrt(chi2 / (n - 2));
    aError *= scale;
    bError *= scale;
  }
  Store(slope, b);
  Store(intercept, a);
  Store(interceptError, aError);
  Store(slopeError, bError);
}

void QXDataExpUtils::QuadraticFit(const double* x, const double* y, std::uint32_t n, double* c0,
                                  double* c1, double* c2) {
  if (x == nullptr || y == nullptr || n > kMaxFitPoints) return;
  Wide s[5] = {};  // sums of x^0 .. x^4
  Wide t[3] = {};  // sums of y, x*y, x^2*y
  for (std::uint32_t i = 0; i < n; ++i) {
    Wide power = 1;
    for (int k = 0; k < 5; ++k) {
      s[k] += power;
      if (k < 3) t[k] += power * y[i];
      power *= x[i];
    }
  }
  const Wide det = Det3(s[0], s[1], s[2], s[1], s[2], s[3], s[2], s[3], s[4]);
  Wide a = 0;
  Wide b = 0;
  Wide c = 0;
  if (det != 0) {
    // Cramer's rule: each coefficient's column replaced by the moments of y.
    a = Det3(t[0], s[1], s[2], t[1], s[2], s[3], t[2], s[3], s[4]) / det;
    b = Det3(s[0], t[0], s[2], s[1], t[1], s[3], s[2], t[2], s[4]) / det;
    c = Det3(s[0], s[1], t[0], s[1], s[2], t[1], s[2], s[3], t[2]) / det;
  }
  Store(c0, a);
  Store(c1, b);
  Store(c2, c);
}

}  // namespace qxpkutil
