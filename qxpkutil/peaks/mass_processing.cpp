// Charge states of isotope series: QXPeakTable::ProcessMassPeak.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

// The spacing unit is the mass of a hydrogen atom, used in place of an isotope spacing on
// purpose; neighbours are searched within 15% of the spacing.
constexpr double kSpacingUnit = 1.007825;
constexpr double kToleranceFraction = 0.15;

// GetPeakInRange(x1, x2, kQXFilterAll, nullptr, 0) answered from contiguous copies of the
// apex positions and heights of a table in apex-x order: the same index for every query,
// without walking the records, which the isotope walks query a dozen times per peak.
class ApexRangeQuery {
 public:
  explicit ApexRangeQuery(const QXPeakTable& table) {
    const std::int32_t count = table.GetNumPeaks();
    m_x.reserve(static_cast<std::size_t>(count));
    m_y.reserve(static_cast<std::size_t>(count));
    for (std::int32_t i = 0; i < count; ++i) {
      m_x.push_back(table.GetPeak(i)->m_dApexX);
      m_y.push_back(table.GetPeak(i)->m_dApexY);
    }
  }

  // The index GetPeakInRange would return, or -1 for none.
  std::int32_t InRange(double x1, double x2) const {
    if (m_x.empty()) return -1;
    if (x2 == kQXUnsetValue) return Nearest(x1);
    if (x1 > x2) std::swap(x1, x2);
    const auto count = static_cast<std::int32_t>(m_x.size());
    std::int32_t lo = Nearest(x1);
    if (m_x[lo] < x1 && lo != count - 1) ++lo;
    std::int32_t hi = Nearest(x2);
    if (m_x[hi] > x2) --hi;
    std::int32_t chosen = -1;
    double best = kQXUnsetValue;
    for (std::int32_t i = lo; i <= hi; ++i) {
      if (m_y[i] > best) {
        best = m_y[i];
        chosen = i;
      }
    }
    if (chosen < 0 || m_x[chosen] < x1 || m_x[chosen] > x2) return -1;
    return chosen;
  }

 private:
  // GetPeakNearest's search: ties go to the lower index.
  std::int32_t Nearest(double x) const {
    const auto count = static_cast<std::int32_t>(m_x.size());
    std::int32_t lo = -1;
    std::int32_t hi = count;
    while (hi - lo != 1) {
      const std::int32_t mid = (lo + hi) / 2;
      if (x < m_x[mid]) {
        hi = mid;
      } else {
        lo = mid;
      }
    }
    if (lo < 0) lo = 0;
    if (lo == count - 1) return lo;
    return std::fabs(x - m_x[lo]) <= std::fabs(x - m_x[lo + 1]) ? lo : lo + 1;
  }

  std::vector<double> m_x;
  std::vector<double> m_y;
};

}  // namespace

void QXPeakTable::ProcessMassPeak(int nMaxCharge, int nMaxIsotopes, double dMinRatio,
                                  double dMaxRatio) {
  const std::int32_t count = GetNumPeaks();
  if (count == 0) return;

  // Processing order: descending apex intensity, read backwards off the intensity sort.
  std::vector<QXPeakTableElement*> order(static_cast<std::size_t>(count));
  SortPeakTable(1);
  for (std::int32_t i = 0; i < count; ++i) order[static_cast<std::size_t>(count - 1 - i)] = GetPeak(i);
  SortPeakTable(0);  // the range queries below need apex-x order
  const ApexRangeQuery query(*this);
  std::int32_t lastFound = -1;  // GetPeakInRange leaves its cursor after the peak it found

  // A walk takes at most nMaxIsotopes - 1 steps. It is also capped at the peak count: with
  // a ratio window below 1 intensities fall strictly along a walk, so no walk can be longer,
  // and the cap keeps a huge nMaxIsotopes from turning a degenerate cycle into a hang.
  const std::int32_t walkLength = nMaxIsotopes > 1 ? std::min<std::int32_t>(nMaxIsotopes - 1, count) : 0;
  std::vector<QXPeakTableElement*> members;  // grows to what the caller's series needs
  members.reserve(static_cast<std::size_t>(2 * walkLength));

  for (QXPeakTableElement* start : order) {
    if (start->m_dwFlags & kQXPeakChargeAssigned) continue;
    QXPeakTableElement* most = start;
    QXPeakTableElement* low = start;
    for (int z = nMaxCharge; z >= 1; --z) {
      members.clear();
      const double spacing = kSpacingUnit / z;
      const double tolerance = kToleranceFraction * kSpacingUnit / z;
      // Walks one direction (+1 up, -1 down) from the start peak; returns the last member.
      const auto walk = [&](double direction) {
        QXPeakTableElement* last = nullptr;
        const QXPeakTableElement* cur = start;
        for (std::int32_t step = 0; step < walkLength; ++step) {
          const double target = cur->m_dCentroidX + direction * spacing;
          // Centred on a centroid but searched on apex positions: the mixture is intended.
          const std::int32_t found = query.InRange(target - tolerance, target + tolerance);
          if (found >= 0) lastFound = found;
          QXPeakTableElement* q = found >= 0 ? GetPeak(found) : nullptr;
          if (q == nullptr || (q->m_dwFlags & kQXPeakChargeAssigned) ||
              q->m_dApexY >= dMaxRatio * cur->m_dApexY ||
              q->m_dApexY <= dMinRatio * cur->m_dApexY) {
            break;
          }
          // The whole number nearest to the charge the spacing implies must be z; a zero
          // spacing (or NaN) never is.
          const double implied = kSpacingUnit / std::fabs(q->m_dCentroidX - cur->m_dCentroidX);
          if (!(std::trunc(implied + 0.5) == z)) break;
          members.push_back(q);
          if (q->m_dApexY > most->m_dApexY) most = q;
          last = q;
          cur = q;
        }
        return last;
      };
      walk(+1.0);
      if (QXPeakTableElement* lowest = walk(-1.0)) low = lowest;
      if (members.empty()) continue;

      start->m_nCharge = z;
      start->m_dwFlags |= kQXPeakChargeAssigned;
      // Only the first nMaxIsotopes members are charged; the rest keep what they had, on purpose.
      const std::size_t charged =
          std::min(members.size(), static_cast<std::size_t>(std::max(nMaxIsotopes, 0)));
      for (std::size_t m = 0; m < charged; ++m) {
        members[m]->m_nCharge = z;
        members[m]->m_dwFlags |= kQXPeakChargeAssigned;
      }
      break;
    }
    low->m_dwFlags |= kQXPeakSeriesLow;
    most->m_dwFlags |= kQXPeakSeriesMostIntense;
  }
  if (lastFound >= 0) m_nFilterPos = static_cast<int>(lastFound + 1);
}

}  // namespace qxpkutil
