// The detection driver of QXPeakTableList: FindPeaks, ComputeMaxPeakArea and
// ComputeBasePeakArea.
//
// Every segment derives its intensity threshold and minimum area from the data's height and
// the largest peak area that a trial search finds, then searches its own x range into one
// table: the moving-mean scan, the divisor search or the stick builder of QXPeakTable. The
// peaks of all segments accumulate; the first segment clears the table and the last one runs
// the finishing step (centroids, charge states, Gaussian fits).
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "qxpkutil/numeric/QXWaveletAnalysis.h"
#include "qxpkutil/numeric/numeric_internal.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/peaks/scan_internal.h"
#include "qxpkutil/platform/QXTypes.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil {
namespace {

constexpr std::int32_t kNoSearch = -2;
// The automatic noise threshold is this fraction of the white-noise level.
constexpr double kAutoNoiseFactor = 0.75;
// A trial search that finds nothing is repeated with this peak-width limit.
constexpr int kTrialRetryMaxPeakWidth = 10000;
// The base-peak trial search only looks at peaks reaching this fraction of its height.
constexpr double kBasePeakHeightFraction = 0.8;

using numeric_detail::AllFinite;
using numeric_detail::RangeIfFinite;
using numeric_detail::ValueRange;

// Data a search can run on: both arrays present, at least one point, every value finite.
bool UsableData(const double* x, const double* y, std::uint32_t n) {
  return x != nullptr && y != nullptr && n > 0 && AllFinite(x, n) && AllFinite(y, n);
}

std::optional<double> AutoNoise(int autoSNCalc, const double* y, std::uint32_t n) {
  if (!autoSNCalc) return std::nullopt;
  return kAutoNoiseFactor * QXWaveletAnalysis::CalcWhiteNoiseLevel(y, n);
}

// One trial search of segment `s` into `table` with filter increment 1, no finishing step and
// no Gaussian fit; when it finds nothing it runs again with the widest peak-width limit.
// Returns the table's peak count.
std::int32_t TrialSearch(QXPeakTable& table, const double* x, const double* y, std::uint32_t n,
                         double areaScale, double threshold, const QXPeakDetectSetting& s,
                         int massProcessing, double startX, double endX) {
  const auto search = [&](int maxPeakWidth) {
    return table.FindPeaks(
        x, y, n, areaScale, threshold, s.GetFilterType(), s.GetFilterWidth(), 1, s.GetMinPeakArea(),
        s.GetMinPeakWidth(), maxPeakWidth, s.GetNoiseThreshold(), s.GetPctCentroid(),
        s.GetIntegratedMethod(), massProcessing, s.GetMaxCharge(), s.GetMaxIsotope(),
        s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity(), 0, startX, endX, 0);
  };
  const std::int32_t found = search(s.GetMaxPeakWidth());
  return found > 0 ? found : search(kTrialRetryMaxPeakWidth);
}

// The intensity threshold of segment `s`'s search: RelThreshold percent of the data's
// height above its floor minY, or AbsThreshold when that is higher.
double SearchThreshold(const QXPeakDetectSetting& s, double yMax, double minY) {
  return std::max(s.GetRelThreshold() * 0.01 * (yMax - minY) + minY, s.GetAbsThreshold());
}

// The x range that segment `index` searches: an empty first range means the whole data;
// later empty ranges stay empty. (Trial searches take every range as it is.)
std::pair<double, double> SearchRange(const QXPeakDetectSetting& s, std::int32_t index) {
  if (index == 0 && s.GetRangeX1() == s.GetRangeX2()) return {0.0, 0.0};
  return {s.GetRangeX1(), s.GetRangeX2()};
}

// The moving-mean scan of segment `s` with these arguments, as QXPeakTable::FindPeaks
// takes them.
peaks_detail::ScanRequest ScanOf(const QXPeakDetectSetting& s, double areaScale, double threshold,
                                 int inc, double minArea, int maxPeakWidth,
                                 std::pair<double, double> range) {
  return {areaScale,   threshold,    s.GetFilterType(),     s.GetFilterWidth(),      inc,
          minArea,     maxPeakWidth, s.GetNoiseThreshold(), s.GetIntegratedMethod(), range.first,
          range.second};
}

// The data's height and floor, from which the searches beside the trials take thresholds
// (FindPeaks passes the floor 0.0 while the data's lowest value is not known yet).
struct SearchLevels {
  double yMax;
  double minY;
};

// What a trial pass over the whole array learnt of the data on its way (ScanSummary).
struct DataChecks {
  bool tested = false;
  bool xFinite = false;
  std::optional<ValueRange> yRange;
};

// The largest area that a trial search of each segment over its own range finds, at the
// segment's absolute threshold and minimum area; 0.0 when none finds a peak. `noise`, when
// set, is every segment's noise threshold (the settings are left as they are). The trial's
// peaks are only counted
// and their areas compared, never stored: a trial without finishing step leaves nothing
// else behind, so this is what searching into a scratch table would give. With `levels`,
// each scan segment's own search runs beside its trial, for FindPeaks to replay. Until
// `checks` is tested, such a pass tests x and measures y (ScanSummary::dataTested) into it.
double LargestTrialArea(const std::vector<QXPeakDetectSetting>& segments, const double* x,
                        const double* y, std::uint32_t n, double areaScale,
                        std::optional<double> noise, const SearchLevels* levels,
                        DataChecks& checks) {
  double largest = 0.0;
  for (std::size_t i = 0; i < segments.size(); ++i) {
    QXPeakDetectSetting s = segments[i];
    if (noise) s.SetNoiseThreshold(*noise);
    const auto trialOf = [&](int maxPeakWidth) {
      return ScanOf(s, areaScale, s.GetAbsThreshold(), 1, s.GetMinPeakArea(), maxPeakWidth,
                    {s.GetRangeX1(), s.GetRangeX2()});
    };
    std::optional<peaks_detail::ScanRequest> search;
    if (levels != nullptr && s.GetDivisor() == kQXUnsetValue) {
      search = ScanOf(s, areaScale, SearchThreshold(s, levels->yMax, levels->minY),
                      s.GetFilterInc(), s.GetMinPeakArea(), s.GetMaxPeakWidth(),
                      SearchRange(s, static_cast<std::int32_t>(i)));
    }
    peaks_detail::ScanSummary trial = peaks_detail::SummariseScan(
        x, y, n, trialOf(s.GetMaxPeakWidth()), search ? &*search : nullptr, !checks.tested);
    if (trial.dataTested && !checks.tested) checks = {true, trial.xFinite, trial.yRange};
    if (trial.found <= 0) {
      trial = peaks_detail::SummariseScan(x, y, n, trialOf(kTrialRetryMaxPeakWidth), nullptr);
    }
    largest = std::max(largest, trial.largestArea);
  }
  return largest;
}

// True when no area of a trial search can overflow to infinity: every area is a sum of at
// most n intensities (within `range`) less a baseline that stays within them, scaled.
bool AreasStayFinite(ValueRange range, std::uint32_t n, double areaScale) {
  const double largest = std::max(std::fabs(range.lowest), std::fabs(range.highest));
  return 2.0 * static_cast<double>(n) * largest * std::fabs(areaScale) < 1e300;
}

// Segments that overlap or come out of x order leave the table out of apex-x order although
// the finders mark it as sorted by apex x. A stable sort restores the order, so that a peak
// found by two segments has its copies side by side and the later segment's copy is the one
// that duplicate removal keeps.
void RestoreApexXOrder(QXPeakTable& table) {
  const std::int32_t count = table.GetNumPeaks();
  bool ordered = true;
  for (std::int32_t i = 1; i < count && ordered; ++i) {
    ordered = !(table.GetPeak(i)->m_dApexX < table.GetPeak(i - 1)->m_dApexX);
  }
  if (ordered) return;
  std::vector<std::unique_ptr<QXPeakTableElement>> peaks(static_cast<std::size_t>(count));
  for (auto slot = peaks.rbegin(); slot != peaks.rend(); ++slot) *slot = table.RemovePeak(-1);
  std::stable_sort(peaks.begin(), peaks.end(),
                   [](const auto& a, const auto& b) { return a->m_dApexX < b->m_dApexX; });
  for (auto& peak : peaks) table.AddPeak(peak.release());
}

}  // namespace

