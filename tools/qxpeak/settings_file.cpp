#include "tools/qxpeak/settings_file.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "tools/qxpeak/file_io.h"

namespace qxpkutil::qxpeak {

namespace {

constexpr int kMaxSegments = 10000;

// The keys of one segment ("<name>-<i>"), and of the list, with their number kind.
struct KeyInfo {
  std::string_view name;
  bool integer;
};
constexpr KeyInfo kSegmentKeys[] = {
    {"DetectRangeX1", false},      {"DetectRangeX2", false},  {"PeakThresholdPct", false},
    {"AbsoluteThreshold", false},  {"PeakFilterType", true},  {"PeakFilterWidth", true},
    {"PeakFilterIncrement", true}, {"MinPeakArea", false},    {"PctPeakArea", false},
    {"MinPeakWidth", true},        {"MaxPeakWidth", true},    {"AutoPeakWidth", true},
    {"PeakIntegrateMethod", true}, {"NoiseThreshold", false}, {"PeakCentroidPct", false},
    {"MaxCharge", true},           {"MaxIsotope", true},      {"RelMinIntensity", false},
    {"RelMaxIntensity", false},
};
constexpr KeyInfo kListKeys[] = {
    {"NumDetectSegments", true}, {"Mass-Processing-0", true},
    {"Resolution-0", false},     {"UseResolutionForPkDetect", true},
    {"GaussianFit", true},       {"AutomaticNoiseThreshold", true},
};

bool EqualNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

bool IsNumber(std::string_view text, bool integer) {
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) text.remove_prefix(1);
  if (text.empty() || text.front() == '+' || text.front() == '-') return false;
  const char* end = text.data() + text.size();
  if (integer) {
    std::int64_t v = 0;
    const auto r = std::from_chars(text.data(), end, v);
    return r.ec == std::errc() && r.ptr == end && v <= INT32_MAX;
  }
  double v = 0.0;
  const auto r = std::from_chars(text.data(), end, v);
  return r.ec == std::errc() && r.ptr == end && std::isfinite(v);
}

// The INI file with access to its sections' keys, for checking them before a restore.
class SettingsIni : public QXIniProfile {
 public:
  using QXIniProfile::QXIniProfile;

  // The section's (key, value) pairs, or false when there is no such section.
  bool Keys(const std::string& section,
            std::vector<std::pair<std::string, std::string>>& keys) const {
    const auto it = m_sections.find(section);
    if (it == m_sections.end()) return false;
    for (const auto& [key, entry] : it->second.keys) keys.emplace_back(key, entry.value);
    return true;
  }
};

std::string TraceSection(const std::string& section, int trace) {
  return section + "\\PeakSettingsTrace-" + std::to_string(trace);
}

// Checks every key of the section: known, numeric, and (for segment keys) naming a segment.
bool CheckKeys(const std::vector<std::pair<std::string, std::string>>& keys,
               const std::string& where, std::string& error) {
  std::int64_t segments = 1;
  for (const auto& [key, value] : keys) {
    if (EqualNoCase(key, "NumDetectSegments")) {
      const auto r = std::from_chars(value.data(), value.data() + value.size(), segments);
      if (r.ec != std::errc() || r.ptr != value.data() + value.size() || segments < 1 ||
          segments > kMaxSegments) {
        error = where + " NumDetectSegments=" + value + " is not a segment count from 1 to " +
                std::to_string(kMaxSegments);
        return false;
      }
    }
  }
  for (const auto& [key, value] : keys) {
    const KeyInfo* info = nullptr;
    for (const KeyInfo& k : kListKeys) {
      if (EqualNoCase(key, k.name)) info = &k;
    }
    const std::size_t dash = key.rfind('-');
    if (info == nullptr && dash != std::string::npos) {
      std::int64_t index = -1;
      const auto r = std::from_chars(key.data() + dash + 1, key.data() + key.size(), index);
      const bool numbered =
          r.ec == std::errc() && r.ptr == key.data() + key.size() && dash + 1 < key.size();
      for (const KeyInfo& k : kSegmentKeys) {
        if (!numbered || !EqualNoCase(std::string_view(key).substr(0, dash), k.name)) continue;
        if (index >= segments) {
          error = where + " " + key + " names segment " + std::to_string(index) +
                  ", but NumDetectSegments is " + std::to_string(segments);
          return false;
        }
        info = &k;
      }
    }
    if (info == nullptr) {
      error = where + " has an unknown key '" + key + "' (see 'qxpeak settings' for the keys)";
      return false;
    }
    if (!IsNumber(value, info->integer)) {
      error = where + " " + key + "=" + value + " is not " +
              (info->integer ? "a whole number" : "a number");
      return false;
    }
  }
  return true;
}

// The nineteen values of one segment, in the order of the list's segment accessors.
struct SegmentValues {
  double rangeX1, rangeX2, relThreshold, absThreshold;
  int filterType, filterWidth, filterInc;
  double minPeakArea, pctPeakArea;
  int minPeakWidth, maxPeakWidth, autoPeakWidth;
  double noiseThreshold;
  int integratedMethod;
  double pctCentroid;
  int maxCharge, maxIsotope;
  double relMasMinIntensity, relMassMaxIntensity;

