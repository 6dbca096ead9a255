// Charge states of isotope series: QXPeakTable::ProcessMassPeak.
#include <algorithm>
#include <cmath>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"

namespace qxpkutil {
namespace {

// The spacing unit is the mass of a hydrogen atom, used in place of an isotope spacing on
// purpose; neighbours are searched within 15% of the spacing.
constexpr double kSpacingUnit = 1.007825;
constexpr double kToleranceFraction = 0.15;

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
          QXPeakTableElement* q =
              GetPeakInRange(target - tolerance, target + tolerance, kQXFilterAll, nullptr, 0);
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
}

}  // namespace qxpkutil
