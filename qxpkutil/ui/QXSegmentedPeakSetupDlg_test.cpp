// The range rules are tested through both dialogs in QXRangeRules_test.cpp; here, what the
// spectrum dialog adds: typed bounds, its copy of them, a list that changes under it.
#include "qxpkutil/ui/QXSegmentedPeakSetupDlg.h"

#include <gtest/gtest.h>

#include <utility>

#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "testing/QXTestDialogs.h"

namespace qxpkutil {
namespace {

using testing::Ranges;
using testing::RangesOf;
using testing::ScriptedSink;

const Ranges kThree = {{0, 10}, {10, 20}, {20, 30}};

struct Dialog : QXSegmentedPeakSetupDlg {
  using QXSegmentedPeakSetupDlg::CheckAndSetNewRange;
  using QXSegmentedPeakSetupDlg::DeleteAndAdjustSegmentsLeft;
  using QXSegmentedPeakSetupDlg::DeleteAndAdjustSegmentsRight;
  using QXSegmentedPeakSetupDlg::QXSegmentedPeakSetupDlg;
  std::pair<double, double> Shown() const { return {GetSegmentX1(), GetSegmentX2()}; }
};

TEST(QXSegmentedPeakSetupDlg, TypedBoundsAreRoundedToTheDisplayPrecisionOrRefused) {
  QXPeakTableList list = testing::MakeList(kThree);
  Dialog dlg(&list);
  ASSERT_EQ(dlg.SetCurrentSegment(1), 1);
  list.ForceSettingChange(0);
  EXPECT_EQ(dlg.SetSegmentX1(5.04, 1), 1);
  EXPECT_EQ(dlg.GetDisplayPrecision(), 1);
  EXPECT_EQ(list.SettingsChanged(), 1);
  // A precision of 0 keeps the remembered one and the value as typed.
  EXPECT_EQ(dlg.SetSegmentX2(24.96, 0), 1);
  EXPECT_EQ(dlg.GetDisplayPrecision(), 1);
  EXPECT_EQ(RangesOf(list), (Ranges{{0, 5}, {5, 24.96}, {24.96, 30}}));
  EXPECT_EQ(dlg.Shown(), std::make_pair(5.0, 24.96));
  // An upper bound typed below the lower one swaps them.
  EXPECT_EQ(dlg.SetSegmentX2(2, 1), 1);
  const Ranges after = {{0, 2}, {2, 5}, {24.96, 30}};
  EXPECT_EQ(RangesOf(list), after);
  EXPECT_EQ(dlg.Shown(), std::make_pair(2.0, 5.0));

  ScriptedSink sink({false});
  EXPECT_EQ(dlg.SetSegmentX1(-0.5, 0), 0);
  EXPECT_EQ(sink.shown, (ScriptedSink::Record{{kQXMsgRangeNegative, QXLoadString(24701)}}));
  EXPECT_EQ(dlg.SetSegmentX1(5.04, 1), 0);  // equal to the upper bound once rounded
  EXPECT_EQ(dlg.SetSegmentX1(0, 1), 0);     // the user declines to combine
  EXPECT_EQ(sink.asked.size(), 1u);
  EXPECT_EQ(RangesOf(list), after);
  EXPECT_EQ(dlg.Shown(), std::make_pair(2.0, 5.0));
}

TEST(QXSegmentedPeakSetupDlg, WithoutRangesOnlyTheDialogTakesTheBounds) {
  Dialog dlg(nullptr);
  EXPECT_EQ(dlg.SetCurrentSegment(0), 0);
  EXPECT_EQ(dlg.CheckAndSetNewRange(20, 10), 1);
  EXPECT_EQ(dlg.Shown(), std::make_pair(10.0, 20.0));
  EXPECT_EQ(dlg.SetSegmentX1(5, 1), 0);
  EXPECT_EQ(dlg.GetDisplayPrecision(), 2);
}

TEST(QXSegmentedPeakSetupDlg, StaysWithinTheListAsItChanges) {
  QXPeakTableList list = testing::MakeList({{0, 4}, {6, 10}, {10, 20}, {20, 30}, {30, 40}});
  Dialog dlg(&list);
  ASSERT_EQ(dlg.SetCurrentSegment(2), 1);
  dlg.DeleteAndAdjustSegmentsLeft(7, 1);  // more deletions than neighbours
  EXPECT_EQ(dlg.GetCurrentSegment(), 0);
  dlg.DeleteAndAdjustSegmentsRight(-1, 25);
  EXPECT_EQ(RangesOf(list), (Ranges{{10, 20}, {25, 30}, {30, 40}}));
  // The current range deleted from the list by someone else.
  ASSERT_EQ(dlg.SetCurrentSegment(2), 1);
  list.DeleteDetectionSetting(-1);
  ScriptedSink sink({true});
  EXPECT_EQ(dlg.CheckAndSetNewRange(0, 50), 0);
  EXPECT_EQ(dlg.SetSegmentX1(1, 0), 0);
  dlg.DeleteAndAdjustSegmentsLeft(1, 0);
  EXPECT_EQ(RangesOf(list), (Ranges{{10, 20}, {25, 30}}));
  EXPECT_EQ(dlg.SetCurrentSegment(2), 0);
}

}  // namespace
}  // namespace qxpkutil
