#include "tools/qxpeak/detection.h"

#include <algorithm>
#include <limits>

#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/settings/PeakCalc.h"

namespace qxpkutil::qxpeak {

TracePeaks DetectPeaks(const Trace& trace, const DetectionConfig& config) {
  TracePeaks result;
  QXPeakTableList list(config.list);
  list.DeleteAllPeakTables();
  list.AddPeakTableToList();
  const bool centroided = config.centroided == CentroidedInput::kAuto
                              ? trace.centroided
                              : config.centroided == CentroidedInput::kYes;
  list.SetCentroidSpecData(centroided ? 1 : 0);
  const auto n = static_cast<std::uint32_t>(trace.x.size());
  if (n > 0) {
    const double yMax = *std::max_element(trace.y.begin(), trace.y.end());
    // Areas are plain sums of intensities, unscaled.
    list.FindPeaks(trace.x.data(), trace.y.data(), n, yMax, 1.0, 0);
  }
  result.table = *list.GetPeakTableFromList(0);
  result.centroids = centroided || list.MassProcessingOn() != 0;
  QXPeakTable& table = result.table;
  if (config.labels && table.GetNumPeaks() > 0) {
    // Matching clears the list's changed flag, so every search matches with its own copy.
    QXUserPkLabels labels(*config.labels);
    table.MatchUserPeakLabels(&labels, result.centroids ? 1 : 0, kQXFilterAll, nullptr);
  }
  const auto count = static_cast<std::size_t>(table.GetNumPeaks());
  if (config.noiseRegion) {
    // A calculator without targets only measures the baseline and noise of its region.
    SNPeakCalc sn;
    sn.SetBaselineX1(config.noiseRegion->first);
    sn.SetBaselineX2(config.noiseRegion->second);
    const bool measured =
        count > 0 && table.DoSignalToNoiseOnList(trace.x.data(), trace.y.data(), n, &sn) != 0;
    result.signalToNoise.assign(count, std::numeric_limits<double>::quiet_NaN());
    for (std::size_t i = 0; measured && i < count; ++i) {
      result.signalToNoise[i] =
          table.GetPeak(static_cast<std::int32_t>(i))->DoSigToNoiseOnPeak(sn.GetBaseline(), sn.GetNoise());
    }
  }
  if (config.resolutionPercent) {
    result.resolution.assign(count, -1);
    for (std::size_t i = 0; i < count; ++i) {
      const QXPeakTableElement& p = *table.GetPeak(static_cast<std::int32_t>(i));
      if (p.m_dApexY >= config.resolutionMinIntensity) {
        p.DoResCalcOnPeak(trace.x.data(), trace.y.data(), *config.resolutionPercent,
                          result.resolution[i]);
      }
    }
  }
  return result;
}

}  // namespace qxpkutil::qxpeak
