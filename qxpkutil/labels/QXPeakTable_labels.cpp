// Stamping user labels onto the peaks of a table, and taking them off again. QXPeakTable
// declares these methods, but they work with label lists, so they are defined here, above
// both: labels/ calls down into peaks/, never the other way round.
#include "qxpkutil/peaks/QXPeakTable.h"

#include <algorithm>
#include <cmath>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

// A label with a non-zero charge matches only peaks of that charge, when the list asks so.
bool ChargeAccepts(const QXUserPkLabels& labels, int labelCharge, const QXPeakTableElement& peak) {
  return labels.GetUseChargeState() == 0 || labelCharge == 0 || peak.m_nCharge == labelCharge;
}

void MarkPeak(QXPeakTableElement& peak, const std::string& label) {
  peak.m_dwFlags |= kQXPeakLabelled;
  // Labels accumulate, and matching again appends the same names again.
  if (!peak.m_strLabel.empty()) peak.m_strLabel += ',';
  peak.m_strLabel += label;
}

}  // namespace

void QXPeakTable::MatchUserPeakLabels(QXUserPkLabels* labels, int bCentroid,
                                      std::uint32_t filterFlags,
                                      const tagQXPeakFilterStruct* filter) {
  if (labels == nullptr || labels->m_arrLabels.empty()) return;
  const auto& items = labels->m_arrLabels;
  if (labels->GetUserLabelType() == 1) {
    // Differences between consecutive peaks that pass the filter, in table order; a match
    // marks the first peak of the pair.
    RestartFilteredPeak();
    QXPeakTableElement* previous = GetNextFilteredPeak(filterFlags, filter);
    while (previous != nullptr) {
      QXPeakTableElement* current = GetNextFilteredPeak(filterFlags, filter);
      if (current == nullptr) break;
      const double d = std::fabs(current->m_dCentroidX - previous->m_dCentroidX);
      for (const auto& item : items) {
        if (std::fabs(d - item->m_dXValue) < item->m_dDeltaX &&
            ChargeAccepts(*labels, item->m_nCharge, *previous)) {
          MarkPeak(*previous, item->m_strLabel);
        }
      }
      previous = current;
    }
  } else {
    // Absolute positions: the one peak the range query picks in x +/- delta x, whatever
    // the filter arguments say.
    for (const auto& item : items) {
      const double a = item->m_dXValue - item->m_dDeltaX;
      const double b = item->m_dXValue + item->m_dDeltaX;
      const double upper = std::max(a, b);
      // A NaN window matches nothing, and neither does one whose upper end falls on the
      // range query's no-upper-limit sentinel.
      if (std::isnan(a) || std::isnan(b) || upper == kQXUnsetValue) continue;
      QXPeakTableElement* peak =
          GetPeakInRange(std::min(a, b), upper, kQXFilterAll, nullptr, bCentroid);
      if (peak != nullptr && ChargeAccepts(*labels, item->m_nCharge, *peak)) {
        MarkPeak(*peak, item->m_strLabel);
      }
    }
  }
  labels->SetLabelsChanged(0);
}

void QXPeakTable::ClearUserPeakLabels() {
  for (const auto& peak : m_arrPeaks) {
    if ((peak->m_dwFlags & kQXPeakLabelled) != 0) {
      peak->m_dwFlags &= ~kQXPeakLabelled;
      peak->m_strLabel.clear();
    }
  }
}

}  // namespace qxpkutil
