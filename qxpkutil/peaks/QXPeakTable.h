// The peaks of one data trace: an owned array of QXPeakTableElement records with a
// remembered sort order, a cursor for filtered iteration, range and nearest-peak queries,
// a text dump and archive storage. Peak finding fills it; an empty table has no peaks,
// sort method 0 (apex x) and cursor 0.
//
//   QXPeakTable table;
//   table.AddPeak(QXPeakTableElement(500.27, 1200.0, 42));
//   std::int32_t i = table.GetPeakNearest(500.0, 0);          // -1 for an empty table
//   QXPeakTableElement* best = table.GetPeakInRange(499.0, 502.0, 0, nullptr, 0);
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/platform/QXObject.h"

namespace qxpkutil {

class QXUserPkLabels;
class SNPeakCalc;
class ResCalcPeakCalc;

class QXPeakTable : public QXObject {
 public:
  static const QXRuntimeClass classQXPeakTable;

  QXPeakTable();
  QXPeakTable(const QXPeakTable& src);
  QXPeakTable& operator=(const QXPeakTable& src);
  ~QXPeakTable() override;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classQXPeakTable; }

  // ---- Container (index convention: -1 is the last peak; others must be 0..count-1) ----
  std::int32_t GetNumPeaks() const { return static_cast<std::int32_t>(m_arrPeaks.size()); }
  // Appends a full copy (flags, label and spare values included); sort method becomes -1.
  void AddPeak(const QXPeakTableElement& peak);
  // Appends `peak` itself and takes ownership (null is ignored); sort method becomes -1.
  void AddPeak(QXPeakTableElement* peak);
  // Appends a peak built from the first sixteen record values; flags 0x100, label empty.
  void AddPeak(double apexX, double apexY, std::uint32_t apexIndex, double leftX, double leftY,
               std::uint32_t leftIndex, double rightX, double rightY, std::uint32_t rightIndex,
               double centroidX, double area, double centroidLeftX, double centroidLeftY,
               double centroidRightX, double centroidRightY, int charge);
  // Overwrites those sixteen values of peak `index` and zeroes its spare values; flags,
  // label and the sort method stay. Nothing happens for an invalid index.
  void SetPeak(double apexX, double apexY, std::uint32_t apexIndex, double leftX, double leftY,
               std::uint32_t leftIndex, double rightX, double rightY, std::uint32_t rightIndex,
               double centroidX, double area, double centroidLeftX, double centroidLeftY,
               double centroidRightX, double centroidRightY, int charge, std::int32_t index);
  // The peak (still owned by the table), or null for an invalid index.
  QXPeakTableElement* GetPeak(std::int32_t index) const;
  // Takes the peak out without deleting it; null for an invalid index.
  std::unique_ptr<QXPeakTableElement> RemovePeak(std::int32_t index);
  // Deletes the peak and closes the gap; 1 on success, 0 for an invalid index.
  int DeletePeak(std::int32_t index);
  // Deletes every peak; the sort method and cursor stay as they were.
  void DeleteAllPeaks();
  // Writes apex x and apex intensity; 1 on success, 0 (outputs untouched) for a bad index.
  int GetPeakApex(double* x, double* y, std::int32_t index) const;

  // ---- Queries ----
  void RestartFilteredPeak() { m_nFilterPos = 0; }
  // The next peak from the cursor on that passes the filter, or null at the end.
  QXPeakTableElement* GetNextFilteredPeak(std::uint32_t flags, const tagQXPeakFilterStruct* filter);
  // Index of the peak nearest to `x` (ties to the lower index), -1 for an empty table.
  // Sorts the table by apex x first.
  std::int32_t GetPeakNearest(double x, int bCentroid);
  // The most intense matching peak with x1 <= key <= x2 (lowest index among equals), or
  // null. `x2` == kQXUnsetValue means no upper limit: the peak nearest `x1` is returned
  // unfiltered. Moves the filtered-iteration cursor past the peak found.
  QXPeakTableElement* GetPeakInRange(double x1, double x2, std::uint32_t flags,
                                     const tagQXPeakFilterStruct* filter, int bCentroid);
  // Every matching peak with x1 <= key <= x2, in table order (none when `x2` is
  // kQXUnsetValue). The pointers stay owned by the table; the cursor is not moved.
  void GetAllPeaksInRange(std::vector<QXPeakTableElement*>& out, double x1, double x2,
                          std::uint32_t flags, const tagQXPeakFilterStruct* filter, int bCentroid);
  // True when some peak's apex x satisfies x1 <= x < x2.
  bool IsPeakInRegion(double x1, double x2) const;

