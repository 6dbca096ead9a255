#include "tools/qxpeak/run/detection.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil::qxpeak {
namespace {

// Peaks at 405, 410 and 415 (sigma 0.02) on a baseline with noise of sigma 1.
Trace ThreePeaks() {
  const testing::FixtureSpectrum f = testing::ThreePeaks(405.0, 5.0, 0.005, 0.02);
  Trace t;
  t.x = f.x;
  t.y = f.y;
  return t;
}

DetectionConfig ClassicMass() {
  DetectionConfig config;
  config.options.classic.emplace();
  config.options.classic->AddDetectionSetting(-1);
  config.options.classic->SetMassProcessing(1);
  return config;
}

// Both modes find the three peaks with a centroid each; only the automatic mode measures
// S/N without being given a noise region.
TEST(SearchTrace, BothModesFindEachPeakWithItsCentroid) {
  for (const bool classic : {false, true}) {
    const TracePeaks found = SearchTrace(ThreePeaks(), classic ? ClassicMass() : DetectionConfig{});
    ASSERT_EQ(found.peaks.size(), 3u) << classic;
    EXPECT_TRUE(found.skipped.empty());
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(found.peaks[i].centroid_x, 405.0 + 5.0 * static_cast<double>(i), 0.003);
      EXPECT_NE(std::isnan(found.peaks[i].snr), !classic) << classic;
    }
    EXPECT_TRUE(found.resolution.empty());
  }
}

TEST(SearchTrace, CentroidedInputFollowsTheTraceUnlessTold) {
  Trace sticks;
  sticks.x = {100.0, 101.0, 102.0, 103.0};
  sticks.y = {5.0, 500.0, 0.5, 300.0};
  sticks.centroided = true;
  DetectionConfig config = ClassicMass();
  EXPECT_EQ(SearchTrace(sticks, config).peaks.size(), 3u);  // every stick above 1 %
  config.centroided = CentroidedInput::kNo;
  EXPECT_LT(SearchTrace(sticks, config).peaks.size(), 3u);
  sticks.centroided = false;
  config.centroided = CentroidedInput::kYes;
  EXPECT_EQ(SearchTrace(sticks, config).peaks.size(), 3u);
}

// Isotope spacings mean charges in a spectrum and nothing in a chromatogram: the trace's
// kind reaches the search.
TEST(SearchTrace, OnlySpectraGetIsotopeCharges) {
  Trace sticks;
  sticks.x = {500.0, 500.50168, 501.00336};
  sticks.y = {100.0, 80.0, 40.0};
  sticks.centroided = true;
  EXPECT_EQ(SearchTrace(sticks, {}).peaks.at(0).charge, 2);
  sticks.kind = Trace::Kind::kChromatogram;
  EXPECT_EQ(SearchTrace(sticks, {}).peaks.at(0).charge, 0);
}

// A trace that cannot be searched is reported, not searched: the caller names it and goes on.
TEST(SearchTrace, UnusableTracesAreSkippedWithTheirReason) {
  Trace nan = ThreePeaks();
  nan.y[7] = NAN;
  Trace unsorted = ThreePeaks();
  std::swap(unsorted.x[3], unsorted.x[4]);
  DetectionConfig outside;
  outside.options.noise_region = {{1.0, 2.0}};  // below every x of the trace
  const struct {
    Trace trace;
    DetectionConfig config;
    const char* reason;
  } cases[] = {{nan, {}, "not a finite number"},
               {unsorted, {}, "not ascending"},
               {ThreePeaks(), outside, "outside the data"}};
  for (const auto& c : cases) {
    const TracePeaks found = SearchTrace(c.trace, c.config);
    EXPECT_TRUE(found.peaks.empty());
    EXPECT_NE(found.skipped.find(c.reason), std::string::npos) << found.skipped;
  }
  EXPECT_TRUE(SearchTrace(Trace{}, DetectionConfig{}).skipped.empty()) << "empty is not wrong";
}

TEST(SearchTrace, LabelsAndMeasurements) {
  DetectionConfig config = ClassicMass();
  auto labels = std::make_shared<QXUserPkLabels>();
  labels->AddUserLabel(QXUserPeakLabelItem(410.0, 0.01, "main", 0), -1);
  labels->SetLabelsChanged(1);
  config.options.labels = labels;
  config.options.noise_region = {{402.5, 404.0}};
  config.resolutionPercent = 50;
  config.resolutionMinIntensity = 1500;
  const TracePeaks found = SearchTrace(ThreePeaks(), config);
  ASSERT_EQ(found.peaks.size(), 3u);
  EXPECT_EQ(found.peaks[1].label, "main");
  EXPECT_EQ(labels->LabelsChanged(), 1) << "the shared list is not touched";
  EXPECT_NEAR(found.peaks[1].snr, 3000.0, 300.0);  // noise sigma 1
  // Resolution: 410 over the width at half height, 2.3548 sigma.
  ASSERT_EQ(found.resolution.size(), 3u);
  EXPECT_EQ(found.resolution[0], -1) << "below the minimum intensity";
  EXPECT_NEAR(found.resolution[1], 410.0 / (2.3548 * 0.02), 300.0);
}

// --gauss-fit on clean isolated peaks, in both modes and with the classic mode's mass
// processing off (no measured centroid to start from): no centroid moves by more than a
// small fraction of its FWHM.
TEST(SearchTrace, GaussRefinementKeepsCleanCentroidsInPlace) {
  const double sigma = 0.004, fwhm = 2.3548 * sigma;
  std::vector<testing::GaussPeak> truth;
  for (int i = 0; i < 12; ++i)
    truth.push_back({600.0 + 3.0 * i + 0.37 * fwhm * (i % 3), 3000.0, sigma});
  const testing::Signal s =
      testing::MakeSignal(40000, 598.0, 0.001, truth, {.baseline = 20.0, .noiseSigma = 10.0});
  Trace trace;
  trace.x = s.x;
  trace.y = s.y;
  DetectionConfig classicNoMass;
  classicNoMass.options.classic.emplace();
  classicNoMass.options.classic->AddDetectionSetting(-1);
  for (DetectionConfig config : {DetectionConfig{}, ClassicMass(), classicNoMass}) {
    config.options.gauss_refine = true;
    const TracePeaks found = SearchTrace(trace, config);
    ASSERT_EQ(found.peaks.size(), truth.size()) << config.options.classic.has_value();
    for (std::size_t i = 0; i < truth.size(); ++i) {
      ASSERT_TRUE(std::isfinite(found.peaks[i].centroid_x)) << i;
      EXPECT_LT(std::fabs(found.peaks[i].centroid_x - truth[i].centre), 0.05 * fwhm) << i;
    }
  }
}

}  // namespace
}  // namespace qxpkutil::qxpeak
