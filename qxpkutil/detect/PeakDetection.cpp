#include "qxpkutil/detect/PeakDetection.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>

#include "qxpkutil/detect/detect_internal.h"
#include "qxpkutil/detect/gauss_refine_internal.h"
#include "qxpkutil/numeric/trace_scan.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/settings/PeakCalc.h"

namespace qxpkutil {

namespace {


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
  if (nx > kQXMaxPoints) {
    return Failure(DetectStatus::kBadInput,
                   "more than " + std::to_string(kQXMaxPoints) + " points");
  }
  return {};
}

PeakList ValidateTrace(std::span<const double> x, std::span<const double> y) {
  PeakList sizes = ValidateSizes(x.size(), y.size());
  if (!sizes.ok()) return sizes;
  const TraceScan scan = ScanTrace(x.data(), y.data(), x.size());
  char text[160];
  if (scan.first_not_finite < x.size() && scan.first_not_finite <= scan.first_fall) {
    const std::size_t i = scan.first_not_finite;
    std::snprintf(text, sizeof text, "point %zu is not a finite number (x %g, y %g)", i + 1, x[i],
                  y[i]);
    return Failure(DetectStatus::kNotFinite, text);
  }
  if (scan.first_fall < x.size()) {
    const std::size_t i = scan.first_fall;
    std::snprintf(text, sizeof text, "x is not ascending: point %zu (x %.10g) comes after x %.10g",
                  i + 1, x[i], x[i - 1]);
    return Failure(DetectStatus::kNotAscending, text);
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
    peaks[i].snr = table.GetPeak(static_cast<std::int32_t>(i))
                       ->DoSigToNoiseOnPeak(sn.GetBaseline(), sn.GetNoise());
  }
}

void FinishPeaks(std::span<const double> x, std::span<const double> y,
                 const DetectOptions& options, std::vector<Peak>& peaks) {
  if (peaks.empty() || (!options.labels && !options.noise_region)) return;
  QXPeakTable table;
  for (const Peak& p : peaks) {
    const auto a = static_cast<std::uint32_t>(p.apex_index);
    const auto l = static_cast<std::uint32_t>(p.left_index);
    const auto r = static_cast<std::uint32_t>(p.right_index);
    table.AddPeak(p.apex_x, p.apex_y, a, p.left_x, y[l], l, p.right_x, y[r], r, p.centroid_x,
                  p.area, p.centroid_x, p.apex_y, p.centroid_x, p.apex_y, p.charge);
  }
  MatchLabels(options, table, true);
  for (std::size_t i = 0; i < peaks.size(); ++i) {
    const QXPeakTableElement& e = *table.GetPeak(static_cast<std::int32_t>(i));
    peaks[i].label = e.m_strLabel;
    if (e.m_dwFlags & kQXPeakLabelled) peaks[i].marks |= kQXPeakLabelled;
  }
  if (options.noise_region) RegionSignalToNoise(x, y, *options.noise_region, table, peaks);
}

bool ParseFwhm(const std::string& text, DetectOptions& options, std::string& error) {
  // "<width>[unit][@<x>]": units s, min, ppm; a bare number is in x units.
  const std::size_t at = text.find('@');
  std::string width = text.substr(0, at);
  double where = 0.0;
  if (at != std::string::npos) {
    if (!QXParseDouble(std::string_view(text).substr(at + 1), where) || where <= 0.0) {
      error = "'" + text + "' is not a width: the x after @ must be a positive number";
      return false;
    }
  }
  double scale = 1.0;
  bool ppm = false;
  auto strip = [&](const char* unit, double factor) {
    const std::size_t len = std::char_traits<char>::length(unit);
    if (width.size() > len && width.compare(width.size() - len, len, unit) == 0) {
      width.resize(width.size() - len);
      scale = factor;
      return true;
    }
    return false;
  };
  if (strip("ppm", 1e-6)) {
    ppm = true;
  } else if (!strip("min", 60.0)) {
    strip("s", 1.0);
  }
  double value = 0.0;
  if (!QXParseDouble(width, value) || value <= 0.0) {
    error = "'" + text + "' is not a width: expected a positive number with an optional unit "
            "(s, min, ppm) and @x, as in 0.01@400, 4s or 20ppm";
    return false;
  }
  if (ppm) {
    // A width in ppm is relative to x: constant resolving power.
    const double ref = where > 0.0 ? where : 1000.0;
    options.fwhm = value * scale * ref;
    options.fwhm_at = ref;
    options.width_law = WidthLaw::kTof;
  } else {
    options.fwhm = value * scale;
    options.fwhm_at = where;
  }
  return true;
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
  // The automatic mode checks the values on its first pass over them.
  PeakList checked = options.classic ? ValidateTrace(x, y) : ValidateSizes(x.size(), y.size());
  if (!checked.ok()) return checked;
  PeakList found = options.classic ? DetectClassic(x, y, options) : DetectAutomatic(x, y, options);
  if (found.ok() && options.gauss_refine) RefineCentroidsByGaussFit(x, y, found.peaks);
  return found;
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
