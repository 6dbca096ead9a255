#include "qxpkutil/detect/PeakDetection.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "qxpkutil/detect/detect_internal.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/settings/PeakCalc.h"

namespace qxpkutil {

namespace {

// The library indexes points with signed 32-bit numbers.
constexpr std::size_t kMaxPoints = 0x7fffffff;

PeakList Failure(DetectStatus status, std::string message) {
  PeakList list;
  list.status = status;
  list.message = std::move(message);
  return list;
}

}  // namespace

PeakList ValidateSizes(std::size_t nx, std::size_t ny) {
  if (nx != ny) {
    char text[96];
    std::snprintf(text, sizeof text, "x has %zu values but y has %zu", nx, ny);
    return Failure(DetectStatus::kBadInput, text);
  }
  if (nx > kMaxPoints) return Failure(DetectStatus::kBadInput, "more than 2147483647 points");
  return {};
}

PeakList ValidateTrace(std::span<const double> x, std::span<const double> y) {
  PeakList sizes = ValidateSizes(x.size(), y.size());
  if (!sizes.ok()) return sizes;
  char text[160];
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (!std::isfinite(x[i]) || !std::isfinite(y[i])) {
      std::snprintf(text, sizeof text, "point %zu is not a finite number (x %g, y %g)", i + 1,
                    x[i], y[i]);
      return Failure(DetectStatus::kNotFinite, text);
    }
    if (i > 0 && x[i] < x[i - 1]) {
      std::snprintf(text, sizeof text,
                    "x is not ascending: point %zu (x %.10g) comes after x %.10g", i + 1, x[i],
                    x[i - 1]);
      return Failure(DetectStatus::kNotAscending, text);
    }
  }
  return {};
}

Peak PeakFromRecord(const QXPeakTableElement& e, bool centroid) {
  Peak p;
  p.apex_x = e.m_dApexX;
  p.apex_y = e.m_dApexY;
  p.centroid_x = centroid ? e.m_dCentroidX : kNotMeasured;
  p.left_x = e.m_dLeftX;
  p.right_x = e.m_dRightX;
  p.apex_index = static_cast<std::int32_t>(e.m_nApexIndex);
  p.left_index = static_cast<std::int32_t>(e.m_nLeftIndex);
  p.right_index = static_cast<std::int32_t>(e.m_nRightIndex);
  p.area = e.m_dArea;
  p.charge = e.m_nCharge;
  p.marks = e.m_dwFlags;
  p.label = e.m_strLabel;
  return p;
}

void MatchLabels(const DetectOptions& options, QXPeakTable& table, bool centroids) {
  if (!options.labels || table.GetNumPeaks() == 0) return;
  // Matching clears the label list's changed flag, so each search matches with its own copy.
  QXUserPkLabels labels(*options.labels);
  table.MatchUserPeakLabels(&labels, centroids ? 1 : 0, kQXFilterAll, nullptr);
}

// The calculator's S/N: baseline and noise measured over the user's x range.
void RegionSignalToNoise(std::span<const double> x, std::span<const double> y,
                         const std::pair<double, double>& region, QXPeakTable& table,
                         std::vector<Peak>& peaks) {
  SNPeakCalc sn;
  sn.SetBaselineX1(region.first);
  sn.SetBaselineX2(region.second);
  const auto n = static_cast<std::uint32_t>(x.size());
  if (peaks.empty() || table.DoSignalToNoiseOnList(x.data(), y.data(), n, &sn) == 0) return;
  for (std::size_t i = 0; i < peaks.size(); ++i) {
    peaks[i].noise = sn.GetNoise();
    peaks[i].snr = table.GetPeak(static_cast<std::int32_t>(i))->DoSigToNoiseOnPeak(sn.GetBaseline(),
                                                                           sn.GetNoise());
  }
}

namespace {

PeakList DetectClassic(std::span<const double> x, std::span<const double> y,
                       const DetectOptions& options) {
  PeakList result;
  QXPeakTableList list(*options.classic);
  list.DeleteAllPeakTables();
  list.AddPeakTableToList();
  const auto n = static_cast<std::uint32_t>(x.size());
  if (n > 0) {
    const double yMax = *std::max_element(y.begin(), y.end());
    // Areas are plain sums of intensities, unscaled.
    list.FindPeaks(x.data(), y.data(), n, yMax, 1.0, 0);
  }
  QXPeakTable& table = *list.GetPeakTableFromList(0);
  const bool centroids = list.CentroidSpecData() != 0 || list.MassProcessingOn() != 0;
  MatchLabels(options, table, centroids);
  result.report.segments = list.GetNumDetectionSettings();
  const std::int32_t count = table.GetNumPeaks();
  result.peaks.reserve(static_cast<std::size_t>(count));
  for (std::int32_t i = 0; i < count; ++i) {
    result.peaks.push_back(PeakFromRecord(*table.GetPeak(i), centroids));
  }
  MeasurePeakShapes(x, y, result.peaks);
  if (options.noise_region) RegionSignalToNoise(x, y, *options.noise_region, table, result.peaks);
  return result;
}

}  // namespace

PeakList DetectPeaks(std::span<const double> x, std::span<const double> y,
                     const DetectOptions& options) {
  PeakList checked = ValidateTrace(x, y);
  if (!checked.ok()) return checked;
  if (options.classic) return DetectClassic(x, y, options);
  return DetectAutomatic(x, y, options);
}

PeakList DetectPeaks(std::span<const float> x, std::span<const std::uint32_t> y,
                     const DetectOptions& options) {
  PeakList sizes = ValidateSizes(x.size(), y.size());
  if (!sizes.ok()) return sizes;
  std::vector<double> wideX(x.begin(), x.end());
  std::vector<double> wideY(y.begin(), y.end());
  return DetectPeaks(std::span<const double>(wideX), std::span<const double>(wideY), options);
}

}  // namespace qxpkutil
