// Saving and restoring the peak table list's segments and switches.
#include <algorithm>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/platform/QXTypes.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "qxpkutil/settings/persist_internal.h"

namespace qxpkutil {

namespace {

using persist_detail::DoubleFormat;
using persist_detail::IndexedKey;

constexpr DoubleFormat kFixed = DoubleFormat::kFixed;
// Longer than any key a restore reads ("UseResolutionForPkDetect", or a segment key: a
// name, "-" and up to ten digits). Only the speed of a lookup depends on it.
constexpr std::size_t kLongestKey = 40;

std::string TraceSection(const char* appSection, std::int32_t trace) {
  return std::string(appSection) + "\\PeakSettingsTrace-" + std::to_string(trace);
}

// Hands `visit` each segment key with its field, in the order they are saved:
// visit(name, field, format of a double field, saved only with mass processing).
// `fields` holds the setting's values in the value constructor's order.
template <class Fields, class Visit>
void VisitSegmentKeys(Fields fields, Visit&& visit) {
  auto [rangeX1, rangeX2, relThreshold, absThreshold, filterType, filterWidth, filterInc,
        minPeakArea, pctPeakArea, minPeakWidth, maxPeakWidth, autoPeakWidth, noiseThreshold,
        integratedMethod, pctCentroid, maxCharge, maxIsotope, relMasMinIntensity,
        relMassMaxIntensity] = fields;
  visit("DetectRangeX1", rangeX1, kFixed, false);
  visit("DetectRangeX2", rangeX2, kFixed, false);
  visit("PeakThresholdPct", relThreshold, kFixed, false);
  visit("AbsoluteThreshold", absThreshold, DoubleFormat::kExponent, false);
  visit("PeakFilterType", filterType, kFixed, false);
  visit("PeakFilterWidth", filterWidth, kFixed, false);
  visit("PeakFilterIncrement", filterInc, kFixed, false);
  visit("MinPeakArea", minPeakArea, kFixed, false);
  visit("PctPeakArea", pctPeakArea, kFixed, false);
  visit("MinPeakWidth", minPeakWidth, kFixed, false);
  visit("MaxPeakWidth", maxPeakWidth, kFixed, false);
  visit("AutoPeakWidth", autoPeakWidth, kFixed, false);
  visit("PeakIntegrateMethod", integratedMethod, kFixed, false);
  visit("NoiseThreshold", noiseThreshold, kFixed, false);
  visit("PeakCentroidPct", pctCentroid, kFixed, true);
  visit("MaxCharge", maxCharge, kFixed, true);
  visit("MaxIsotope", maxIsotope, kFixed, true);
  visit("RelMinIntensity", relMasMinIntensity, kFixed, true);
  visit("RelMaxIntensity", relMassMaxIntensity, kFixed, true);
}

// Where a save goes: the profile section and, optionally, the caller's list of lines.
struct Writer {
  QXProfile* app;
  std::string section;
  std::vector<std::string>* list;
  int toProfile;

  void Write(const std::string& key, int value, DoubleFormat = kFixed) const {
    QXPersistUtils::WriteParamSetting(app, section.c_str(), key.c_str(), value, list, toProfile);
  }
  void Write(const std::string& key, double value, DoubleFormat format) const {
    persist_detail::WriteDoubleSetting(app, section.c_str(), key.c_str(), value, format, list,
                                       toProfile);
  }
};

// Where a restore reads from; a value's current content is its default.
template <class Source>
struct Reader {
  QXProfile* app;
  std::string section;
  const Source& source;
  unsigned flags;

