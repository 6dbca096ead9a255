// The detection step of the tool: a thin front end over the library's DetectPeaks. The
// trace's kind chooses the signal kind, the classic settings (when any were given) run as
// they are, and the tool adds what the library leaves to front ends: the Gaussian
// refinement asked for with --gauss-fit, the resolution column, and a reason for every
// trace that could not be searched.
//
//   DetectionConfig config;                       // automatic mode, S/N >= 3
//   TracePeaks found = SearchTrace(trace, config);
//   if (!found.skipped.empty()) report(found.skipped);
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil::qxpeak {

// How a trace's own "centroided" mark turns into the classic centroided-input switch.
enum class CentroidedInput { kAuto, kYes, kNo };

// Everything one search needs. Read only during detection, so that worker threads share one.
struct DetectionConfig {
  // Automatic mode, or classic when `options.classic` holds segments. `gauss_refine` is the
  // tool's --gauss-fit: centroids refined by a Gaussian started from the measured peak.
  DetectOptions options;
  CentroidedInput centroided = CentroidedInput::kAuto;  // classic mode only
  // Resolution column: the peak's width at this percent of its height, for apexes of at
  // least `resolutionMinIntensity`.
  std::optional<int> resolutionPercent;
  double resolutionMinIntensity = 0.0;
};

// The peaks of one trace, or why it was skipped.
struct TracePeaks {
  std::vector<Peak> peaks;              // apex-x order
  std::vector<std::int32_t> resolution; // parallel to `peaks` when measured; -1: none
  std::string skipped;                  // empty when searched; else what made it unusable
};

// Searches `trace` as `config` says. A trace the library refuses (not finite, x not
// ascending) comes back with no peaks and `skipped` naming the reason.
TracePeaks SearchTrace(const Trace& trace, const DetectionConfig& config);

}  // namespace qxpkutil::qxpeak