std::int32_t QXPeakTableList::FindPeaks(const double* x, const double* y, std::uint32_t n,
                                        double yMax, double dAreaScale, std::int32_t table) {
  QXPeakTable* target = GetPeakTableFromList(table);
  if (target == nullptr || x == nullptr || y == nullptr || n == 0 || !std::isfinite(yMax) ||
      !std::isfinite(dAreaScale)) {
    return kNoSearch;
  }
  // Only scan segments take a minimum area derived from the largest trial area, and only
  // through a non-zero area percentage (a finite largest area times 0 is 0). Without such
  // a segment the trial searches would change nothing.
  const bool areaMatters =
      !m_bCentroidSpecData &&
      std::any_of(m_arrDetectSettings.begin(), m_arrDetectSettings.end(),
                  [](const QXPeakDetectSetting& s) {
                    return s.GetDivisor() == kQXUnsetValue && !(s.GetPctPeakArea() == 0.0);
                  });
  // Non-finite data stop the call before it changes anything. The trials change nothing,
  // so a trial pass over the whole array tests x and measures y along the way, beside its
  // window means, instead of passes of their own; otherwise they are tested apart.
  // Thresholds are measured from 0.0, or from the lowest point when the data dip below it:
  // until that point is known, the searches beside the trials take 0.0, and one that
  // proves wrong scans for itself (its kept peaks are those of another threshold).
  std::optional<ValueRange> range;
  if (!areaMatters) {
    range = RangeIfFinite(y, n);
    if (!range) return kNoSearch;
  }
  const std::optional<double> noise = AutoNoise(m_bAutoSNCalc, y, n);
  // The trial searches and the real ones run the same windows over the same data.
  const peaks_detail::SharedWindowMeans sharedMeans(y, n);
  const SearchLevels levels{yMax, range ? std::min(0.0, range->lowest) : 0.0};
  DataChecks checks;
  const double maxArea =
      areaMatters || (!m_bCentroidSpecData && !AreasStayFinite(*range, n, dAreaScale))
          ? LargestTrialArea(m_arrDetectSettings, x, y, n, dAreaScale, noise, &levels, checks)
          : 0.0;
  if (!range) range = checks.tested ? checks.yRange : RangeIfFinite(y, n);
  if (!range) return kNoSearch;
  if (checks.tested ? !checks.xFinite : !AllFinite(x, n)) return kNoSearch;
  const double minY = std::min(0.0, range->lowest);

  const std::int32_t count = GetNumDetectionSettings();
  for (std::int32_t i = 0; i < count; ++i) {
    QXPeakDetectSetting& s = m_arrDetectSettings[static_cast<std::size_t>(i)];
    double threshold = SearchThreshold(s, yMax, minY);
    const double areaBase = m_bCentroidSpecData ? yMax : maxArea;
    const double minArea = std::max(areaBase * s.GetPctPeakArea() * 0.01, s.GetMinPeakArea());
    // A stick's area is its intensity, so for centroided data the minimum area is a
    // threshold too.
    if (m_bCentroidSpecData && threshold <= minArea) threshold = minArea;
    if (noise) s.SetNoiseThreshold(*noise);
    m_bSettingsChanged = 0;

    const auto [startX, endX] = SearchRange(s, i);
    if (i == 0) target->DeleteAllPeaks();
    const int finish = i == count - 1 ? 1 : 0;

    if (s.GetDivisor() != kQXUnsetValue) {
      target->FindPeaks(x, y, n, threshold, s.GetDivisor(), s.GetPctCentroid(),
                        s.GetIntegratedMethod(), m_bMassProcessing, s.GetMaxCharge(),
                        s.GetMaxIsotope(), s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity(),
                        finish, startX, endX, m_bGaussFit);
    } else if (m_bCentroidSpecData) {
      target->BuildCentroidPeakTable(x, y, n, threshold, s.GetMaxCharge(), s.GetMaxIsotope(),
                                     s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity(), finish,
                                     startX, endX);
    } else {
      // The segment's MinPeakWidth goes into the finder's reserved slot, which the scan does
      // not read; AutoPeakWidth is not passed at all.
      target->FindPeaks(x, y, n, dAreaScale, threshold, s.GetFilterType(), s.GetFilterWidth(),
                        s.GetFilterInc(), minArea, s.GetMinPeakWidth(), s.GetMaxPeakWidth(),
                        s.GetNoiseThreshold(), s.GetPctCentroid(), s.GetIntegratedMethod(),
                        m_bMassProcessing, s.GetMaxCharge(), s.GetMaxIsotope(),
                        s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity(), finish, startX, endX,
                        m_bGaussFit);
    }
  }

  RestoreApexXOrder(*target);
  target->RemoveDuplicatedPeaks();
  // Marks the table as sorted by apex x; its apexes are now strictly increasing, so the
  // order stays as it is.
  target->SortPeakTable(0);
  return static_cast<std::int32_t>(target->GetNumPeaks());
}

