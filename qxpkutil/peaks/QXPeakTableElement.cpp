#include "qxpkutil/peaks/QXPeakTableElement.h"


#include "qxpkutil/platform/QXArchive.h"

namespace qxpkutil {

// The record carries no schema and no factory: tables create their elements themselves.
const QXRuntimeClass QXPeakTableElement::classQXPeakTableElement{
    "QXPeakTableElement", kQXNoSchema, &QXObject::classQXObject};

QXPeakTableElement::QXPeakTableElement(double apexX, double apexY, std::uint32_t apexIndex,
                                       double leftX, double leftY, std::uint32_t leftIndex,
                                       double rightX, double rightY, std::uint32_t rightIndex,
                                       double centroidX, double area, double centroidLeftX,
                                       double centroidLeftY, double centroidRightX,
                                       double centroidRightY, int charge, double extra1,
                                       double extra2, double extra3, double extra4)
    : m_dwFlags(kQXPeakNormal) {
  SetElement(apexX, apexY, apexIndex, leftX, leftY, leftIndex, rightX, rightY, rightIndex,
             centroidX, area, centroidLeftX, centroidLeftY, centroidRightX, centroidRightY,
             charge, extra1, extra2, extra3, extra4);
}

void QXPeakTableElement::SetElement(double apexX, double apexY, std::uint32_t apexIndex,
                                    double leftX, double leftY, std::uint32_t leftIndex,
                                    double rightX, double rightY, std::uint32_t rightIndex,
                                    double centroidX, double area, double centroidLeftX,
                                    double centroidLeftY, double centroidRightX,
                                    double centroidRightY, int charge, double extra1,
                                    double extra2, double extra3, double extra4) {
  m_dApexX = apexX;
  m_dApexY = apexY;
  m_nApexIndex = apexIndex;
  m_dLeftX = leftX;
  m_dLeftY = leftY;
  m_nLeftIndex = leftIndex;
  m_dRightX = rightX;
  m_dRightY = rightY;
  m_nRightIndex = rightIndex;
  m_dCentroidX = centroidX;
  m_dArea = area;
  m_dCentroidLeftX = centroidLeftX;
  m_dCentroidLeftY = centroidLeftY;
  m_dCentroidRightX = centroidRightX;
  m_dCentroidRightY = centroidRightY;
  m_nCharge = charge;
  m_dExtra1 = extra1;
  m_dExtra2 = extra2;
  m_dExtra3 = extra3;
  m_dExtra4 = extra4;
}

int QXPeakTableElement::operator==(const QXPeakTableElement& other) {
  if (m_dApexX != other.m_dApexX || m_dApexY != other.m_dApexY ||
      m_nApexIndex != other.m_nApexIndex || m_dLeftX != other.m_dLeftX ||
      m_dLeftY != other.m_dLeftY || m_nLeftIndex != other.m_nLeftIndex ||
      m_dRightX != other.m_dRightX || m_dRightY != other.m_dRightY ||
      m_nRightIndex != other.m_nRightIndex || m_dCentroidX != other.m_dCentroidX ||
      m_dArea != other.m_dArea || m_dCentroidLeftX != other.m_dCentroidLeftX ||
      m_dCentroidLeftY != other.m_dCentroidLeftY ||
      m_dCentroidRightX != other.m_dCentroidRightX ||
      m_dCentroidRightY != other.m_dCentroidRightY || m_nCharge != other.m_nCharge ||
      m_dwFlags != other.m_dwFlags) {
    return 0;
  }
  if (m_strLabel != other.m_strLabel) return 0;
  if (m_dExtra1 != other.m_dExtra1 || m_dExtra2 != other.m_dExtra2 ||
      m_dExtra3 != other.m_dExtra3) {
    return 0;
  }
  // Kept on purpose: the fourth spare value is assigned, not compared.
  m_dExtra4 = other.m_dExtra4;
  return m_dExtra4 != 0.0 ? 1 : 0;
}

int QXPeakTableElement::DoesPeakMatchCriteria(std::uint32_t flags,
                                              const tagQXPeakFilterStruct* filter) const {
  if (flags & kQXFilterAll) return 1;
  if ((flags & kQXFilterSeriesLow) && !(m_dwFlags & kQXPeakSeriesLow)) return 0;
  if ((flags & kQXFilterSeriesMostIntense) && !(m_dwFlags & kQXPeakSeriesMostIntense)) return 0;
  if ((flags & kQXFilterLabelled) && !(m_dwFlags & kQXPeakLabelled)) return 0;
  const std::uint32_t thresholdBits = kQXFilterCharge | kQXFilterMinArea | kQXFilterMinIntensity;
  if ((flags & thresholdBits) && filter == nullptr) return 0;
  if ((flags & kQXFilterMinIntensity) && m_dApexY < filter->dMinIntensity) return 0;
  if ((flags & kQXFilterCharge) && m_nCharge != filter->nCharge) return 0;
  if ((flags & kQXFilterMinArea) && m_dArea < filter->dMinArea) return 0;
  return 1;
}

void QXPeakTableElement::Serialize(QXArchive& ar) {
  double* const body[] = {&m_dApexX,         &m_dApexY,          &m_dCentroidX,
                          &m_dArea,          &m_dCentroidLeftX,  &m_dCentroidLeftY,
                          &m_dCentroidRightX, &m_dCentroidRightY, &m_dLeftX,
                          &m_dLeftY,         &m_dRightX,         &m_dRightY};
  if (ar.IsStoring()) {
    for (double* field : body) ar << *field;
  } else {
    for (double* field : body) ar >> *field;
  }
}

}  // namespace qxpkutil
