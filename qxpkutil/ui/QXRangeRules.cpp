#include "qxpkutil/ui/QXRangeRules.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "qxpkutil/platform/QXFormat.h"
#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/ui/QXDataExchange.h"

namespace qxpkutil {
namespace {

// String `id` of the table filled in as printf would fill it.
template <class... Args>
std::string FormatMessage(int id, Args... args) {
  const std::string format = QXLoadString(id);
  std::string text = QXFormat(format.c_str(), args...);
  return text.empty() ? format : text;
}

bool IsRange(const QXRangeSequence& ranges, std::int32_t index) {
  return index >= 0 && index < ranges.Count();
}

std::pair<double, double> Bounds(const QXRangeSequence& ranges, std::int32_t index) {
  double lo = 0.0, hi = 0.0;
  ranges.GetRange(index, lo, hi);
  return {lo, hi};
}

// A bound moved by a tenth of the last shown digit and rounded to one digit more, so that
// a neighbour's bound that looks equal at `precision` decimals compares as covered.
double WidenedBound(double bound, std::int32_t precision, double direction) {
  const double e = std::pow(10.0, -static_cast<double>(precision)) * 0.1;
  return QXRoundToPrecision(bound + direction * e, precision + 1);
}

// Ranges are numbered from 1 for the user.
int Shown(std::int32_t index) { return static_cast<int>(index) + 1; }

}  // namespace

std::int32_t QXCountCoveredRight(const QXRangeSequence& ranges, std::int32_t current, double hi) {
  if (!IsRange(ranges, current)) return 0;
  std::int32_t count = 0;
  for (std::int32_t i = current + 1; i < ranges.Count() && hi >= Bounds(ranges, i).second; ++i)
    ++count;
  return count;
}

std::int32_t QXCountCoveredLeft(const QXRangeSequence& ranges, std::int32_t current, double lo) {
  if (!IsRange(ranges, current)) return 0;
  std::int32_t count = 0;
  for (std::int32_t i = current - 1; i >= 0 && lo <= Bounds(ranges, i).first; --i) ++count;
  return count;
}

void QXDeleteAndAdjustLeft(QXRangeSequence& ranges, std::int32_t& current, std::int32_t count,
                           double lo, bool stretch) {
  if (!IsRange(ranges, current)) return;
  std::int32_t deleted = 0;
  for (; deleted < count && current > 0; ++deleted) ranges.DeleteRange(--current);
  if (current == 0) return;
  const auto [nLo, nHi] = Bounds(ranges, current - 1);
  if ((stretch && count > 0) || nHi > lo) ranges.SetRange(current - 1, nLo, lo);
}

void QXDeleteAndAdjustRight(QXRangeSequence& ranges, std::int32_t current, std::int32_t count,
                            double hi, bool stretch) {
  if (!IsRange(ranges, current)) return;
  for (std::int32_t deleted = 0; deleted < count && current + 1 < ranges.Count(); ++deleted) {
    ranges.DeleteRange(current + 1);
  }
  if (current + 1 >= ranges.Count()) return;
  const auto [nLo, nHi] = Bounds(ranges, current + 1);
  if ((stretch && count > 0) || nLo < hi) ranges.SetRange(current + 1, hi, nHi);
}

int QXApplyRangeRules(QXRangeSequence& ranges, std::int32_t& current, double lo, double hi,
                      std::int32_t precision, const QXRangeRuleVariant& rules) {
  if (lo > hi) std::swap(lo, hi);
  if (lo == hi || !std::isfinite(lo) || !std::isfinite(hi)) {
    if (rules.reportInvalidRange)
      QXShowMessage(kQXMsgInvalidRange, FormatMessage(kQXMsgInvalidRange, lo, hi));
    return 0;
  }
  // With no ranges there is nothing to set; the caller keeps the bounds for itself.
  if (ranges.Count() == 0) return 1;
  if (!IsRange(ranges, current)) return 0;

  const double countHi = rules.widenCountBounds ? WidenedBound(hi, precision, 1.0) : hi;
  const double countLo = rules.widenCountBounds ? WidenedBound(lo, precision, -1.0) : lo;
  const std::int32_t nRight = QXCountCoveredRight(ranges, current, countHi);
  const std::int32_t nLeft = QXCountCoveredLeft(ranges, current, countLo);

  // Partly overlapped neighbours are trimmed without asking; covered ones need a Yes.
  if (nLeft > 0 || nRight > 0) {
    int id = kQXMsgCombineBothSides;
    std::string question;
    if (nLeft > 0 && nRight > 0) {
      question = FormatMessage(id, lo, hi, Shown(current));
    } else {
      id = kQXMsgCombineOneSide;
      const bool left = nLeft > 0;
      const char* side = left ? "left" : "right";
      const int farthest = Shown(left ? current - nLeft : current + nRight);
      question = FormatMessage(id, side, left ? lo : hi, side, farthest, Shown(current), farthest);
    }
    if (!QXAskYesNo(id, question)) return 0;
  }

  // Right first: deletions on the left renumber the current range.
  const bool leftOnly = nLeft > 0 && nRight == 0;
  const bool rightOnly = nRight > 0 && nLeft == 0;
  if (rules.adjustBothSides || !leftOnly) {
    QXDeleteAndAdjustRight(ranges, current, nRight, hi, rules.stretchAfterDelete);
  }
  if (rules.adjustBothSides || !rightOnly) {
    QXDeleteAndAdjustLeft(ranges, current, nLeft, lo, rules.stretchAfterDelete);
  }
  ranges.SetRange(current, lo, hi);
  return 1;
}

int QXSetRangeBound(QXRangeSequence& ranges, std::int32_t& current, std::int32_t& displayPrecision,
                    double x, std::int32_t precision, bool lowerBound,
                    const QXRangeRuleVariant& rules) {
  if (!IsRange(ranges, current)) return 0;
  if (precision > 0) {
    displayPrecision = std::min(precision, kQXMaxDisplayPrecision);
    x = QXRoundToPrecision(x, displayPrecision);
  }
  if (x < 0.0) {
    QXShowMessage(kQXMsgRangeNegative, QXLoadString(kQXMsgRangeNegative));
    return 0;
  }
  const auto [lo, hi] = Bounds(ranges, current);
  return lowerBound ? QXApplyRangeRules(ranges, current, x, hi, displayPrecision, rules)
                    : QXApplyRangeRules(ranges, current, lo, x, displayPrecision, rules);
}

}  // namespace qxpkutil