double QXPeakTableList::ComputeMaxPeakArea(const double* x, const double* y, std::uint32_t n,
                                           double dAreaScale) {
  if (!UsableData(x, y, n) || !std::isfinite(dAreaScale)) return 0.0;
  const peaks_detail::SharedWindowMeans sharedMeans(y, n);
  const std::optional<double> noise = AutoNoise(m_bAutoSNCalc, y, n);
  if (noise) {
    for (QXPeakDetectSetting& s : m_arrDetectSettings) s.SetNoiseThreshold(*noise);
  }
  DataChecks checks{true, true, std::nullopt};  // UsableData tested the data
  return LargestTrialArea(m_arrDetectSettings, x, y, n, dAreaScale, noise, nullptr, checks);
}

double QXPeakTableList::ComputeBasePeakArea(const double* x, const double* y, std::uint32_t n,
                                            double d1, double d2) {
  if (m_arrDetectSettings.empty() || !UsableData(x, y, n) || !std::isfinite(d1) ||
      !std::isfinite(d2)) {
    return 0.0;
  }
  // The segment is chosen by the data's lowest point (the first of equals), not its highest:
  // an odd choice, kept as it is.
  const double lowX = x[std::min_element(y, y + n) - y];
  auto segment = std::find_if(m_arrDetectSettings.begin(), m_arrDetectSettings.end(),
                              [lowX](const QXPeakDetectSetting& s) {
                                return s.GetRangeX1() <= lowX && lowX <= s.GetRangeX2();
                              });
  if (segment == m_arrDetectSettings.end()) segment = m_arrDetectSettings.begin();
  if (const std::optional<double> noise = AutoNoise(m_bAutoSNCalc, y, n)) {
    segment->SetNoiseThreshold(*noise);
  }

  QXPeakTable trial;
  if (TrialSearch(trial, x, y, n, d2, kBasePeakHeightFraction * d1, *segment, m_bMassProcessing,
                  0.0, 0.0) <= 0) {
    return 0.0;
  }
  trial.SortPeakTable(1);  // ascending apex intensity: the base peak comes last
  return trial.GetPeak(-1)->m_dArea;
}

}  // namespace qxpkutil
