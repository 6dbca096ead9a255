// Detection settings restored from key=value text, as hosts pass them. Whatever the text,
// restoring then saving is a fixed point after one round (the saved text restores to the
// same saved text), and the map form of restoring agrees with the text form.
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_common.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/settings/QXPersistUtils.h"

namespace {

using qxpkutil::QXPeakTableList;
using qxpkutil::QXPersistUtils;

constexpr const char* kSection = "S";
// More segments only make the run slow: every key is a substring search of the text.
constexpr int kMaxSegments = 64;

bool FewSegments(std::string_view text) {
  constexpr std::string_view kKey = "NumDetectSegments=";
  for (std::size_t at = text.find(kKey); at != std::string_view::npos;
       at = text.find(kKey, at + 1)) {
    int count = 0;
    if (qxpkutil::QXParseLeadingInt(text.substr(at + kKey.size()), count) && count > kMaxSegments) {
      return false;
    }
  }
  return true;
}

std::string Saved(QXPeakTableList& list, std::int32_t trace) {
  std::vector<std::string> lines;
  list.PersistSettings(kSection, trace, &lines, 0);
  std::string text;
  QXPersistUtils::FormStringFromList(text, lines);
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static qxpkutil::QXMemoryProfile profile;  // the operations need an application profile
  qxpkutil::QXSetAppProfile(&profile);
  if (size == 0) return 0;
  const std::int32_t trace = data[0] & 3;
  std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  text = text.c_str();  // the text is a C string: it ends at the first NUL
  if (!FewSegments(text)) return 0;

  QXPeakTableList restored;
  restored.RestoreSettings(kSection, trace, text.c_str(), qxpkutil::kQXPersistFromText);
  QXFUZZ_CHECK(restored.GetNumDetectionSettings() <= kMaxSegments);
  const std::string first = Saved(restored, trace);

  QXPeakTableList again;
  again.RestoreSettings(kSection, trace, first.c_str(), qxpkutil::kQXPersistFromText);
  QXFUZZ_CHECK(again.GetNumDetectionSettings() == restored.GetNumDetectionSettings());
  QXFUZZ_CHECK(Saved(again, trace) == first);

  // The host's map of "section\key" to value restores the same settings.
  std::map<std::string, std::string> map;
  std::vector<std::string> lines;
  QXPersistUtils::ParseStringToList(first, lines, "\r\n");
  for (const std::string& line : lines) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) map.emplace(line.substr(0, equals), line.substr(equals + 1));
  }
  QXPeakTableList fromMap;
  fromMap.RestoreSettings(kSection, map, trace, qxpkutil::kQXPersistFromText);
  QXFUZZ_CHECK(Saved(fromMap, trace) == first);
  return 0;
}
