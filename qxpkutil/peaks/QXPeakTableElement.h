// One detected peak: apex, integration bounds, centroid with its region, area, charge,
// status marks, user label and four spare values; and the filter that decides whether a
// peak takes part in a query.
//
//   QXPeakTableElement p(500.27, 1200.0, 42);          // apex x, apex y, apex index
//   tagQXPeakFilterStruct f{}; f.dMinIntensity = 1000.0;
//   if (p.DoesPeakMatchCriteria(kQXFilterMinIntensity, &f)) { ... }
#pragma once

#include <cstdint>
#include <string>

#include "qxpkutil/platform/QXObject.h"

namespace qxpkutil {

// Status marks in QXPeakTableElement::m_dwFlags.
inline constexpr std::uint32_t kQXPeakNormal = 0x100;          // detected peak; initial value
inline constexpr std::uint32_t kQXPeakSeriesLow = 0x200;  // last member of a walked isotope series
inline constexpr std::uint32_t kQXPeakSeriesMostIntense = 0x400;
inline constexpr std::uint32_t kQXPeakLabelled = 0x800;        // a user label is attached
inline constexpr std::uint32_t kQXPeakChargeAssigned = 0x1000000;

// Filter bits of every filtered query.
inline constexpr std::uint32_t kQXFilterAll = 0x01;             // accept every peak
inline constexpr std::uint32_t kQXFilterSeriesLow = 0x02;       // needs mark 0x200
inline constexpr std::uint32_t kQXFilterSeriesMostIntense = 0x04;  // needs mark 0x400
inline constexpr std::uint32_t kQXFilterLabelled = 0x08;        // needs mark 0x800
inline constexpr std::uint32_t kQXFilterCharge = 0x10;          // m_nCharge == nCharge
inline constexpr std::uint32_t kQXFilterMinArea = 0x20;         // m_dArea >= dMinArea
inline constexpr std::uint32_t kQXFilterMinIntensity = 0x40;    // m_dApexY >= dMinIntensity

// Thresholds of the filter bits 0x40, 0x10 and 0x20. `tagQXPeakFilterStruct f{}` zeroes it.
struct tagQXPeakFilterStruct {
  double dMinIntensity;
  std::int32_t nCharge;
  double dMinArea;
};

class QXPeakTableElement : public QXObject {
 public:
  static const QXRuntimeClass classQXPeakTableElement;

  // Stores each argument in its field; flags 0x100, label empty.
  QXPeakTableElement(double apexX = 0, double apexY = 0, std::uint32_t apexIndex = 0,
                     double leftX = 0, double leftY = 0, std::uint32_t leftIndex = 0,
                     double rightX = 0, double rightY = 0, std::uint32_t rightIndex = 0,
                     double centroidX = 0, double area = 0, double centroidLeftX = 0,
                     double centroidLeftY = 0, double centroidRightX = 0,
                     double centroidRightY = 0, int charge = 0, double extra1 = 0,
                     double extra2 = 0, double extra3 = 0, double extra4 = 0);
  QXPeakTableElement(const QXPeakTableElement&) = default;
  QXPeakTableElement& operator=(const QXPeakTableElement&) = default;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classQXPeakTableElement; }

  // Overwrites the twenty constructor fields; flags and label stay as they were.
  void SetElement(double apexX = 0, double apexY = 0, std::uint32_t apexIndex = 0,
                  double leftX = 0, double leftY = 0, std::uint32_t leftIndex = 0,
                  double rightX = 0, double rightY = 0, std::uint32_t rightIndex = 0,
                  double centroidX = 0, double area = 0, double centroidLeftX = 0,
                  double centroidLeftY = 0, double centroidRightX = 0,
                  double centroidRightY = 0, int charge = 0, double extra1 = 0,
                  double extra2 = 0, double extra3 = 0, double extra4 = 0);

  // Exact field-by-field comparison, 1 when equal. Deliberately kept quirk: instead of
  // comparing m_dExtra4 it copies the other record's m_dExtra4 into this one and yields 0
  // when that value is 0.0, so records with a zero fourth spare value never compare equal.
  int operator==(const QXPeakTableElement& other);

  // The centroid x when `bCentroid` is non-zero, else the apex x.
  double GetXVal(int bCentroid) const { return bCentroid ? m_dCentroidX : m_dApexX; }

  // 1 when the peak passes the filter bits `flags`; threshold bits with a null `filter` fail.
  int DoesPeakMatchCriteria(std::uint32_t flags, const tagQXPeakFilterStruct* filter) const;

  // Twelve little-endian doubles (96 bytes): apex x, apex y, centroid x, area, centroid
  // left x/y, centroid right x/y, left x/y, right x/y. Indices, charge, flags, label and
  // spare values are not archived and keep their values on loading.
  void Serialize(QXArchive& ar) override;

  // ---- Calculators (see settings/PeakCalc.h) ----
  // (apex y - baseline) / noise; apex y - baseline when `noise` is exactly 0.0.
  double DoSigToNoiseOnPeak(double baseline, double noise) const;
  // Resolving power: apex x over the peak's full width at `percent` of the apex intensity,
  // the crossings interpolated linearly, truncated toward zero. `result` is -1 when the
  // peak does not fall to that level inside its bounds, for null arrays, for an apex
  // outside its bounds, or when the quotient is not a finite 32-bit number. Only the
  // points from the left to the right bound index are read, so x and y must hold them.
  void DoResCalcOnPeak(const double* x, const double* y, double percent,
                       std::int32_t& result) const;

  double m_dApexX;
  double m_dApexY;
  std::uint32_t m_nApexIndex;
  double m_dCentroidX;
  double m_dArea;
  double m_dCentroidLeftX;
  double m_dCentroidLeftY;
  double m_dCentroidRightX;
  double m_dCentroidRightY;
  double m_dLeftX;
  double m_dLeftY;
  std::uint32_t m_nLeftIndex;
  double m_dRightX;
  double m_dRightY;
  std::uint32_t m_nRightIndex;
  std::int32_t m_nCharge;
  std::uint32_t m_dwFlags;
  std::string m_strLabel;
  double m_dExtra1;
  double m_dExtra2;
  double m_dExtra3;
  double m_dExtra4;
};

}  // namespace qxpkutil
