// What the automatic mode learns about a trace before it searches: where the data has
// gaps, how the baseline and the noise run along x, and how wide a peak is at each x.
// Internal to the detect folder (and its tests); not installed.
//
//   std::optional<SignalModel> model = EstimateSignalModel(x, y, options);
//   double snr = (y[i] - model->BaselineAt(i)) / model->NoiseAt(i);
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"

namespace qxpkutil {

// A run of points [begin, end) with no x gap and no run of missing (zero-filled) points
// inside; peaks and their bounds never leave their region.
struct Region {
  std::int32_t begin = 0;
  std::int32_t end = 0;
};

// Baseline, noise and spacing in blocks of points, read at any point by linear
// interpolation between block centres; the peak width as a power law of x.
class SignalModel {
 public:
  double BaselineAt(std::int32_t i) const { return Interpolate(baseline_, i); }
  double NoiseAt(std::int32_t i) const { return Interpolate(noise_, i); }
  double SpacingAt(std::int32_t i) const { return Interpolate(spacing_, i); }
  // The points [first, end) around i over which the levels run straight: from half a
  // block past one block start to half a block past the next (the first piece from 0).
  std::pair<std::int32_t, std::int32_t> StraightPiece(std::int32_t i) const {
    const std::int32_t half = block_ / 2;
    if (i < half) return {0, half};
    const std::int32_t first = (i - half) / block_ * block_ + half;
    return {first, first + block_};
  }
  // The sum of BaselineAt over the points lo to hi (inclusive), piece by straight piece.
  double BaselineSum(std::int32_t lo, std::int32_t hi) const;
  // FWHM in x units at `x`: fwhm_ref * (x / x_ref)^exponent.
  double FwhmAt(double x) const;
  // The same in points at point i (at least 1).
  double PointsPerFwhm(std::int32_t i, double x) const;
  // The same, read from the per-block table (no power law evaluated).
  double PointsPerFwhm(std::int32_t i) const { return Interpolate(ppf_, i); }
  // The lowest and highest baseline + `noises` * noise of any point of block b: the levels
  // run linearly between block centres, so every point of it lies between its neighbours'.
  std::pair<double, double> LevelBounds(std::int32_t b, double noises) const;
  // Fills the per-block table from the width law and the spacing.
  void TabulateWidths(std::span<const double> x);

  std::vector<Region> regions;
  std::vector<std::uint8_t> missing;  // 1 for a zero-filled point that carries no signal
  // Most of the sampling grid is absent (zeros or x gaps): the instrument stored only the
  // points above a threshold. The baseline is then 0 and the noise comes from how often
  // the noise alone crosses the threshold.
  bool thresholded = false;
  double largest = 0.0;  // the largest |y|: noise is never taken below its rounding
  double fwhm_ref = 0.0;
  double x_ref = 1.0;
  double exponent = 0.0;
  WidthLaw law = WidthLaw::kConstant;
  std::int32_t block() const { return block_; }  // points per block
  void SetBlock(std::int32_t points) {
    block_ = points;
    inverse_block_ = 1.0 / points;
  }
  // Lag of the second differences that measure the noise; 0: not chosen.
  std::int32_t noise_lag = 0;
  std::vector<double> baseline_, noise_, spacing_, ppf_;

 private:
  std::int32_t block_ = 1;
  double inverse_block_ = 1.0;  // read on every interpolation: a product, not a quotient
  double Interpolate(const std::vector<double>& v, std::int32_t i) const {
    if (v.empty()) return 0.0;
    const double t = (static_cast<double>(i) + 0.5) * inverse_block_ - 0.5;
    if (t <= 0.0) return v.front();
    const auto k = static_cast<std::size_t>(t);
    if (k + 1 >= v.size()) return v.back();
    const double f = t - static_cast<double>(k);
    return v[k] + f * (v[k + 1] - v[k]);
  }
};

// Measures the baseline and noise again without the points where `exclude` is 1 (the
// peaks found so far), so that dense peaks do not lift the baseline. The missing points
// are marked in `exclude` too.
void RefineLevels(std::span<const double> x, std::span<const double> y,
                  std::vector<std::uint8_t>& exclude, SignalModel& model);

// How FWHM grows with x under a law: FWHM ~ x^exponent (kAuto and kConstant: 0).
double WidthExponent(WidthLaw law);

// Learns the model of a non-empty trace whose x and y have the same size, checking the trace
// on its first pass over it: nothing when a value is not finite or x falls (ValidateTrace
// says where). The width comes from the options when they give one, else from the cleanest
// strong peaks of the data.
std::optional<SignalModel> EstimateSignalModel(std::span<const double> x,
                                               std::span<const double> y,
                                               const DetectOptions& options);

}  // namespace qxpkutil
