// The range rules through both dialogs that apply them: the spectrum dialog on a
// QXPeakTableList, the chromatogram dialog on its own segment records.
#include "qxpkutil/ui/QXRangeRules.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/ui/CChroPkDetectSetupDlg.h"
#include "qxpkutil/ui/QXSegmentedPeakSetupDlg.h"
#include "testing/QXTestDialogs.h"

namespace qxpkutil {
namespace {

using testing::Ranges;
using testing::RangesOf;
using testing::ScriptedSink;

struct Spectrum : QXSegmentedPeakSetupDlg {
  using QXSegmentedPeakSetupDlg::CheckAndSetNewRange;
  using QXSegmentedPeakSetupDlg::QXSegmentedPeakSetupDlg;
};
struct Chromatogram : CChroPkDetectSetupDlg {
  using CChroPkDetectSetupDlg::ValidateAndSetRange;
};

struct Outcome {
  int result;
  Ranges ranges;
  int current;
  ScriptedSink::Record asked, shown;
};

Outcome RunSpectrum(const Ranges& before, int current, double lo, double hi, bool answer) {
  QXPeakTableList list = testing::MakeList(before);
  Spectrum dlg(&list);
  dlg.SetCurrentSegment(current);
  ScriptedSink sink({answer});
  const int result = dlg.CheckAndSetNewRange(lo, hi);
  return {result, RangesOf(list), dlg.GetCurrentSegment(), sink.asked, sink.shown};
}

// The chromatogram dialog shows 2 decimals, so its counts widen the bounds by 0.001.
Outcome RunChromatogram(const Ranges& before, int current, double lo, double hi, bool answer) {
  Chromatogram dlg;
  dlg.AddTrace(testing::MakeSegments(before));
  ScriptedSink sink({answer});
  const int result = dlg.ValidateAndSetRange(current, lo, hi);
  return {result, RangesOf(*dlg.GetTraceSegments(0)), current, sink.asked, sink.shown};
}

const Ranges kThree = {{0, 10}, {10, 20}, {20, 30}};
// A gap after the first range, and room for several deletions on either side.
const Ranges kSix = {{0, 4}, {6, 10}, {10, 20}, {20, 30}, {30, 40}, {40, 50}};

constexpr int kAsSpectrum = -1;

struct Expected {
  int question;  // string id asked, 0 for none; kAsSpectrum: as the spectrum dialog
  Ranges ranges;
  int current;
};
struct RuleCase {
  const char* name;
  Ranges before;
  int current;
  double lo, hi;
  Expected spectrum;  // after a Yes
  Expected chromatogram = {kAsSpectrum, {}, 0};
  const char* text = nullptr;  // the question, the same in both dialogs
};

class RangeRules : public ::testing::TestWithParam<RuleCase> {};

// With Yes each dialog ends as expected, after the question it should ask (ranges are
// numbered from 1 in its text); with No nothing changes once a question is asked.
TEST_P(RangeRules, BothDialogsOnYesAndOnNo) {
  const RuleCase& c = GetParam();
  for (const auto run : {&RunSpectrum, &RunChromatogram}) {
    const bool asSpectrum = run == &RunSpectrum || c.chromatogram.question == kAsSpectrum;
    const Expected& e = asSpectrum ? c.spectrum : c.chromatogram;
    const Outcome yes = run(c.before, c.current, c.lo, c.hi, true);
    std::vector<int> askedIds;
    for (const auto& [id, text] : yes.asked) askedIds.push_back(id);
    EXPECT_EQ(std::tie(yes.result, yes.ranges, yes.current),
              std::make_tuple(1, e.ranges, e.current));
    EXPECT_EQ(askedIds, e.question != 0 ? std::vector<int>{e.question} : std::vector<int>{});
    if (c.text != nullptr && !yes.asked.empty()) {
      EXPECT_EQ(yes.asked[0].second, c.text);
    }
    if (e.question == 0) continue;
    const Outcome no = run(c.before, c.current, c.lo, c.hi, false);
    EXPECT_EQ(std::tie(no.result, no.ranges, no.current), std::make_tuple(0, c.before, c.current));
  }
}

constexpr int kOne = kQXMsgCombineOneSide;
constexpr int kBoth = kQXMsgCombineBothSides;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, RangeRules, ::testing::Values(
    RuleCase{"PartlyOverlappedNeighboursAreTrimmedAndReversedBoundsSwapped", kThree, 1, 25, 5,
             {0, {{0, 5}, {5, 25}, {25, 30}}, 1}},
    RuleCase{"LeftNeighbourSwallowed", kThree, 1, 0, 20, {kOne, {{0, 20}, {20, 30}}, 0},
             {kAsSpectrum, {}, 0},
             "A new left bound of 0.0 overlaps the left bound of Range 1.\n\nDo you want to "
             "combine Ranges 2 -> 1?"},
    RuleCase{"OnlyTheChromatogramTrimsTheRightWhenAskedAboutTheLeft", kThree, 1, 0, 25,
             {kOne, {{0, 25}, {20, 30}}, 0}, {kOne, {{0, 25}, {25, 30}}, 0}},
    RuleCase{"OnlyTheChromatogramTrimsTheLeftWhenAskedAboutTheRight", kThree, 1, 5, 30,
             {kOne, {{0, 10}, {5, 30}}, 1}, {kOne, {{0, 5}, {5, 30}}, 1}},
    RuleCase{"BothNeighboursSwallowed", kThree, 1, 0, 30, {kBoth, {{0, 30}}, 0}},
    RuleCase{"OnlyTheSpectrumStretchesTheNeighbourBeyondADeletion", kSix, 2, 5, 20,
             {kOne, {{0, 5}, {5, 20}, {20, 30}, {30, 40}, {40, 50}}, 1},
             {kOne, {{0, 4}, {5, 20}, {20, 30}, {30, 40}, {40, 50}}, 1}},
    RuleCase{"SeveralDeletionsOnBothSides", kSix, 2, 5, 45, {kBoth, {{0, 5}, {5, 45}, {45, 50}}, 1},
             {kBoth, {{0, 4}, {5, 45}, {45, 50}}, 1},
             "New range bounds of 5.0 and  45.0 overlap multiple ranges to the right and left "
             "of Range 3.\n\nDo you want to combine ranges?"},
    RuleCase{"SeveralDeletionsOnTheRight", kSix, 2, 10, 45,
             {kOne, {{0, 4}, {6, 10}, {10, 45}, {45, 50}}, 2}, {kAsSpectrum, {}, 0},
             "A new right bound of 45.0 overlaps the right bound of Range 5.\n\nDo you want to "
             "combine Ranges 3 -> 5?"},
    RuleCase{"OnlyTheChromatogramCoversBoundsEqualAsDisplayed", kThree, 1, 0.0008, 29.9992,
             {0, {{0, 0.0008}, {0.0008, 29.9992}, {29.9992, 30}}, 1},
             {kBoth, {{0.0008, 29.9992}}, 0}},
    RuleCase{"BoundsADisplayedDigitShortCoverNothing", kThree, 1, 0.002, 29.998,
             {0, {{0, 0.002}, {0.002, 29.998}, {29.998, 30}}, 1}},
    RuleCase{"FirstRange", kThree, 0, 0, 25, {kOne, {{0, 25}, {25, 30}}, 0}},
    RuleCase{"LastRange", kThree, 2, 15, 40, {0, {{0, 10}, {10, 15}, {15, 40}}, 2}}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

TEST(RangeRules, OnlyTheChromatogramReportsAnInvalidRange) {
  const double inf = std::numeric_limits<double>::infinity();
  for (const auto& [lo, hi] : Ranges{{15, 15}, {0, inf}, {std::nan(""), 5}}) {
    const Outcome spectrum = RunSpectrum(kThree, 1, lo, hi, true);
    const Outcome chromatogram = RunChromatogram(kThree, 1, lo, hi, true);
    for (const Outcome& out : {spectrum, chromatogram}) {
      EXPECT_EQ(out.result, 0);
      EXPECT_EQ(out.ranges, kThree);
      EXPECT_TRUE(out.asked.empty());
    }
    EXPECT_TRUE(spectrum.shown.empty());
    ASSERT_EQ(chromatogram.shown.size(), 1u);
    EXPECT_EQ(chromatogram.shown[0].first, kQXMsgInvalidRange);
  }
  EXPECT_EQ(RunChromatogram(kThree, 1, 15, 15, true).shown[0].second,
            "15.000000 to 15.000000 is not a valid range.");
}

TEST(RangeRules, WithoutRangesNothingIsSetAndTheResultIs1) {
  EXPECT_EQ(RunSpectrum({}, 0, 1, 2, true).result, 1);
  EXPECT_EQ(RunChromatogram({}, 0, 1, 2, true).result, 1);
  // A current range that does not exist in a non-empty list is refused.
  EXPECT_EQ(RunChromatogram(kThree, 3, 1, 2, true).result, 0);
  EXPECT_EQ(RunChromatogram(kThree, -1, 1, 2, true).result, 0);
}

}  // namespace
}  // namespace qxpkutil
