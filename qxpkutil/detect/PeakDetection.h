// The library's one modern entry point: x and y as spans and an options struct in, a value
// table of peaks out. Every front end (the qxpeak tool, the Python package, the browser
// view) calls this instead of driving the segment list itself. Two modes:
//  - automatic (the default): noise and peak width are estimated from the data (or taken
//    from the physical description in the options), a matched filter of the local peak
//    width decides on every peak, and every peak is measured: centroid, FWHM, height above
//    the local baseline, S/N and, for spectra, the isotope charge;
//  - classic: a QXPeakTableList's own segments and switches run exactly as they are.
//
//   DetectOptions options;                 // automatic, S/N >= 3, width from the data
//   PeakList found = DetectPeaks(x, y, options);
//   if (!found.ok()) std::cerr << found.message << '\n';
//   for (const Peak& p : found.peaks) use(p.centroid_x, p.snr);
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil {

// How a peak's FWHM scales with x (the analyzer's resolving-power law).
enum class WidthLaw {
  kAuto,      // estimated from the data
  kConstant,  // the same FWHM everywhere: chromatograms (time), quadrupoles
  kTof,       // constant resolving power: FWHM proportional to m/z
  kOrbitrap,  // resolving power falls as 1/sqrt(m/z): FWHM proportional to (m/z)^1.5
  kFtIcr,     // resolving power falls as 1/(m/z): FWHM proportional to (m/z)^2
};

// What the signal is; a chromatogram gets no charge states and a constant time width.
enum class SignalKind { kSpectrum, kChromatogram };

// Why a search did not run. kOk is the only status with peaks.
enum class DetectStatus {
  kOk,
  kBadInput,     // x and y differ in length, or more points than the library indexes
  kNotFinite,    // a NaN or infinite x or y
  kNotAscending, // x decreases somewhere (equal neighbours are allowed)
  kBadOption,    // an option outside its range
};

inline constexpr double kNotMeasured = std::numeric_limits<double>::quiet_NaN();

struct DetectOptions {
  SignalKind kind = SignalKind::kSpectrum;
  // The points are already peaks (a centroided spectrum): each point above zero is one
  // peak, measured as it stands, and only charges are assigned.
  bool centroided = false;

  // ---- automatic mode ----
  // Sensitivity: a peak is kept when its height above the local baseline is at least
  // `snr` times the local noise (and its area, scaled by its width, says the same).
  double snr = 3.0;
  // Peak width. Either `fwhm` (x units) at `fwhm_at`, or `resolution` (x / FWHM) at
  // `resolution_at`, scaled along x by `width_law`; with neither, the width is estimated
  // from the data. `fwhm_at` 0 means the FWHM holds at every x.
  double fwhm = 0.0;
  double fwhm_at = 0.0;
  double resolution = 0.0;
  double resolution_at = 400.0;
  WidthLaw width_law = WidthLaw::kAuto;
  // Isotope charges 1..max_charge from spacings of 1.00336 / z (spectra only); 0: none.
  int max_charge = 4;
  // ---- classic mode ----
  // When set, these segments and global switches run as they are (the areas unscaled);
  // the automatic options above are then not used.
  std::optional<QXPeakTableList> classic;

  // ---- either mode ----
  // Refine each centroid with a Gaussian fitted to a few FWHM around the apex, started
  // from the measured centroid, height and FWHM (not the classic settings' own fit).
  bool gauss_refine = false;
  std::shared_ptr<const QXUserPkLabels> labels;  // matched onto the peaks when set
  // Classic signal-to-noise: baseline and noise measured over this x range (the library's
  // calculator); when unset, S/N comes from the local noise estimate.
  std::optional<std::pair<double, double>> noise_region;
};

// One peak. Values that were not measured are NaN (kNotMeasured).
struct Peak {
  double apex_x = 0.0;
  double apex_y = 0.0;
  double centroid_x = kNotMeasured;
  double left_x = 0.0;   // integration bounds
  double right_x = 0.0;
  std::int32_t apex_index = 0;
  std::int32_t left_index = 0;
  std::int32_t right_index = 0;
  double area = 0.0;      // sum of intensities between the bounds (a plain sum, not an integral)
  double height = kNotMeasured;    // apex above the local baseline
  double baseline = kNotMeasured;  // local baseline at the apex
  double fwhm = kNotMeasured;      // full width at half height above the baseline, x units
  double noise = kNotMeasured;     // local noise (standard deviation) at the apex
  double snr = kNotMeasured;       // height / noise
  std::int32_t charge = 0;         // 0: none assigned
  std::uint32_t marks = 0;         // the peak record's status marks (0x100, 0x200, ...)
  std::string label;               // matched user label, empty when none
};

// What the automatic mode chose, so that front ends can show and save it.
struct DetectReport {
  double noise = kNotMeasured;          // median local noise over the signal
  double fwhm_at_median_x = kNotMeasured;  // the width model at the median x
  double points_per_fwhm = kNotMeasured;   // the same in points
  WidthLaw width_law = WidthLaw::kAuto;    // the law used
  std::int32_t segments = 0;               // segments run (classic) or planned (automatic)
};

struct PeakList {
  DetectStatus status = DetectStatus::kOk;
  std::string message;      // empty when ok
  std::vector<Peak> peaks;  // in apex-x order
  DetectReport report;
  bool ok() const { return status == DetectStatus::kOk; }
};

// Finds the peaks of one trace. `x` must be ascending (equal neighbours allowed) and finite,
// `y` finite and as long as `x`; otherwise the status says which rule failed and the
// message names the first offending point. An empty trace gives no peaks and kOk.
[[nodiscard]] PeakList DetectPeaks(std::span<const double> x, std::span<const double> y,
                                   const DetectOptions& options = {});
// The count family: float x and unsigned 32-bit intensities, widened to double.
[[nodiscard]] PeakList DetectPeaks(std::span<const float> x, std::span<const std::uint32_t> y,
                                   const DetectOptions& options = {});

// Classic segments planned from the automatic mode's model of this trace (point-based
// settings that follow the local peak width), as a classic list (with one empty table), so
// that they can be saved, edited and run in classic mode. Empty (no segments) when the
// trace cannot be searched.
[[nodiscard]] QXPeakTableList BuildAutomaticSegments(std::span<const double> x,
                                                     std::span<const double> y,
                                                     const DetectOptions& options = {});

// Parses a width such as "0.01@400", "4s", "20ppm" or "0.5" into `fwhm` and `fwhm_at` of
// `options` ("s" and "min" are time units, converted to seconds; "ppm" is relative to x).
// Returns false with `error` set when the text is not a width.
[[nodiscard]] bool ParseFwhm(const std::string& text, DetectOptions& options, std::string& error);

}  // namespace qxpkutil
