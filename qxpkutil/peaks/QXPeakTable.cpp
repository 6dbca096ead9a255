#include "qxpkutil/peaks/QXPeakTable.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/platform/QXAtomicFile.h"
#include "qxpkutil/platform/QXFormat.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

const QXRuntimeClass QXPeakTable::classQXPeakTable{"QXPeakTable", kQXNoSchema,
                                                   &QXObject::classQXObject};

QXPeakTable::QXPeakTable() { m_arrPeaks.reserve(250); }

QXPeakTable::QXPeakTable(const QXPeakTable& src) : QXObject(src) { *this = src; }

QXPeakTable::~QXPeakTable() = default;

QXPeakTable& QXPeakTable::operator=(const QXPeakTable& src) {
  if (!src.IsKindOf(&classQXPeakTable) || &src == this) return *this;
  DeleteAllPeaks();
  m_nSortMethod = src.m_nSortMethod;
  m_arrPeaks.reserve(src.m_arrPeaks.size());
  for (const auto& peak : src.m_arrPeaks) {
    m_arrPeaks.push_back(std::make_unique<QXPeakTableElement>(*peak));
  }
  return *this;
}

void QXPeakTable::CopyPeakTable(const QXPeakTable* src) {
  if (src == nullptr || src == this) return;
  *this = *src;
}

std::int32_t QXPeakTable::ResolveIndex(std::int32_t index) const {
  const std::int32_t count = GetNumPeaks();
  if (index == -1) return count > 0 ? count - 1 : -1;
  return (index >= 0 && index < count) ? index : -1;
}

void QXPeakTable::AddPeak(const QXPeakTableElement& peak) {
  m_arrPeaks.push_back(std::make_unique<QXPeakTableElement>(peak));
  m_nSortMethod = -1;
}

void QXPeakTable::AddPeak(QXPeakTableElement* peak) {
  if (peak == nullptr) return;
  m_arrPeaks.emplace_back(peak);
  m_nSortMethod = -1;
}

void QXPeakTable::AddPeak(double apexX, double apexY, std::uint32_t apexIndex, double leftX,
                          double leftY, std::uint32_t leftIndex, double rightX, double rightY,
                          std::uint32_t rightIndex, double centroidX, double area,
                          double centroidLeftX, double centroidLeftY, double centroidRightX,
                          double centroidRightY, int charge) {
  m_arrPeaks.push_back(std::make_unique<QXPeakTableElement>(
      apexX, apexY, apexIndex, leftX, leftY, leftIndex, rightX, rightY, rightIndex, centroidX,
      area, centroidLeftX, centroidLeftY, centroidRightX, centroidRightY, charge));
  m_nSortMethod = -1;
}

void QXPeakTable::SetPeak(double apexX, double apexY, std::uint32_t apexIndex, double leftX,
                          double leftY, std::uint32_t leftIndex, double rightX, double rightY,
                          std::uint32_t rightIndex, double centroidX, double area,
                          double centroidLeftX, double centroidLeftY, double centroidRightX,
                          double centroidRightY, int charge, std::int32_t index) {
  const std::int32_t i = ResolveIndex(index);
  if (i < 0) return;
  m_arrPeaks[i]->SetElement(apexX, apexY, apexIndex, leftX, leftY, leftIndex, rightX, rightY,
                            rightIndex, centroidX, area, centroidLeftX, centroidLeftY,
                            centroidRightX, centroidRightY, charge);
}

QXPeakTableElement* QXPeakTable::GetPeak(std::int32_t index) const {
  const std::int32_t i = ResolveIndex(index);
  return i < 0 ? nullptr : m_arrPeaks[i].get();
}

std::unique_ptr<QXPeakTableElement> QXPeakTable::RemovePeak(std::int32_t index) {
  const std::int32_t i = ResolveIndex(index);
  if (i < 0) return nullptr;
  std::unique_ptr<QXPeakTableElement> peak = std::move(m_arrPeaks[i]);
  m_arrPeaks.erase(m_arrPeaks.begin() + i);
  return peak;
}

int QXPeakTable::DeletePeak(std::int32_t index) {
  const std::int32_t i = ResolveIndex(index);
  if (i < 0) return 0;
  m_arrPeaks.erase(m_arrPeaks.begin() + i);
  return 1;
}

void QXPeakTable::DeleteAllPeaks() {
  // Deleted from the last to the first, as callers holding raw pointers may expect.
  while (!m_arrPeaks.empty()) m_arrPeaks.pop_back();
}

int QXPeakTable::GetPeakApex(double* x, double* y, std::int32_t index) const {
  const std::int32_t i = ResolveIndex(index);
  if (i < 0) return 0;
  if (x != nullptr) *x = m_arrPeaks[i]->m_dApexX;
  if (y != nullptr) *y = m_arrPeaks[i]->m_dApexY;
  return 1;
}

