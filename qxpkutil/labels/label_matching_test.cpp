#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/peaks/QXPeakTable.h"

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

std::vector<std::string> PeakLabels(const QXPeakTable& table) {
  std::vector<std::string> labels;
  for (long i = 0; i < table.GetNumPeaks(); ++i) labels.push_back(table.GetPeak(i)->m_strLabel);
  return labels;
}

std::vector<bool> Marked(const QXPeakTable& table) {
  std::vector<bool> marked;
  for (long i = 0; i < table.GetNumPeaks(); ++i) {
    marked.push_back((table.GetPeak(i)->m_dwFlags & kQXPeakLabelled) != 0);
  }
  return marked;
}

QXUserPkLabels MakeLabels(int type, int useCharge, const std::vector<QXUserPeakLabelItem>& items) {
  QXUserPkLabels labels;
  for (const auto& item : items) labels.AddUserLabel(item, -1);
  labels.SetUserLabelType(type);
  labels.SetUseChargeState(useCharge);
  return labels;
}

TEST(MatchUserPeakLabels, MassListMarksTheMostIntensePeakInEachWindow) {
  QXPeakTable table = MakeTable({{100.0, 5, 0}, {100.5, 9, 0}, {200.0, 1, 0}, {300.0, 1, 0}});
  QXUserPkLabels labels = MakeLabels(
      0, 0,
      {QXUserPeakLabelItem(100.25, 0.5, "pair", 0), QXUserPeakLabelItem(200.0, 0.0, "exact", 0),
       QXUserPeakLabelItem(250.0, 10.0, "none", 0), QXUserPeakLabelItem(100.5, 0.1, "again", 0),
       QXUserPeakLabelItem(std::nan(""), 1e9, "nan", 0),
       QXUserPeakLabelItem(-std::numeric_limits<double>::max(), 0.0, "sentinel", 0)});
  ASSERT_EQ(labels.LabelsChanged(), 1);
  table.MatchUserPeakLabels(&labels, 1, 0, nullptr);
  EXPECT_EQ(PeakLabels(table), (std::vector<std::string>{"", "pair,again", "exact", ""}));
  EXPECT_EQ(Marked(table), (std::vector<bool>{false, true, true, false}));
  EXPECT_EQ(labels.LabelsChanged(), 0);

  table.MatchUserPeakLabels(&labels, 1, 0, nullptr);
  EXPECT_EQ(table.GetPeak(2)->m_strLabel, "exact,exact");
}

TEST(MatchUserPeakLabels, NullOrEmptyListDoesNothing) {
  QXPeakTable table = MakeTable({{1.0, 1, 0}});
  QXUserPkLabels empty;
  empty.SetLabelsChanged(1);
  table.MatchUserPeakLabels(nullptr, 0, 0, nullptr);
  table.MatchUserPeakLabels(&empty, 0, 0, nullptr);
  EXPECT_EQ(empty.LabelsChanged(), 1);
  EXPECT_EQ(Marked(table), std::vector<bool>{false});
}

// An isotope-like series whose spacings are exact binary fractions, so that the strict
// tolerance test is decided without rounding: 1.0, 1.125, 1.25 (on the bound), 0.875.
const std::vector<Peak> kSeries = {
    {500.0, 10, 1}, {501.0, 8, 2}, {502.125, 6, 1}, {503.375, 4, 1}, {504.25, 2, 1}};

TEST(MatchUserPeakLabels, DifferenceListMarksTheLeftPeakOfEachMatchingPair) {
  QXPeakTable table = MakeTable(kSeries);
  QXUserPkLabels labels = MakeLabels(1, 0,
                                     {QXUserPeakLabelItem(1.0, 0.25, "step", 0),
                                      QXUserPeakLabelItem(1.125, 0.001, "wide", 0)});
  table.MatchUserPeakLabels(&labels, 1, kQXFilterAll, nullptr);
  EXPECT_EQ(PeakLabels(table), (std::vector<std::string>{"step", "step,wide", "", "step", ""}));
  EXPECT_EQ(labels.LabelsChanged(), 0);
}

TEST(MatchUserPeakLabels, DifferenceListWalksOnlyPeaksThatPassTheFilter) {
  QXPeakTable table = MakeTable(kSeries);
  QXUserPkLabels labels = MakeLabels(1, 0, {QXUserPeakLabelItem(2.125, 0.01, "skip", 0)});
  table.MatchUserPeakLabels(&labels, 1, kQXFilterAll, nullptr);
  EXPECT_EQ(Marked(table), (std::vector<bool>{false, false, false, false, false}));
  tagQXPeakFilterStruct filter{};
  filter.nCharge = 1;  // walks 500, 502.125, 503.375, 504.25
  table.MatchUserPeakLabels(&labels, 1, kQXFilterCharge, &filter);
  EXPECT_EQ(Marked(table), (std::vector<bool>{true, false, false, false, false}));
}

// (use charge state, difference list)
class ChargeState : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(ChargeState, ChargedLabelsMatchOnlyPeaksOfThatChargeWhenSwitchedOn) {
  const auto [useCharge, type] = GetParam();
  QXPeakTable table = MakeTable(kSeries);
  const std::vector<QXUserPeakLabelItem> items =
      type == 1 ? std::vector{QXUserPeakLabelItem(1.0, 0.25, "z2", 2),
                              QXUserPeakLabelItem(1.0, 0.25, "any", 0)}
                : std::vector{QXUserPeakLabelItem(500.0, 0.1, "z2", 2),
                              QXUserPeakLabelItem(501.0, 0.1, "z2", 2),
                              QXUserPeakLabelItem(501.0, 0.1, "any", 0)};
  QXUserPkLabels labels = MakeLabels(type, useCharge, items);
  table.MatchUserPeakLabels(&labels, 0, kQXFilterAll, nullptr);
  const std::vector<std::string> expected =
      type == 1 ? (useCharge ? std::vector<std::string>{"any", "z2,any", "", "any", ""}
                             : std::vector<std::string>{"z2,any", "z2,any", "", "z2,any", ""})
                : (useCharge ? std::vector<std::string>{"", "z2,any", "", "", ""}
                             : std::vector<std::string>{"z2", "z2,any", "", "", ""});
  EXPECT_EQ(PeakLabels(table), expected);
}

INSTANTIATE_TEST_SUITE_P(OnOff, ChargeState,
                         ::testing::Combine(::testing::Values(0, 1), ::testing::Values(0, 1)));

TEST(ClearUserPeakLabels, ClearsOnlyMarkedPeaks) {
  QXPeakTable table = MakeTable({{1.0, 1, 0}, {2.0, 1, 0}});
  table.GetPeak(0)->m_strLabel = "own";
  QXUserPkLabels labels = MakeLabels(0, 0, {QXUserPeakLabelItem(2.0, 0.1, "user", 0)});
  table.MatchUserPeakLabels(&labels, 0, 0, nullptr);
  table.ClearUserPeakLabels();
  EXPECT_EQ(PeakLabels(table), (std::vector<std::string>{"own", ""}));
  EXPECT_EQ(table.GetPeak(1)->m_dwFlags, kQXPeakNormal);
}

}  // namespace
}  // namespace qxpkutil
