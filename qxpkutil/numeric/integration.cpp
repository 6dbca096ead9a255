// Measurements over a stretch of signal: areas above a baseline by summation or by the
// trapezoid rule, the centroid of a peak cut at a level, and a baseline level with noise.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {

namespace {

using numeric_detail::Wide;

template <class X, class Y>
double SummedRegion(const X* x, const Y* y, std::int32_t first, std::int32_t last,
                    int lineBaseline) {
  if (x == nullptr || y == nullptr || first < 0 || first > last) return 0.0;
  double slope = 0.0;
  double intercept = 0.0;
  if (lineBaseline == 1) {
    // End points with equal x leave the zero baseline.
    QXDataExpUtils::FitLine(x[first], y[first], x[last], y[last], slope, intercept);
  } else {
    intercept = static_cast<double>(std::min(y[first], y[last]));
  }
  Wide signal = 0;
  Wide baseline = 0;
  for (std::int64_t i = first; i <= last; ++i) {
    const double yi = static_cast<double>(y[i]);
    signal += yi;
    baseline += std::min(slope * static_cast<double>(x[i]) + intercept, yi);
  }
  const double area = static_cast<double>(signal - baseline);
  return area > 0 ? area : 0.0;
}

template <class X, class Y>
double TrapezoidRegion(const X* x, const Y* y, std::uint32_t first, std::uint32_t end,
                       double slope, double intercept) {
  if (x == nullptr || y == nullptr || std::uint64_t{end} <= std::uint64_t{first} + 1) return 0.0;
  Wide signal = 0;
  Wide baseline = 0;
  for (std::uint64_t i = first; i + 1 < end; ++i) {
    const double x0 = static_cast<double>(x[i]);
    const double x1 = static_cast<double>(x[i + 1]);
    const double dx = x1 - x0;
    // For counts the pair is added in 32 bits and wraps above 2^32 - 1: areas of count data
    // must equal those stored in saved peak tables, which were computed so.
    signal += static_cast<double>(y[i] + y[i + 1]) * dx * 0.5;
    baseline += (slope * x0 + intercept + slope * x1 + intercept) * dx * 0.5;
  }
  return static_cast<double>(signal - baseline);
}

template <class X, class Y>
int CentroidOf(const X* xs, const Y* ys, std::uint32_t n, double percent, std::uint32_t left,
               std::uint32_t right, std::uint32_t apex, double& leftX, double& leftY,
               double& rightX, double& rightY, double& centroid) {
  centroid = kQXUnsetValue;
  if (xs == nullptr || ys == nullptr || apex >= n || std::isnan(percent)) return 0;
  const auto x = [xs](std::int64_t i) { return static_cast<double>(xs[i]); };
  const auto y = [ys](std::int64_t i) { return static_cast<double>(ys[i]); };
  const auto apexPoint = [&] {
    leftX = rightX = centroid = x(apex);
    leftY = rightY = y(apex);
    return 1;
  };
  if (percent == 0) return apexPoint();

  // i and j end as the points just outside the region: the moment runs from leftX over
  // points i+1 .. j-1 to rightX.
  std::int64_t i = apex;
  std::int64_t j = apex;
  if (percent > 0 && percent <= 100) {
    if (left >= n || right >= n) return 0;
    const double base = std::max(y(left), y(right));
    const double level = std::max(0.0, y(apex) - percent * 0.01 * (y(apex) - base));
    leftY = rightY = level;
    if (apex < left || apex > right) return 0;
    while (y(i) > level) {
      if (--i < left) return 0;
    }
    while (y(j) > level) {
      if (++j > right) return 0;
    }
    if (i + 1 >= n || x(i) == x(i + 1)) return 0;
    const double m = (y(i) - y(i + 1)) / (x(i) - x(i + 1));
    // A flat left crossing keeps both caller values and skips the right crossing, so the
    // caller reads its own bounds back as the region; kept on purpose.
    if (m != 0) {
      leftX = (level - (y(i) - m * x(i))) / m;
      if (j < 1) return 0;
      if (x(j - 1) == x(j)) {
        rightX = x(j);
        return 0;
      }
      const double mr = (y(j - 1) - y(j)) / (x(j - 1) - x(j));
      rightX = mr != 0 ? (level - (y(j - 1) - mr * x(j - 1))) / mr : x(j);
    }
  } else {
    // Caller-given bounds: the segments holding leftX and rightX must lie in the array.
    i = QXDataExpUtils::FindNearestIndex(xs, n, leftX);
    if (i >= 0 && leftX < x(i)) --i;
    j = QXDataExpUtils::FindNearestIndex(xs, n, rightX);
    if (j >= 0 && x(j) < rightX) ++j;
    if (i < 0 || i + 1 >= n || j < 1 || j >= n) return 0;
    if (x(i) != x(i + 1)) leftY = y(i) + (leftX - x(i)) * (y(i + 1) - y(i)) / (x(i + 1) - x(i));
    if (x(j - 1) != x(j)) {
      rightY = y(j - 1) + (rightX - x(j - 1)) * (y(j) - y(j - 1)) / (x(j) - x(j - 1));
    }
  }
  if (i == apex && j == apex) return apexPoint();

  // Trapezoid moment and area over the full y (the level is not subtracted).
  const double first = x(i + 1);
  const double last = x(j - 1);
  Wide moment = (first - leftX) * (leftX * leftY + first * y(i + 1)) * 0.5 +
                (rightX - last) * (last * y(j - 1) + rightX * rightY) * 0.5;
  Wide area =
      (first - leftX) * (leftY + y(i + 1)) * 0.5 + (rightX - last) * (y(j - 1) + rightY) * 0.5;
  for (std::int64_t k = i + 1; k + 1 <= j - 1; ++k) {
    const double dx = x(k + 1) - x(k);
    moment += dx * (x(k) * y(k) + x(k + 1) * y(k + 1)) * 0.5;
    area += dx * (y(k) + y(k + 1)) * 0.5;
  }
  centroid = static_cast<double>(area > 0 ? moment / area : moment);
  return 1;
}

}  // namespace