QXPeakTableElement* QXPeakTable::GetNextFilteredPeak(std::uint32_t flags,
                                                     const tagQXPeakFilterStruct* filter) {
  const std::int32_t count = GetNumPeaks();
  if (m_nFilterPos < 0) m_nFilterPos = 0;
  while (m_nFilterPos < count) {
    QXPeakTableElement* peak = m_arrPeaks[m_nFilterPos++].get();
    if (peak->DoesPeakMatchCriteria(flags, filter)) return peak;
  }
  return nullptr;
}

std::int32_t QXPeakTable::GetPeakNearest(double x, int bCentroid) {
  const std::int32_t count = GetNumPeaks();
  if (count == 0) return -1;
  // Apex-x order even for centroid keys: centroids are assumed to follow their apexes.
  SortPeakTable(0);
  std::int32_t lo = -1;
  std::int32_t hi = count;
  while (hi - lo != 1) {
    const std::int32_t mid = (lo + hi) / 2;
    if (x < m_arrPeaks[mid]->GetXVal(bCentroid)) {
      hi = mid;
    } else {
      lo = mid;
    }
  }
  if (lo < 0) lo = 0;
  if (lo == count - 1) return lo;
  const double below = std::fabs(x - m_arrPeaks[lo]->GetXVal(bCentroid));
  const double above = std::fabs(x - m_arrPeaks[lo + 1]->GetXVal(bCentroid));
  return below <= above ? lo : lo + 1;
}

bool QXPeakTable::FindRangeIndices(double& x1, double& x2, int bCentroid, std::int32_t& lo, std::int32_t& hi) {
  if (m_arrPeaks.empty() || x2 == kQXUnsetValue) return false;
  if (x1 > x2) std::swap(x1, x2);
  lo = GetPeakNearest(x1, bCentroid);
  if (m_arrPeaks[lo]->GetXVal(bCentroid) < x1 && lo != GetNumPeaks() - 1) ++lo;
  hi = GetPeakNearest(x2, bCentroid);
  if (m_arrPeaks[hi]->GetXVal(bCentroid) > x2) --hi;
  return true;
}

QXPeakTableElement* QXPeakTable::GetPeakInRange(double x1, double x2, std::uint32_t flags,
                                                const tagQXPeakFilterStruct* filter,
                                                int bCentroid) {
  if (m_arrPeaks.empty()) return nullptr;
  std::int32_t chosen = -1;
  if (x2 == kQXUnsetValue) {
    // No upper limit: the nearest peak, taken without a filter test.
    chosen = GetPeakNearest(x1, bCentroid);
  } else {
    std::int32_t lo = 0;
    std::int32_t hi = -1;
    FindRangeIndices(x1, x2, bCentroid, lo, hi);
    double best = kQXUnsetValue;
    for (std::int32_t i = lo; i <= hi; ++i) {
      const QXPeakTableElement* peak = m_arrPeaks[i].get();
      if (peak->DoesPeakMatchCriteria(flags, filter) && peak->m_dApexY > best) {
        best = peak->m_dApexY;
        chosen = i;
      }
    }
    if (chosen < 0) return nullptr;
    const double key = m_arrPeaks[chosen]->GetXVal(bCentroid);
    if (key < x1 || key > x2) return nullptr;
  }
  m_nFilterPos = static_cast<int>(chosen + 1);
  return m_arrPeaks[chosen].get();
}

void QXPeakTable::GetAllPeaksInRange(std::vector<QXPeakTableElement*>& out, double x1, double x2,
                                     std::uint32_t flags, const tagQXPeakFilterStruct* filter,
                                     int bCentroid) {
  out.clear();
  std::int32_t lo = 0;
  std::int32_t hi = -1;
  if (!FindRangeIndices(x1, x2, bCentroid, lo, hi)) return;
  for (std::int32_t i = lo; i <= hi; ++i) {
    QXPeakTableElement* peak = m_arrPeaks[i].get();
    const double key = peak->GetXVal(bCentroid);
    if (peak->DoesPeakMatchCriteria(flags, filter) && key >= x1 && key <= x2) out.push_back(peak);
  }
}

bool QXPeakTable::IsPeakInRegion(double x1, double x2) const {
  return std::any_of(m_arrPeaks.begin(), m_arrPeaks.end(), [&](const auto& peak) {
    return peak->m_dApexX >= x1 && peak->m_dApexX < x2;
  });
}

void QXPeakTable::SortPeakTable(int method) {
  // The stored method is trusted: a table marked with it is taken to be in order already.
  if (method == m_nSortMethod) return;
  m_nSortMethod = method;
  QuickSort(0, GetNumPeaks());
}

void QXPeakTable::SwapPeaks(int a, int b) { std::swap(m_arrPeaks[a], m_arrPeaks[b]); }

