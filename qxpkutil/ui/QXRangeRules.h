// The rules by which new bounds for one range of an ordered list of detection ranges are
// checked and applied, shared by the spectrum and chromatogram setup dialogs: how many
// neighbours the new bounds swallow, which question the user is asked, and which
// neighbours are then deleted or trimmed. The dialogs adapt their own storage to
// QXRangeSequence; this header is theirs and is not part of the public API.
//
//   std::int32_t current = 1;                 // [0,10] [10,20] [20,30]
//   QXApplyRangeRules(ranges, current, 5.0, 25.0, 2, kQXSegmentedRangeRules);
//   // -> [0,5] [5,25] [25,30], no question asked
#pragma once

#include <cstdint>

namespace qxpkutil {

// An ordered list of x ranges, edited in place. The rules only pass indices within
// 0..Count()-1.
class QXRangeSequence {
 public:
  virtual std::int32_t Count() const = 0;
  virtual void GetRange(std::int32_t index, double& lo, double& hi) const = 0;
  virtual void SetRange(std::int32_t index, double lo, double hi) = 0;
  virtual void DeleteRange(std::int32_t index) = 0;

 protected:
  ~QXRangeSequence() = default;
};

// Where the two dialogs apply the rules differently, on purpose.
struct QXRangeRuleVariant {
  // Equal (or non-finite) bounds are reported with "%lf to %lf is not a valid range."
  // instead of being refused silently.
  bool reportInvalidRange;
  // The overlap counts use the new bounds widened by a tenth of the display precision's
  // last digit, so that a neighbour whose bound equals the new one as shown is covered.
  bool widenCountBounds;
  // After a one-sided question both sides are adjusted, the side not asked about with a
  // count of 0; otherwise only the side named in the question.
  bool adjustBothSides;
  // After deletions the new neighbour is made to end (or begin) exactly at the new bound,
  // stretched over a gap if need be; otherwise it is trimmed only where it overlaps.
  bool stretchAfterDelete;
};

inline constexpr QXRangeRuleVariant kQXSegmentedRangeRules{false, false, false, true};
inline constexpr QXRangeRuleVariant kQXChromatogramRangeRules{true, true, true, false};

// Neighbours right of `current` that the upper bound `hi` covers entirely (hi >= their
// upper bound), counted outwards up to the first one it does not cover. 0 when `current`
// is not a range of the list.
std::int32_t QXCountCoveredRight(const QXRangeSequence& ranges, std::int32_t current, double hi);
// The mirror image on the left: neighbours whose lower bound is >= `lo`.
std::int32_t QXCountCoveredLeft(const QXRangeSequence& ranges, std::int32_t current, double lo);

// Deletes up to `count` ranges left of `current`, which moves down by one with each, then
// makes the new left neighbour end at `lo`: always after a deletion when `stretch` is
// set, otherwise only when it reaches beyond `lo`. Nothing happens when `current` is not
// a range of the list.
void QXDeleteAndAdjustLeft(QXRangeSequence& ranges, std::int32_t& current, std::int32_t count,
                           double lo, bool stretch);
// The mirror image on the right: `current` keeps its index, the new right neighbour is
// made to begin at `hi`.
void QXDeleteAndAdjustRight(QXRangeSequence& ranges, std::int32_t current, std::int32_t count,
                            double hi, bool stretch);

// Gives range `current` the bounds `lo`..`hi` (swapped when reversed), deleting the
// neighbours they cover and trimming those they overlap. Covered neighbours are deleted
// only after the user agrees through QXAskYesNo ("Do you want to combine Ranges ...?");
// a No (or no message sink) returns 0 with nothing changed. `current` follows the range
// as neighbours to its left are deleted. Returns 1 when the bounds were applied; 0 for
// equal or non-finite bounds, or when `current` is not a range of a non-empty list. An
// empty list takes nothing and returns 1. `precision` is the display precision used by
// widenCountBounds.
int QXApplyRangeRules(QXRangeSequence& ranges, std::int32_t& current, double lo, double hi,
                      std::int32_t precision, const QXRangeRuleVariant& rules);

// Sets one bound of range `current` to a typed value `x`, the other bound kept. Returns 0
// with nothing changed when the list is empty or `current` is not one of its ranges.
// When `precision` > 0 it becomes the remembered display precision and `x` is rounded to
// it as a field showing it would, even if the bound is then refused. A negative `x` is
// refused with "Segment range values must be greater or equal to 0" (0). Otherwise
// QXApplyRangeRules decides.
int QXSetRangeBound(QXRangeSequence& ranges, std::int32_t& current, std::int32_t& displayPrecision,
                    double x, std::int32_t precision, bool lowerBound,
                    const QXRangeRuleVariant& rules);

}  // namespace qxpkutil
