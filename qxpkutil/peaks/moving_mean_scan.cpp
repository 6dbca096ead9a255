// Peak finding by a moving-mean scan: QXPeakTable::FindPeaks (both array families).
//
// A window slides over one x range; a rise of its mean followed by a fall marks a peak,
// whose apex is the highest point of the rise and whose bounds are found by walking
// window means away from the apex. The scan's decisions hang on exact comparisons of
// window means, so it follows the established procedure step for step.
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "qxpkutil/fitting/QXNonLinFit.h"
#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

struct ScanSettings {
  double areaScale;
  double threshold;
  int filterType;
  int filterWidth;
  int filterInc;
  double minArea;
  int maxPeakWidth;
  double noiseThreshold;
  int integrationMethod;
};

enum class Direction { kLeftward, kRightward };

// One scan over one array family. Indices are 64-bit so that i + width never overflows.
template <class XValue, class YValue>
class MovingMeanScan {
 public:
  MovingMeanScan(const XValue* x, const YValue* y, std::uint32_t n, const ScanSettings& s)
      : m_x(x), m_y(y), m_n(n), m_s(s) {}

  // Appends the accepted peaks of first..last to `table`.
  void Run(QXPeakTable& table, std::int64_t first, std::int64_t last) const;

 private:
  double Y(std::int64_t i) const { return static_cast<double>(m_y[i]); }

  // Mean of the `filterWidth` intensities starting at i: Gaussian-weighted for filter type
  // 0, plain for any other type (the bound finder's rule; the scan itself computes no mean
  // for types other than 0 and 1).
  double WindowMean(std::int64_t i) const {
    return m_s.filterType == 0 ? QXDataExpUtils::NormGaussMean(m_y + i, m_s.filterWidth)
                               : QXDataExpUtils::Mean(m_y + i, m_s.filterWidth);
  }

  // Index of the lowest intensity in lo..hi: rightward the first of equal minima (lowest
  // index), leftward scanning down from hi and keeping the first found (highest index).
  std::int64_t LowestPoint(std::int64_t lo, std::int64_t hi, Direction dir) const;

  // Bound finder with the noise threshold `t`. `mean` is the scan's running mean, which the
  // finder overwrites: the scan carries that value on as its previous mean, on purpose.
  std::int64_t FindBound(Direction dir, std::int64_t start, std::int64_t apex,
                         std::int64_t limit, double t, double& mean) const;

  const XValue* m_x;
  const YValue* m_y;
  std::uint32_t m_n;
  ScanSettings m_s;
};

template <class XValue, class YValue>
std::int64_t MovingMeanScan<XValue, YValue>::LowestPoint(std::int64_t lo, std::int64_t hi,
                                               Direction dir) const {
  hi = std::min<std::int64_t>(hi, m_n - 1);
  if (lo > hi) return hi;  // nothing to search: stay inside the array
  if (dir == Direction::kRightward) {
    std::int64_t best = lo;
    for (std::int64_t k = lo + 1; k <= hi; ++k) {
      if (Y(k) < Y(best)) best = k;
    }
    return best;
  }
  std::int64_t best = hi;
  for (std::int64_t k = hi - 1; k >= lo; --k) {
    if (Y(k) < Y(best)) best = k;
  }
  return best;
}

