#include "qxpkutil/platform/QXMessages.h"

#include <gtest/gtest.h>

#include <climits>

#include "testing/QXTestMessages.h"

namespace qxpkutil {
namespace {

// The label-file texts; the range questions and the invalid-range message are compared
// letter for letter where the dialogs use them.
TEST(QXLoadString, KeepsTheKnownTextsLetterForLetter) {
  const std::pair<int, const char*> known[] = {
      {24706, "Label\tX Value\tDelta X"},
      {24707, "An error occured while trying to read the user label file."},
      {24715, "An error occured while trying to write to the specified user label file."},
      {24725, "Unable to open the specified user label file."},
  };
  for (const auto& [id, text] : known) EXPECT_EQ(QXLoadString(id), text) << id;
}

TEST(QXLoadString, EveryIdOfTheTableHasTextAndNoOtherDoes) {
  for (int id = kQXFirstStringId; id <= kQXLastStringId; ++id)
    EXPECT_FALSE(QXLoadString(id).empty()) << id;
  for (int id : {kQXFirstStringId - 1, kQXLastStringId + 1, 0, -1, INT_MIN, INT_MAX}) {
    EXPECT_EQ(QXLoadString(id), "") << id;
  }
}

TEST(QXMessageSink, ForwardsToTheInstalledSinkAndAnswersNoWithoutOne) {
  testing::ScriptedSink sink({true, false, true});
  EXPECT_EQ(QXGetMessageSink(), &sink);
  QXShowMessage(24725, "shown");
  EXPECT_TRUE(QXAskYesNo(24704, "yes?"));
  EXPECT_FALSE(QXAskYesNo(24700, "no?"));
  using Record = testing::ScriptedSink::Record;
  EXPECT_EQ(sink.shown, (Record{{24725, "shown"}}));
  EXPECT_EQ(sink.asked, (Record{{24704, "yes?"}, {24700, "no?"}}));

  QXSetMessageSink(nullptr);  // the script's next answer would be Yes
  QXShowMessage(24725, "nowhere");
  EXPECT_FALSE(QXAskYesNo(24704, "nobody to ask"));
  EXPECT_EQ(sink.shown.size(), 1u);
  EXPECT_EQ(sink.asked.size(), 2u);
}

}  // namespace
}  // namespace qxpkutil
