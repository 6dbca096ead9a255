// Label files and their text form, through QXUserPkLabels' load and save.
#include "qxpkutil/labels/QXUserPkLabels.h"

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/platform/QXMessages.h"
#include "testing/QXTestFiles.h"
#include "testing/QXTestLabels.h"
#include "testing/QXTestMessages.h"

namespace qxpkutil {
namespace {

using testing::Item;
using testing::Items;
using testing::LabelList;
using testing::Names;

class LabelFiles : public ::testing::Test {
 protected:
  std::string PathOf(const char* file) const { return dir_.PathOf(file); }

  testing::ScriptedSink sink_;
  testing::ScratchDir dir_;
};

// (to a file, with a charge column, use charge state, difference list)
class LabelRoundTrip : public LabelFiles,
                       public ::testing::WithParamInterface<std::tuple<bool, bool, bool, bool>> {};

TEST_P(LabelRoundTrip, RestoresLabelsChargesAndBothSwitches) {
  const auto [toFile, withCharge, useCharge, difference] = GetParam();
  const std::vector<Item> sample = {
      {"13C", 1.003355, 0.01, 1}, {std::string(5000, 'n'), -3.5, 0.25, -2}, {"x y", 0.0, 0.0, 0}};
  QXUserPkLabels saved = LabelList(sample);
  saved.SetUseChargeState(useCharge);
  saved.SetUserLabelType(difference);
  const std::string path = toFile ? PathOf("list.lbs") : "";
  std::string text;
  ASSERT_EQ(saved.SaveLabelsToFile(withCharge, path.c_str(), 1, text), 1);

  QXUserPkLabels loaded = LabelList("o");
  loaded.SetUseChargeState(!useCharge);
  loaded.SetUserLabelType(!difference);
  ASSERT_EQ(loaded.LoadLabelsFromFile(path.c_str(), 1, text), 1);
  std::vector<Item> expected = sample;
  for (Item& it : expected) it.charge = withCharge ? it.charge : 0;
  EXPECT_EQ(std::make_tuple(Items(loaded), loaded.GetUseChargeState(), loaded.GetUserLabelType(),
                            loaded.LabelsChanged(), sink_.shown.size()),
            std::make_tuple(expected, useCharge, difference, 1, 0u));
}

INSTANTIATE_TEST_SUITE_P(AllForms, LabelRoundTrip,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool(),
                                            ::testing::Bool()));

TEST_F(LabelFiles, WritesTheTextAndFileFormsExactly) {
  QXUserPkLabels list = LabelList({{"A", 2.5, 0.125, -2}, {"B", 1e6, 1.0, 0}});
  list.SetUseChargeState(1);
  list.SetUserLabelType(1);
  std::string text;
  ASSERT_EQ(list.SaveLabelsToFile(1, nullptr, 0, text), 1);
  const std::string header = "Label\tX Value\tDelta X\tCharge\tUseChargeState\tDifference\n";
  EXPECT_EQ(text, header + "\n;A\t2.500000\t0.125000\t-2\n;B\t1000000.000000\t1.000000\t0\n;");
  const std::string path = PathOf("list.lbc");
  ASSERT_EQ(list.SaveLabelsToFile(1, path.c_str(), 0, text), 1);
  EXPECT_EQ(testing::ReadText(path),
            header + "A\t2.500000\t0.125000\t-2\nB\t1000000.000000\t1.000000\t0\n");

  QXUserPkLabels empty;  // writes its header, but reports that no label was written
  EXPECT_EQ(empty.SaveLabelsToFile(0, path.c_str(), 1, text), 0);
  EXPECT_EQ(testing::ReadText(path), "Label\tX Value\tDelta X\n");
}

class LabelLineParser
    : public ::testing::TestWithParam<std::tuple<std::string, std::vector<Item>>> {};

TEST_P(LabelLineParser, MissingOrMalformedFieldsCarryOverFromThePreviousLine) {
  QXUserPkLabels list;
  const auto& [body, expected] = GetParam();
  list.LoadLabelsFromFile("", 0, "Label\tX Value\tDelta X\n\n;" + body);
  EXPECT_EQ(Items(list), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, LabelLineParser,
    ::testing::Values(
        std::tuple{"A\n;", std::vector<Item>{{"A", 1.0, 1.0, 0}}},  // the values before any line
        std::tuple{"A\t2\t0.5\t3\n;\n;B\t7\n;",
                   std::vector<Item>{{"A", 2.0, 0.5, 3}, {"A", 2.0, 0.5, 3}, {"B", 7.0, 0.5, 3}}},
        std::tuple{
            "A\t2\t.5\t3;\t9\t9\t9;C\tabc\t9;D\t4\tx;",
            std::vector<Item>{
                {"A", 2.0, 0.5, 3}, {"A", 2.0, 0.5, 3}, {"C", 2.0, 0.5, 3}, {"D", 4.0, 0.5, 3}}},
        std::tuple{"E \t+1.5e2 \t 1e-3\t+4\r\n;F\r\n;G\t+-1;H\t1\t1",  // last piece unterminated
                   std::vector<Item>{
                       {"E ", 150.0, 0.001, 4}, {"F", 150.0, 0.001, 4}, {"G", 150.0, 0.001, 4}}}));

TEST_F(LabelFiles, HeaderAloneSetsTheSwitchesButKeepsTheLabels) {
  QXUserPkLabels list = LabelList("k");
  EXPECT_EQ(list.LoadLabelsFromFile(nullptr, 1, "Label\tUseChargeState\tDifference\n;"), 0);
  EXPECT_EQ(list.GetUseChargeState() + list.GetUserLabelType(), 2);
  EXPECT_EQ(list.LoadLabelsFromFile(nullptr, 1, "Label\tX Value\n;"), 0);
  EXPECT_EQ(std::make_tuple(list.GetUseChargeState() + list.GetUserLabelType(), Names(list),
                            list.LabelsChanged(), sink_.shown.size()),
            std::make_tuple(0, "k", 0, 0u));
}

TEST_F(LabelFiles, FailuresLeaveTheListAndShowTheirMessageOnlyWhenAsked) {
  QXUserPkLabels list = LabelList("k");
  std::string text;
  const std::string missing = PathOf("no/dir/x.lbs");
  const std::string empty = PathOf("empty.lbs");
  testing::WriteText(empty, "");
  const std::vector<std::pair<int, std::function<int(int)>>> cases = {
      {24707, [&](int show) { return list.LoadLabelsFromFile(nullptr, show, "no piece"); }},
      {24707, [&](int show) { return list.LoadLabelsFromFile(empty.c_str(), show, ""); }},
      {24725, [&](int show) { return list.LoadLabelsFromFile(missing.c_str(), show, ""); }},
      {24725, [&](int show) { return list.SaveLabelsToFile(1, missing.c_str(), show, text); }},
      {24715, [&](int show) { return list.SaveLabelsToFile(1, "/dev/full", show, text); }},
  };
  for (const auto& [id, call] : cases) {
    sink_.shown.clear();
    EXPECT_EQ(std::make_pair(call(0), call(1)), std::make_pair(0, 0));
    EXPECT_EQ(sink_.shown, (testing::ScriptedSink::Record{{id, QXLoadString(id)}}));
  }
  EXPECT_EQ(Names(list) + text, "k");
}

}  // namespace
}  // namespace qxpkutil
