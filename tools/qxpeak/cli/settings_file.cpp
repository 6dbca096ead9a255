#include "tools/qxpeak/cli/settings_file.h"

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/platform/QXProfile.h"
#include "tools/qxpeak/input/file_io.h"

namespace qxpkutil::qxpeak {

namespace {

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

// The lines PersistSettings writes, as (key, value) pairs without the section.
std::vector<std::pair<std::string, std::string>> SettingsPairs(QXPeakTableList& list,
                                                               const std::string& section,
                                                               int trace) {
  QXMemoryProfile scratch;
  std::vector<std::string> lines;
  {
    const QXScopedAppProfile lent(scratch);  // before any worker starts
    list.PersistSettings(section.c_str(), trace, &lines, 0);
  }
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
  const QXScopedAppProfile lent(empty);
  list.RestoreSettings(section.c_str(), trace, nullptr, 0);
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
                     SettingsSectionName(section, trace) + "]\n";
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
