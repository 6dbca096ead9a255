#include "qxpkutil/labels/QXUserPkLabels.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qxpkutil {
namespace {

std::vector<std::string> Names(const QXUserPkLabels& list) {
  std::vector<std::string> names;
  for (std::int32_t i = 0; i < list.GetNumUserLabels(); ++i) {
    QXUserPeakLabelItem item;
    EXPECT_EQ(list.GetUserLabel(i, item), 1);
    double x = 0.0;
    double dx = 0.0;
    int charge = 0;
    names.emplace_back();
    item.GetUserLabel(x, dx, names.back(), charge);
  }
  return names;
}

// A list holding items named `names`, with its changed flag cleared.
QXUserPkLabels MakeList(const std::vector<std::string>& names) {
  QXUserPkLabels list;
  for (std::size_t i = 0; i < names.size(); ++i) {
    list.AddUserLabel(QXUserPeakLabelItem(static_cast<double>(i), 0.5, names[i].c_str(), 0), -1);
  }
  list.SetLabelsChanged(0);
  return list;
}

struct InsertCase {
  std::int32_t index;
  std::vector<std::string> expected;
};

class AddUserLabelAt : public ::testing::TestWithParam<InsertCase> {};

TEST_P(AddUserLabelAt, InsertsBeforeValidIndexElseAppends) {
  QXUserPkLabels list = MakeList({"a", "b", "c"});
  list.AddUserLabel(QXUserPeakLabelItem(9.0, 1.0, "new", 0), GetParam().index);
  EXPECT_EQ(Names(list), GetParam().expected);
  EXPECT_EQ(list.LabelsChanged(), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Indices, AddUserLabelAt,
    ::testing::Values(InsertCase{0, {"new", "a", "b", "c"}}, InsertCase{2, {"a", "b", "new", "c"}},
                      InsertCase{3, {"a", "b", "c", "new"}}, InsertCase{-1, {"a", "b", "c", "new"}},
                      InsertCase{-7, {"a", "b", "c", "new"}},
                      InsertCase{99, {"a", "b", "c", "new"}}));

TEST(QXUserPkLabels, DefaultItemIsZeroWithUnitToleranceAndNoName) {
  QXUserPkLabels list;
  list.AddUserLabel(-1);
  std::string label = "untouched";
  double x = -1.0;
  double dx = -1.0;
  int charge = -1;
  ASSERT_EQ(list.GetUserLabel(0, label, x, dx, charge), 1);
  EXPECT_EQ(label, "");
  EXPECT_EQ(x, 0.0);
  EXPECT_EQ(dx, 1.0);
  EXPECT_EQ(charge, 0);
  EXPECT_EQ(list.GetUserLabel(1, label, x, dx, charge), 0);
  EXPECT_EQ(label, "");  // outputs untouched on failure
}

TEST(QXUserPkLabels, DeleteUserLabelTakesMinusOneAsLastAndKeepsChangedFlag) {
  QXUserPkLabels list = MakeList({"a", "b", "c"});
  EXPECT_EQ(list.DeleteUserLabel(-1), 1);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(list.LabelsChanged(), 0);
  for (std::int32_t bad : {2, -2}) EXPECT_EQ(list.DeleteUserLabel(bad), 0) << bad;
  EXPECT_EQ(list.DeleteUserLabel(0), 1);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"b"}));

  QXUserPkLabels empty;
  EXPECT_EQ(empty.DeleteUserLabel(-1), 0);
  EXPECT_EQ(empty.DeleteUserLabel(0), 0);
}

TEST(QXUserPkLabels, MoveUserLabelSwapsWithoutShifting) {
  QXUserPkLabels list = MakeList({"first", "second", "third"});
  for (auto [from, to] : {std::pair{0, 0}, {0, 3}, {-1, 1}, {3, 0}}) {
    EXPECT_EQ(list.MoveUserLabel(from, to), 0) << from << "->" << to;
  }
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(list.MoveUserLabel(0, 2), 1);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"third", "second", "first"}));
  EXPECT_EQ(list.LabelsChanged(), 1);
}

