// Peak finding in profile spectra whose search window comes from a Divisor, and peak tables
// of spectra that are already centroided: the divisor form of QXPeakTable::FindPeaks,
// CentroidFindPeaks, FindMaxIndex, ComputeCentroid and BuildCentroidPeakTable.
//
// How a range is searched:
// - Windows. A window starting at index s is trunc(s / Divisor) points wide (at least 2, at
//   most the range), so on an axis where a peak's width in points grows with its index the
//   window follows the peaks. With a Divisor of 0 the width is the bound span of the last
//   peak measured (2 before the first). Each window runs from s to s + width - 1, cut at the
//   range's end; the next one starts half a width on, and the walk ends with the window that
//   reaches the range's end, so every point of the range is looked at.
// - Candidates. The highest point of a window is a candidate when it lies above the
//   threshold and is a local top: no point within half a window width before it is as high
//   and none after it is higher. Points on the flank of a wider peak, and the lower of two
//   noise-split tops, are thereby left out; of a flat top the first point is taken. The
//   neighbourhood may reach outside the range (never outside the arrays), so a range that
//   cuts a peak's flank does not turn the cut into a peak.
// - Bounds. From the apex the integration bounds are the lowest points within one window
//   width on each side (nearest to the apex among equals), looked for no further than the
//   neighbouring candidates' apexes and no further than a point above the apex. Two close
//   peaks thus share the valley between them. A window about as wide as a peak's base
//   suits best: on noisy data a bound sits on the lowest noise point within reach. With a
//   Divisor of 0 the walk from the apex also ends at the first valley. Candidates are
//   taken in index order, one candidate late, so that the right-hand neighbour is known.
// - Centroid and area: ComputeCentroid between the bounds, which also gives the trapezoid
//   area over x that integration method 2 keeps. A candidate is taken unless its centroid
//   x and apex intensity both agree to four decimals with the peak taken before it in this
//   range; the first candidate is compared with an empty (all-zero) record, so a first
//   candidate whose centroid x and apex intensity both round to zero is dropped as a
//   repeat. Kept so: it matters only for a peak at x = 0 without height, and changing
//   it would make the search disagree with peak tables found and stored before.
#include "qxpkutil/peaks/QXPeakTable.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <limits>
#include <new>
#include <vector>

#include "qxpkutil/fitting/QXNonLinFit.h"
#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

// Decimals to which two candidates must agree to count as the same peak.
constexpr std::int32_t kRepeatPrecision = 4;

struct IndexRange {
  std::int64_t first;
  std::int64_t last;
};

// The indices of an x range (n >= 1): (0.0, 0.0) is the whole array; otherwise each end is
// the bracketing index, clamped to 0 .. n-2, moved up when the next point is strictly nearer.
// Ends that come out in descending order (a descending x axis) are put in order.
IndexRange RangeToIndices(const double* x, std::uint32_t n, double start, double end) {
  const std::int64_t lastIndex = std::int64_t{n} - 1;
  if (start == 0.0 && end == 0.0) return {0, lastIndex};
  const auto toIndex = [&](double value) -> std::int64_t {
    if (n < 2) return 0;
    std::int64_t j = std::clamp<std::int64_t>(QXDataExpUtils::HuntIndex(x, n, 0, value), 0,
                                              lastIndex - 1);
    if (std::fabs(x[j + 1] - value) < std::fabs(x[j] - value)) ++j;
    return j;
  };
  const std::int64_t a = toIndex(start);
  const std::int64_t b = toIndex(end);
  return {std::min(a, b), std::max(a, b)};
}

// True when no point within `reach` before `apex` is as high and none within `reach` after
// it is higher. NaN neighbours are ignored.
bool IsLocalTop(const double* y, std::uint32_t n, std::int64_t apex, std::int64_t reach) {
  const double top = y[apex];
  for (std::int64_t k = std::max<std::int64_t>(apex - reach, 0); k < apex; ++k) {
    if (y[k] >= top) return false;
  }
  const std::int64_t end = std::min<std::int64_t>(apex + reach, std::int64_t{n} - 1);
  for (std::int64_t k = apex + 1; k <= end; ++k) {
    if (y[k] > top) return false;
  }
  return true;
}

