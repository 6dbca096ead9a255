// Detection settings from INI text that a person wrote or edited, checked before use: a
// mistake is reported in one line instead of quietly becoming a default, as the plain
// restore of QXPeakTableList would do. qxpeak's --settings and Python's settings= read files
// through it, so both accept and refuse the same files with the same words.
//
//   QXPeakTableList list;  std::string error;
//   if (!LoadSettingsText(text, "my.ini", "qxpeak", 0, list, error)) { ... error ... }
#pragma once

#include <string>
#include <string_view>

#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil {

// The range a settings key's value must lie in (qxpeak's options use the same), and whether
// it is a whole number; `key` without its "-<segment>" suffix.
struct SettingRange {
  const char* key;
  double min, max;
  bool integer;
};
inline constexpr int kMaxSettingSegments = 1000;
// The key's range (letter case ignored); null for a key the layout does not have.
const SettingRange* FindSettingRange(std::string_view key);

// What a number setting or option accepts, as messages state it: "a whole number from 1 to
// 100", "a number of at least 0" (max the largest double), "a number above 0 and at most
// 1e+09" (minExcluded), "a number" (any finite value: min the lowest double).
std::string DescribeNumbers(double min, double max, bool integer, bool minExcluded = false);

// "<section>\PeakSettingsTrace-<trace>", the INI section of one trace's settings.
std::string SettingsSectionName(const std::string& section, int trace);

// Restores `list` from the section "<section>\PeakSettingsTrace-<trace>" of INI `text` (the
// library's profile layout, as PersistSettings writes it). The text is checked first: false
// with one line in `error` (`name` labels it; quoted text is made printable) and `list`
// untouched when the section is missing or holds a key the layout does not have (a segment
// key of a segment beyond NumDetectSegments included), a value that is not a number inside
// its key's range, a NumDetectSegments outside 1..kMaxSettingSegments, or several segments
// without their ranges (so that a small file cannot ask for a thousand copies of the data).
[[nodiscard]] bool LoadSettingsText(std::string_view text, const std::string& name,
                                    const std::string& section, int trace, QXPeakTableList& list,
                                    std::string& error);

}  // namespace qxpkutil