TEST(QXUserPkLabels, ReplaceLeavesChangedFlagSetUserLabelRaisesIt) {
  QXUserPkLabels list = MakeList({"a", "b"});
  const QXUserPeakLabelItem item(4.0, 0.1, "r", 2);
  list.ReplaceLabel(1, item);
  list.ReplaceLabel(2, item);
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(list.FindLabel(item), 1);

  EXPECT_EQ(list.SetUserLabel(2, "s", 1.0, 1.0, 0), 0);
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(list.SetUserLabel(0, nullptr, 1.0, 1.0, 0), 1);
  EXPECT_EQ(list.LabelsChanged(), 1);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"", "r"}));
}

TEST(QXUserPkLabels, FindIsExactAndCaseSensitive) {
  QXUserPkLabels list;
  list.AddUserLabel(QXUserPeakLabelItem(1.0, 0.5, "Na", 1), -1);
  list.AddUserLabel(QXUserPeakLabelItem(1.0, 0.5, "NA", 1), -1);
  list.AddUserLabel(QXUserPeakLabelItem(1.0, 0.5, "Na", 1), -1);
  EXPECT_EQ(list.FindLabelName("Na"), 0);
  EXPECT_EQ(list.FindLabelName("NA"), 1);
  EXPECT_EQ(list.FindLabelName("na"), -1);
  EXPECT_EQ(list.FindLabel(QXUserPeakLabelItem(1.0, 0.5, "NA", 1)), 1);
  for (const auto& other : {QXUserPeakLabelItem(1.0 + 1e-15, 0.5, "Na", 1),
                            QXUserPeakLabelItem(1.0, 0.25, "Na", 1),
                            QXUserPeakLabelItem(1.0, 0.5, "Na", 2)}) {
    EXPECT_EQ(list.FindLabel(other), -1);
  }
}

TEST(QXUserPkLabels, AppendLabelListCopiesEverythingAndRaisesFlagOnlyWhenItAppends) {
  QXUserPkLabels list = MakeList({"a", "b"});
  EXPECT_EQ(list.AppendLabelList(nullptr), 0);
  const QXUserPkLabels empty;
  EXPECT_EQ(list.AppendLabelList(&empty), 1);
  EXPECT_EQ(list.LabelsChanged(), 0);

  EXPECT_EQ(list.AppendLabelList(&list), 1);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"a", "b", "a", "b"}));
  EXPECT_EQ(list.LabelsChanged(), 1);
}

TEST(QXUserPkLabels, AppendListReplaceDupOverwritesSameNameAndAppendsTheRest) {
  QXUserPkLabels list = MakeList({"a", "b"});
  QXUserPkLabels other;
  other.AddUserLabel(QXUserPeakLabelItem(7.0, 0.1, "b", 3), -1);
  other.SetUserLabelType(1);
  EXPECT_EQ(list.AppendListReplaceDup(nullptr), 0);
  EXPECT_EQ(list.AppendListReplaceDup(&other), 1);
  EXPECT_EQ(list.GetNumUserLabels(), 2);
  EXPECT_EQ(list.FindLabel(QXUserPeakLabelItem(7.0, 0.1, "b", 3)), 1);
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(list.GetUserLabelType(), 0);

  other.AddUserLabel(QXUserPeakLabelItem(8.0, 0.1, "c", 0), -1);
  EXPECT_EQ(list.AppendListReplaceDup(&other), 1);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(list.LabelsChanged(), 1);
}

TEST(QXUserPkLabels, CopyIsDeepAndKeepsSwitches) {
  QXUserPkLabels list = MakeList({"a"});
  list.SetUserLabelType(1);
  list.SetUseChargeState(1);
  QXUserPkLabels copy(list);
  copy.SetUserLabel(0, "changed", 0.0, 1.0, 0);
  EXPECT_EQ(Names(list), (std::vector<std::string>{"a"}));
  EXPECT_EQ(copy.GetUserLabelType(), 1);
  EXPECT_EQ(copy.GetUseChargeState(), 1);
  EXPECT_TRUE(copy.IsKindOf(&QXUserPkLabels::classQXUserPkLabels));
  EXPECT_FALSE(copy.IsKindOf(&QXUserPeakLabelItem::classQXUserPeakLabelItem));
}

}  // namespace
}  // namespace qxpkutil
