// One detection setting: thresholds, smoothing filter, peak-width limits, integration
// method, centroid and mass-processing parameters, and the x range they apply to. The
// segments of a QXPeakTableList are settings of this kind; it is a plain value.
//
//   QXPeakDetectSetting s;                       // the defaults below, range 0..0
//   s.SetDetectionRange(100.0, 2000.0);
//   s.SetRelThreshold(0.5);                      // percent of the data's height
#pragma once

#include <tuple>

#include "qxpkutil/platform/QXObject.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

class QXPeakTableList;

// A default-constructed setting holds: RelThreshold 1.0, AbsThreshold 0.0, Divisor unset
// (kQXUnsetValue), PctCentroid 50.0, FilterType 0, FilterInc 1, FilterWidth 3, MinPeakArea
// 0.0, PctPeakArea 1.0, MinPeakWidth 3, MaxPeakWidth 10000, AutoPeakWidth 1,
// NoiseThreshold 0.0, IntegratedMethod 1, range 0.0..0.0, MaxCharge 6, MaxIsotope 40,
// RelMasMinIntensity 0.05, RelMassMaxIntensity 0.99. Widths are in data points.
// The setting has no archive form of its own: it travels through the profile.
class QXPeakDetectSetting : public QXObject {
 public:
  static const QXRuntimeClass classQXPeakDetectSetting;