// The lowest point met walking from `apex` towards `limit` (inclusive) in steps of `step`
// (+1 or -1), stopping before a point above the apex (leftward: as high as the apex, so
// that the apex stays the first of equal tops); with `firstValley` also where the signal
// rises again. Among equal lows the one nearest the apex.
std::int64_t Valley(const double* y, std::int64_t apex, std::int64_t limit, std::int64_t step,
                    bool firstValley) {
  const double top = y[apex];
  std::int64_t low = apex;
  for (std::int64_t k = apex + step; step > 0 ? k <= limit : k >= limit; k += step) {
    if (step > 0 ? y[k] > top : y[k] >= top) break;
    if (y[k] < y[low]) {
      low = k;
    } else if (firstValley && y[k] > y[low]) {
      break;
    }
  }
  return low;
}

// Window widths trunc(s / divisor), at least 2 and at most `cap`, for window starts s that
// never fall. A correctly rounded quotient never falls as s rises, so each width holds up to
// a boundary: dividing only there keeps a division per window out of the walk.
class DividedWidth {
 public:
  DividedWidth(double divisor, double cap) : m_divisor(divisor), m_cap(cap) {}

  std::int64_t operator()(std::int64_t s) {
    if (s >= m_next) Settle(s);
    return m_width;
  }

 private:
  std::int64_t Quotient(std::int64_t s) const {
    return static_cast<std::int64_t>(std::min(static_cast<double>(s) / m_divisor, m_cap));
  }

  void Settle(std::int64_t s) {
    const std::int64_t q = Quotient(s);
    m_width = std::max<std::int64_t>(2, q);
    // The first start with a larger quotient, from (q + 1) * divisor made exact; starts
    // never pass 2^32, so a boundary beyond that is never met.
    const double estimate = std::ceil(static_cast<double>(q + 1) * m_divisor);
    if (q >= static_cast<std::int64_t>(m_cap) || !(estimate < 4294967296.0)) {
      m_next = std::numeric_limits<std::int64_t>::max();
      return;
    }
    std::int64_t next = std::max(s + 1, static_cast<std::int64_t>(estimate));
    while (next > s + 1 && Quotient(next - 1) > q) --next;
    while (Quotient(next) <= q) ++next;
    m_next = next;
  }

  double m_divisor;
  double m_cap;
  std::int64_t m_width = 2;
  std::int64_t m_next = std::numeric_limits<std::int64_t>::min();
};

// The highest point of from..last (from <= last), the first of equals; a NaN never counts
// as the highest point, so a leading one is stepped over.
std::int64_t HighestPoint(const double* y, std::int64_t from, std::int64_t last) {
  std::int64_t best = from;
  while (best < last && std::isnan(y[best])) ++best;
  for (std::int64_t k = best + 1; k <= last; ++k) {
    if (y[k] > y[best]) best = k;
  }
  return best;
}

// The first index of from..last whose intensity is above `threshold`, or last + 1.
std::int64_t NextAbove(const double* y, std::int64_t from, std::int64_t last, double threshold) {
  // Most of a spectrum lies below the threshold: blocks of eight are tested together.
  for (; from + 8 <= last + 1; from += 8) {
    bool any = false;
    for (int k = 0; k < 8; ++k) any |= y[from + k] > threshold;
    if (any) break;
  }
  while (from <= last && !(y[from] > threshold)) ++from;
  return from;
}

}  // namespace

