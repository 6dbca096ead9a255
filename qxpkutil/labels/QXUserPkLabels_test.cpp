#include "qxpkutil/labels/QXUserPkLabels.h"

#include <tuple>

#include <gtest/gtest.h>

#include "testing/QXTestLabels.h"

namespace qxpkutil {
namespace {

using testing::Item;
using testing::Items;
using testing::LabelList;
using testing::Names;

class AddUserLabelAt : public ::testing::TestWithParam<std::tuple<std::int32_t, const char*>> {};

TEST_P(AddUserLabelAt, InsertsBeforeAValidIndexElseAppends) {
  QXUserPkLabels list = LabelList("abc");
  list.AddUserLabel(QXUserPeakLabelItem(9.0, 1.0, "N", 0), std::get<0>(GetParam()));
  EXPECT_EQ(Names(list), std::get<1>(GetParam()));
  EXPECT_EQ(list.LabelsChanged(), 1);
}

INSTANTIATE_TEST_SUITE_P(Indices, AddUserLabelAt,
                         ::testing::Values(std::tuple{0, "Nabc"}, std::tuple{2, "abNc"},
                                           std::tuple{3, "abcN"}, std::tuple{-1, "abcN"},
                                           std::tuple{-7, "abcN"}, std::tuple{99, "abcN"}));

TEST(QXUserPkLabels, DeleteAndMoveFollowTheirIndexAndFlagRules) {
  QXUserPkLabels list = LabelList("abcd");
  EXPECT_EQ(list.DeleteUserLabel(-1), 1);  // -1 is the last item
  for (std::int32_t bad : {3, -2}) EXPECT_EQ(list.DeleteUserLabel(bad), 0);
  EXPECT_EQ(list.LabelsChanged(), 0);  // deleting one item leaves the flag alone
  for (auto [from, to] : {std::pair{0, 0}, {0, 3}, {-1, 1}})
    EXPECT_EQ(list.MoveUserLabel(from, to), 0);
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(list.MoveUserLabel(0, 2), 1);  // a swap: "b" stays where it was
  EXPECT_EQ(std::make_tuple(Names(list), list.LabelsChanged()), std::make_tuple("cba", 1));
  EXPECT_EQ(QXUserPkLabels().DeleteUserLabel(-1), 0);
}

TEST(QXUserPkLabels, ReplaceKeepsTheChangedFlagWhileSetAndAppendRaiseIt) {
  QXUserPkLabels list = LabelList("ab");
  list.ReplaceLabel(1, QXUserPeakLabelItem(4.0, 0.1, "r", 2));
  EXPECT_EQ(list.SetUserLabel(2, "s", 1.0, 1.0, 0), 0);
  EXPECT_EQ(list.AppendLabelList(nullptr), 0);
  EXPECT_EQ(list.AppendListReplaceDup(&list), 1);  // every name exists: all replaced
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_EQ(Items(list), (std::vector<Item>{{"a", 1.0, 0.5, 0}, {"r", 4.0, 0.1, 2}}));

  EXPECT_EQ(list.AppendLabelList(&list), 1);  // a list appended to itself doubles
  EXPECT_EQ(std::make_tuple(Names(list), list.LabelsChanged()), std::make_tuple("arar", 1));

  QXUserPkLabels other = LabelList({{"r", 7.0, 0.2, 1}, {"z", 8.0, 0.3, 0}});
  list.SetLabelsChanged(0);
  EXPECT_EQ(list.AppendListReplaceDup(&other), 1);
  EXPECT_EQ(Items(list)[1], (Item{"r", 7.0, 0.2, 1}));  // only the first "r" is replaced
  EXPECT_EQ(std::make_tuple(Names(list), list.LabelsChanged()), std::make_tuple("ararz", 1));
}

}  // namespace
}  // namespace qxpkutil
