// Shape measurements shared by both modes: height above the local baseline and FWHM.
#include <cmath>

#include "qxpkutil/detect/detect_internal.h"

namespace qxpkutil {

namespace {

// x where the line from (x0, y0) to (x1, y1) reaches `level`.
double Crossing(double x0, double y0, double x1, double y1, double level) {
  return y1 == y0 ? x1 : x0 + (level - y0) * (x1 - x0) / (y1 - y0);
}

}  // namespace

void MeasurePeakShapes(std::span<const double> x, std::span<const double> y,
                       std::vector<Peak>& peaks) {
  const auto n = static_cast<std::int32_t>(x.size());
  for (Peak& p : peaks) {
    const std::int32_t a = p.apex_index, l = p.left_index, r = p.right_index;
    if (a < 0 || a >= n || l < 0 || r >= n || l > a || r < a) continue;
    if (std::isnan(p.baseline)) {
      // The straight line between the bound points, read at the apex.
      const double t = x[r] == x[l] ? 0.0 : (x[a] - x[l]) / (x[r] - x[l]);
      p.baseline = y[l] + t * (y[r] - y[l]);
    }
    if (std::isnan(p.height)) p.height = y[a] - p.baseline;
    if (!std::isnan(p.fwhm) || !(p.height > 0.0)) continue;
    const double half = p.baseline + 0.5 * p.height;
    std::int32_t i = a;
    while (i > l && y[i - 1] > half) --i;
    std::int32_t j = a;
    while (j < r && y[j + 1] > half) ++j;
    if (i == l || j == r) continue;  // the peak does not fall to half height inside its bounds
    p.fwhm = Crossing(x[j], y[j], x[j + 1], y[j + 1], half) -
             Crossing(x[i], y[i], x[i - 1], y[i - 1], half);
  }
}

}  // namespace qxpkutil
