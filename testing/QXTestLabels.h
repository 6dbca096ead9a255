// For tests of user label lists: a label as one comparable, printable value, a list's
// labels read back in order, and lists built from labels or from one-letter names.
//
//   QXUserPkLabels list = qxpkutil::testing::LabelList("abc");  // labels a, b, c
//   EXPECT_EQ(qxpkutil::testing::Names(list), "abc");
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "qxpkutil/labels/QXUserPkLabels.h"

namespace qxpkutil::testing {

struct Item {
  std::string label;
  double x;
  double dx;
  int charge;
  bool operator==(const Item&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const Item& it) {
  return os << '"' << it.label.substr(0, 20) << "\" " << it.x << ' ' << it.dx << ' ' << it.charge;
}

inline std::vector<Item> Items(const QXUserPkLabels& list) {
  std::vector<Item> items(static_cast<std::size_t>(list.GetNumUserLabels()));
  for (std::size_t i = 0; i < items.size(); ++i) {
    Item& it = items[i];
    EXPECT_EQ(list.GetUserLabel(static_cast<std::int32_t>(i), it.label, it.x, it.dx, it.charge), 1);
  }
  return items;
}

inline std::string Names(const QXUserPkLabels& list) {
  std::string names;
  for (const Item& it : Items(list)) names += it.label;
  return names;
}

// The items, with the changed flag cleared.
inline QXUserPkLabels LabelList(const std::vector<Item>& items) {
  QXUserPkLabels list;
  for (const Item& it : items) {
    list.AddUserLabel(QXUserPeakLabelItem(it.x, it.dx, it.label.c_str(), it.charge), -1);
  }
  list.SetLabelsChanged(0);
  return list;
}

inline QXUserPkLabels LabelList(const std::string& names) {
  std::vector<Item> items;
  for (char c : names) items.push_back({std::string(1, c), 1.0, 0.5, 0});
  return LabelList(items);
}

}  // namespace qxpkutil::testing
