// Centroids and areas of the peaks already in a table: QXPeakTable::CentroidPeaks and
// QXPeakTable::IntegratePeaks.
#include <cstdint>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/peaks/QXPeakTable.h"

namespace qxpkutil {
namespace {

// Centroids every peak with the region centroid; a peak whose region centroid fails gets
// the apex point as its centroid and as both ends of its centroid region.
template <class X, class Y>
void CentroidAll(const std::vector<std::unique_ptr<QXPeakTableElement>>& peaks, const X* x,
                 const Y* y, std::uint32_t n, double pct) {
  if (x == nullptr || y == nullptr) return;
  for (std::size_t k = 0; k < peaks.size(); ++k) {
    QXPeakTableElement& p = *peaks[k];
    // The points around the next apex have left the cache since the search: fetch them
    // while this peak is measured.
    if (k + 1 < peaks.size() && peaks[k + 1]->m_nApexIndex < n) {
      __builtin_prefetch(x + peaks[k + 1]->m_nApexIndex);
      __builtin_prefetch(y + peaks[k + 1]->m_nApexIndex);
    }
    if (QXDataExpUtils::CentroidRegion(x, y, n, pct, p.m_nLeftIndex, p.m_nRightIndex,
                                       p.m_nApexIndex, p.m_dCentroidLeftX, p.m_dCentroidLeftY,
                                       p.m_dCentroidRightX, p.m_dCentroidRightY,
                                       p.m_dCentroidX)) {
      continue;
    }
    if (p.m_nApexIndex >= n) continue;  // a record that does not belong to these arrays
    const double apexX = static_cast<double>(x[p.m_nApexIndex]);
    const double apexY = static_cast<double>(y[p.m_nApexIndex]);
    p.m_dCentroidX = p.m_dCentroidLeftX = p.m_dCentroidRightX = apexX;
    p.m_dCentroidLeftY = p.m_dCentroidRightY = apexY;
  }
}

}  // namespace

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