  // ---- Order ----
  // Sorts ascending by apex x (method 0) or apex intensity (any other method), unless the
  // table is already marked with `method`.
  void SortPeakTable(int method);
  int GetSortMethod() const { return m_nSortMethod; }
  // Of each run of adjacent peaks with exactly equal apex x, keeps only the last one.
  void RemoveDuplicatedPeaks();
  // Assigns `src` to this table; does nothing for a null source or this table itself.
  void CopyPeakTable(const QXPeakTable* src);

  // ---- Output ----
  // Writes the "# Peaks" count line, the header and one tab-separated line per peak;
  // returns silently when `path` cannot be opened.
  void DumpToFile(const char* path) const;
  // The text DumpToFile writes, for callers that want it in memory.
  std::string DumpToText() const;
  // The count in the archive's count encoding, then each element as a tagged object
  // with its 96-byte body. Loading creates the elements; bad bytes leave the table empty
  // and the archive failed.
  void Serialize(QXArchive& ar) override;

  // ---- Peak finding: moving-mean scan ----
  std::int32_t FindPeaks(const double* x, const double* y, std::uint32_t n, double dAreaScale,
                         double dThreshold, int nFilterType, int nFilterWidth, int nFilterInc,
                         double dMinArea, int nReserved, int nMaxPeakWidth, double dNoiseThreshold,
                         double dCentroidPct, int nIntegrationMethod, int bMassProcessing,
                         int nMaxCharge, int nMaxIsotopes, double dMinRatio, double dMaxRatio,
                         int bFinish, double dStartX, double dEndX, int bGaussFit);
  std::int32_t FindPeaks(const float* x, const std::uint32_t* y, std::uint32_t n, double dAreaScale,
                         double dThreshold, int nFilterType, int nFilterWidth, int nFilterInc,
                         double dMinArea, int nReserved, int nMaxPeakWidth, double dNoiseThreshold,
                         double dCentroidPct, int nIntegrationMethod);

  // ---- Peak finding: centroid-spectrum path ----
  // Appends the peaks of the x range dRangeStart..dRangeEnd ((0, 0) for all of x, which may
  // run either way) found in windows of trunc(index / dDivisor) points (CentroidFindPeaks),
  // and marks the table as sorted by apex x, sorting it when it is not. With bFinish it then
  // recomputes every area as the summed region with nIntegrateMethod (1 line baseline, 2
  // keeps the trapezoid areas of the search, others a flat baseline), assigns charge states
  // and refines centroids by Gaussian fits, as switched. Returns the peak count; -1 for null
  // arrays, a dDivisor that is negative, NaN or infinite (kQXUnsetValue included), or a range
  // with no point at or above dThreshold, with the table unchanged.
  std::int32_t FindPeaks(const double* x, const double* y, std::uint32_t n, double dThreshold,
                         double dDivisor, double dPctCentroid, int nIntegrateMethod,
                         int bMassProcessing, int nMaxCharge, int nMaxIsotope,
                         double dRelMinIntensity, double dRelMaxIntensity, int bFinish,
                         double dRangeStart, double dRangeEnd, int bGaussFit);
  // Centroided input: every point of the range with y >= dThreshold becomes one peak whose
  // apex, centroid, bounds and centroid region are the point itself and whose area is its
  // intensity. The table is then sorted by apex x and, with bFinish, given charge states.
  // Returns the peak count (peaks of earlier ranges included); -1 for null arrays or more
  // than kQXMaxPoints points.
  std::int32_t BuildCentroidPeakTable(const double* x, const double* y, std::uint32_t n,
                                      double dThreshold, int nMaxCharge, int nMaxIsotope,
                                      double dRelMinIntensity, double dRelMaxIntensity, int bFinish,
                                      double dRangeStart, double dRangeEnd);

  // ---- Calculators (settings/PeakCalc.h) ----
  // Each target takes the most intense peak whose apex x lies within target +- delta
  // (GetPeakInRange with filter bit 0x01, which sorts the table by apex x); a target
  // without one gets result -1 and found x 0.0. x and y are the data the table was built
  // from.
  //
  // Measures baseline and noise over calc's baseline x1..x2 (ComputeBaseline, two-sigma
  // band) into calc, or sets them to 0.0 and 1.0 when x1 == x2, so that the ratio is the
  // raw apex intensity; then sets each target's result to its peak's DoSigToNoiseOnPeak.
  // 1 on success; 0 with the targets untouched for a null calc, a failed measurement or a
  // table without peaks.
  int DoSignalToNoiseOnList(const double* x, const double* y, std::uint32_t n, SNPeakCalc* calc);
  // Sets each target's result to its peak's DoResCalcOnPeak at calc's percent when the
  // apex reaches calc's minimum intensity (else -1, found x still set). 1 when some target
  // found a peak; 0 otherwise, for a null calc, no targets or no peaks (targets untouched
  // in the last three cases).
  int DoResCalcOnList(const double* x, const double* y, ResCalcPeakCalc* calc);