  QXPeakDetectSetting() = default;
  // Takes every field but Divisor, which starts unset. Note the order: the range comes
  // first and FilterWidth precedes FilterInc.
  QXPeakDetectSetting(double rangeX1, double rangeX2, double relThreshold, double absThreshold,
                      int filterType, int filterWidth, int filterInc, double minPeakArea,
                      double pctPeakArea, int minPeakWidth, int maxPeakWidth, int autoPeakWidth,
                      double noiseThreshold, int integratedMethod, double pctCentroid,
                      int maxCharge, int maxIsotope, double relMasMinIntensity,
                      double relMassMaxIntensity);
  // Copying takes all twenty fields, Divisor included. A source is always of this kind
  // and copying an object onto itself changes nothing, so member-wise copy is exact.
  QXPeakDetectSetting(const QXPeakDetectSetting&) = default;
  QXPeakDetectSetting& operator=(const QXPeakDetectSetting&) = default;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classQXPeakDetectSetting; }

  double GetRelThreshold() const { return m_dRelThreshold; }
  double GetAbsThreshold() const { return m_dAbsThreshold; }
  // kQXUnsetValue when the setting carries no divisor.
  double GetDivisor() const { return m_dDivisor; }
  double GetPctCentroid() const { return m_dPctCentroid; }
  int GetFilterType() const { return m_nFilterType; }
  int GetFilterInc() const { return m_nFilterInc; }
  int GetFilterWidth() const { return m_nFilterWidth; }
  double GetMinPeakArea() const { return m_dMinPeakArea; }
  double GetPctPeakArea() const { return m_dPctPeakArea; }
  int GetMinPeakWidth() const { return m_nMinPeakWidth; }
  int GetMaxPeakWidth() const { return m_nMaxPeakWidth; }
  int GetAutoPeakWidth() const { return m_bAutoPeakWidth; }
  double GetNoiseThreshold() const { return m_dNoiseThreshold; }
  int GetIntegratedMethod() const { return m_nIntegratedMethod; }
  double GetRangeX1() const { return m_dRangeX1; }
  double GetRangeX2() const { return m_dRangeX2; }
  int GetMaxCharge() const { return m_nMaxCharge; }
  int GetMaxIsotope() const { return m_nMaxIsotope; }
  // The single "s" in "Mas" is part of the public name.
  double GetRelMasMinIntensity() const { return m_dRelMasMinIntensity; }
  double GetRelMassMaxIntensity() const { return m_dRelMassMaxIntensity; }
  void GetDetectionRange(double& x1, double& x2) const {
    x1 = m_dRangeX1;
    x2 = m_dRangeX2;
  }

  // Setters store the value and nothing else. Divisor, the peak-width limits, the
  // automatic-width flag and the mass-processing limits have none: they change through
  // the constructors, assignment and the segment setters of QXPeakTableList.
  void SetRelThreshold(double v) { m_dRelThreshold = v; }
  void SetAbsThreshold(double v) { m_dAbsThreshold = v; }
  void SetPctCentroid(double v) { m_dPctCentroid = v; }
  void SetFilterType(int v) { m_nFilterType = v; }
  void SetFilterInc(int v) { m_nFilterInc = v; }
  void SetFilterWidth(int v) { m_nFilterWidth = v; }
  void SetMinPeakArea(double v) { m_dMinPeakArea = v; }
  void SetPctPeakArea(double v) { m_dPctPeakArea = v; }
  void SetNoiseThreshold(double v) { m_dNoiseThreshold = v; }
  void SetIntegratedMethod(int v) { m_nIntegratedMethod = v; }
  void SetRangeX1(double v) { m_dRangeX1 = v; }
  void SetRangeX2(double v) { m_dRangeX2 = v; }
  void SetDetectionRange(double x1, double x2) {
    m_dRangeX1 = x1;
    m_dRangeX2 = x2;
  }

 private:
  friend class QXPeakTableList;

  // The fields as tuples of references, for the list's bulk getters and setters: the value
  // constructor's order is Head then Tail; the full order puts Divisor between them.
  template <class Self>
  static auto HeadFields(Self& s) {
    return std::tie(s.m_dRangeX1, s.m_dRangeX2, s.m_dRelThreshold, s.m_dAbsThreshold,
                    s.m_nFilterType, s.m_nFilterWidth, s.m_nFilterInc, s.m_dMinPeakArea,
                    s.m_dPctPeakArea, s.m_nMinPeakWidth, s.m_nMaxPeakWidth, s.m_bAutoPeakWidth,
                    s.m_dNoiseThreshold, s.m_nIntegratedMethod, s.m_dPctCentroid);
  }
  template <class Self>
  static auto TailFields(Self& s) {
    return std::tie(s.m_nMaxCharge, s.m_nMaxIsotope, s.m_dRelMasMinIntensity,
                    s.m_dRelMassMaxIntensity);
  }
  template <class Self>
  static auto ValueFields(Self& s) {
    return std::tuple_cat(HeadFields(s), TailFields(s));
  }
  template <class Self>
  static auto AllFields(Self& s) {
    return std::tuple_cat(HeadFields(s), std::tie(s.m_dDivisor), TailFields(s));
  }
  // The subset that mass processing of centroided data uses.
  template <class Self>
  static auto MassFields(Self& s) {
    return std::tie(s.m_dRangeX1, s.m_dRangeX2, s.m_dRelThreshold, s.m_dPctCentroid, s.m_dDivisor,
                    s.m_nIntegratedMethod, s.m_nMaxCharge, s.m_nMaxIsotope, s.m_dRelMasMinIntensity,
                    s.m_dRelMassMaxIntensity);
  }

  double m_dRelThreshold = 1.0;
  double m_dAbsThreshold = 0.0;
  double m_dDivisor = kQXUnsetValue;
  double m_dPctCentroid = 50.0;
  int m_nFilterType = 0;
  int m_nFilterInc = 1;
  int m_nFilterWidth = 3;
  double m_dMinPeakArea = 0.0;
  double m_dPctPeakArea = 1.0;
  int m_nMinPeakWidth = 3;
  int m_nMaxPeakWidth = 10000;
  int m_bAutoPeakWidth = 1;
  double m_dNoiseThreshold = 0.0;
  int m_nIntegratedMethod = 1;
  double m_dRangeX1 = 0.0;
  double m_dRangeX2 = 0.0;
  int m_nMaxCharge = 6;
  int m_nMaxIsotope = 40;
  double m_dRelMasMinIntensity = 0.05;
  double m_dRelMassMaxIntensity = 0.99;
};

}  // namespace qxpkutil
