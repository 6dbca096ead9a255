#include "qxpkutil/labels/QXUserPkLabels.h"

#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/platform/QXMessages.h"
#include "testing/QXTestFiles.h"
#include "testing/QXTestMessages.h"

namespace qxpkutil {
namespace {

struct Item {
  std::string label;
  double x;
  double dx;
  int charge;
  bool operator==(const Item&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Item& it) {
  return os << '"' << it.label.substr(0, 20) << "\" " << it.x << ' ' << it.dx << ' ' << it.charge;
}

std::vector<Item> Items(const QXUserPkLabels& list) {
  std::vector<Item> items(static_cast<std::size_t>(list.GetNumUserLabels()));
  for (std::size_t i = 0; i < items.size(); ++i) {
    Item& it = items[i];
    EXPECT_EQ(list.GetUserLabel(static_cast<std::int32_t>(i), it.label, it.x, it.dx, it.charge), 1);
  }
  return items;
}

std::string Names(const QXUserPkLabels& list) {
  std::string names;
  for (const Item& it : Items(list)) names += it.label;
  return names;
}

// The items, with the changed flag cleared.
QXUserPkLabels MakeList(const std::vector<Item>& items) {
  QXUserPkLabels list;
  for (const Item& it : items) {
    list.AddUserLabel(QXUserPeakLabelItem(it.x, it.dx, it.label.c_str(), it.charge), -1);
  }
  list.SetLabelsChanged(0);
  return list;
}

QXUserPkLabels MakeList(const std::string& names) {
  std::vector<Item> items;
  for (char c : names) items.push_back({std::string(1, c), 1.0, 0.5, 0});
  return MakeList(items);
}

// ---- Editing ----

class AddUserLabelAt : public ::testing::TestWithParam<std::tuple<std::int32_t, const char*>> {};

TEST_P(AddUserLabelAt, InsertsBeforeAValidIndexElseAppends) {
  QXUserPkLabels list = MakeList("abc");
  list.AddUserLabel(QXUserPeakLabelItem(9.0, 1.0, "N", 0), std::get<0>(GetParam()));
  EXPECT_EQ(Names(list), std::get<1>(GetParam()));
  EXPECT_EQ(list.LabelsChanged(), 1);
}

INSTANTIATE_TEST_SUITE_P(Indices, AddUserLabelAt,
                         ::testing::Values(std::tuple{0, "Nabc"}, std::tuple{2, "abNc"},
                                           std::tuple{3, "abcN"}, std::tuple{-1, "abcN"},
                                           std::tuple{-7, "abcN"}, std::tuple{99, "abcN"}));

TEST(QXUserPkLabels, DeleteAndMoveFollowTheirIndexAndFlagRules) {
  QXUserPkLabels list = MakeList("abcd");
  EXPECT_EQ(list.DeleteUserLabel(-1), 1);  // -1 is the last item
  for (std::int32_t bad : {3, -2}) EXPECT_EQ(list.DeleteUserLabel(bad), 0);
  EXPECT_EQ(list.LabelsChanged(), 0);  // deleting one item leaves the flag alone
  for (auto [from, to] : {std::pair{0, 0}, {0, 3}, {-1, 1}})
    EXPECT_EQ(list.MoveUserLabel(from, to), 0);
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(list.MoveUserLabel(0, 2), 1);
  EXPECT_EQ(Names(list), "cba");  // a swap: "b" stays where it was
  EXPECT_EQ(list.LabelsChanged(), 1);
  EXPECT_EQ(QXUserPkLabels().DeleteUserLabel(-1), 0);
}

TEST(QXUserPkLabels, ReplaceKeepsTheChangedFlagWhileSetAndAppendRaiseIt) {
  QXUserPkLabels list = MakeList("ab");
  list.ReplaceLabel(1, QXUserPeakLabelItem(4.0, 0.1, "r", 2));
  EXPECT_EQ(list.SetUserLabel(2, "s", 1.0, 1.0, 0), 0);
  EXPECT_EQ(list.AppendLabelList(nullptr), 0);
  EXPECT_EQ(list.AppendListReplaceDup(&list), 1);  // every name exists: all replaced
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(Items(list), (std::vector<Item>{{"a", 1.0, 0.5, 0}, {"r", 4.0, 0.1, 2}}));

  EXPECT_EQ(list.AppendLabelList(&list), 1);  // a list appended to itself doubles
  EXPECT_EQ(Names(list), "arar");
  EXPECT_EQ(list.LabelsChanged(), 1);

  QXUserPkLabels other = MakeList({{"r", 7.0, 0.2, 1}, {"z", 8.0, 0.3, 0}});
  list.SetLabelsChanged(0);
  EXPECT_EQ(list.AppendListReplaceDup(&other), 1);
  EXPECT_EQ(Items(list)[1], (Item{"r", 7.0, 0.2, 1}));  // only the first "r" is replaced
  EXPECT_EQ(Names(list), "ararz");
  EXPECT_EQ(list.LabelsChanged(), 1);
}

// ---- Label files and text ----

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
  QXUserPkLabels saved = MakeList(sample);
  saved.SetUseChargeState(useCharge);
  saved.SetUserLabelType(difference);
  const std::string path = toFile ? PathOf("list.lbs") : "";
  std::string text;
  ASSERT_EQ(saved.SaveLabelsToFile(withCharge, path.c_str(), 1, text), 1);

  QXUserPkLabels loaded = MakeList("o");
  loaded.SetUseChargeState(!useCharge);
  loaded.SetUserLabelType(!difference);
  ASSERT_EQ(loaded.LoadLabelsFromFile(path.c_str(), 1, text), 1);
  std::vector<Item> expected = sample;
  for (Item& it : expected) it.charge = withCharge ? it.charge : 0;
  EXPECT_EQ(Items(loaded), expected);
  EXPECT_EQ(loaded.GetUseChargeState(), useCharge);
  EXPECT_EQ(loaded.GetUserLabelType(), difference);
  EXPECT_EQ(loaded.LabelsChanged(), 1);
  EXPECT_TRUE(sink_.shown.empty());
}

INSTANTIATE_TEST_SUITE_P(AllForms, LabelRoundTrip,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(), ::testing::Bool(),
                                            ::testing::Bool()));

TEST_F(LabelFiles, WritesTheTextAndFileFormsExactly) {
  QXUserPkLabels list = MakeList({{"A", 2.5, 0.125, -2}, {"B", 1e6, 1.0, 0}});
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
  QXUserPkLabels list = MakeList("k");
  EXPECT_EQ(list.LoadLabelsFromFile(nullptr, 1, "Label\tUseChargeState\tDifference\n;"), 0);
  EXPECT_EQ(list.GetUseChargeState() + list.GetUserLabelType(), 2);
  EXPECT_EQ(list.LoadLabelsFromFile(nullptr, 1, "Label\tX Value\n;"), 0);
  EXPECT_EQ(list.GetUseChargeState() + list.GetUserLabelType(), 0);
  EXPECT_EQ(Names(list), "k");
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_TRUE(sink_.shown.empty());
}

TEST_F(LabelFiles, FailuresLeaveTheListAndShowTheirMessageOnlyWhenAsked) {
  QXUserPkLabels list = MakeList("k");
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
    EXPECT_EQ(call(0), 0);
    EXPECT_EQ(call(1), 0);
    ASSERT_EQ(sink_.shown.size(), 1u);
    EXPECT_EQ(sink_.shown[0].first, id);
  }
  EXPECT_EQ(Names(list), "k");
  EXPECT_TRUE(text.empty());
}

}  // namespace
}  // namespace qxpkutil