  bool Get(const QXPeakTableList& list, std::int32_t i) {
    return list.GetDetectionSetting(i, rangeX1, rangeX2, relThreshold, absThreshold, filterType,
                                    filterWidth, filterInc, minPeakArea, pctPeakArea, minPeakWidth,
                                    maxPeakWidth, autoPeakWidth, noiseThreshold, integratedMethod,
                                    pctCentroid, maxCharge, maxIsotope, relMasMinIntensity,
                                    relMassMaxIntensity) != 0;
  }
  void Set(QXPeakTableList& list, std::int32_t i) const {
    list.SetDetectionSetting(i, rangeX1, rangeX2, relThreshold, absThreshold, filterType,
                             filterWidth, filterInc, minPeakArea, pctPeakArea, minPeakWidth,
                             maxPeakWidth, autoPeakWidth, noiseThreshold, integratedMethod,
                             pctCentroid, maxCharge, maxIsotope, relMasMinIntensity,
                             relMassMaxIntensity);
  }
};

template <class T>
void Override(const std::optional<T>& value, T& field) {
  if (value) field = *value;
}

// Runs `fn` with `profile` as the application profile (the persistence calls read and write
// only through it), restoring the previous one afterwards. Called before any worker starts.
template <class Fn>
void WithAppProfile(QXProfile& profile, Fn&& fn) {
  QXProfile* previous = QXGetAppProfile();
  QXSetAppProfile(&profile);
  fn();
  QXSetAppProfile(previous);
}

// The lines PersistSettings writes, as (key, value) pairs without the section.
std::vector<std::pair<std::string, std::string>> SettingsPairs(QXPeakTableList& list,
                                                               const std::string& section,
                                                               int trace) {
  QXMemoryProfile scratch;
  std::vector<std::string> lines;
  WithAppProfile(scratch, [&] { list.PersistSettings(section.c_str(), trace, &lines, 0); });
  std::vector<std::pair<std::string, std::string>> pairs;
  for (std::string& line : lines) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    const std::size_t equals = line.find('=');
    const std::size_t slash = line.rfind('\\', equals);
    if (equals == std::string::npos || slash == std::string::npos) continue;
    pairs.emplace_back(line.substr(slash + 1, equals - slash - 1), line.substr(equals + 1));
  }
  return pairs;
}

}  // namespace

bool LoadSettingsFile(const std::string& path, const std::string& section, int trace,
                      QXPeakTableList& list, std::string& error) {
  std::vector<char> bytes;  // read once here for a clear message when it cannot be
  if (!ReadWholeFile(path, std::size_t{64} << 20, bytes, error)) return false;
  SettingsIni ini(path);
  const std::string name = TraceSection(section, trace);
  std::vector<std::pair<std::string, std::string>> keys;
  if (!ini.Keys(name, keys)) {
    error = path + ": no [" + name + "] section (write one with 'qxpeak settings > " + path + "')";
    return false;
  }
  if (!CheckKeys(keys, path + ": [" + name + "]", error)) return false;
  WithAppProfile(
      ini, [&] { list.RestoreSettings(section.c_str(), trace, nullptr, kQXPersistFromProfile); });
  return true;
}

