// Gaussian smoothing of whole arrays: the fixed-width form (optionally stopping at gaps of
// missing samples) and the form whose width follows the instrument's resolving power.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <new>

#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {

namespace {

using numeric_detail::GaussKernel;
using numeric_detail::Wide;

constexpr int kLargestWidth = 2001;

// The kernel at point p when two adjacent zeros mark a gap: the window of w points from
// in[p - w/2] is copied into `window` and zeroed from the first gap outward on either side,
// so nothing beyond a gap reaches p.
double GapAwareMean(const double* in, std::uint32_t n, std::uint32_t p, int w,
                    const GaussKernel& kernel, double* window) {
  const int h = w / 2;
  // Neighbours outside the array count as non-zero; only width 1 reaches them.
  const bool zeroBefore = p > 0 && in[p - 1] == 0;
  const bool zeroAfter = p + 1 < n && in[p + 1] == 0;
  if (in[p] == 0 && (zeroBefore || zeroAfter)) return 0.0;
  const double* src = in + (p - h);
  for (int pos = h - 1; pos >= 0; --pos) {
    if (pos >= 1 && src[pos] == 0 && src[pos - 1] == 0) {
      std::fill_n(window, pos + 1, 0.0);
      break;
    }
    window[pos] = src[pos];
  }
  for (int pos = h; pos < w; ++pos) {
    if (pos < w - 1 && src[pos] == 0 && src[pos + 1] == 0) {
      std::fill(window + pos, window + w, 0.0);
      break;
    }
    window[pos] = src[pos];
  }
  // The divisor stays the full kernel sum, so a window cut by a gap pulls the value down;
  // that is intended.
  return numeric_detail::ApplyGaussKernel(kernel, window);
}

bool Overlaps(const double* a, const double* b, std::uint32_t n) {
  const std::less<const double*> before;
  return before(a, b + n) && before(b, a + n);
}

}  // namespace

int QXDataExpUtils::SmoothData(const double* in, double* out, std::uint32_t n, int gapAware,
                               int type, int w) {
  if (in == nullptr || out == nullptr || n == 0 || w < 1 || w > kLargestWidth ||
      n < static_cast<std::uint32_t>(w) || (type != 0 && type != 1)) {
    return 0;
  }
  if (type == 1) return 1;  // accepted, smooths nothing
  GaussKernel kernel;
  if (!numeric_detail::SelectGaussKernel(w, kernel)) return 0;

  // Scratch, sized once: a copy of the input when the output overlaps it, and the window.
  const bool overlap = Overlaps(in, out, n);
  const std::size_t copySize = overlap ? n : 0;
  const std::size_t scratchSize = copySize + (gapAware ? static_cast<std::size_t>(w) : 0);
  std::unique_ptr<double[]> scratch;
  if (scratchSize > 0) {
    scratch.reset(new (std::nothrow) double[scratchSize]);
    if (!scratch) return 0;
  }
  const double* src = in;
  if (overlap) {
    std::copy_n(in, n, scratch.get());
    src = scratch.get();
  }
  double* window = scratch.get() + copySize;

  const std::uint32_t h = static_cast<std::uint32_t>(w / 2);
  if (out != in) {
    std::copy_n(src, h, out);
    std::copy_n(src + (n - h), h, out + (n - h));
  }
  // With gaps in mind, `pair` tracks the first adjacent-zero pair at or after the window's
  // start (n - 1 when there is none), so windows without one skip the copy.
  std::uint32_t pair = 0;
  for (std::uint32_t p = h; p < n - h; ++p) {
    const std::uint32_t start = p - h;
    if (gapAware) {
      pair = std::max(pair, start);
      while (pair + 1 < n && !(src[pair] == 0 && src[pair + 1] == 0)) ++pair;
      if (src[p] == 0 || pair + 1 < start + static_cast<std::uint32_t>(w)) {
        out[p] = GapAwareMean(src, n, p, w, kernel, window);
        continue;
      }
    }
    out[p] = numeric_detail::ApplyGaussKernel(kernel, src + start);
  }
  return 1;
}

int QXDataExpUtils::ResolutionSmoothData(const double* x, double* y, std::int32_t n,
                                         double resolution, double cutoff) {
  if (x == nullptr || y == nullptr || n < 1 || !(resolution > 0) || !std::isfinite(resolution) ||
      std::isnan(cutoff)) {
    return 0;
  }
  std::unique_ptr<double[]> smoothed(new (std::nothrow) double[n]);
  if (!smoothed) return 0;
  // s makes the weight exp(-(dx/s)^2) fall to 0.5 at dx = x / (2 * resolution).
  const double widthDivisor = resolution * std::sqrt(std::log(2.0));
  for (std::int32_t i = 0; i < n; ++i) {
    const double s = (x[i] * 0.5) / widthDivisor;
    if (!(s > 0)) {  // no width at x <= 0 (or NaN)
      smoothed[i] = y[i];
      continue;
    }
    Wide weights = 1;
    Wide sum = y[i];
    const auto take = [&](std::int32_t j, double distance) {
      const double t = distance / s;
      if (t > cutoff) return false;  // a neighbour exactly at the cutoff still counts
      const double weight = std::exp(-t * t);
      weights += weight;
      sum += weight * static_cast<Wide>(y[j]);
      return true;
    };
    for (std::int32_t j = i - 1; j >= 0 && take(j, x[i] - x[j]); --j) {
    }
    for (std::int32_t j = i + 1; j < n && take(j, x[j] - x[i]); ++j) {
    }
    smoothed[i] = static_cast<double>(sum / weights);
  }
  std::copy_n(smoothed.get(), n, y);
  return 1;
}

}  // namespace qxpkutil
