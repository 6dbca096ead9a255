// The peak detection dialog's remembered state: its window position, Y cursor mode and
// whether the cursor shows, kept between runs through QXPersistUtils (the application
// profile and/or key=value lines).
//
//   QXPeakDetectDlgSetup state;
//   state.RestoreState(QXGetAppProfile(), "PeakDialog", kQXPersistFromProfile, {});
//   state.SetWndPos(120, 80);  state.SaveState(QXGetAppProfile(), "PeakDialog", 1, nullptr);
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

class QXProfile;

// A new state has position (-1, -1) (none remembered), Y cursor mode 1 and the cursor
// hidden (0). Copies take all four values.
class QXPeakDetectDlgSetup {
 public:
  QXPeakDetectDlgSetup() = default;
  QXPeakDetectDlgSetup(const QXPeakDetectDlgSetup&) = default;
  QXPeakDetectDlgSetup& operator=(const QXPeakDetectDlgSetup&) = default;
  virtual ~QXPeakDetectDlgSetup() = default;

  QXPoint GetWndPos() const { return {m_nWndX, m_nWndY}; }
  void SetWndPos(const QXPoint& pos) { SetWndPos(pos.x, pos.y); }
  void SetWndPos(std::int32_t x, std::int32_t y) {
    m_nWndX = x;
    m_nWndY = y;
  }
  short GetYCursorMode() const { return m_nYCursorMode; }
  void SetYCursorMode(short mode) { m_nYCursorMode = mode; }
  int GetCursorShow() const { return m_bCursorShow; }
  void SetCursorShow(int show) { m_bCursorShow = show; }

  // Writes "PkDetectDlgX1", "PkDetectDlgY1", "PkDetectDlgYCursorMode" and
  // "PeakDetectShowCursor" as integers: to `app` when `toProfile` is non-zero and `app` is
  // not null, and as lines appended to `list` when it is not null.
  void SaveState(QXProfile* app, const char* section, int toProfile,
                 std::vector<std::string>* list) const;
  // Reads the four keys from `map` or `app` as `flags` select
  // (QXPersistUtils::GetParamSetting); missing keys give -1, -1, 1 and 0. A cursor mode
  // beyond the range of short keeps its low 16 bits.
  void RestoreState(QXProfile* app, const char* section, std::uint32_t flags,
                    const std::map<std::string, std::string>& map);

 private:
  std::int32_t m_nWndX = -1;
  std::int32_t m_nWndY = -1;
  short m_nYCursorMode = 1;
  int m_bCursorShow = 0;
};

}  // namespace qxpkutil
