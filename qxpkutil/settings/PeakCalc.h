// Signal-to-noise and resolution calculators: a list of targets (a mass and the half-width
// of the range searched around it), each receiving the x of the peak found there and the
// calculator's result. The peak table does the work (QXPeakTable::DoSignalToNoiseOnList,
// DoResCalcOnList); the settings persist through QXPersistUtils and the application profile.
//
//   SNPeakCalc sn;  sn.AddSetting(-1);  sn.GetSetting(0)->SetPeakCalcSetting(500.0, 0.5);
//   sn.SetBaselineX1(100.0);  sn.SetBaselineX2(200.0);
//   if (table.DoSignalToNoiseOnList(x, y, n, &sn)) use(sn.GetSetting(0)->GetResult());
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qxpkutil/platform/QXObject.h"

namespace qxpkutil {

// One target. A new one searches 0.0 +- 1.0, has found nothing (found x 0.0) and has no
// result (-1).
class PeakCalcBase : public QXObject {
 public:
  static const QXRuntimeClass classPeakCalcBase;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classPeakCalcBase; }

  // Stores the target mass and the half-width `delta` of its search range, and forgets the
  // peak found before (found x 0.0); the result stays.
  void SetPeakCalcSetting(double target, double delta) {
    m_dTargetMass = target;
    m_dDelta = delta;
    m_dFoundX = 0.0;
  }
  void GetPeakCalcSetting(double& target, double& delta) const {
    target = m_dTargetMass;
    delta = m_dDelta;
  }
  // Apex x of the peak the last calculation used; 0.0 when it found none.
  double GetFoundX() const { return m_dFoundX; }
  void SetFoundX(double x) { m_dFoundX = x; }
  // The signal-to-noise ratio, or the resolution as a whole number; -1 when there is none.
  double GetResult() const { return m_dResult; }
  void SetResult(double result) { m_dResult = result; }

 private:
  double m_dTargetMass = 0.0;
  double m_dDelta = 1.0;
  double m_dFoundX = 0.0;
  double m_dResult = -1.0;
};

// An ordered list of owned targets; a new list is empty. Pointers from GetSetting stay
// valid until that target is deleted or the list is assigned or destroyed.
class PeakCalcBaseList : public QXObject {
 public:
  static const QXRuntimeClass classPeakCalcBaseList;
  // The most targets a list holds; an add beyond it fails.
  static constexpr std::int32_t kMaxSettings = 65536;

  PeakCalcBaseList() = default;
  // Copies are deep: every target is copied.
  PeakCalcBaseList(const PeakCalcBaseList& src);
  PeakCalcBaseList& operator=(const PeakCalcBaseList& src);
  PeakCalcBaseList(PeakCalcBaseList&&) noexcept = default;
  PeakCalcBaseList& operator=(PeakCalcBaseList&&) noexcept = default;
  ~PeakCalcBaseList() override = default;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classPeakCalcBaseList; }

  std::int32_t GetNumSettings() const { return static_cast<std::int32_t>(m_arrSettings.size()); }
  // Inserts a new target at `index` (0..count-1), or appends it for -1 or any index >=
  // count. 1 when added; 0 for an index below -1 or a full list.
  int AddSetting(std::int32_t index);
  // Deletes target `index`; 1 on success, 0 (nothing changed) outside 0..count-1.
  int DeleteSetting(std::int32_t index);
  // Swaps targets `a` and `b`; 1 on success (also for a == b), 0 when either is out of range.
  int MoveSetting(std::int32_t a, std::int32_t b);
  // The target (still owned by the list), or null outside 0..count-1.
  PeakCalcBase* GetSetting(std::int32_t index) const;

 protected:
  // Writes "<targetKey>-i" and "<deltaKey>-i" ("%f") of the first `count` targets, or of
  // every target when `count` is not within 1..count of targets.
  void PersistTargets(const char* section, std::int32_t count, const char* targetKey,
                      const char* deltaKey, std::vector<std::string>* list,
                      unsigned toProfile) const;
  // Appends default targets until there are at least `count` (at most kMaxSettings), then
  // reads targets 0..count-1 from those keys with the given defaults.
  void GetTargets(const char* section, std::int32_t count, const char* targetKey,
                  const char* deltaKey, double targetDefault, double deltaDefault, const char* text,
                  unsigned flags);

 private:
  std::vector<std::unique_ptr<PeakCalcBase>> m_arrSettings;
};

