#include "qxpkutil/settings/QXPeakDetectSetting.h"

namespace qxpkutil {

// Run-time class only: settings are neither created by archives nor archived themselves.
const QXRuntimeClass QXPeakDetectSetting::classQXPeakDetectSetting{
    "QXPeakDetectSetting", kQXNoSchema, &QXObject::classQXObject};

QXPeakDetectSetting::QXPeakDetectSetting(double rangeX1, double rangeX2, double relThreshold,
                                         double absThreshold, int filterType, int filterWidth,
                                         int filterInc, double minPeakArea, double pctPeakArea,
                                         int minPeakWidth, int maxPeakWidth, int autoPeakWidth,
                                         double noiseThreshold, int integratedMethod,
                                         double pctCentroid, int maxCharge, int maxIsotope,
                                         double relMasMinIntensity, double relMassMaxIntensity)
    : m_dRelThreshold(relThreshold),
      m_dAbsThreshold(absThreshold),
      m_dPctCentroid(pctCentroid),
      m_nFilterType(filterType),
      m_nFilterInc(filterInc),
      m_nFilterWidth(filterWidth),
      m_dMinPeakArea(minPeakArea),
      m_dPctPeakArea(pctPeakArea),
      m_nMinPeakWidth(minPeakWidth),
      m_nMaxPeakWidth(maxPeakWidth),
      m_bAutoPeakWidth(autoPeakWidth),
      m_dNoiseThreshold(noiseThreshold),
      m_nIntegratedMethod(integratedMethod),
      m_dRangeX1(rangeX1),
      m_dRangeX2(rangeX2),
      m_nMaxCharge(maxCharge),
      m_nMaxIsotope(maxIsotope),
      m_dRelMasMinIntensity(relMasMinIntensity),
      m_dRelMassMaxIntensity(relMassMaxIntensity) {}

}  // namespace qxpkutil
