// The detection step of the tool: runs the library's detection driver
// (QXPeakTableList::FindPeaks) on one Trace with the configured segments and switches, then
// matches user labels and, when asked, measures signal-to-noise and resolution per peak.
// Builds on the settings, peaks and labels parts of the library.
//
//   DetectionConfig config;  config.list.AddDetectionSetting(-1);
//   TracePeaks peaks = DetectPeaks(trace, config);   // peaks.table in apex-x order
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "qxpkutil/io/Trace.h"
#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil::qxpeak {

// How a trace's own "centroided" mark turns into the list's centroided-input switch.
enum class CentroidedInput { kAuto, kYes, kNo };

// Everything one search needs. Read only during detection, so that worker threads share
// one; each search works on its own copy of `list` (the driver rewrites noise thresholds).
struct DetectionConfig {
  QXPeakTableList list;  // segments and global switches; its own tables are not used
  CentroidedInput centroided = CentroidedInput::kAuto;  // kAuto: as the file declares
  std::shared_ptr<const QXUserPkLabels> labels;         // null: no label matching
  // Signal-to-noise: baseline and noise measured over this x range of each trace.
  std::optional<std::pair<double, double>> noiseRegion;
  // Resolution: peak width taken at this percent of the apex height, for apexes of at
  // least `resolutionMinIntensity`.
  std::optional<int> resolutionPercent;
  int resolutionMinIntensity = 0;
};

// The peaks of one trace and the figures measured on them, index for index.
struct TracePeaks {
  QXPeakTable table;  // apex-x order
  // Centroid x and the centroid region hold measured values (mass processing or centroided
  // input); otherwise they hold what the finder left, zeros.
  bool centroids = false;
  // One value per peak when measured, else empty: the signal-to-noise ratio (NaN where it
  // could not be measured) and the resolution (-1 where there is none).
  std::vector<double> signalToNoise;
  std::vector<std::int32_t> resolution;
};

// Searches `trace` (all of it, as the segments' ranges say) and returns its peaks, labelled
// and measured as `config` asks. A trace without points, or one the driver refuses, gives an
// empty table. Signal-to-noise is NaN for every peak when the noise region holds too few
// points to measure; resolution is -1 for peaks below the minimum intensity or that do
// not fall to the level inside their bounds.
TracePeaks DetectPeaks(const Trace& trace, const DetectionConfig& config);

}  // namespace qxpkutil::qxpeak
