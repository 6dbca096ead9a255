#include "qxpkutil/ui/CChroPkDetectSetupDlg.h"

#include <type_traits>
#include <utility>

#include "qxpkutil/ui/QXRangeRules.h"

namespace qxpkutil {
namespace {

// The dialog's indices are plain ints, the shared rules' are 32-bit: one type here.
static_assert(std::is_same_v<int, std::int32_t>);

// The segment records of one trace; a missing trace has no ranges.
class TraceRanges final : public QXRangeSequence {
 public:
  explicit TraceRanges(std::vector<QXPeakDetectSetting>* segments) : m_pSegments(segments) {}
  std::int32_t Count() const override {
    return m_pSegments != nullptr ? static_cast<std::int32_t>(m_pSegments->size()) : 0;
  }
  void GetRange(std::int32_t index, double& lo, double& hi) const override {
    (*m_pSegments)[static_cast<std::size_t>(index)].GetDetectionRange(lo, hi);
  }
  void SetRange(std::int32_t index, double lo, double hi) override {
    (*m_pSegments)[static_cast<std::size_t>(index)].SetDetectionRange(lo, hi);
  }
  void DeleteRange(std::int32_t index) override {
    m_pSegments->erase(m_pSegments->begin() + index);
  }

 private:
  std::vector<QXPeakDetectSetting>* m_pSegments;
};

TraceRanges CurrentTrace(CChroPkDetectSetupDlg& dlg) {
  return TraceRanges(dlg.GetTraceSegments(dlg.GetCurrentTrace()));
}

}  // namespace

std::int32_t CChroPkDetectSetupDlg::AddTrace(std::vector<QXPeakDetectSetting> segments) {
  m_arrTraceSegments.push_back(std::move(segments));
  return GetNumTraces() - 1;
}

std::vector<QXPeakDetectSetting>* CChroPkDetectSetupDlg::GetTraceSegments(std::int32_t trace) {
  return IsTrace(trace) ? &m_arrTraceSegments[static_cast<std::size_t>(trace)] : nullptr;
}

const std::vector<QXPeakDetectSetting>* CChroPkDetectSetupDlg::GetTraceSegments(
    std::int32_t trace) const {
  return IsTrace(trace) ? &m_arrTraceSegments[static_cast<std::size_t>(trace)] : nullptr;
}

int CChroPkDetectSetupDlg::SetCurrentTrace(std::int32_t trace) {
  if (GetTraceSegments(trace) == nullptr) return 0;
  m_nCurrentTrace = trace;
  m_nCurrentSegment = 0;
  return 1;
}

int CChroPkDetectSetupDlg::SetCurrentSegment(std::int32_t index) {
  if (index < 0 || index >= CurrentTrace(*this).Count()) return 0;
  m_nCurrentSegment = index;
  return 1;
}

int CChroPkDetectSetupDlg::SetLBound(double x, int precision) {
  return SetBound(x, precision, true);
}

int CChroPkDetectSetupDlg::SetRBound(double x, int precision) {
  return SetBound(x, precision, false);
}

int CChroPkDetectSetupDlg::ValidateAndSetRange(int& index, double lo, double hi) {
  TraceRanges ranges = CurrentTrace(*this);
  return QXApplyRangeRules(ranges, index, lo, hi, m_nDisplayPrecision, kQXChromatogramRangeRules);
}

int CChroPkDetectSetupDlg::GetNumOverlapsRight(double hi, int index) {
  return QXCountCoveredRight(CurrentTrace(*this), index, hi);
}

int CChroPkDetectSetupDlg::GetNumOverlapsLeft(double lo, int index) {
  return QXCountCoveredLeft(CurrentTrace(*this), index, lo);
}

void CChroPkDetectSetupDlg::AdjustSegmentsRight(int& index, double bound, int count) {
  TraceRanges ranges = CurrentTrace(*this);
  QXDeleteAndAdjustRight(ranges, index, count, bound, kQXChromatogramRangeRules.stretchAfterDelete);
}

void CChroPkDetectSetupDlg::AdjustSegmentsLeft(int& index, double bound, int count) {
  TraceRanges ranges = CurrentTrace(*this);
  QXDeleteAndAdjustLeft(ranges, index, count, bound, kQXChromatogramRangeRules.stretchAfterDelete);
}

int CChroPkDetectSetupDlg::SetBound(double x, int precision, bool lowerBound) {
  TraceRanges ranges = CurrentTrace(*this);
  return QXSetRangeBound(ranges, m_nCurrentSegment, m_nDisplayPrecision, x, precision, lowerBound,
                         kQXChromatogramRangeRules);
}

}  // namespace qxpkutil
