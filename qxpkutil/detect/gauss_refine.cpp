// Gaussian refinement of centroids: one small bounded problem per peak, so the cost is a
// few dozen model evaluations over a handful of points each, whatever the trace length.
#include "qxpkutil/detect/gauss_refine_internal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>

#include "qxpkutil/fitting/QXNonLinFit.h"

namespace qxpkutil {

namespace {

// The model's width is the 1/e half-width s of exp(-((x-c)/s)^2); FWHM = 2 sqrt(ln 2) s.
const double kFwhmPerWidth = 2.0 * std::sqrt(std::log(2.0));
constexpr double kWindowFwhm = 1.5;  // points within this many FWHM of the apex are fitted
constexpr int kMaxSteps = 200;
constexpr std::size_t kMinPoints = 5;  // four free parameters need more points than that

// Amplitude, centre, width, baseline, slope: the library's peak model with one peak.
constexpr int kParams = 5;

struct Fit {
  bool ok = false;
  double centre = 0.0;
};

// Fits the points x[lo..hi) shifted by `origin` (so that the centre is near 0 and the
// normal equations stay well conditioned). The slope is held at 0.
Fit FitOne(std::span<const double> x, std::span<const double> y, std::size_t lo, std::size_t hi,
           double origin, double amplitude, double width, double baseline) {
  const std::size_t n = hi - lo;
  std::vector<double> fx(n), sig(n, 1.0);
  for (std::size_t i = 0; i < n; ++i) fx[i] = x[lo + i] - origin;
  const double* fy = y.data() + lo;

  std::array<double, kParams> a{amplitude, 0.0, width, baseline, 0.0};
  const std::array<int, kParams> ia{1, 1, 1, 1, 0};
  std::array<double, kParams * kParams> covarStore{}, vStore{};
  std::array<double*, kParams> covar{}, v{};
  for (int r = 0; r < kParams; ++r) {
    covar[r] = covarStore.data() + r * kParams;
    v[r] = vStore.data() + r * kParams;
  }
  std::array<double, kParams> w{};
  QXMrqContext context;
  double chisq = 0.0, alamda = -1.0;
  const auto step = [&] {
    return QXNonLinFit::SvdMrqMin(fx.data(), fy, sig.data(), static_cast<int>(n), a.data(),
                                  ia.data(), kParams, covar.data(), v.data(), w.data(), &chisq,
                                  &QXNonLinFit::GaussFitCommonSigBaseSlope, &alamda,
                                  context) != 0;
  };
  if (!step()) return {};
  // The scale against which a chi-square counts as exactly fitted (noise-free data).
  double scale = 0.0;
  for (std::size_t i = 0; i < n; ++i) scale += fy[i] * fy[i];
  bool converged = false;
  double previous = chisq;
  for (int s = 0; s < kMaxSteps && !converged; ++s) {
    if (!step()) break;
    const bool accepted = chisq < previous;
    // Converged: an accepted step that gains almost nothing, a fit that is exact to
    // rounding, or damping so large that no step can improve any more (at the minimum).
    converged = (accepted && previous - chisq <= 1e-10 * previous) || chisq <= 1e-24 * scale ||
                alamda > 1e12;
    previous = chisq;
  }
  alamda = 0.0;
  step();  // ends the fit and releases the context
  if (!converged || !(a[0] > 0.0) || !(std::fabs(a[2]) > 0.0) || !std::isfinite(a[1])) return {};
  return {true, a[1] + origin};
}

}  // namespace

void RefineCentroidsByGaussFit(std::span<const double> x, std::span<const double> y,
                               std::vector<Peak>& peaks) {
  const std::size_t n = std::min(x.size(), y.size());
  for (Peak& p : peaks) {
    if (!(p.fwhm > 0.0) || !std::isfinite(p.fwhm) || p.apex_index < 0 ||
        static_cast<std::size_t>(p.apex_index) >= n) {
      continue;
    }
    const double apex = x[static_cast<std::size_t>(p.apex_index)];
    const double start = std::isfinite(p.centroid_x) ? p.centroid_x : apex;
    const double lowX = apex - kWindowFwhm * p.fwhm, highX = apex + kWindowFwhm * p.fwhm;
    const auto lo = static_cast<std::size_t>(
        std::lower_bound(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n), lowX) - x.begin());
    const auto hi = static_cast<std::size_t>(
        std::upper_bound(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(n), highX) -
        x.begin());
    if (hi <= lo || hi - lo < kMinPoints) continue;
    double baseline = p.baseline;
    if (!std::isfinite(baseline)) baseline = *std::min_element(y.begin() + lo, y.begin() + hi);
    double height = p.height;
    if (!std::isfinite(height) || !(height > 0.0)) height = p.apex_y - baseline;
    if (!(height > 0.0)) continue;
    const Fit fit = FitOne(x, y, lo, hi, start, height, p.fwhm / kFwhmPerWidth, baseline);
    if (!fit.ok) continue;
    // Kept only when it stays inside the window and near where the data put the centre.
    if (!(fit.centre > x[lo] && fit.centre < x[hi - 1])) continue;
    if (!(std::fabs(fit.centre - start) < 0.5 * p.fwhm)) continue;
    p.centroid_x = fit.centre;
  }
}

}  // namespace qxpkutil
