#include "tools/qxpeak/run/detection.h"

#include <cstdio>

#include "qxpkutil/peaks/QXPeakTableElement.h"

namespace qxpkutil::qxpeak {

namespace {

// The resolution calculator works on a peak record; the fields it reads are the bounds.
std::int32_t ResolutionOf(const Trace& trace, const Peak& p, int percent) {
  QXPeakTableElement e;
  e.m_dApexX = p.apex_x;
  e.m_dApexY = p.apex_y;
  e.m_nApexIndex = static_cast<std::uint32_t>(p.apex_index);
  e.m_dLeftX = p.left_x;
  e.m_nLeftIndex = static_cast<std::uint32_t>(p.left_index);
  e.m_dRightX = p.right_x;
  e.m_nRightIndex = static_cast<std::uint32_t>(p.right_index);
  std::int32_t result = -1;
  e.DoResCalcOnPeak(trace.x.data(), trace.y.data(), percent, result);
  return result;
}

}  // namespace

TracePeaks SearchTrace(const Trace& trace, const DetectionConfig& config) {
  DetectOptions options = config.options;
  options.kind = trace.kind == Trace::Kind::kChromatogram ? SignalKind::kChromatogram
                                                          : SignalKind::kSpectrum;
  const bool centroided = config.centroided == CentroidedInput::kAuto
                              ? trace.centroided
                              : config.centroided == CentroidedInput::kYes;
  if (options.classic) {
    options.classic->SetCentroidSpecData(centroided ? 1 : 0);
  } else {
    options.centroided = centroided;
  }
  TracePeaks result;
  if (options.noise_region && !trace.x.empty()) {
    // A region without data would give S/N nothing to measure: an error, not an empty column.
    const auto [x1, x2] = *options.noise_region;
    if (x2 < trace.x.front() || x1 > trace.x.back()) {
      char text[160];
      std::snprintf(text, sizeof text, "the --sn range %g:%g lies outside the data (x %g to %g)",
                    x1, x2, trace.x.front(), trace.x.back());
      result.skipped = text;
      return result;
    }
  }
  PeakList found = qxpkutil::DetectPeaks(std::span<const double>(trace.x),
                                         std::span<const double>(trace.y), options);
  if (!found.ok()) {
    result.skipped = found.message;
    return result;
  }
  result.peaks = std::move(found.peaks);
  if (config.resolutionPercent) {
    result.resolution.assign(result.peaks.size(), -1);
    for (std::size_t i = 0; i < result.peaks.size(); ++i) {
      if (result.peaks[i].apex_y >= config.resolutionMinIntensity) {
        result.resolution[i] = ResolutionOf(trace, result.peaks[i], *config.resolutionPercent);
      }
    }
  }
  return result;
}

}  // namespace qxpkutil::qxpeak
