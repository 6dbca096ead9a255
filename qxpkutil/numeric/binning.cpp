// Merging of close points into bins, and the x-spacing law of a spectrum.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <cmath>

#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {

namespace {
using numeric_detail::Wide;
}  // namespace

int QXDataExpUtils::BinData(const double* x, const double* y, double* outX, double* outY,
                            std::uint32_t n, double binWidth) {
  if (x == nullptr || y == nullptr || outX == nullptr || outY == nullptr || n == 0 ||
      !(binWidth > 0)) {
    return 0;
  }
  std::uint32_t bin = 0;
  for (std::uint32_t i = 0; i < n; ++bin) {
    const double end = x[i] + binWidth;
    Wide moment = 0;
    Wide total = 0;
    // The opening point always joins, so a NaN x, or one so large that adding the width
    // changes nothing, still moves on.
    do {
      moment += x[i] * static_cast<Wide>(y[i]);
      total += y[i];
      ++i;
    } while (i < n && x[i] < end);
    outX[bin] = static_cast<double>(moment / total);  // 0/0 for a bin without intensity
    outY[bin] = static_cast<double>(total);
  }
  return 1;
}

double QXDataExpUtils::GetSpecLinearFactor(const double* x, std::uint32_t n, double factor) {
  if (x == nullptr) return 0.0;
  const std::int64_t count = n;
  // 2*sqrt(x)*factor/dx at point i + 1, dx the smaller neighbouring spacing; reads up to
  // x[i + 2], so callers make sure that exists.
  const auto estimate = [&](std::int64_t i) {
    const double d = std::min(x[i + 2] - x[i + 1], x[i + 1] - x[i]);
    return d > 1e-5 ? 2.0 * std::sqrt(x[i + 1]) * factor / d : 0.0;
  };
  double front = 0.0;
  for (std::int64_t i = 0; i < count - 1; i += 10) {
    if (x[i] > 1.0) {
      if (i + 2 < count) front = estimate(i);
      break;
    }
  }
  double back = 0.0;
  std::int64_t j = count - 4;
  if (j > 2) {
    while (j >= 3 && x[j] <= 1.0) j -= 10;
    if (j >= 3) back = estimate(j);
  }
  return (front + back) * 0.5;
}

}  // namespace qxpkutil