template <class XValue, class YValue>
std::int64_t MovingMeanScan<XValue, YValue>::FindBound(Direction dir, std::int64_t start,
                                             std::int64_t apex, std::int64_t limit, double t,
                                             double& mean) const {
  const std::int64_t w = m_s.filterWidth;
  const std::int64_t inc = m_s.filterInc;
  double prev = start + w <= limit ? WindowMean(start) : 0.0;

  if (t <= 0.0) {
    // Walk until the window mean rises again.
    std::int64_t base = start;
    std::int64_t stopIndex = -1;
    for (std::int64_t i = start + inc; i <= limit - w; i += inc) {
      const double m = WindowMean(i);
      mean = m;
      if (m > prev) {
        stopIndex = i;
        base = i - inc;
        break;
      }
      prev = m;
      base = i;
    }
    if (stopIndex < 0) stopIndex = base + inc;
    if (dir == Direction::kRightward && (stopIndex < apex || base < apex)) base = apex;
    mean = prev;
    return LowestPoint(base, std::min(base + w, limit), dir);
  }

  if (dir == Direction::kLeftward) {
    // The middle of the first window whose mean moves by at least the noise threshold.
    for (std::int64_t i = start + inc; i + w <= limit; i += inc) {
      const double m = WindowMean(i);
      mean = m;
      const std::int64_t candidate = i + w / 2;
      if (std::fabs(prev - m) >= t && prev != m) return candidate;
      prev = m;
      if (i + inc + w > limit) return candidate;
    }
    return start;
  }

  // Rightward: from the plain bound, walk back towards the apex while the mean stays flat.
  const std::int64_t r = FindBound(Direction::kRightward, start, apex, limit, 0.0, mean);
  prev = mean;
  for (std::int64_t i = r - 1; i >= apex && i <= limit - w; i -= inc) {
    const double m = WindowMean(i);
    mean = m;
    const std::int64_t candidate = i + w / 2;
    if (std::fabs(prev - m) >= t && prev != m) return candidate;
    if (candidate < apex) return apex;
    prev = m;
    if (i - inc < apex) return candidate;
  }
  return r;
}

template <class XValue, class YValue>
void MovingMeanScan<XValue, YValue>::Run(QXPeakTable& table, std::int64_t first, std::int64_t last) const {
  const std::int64_t width = m_s.filterWidth;
  const std::int64_t inc = m_s.filterInc;
  double prevMean = kQXUnsetValue;
  double mean = 0.0;  // what a filter type without a mean compares
  bool rising = false;
  std::int64_t riseStart = 0;
  std::int64_t valley = -1;
  // Where the last peak sent the scan back to, with the mean it carried: meeting both again
  // means the scan would repeat itself forever, so it goes on forward instead.
  std::int64_t lastResume = -1;
  double lastResumeMean = 0.0;

  for (std::int64_t i = first; i <= last; i += inc) {
    const std::int64_t w = i + width;
    if (w > last) {
      if (rising) mean = prevMean - 1.0;  // forces the open rise to close
    } else if (m_s.filterType == 0 || m_s.filterType == 1) {
      mean = WindowMean(i);
    }

    if (mean <= prevMean) {
      if (!rising) valley = i;
      // A rise that starts at index 0 never becomes a peak; kept as it is.
      if (rising && riseStart > 0) {
        std::int64_t apex = riseStart;
        const std::int64_t apexEnd = std::min<std::int64_t>(w - 1, m_n - 1);
        for (std::int64_t k = riseStart + 1; k <= apexEnd; ++k) {
          if (Y(k) > Y(apex)) apex = k;
        }
        if (valley < 0) valley = first;
        const std::int64_t left =
            FindBound(Direction::kLeftward, valley, apex, apex, m_s.noiseThreshold, mean);
        riseStart = std::max(riseStart, left);
        const std::int64_t right =
            FindBound(Direction::kRightward, riseStart + 1, apex, last, m_s.noiseThreshold, mean);
        const double area =
            QXDataExpUtils::IntegrateSummedRegion(m_x, m_y, static_cast<std::int32_t>(left),
                                                  static_cast<std::int32_t>(right),
                                                  m_s.integrationMethod) *
            m_s.areaScale;
        const std::int64_t peakWidth = right - left - 1;
        if (right > apex && peakWidth >= width / 2 && peakWidth <= m_s.maxPeakWidth &&
            area >= m_s.minArea && Y(apex) >= m_s.threshold) {
          table.AddPeak(static_cast<double>(m_x[apex]), Y(apex), static_cast<std::uint32_t>(apex),
                        static_cast<double>(m_x[left]), Y(left), static_cast<std::uint32_t>(left),
                        static_cast<double>(m_x[right]), Y(right),
                        static_cast<std::uint32_t>(right), 0.0, area, 0.0, 0.0, 0.0, 0.0, 0);
        }
        valley = right;
        if (right != lastResume || mean != lastResumeMean) {
          lastResume = right;
          lastResumeMean = mean;
          i = right - inc;
        }
      }
      rising = false;
    } else if (m_s.threshold <= Y(std::min<std::int64_t>(i + width / 2, m_n - 1)) ||
               m_s.threshold <= mean) {
      // The rise start follows the latest rising window above the threshold.
      rising = true;
      riseStart = i;
    }
    prevMean = mean;
  }
}

