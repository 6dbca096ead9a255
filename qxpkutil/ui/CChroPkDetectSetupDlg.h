// The logic of the chromatogram detection setup dialog, free of any window system. The
// dialog keeps its own copy of the detection ranges of every trace (one array of segment
// records per trace) and edits the bounds of the current range of the current trace by
// the rules of QXSegmentedPeakSetupDlg, with the differences listed below.
//
//   CChroPkDetectSetupDlg dlg;
//   dlg.AddTrace({a, b, c});                  // segment records of trace 0, left to right
//   dlg.SetCurrentSegment(1);
//   dlg.SetRBound(25.0, 2);                   // b ends at 25.00, c is trimmed to begin there
#pragma once

#include <cstdint>
#include <vector>

#include "qxpkutil/settings/QXPeakDetectSetting.h"

namespace qxpkutil {

// A new dialog has no traces; the current trace and range are 0 and the display precision
// is 2 decimals until a bound is typed with another.
//
// Where the rules differ from the spectrum dialog's, on purpose:
// - equal (or non-finite) bounds are not refused silently: the user is told "%lf to %lf
//   is not a valid range.";
// - a neighbour counts as covered when its bound equals the new bound as displayed: the
//   counts compare against hi + e and lo - e, with e a tenth of the last displayed digit,
//   rounded to one decimal more than displayed;
// - after any question answered Yes both sides are adjusted, right first, the side not
//   asked about with nothing deleted;
// - a neighbour left after deletions is trimmed only where it still overlaps the new
//   bound, never stretched over a gap.
// The dialog asks whether to go on "unless the answer is No"; with a yes/no sink that is
// the same as going on only on Yes, and without a sink the answer is No.
class CChroPkDetectSetupDlg {
 public:
  // Appends a trace with `segments` as its ranges and returns its index.
  std::int32_t AddTrace(std::vector<QXPeakDetectSetting> segments = {});
  std::int32_t GetNumTraces() const { return static_cast<std::int32_t>(m_arrTraceSegments.size()); }
  // The segment records of `trace`, or null when there is no such trace. The caller may
  // change them freely; the rules expect them ordered left to right.
  std::vector<QXPeakDetectSetting>* GetTraceSegments(std::int32_t trace);
  const std::vector<QXPeakDetectSetting>* GetTraceSegments(std::int32_t trace) const;

  // Makes `trace` current, with its first range; 1 on success, 0 (nothing changed) when
  // there is no such trace.
  int SetCurrentTrace(std::int32_t trace);
  std::int32_t GetCurrentTrace() const { return m_nCurrentTrace; }
  // Makes range `index` of the current trace current; 1 on success, 0 (nothing changed)
  // when there is no such range.
  int SetCurrentSegment(std::int32_t index);
  // The current range; it moves down as ranges to its left are combined into it.
  std::int32_t GetCurrentSegment() const { return m_nCurrentSegment; }
  std::int32_t GetDisplayPrecision() const { return m_nDisplayPrecision; }

  // Set the lower (L) or upper (R) bound of the current range of the current trace to
  // `x`, the other bound kept, exactly as QXSegmentedPeakSetupDlg::SetSegmentX1/X2 do
  // (`precision` > 0 sets the display precision and rounds `x` to it; negative bounds are
  // refused with a message) but by this dialog's rules. 1 when applied, else 0.
  int SetLBound(double x, int precision);
  int SetRBound(double x, int precision);

 protected:
  // Applies `lo`..`hi` to range `index` of the current trace by this dialog's rules;
  // `index` follows the range as ranges to its left are deleted. 1 when applied; 0 when
  // refused or declined, with nothing changed. A trace without ranges takes nothing and
  // gives 1.
  int ValidateAndSetRange(int& index, double lo, double hi);
  // Neighbours right (left) of range `index` that `hi` (`lo`) covers entirely, compared
  // as given (the widening by the display precision is ValidateAndSetRange's).
  int GetNumOverlapsRight(double hi, int index);
  int GetNumOverlapsLeft(double lo, int index);
  // Delete `count` neighbours right (left) of range `index`, then trim the next one if it
  // overlaps `bound`. Deleting on the left moves `index` down by one per deletion.
  void AdjustSegmentsRight(int& index, double bound, int count);
  void AdjustSegmentsLeft(int& index, double bound, int count);

 private:
  bool IsTrace(std::int32_t trace) const { return trace >= 0 && trace < GetNumTraces(); }
  int SetBound(double x, int precision, bool lowerBound);

  std::vector<std::vector<QXPeakDetectSetting>> m_arrTraceSegments;
  std::int32_t m_nCurrentTrace = 0;
  std::int32_t m_nCurrentSegment = 0;
  std::int32_t m_nDisplayPrecision = 2;
};

}  // namespace qxpkutil
