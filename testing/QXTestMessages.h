// For tests of code that shows messages or asks questions: a sink that records both and
// answers from a script. It installs itself for its lifetime.
//
//   qxpkutil::testing::ScriptedSink sink({true, false});  // Yes, then No, then No again
//   ...;  EXPECT_EQ(sink.shown.size(), 1u);
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXMessages.h"

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

}  // namespace qxpkutil::testing
