#include "qxpkutil/ui/QXPeakDetectDlgSetup.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

auto State(const QXPeakDetectDlgSetup& s) {
  return std::make_tuple(s.GetWndPos().x, s.GetWndPos().y, s.GetYCursorMode(), s.GetCursorShow());
}

QXPeakDetectDlgSetup Moved() {
  QXPeakDetectDlgSetup s;
  s.SetWndPos(QXPoint{-120, 80});
  s.SetYCursorMode(3);
  s.SetCursorShow(1);
  return s;
}

TEST(QXPeakDetectDlgSetup, SavesFourExactLinesAndRestoresFromAMapOrTheProfile) {
  std::vector<std::string> lines;
  QXMemoryProfile profile;
  Moved().SaveState(&profile, "Dlg", 0, &lines);
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "Dlg\\PkDetectDlgX1=-120\r\n", "Dlg\\PkDetectDlgY1=80\r\n",
                       "Dlg\\PkDetectDlgYCursorMode=3\r\n", "Dlg\\PeakDetectShowCursor=1\r\n"}));
  EXPECT_EQ(profile.GetProfileInt("Dlg", "PkDetectDlgX1", 0), 0);  // toProfile was 0
  QXPeakDetectDlgSetup fromMap, fromProfile;
  fromMap.RestoreState(nullptr, "Dlg", kQXPersistFromText, testing::LinesToMap(lines));
  EXPECT_EQ(State(fromMap), State(Moved()));

  Moved().SaveState(&profile, "Dlg", 1, nullptr);
  fromProfile.RestoreState(&profile, "Dlg", kQXPersistFromProfile, {});
  EXPECT_EQ(State(fromProfile), State(Moved()));
  // Missing keys give the fixed defaults, not the values held before.
  fromProfile.RestoreState(&profile, "Other", kQXPersistFromProfile, {});
  EXPECT_EQ(State(fromProfile), State(QXPeakDetectDlgSetup()));
  EXPECT_EQ(State(QXPeakDetectDlgSetup()), std::make_tuple(-1, -1, short{1}, 0));
}

}  // namespace
}  // namespace qxpkutil