int QXPeakTable::FindMaxIndex(const double* y, std::uint32_t n, std::uint32_t from,
                              std::uint32_t to, std::int32_t bPlainMax, std::int32_t& index,
                              double dThreshold) const {
  if (y == nullptr) {
    index = -1;
    return 0;
  }
  // Nothing past the array is read: `to` is cut back to the last point.
  const std::int64_t last = std::min<std::int64_t>(to, std::int64_t{n} - 1);
  if (bPlainMax) {
    index = static_cast<std::int32_t>(from <= last ? HighestPoint(y, from, last) : from);
    return 1;
  }
  index = -1;
  std::int64_t k = from;
  while (k <= last && !(y[k] >= dThreshold)) ++k;
  if (k > last) return 0;
  std::int64_t top = k;
  for (std::int64_t m = k + 1; m <= last && !(y[top] >= y[m]); ++m) top = m;
  index = static_cast<std::int32_t>(top);
  return 1;
}

std::int32_t QXPeakTable::ComputeCentroid(const double* x, const double* y, std::uint32_t n,
                                          double dPct, std::int32_t left, std::int32_t right,
                                          double& centroidX, double& area, double& centroidLeftX,
                                          double& centroidLeftY, double& centroidRightX,
                                          double& centroidRightY) const {
  if (x == nullptr || y == nullptr || left < 0 || left > right ||
      right >= static_cast<std::int32_t>(n)) {
    return 0;
  }
  std::int32_t apex = left;
  FindMaxIndex(y, n, static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(right), 1, apex,
               0.0);
  if (!(y[apex] > y[left] && y[apex] > y[right])) return 0;  // no top between the bounds

  // Outside 0..100 percent the region is the whole stretch between the bounds; its ends
  // go in as the region's lower-x and higher-x ends.
  const bool descending = x[right] < x[left];
  double leftX = descending ? x[right] : x[left];
  double leftY = descending ? y[right] : y[left];
  double rightX = descending ? x[left] : x[right];
  double rightY = descending ? y[left] : y[right];
  double centroid = kQXUnsetValue;
  int measured = 0;
  if (!descending) {
    measured = QXDataExpUtils::CentroidRegion(
        x, y, n, dPct, static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(right),
        static_cast<std::uint32_t>(apex), leftX, leftY, rightX, rightY, centroid);
  } else {
    // The region centroid integrates towards rising x: measure the stretch's mirror image.
    try {
      const std::vector<double> mx(std::make_reverse_iterator(x + right + 1),
                                   std::make_reverse_iterator(x + left));
      const std::vector<double> my(std::make_reverse_iterator(y + right + 1),
                                   std::make_reverse_iterator(y + left));
      const auto last = static_cast<std::uint32_t>(right - left);
      measured = QXDataExpUtils::CentroidRegion(mx.data(), my.data(), last + 1, dPct, 0, last,
                                                static_cast<std::uint32_t>(right - apex), leftX,
                                                leftY, rightX, rightY, centroid);
    } catch (const std::bad_alloc&) {
      return 0;
    }
  }
  if (!measured) return 0;
  // A centroid outside the bounds (intensities below zero, NaN) is no measurement.
  if (!(centroid >= std::min(x[left], x[right]) && centroid <= std::max(x[left], x[right]))) {
    return 0;
  }

  // Trapezoid area above the line through the bound points (zero where their x agree).
  double slope = 0.0;
  double intercept = 0.0;
  QXDataExpUtils::FitLine(x[left], y[left], x[right], y[right], slope, intercept);
  double trapezoid = QXDataExpUtils::IntegrateTrapezoidRegion(
      x, y, static_cast<std::uint32_t>(left), static_cast<std::uint32_t>(right) + 1, slope,
      intercept);
  if (descending) trapezoid = -trapezoid;  // integrated backwards

  centroidX = centroid;
  area = trapezoid > 0.0 ? trapezoid : 0.0;
  centroidLeftX = leftX;
  centroidLeftY = leftY;
  centroidRightX = rightX;
  centroidRightY = rightY;
  return 1;
}

