// The tool's settings file, as users edit it. Whatever the text: a refusal is one printable
// line and leaves the list as it was; an accepted file holds only known keys with finite
// values inside their command-line ranges, and printing it then reading the print back
// gives the same print.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz_common.h"
#include "qxpkutil/platform/QXParse.h"
#include "tools/qxpeak/cli/settings_file.h"

namespace {

using qxpkutil::FindSettingRange;
using qxpkutil::LoadSettingsText;
using qxpkutil::QXPeakTableList;
using qxpkutil::SettingRange;
using qxpkutil::qxpeak::FormatSettingsIni;
using qxpkutil::qxpeak::LoadDefaultSettings;

constexpr const char* kSection = "qxpeak";

bool Printable(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return false;
  }
  return !text.empty();
}

// Every "key=value" line of a print names a known key and holds a finite value in its range.
void CheckRanges(std::string_view print) {
  while (!print.empty()) {
    const std::size_t end = print.find('\n');
    const std::string_view line = print.substr(0, end);
    print.remove_prefix(end == std::string_view::npos ? print.size() : end + 1);
    const std::size_t equals = line.find('=');
    if (line.empty() || line.front() == ';' || line.front() == '[') continue;
    QXFUZZ_CHECK(equals != std::string_view::npos);
    std::string_view key = line.substr(0, equals);
    const SettingRange* range = FindSettingRange(key);
    if (range == nullptr) range = FindSettingRange(key.substr(0, key.rfind('-')));
    QXFUZZ_CHECK(range != nullptr);
    double value = 0.0;
    QXFUZZ_CHECK(qxpkutil::QXParseDouble(line.substr(equals + 1), value));
    QXFUZZ_CHECK(std::isfinite(value) && value >= range->min && value <= range->max);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const int trace = data[0] & 3;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);

  QXPeakTableList list;
  LoadDefaultSettings(kSection, trace, list);
  const std::string defaults = FormatSettingsIni(list, kSection, trace);
  std::string error;
  if (!LoadSettingsText(text, "fuzz.ini", kSection, trace, list, error)) {
    QXFUZZ_CHECK(Printable(error));
    QXFUZZ_CHECK(FormatSettingsIni(list, kSection, trace) == defaults);
    return 0;
  }
  const std::string print = FormatSettingsIni(list, kSection, trace);
  CheckRanges(print);

  QXPeakTableList back;
  QXFUZZ_CHECK(LoadSettingsText(print, "print", kSection, trace, back, error));
  QXFUZZ_CHECK(FormatSettingsIni(back, kSection, trace) == print);
  return 0;
}
