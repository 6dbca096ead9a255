// Charge states of isotope series: QXPeakTable::ProcessMassPeak.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <unordered_map>
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

// The peaks of a table in apex-x order as contiguous arrays of what the isotope walks read:
// apex x and height, centroid x and whether a charge is assigned. InRange answers
// GetPeakInRange(x1, x2, kQXFilterAll, nullptr, 0) with the same index for every query,
// without touching the records, which the walks would otherwise visit a dozen times per
// peak all over memory.
struct WalkTable {
  explicit WalkTable(const QXPeakTable& table) {
    const auto count = static_cast<std::size_t>(table.GetNumPeaks());
    peaks.resize(count);
    apexX.resize(count);
    apexY.resize(count);
    centroidX.resize(count);
    assigned.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      QXPeakTableElement* p = table.GetPeak(static_cast<std::int32_t>(i));
      peaks[i] = p;
      apexX[i] = p->m_dApexX;
      apexY[i] = p->m_dApexY;
      centroidX[i] = p->m_dCentroidX;
      assigned[i] = (p->m_dwFlags & kQXPeakChargeAssigned) != 0;
      if (i > 0 && !(apexX[i - 1] <= apexX[i])) ordered = false;
    }
  }

  // The index GetPeakInRange would return, or -1 for none. `hint` is an index near x1.
  std::int32_t InRange(double x1, double x2, std::int32_t hint) const {
    if (apexX.empty()) return -1;
    if (x2 == kQXUnsetValue) return Nearest(x1);
    if (x1 > x2) std::swap(x1, x2);
    const auto count = static_cast<std::int32_t>(apexX.size());
    const std::int32_t belowX1 = BoundaryNear(x1, hint);
    std::int32_t lo = NearestFrom(x1, belowX1);
    if (apexX[lo] < x1 && lo != count - 1) ++lo;
    std::int32_t hi = NearestFrom(x2, BoundaryNear(x2, belowX1));
    if (apexX[hi] > x2) --hi;
    std::int32_t chosen = -1;
    double best = kQXUnsetValue;
    for (std::int32_t i = lo; i <= hi; ++i) {
      if (apexY[i] > best) {
        best = apexY[i];
        chosen = i;
      }
    }
    if (chosen < 0 || apexX[chosen] < x1 || apexX[chosen] > x2) return -1;
    return chosen;
  }

  // GetPeakNearest's search: ties go to the lower index.
  std::int32_t Nearest(double x) const { return NearestFrom(x, Boundary(x)); }

  // GetPeakNearest's halving: the last index whose apex x is not above x, or -1.
  std::int32_t Boundary(double x) const {
    std::int32_t lo = -1;
    std::int32_t hi = static_cast<std::int32_t>(apexX.size());
    while (hi - lo != 1) {
      // Written for conditional moves: which half holds x is a coin toss.
      const std::int32_t mid = (lo + hi) / 2;
      const bool below = x < apexX[mid];
      hi = below ? mid : hi;
      lo = below ? lo : mid;
    }
    return lo;
  }

  // Boundary(x), found by a few steps from `hint` (-1 .. count - 1) when the apexes ascend:
  // the halving then has one answer, and the walks search next to a peak they stand on.
  // Otherwise, or when the steps do not reach it, by the halving.
  std::int32_t BoundaryNear(double x, std::int32_t hint) const {
    if (!ordered) return Boundary(x);
    const auto count = static_cast<std::int32_t>(apexX.size());
    const auto above = [&](std::int32_t k) { return k < count && x < apexX[k]; };
    std::int32_t b = hint;
    for (int step = 0; step < 8; ++step) {
      const bool atOrBelow = b < 0 || !above(b);
      if (atOrBelow && (b + 1 == count || above(b + 1))) return b;
      b += atOrBelow ? 1 : -1;
    }
    return Boundary(x);
  }

  // GetPeakNearest's choice between the boundary and the peak after it.
  std::int32_t NearestFrom(double x, std::int32_t lo) const {
    const auto count = static_cast<std::int32_t>(apexX.size());
    if (lo < 0) lo = 0;
    if (lo == count - 1) return lo;
    return std::fabs(x - apexX[lo]) <= std::fabs(x - apexX[lo + 1]) ? lo : lo + 1;
  }

  std::vector<QXPeakTableElement*> peaks;
  std::vector<double> apexX;
  std::vector<double> apexY;
  std::vector<double> centroidX;
  std::vector<char> assigned;  // mirrors kQXPeakChargeAssigned as the walks set it
  bool ordered = true;          // apex x ascending (ties allowed), none NaN
};

}  // namespace

