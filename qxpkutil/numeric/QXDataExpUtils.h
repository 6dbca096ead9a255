// Stateless numeric routines over signal arrays: statistics, index search in sorted x,
// Gaussian smoothing with a shared kernel table, binning, region integration, centroids,
// baselines and least-squares fits. Built on the standard library only; peak finding and
// the calculators call down into it. Two array families: double x with double y, and float
// x with unsigned 32-bit y (counts), which is widened to double before any arithmetic.
//
//   std::int32_t i = QXDataExpUtils::FindNearestIndex(x, n, 500.0);
//   double level = QXDataExpUtils::NormGaussMean(y + i - 5, 11);
//   double area = QXDataExpUtils::IntegrateSummedRegion(x, y, i - 5, i + 5, 1);
#pragma once

#include <cstdint>

#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

class QXDataExpUtils {
 public:
  QXDataExpUtils() = default;
  virtual ~QXDataExpUtils() = default;

  // ---- Statistics ----

  // Sum of v[0..n-1] divided by n. Sums here are accumulated in the widest floating type
  // the hardware offers (long double on x86). Like the routine it
  // replaces it has no guard on n: n = 0 gives NaN (0/0), n < 0 gives 0/n. A null `v`
  // gives NaN.
  static double Mean(const double* v, int n);
  static double Mean(const std::uint32_t* v, int n);
  // Mean, sample variance (divisor n-1) and its square root. 1 on success; 0 for a null `v`
  // or n < 2, outputs untouched.
  static int StandardDev(const double* v, std::uint32_t n, double& mean, double& variance,
                         double& stdDev);
  // Mean and population standard deviation (divisor n, unlike StandardDev on purpose) from
  // one pass. 1 on success; 0 for a null `v` or n < 2, outputs untouched.
  static int RMSNoise(const double* v, std::uint32_t n, double& mean, double& rms);
  // 1 when |a - b| < 10^-precision (strictly), else 0. A negative `precision` widens the
  // tolerance above 1.
  static int dCompare(double a, double b, std::int32_t precision);

  // ---- Search in a sorted x array ----
  // The array is ascending when x[0] < x[n-1] and descending otherwise, so a one-point or
  // flat array counts as descending.

  // Index of the element nearest to `value`; an exact midpoint goes to the lower index.
  // 0 for n <= 1 (an empty array included); -1 for a null `x`, a NaN `value` or more than
  // kQXMaxPoints points.
  static std::int32_t FindNearestIndex(const double* x, std::uint32_t n, double value);
  static std::int32_t FindNearestIndex(const float* x, std::uint32_t n, double value);
  // The j (-1 ... n-1) with `value` between x[j] and x[j+1] in the array's order: for an
  // ascending array the last j with x[j] <= value, -1 before x[0], n-1 at or past x[n-1].
  // Hunts outward from `start` (the previous result makes sequential look-ups O(1)); a
  // `start` >= n, such as uint32_t(-1), falls back to plain bisection. No nearest-point
  // tie-break. -1 for a null `x`, n = 0 or more than kQXMaxPoints points.
  static std::int32_t HuntIndex(const double* x, std::uint32_t n, std::uint32_t start,
                                double value);
  static std::int32_t HuntIndex(const float* x, std::uint32_t n, std::uint32_t start,
                                double value);

  // ---- Memory ----

  // Releases `p` (delete[]; it must be null or come from this routine) and, for n > 0,
  // allocates n uninitialised doubles; the old contents are never copied. True when `p`
  // is non-null afterwards, so n <= 0 or a failed allocation gives false with `p` null.
  [[nodiscard]] static bool ReAllocArray(double*& p, std::int32_t n);

  // ---- Gaussian kernel table and smoothing ----

  // Builds the process-wide kernel table: row r (0..200) holds the 2r+1 weights
  // exp(-k^2/r^2), k = -r..r, with the row sums beside them. The library builds it when it
  // loads and frees it when it unloads, so callers rarely need these two. Building does
  // nothing while a table exists; a real rebuild also forgets this thread's cached kernel.
  // Kernels for widths 202..2001 are cached one per thread, so threads can smooth at once.
  static void BuildGaussTable();
  // Frees the table and this thread's cached kernel. Smoothing calls made afterwards
  // rebuild the table on demand; never delete it while other threads are smoothing.
  static void DeleteGaussTable();
  // Gaussian-weighted mean of v[0..w-1]. w = 1 gives v[0]. For 2 <= w <= 201 the weights
  // are the first w of table row w-2 divided by that whole row's sum: a kernel that peaks
  // at position w-2 and is under-normalised, kept exactly: smoothed levels, and so the
  // peaks found on them, must match earlier results. For 202 <= w <= 2001 the symmetric kernel
  // exp(-(w/2-k)^2/(w/2)^2), normalised, is kept in a one-entry cache per thread. 0 for w <= 0, w >
  // 2001, a null `v`, or when the table cannot be allocated.
  static double NormGaussMean(const double* v, int w);
  static double NormGaussMean(const std::uint32_t* v, int w);
  // Smooths `in` into `out` (which may be `in`) with the NormGaussMean kernel of width `w`:
  // out[p] for w/2 <= p < n - w/2 is the kernel over in[p - w/2 ...]; the ends are copies.
  // A non-zero `gapAware` treats two adjacent zeros as a gap the kernel never reaches across
  // (the window is zeroed beyond it; the divisor stays the full kernel sum, so values near
  // a gap are pulled down, on purpose). `type` 1 is accepted and leaves `out` unwritten.
  // 1 done; 0 with `out` untouched for null arrays, n = 0, n < w, w outside 1..2001, a type
  // other than 0 or 1, or when scratch memory cannot be had.
  static int SmoothData(const double* in, double* out, std::uint32_t n, int gapAware, int type,
                        int w);
  // Smooths y in place with a Gaussian whose full width at half maximum at point i is
  // x[i] / resolution; neighbours further than `cutoff` kernel widths are left out, so x must
  // be ascending. Points with x[i] <= 0 keep their value. 1 done; 0 with y untouched for
  // null arrays, n < 1, a resolution that is not a positive finite number, a NaN cutoff, or
  // when scratch memory cannot be had.
  static int ResolutionSmoothData(const double* x, double* y, std::int32_t n, double resolution,
                                  double cutoff);