void LoadDefaultSettings(const std::string& section, int trace, QXPeakTableList& list) {
  QXMemoryProfile empty;
  WithAppProfile(empty, [&] { list.RestoreSettings(section.c_str(), trace, nullptr, 0); });
}

void ApplyOverrides(const SettingOverrides& o, QXPeakTableList& list) {
  if (o.massProcessing) list.SetMassProcessing(*o.massProcessing ? 1 : 0);
  if (o.gaussFit) list.SetGaussFit(*o.gaussFit ? 1 : 0);
  if (o.autoNoise) list.SetAutoSNCalcOn(*o.autoNoise ? 1 : 0);
  if (list.GetNumDetectionSettings() == 0) list.AddDetectionSetting(-1);
  if (!o.segments.empty()) {
    QXPeakDetectSetting first;
    list.GetDetectionSetting(0, first);
    list.DeleteAllDetectionSettings();
    for (std::size_t i = 0; i < o.segments.size(); ++i) {
      const auto index = static_cast<std::int32_t>(i);
      list.AddDetectionSetting(-1);
      list.SetDetectionSetting(index, first);
      list.SetDetectionRange(index, o.segments[i].first, o.segments[i].second);
    }
  }
  for (std::int32_t i = 0; i < list.GetNumDetectionSettings(); ++i) {
    SegmentValues v{};
    if (!v.Get(list, i)) continue;
    Override(o.threshold, v.relThreshold);
    Override(o.absThreshold, v.absThreshold);
    Override(o.filterType, v.filterType);
    Override(o.filterWidth, v.filterWidth);
    Override(o.filterInc, v.filterInc);
    Override(o.minArea, v.minPeakArea);
    Override(o.areaPercent, v.pctPeakArea);
    Override(o.maxWidth, v.maxPeakWidth);
    Override(o.noiseThreshold, v.noiseThreshold);
    Override(o.integration, v.integratedMethod);
    Override(o.centroidPercent, v.pctCentroid);
    Override(o.maxCharge, v.maxCharge);
    Override(o.maxIsotope, v.maxIsotope);
    v.Set(list, i);
  }
}

std::string FormatSettingsIni(QXPeakTableList& list, const std::string& section, int trace) {
  std::string text = "; qxpeak detection settings; edit them and search with --settings FILE\n[" +
                     TraceSection(section, trace) + "]\n";
  for (const auto& [key, value] : SettingsPairs(list, section, trace)) {
    text += key + "=" + value + "\n";
  }
  return text;
}

std::string FormatSettingsLine(QXPeakTableList& list, const std::string& section, int trace) {
  std::string text;
  for (const auto& [key, value] : SettingsPairs(list, section, trace)) {
    if (!text.empty()) text += "; ";
    text += key + "=" + value;
  }
  return text;
}

bool BuildDetectionConfig(const Options& options, DetectionConfig& config, std::string& error) {
  if (options.settingsFile.empty()) {
    LoadDefaultSettings(options.section, options.settingsTrace, config.list);
  } else if (!LoadSettingsFile(options.settingsFile, options.section, options.settingsTrace,
                               config.list, error)) {
    return false;
  }
  ApplyOverrides(options.overrides, config.list);
  config.centroided = options.centroided;
  config.noiseRegion = options.noiseRegion;
  config.resolutionPercent = options.resolutionPercent;
  config.resolutionMinIntensity = options.resolutionMinIntensity;
  config.labels.reset();
  if (!options.labelsFile.empty()) {
    std::vector<char> bytes;  // read once here for a clear message when it cannot be
    if (!ReadWholeFile(options.labelsFile, std::size_t{64} << 20, bytes, error)) return false;
    auto labels = std::make_shared<QXUserPkLabels>();
    if (!labels->LoadLabelsFromFile(options.labelsFile.c_str(), 0, std::string())) {
      error = options.labelsFile +
              ": no labels read; a label file has a header line, then one line per label: "
              "name<TAB>x<TAB>tolerance[<TAB>charge]";
      return false;
    }
    config.labels = std::move(labels);
  }
  return true;
}

}  // namespace qxpkutil::qxpeak
