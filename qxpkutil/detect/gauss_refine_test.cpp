#include "qxpkutil/detect/gauss_refine_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

const double kSigmaPerFwhm = 1.0 / (2.0 * std::sqrt(2.0 * std::log(2.0)));

// A peak as the measuring step would hand it over: apex at the highest point, the FWHM
// and baseline known, the centroid off by `startOffset` FWHM.
Peak MeasuredPeak(const testing::Signal& s, double centre, double fwhm, double height,
                  double baseline, double startOffset) {
  Peak p;
  const auto top = std::max_element(s.y.begin(), s.y.end());
  p.apex_index = static_cast<std::int32_t>(top - s.y.begin());
  p.apex_x = s.x[static_cast<std::size_t>(p.apex_index)];
  p.apex_y = *top;
  p.centroid_x = centre + startOffset * fwhm;
  p.fwhm = fwhm;
  p.height = height;
  p.baseline = baseline;
  return p;
}

// Clean isolated peaks, sampled from 4 to 30 points per FWHM at any phase, noise-free and
// at S/N 300: the refined centre lands on the true one whatever the start.
TEST(RefineCentroidsByGaussFit, FindsTheTrueCentreOfCleanPeaks) {
  struct Case {
    double pointsPerFwhm, phase, noise, startOffset;
  };
  const Case cases[] = {{4, 0.0, 0, 0.0},   {4, 0.37, 0, 0.2},   {8, 0.5, 0, -0.3},
                        {12, 0.11, 0, 0.1}, {30, 0.73, 0, 0.25}, {6, 0.29, 1.0 / 300, 0.0},
                        {10, 0.61, 1.0 / 300, 0.15},             {20, 0.9, 1.0 / 300, -0.2}};
  for (const Case& c : cases) {
    const double fwhm = 0.01, dx = fwhm / c.pointsPerFwhm;
    const double centre = 639.5817 + c.phase * dx, baseline = 50.0, height = 3000.0;
    const auto n = static_cast<std::size_t>(12 * c.pointsPerFwhm);
    const double x0 = centre - 6 * fwhm;
    const testing::Signal s =
        testing::MakeSignal(n, x0, dx, {{centre, height, fwhm * kSigmaPerFwhm}},
                            {.baseline = baseline, .noiseSigma = c.noise * height});
    std::vector<Peak> peaks{MeasuredPeak(s, centre, fwhm, height, baseline, c.startOffset)};
    RefineCentroidsByGaussFit(s.x, s.y, peaks);
    const double tolerance = c.noise == 0 ? 1e-6 : 0.02;
    EXPECT_NEAR(peaks[0].centroid_x, centre, tolerance * fwhm)
        << c.pointsPerFwhm << " points per FWHM, start " << c.startOffset << " FWHM off";
  }
}

// What the fit cannot support is left as measured: a ramp has no centre inside the window,
// a peak without a width or with too few points has nothing to start from.
TEST(RefineCentroidsByGaussFit, KeepsTheMeasuredCentroidWhenTheFitFails) {
  testing::Signal ramp;
  for (int i = 0; i < 40; ++i) {
    ramp.x.push_back(100.0 + 0.001 * i);
    ramp.y.push_back(10.0 * i);
  }
  Peak onRamp;
  onRamp.apex_index = 20;
  onRamp.apex_x = ramp.x[20];
  onRamp.apex_y = ramp.y[20];
  onRamp.centroid_x = ramp.x[20];
  onRamp.fwhm = 0.01;
  Peak noWidth = onRamp;
  noWidth.fwhm = kNotMeasured;
  Peak fewPoints = onRamp;
  fewPoints.fwhm = 0.001;
  Peak outside = onRamp;
  outside.apex_index = 400;
  std::vector<Peak> peaks{onRamp, noWidth, fewPoints, outside};
  RefineCentroidsByGaussFit(ramp.x, ramp.y, peaks);
  for (const Peak& p : peaks) EXPECT_EQ(p.centroid_x, onRamp.centroid_x);
}

}  // namespace
}  // namespace qxpkutil