std::int32_t QXPeakTable::CentroidFindPeaks(const double* x, const double* y, std::uint32_t n,
                                            double dRangeStart, double dRangeEnd, double dThreshold,
                                            double dDivisor, double dPctCentroid) {
  if (x == nullptr || y == nullptr || n > kQXMaxPoints || !(dDivisor >= 0.0) ||
      std::isinf(dDivisor)) {
    return -1;
  }
  if (n == 0) return -3;
  const IndexRange range = RangeToIndices(x, n, dRangeStart, dRangeEnd);
  std::int32_t first = -1;
  if (!FindMaxIndex(y, n, static_cast<std::uint32_t>(range.first),
                    static_cast<std::uint32_t>(range.last), 0, first, dThreshold)) {
    return -3;
  }

  const std::int64_t rangeLength = range.last - range.first + 1;
  // Without a Divisor nothing tells how wide a peak is: its bounds are the first valleys
  // on either side, and the next window is as wide as the last peak measured.
  const bool adaptive = dDivisor == 0.0;
  std::int64_t lastSpan = 0;
  DividedWidth divided(dDivisor, static_cast<double>(rangeLength));
  const auto windowWidth = [&](std::int64_t s) {
    return adaptive ? std::clamp<std::int64_t>(lastSpan, 2, std::max<std::int64_t>(rangeLength, 2))
                    : divided(s);
  };

  // The candidate waiting for its right-hand neighbour, and the apex before it.
  std::int64_t pendingApex = -1;
  std::int64_t pendingReach = 0;
  std::int64_t previousApex = -1;
  double takenCentroid = 0.0;  // the peak taken last; an empty record at first
  double takenApexY = 0.0;
  const auto measure = [&](std::int64_t apex, std::int64_t reach, std::int64_t nextApex) {
    const std::int64_t left = Valley(
        y, apex, std::max({apex - reach, previousApex + 1, std::int64_t{0}}), -1, adaptive);
    const std::int64_t right = Valley(
        y, apex, std::min({apex + reach, nextApex - 1, std::int64_t{n} - 1}), +1, adaptive);
    previousApex = apex;
    lastSpan = right - left;
    double centroid = 0.0;
    double area = 0.0;
    double cLeftX = 0.0;
    double cLeftY = 0.0;
    double cRightX = 0.0;
    double cRightY = 0.0;
    if (ComputeCentroid(x, y, n, dPctCentroid, static_cast<std::int32_t>(left),
                        static_cast<std::int32_t>(right), centroid, area, cLeftX, cLeftY, cRightX,
                        cRightY) != 1) {
      return;
    }
    if (QXDataExpUtils::dCompare(centroid, takenCentroid, kRepeatPrecision) &&
        QXDataExpUtils::dCompare(y[apex], takenApexY, kRepeatPrecision)) {
      return;
    }
    takenCentroid = centroid;
    takenApexY = y[apex];
    AddPeak(x[apex], y[apex], static_cast<std::uint32_t>(apex), x[left], y[left],
            static_cast<std::uint32_t>(left), x[right], y[right],
            static_cast<std::uint32_t>(right), centroid, area, cLeftX, cLeftY, cRightX, cRightY,
            0);
  };

  // The walk starts half a window before the first point that reaches the threshold.
  std::int64_t s = range.first;
  if (!adaptive) {
    const double a = static_cast<double>(first);
    const double start = a - 0.5 * a / dDivisor;
    if (start > static_cast<double>(range.first)) s = static_cast<std::int64_t>(start);
  }
  std::int64_t above = -1;  // the first point from s on above the threshold
  for (;;) {
    const std::int64_t width = windowWidth(s);
    const std::int64_t end = std::min(s + width - 1, range.last);
    // A window without a point above the threshold holds no candidate: it is not read.
    if (above < s) above = NextAbove(y, s, range.last, dThreshold);
    if (above <= end) {
      const std::int64_t apex = HighestPoint(y, s, end);  // at least as high as `above`
      if (apex > pendingApex && IsLocalTop(y, n, apex, width / 2)) {
        if (pendingApex >= 0) measure(pendingApex, pendingReach, apex);
        pendingApex = apex;
        pendingReach = adaptive ? std::int64_t{n} : width;
      }
    }
    if (end >= range.last) break;
    s += width / 2;
  }
  if (pendingApex >= 0) measure(pendingApex, pendingReach, std::int64_t{n});
  m_nSortMethod = -1;  // the range's peaks were appended after whatever the table held
  return 1;
}

