#include "qxpkutil/settings/SettingsFile.h"

#include <cstddef>
#include <limits>
#include <sstream>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXFormat.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"

namespace qxpkutil {

namespace {

constexpr double kBig = std::numeric_limits<double>::max();

// Every key of the layout with its range, which qxpeak applies to the same value on its
// command line, so that a value refused there is refused in a file too. Segment keys are
// "<name>-<i>"; the two keys spelled with "-0" are list keys.
constexpr SettingRange kSegmentKeys[] = {
    {"DetectRangeX1", -kBig, kBig, false},     {"DetectRangeX2", -kBig, kBig, false},
    {"PeakThresholdPct", 0, 100, false},       {"AbsoluteThreshold", 0, kBig, false},
    {"PeakFilterType", 0, 1, true},            {"PeakFilterWidth", 1, 2001, true},
    {"PeakFilterIncrement", 1, 1000, true},    {"MinPeakArea", 0, kBig, false},
    {"PctPeakArea", 0, 100, false},            {"MinPeakWidth", 0, 100000000, true},
    {"MaxPeakWidth", 1, 100000000, true},      {"AutoPeakWidth", 0, 1, true},
    {"PeakIntegrateMethod", 0, 1, true},       {"NoiseThreshold", 0, kBig, false},
    {"PeakCentroidPct", 0, 100, false},        {"MaxCharge", 1, 100, true},
    {"MaxIsotope", 1, 40, true},               {"RelMinIntensity", 0, 1, false},
    {"RelMaxIntensity", 0, 1, false},
};
constexpr SettingRange kListKeys[] = {
    {"NumDetectSegments", 1, kMaxSettingSegments, true}, {"Mass-Processing-0", 0, 1, true},
    {"Resolution-0", 0, kBig, false},             {"UseResolutionForPkDetect", 0, 1, true},
    {"GaussianFit", 0, 1, true},                  {"AutomaticNoiseThreshold", 0, 1, true},
};

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

// The value by the library's one number rule, inside the key's range.
bool InRange(std::string_view text, const SettingRange& range) {
  double v = 0.0;
  int i = 0;
  const bool ok = range.integer ? QXParseInt(text, i) : QXParseDouble(text, v);
  if (range.integer) v = i;
  return ok && v >= range.min && v <= range.max;
}

// The settings text with the INI rules of the library's profile file, and access to a
// section's keys.
class SettingsIni : public QXMemoryProfile {
 public:
  explicit SettingsIni(std::string_view text) { ParseIni(text); }

  // The section's (key, value) pairs, or false when there is no such section.
  bool Keys(const std::string& section,
            std::vector<std::pair<std::string, std::string>>& keys) const {
    const auto it = m_sections.find(section);
    if (it == m_sections.end()) return false;
    for (const auto& [key, entry] : it->second.keys) keys.emplace_back(key, entry.value);
    return true;
  }

};

// Checks every key of the section: known, a number inside its range, and
// (for segment keys) naming a segment. A list of several segments must give each one its
// range, so that a small file cannot ask for a thousand copies of the whole data.
bool CheckKeys(const std::vector<std::pair<std::string, std::string>>& keys,
               const std::string& where, std::string& error) {
  int segments = 1;
  for (const auto& [key, value] : keys) {
    if (EqualNoCase(key, "NumDetectSegments") &&
        (!QXParseInt(value, segments) || segments < 1 || segments > kMaxSettingSegments)) {
      error = where + " NumDetectSegments=" + QXPrintable(value) +
              " is not a segment count from 1 to " + std::to_string(kMaxSettingSegments);
      return false;
    }
  }
  std::vector<int> ranged(static_cast<std::size_t>(segments), 0);
  for (const auto& [key, value] : keys) {
    const SettingRange* info = nullptr;
    for (const SettingRange& k : kListKeys) {
      if (EqualNoCase(key, k.key)) info = &k;
    }
    const std::size_t dash = key.rfind('-');
    if (info == nullptr && dash != std::string::npos) {
      int index = -1;
      const std::string_view digits = std::string_view(key).substr(dash + 1);
      const bool numbered = !digits.empty() && digits.front() != '+' &&
                            digits.front() != '-' && QXParseInt(digits, index) && index >= 0;
      for (const SettingRange& k : kSegmentKeys) {
        if (!numbered || !EqualNoCase(std::string_view(key).substr(0, dash), k.key)) continue;
        if (index >= segments) {
          error = where + " " + QXPrintable(key) + " names segment " + std::to_string(index) +
                  ", but NumDetectSegments is " + std::to_string(segments);
          return false;
        }
        if (std::string_view(k.key).starts_with("DetectRange")) {
          ++ranged[static_cast<std::size_t>(index)];
        }
        info = &k;
      }
    }
    if (info == nullptr) {
      error = where + " has an unknown key '" + QXPrintable(key) +
              "' (see 'qxpeak settings' for the keys)";
      return false;
    }
    if (!InRange(value, *info)) {
      error = where + " " + QXPrintable(key) + "=" + QXPrintable(value) + " is not " +
              DescribeNumbers(info->min, info->max, info->integer);
      return false;
    }
  }
  for (int i = 0; segments > 1 && i < segments; ++i) {
    if (ranged[static_cast<std::size_t>(i)] < 2) {
      error = where + " NumDetectSegments is " + std::to_string(segments) + " but segment " +
              std::to_string(i) + " has no DetectRangeX1-" + std::to_string(i) +
              " and DetectRangeX2-" + std::to_string(i) + " keys";
      return false;
    }
  }
  return true;
}

}  // namespace

std::string SettingsSectionName(const std::string& section, int trace) {
  return section + "\\PeakSettingsTrace-" + std::to_string(trace);
}

const SettingRange* FindSettingRange(std::string_view key) {
  for (const SettingRange& r : kSegmentKeys) {
    if (EqualNoCase(key, r.key)) return &r;
  }
  for (const SettingRange& r : kListKeys) {
    if (EqualNoCase(key, r.key)) return &r;
  }
  return nullptr;
}

std::string DescribeNumbers(double min, double max, bool integer, bool minExcluded) {
  std::ostringstream text;
  text << (integer ? "a whole number" : "a number");
  if (min == -kBig) return text.str();
  text << (minExcluded ? " above " : max == kBig ? " of at least " : " from ") << min;
  if (max != kBig) text << (minExcluded ? " and at most " : " to ") << max;
  return text.str();
}

bool LoadSettingsText(std::string_view text, const std::string& name, const std::string& section,
                      int trace, QXPeakTableList& list, std::string& error) {
  SettingsIni ini(text);
  const std::string sectionName = SettingsSectionName(section, trace);
  std::vector<std::pair<std::string, std::string>> keys;
  if (!ini.Keys(sectionName, keys)) {
    error = name + ": no [" + QXPrintable(sectionName) +
            "] section (a settings file is what 'qxpeak settings' prints)";
    return false;
  }
  if (!CheckKeys(keys, name + ": [" + QXPrintable(sectionName) + "]", error)) return false;
  const QXScopedAppProfile lent(ini);
  list.RestoreSettings(section.c_str(), trace, nullptr, kQXPersistFromProfile);
  return true;
}

}  // namespace qxpkutil