  void Read(const std::string& key, int& value, DoubleFormat = kFixed) const {
    value = persist_detail::GetIntSetting(app, section.c_str(), key.c_str(), value, source, flags);
  }
  void Read(const std::string& key, double& value, DoubleFormat format) const {
    value = persist_detail::GetDoubleSetting(app, section.c_str(), key.c_str(), value, format,
                                             source, flags);
  }
};

}  // namespace

void QXPeakTableList::PersistSettings(const char* appSection, std::int32_t trace,
                                      std::vector<std::string>* list, int toProfile) {
  QXProfile* app = QXGetAppProfile();
  if (app == nullptr || appSection == nullptr) return;
  const Writer out{app, TraceSection(appSection, trace), list, toProfile};
  const bool mass = m_bMassProcessing != 0;
  out.Write("NumDetectSegments", GetNumDetectionSettings());
  for (std::int32_t i = 0; i < GetNumDetectionSettings(); ++i) {
    const QXPeakDetectSetting& segment = m_arrDetectSettings[static_cast<std::size_t>(i)];
    VisitSegmentKeys(QXPeakDetectSetting::ValueFields(segment),
                     [&](const char* name, const auto& value, DoubleFormat format, bool massOnly) {
                       if (!massOnly || mass) out.Write(IndexedKey(name, i), value, format);
                     });
  }
  // These two carry the segment suffix although they belong to the list; the saved
  // layout has always had it.
  out.Write(IndexedKey("Mass-Processing", 0), m_bMassProcessing);
  out.Write(IndexedKey("Resolution", 0), m_dResolution, kFixed);
  out.Write("UseResolutionForPkDetect", m_bUseResolutionFlag);
  out.Write("GaussianFit", m_bGaussFit);
  out.Write("AutomaticNoiseThreshold", m_bAutoSNCalc);
}

template <class Source>
void QXPeakTableList::RestoreSettingsFrom(const char* appSection, std::int32_t trace,
                                          const Source& source, unsigned flags) {
  QXProfile* app = QXGetAppProfile();
  if (app == nullptr || appSection == nullptr) return;
  const Reader<Source> in{app, TraceSection(appSection, trace), source, flags};
  DeleteAllDetectionSettings();

  int massProcessing = m_bDefaultMassProcessing;
  in.Read(IndexedKey("Mass-Processing", 0), massProcessing);
  SetMassProcessing(massProcessing);
  const bool mass = massProcessing != 0;

  // A segment that keys do not describe is the default setting over the range 0..0, with
  // Divisor unset as in any new segment; without mass processing its mass values are
  // those of a new segment.
  QXPeakDetectSetting fallback = m_DefaultSetting;
  fallback.SetDetectionRange(0.0, 0.0);
  fallback.m_dDivisor = kQXUnsetValue;
  if (!mass) {
    const QXPeakDetectSetting fresh;
    fallback.m_dPctCentroid = fresh.m_dPctCentroid;
    QXPeakDetectSetting::TailFields(fallback) = QXPeakDetectSetting::TailFields(fresh);
  }

  int count = 1;
  in.Read("NumDetectSegments", count);
  count = std::min(count, kMaxDetectionSettings);
  for (std::int32_t i = 0; i < count; ++i) {
    AddDetectionSetting(-1);
    if (GetNumDetectionSettings() != i + 1) break;  // the list is full
    QXPeakDetectSetting segment = fallback;
    VisitSegmentKeys(QXPeakDetectSetting::ValueFields(segment),
                     [&](const char* name, auto& value, DoubleFormat format, bool massOnly) {
                       if (!massOnly || mass) in.Read(IndexedKey(name, i), value, format);
                     });
    m_arrDetectSettings.back() = segment;
  }

  m_dResolution = m_dDefaultResolution;
  in.Read(IndexedKey("Resolution", 0), m_dResolution, kFixed);
  m_bUseResolutionFlag = m_bDefaultUseResolutionFlag;
  in.Read("UseResolutionForPkDetect", m_bUseResolutionFlag);
  m_bGaussFit = m_bDefaultGaussFit;
  in.Read("GaussianFit", m_bGaussFit);
  m_bAutoSNCalc = m_bDefaultAutoSNCalc;
  in.Read("AutomaticNoiseThreshold", m_bAutoSNCalc);
}

void QXPeakTableList::RestoreSettings(const char* appSection, std::int32_t trace, const char* text,
                                      unsigned flags) {
  if (appSection == nullptr) return;
  const persist_detail::SectionEntries entries(text, TraceSection(appSection, trace).c_str(),
                                               kLongestKey);
  RestoreSettingsFrom(appSection, trace, entries, flags);
}

void QXPeakTableList::RestoreSettings(const char* appSection,
                                      const std::map<std::string, std::string>& map,
                                      std::int32_t trace, unsigned flags) {
  RestoreSettingsFrom(appSection, trace, map, flags);
}

}  // namespace qxpkutil
