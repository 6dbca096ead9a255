#include "qxpkutil/ui/QXPeakDetectDlgSetup.h"

#include "qxpkutil/settings/QXPersistUtils.h"

namespace qxpkutil {

namespace {

constexpr const char* kKeyX = "PkDetectDlgX1";
constexpr const char* kKeyY = "PkDetectDlgY1";
constexpr const char* kKeyYCursorMode = "PkDetectDlgYCursorMode";
constexpr const char* kKeyShowCursor = "PeakDetectShowCursor";

}  // namespace

void QXPeakDetectDlgSetup::SaveState(QXProfile* app, const char* section, int toProfile,
                                     std::vector<std::string>* list) const {
  QXPersistUtils::WriteParamSetting(app, section, kKeyX, m_nWndX, list, toProfile);
  QXPersistUtils::WriteParamSetting(app, section, kKeyY, m_nWndY, list, toProfile);
  QXPersistUtils::WriteParamSetting(app, section, kKeyYCursorMode, m_nYCursorMode, list, toProfile);
  QXPersistUtils::WriteParamSetting(app, section, kKeyShowCursor, m_bCursorShow, list, toProfile);
}

void QXPeakDetectDlgSetup::RestoreState(QXProfile* app, const char* section, std::uint32_t flags,
                                        const std::map<std::string, std::string>& map) {
  const auto read = [&](const char* key, int def) {
    return static_cast<std::int32_t>(
        QXPersistUtils::GetParamSetting(app, section, key, def, map, flags));
  };
  m_nWndX = read(kKeyX, -1);
  m_nWndY = read(kKeyY, -1);
  m_nYCursorMode = static_cast<short>(read(kKeyYCursorMode, 1));
  m_bCursorShow = read(kKeyShowCursor, 0);
}

}  // namespace qxpkutil