// Checks the scan's preconditions on top of the range rule: a window of at least one
// point, a positive step, and indices that fit the 32-bit records.
bool ScanCanRun(std::int64_t first, std::int64_t last, std::uint32_t n, const ScanSettings& s) {
  return first >= 0 && first < last && last < static_cast<std::int64_t>(n) &&
         s.filterWidth >= 1 && s.filterInc >= 1 && s.filterWidth < last - first &&
         n <= static_cast<std::uint32_t>(INT32_MAX);
}

}  // namespace

std::int32_t QXPeakTable::FindPeaks(const double* x, const double* y, std::uint32_t n, double dAreaScale,
                            double dThreshold, int nFilterType, int nFilterWidth, int nFilterInc,
                            double dMinArea, int /*nReserved*/, int nMaxPeakWidth,
                            double dNoiseThreshold, double dCentroidPct, int nIntegrationMethod,
                            int bMassProcessing, int nMaxCharge, int nMaxIsotopes,
                            double dMinRatio, double dMaxRatio, int bFinish, double dStartX,
                            double dEndX, int bGaussFit) {
  if (x == nullptr || y == nullptr || n == 0) return -1;
  std::int64_t first = 0;
  std::int64_t last = static_cast<std::int64_t>(n) - 1;
  if (dStartX != 0.0 || dEndX != 0.0) {
    first = QXDataExpUtils::FindNearestIndex(x, n, dStartX);
    if (dEndX != 0.0) last = QXDataExpUtils::FindNearestIndex(x, n, dEndX);
  }
  const ScanSettings settings{dAreaScale,  dThreshold,    nFilterType,     nFilterWidth,
                              nFilterInc,  dMinArea,      nMaxPeakWidth,   dNoiseThreshold,
                              nIntegrationMethod};
  if (ScanCanRun(first, last, n, settings)) {
    MovingMeanScan<double, double>(x, y, n, settings).Run(*this, first, last);
  }
  m_nSortMethod = 0;  // peaks were appended in increasing x

  if (bFinish) {
    if (bMassProcessing) {
      CentroidPeaks(x, y, n, dCentroidPct);
      ProcessMassPeak(nMaxCharge, nMaxIsotopes, dMinRatio, dMaxRatio);
    }
    if (bGaussFit) QXNonLinFit::GaussFitPeakList(this, x, y, n);
  }
  return GetNumPeaks();
}

std::int32_t QXPeakTable::FindPeaks(const float* x, const std::uint32_t* y, std::uint32_t n,
                            double dAreaScale, double dThreshold, int nFilterType,
                            int nFilterWidth, int nFilterInc, double dMinArea, int /*nReserved*/,
                            int nMaxPeakWidth, double dNoiseThreshold, double dCentroidPct,
                            int nIntegrationMethod) {
  if (x == nullptr || y == nullptr || n == 0) return -1;
  const ScanSettings settings{dAreaScale,  dThreshold,    nFilterType,     nFilterWidth,
                              nFilterInc,  dMinArea,      nMaxPeakWidth,   dNoiseThreshold,
                              nIntegrationMethod};
  const std::int64_t last = static_cast<std::int64_t>(n) - 1;
  if (ScanCanRun(0, last, n, settings)) {
    MovingMeanScan<float, std::uint32_t>(x, y, n, settings).Run(*this, 0, last);
  }
  m_nSortMethod = 0;
  // This family always centroids, and never runs mass processing or Gaussian fits.
  if (dCentroidPct >= 0.0) CentroidPeaks(x, y, n, dCentroidPct);
  return GetNumPeaks();
}

}  // namespace qxpkutil