  // ---- Binning and spacing ----

  // Merges runs of points with x[i] < x[first of run] + binWidth into bins: outX gets the
  // intensity-weighted x (0/0 when the intensities sum to 0), outY the summed intensity.
  // Size outX/outY for n bins; the count written is not reported. 1 done; 0 for a null
  // array, n = 0 or a binWidth that is not positive.
  static int BinData(const double* x, const double* y, double* outX, double* outY,
                     std::uint32_t n, double binWidth);
  // Mean of two estimates of 2*sqrt(x)*factor/dx, taken near the front and near the back of
  // an ascending x array at the first points above x = 1 (stride 10); a missing estimate,
  // including one for an array too short to read, counts as 0. 0 for a null `x`.
  static double GetSpecLinearFactor(const double* x, std::uint32_t n, double factor);

  // ---- Regions of a signal ----

  // Sum of y[first..last] above a baseline, with no x-width factor: the line through the
  // end points when lineBaseline = 1 (zero when their x are equal), else flat at the lower
  // end value; the baseline is clipped to the signal at each point. Never negative; 0 for
  // null arrays, first < 0, first > last, or a NaN sum.
  static double IntegrateSummedRegion(const double* x, const double* y, std::int32_t first,
                                      std::int32_t last, int lineBaseline);
  static double IntegrateSummedRegion(const float* x, const std::uint32_t* y, std::int32_t first,
                                      std::int32_t last, int lineBaseline);
  // Trapezoid area between the signal and the line slope*x + intercept over points
  // first .. end-1 (end exclusive); negative where the signal dips under the line. 0 for
  // null arrays or end <= first + 1. The count family adds y[i] + y[i+1] in 32 bits.
  static double IntegrateTrapezoidRegion(const double* x, const double* y, std::uint32_t first,
                                         std::uint32_t end, double slope, double intercept);
  static double IntegrateTrapezoidRegion(const float* x, const std::uint32_t* y,
                                         std::uint32_t first, std::uint32_t end, double slope,
                                         double intercept);
  // Centroid of the peak with top `apex` within indices left..right. `centroid` is first set
  // to kQXUnsetValue. percent 0: every output is the apex point. 0 < percent <= 100: the
  // peak is cut at that percentage of its height above max(y[left], y[right]); leftY/rightY
  // get the level and leftX/rightX the crossings (kept as passed when the left crossing is
  // flat). Any other percent: leftX/rightX are caller bounds, which must lie within the x
  // range; leftY/rightY are interpolated there. The centroid is the trapezoid moment over
  // the area between the crossings (over full y, not above the level). 1 on success; 0 for
  // null arrays, n = 0, apex >= n, left/right >= n, a NaN percent, a peak that does not cross
  // the level inside left..right, a crossing segment of zero width or outside the array.
  // Outputs written before a failure keep their values.
  static int CentroidRegion(const double* x, const double* y, std::uint32_t n, double percent,
                            std::uint32_t left, std::uint32_t right, std::uint32_t apex,
                            double& leftX, double& leftY, double& rightX, double& rightY,
                            double& centroid);
  static int CentroidRegion(const float* x, const std::uint32_t* y, std::uint32_t n,
                            double percent, std::uint32_t left, std::uint32_t right,
                            std::uint32_t apex, double& leftX, double& leftY, double& rightX,
                            double& rightY, double& centroid);
  // Level and noise of y over the points nearest x1 and x2 (either order; x ascending or
  // descending). `noise` is the population deviation of the stretch; `baseline` its mean,
  // or for nSigma >= 1 the mean of the points within nSigma sample deviations of it, which
  // leaves peaks out. 1 on success; 0 with outputs untouched for null arrays, n < 2, a NaN
  // bound, both bounds nearest the same point, or no point inside the band.
  static int ComputeBaseline(const double* x, const double* y, std::uint32_t n, double x1,
                             double x2, std::int32_t nSigma, double& baseline, double& noise);

  // ---- Fits ----

  // The line through two points. 1 on success; 0 with outputs untouched when x1 - x2 is
  // zero or not finite.
  static int FitLine(double x1, double y1, double x2, double y2, double& slope,
                     double& intercept);
  // Least-squares line y = intercept + slope*x with standard errors, scaled by the residual
  // deviation when n > 2. Null output pointers are skipped. Outputs are untouched for null
  // arrays, n < 2, n > 65535 (point counts are 16-bit here, so longer fits never had a result) or
  // all x equal.
  static void LinearFit(const double* x, const double* y, std::uint32_t n, double* slope,
                        double* intercept, double* interceptError, double* slopeError);
  // Least-squares parabola y = c0 + c1*x + c2*x^2 by Cramer's rule on the normal equations;
  // a zero determinant (as with fewer than three distinct x) sets all three to 0. Null output
  // pointers are skipped. Outputs are untouched for null arrays or n > 65535.
  static void QuadraticFit(const double* x, const double* y, std::uint32_t n, double* c0,
                           double* c1, double* c2);
};

}  // namespace qxpkutil
