// Whole archives for tests of stored classes: an object's bytes, and bytes loaded back.
//
//   const std::string bytes = qxpkutil::testing::Stored(table);
//   EXPECT_TRUE(qxpkutil::testing::Loaded(copy, bytes));
#pragma once

#include <sstream>
#include <string>

#include "qxpkutil/platform/QXArchive.h"

namespace qxpkutil::testing {

template <class T>
std::string Stored(T& object) {
  std::ostringstream out;
  {
    QXArchive ar(out);  // flushed when it goes
    object.Serialize(ar);
  }
  return out.str();
}

// Loads `bytes` into `object`; false when the archive failed.
template <class T>
bool Loaded(T& object, const std::string& bytes) {
  std::istringstream in(bytes);
  QXArchive ar(in);
  object.Serialize(ar);
  return !ar.Failed();
}

}  // namespace qxpkutil::testing
