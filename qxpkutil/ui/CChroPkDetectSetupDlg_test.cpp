// The range rules are tested through both dialogs in QXRangeRules_test.cpp; here, what the
// chromatogram dialog adds: its traces, typed bounds, helpers on an explicit index.
#include "qxpkutil/ui/CChroPkDetectSetupDlg.h"

#include <gtest/gtest.h>

#include "qxpkutil/platform/QXMessages.h"
#include "testing/QXTestDialogs.h"

namespace qxpkutil {
namespace {

using testing::MakeSegments;
using testing::Ranges;
using testing::RangesOf;
using testing::ScriptedSink;

const Ranges kThree = {{0, 10}, {10, 20}, {20, 30}};

struct Dialog : CChroPkDetectSetupDlg {
  using CChroPkDetectSetupDlg::AdjustSegmentsLeft;
  using CChroPkDetectSetupDlg::AdjustSegmentsRight;
  using CChroPkDetectSetupDlg::GetNumOverlapsLeft;
  using CChroPkDetectSetupDlg::GetNumOverlapsRight;
  Ranges Trace(int trace) const { return RangesOf(*GetTraceSegments(trace)); }
};

TEST(CChroPkDetectSetupDlg, TypedBoundsEditTheCurrentRangeOfTheCurrentTraceOnly) {
  Dialog dlg;
  EXPECT_EQ(dlg.SetLBound(1, 1), 0);  // no trace yet
  EXPECT_EQ(dlg.AddTrace(MakeSegments(kThree)), 0);
  EXPECT_EQ(dlg.AddTrace(MakeSegments(kThree)), 1);
  EXPECT_EQ(dlg.SetCurrentTrace(2), 0);
  EXPECT_EQ(dlg.GetTraceSegments(-1), nullptr);
  ASSERT_EQ(dlg.SetCurrentTrace(1), 1);
  ASSERT_EQ(dlg.SetCurrentSegment(1), 1);
  EXPECT_EQ(dlg.SetCurrentSegment(3), 0);
  ScriptedSink sink({true});

  EXPECT_EQ(dlg.SetRBound(24.96, 1), 1);  // shown with 1 decimal: 25.0
  EXPECT_EQ(dlg.GetDisplayPrecision(), 1);
  EXPECT_EQ(dlg.SetLBound(-1, 0), 0);
  EXPECT_EQ(sink.shown, (ScriptedSink::Record{{kQXMsgRangeNegative, QXLoadString(24701)}}));
  EXPECT_EQ(dlg.Trace(1), (Ranges{{0, 10}, {10, 25}, {25, 30}}));
  EXPECT_EQ(dlg.Trace(0), kThree);
  // Choosing a trace starts again at its first range.
  ASSERT_EQ(dlg.SetCurrentTrace(0), 1);
  EXPECT_EQ(dlg.GetCurrentSegment(), 0);
  EXPECT_EQ(dlg.SetRBound(25, 0), 1);
  EXPECT_EQ(dlg.Trace(0), (Ranges{{0, 25}, {25, 30}}));
  EXPECT_EQ(sink.asked.size(), 1u);
}

TEST(CChroPkDetectSetupDlg, HelpersWorkOnTheIndexGiven) {
  Dialog dlg;
  dlg.AddTrace(MakeSegments({{0, 4}, {6, 10}, {10, 20}, {20, 30}, {30, 40}, {40, 50}}));
  EXPECT_EQ(dlg.GetNumOverlapsRight(40, 2), 2);
  EXPECT_EQ(dlg.GetNumOverlapsRight(39.9999, 2), 1);  // no widening here
  EXPECT_EQ(dlg.GetNumOverlapsLeft(0, 2), 2);
  EXPECT_EQ(dlg.GetNumOverlapsLeft(0, 7), 0);
  int index = 2;
  dlg.AdjustSegmentsRight(index, 35, 1);  // deletes [20,30], trims [30,40]
  dlg.AdjustSegmentsLeft(index, 5, 1);    // deletes [6,10], keeps [0,4]
  EXPECT_EQ(index, 1);
  EXPECT_EQ(dlg.Trace(0), (Ranges{{0, 4}, {10, 20}, {35, 40}, {40, 50}}));
}

}  // namespace
}  // namespace qxpkutil