// Signal-to-noise: the apex intensity above the baseline, in units of the noise, both
// measured over baseline x1..x2 of the data. A new one has baseline x1 = x2 = 0.0 (no
// measurement: the ratio is then the raw apex intensity), baseline 0.0 and noise 1.0.
// Like ResCalcPeakCalc, its class record names PeakCalcBase as the base, not
// PeakCalcBaseList: IsKindOf(&PeakCalcBaseList::classPeakCalcBaseList) is false on purpose.
class SNPeakCalc : public PeakCalcBaseList {
 public:
  static const QXRuntimeClass classSNPeakCalc;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classSNPeakCalc; }

  double GetBaselineX1() const { return m_dBaselineX1; }
  void SetBaselineX1(double x) { m_dBaselineX1 = x; }
  double GetBaselineX2() const { return m_dBaselineX2; }
  void SetBaselineX2(double x) { m_dBaselineX2 = x; }
  // The level and noise of the last calculation.
  double GetBaseline() const { return m_dBaseline; }
  void SetBaseline(double baseline) { m_dBaseline = baseline; }
  double GetNoise() const { return m_dNoise; }
  void SetNoise(double noise) { m_dNoise = noise; }

  // Through the application profile (when `toProfile` is non-zero) and `list`: keys
  // "SNBaselineX1" and "SNBaselineX2", then "SNTargetMass-i" and "SNDeltaAMU-i" for the
  // first `count` targets (every target when `count` is not within 1..count of targets),
  // all "%f". Does nothing at all when no application profile is set.
  void PersistSNSettings(const char* section, std::int32_t count, std::vector<std::string>* list,
                         unsigned toProfile) const;
  // Reads the baseline range, then appends targets until there are at least `count` and
  // reads targets 0..count-1; missing keys take the defaults. `text` and `flags` select
  // the source as QXPersistUtils::GetParamSetting does. Reading a target forgets its found
  // x. Does nothing at all when no application profile is set.
  void GetSNSettings(const char* section, std::int32_t count, double baselineX1Default,
                     double baselineX2Default, double targetMassDefault, double deltaAmuDefault,
                     const char* text, unsigned flags);

 private:
  double m_dBaselineX1 = 0.0;
  double m_dBaselineX2 = 0.0;
  double m_dBaseline = 0.0;
  double m_dNoise = 1.0;
};

// Resolution: apex x over the peak's full width at `percent` of its height (50: the width
// at half maximum), for peaks whose apex reaches the minimum intensity. A new one measures
// at 50 % and needs an apex of at least 50.
class ResCalcPeakCalc : public PeakCalcBaseList {
 public:
  static const QXRuntimeClass classResCalcPeakCalc;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classResCalcPeakCalc; }

  std::int32_t GetPercent() const { return m_nPercent; }
  void SetPercent(std::int32_t percent) { m_nPercent = percent; }
  std::int32_t GetMinIntensity() const { return m_nMinIntensity; }
  void SetMinIntensity(std::int32_t minIntensity) { m_nMinIntensity = minIntensity; }

  // Keys "ResCalcPercent" and "ResCalcMinIntensity" (integers), then "ResCalcTargetMass-i"
  // and "ResCalcDeltaAMU-i" ("%f"), with `count` as for PersistSNSettings. Does nothing at
  // all when no application profile is set.
  void PersistResCalcSettings(const char* section, std::int32_t count,
                              std::vector<std::string>* list, unsigned toProfile) const;
  // Reads them back as GetSNSettings does, with the defaults given.
  void GetResCalcSettings(const char* section, std::int32_t count, std::int32_t percentDefault,
                          std::int32_t minIntensityDefault, double targetMassDefault,
                          double deltaAmuDefault, const char* text, unsigned flags);

 private:
  std::int32_t m_nPercent = 50;
  std::int32_t m_nMinIntensity = 50;
};

}  // namespace qxpkutil
