#include "qxpkutil/ui/QXSegmentedPeakSetupDlg.h"

#include <algorithm>

#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/ui/QXRangeRules.h"

namespace qxpkutil {
namespace {

// The segments of a list, edited through its own range setters so that settingsChanged
// follows every change. A null list has no ranges.
class SegmentRanges final : public QXRangeSequence {
 public:
  explicit SegmentRanges(QXPeakTableList* list) : m_pList(list) {}
  std::int32_t Count() const override {
    return m_pList != nullptr ? m_pList->GetNumDetectionSettings() : 0;
  }
  void GetRange(std::int32_t index, double& lo, double& hi) const override {
    m_pList->GetDetectionRange(index, lo, hi);
  }
  void SetRange(std::int32_t index, double lo, double hi) override {
    m_pList->SetDetectionRange(index, lo, hi);
  }
  void DeleteRange(std::int32_t index) override { m_pList->DeleteDetectionSetting(index); }

 private:
  QXPeakTableList* m_pList;
};

}  // namespace

QXSegmentedPeakSetupDlg::QXSegmentedPeakSetupDlg(QXPeakTableList* list) : m_pList(list) {
  LoadCurrentBounds();
}

int QXSegmentedPeakSetupDlg::SetCurrentSegment(std::int32_t index) {
  if (index < 0 || index >= SegmentRanges(m_pList).Count()) return 0;
  m_nCurrentSegment = index;
  LoadCurrentBounds();
  return 1;
}

int QXSegmentedPeakSetupDlg::SetSegmentX1(double x, std::int32_t precision) {
  return SetSegmentBound(x, precision, true);
}

int QXSegmentedPeakSetupDlg::SetSegmentX2(double x, std::int32_t precision) {
  return SetSegmentBound(x, precision, false);
}

int QXSegmentedPeakSetupDlg::CheckAndSetNewRange(double lo, double hi) {
  SegmentRanges ranges(m_pList);
  if (QXApplyRangeRules(ranges, m_nCurrentSegment, lo, hi, m_nDisplayPrecision,
                        kQXSegmentedRangeRules) == 0) {
    return 0;
  }
  m_dSegmentX1 = std::min(lo, hi);
  m_dSegmentX2 = std::max(lo, hi);
  return 1;
}

std::int32_t QXSegmentedPeakSetupDlg::GetNumOverlapsRight(double hi) const {
  return QXCountCoveredRight(SegmentRanges(m_pList), m_nCurrentSegment, hi);
}

std::int32_t QXSegmentedPeakSetupDlg::GetNumOverlapsLeft(double lo) const {
  return QXCountCoveredLeft(SegmentRanges(m_pList), m_nCurrentSegment, lo);
}

void QXSegmentedPeakSetupDlg::DeleteAndAdjustSegmentsLeft(std::int32_t count, double lo) {
  SegmentRanges ranges(m_pList);
  QXDeleteAndAdjustLeft(ranges, m_nCurrentSegment, count, lo,
                        kQXSegmentedRangeRules.stretchAfterDelete);
}

void QXSegmentedPeakSetupDlg::DeleteAndAdjustSegmentsRight(std::int32_t count, double hi) {
  SegmentRanges ranges(m_pList);
  QXDeleteAndAdjustRight(ranges, m_nCurrentSegment, count, hi,
                         kQXSegmentedRangeRules.stretchAfterDelete);
}

int QXSegmentedPeakSetupDlg::SetSegmentBound(double x, std::int32_t precision, bool lowerBound) {
  SegmentRanges ranges(m_pList);
  if (QXSetRangeBound(ranges, m_nCurrentSegment, m_nDisplayPrecision, x, precision, lowerBound,
                      kQXSegmentedRangeRules) == 0) {
    return 0;
  }
  LoadCurrentBounds();
  return 1;
}

void QXSegmentedPeakSetupDlg::LoadCurrentBounds() {
  if (m_pList != nullptr) m_pList->GetDetectionRange(m_nCurrentSegment, m_dSegmentX1, m_dSegmentX2);
}

}  // namespace qxpkutil