double QXDataExpUtils::IntegrateSummedRegion(const double* x, const double* y, std::int32_t first,
                                             std::int32_t last, int lineBaseline) {
  return SummedRegion(x, y, first, last, lineBaseline);
}
double QXDataExpUtils::IntegrateSummedRegion(const float* x, const std::uint32_t* y,
                                             std::int32_t first, std::int32_t last,
                                             int lineBaseline) {
  return SummedRegion(x, y, first, last, lineBaseline);
}

double QXDataExpUtils::IntegrateTrapezoidRegion(const double* x, const double* y,
                                                std::uint32_t first, std::uint32_t end,
                                                double slope, double intercept) {
  return TrapezoidRegion(x, y, first, end, slope, intercept);
}
double QXDataExpUtils::IntegrateTrapezoidRegion(const float* x, const std::uint32_t* y,
                                                std::uint32_t first, std::uint32_t end,
                                                double slope, double intercept) {
  return TrapezoidRegion(x, y, first, end, slope, intercept);
}

int QXDataExpUtils::CentroidRegion(const double* x, const double* y, std::uint32_t n,
                                   double percent, std::uint32_t left, std::uint32_t right,
                                   std::uint32_t apex, double& leftX, double& leftY,
                                   double& rightX, double& rightY, double& centroid) {
  return CentroidOf(x, y, n, percent, left, right, apex, leftX, leftY, rightX, rightY, centroid);
}
int QXDataExpUtils::CentroidRegion(const float* x, const std::uint32_t* y, std::uint32_t n,
                                   double percent, std::uint32_t left, std::uint32_t right,
                                   std::uint32_t apex, double& leftX, double& leftY,
                                   double& rightX, double& rightY, double& centroid) {
  return CentroidOf(x, y, n, percent, left, right, apex, leftX, leftY, rightX, rightY, centroid);
}

int QXDataExpUtils::ComputeBaseline(const double* x, const double* y, std::uint32_t n, double x1,
                                    double x2, std::int32_t nSigma, double& baseline,
                                    double& noise) {
  if (x == nullptr || y == nullptr || n < 2 || std::isnan(x1) || std::isnan(x2)) return 0;
  const double lo = std::min(x1, x2);
  const double hi = std::max(x1, x2);
  const std::int64_t i = FindNearestIndex(x, n, lo);
  std::int64_t j = std::clamp<std::int64_t>(
      HuntIndex(x, n, std::numeric_limits<std::uint32_t>::max(), hi), 0, std::int64_t{n} - 2);
  if (std::fabs(hi - x[j + 1]) < std::fabs(hi - x[j])) ++j;  // only when strictly nearer
  if (i < 0 || i == j) return 0;
  // On a descending x the point nearest lo comes after the one nearest hi.
  const std::int64_t from = std::min(i, j);
  const double* stretch = y + from;
  const auto count = static_cast<std::uint32_t>(std::max(i, j) - from + 1);
  double mean = 0.0;
  double variance = 0.0;
  double sd = 0.0;
  double populationMean = 0.0;
  double rms = 0.0;
  if (!StandardDev(stretch, count, mean, variance, sd) ||
      !RMSNoise(stretch, count, populationMean, rms)) {
    return 0;
  }
  double level = mean;
  if (nSigma >= 1) {
    // Peaks and spikes outside the band do not lift the baseline; the noise keeps them, and
    // the two deviations differ in their divisor, on purpose.
    const double low = mean - nSigma * sd;
    const double high = mean + nSigma * sd;
    Wide sum = 0;
    std::uint32_t kept = 0;
    for (std::uint32_t k = 0; k < count; ++k) {
      if (low <= stretch[k] && stretch[k] <= high) {
        sum += stretch[k];
        ++kept;
      }
    }
    if (kept == 0) return 0;
    level = static_cast<double>(sum / kept);
  }
  baseline = level;
  noise = rms;
  return 1;
}

}  // namespace qxpkutil
