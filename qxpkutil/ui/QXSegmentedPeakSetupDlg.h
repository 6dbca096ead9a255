// The logic of the segmented spectrum setup dialog, free of any window system: the user
// changes the bounds of the current detection range (segment) of a QXPeakTableList, and
// neighbouring ranges that the new bounds swallow or overlap are deleted or trimmed so
// that the ranges stay in order. Questions go through QXAskYesNo, messages through
// QXShowMessage (QXMessages.h).
//
//   QXSegmentedPeakSetupDlg dlg(&list);       // ranges [0,10] [10,20] [20,30]
//   dlg.SetCurrentSegment(1);
//   dlg.SetSegmentX1(5.0, 1);                 // -> [0,5] [5,20] [20,30]
#pragma once

#include <cstdint>

namespace qxpkutil {

class QXPeakTableList;

// Edits the segment list of a list it does not own; the list must outlive the dialog.
// The current range starts at 0. The dialog keeps its own copy of the current range's
// bounds, the pair its edit fields show, and a display precision (2 decimals until a
// bound is typed with another).
//
// Rules for new bounds lo..hi of the current range (CheckAndSetNewRange):
// - reversed bounds are swapped; equal or non-finite bounds are refused silently;
// - a neighbour is covered when the new bounds reach over it entirely (hi >= its upper
//   bound on the right, lo <= its lower bound on the left), counted outwards from the
//   current range; a neighbour only partly overlapped is trimmed to the new bound without
//   a question;
// - covered neighbours are deleted only if the user answers Yes to "Do you want to
//   combine Ranges ...?" (one side) or "... combine ranges?" (both sides); after a
//   one-sided combination only that side is adjusted, and the neighbour beyond the deleted
//   ones is made to end (or begin) exactly at the new bound, stretched over a gap if need
//   be. Ranges are numbered from 1 in the questions.
class QXSegmentedPeakSetupDlg {
 public:
  // `list` may be null: the dialog then has no ranges.
  explicit QXSegmentedPeakSetupDlg(QXPeakTableList* list);

  // Makes range `index` current and loads its bounds into the dialog's copy; 1 on
  // success, 0 (nothing changed) when the list has no such range.
  int SetCurrentSegment(std::int32_t index);
  // The current range; it moves down as ranges to its left are combined into it.
  std::int32_t GetCurrentSegment() const { return m_nCurrentSegment; }
  // The dialog's copy of the current range's bounds, as its edit fields show them.
  double GetSegmentX1() const { return m_dSegmentX1; }
  double GetSegmentX2() const { return m_dSegmentX2; }
  // Decimals shown for bounds; the last positive precision given to SetSegmentX1/X2.
  std::int32_t GetDisplayPrecision() const { return m_nDisplayPrecision; }

  // Sets the lower (X1) or upper (X2) bound of the current range to `x` by the rules
  // above, the other bound kept; a bound typed past the other one swaps them. When
  // `precision` > 0 it becomes the display precision and `x` is first rounded to it
  // ("%.*f" and read back). Returns 1 when the bounds were applied (the caller then
  // refreshes its list of ranges). Returns 0 with nothing changed when the list has no
  // ranges or the current range no longer exists; and 0 with the ranges unchanged (the
  // display precision taken all the same) when `x` is negative (the user is told "Segment
  // range values must be greater or equal to 0"), the bounds would be equal or the user
  // declined.
  int SetSegmentX1(double x, std::int32_t precision);
  int SetSegmentX2(double x, std::int32_t precision);

 protected:
  // Applies `lo`..`hi` to the current range by the rules above; 1 when applied, 0 when
  // refused or declined (nothing changed). With no ranges in the list only the dialog's
  // copy takes the bounds, and the result is 1.
  int CheckAndSetNewRange(double lo, double hi);
  // Neighbours right (left) of the current range that `hi` (`lo`) covers entirely.
  std::int32_t GetNumOverlapsRight(double hi) const;
  std::int32_t GetNumOverlapsLeft(double lo) const;
  // Deletes `count` ranges left of the current one (which is renumbered), then makes the
  // new left neighbour end at `lo` when something was deleted or it reaches beyond `lo`.
  void DeleteAndAdjustSegmentsLeft(std::int32_t count, double lo);
  // The mirror image on the right; the current range keeps its index.
  void DeleteAndAdjustSegmentsRight(std::int32_t count, double hi);

 private:
  int SetSegmentBound(double x, std::int32_t precision, bool lowerBound);
  // Copies the current range's bounds into the dialog's copy, if the range exists.
  void LoadCurrentBounds();

  QXPeakTableList* m_pList;
  std::int32_t m_nCurrentSegment = 0;
  std::int32_t m_nDisplayPrecision = 2;
  double m_dSegmentX1 = 0.0;
  double m_dSegmentX2 = 0.0;
};

}  // namespace qxpkutil
