// For tests of the setup dialogs: a message sink that answers from a script, and detection
// ranges written as (lo, hi) pairs, built into or read from a list or segment records.
//
//   qxpkutil::testing::ScriptedSink sink({true, false});  // installed: Yes, then No
//   QXPeakTableList list = qxpkutil::testing::MakeList({{0, 10}, {10, 20}});
//   EXPECT_EQ(sink.asked.size(), 0u);
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil::testing {

// Installed as the process-wide sink for its lifetime; records every message and question
// and answers questions from the script, then No.
class ScriptedSink : public QXMessageSink {
 public:
  using Record = std::vector<std::pair<int, std::string>>;
  explicit ScriptedSink(std::vector<bool> answers = {}) : m_answers(std::move(answers)) {
    QXSetMessageSink(this);
  }
  ~ScriptedSink() override { QXSetMessageSink(nullptr); }
  ScriptedSink(const ScriptedSink&) = delete;
  ScriptedSink& operator=(const ScriptedSink&) = delete;

  void ShowMessage(int id, const std::string& text) override { shown.emplace_back(id, text); }
  bool AskYesNo(int id, const std::string& text) override {
    asked.emplace_back(id, text);
    return m_next < m_answers.size() && m_answers[m_next++];
  }

  Record shown, asked;

 private:
  std::vector<bool> m_answers;
  std::size_t m_next = 0;
};

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

inline QXPeakTableList MakeList(const Ranges& ranges) {
  QXPeakTableList list;
  for (const QXPeakDetectSetting& s : MakeSegments(ranges)) {
    list.AddDetectionSetting(-1);
    list.SetDetectionSetting(list.GetNumDetectionSettings() - 1, s);
  }
  return list;
}

inline Ranges RangesOf(const QXPeakTableList& list) {
  std::vector<QXPeakDetectSetting> segments(
      static_cast<std::size_t>(list.GetNumDetectionSettings()));
  for (std::size_t i = 0; i < segments.size(); ++i) {
    list.GetDetectionSetting(static_cast<std::int32_t>(i), segments[i]);
  }
  return RangesOf(segments);
}

}  // namespace qxpkutil::testing