  // ---- User labels ----
  void MatchUserPeakLabels(QXUserPkLabels* labels, int bCentroid, std::uint32_t filterFlags,
                           const tagQXPeakFilterStruct* filter);
  void ClearUserPeakLabels();

 protected:
  // Sorting primitives; keys follow the current sort method.
  void QuickSort(std::int32_t first, std::int32_t count);
  void Sort3Peaks(int a, int b, int c);
  void Swap3Peaks(int a, int b, int c);
  void SwapPeaks(int a, int b);

  // Centroiding and integration of the peaks already in the table.
  void CentroidPeaks(const double* x, const double* y, std::uint32_t n, double dCentroidPct);
  void CentroidPeaks(const float* x, const std::uint32_t* y, std::uint32_t n, double dCentroidPct);
  void IntegratePeaks(const double* x, const double* y, int nBaselineMode);
  // Charge states and isotope series marks.
  void ProcessMassPeak(int nMaxCharge, int nMaxIsotopes, double dMinRatio, double dMaxRatio);

  // Centroid-spectrum path helpers.
  // Appends the peaks of one range: local tops above dThreshold found window by window,
  // bounded by the lowest points around them and measured by ComputeCentroid. 1 on
  // success (the sort method is then -1); -3 when no point of the range reaches dThreshold;
  // -1 for null arrays, more than kQXMaxPoints points or a dDivisor that is negative, NaN or
  // infinite. On failure the table is unchanged.
  std::int32_t CentroidFindPeaks(const double* x, const double* y, std::uint32_t n,
                                 double dRangeStart, double dRangeEnd, double dThreshold,
                                 double dDivisor, double dPctCentroid);
  // Plain form (bPlainMax != 0): the highest point of from..to, the first of equals, NaN
  // never chosen; returns 1, index = from when from > to. Threshold form: the first local
  // top at or after the first point >= dThreshold; 0 with index -1 when there is none.
  // `to` is cut back to n - 1; a null y gives 0 with index -1.
  int FindMaxIndex(const double* y, std::uint32_t n, std::uint32_t from, std::uint32_t to,
                   std::int32_t bPlainMax, std::int32_t& index, double dThreshold) const;
  // Measures the peak whose integration bounds are left and right: its apex is their
  // highest point, its centroid region is cut at dPct percent of the height as
  // QXDataExpUtils::CentroidRegion does (outside 0..100: the whole stretch), and `area` is
  // the trapezoid area over x above the line through the bound points, never negative.
  // 1 on success; 0 with outputs untouched when the bounds are not inside the arrays, the
  // apex does not rise above both bounds, or the centroid cannot be measured between them.
  std::int32_t ComputeCentroid(const double* x, const double* y, std::uint32_t n, double dPct,
                               std::int32_t left, std::int32_t right, double& centroidX,
                               double& area, double& centroidLeftX, double& centroidLeftY,
                               double& centroidRightX, double& centroidRightY) const;

  // ---- Centroid-spectrum path: helpers of its own ----
  // Marks the table as sorted by apex x (method 0), sorting it first when it is not.
  void MarkApexXOrder();

  // Key of the element under the current sort method.
  double SortKey(const QXPeakTableElement* peak) const {
    return m_nSortMethod == 0 ? peak->m_dApexX : peak->m_dApexY;
  }
  // Index bounds lo..hi of the peaks a range query looks at (x1, x2 put in order); false
  // for an empty table or an absent upper limit.
  bool FindRangeIndices(double& x1, double& x2, int bCentroid, std::int32_t& lo, std::int32_t& hi);
  // Resolves the -1 index convention; -1 when `index` is invalid.
  std::int32_t ResolveIndex(std::int32_t index) const;

  std::vector<std::unique_ptr<QXPeakTableElement>> m_arrPeaks;
  int m_nSortMethod = 0;
  int m_nFilterPos = 0;
};

}  // namespace qxpkutil
