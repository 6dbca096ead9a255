// Internal to the library (not part of the public API): what the detection driver uses to
// run the moving-mean scan of QXPeakTable::FindPeaks cheaply several times over one array.
//
//   peaks_detail::SharedWindowMeans shared(y, n);   // scans over y on this thread share work
//   peaks_detail::ScanSummary trial = peaks_detail::SummariseScan(x, y, n, request, &real);
//   table.FindPeaks(x, y, n, ...);                  // the real scan replays what `real` met
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "qxpkutil/numeric/numeric_internal.h"

namespace qxpkutil {
class QXPeakTableElement;
}

namespace qxpkutil::peaks_detail {

// While one lives on a thread, the double-family scans on that thread over exactly this
// intensity array take their window means from one store, so that each mean of a given
// filter type and width is computed once for the trial and the real search together, and
// QXPeakTable::FindPeaks replays a scan that SummariseScan ran beside its trial. The array
// must not change while it lives. Nested instances: the innermost one counts.
class SharedWindowMeans {
 public:
  SharedWindowMeans(const double* y, std::uint32_t n);
  ~SharedWindowMeans();
  SharedWindowMeans(const SharedWindowMeans&) = delete;
  SharedWindowMeans& operator=(const SharedWindowMeans&) = delete;

  struct Store;

 private:
  std::unique_ptr<Store> m_store;
  SharedWindowMeans* m_outer;
};

// The arguments of one moving-mean scan of QXPeakTable::FindPeaks, with its x range.
struct ScanRequest {
  double areaScale;
  double threshold;
  int filterType;
  int filterWidth;
  int filterInc;
  double minArea;
  int maxPeakWidth;
  double noiseThreshold;
  int integrationMethod;
  double startX;
  double endX;
};

// What a search without finishing step would leave in an empty table: how many peaks it
// accepts and the largest of their areas (never below 0.0), without storing any. With a scan
// beside, the pass may first scan a stretch around the highest intensity and then leap over
// stretches whose peaks cannot beat the largest area so far; `found` then counts some peaks
// twice and leaves others out (it is still 0 only when none is accepted).
struct ScanSummary {
  std::int32_t found = 0;
  double largestArea = 0.0;
  // True when the pass tested every point (x and y of 0..n-1) along the way, as asked; then
  // xFinite says whether every x is finite, and yRange holds the lowest and the highest y,
  // or nothing when one is not finite.
  bool dataTested = false;
  bool xFinite = false;
  std::optional<numeric_detail::ValueRange> yRange;
};

// The moving-mean scan of QXPeakTable::FindPeaks (double family, same arguments and range
// rule), summarised instead of stored. `found` is -1 when x or y is null or n is 0.
//
// With `beside`, a scan with the same filter and x range (its own threshold, step and
// peak-width limit) runs in the same pass, and what it would hand to the table before the
// minimum-area test is kept in this thread's SharedWindowMeans for y; QXPeakTable::FindPeaks
// with those arguments then takes the kept peaks that reach its minimum area instead of
// scanning. The two scans then read window means block by block while they are in cache,
// and with `testData` the pass tests x and y beside them (ScanSummary::dataTested).
ScanSummary SummariseScan(const double* x, const double* y, std::uint32_t n,
                          const ScanRequest& trial, const ScanRequest* beside,
                          bool testData = false);

// Centroids one peak as QXPeakTable::CentroidPeaks centroids each peak of a table (defined
// in centroiding.cpp), so that a search can measure a peak while its points are in cache.
void CentroidPeak(QXPeakTableElement& peak, const double* x, const double* y, std::uint32_t n,
                  double pct);

// For tests of the trial's leaps: at every run end where a leap of the trial scan `trial` could
// land (its intensities not negative), whether the full scan's first state past it is one of
// the states the leap starts from. Returns the number of run ends where it is not, and sets
// `checked` to the number checked.
std::int64_t WrongRunExits(const double* x, const double* y, std::uint32_t n,
                               const ScanRequest& trial, std::int64_t& checked);

// For tests of the leaps' bound: the peaks the trial scan `trial` accepts when it scans every
// step, its intensities not negative, and at each whether a cut (a window mean not above the
// one before and below the one after) lies within its bounds further than 2 steps from the
// left one and 2W + W/2 - 2 steps from the right one (W the filter width). Returns the number
// of such peaks, and sets `checked` to the number checked.
std::int64_t CutsInsidePeaks(const double* x, const double* y, std::uint32_t n,
                             const ScanRequest& trial, std::int64_t& checked);

}  // namespace qxpkutil::peaks_detail
