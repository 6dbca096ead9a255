// Centroids and areas of the peaks already in a table: QXPeakTable::CentroidPeaks and
// QXPeakTable::IntegratePeaks.
#include <cstdint>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/numeric_internal.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/scan_internal.h"

namespace qxpkutil {
namespace {

// Centroids one peak with the region centroid; a peak whose region centroid fails gets the
// apex point as its centroid and as both ends of its centroid region.
template <class X, class Y>
void CentroidOne(QXPeakTableElement& p, const X* x, const Y* y, std::uint32_t n, double pct) {
  if (QXDataExpUtils::CentroidRegion(x, y, n, pct, p.m_nLeftIndex, p.m_nRightIndex,
                                     p.m_nApexIndex, p.m_dCentroidLeftX, p.m_dCentroidLeftY,
                                     p.m_dCentroidRightX, p.m_dCentroidRightY, p.m_dCentroidX)) {
    return;
  }
  if (p.m_nApexIndex >= n) return;  // a record that does not belong to these arrays
  const double apexX = static_cast<double>(x[p.m_nApexIndex]);
  const double apexY = static_cast<double>(y[p.m_nApexIndex]);
  p.m_dCentroidX = p.m_dCentroidLeftX = p.m_dCentroidRightX = apexX;
  p.m_dCentroidLeftY = p.m_dCentroidRightY = apexY;
}

// Centroids every peak in table order.
template <class X, class Y>
void CentroidAll(const std::vector<std::unique_ptr<QXPeakTableElement>>& peaks, const X* x,
                 const Y* y, std::uint32_t n, double pct) {
  if (x == nullptr || y == nullptr) return;
  // The points of a peak have left the cache since the search: those of a peak a few places
  // ahead are fetched while one is measured.
  constexpr std::size_t kAhead = 8;
  for (std::size_t k = 0; k < peaks.size(); ++k) {
    if (k + kAhead < peaks.size()) {
      const QXPeakTableElement& ahead = *peaks[k + kAhead];
      if (ahead.m_nLeftIndex <= ahead.m_nRightIndex && ahead.m_nRightIndex < n) {
        numeric_detail::PrefetchSpan(x + ahead.m_nLeftIndex, x + ahead.m_nRightIndex);
        numeric_detail::PrefetchSpan(y + ahead.m_nLeftIndex, y + ahead.m_nRightIndex);
      }
    }
    CentroidOne(*peaks[k], x, y, n, pct);
  }
}

}  // namespace

void peaks_detail::CentroidPeak(QXPeakTableElement& peak, const double* x, const double* y,
                                std::uint32_t n, double pct) {
  if (x != nullptr && y != nullptr) CentroidOne(peak, x, y, n, pct);
}

void QXPeakTable::CentroidPeaks(const double* x, const double* y, std::uint32_t n,
                                double dCentroidPct) {
  CentroidAll(m_arrPeaks, x, y, n, dCentroidPct);
}

void QXPeakTable::CentroidPeaks(const float* x, const std::uint32_t* y, std::uint32_t n,
                                double dCentroidPct) {
  CentroidAll(m_arrPeaks, x, y, n, dCentroidPct);
}

void QXPeakTable::IntegratePeaks(const double* x, const double* y, int nBaselineMode) {
  if (x == nullptr || y == nullptr) return;
  // The area is a plain sum of intensities above the baseline, on purpose: the summed
  // region integral with a line (mode 1) or flat baseline is exactly that.
  for (const auto& p : m_arrPeaks) {
    p->m_dArea = QXDataExpUtils::IntegrateSummedRegion(
        x, y, static_cast<std::int32_t>(p->m_nLeftIndex),
        static_cast<std::int32_t>(p->m_nRightIndex), nBaselineMode);
  }
}

}  // namespace qxpkutil