void QXPeakTable::MarkApexXOrder() {
  const bool ordered = std::is_sorted(
      m_arrPeaks.begin(), m_arrPeaks.end(),
      [](const auto& a, const auto& b) { return a->m_dApexX < b->m_dApexX; });
  if (ordered) {
    m_nSortMethod = 0;
    return;
  }
  m_nSortMethod = -1;
  SortPeakTable(0);
}

std::int32_t QXPeakTable::FindPeaks(const double* x, const double* y, std::uint32_t n,
                                    double dThreshold, double dDivisor, double dPctCentroid,
                                    int nIntegrateMethod, int bMassProcessing, int nMaxCharge,
                                    int nMaxIsotope, double dRelMinIntensity,
                                    double dRelMaxIntensity, int bFinish, double dRangeStart,
                                    double dRangeEnd, int bGaussFit) {
  if (x == nullptr || y == nullptr) return -1;
  if (CentroidFindPeaks(x, y, n, dRangeStart, dRangeEnd, dThreshold, dDivisor, dPctCentroid) < 1) {
    return -1;
  }
  const std::int32_t count = GetNumPeaks();
  if (count <= 0) return count;
  MarkApexXOrder();
  // The finishing steps run once, after the last segment of a trace.
  if (!bFinish) return count;

  if (nIntegrateMethod != 2) {
    // The area becomes a plain sum of intensities above the baseline, on purpose. Records
    // whose bounds lie past these arrays did not come from them and keep their area.
    for (const auto& p : m_arrPeaks) {
      if (p->m_nLeftIndex >= n || p->m_nRightIndex >= n) continue;
      p->m_dArea = QXDataExpUtils::IntegrateSummedRegion(
          x, y, static_cast<std::int32_t>(p->m_nLeftIndex),
          static_cast<std::int32_t>(p->m_nRightIndex), nIntegrateMethod);
    }
  }
  if (bMassProcessing) {
    ProcessMassPeak(nMaxCharge, nMaxIsotope, dRelMinIntensity, dRelMaxIntensity);
  }
  if (bGaussFit) QXNonLinFit::GaussFitPeakList(this, x, y, static_cast<int>(n));
  return count;
}

std::int32_t QXPeakTable::BuildCentroidPeakTable(const double* x, const double* y, std::uint32_t n,
                                                 double dThreshold, int nMaxCharge, int nMaxIsotope,
                                                 double dRelMinIntensity, double dRelMaxIntensity,
                                                 int bFinish, double dRangeStart,
                                                 double dRangeEnd) {
  if (x == nullptr || y == nullptr || n > kQXMaxPoints) return -1;
  if (n > 0) {
    const IndexRange range = RangeToIndices(x, n, dRangeStart, dRangeEnd);
    for (std::int64_t k = range.first; k <= range.last; ++k) {
      if (!(y[k] >= dThreshold)) continue;
      // A stick is its own apex, centroid, bounds and centroid region; its area is its
      // intensity.
      const double sx = x[k];
      const double sy = y[k];
      const auto index = static_cast<std::uint32_t>(k);
      AddPeak(sx, sy, index, sx, sy, index, sx, sy, index, sx, sy, sx, sy, sx, sy, 0);
    }
  }
  MarkApexXOrder();
  if (bFinish) ProcessMassPeak(nMaxCharge, nMaxIsotope, dRelMinIntensity, dRelMaxIntensity);
  return GetNumPeaks();
}

}  // namespace qxpkutil