void QXPeakTable::Swap3Peaks(int a, int b, int c) {
  std::unique_ptr<QXPeakTableElement> oldA = std::move(m_arrPeaks[a]);
  m_arrPeaks[a] = std::move(m_arrPeaks[b]);
  m_arrPeaks[b] = std::move(m_arrPeaks[c]);
  m_arrPeaks[c] = std::move(oldA);
}

void QXPeakTable::Sort3Peaks(int a, int b, int c) {
  // Strict comparisons only, so equal keys never trade places.
  const double ka = SortKey(m_arrPeaks[a].get());
  const double kb = SortKey(m_arrPeaks[b].get());
  const double kc = SortKey(m_arrPeaks[c].get());
  if (ka > kb) {
    if (kb > kc) {
      SwapPeaks(a, c);
    } else if (ka > kc) {
      Swap3Peaks(a, b, c);
    } else {
      SwapPeaks(a, b);
    }
  } else if (kb > kc) {
    if (ka > kc) {
      Swap3Peaks(a, c, b);
    } else {
      SwapPeaks(b, c);
    }
  }
}

void QXPeakTable::QuickSort(std::int32_t first, std::int32_t count) {
  const auto key = [this](std::int32_t i) { return SortKey(m_arrPeaks[i].get()); };
  while (count >= 3) {
    const std::int32_t last = first + count - 1;
    const std::int32_t mid = first + (count - 1) / 2;
    Sort3Peaks(static_cast<int>(first), static_cast<int>(mid), static_cast<int>(last));
    if (count == 3) return;
    const double pivot = key(mid);
    std::int32_t i = first + 1;
    std::int32_t j = last - 1;
    // The ordered first and last entries stop the scans; the bounds only guard NaN keys.
    do {
      while (i < last && key(i) < pivot) ++i;
      while (j > first && key(j) > pivot) --j;
      if (i < j) {
        SwapPeaks(static_cast<int>(i), static_cast<int>(j));
        ++i;
        --j;
      } else {
        if (i == j) {
          ++i;
          --j;
        }
        break;
      }
    } while (i <= j);
    const std::int32_t leftCount = j - first + 1;
    const std::int32_t rightCount = count - (i - first);
    if (leftCount < rightCount) {
      if (leftCount >= 2) QuickSort(first, leftCount);
      first = i;
      count = rightCount;
    } else {
      if (rightCount >= 2) QuickSort(i, rightCount);
      count = leftCount;
    }
  }
  if (count == 2 && key(first) > key(first + 1)) {
    SwapPeaks(static_cast<int>(first), static_cast<int>(first + 1));
  }
}

void QXPeakTable::RemoveDuplicatedPeaks() {
  if (m_arrPeaks.size() < 2) return;
  // Walk backwards so that of each run of equal apex x the highest index survives; the
  // gaps are closed in one pass afterwards.
  double remembered = m_arrPeaks.back()->m_dApexX;
  for (std::int32_t i = GetNumPeaks() - 2; i >= 0; --i) {
    if (m_arrPeaks[i]->m_dApexX == remembered) {
      m_arrPeaks[i].reset();
    } else {
      remembered = m_arrPeaks[i]->m_dApexX;
    }
  }
  std::erase(m_arrPeaks, nullptr);
}

std::string QXPeakTable::DumpToText() const {
  std::string text;
  QXAppendFormat(text, "# Peaks\t%d\n", static_cast<int>(GetNumPeaks()));
  text +=
      "Apex Mass\tIntensity\tLeftBound X\tLeftBound Y\tRightBound X\tRightBound Y\t Area\t"
      "Centroid Mass\tCentroidLeft X\tCentroid Left Y\tCentroid Right X\tCentroid Right Y\n";
  for (const auto& p : m_arrPeaks) {
    QXAppendFormat(text, "%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\t%lf\n",
                   p->m_dApexX, p->m_dApexY, p->m_dLeftX, p->m_dLeftY, p->m_dRightX,
                   p->m_dRightY, p->m_dArea, p->m_dCentroidX, p->m_dCentroidLeftX,
                   p->m_dCentroidLeftY, p->m_dCentroidRightX, p->m_dCentroidRightY);
  }
  return text;
}

void QXPeakTable::DumpToFile(const char* path) const {
  if (path == nullptr) return;
  // No error is reported: a dump that cannot be written leaves the old file as it was.
  (void)QXWriteFileAtomically(path, DumpToText());
}

void QXPeakTable::Serialize(QXArchive& ar) {
  SerializeObjectArray(ar, m_arrPeaks, &QXPeakTableElement::classQXPeakTableElement);
  // The order of loaded peaks is not known to the table.
  if (ar.IsLoading()) m_nSortMethod = -1;
}

}  // namespace qxpkutil
