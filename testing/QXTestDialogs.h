// For tests of the setup dialogs: detection ranges written as (lo, hi) pairs, built into or
// read from a list or segment records, and the scripted message sink of QXTestMessages.h.
//
//   qxpkutil::testing::ScriptedSink sink({true, false});  // installed: Yes, then No
//   QXPeakTableList list = qxpkutil::testing::MakeList({{0, 10}, {10, 20}});
//   EXPECT_EQ(sink.asked.size(), 0u);
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "qxpkutil/settings/QXPeakTableList.h"
#include "testing/QXTestMessages.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil::testing {

using Ranges = std::vector<std::pair<double, double>>;

inline std::vector<QXPeakDetectSetting> MakeSegments(const Ranges& ranges) {
  std::vector<QXPeakDetectSetting> segments(ranges.size());
  for (std::size_t i = 0; i < ranges.size(); ++i) {
    segments[i].SetDetectionRange(ranges[i].first, ranges[i].second);
  }
  return segments;
}

inline Ranges RangesOf(const std::vector<QXPeakDetectSetting>& segments) {
  Ranges ranges;
  for (const QXPeakDetectSetting& s : segments) ranges.emplace_back(s.GetRangeX1(), s.GetRangeX2());
  return ranges;
}

inline QXPeakTableList MakeList(const Ranges& ranges) { return ListOf(MakeSegments(ranges)); }

inline Ranges RangesOf(const QXPeakTableList& list) { return RangesOf(Segments(list)); }

}  // namespace qxpkutil::testing
