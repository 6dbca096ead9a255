#include "tools/qxpeak/cli/settings_file.h"

#include <limits>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "qxpkutil/platform/QXParse.h"
#include "tools/qxpeak/input/file_io.h"
#include "tools/qxpeak/output/printable.h"

namespace qxpkutil::qxpeak {

namespace {

constexpr double kBig = std::numeric_limits<double>::max();

// Every key of the layout with the range the command line applies to the same value, so
// that a value refused on the command line is refused in a file too. Segment keys are
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
    {"NumDetectSegments", 1, kMaxSegments, true}, {"Mass-Processing-0", 0, 1, true},
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

// The value by the tool's one number rule, inside the key's range.
bool InRange(std::string_view text, const SettingRange& range) {
  double v = 0.0;
  int i = 0;
  const bool ok = range.integer ? QXParseInt(text, i) : QXParseDouble(text, v);
  if (range.integer) v = i;
  return ok && v >= range.min && v <= range.max;
}

// The settings text read once into memory (a pipe or standard input can be read only
// once), with the INI rules of the library's profile file, and access to a section's keys.
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

 private:
  static std::string_view Trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r')) {
      s.remove_prefix(1);
    }
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r')) {
      s.remove_suffix(1);
    }
    return s;
  }
};

std::string TraceSection(const std::string& section, int trace) {
  return section + "\\PeakSettingsTrace-" + std::to_string(trace);
}

// Checks every key of the section: known, a number inside the command line's range, and
// (for segment keys) naming a segment. A list of several segments must give each one its
// range, so that a small file cannot ask for a thousand copies of the whole data.
bool CheckKeys(const std::vector<std::pair<std::string, std::string>>& keys,
               const std::string& where, std::string& error) {
  int segments = 1;
  for (const auto& [key, value] : keys) {
    if (EqualNoCase(key, "NumDetectSegments") &&
        (!QXParseInt(value, segments) || segments < 1 || segments > kMaxSegments)) {
      error = where + " NumDetectSegments=" + Printable(value) +
              " is not a segment count from 1 to " + std::to_string(kMaxSegments);
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
          error = where + " " + Printable(key) + " names segment " + std::to_string(index) +
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
      error = where + " has an unknown key '" + Printable(key) +
              "' (see 'qxpeak settings' for the keys)";
      return false;
    }
    if (!InRange(value, *info)) {
      error = where + " " + Printable(key) + "=" + Printable(value) + " is not " +
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
  std::vector<char> bytes;  // read once: a pipe or standard input cannot be opened twice
  if (!ReadWholeFile(path, std::size_t{64} << 20, bytes, error)) return false;
  const std::string name = path == "-" ? "standard input" : path;
  return LoadSettingsText(std::string_view(bytes.data(), bytes.size()), name, section, trace,
                          list, error);
}

bool LoadSettingsText(std::string_view text, const std::string& name, const std::string& section,
                      int trace, QXPeakTableList& list, std::string& error) {
  SettingsIni ini(text);
  const std::string sectionName = TraceSection(section, trace);
  std::vector<std::pair<std::string, std::string>> keys;
  if (!ini.Keys(sectionName, keys)) {
    error = name + ": no [" + Printable(sectionName) +
            "] section (a settings file is what 'qxpeak settings' prints)";
    return false;
  }
  if (!CheckKeys(keys, name + ": [" + Printable(sectionName) + "]", error)) return false;
  WithAppProfile(
      ini, [&] { list.RestoreSettings(section.c_str(), trace, nullptr, kQXPersistFromProfile); });
  return true;
}

bool LoadLabels(const std::string& path, QXUserPkLabels& labels, std::string& error) {
  std::vector<char> bytes;  // read once: a pipe or standard input cannot be opened twice
  if (!ReadWholeFile(path, std::size_t{64} << 20, bytes, error)) return false;
  const std::string name = path == "-" ? "standard input" : path;
  const std::string_view text(bytes.data(), bytes.size());
  const std::string format =
      "; a label file has the header line 'Label<TAB>X Value<TAB>Delta X', then one line per "
      "label: name<TAB>x<TAB>tolerance[<TAB>charge]";
  // Without its header the first label would be taken for one and lost.
  if (!text.starts_with("Label\t")) {
    error = name + ": does not start with the header line" + format;
    return false;
  }
  if (text.find(';') != std::string_view::npos || text.find('\0') != std::string_view::npos) {
    error = name + ": a label holds ';' or a NUL byte, which a label cannot keep";
    return false;
  }
  // The library's text form: every line ended by ';'.
  std::string pieces;
  pieces.reserve(text.size() + 64);
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    pieces.append(rest.substr(0, end)).append(";");
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
  if (!labels.LoadLabelsFromFile(nullptr, 0, pieces)) {
    error = name + ": no labels read" + format;
    return false;
  }
  return true;
}

void LoadDefaultSettings(const std::string& section, int trace, QXPeakTableList& list) {
  QXMemoryProfile empty;
  WithAppProfile(empty, [&] { list.RestoreSettings(section.c_str(), trace, nullptr, 0); });
}

void ApplyOverrides(const SettingOverrides& o, QXPeakTableList& list) {
  if (o.massProcessing) list.SetMassProcessing(*o.massProcessing ? 1 : 0);
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

const SettingRange* FindSettingRange(std::string_view key) {
  for (const SettingRange& r : kSegmentKeys) {
    if (EqualNoCase(key, r.key)) return &r;
  }
  for (const SettingRange& r : kListKeys) {
    if (EqualNoCase(key, r.key)) return &r;
  }
  return nullptr;
}

bool BuildClassicList(const Options& options, QXPeakTableList& list, std::string& error) {
  if (options.settingsFile.empty()) {
    LoadDefaultSettings(options.section, options.settingsTrace, list);
  } else if (!LoadSettingsFile(options.settingsFile, options.section, options.settingsTrace, list,
                               error)) {
    return false;
  }
  ApplyOverrides(options.overrides, list);
  return true;
}

bool BuildDetectionConfig(const Options& options, DetectionConfig& config, std::string& error) {
  DetectOptions& d = config.options;
  d = DetectOptions();
  if (options.mode == Options::Mode::kClassic) {
    QXPeakTableList list;
    if (!BuildClassicList(options, list, error)) return false;
    d.classic = std::move(list);
  } else {
    const AutomaticSettings& a = options.automatic;
    if (a.snr) d.snr = *a.snr;
    if (!a.fwhm.empty() && !ParseFwhm(a.fwhm, d, error)) {
      error = "--fwhm: " + error;
      return false;
    }
    if (a.resolution) d.resolution = *a.resolution;
    if (a.resolutionAt) d.resolution_at = *a.resolutionAt;
    if (a.analyzer) d.width_law = *a.analyzer;
    if (options.overrides.maxCharge) d.max_charge = *options.overrides.maxCharge;
  }
  d.gauss_refine = options.gaussFit;
  d.noise_region = options.noiseRegion;
  config.centroided = options.centroided;
  config.resolutionPercent = options.resolutionPercent;
  config.resolutionMinIntensity = options.resolutionMinIntensity;
  if (!options.labelsFile.empty()) {
    auto labels = std::make_shared<QXUserPkLabels>();
    if (!LoadLabels(options.labelsFile, *labels, error)) return false;
    d.labels = std::move(labels);
  }
  return true;
}

}  // namespace qxpkutil::qxpeak