void QXPeakTable::ProcessMassPeak(int nMaxCharge, int nMaxIsotopes, double dMinRatio,
                                  double dMaxRatio) {
  const std::int32_t count = GetNumPeaks();
  if (count == 0) return;

  // Processing order: descending apex intensity, read backwards off the intensity sort.
  // The range queries below need apex-x order. Strictly ascending apexes have only one,
  // so when the table is in it already, the records are put back instead of sorted again.
  std::vector<QXPeakTableElement*> byX;
  const auto& peaks = m_arrPeaks;
  if (std::adjacent_find(peaks.begin(), peaks.end(), [](const auto& a, const auto& b) {
        return !(a->m_dApexX < b->m_dApexX);
      }) == peaks.end()) {
    byX.reserve(peaks.size());
    for (const auto& p : peaks) byX.push_back(p.get());
  }
  std::vector<QXPeakTableElement*> byIntensity(static_cast<std::size_t>(count));
  SortPeakTable(1);
  for (std::int32_t i = 0; i < count; ++i) {
    byIntensity[static_cast<std::size_t>(count - 1 - i)] = GetPeak(i);
  }
  if (byX.empty()) {
    SortPeakTable(0);
  } else {
    for (auto& p : m_arrPeaks) p.release();
    for (std::size_t i = 0; i < byX.size(); ++i) m_arrPeaks[i].reset(byX[i]);
    m_nSortMethod = 0;
  }
  WalkTable t(*this);
  // Each peak of the processing order by its place in apex-x order.
  std::unordered_map<const QXPeakTableElement*, std::int32_t> place;
  place.reserve(static_cast<std::size_t>(count));
  for (std::int32_t i = 0; i < count; ++i) place.emplace(t.peaks[static_cast<std::size_t>(i)], i);
  std::int32_t lastFound = -1;  // GetPeakInRange leaves its cursor after the peak it found

  // A walk takes at most nMaxIsotopes - 1 steps. It is also capped at the peak count: with
  // a ratio window below 1 intensities fall strictly along a walk, so no walk can be longer,
  // and the cap keeps a huge nMaxIsotopes from turning a degenerate cycle into a hang.
  const std::int32_t walkLength =
      nMaxIsotopes > 1 ? std::min<std::int32_t>(nMaxIsotopes - 1, count) : 0;
  std::vector<std::int32_t> members;  // grows to what the caller's series needs
  members.reserve(static_cast<std::size_t>(2 * walkLength));

  for (const QXPeakTableElement* startPeak : byIntensity) {
    const std::int32_t start = place[startPeak];
    if (t.assigned[start]) continue;
    std::int32_t most = start;
    std::int32_t low = start;
    for (int z = nMaxCharge; z >= 1; --z) {
      members.clear();
      const double spacing = kSpacingUnit / z;
      const double tolerance = kToleranceFraction * kSpacingUnit / z;
      // Walks one direction (+1 up, -1 down) from the start peak; returns the last member.
      const auto walk = [&](double direction) {
        std::int32_t last = -1;
        std::int32_t cur = start;
        for (std::int32_t step = 0; step < walkLength; ++step) {
          const double target = t.centroidX[cur] + direction * spacing;
          // Centred on a centroid but searched on apex positions: the mixture is intended.
          const std::int32_t q = t.InRange(target - tolerance, target + tolerance, cur);
          if (q >= 0) lastFound = q;
          if (q < 0 || t.assigned[q] || t.apexY[q] >= dMaxRatio * t.apexY[cur] ||
              t.apexY[q] <= dMinRatio * t.apexY[cur]) {
            break;
          }
          // The whole number nearest to the charge the spacing implies must be z; a zero
          // spacing (or NaN) never is.
          const double implied = kSpacingUnit / std::fabs(t.centroidX[q] - t.centroidX[cur]);
          if (!(std::trunc(implied + 0.5) == z)) break;
          members.push_back(q);
          if (t.apexY[q] > t.apexY[most]) most = q;
          last = q;
          cur = q;
        }
        return last;
      };
      walk(+1.0);
      if (const std::int32_t lowest = walk(-1.0); lowest >= 0) low = lowest;
      if (members.empty()) continue;

      const auto charge = [&](std::int32_t i) {
        t.peaks[static_cast<std::size_t>(i)]->m_nCharge = z;
        t.peaks[static_cast<std::size_t>(i)]->m_dwFlags |= kQXPeakChargeAssigned;
        t.assigned[i] = 1;
      };
      charge(start);
      // Only the first nMaxIsotopes members are charged; the rest keep what they had, on purpose.
      const std::size_t charged =
          std::min(members.size(), static_cast<std::size_t>(std::max(nMaxIsotopes, 0)));
      for (std::size_t m = 0; m < charged; ++m) charge(members[m]);
      break;
    }
    t.peaks[static_cast<std::size_t>(low)]->m_dwFlags |= kQXPeakSeriesLow;
    t.peaks[static_cast<std::size_t>(most)]->m_dwFlags |= kQXPeakSeriesMostIntense;
  }
  if (lastFound >= 0) m_nFilterPos = static_cast<int>(lastFound + 1);
}

}  // namespace qxpkutil
