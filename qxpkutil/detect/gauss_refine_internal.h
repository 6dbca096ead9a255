// Gaussian refinement of measured centroids, used by the automatic mode when
// `DetectOptions::gauss_refine` is set and by front ends that refine classic results.
// Each peak is fitted alone (a Gaussian on a constant baseline, Levenberg-Marquardt with
// an SVD solve) over a few FWHM around its apex, starting from what was measured.
//
//   std::vector<Peak> peaks = DetectPeaks(x, y, options).peaks;
//   RefineCentroidsByGaussFit(x, y, peaks);   // centroid_x refined where the fit holds
#pragma once

#include <span>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"

namespace qxpkutil {

// Replaces each peak's `centroid_x` by the centre of a Gaussian plus constant fitted to the
// points within 1.5 FWHM of the apex, started from the peak's centroid (its apex x when
// there is none), height, baseline and FWHM. The fit is kept only when it converges, its
// centre stays strictly inside the window and moves by less than half a FWHM from the
// start; otherwise the peak keeps its measured centroid. Peaks without a FWHM, with fewer
// than five points in the window, or whose indices lie outside `x` are left as they are.
// `x` ascending and as long as `y`; nothing else of a peak changes.
void RefineCentroidsByGaussFit(std::span<const double> x, std::span<const double> y,
                               std::vector<Peak>& peaks);

}  // namespace qxpkutil
