#include "qxpkutil/settings/PeakCalc.h"

#include <algorithm>
#include <utility>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "qxpkutil/settings/persist_internal.h"

namespace qxpkutil {

namespace {

using persist_detail::DoubleFormat;
using persist_detail::GetDoubleSetting;
using persist_detail::GetIntSetting;
using persist_detail::IndexedKey;
using persist_detail::WriteDoubleSetting;

// How many targets a save covers: `count` when it names some of them, else all.
std::int32_t SavedCount(std::int32_t count, std::int32_t available) {
  return (count >= 1 && count <= available) ? count : available;
}

}  // namespace

// Run-time class only: calculators are neither created by archives nor archived.
const QXRuntimeClass PeakCalcBase::classPeakCalcBase{"PeakCalcBase", kQXNoSchema,
                                                     &QXObject::classQXObject};
const QXRuntimeClass PeakCalcBaseList::classPeakCalcBaseList{"PeakCalcBaseList", kQXNoSchema,
                                                             &QXObject::classQXObject};
// The two calculators' records name PeakCalcBase as their base although they derive from
// the list, so IsKindOf says yes to PeakCalcBase and no to PeakCalcBaseList; code that
// sorts calculators by kind gets that answer, so it is kept.
const QXRuntimeClass SNPeakCalc::classSNPeakCalc{"SNPeakCalc", kQXNoSchema,
                                                 &PeakCalcBase::classPeakCalcBase};
const QXRuntimeClass ResCalcPeakCalc::classResCalcPeakCalc{"ResCalcPeakCalc", kQXNoSchema,
                                                           &PeakCalcBase::classPeakCalcBase};

PeakCalcBaseList::PeakCalcBaseList(const PeakCalcBaseList& src) : QXObject(src) {
  m_arrSettings.reserve(src.m_arrSettings.size());
  for (const auto& setting : src.m_arrSettings) {
    m_arrSettings.push_back(std::make_unique<PeakCalcBase>(*setting));
  }
}

PeakCalcBaseList& PeakCalcBaseList::operator=(const PeakCalcBaseList& src) {
  if (this != &src) *this = PeakCalcBaseList(src);
  return *this;
}

int PeakCalcBaseList::AddSetting(std::int32_t index) {
  if (index < -1 || GetNumSettings() >= kMaxSettings) return 0;
  auto setting = std::make_unique<PeakCalcBase>();
  if (index == -1 || index >= GetNumSettings()) {
    m_arrSettings.push_back(std::move(setting));
  } else {
    m_arrSettings.insert(m_arrSettings.begin() + index, std::move(setting));
  }
  return 1;
}

int PeakCalcBaseList::DeleteSetting(std::int32_t index) {
  if (GetSetting(index) == nullptr) return 0;
  m_arrSettings.erase(m_arrSettings.begin() + index);
  return 1;
}

int PeakCalcBaseList::MoveSetting(std::int32_t a, std::int32_t b) {
  if (GetSetting(a) == nullptr || GetSetting(b) == nullptr) return 0;
  std::swap(m_arrSettings[static_cast<std::size_t>(a)], m_arrSettings[static_cast<std::size_t>(b)]);
  return 1;
}

PeakCalcBase* PeakCalcBaseList::GetSetting(std::int32_t index) const {
  if (index < 0 || index >= GetNumSettings()) return nullptr;
  return m_arrSettings[static_cast<std::size_t>(index)].get();
}

void PeakCalcBaseList::PersistTargets(const char* section, std::int32_t count,
                                      const char* targetKey, const char* deltaKey,
                                      std::vector<std::string>* list, unsigned toProfile) const {
  QXProfile* app = QXGetAppProfile();
  const int profile = toProfile != 0 ? 1 : 0;
  const std::int32_t n = SavedCount(count, GetNumSettings());
  for (std::int32_t i = 0; i < n; ++i) {
    double target = 0.0;
    double delta = 0.0;
    GetSetting(i)->GetPeakCalcSetting(target, delta);
    WriteDoubleSetting(app, section, IndexedKey(targetKey, i).c_str(), target, DoubleFormat::kFixed,
                       list, profile);
    WriteDoubleSetting(app, section, IndexedKey(deltaKey, i).c_str(), delta, DoubleFormat::kFixed,
                       list, profile);
  }
}

void PeakCalcBaseList::GetTargets(const char* section, std::int32_t count, const char* targetKey,
                                  const char* deltaKey, double targetDefault, double deltaDefault,
                                  const char* text, unsigned flags) {
  QXProfile* app = QXGetAppProfile();
  const std::int32_t n = std::min(count, kMaxSettings);
  while (GetNumSettings() < n) AddSetting(-1);
  for (std::int32_t i = 0; i < n; ++i) {
    const double target = GetDoubleSetting(app, section, IndexedKey(targetKey, i).c_str(),
                                           targetDefault, DoubleFormat::kFixed, text, flags);
    const double delta = GetDoubleSetting(app, section, IndexedKey(deltaKey, i).c_str(),
                                          deltaDefault, DoubleFormat::kFixed, text, flags);
    GetSetting(i)->SetPeakCalcSetting(target, delta);
  }
}

void SNPeakCalc::PersistSNSettings(const char* section, std::int32_t count,
                                   std::vector<std::string>* list, unsigned toProfile) const {
  QXProfile* app = QXGetAppProfile();
  if (app == nullptr) return;
  const int profile = toProfile != 0 ? 1 : 0;
  WriteDoubleSetting(app, section, "SNBaselineX1", m_dBaselineX1, DoubleFormat::kFixed, list,
                     profile);
  WriteDoubleSetting(app, section, "SNBaselineX2", m_dBaselineX2, DoubleFormat::kFixed, list,
                     profile);
  PersistTargets(section, count, "SNTargetMass", "SNDeltaAMU", list, toProfile);
}

void SNPeakCalc::GetSNSettings(const char* section, std::int32_t count, double baselineX1Default,
                               double baselineX2Default, double targetMassDefault,
                               double deltaAmuDefault, const char* text, unsigned flags) {
  QXProfile* app = QXGetAppProfile();
  if (app == nullptr) return;
  m_dBaselineX1 = GetDoubleSetting(app, section, "SNBaselineX1", baselineX1Default,
                                   DoubleFormat::kFixed, text, flags);
  m_dBaselineX2 = GetDoubleSetting(app, section, "SNBaselineX2", baselineX2Default,
                                   DoubleFormat::kFixed, text, flags);
  GetTargets(section, count, "SNTargetMass", "SNDeltaAMU", targetMassDefault, deltaAmuDefault, text,
             flags);
}

void ResCalcPeakCalc::PersistResCalcSettings(const char* section, std::int32_t count,
                                             std::vector<std::string>* list,
                                             unsigned toProfile) const {
  QXProfile* app = QXGetAppProfile();
  if (app == nullptr) return;
  const int profile = toProfile != 0 ? 1 : 0;
  QXPersistUtils::WriteParamSetting(app, section, "ResCalcPercent", m_nPercent, list, profile);
  QXPersistUtils::WriteParamSetting(app, section, "ResCalcMinIntensity", m_nMinIntensity, list,
                                    profile);
  PersistTargets(section, count, "ResCalcTargetMass", "ResCalcDeltaAMU", list, toProfile);
}

void ResCalcPeakCalc::GetResCalcSettings(const char* section, std::int32_t count,
                                         std::int32_t percentDefault,
                                         std::int32_t minIntensityDefault, double targetMassDefault,
                                         double deltaAmuDefault, const char* text, unsigned flags) {
  QXProfile* app = QXGetAppProfile();
  if (app == nullptr) return;
  m_nPercent = GetIntSetting(app, section, "ResCalcPercent", percentDefault, text, flags);
  m_nMinIntensity =
      GetIntSetting(app, section, "ResCalcMinIntensity", minIntensityDefault, text, flags);
  GetTargets(section, count, "ResCalcTargetMass", "ResCalcDeltaAMU", targetMassDefault,
             deltaAmuDefault, text, flags);
}

}  // namespace qxpkutil
