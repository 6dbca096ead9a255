#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestPeaks.h"

namespace qxpkutil {
namespace {

struct Peak {
  double x;  // apex and centroid
  double y;
  int charge;
};

QXPeakTable MakeTable(const std::vector<Peak>& peaks) {
  QXPeakTable table;
  for (const Peak& p : peaks) {
    table.AddPeak(p.x, p.y, 0, p.x, 0, 0, p.x, 0, 0, p.x, 0, p.x, 0, p.x, 0, p.charge);
  }
  table.SortPeakTable(0);
  return table;
}

// Each peak's label, with "*" in front when the peak carries the labelled mark.
std::vector<std::string> PeakLabels(const QXPeakTable& table) {
  return testing::EachPeak(table, [](const QXPeakTableElement& p) {
    return ((p.m_dwFlags & kQXPeakLabelled) != 0 ? "*" : "") + p.m_strLabel;
  });
}

QXUserPkLabels MakeLabels(int type, int useCharge, const std::vector<QXUserPeakLabelItem>& items) {
  QXUserPkLabels labels;
  for (const auto& item : items) labels.AddUserLabel(item, -1);
  labels.SetUserLabelType(type);
  labels.SetUseChargeState(useCharge);
  return labels;
}

using Labels = std::vector<std::string>;

TEST(MatchUserPeakLabels, MassListMarksTheMostIntensePeakInEachWindow) {
  QXPeakTable table = MakeTable({{100.0, 5, 0}, {100.5, 9, 0}, {200.0, 1, 0}, {300.0, 1, 0}});
  table.GetPeak(3)->m_strLabel = "own";
  QXUserPkLabels labels = MakeLabels(0, 0,
                                     {{100.25, 0.5, "pair", 0},
                                      {200.0, 0.0, "exact", 0},
                                      {250.0, 10.0, "none", 0},
                                      {100.5, 0.1, "again", 0},
                                      {std::nan(""), 1e9, "nan", 0},
                                      {-std::numeric_limits<double>::max(), 0.0, "sentinel", 0}});
  table.MatchUserPeakLabels(&labels, 1, 0, nullptr);
  EXPECT_EQ(PeakLabels(table), (Labels{"", "*pair,again", "*exact", "own"}));
  EXPECT_EQ(labels.LabelsChanged(), 0);
  table.MatchUserPeakLabels(&labels, 1, 0, nullptr);
  EXPECT_EQ(PeakLabels(table)[2], "*exact,exact");

  table.ClearUserPeakLabels();  // peaks without the mark keep their own label
  EXPECT_EQ(PeakLabels(table), (Labels{"", "", "", "own"}));

  QXUserPkLabels empty;  // does nothing at all, not even clearing its changed flag
  empty.SetLabelsChanged(1);
  table.MatchUserPeakLabels(&empty, 1, 0, nullptr);
  EXPECT_EQ(empty.LabelsChanged(), 1);
}

// An isotope-like series whose spacings are exact binary fractions, so that the strict
// tolerance test is decided without rounding: 1.0, 1.125, 1.25 (on the bound), 0.875.
const std::vector<Peak> kSeries = {
    {500.0, 10, 1}, {501.0, 8, 2}, {502.125, 6, 1}, {503.375, 4, 1}, {504.25, 2, 1}};

TEST(MatchUserPeakLabels, DifferenceListMarksTheLeftPeakOfEachMatchingPair) {
  QXPeakTable table = MakeTable(kSeries);
  QXUserPkLabels labels =
      MakeLabels(1, 0, {{1.0, 0.25, "step", 0}, {1.125, 0.001, "w", 0}, {2.125, 0.01, "skip", 0}});
  table.MatchUserPeakLabels(&labels, 1, kQXFilterAll, nullptr);
  EXPECT_EQ(PeakLabels(table), (Labels{"*step", "*step,w", "", "*step", ""}));
  EXPECT_EQ(labels.LabelsChanged(), 0);

  // Only peaks that pass the filter form pairs: charge 1 walks 500, 502.125, 503.375, 504.25.
  table.ClearUserPeakLabels();
  tagQXPeakFilterStruct filter{};
  filter.nCharge = 1;
  table.MatchUserPeakLabels(&labels, 1, kQXFilterCharge, &filter);
  EXPECT_EQ(PeakLabels(table), (Labels{"*skip", "", "", "*step", ""}));
}

TEST(MatchUserPeakLabels, ChargedLabelsMatchOnlyPeaksOfThatChargeWhenSwitchedOn) {
  for (int useCharge : {0, 1}) {
    QXPeakTable masses = MakeTable(kSeries);
    QXUserPkLabels byMass = MakeLabels(
        0, useCharge, {{500.0, 0.1, "z2", 2}, {501.0, 0.1, "z2", 2}, {501.0, 0.1, "any", 0}});
    masses.MatchUserPeakLabels(&byMass, 0, kQXFilterAll, nullptr);
    EXPECT_EQ(PeakLabels(masses), (useCharge ? Labels{"", "*z2,any", "", "", ""}
                                             : Labels{"*z2", "*z2,any", "", "", ""}));

    // A difference label tests the charge of the pair's left peak.
    QXPeakTable steps = MakeTable(kSeries);
    QXUserPkLabels bySteps =
        MakeLabels(1, useCharge, {{1.0, 0.25, "z2", 2}, {1.0, 0.25, "any", 0}});
    steps.MatchUserPeakLabels(&bySteps, 0, kQXFilterAll, nullptr);
    EXPECT_EQ(PeakLabels(steps), (useCharge ? Labels{"*any", "*z2,any", "", "*any", ""}
                                            : Labels{"*z2,any", "*z2,any", "", "*z2,any", ""}));
  }
}

}  // namespace
}  // namespace qxpkutil
