#include "tools/qxpeak/detection.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"

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

DetectionConfig DefaultConfig() {
  DetectionConfig config;
  config.list.AddDetectionSetting(-1);
  config.list.SetMassProcessing(1);
  return config;
}

TEST(Detection, FindsEachPeakWithItsCentroid) {
  const TracePeaks peaks = DetectPeaks(ThreePeaks(), DefaultConfig());
  ASSERT_EQ(peaks.table.GetNumPeaks(), 3);
  EXPECT_TRUE(peaks.centroids);
  const double centres[] = {405.0, 410.0, 415.0};
  for (long i = 0; i < 3; ++i) {
    EXPECT_NEAR(peaks.table.GetPeak(i)->m_dCentroidX, centres[i], 0.003) << i;
  }
  EXPECT_TRUE(peaks.signalToNoise.empty());
  EXPECT_TRUE(peaks.resolution.empty());
}

TEST(Detection, CentroidedInputFollowsTheTraceUnlessTold) {
  Trace sticks;
  sticks.x = {100.0, 101.0, 102.0, 103.0};
  sticks.y = {5.0, 500.0, 0.5, 300.0};
  sticks.centroided = true;
  DetectionConfig config = DefaultConfig();
  EXPECT_EQ(DetectPeaks(sticks, config).table.GetNumPeaks(), 3);  // every stick above 1 %
  config.centroided = CentroidedInput::kNo;
  EXPECT_LT(DetectPeaks(sticks, config).table.GetNumPeaks(), 3);
  sticks.centroided = false;
  config.centroided = CentroidedInput::kYes;
  EXPECT_EQ(DetectPeaks(sticks, config).table.GetNumPeaks(), 3);
}

TEST(Detection, EmptyTraceGivesNoPeaks) {
  EXPECT_EQ(DetectPeaks(Trace{}, DefaultConfig()).table.GetNumPeaks(), 0);
}

TEST(Detection, LabelsAndMeasurements) {
  DetectionConfig config = DefaultConfig();
  auto labels = std::make_shared<QXUserPkLabels>();
  labels->AddUserLabel(QXUserPeakLabelItem(410.0, 0.01, "main", 0), -1);
  labels->SetLabelsChanged(1);
  config.labels = labels;
  config.noiseRegion = {{402.5, 404.0}};
  config.resolutionPercent = 50;
  config.resolutionMinIntensity = 1500;
  const TracePeaks peaks = DetectPeaks(ThreePeaks(), config);
  ASSERT_EQ(peaks.table.GetNumPeaks(), 3);
  EXPECT_EQ(peaks.table.GetPeak(1)->m_strLabel, "main");
  EXPECT_EQ(labels->LabelsChanged(), 1) << "the shared list is not touched";
  ASSERT_EQ(peaks.signalToNoise.size(), 3u);
  EXPECT_NEAR(peaks.signalToNoise[1], 3000.0, 300.0);  // noise sigma 1
  // Resolution: 410 over the width at half height, 2.3548 sigma.
  ASSERT_EQ(peaks.resolution.size(), 3u);
  EXPECT_EQ(peaks.resolution[0], -1) << "below the minimum intensity";
  EXPECT_NEAR(peaks.resolution[1], 410.0 / (2.3548 * 0.02), 300.0);

  config.noiseRegion = {{402.5, 402.501}};  // one point: nothing to measure
  const TracePeaks unmeasured = DetectPeaks(ThreePeaks(), config);
  EXPECT_TRUE(std::isnan(unmeasured.signalToNoise[1]));
}

}  // namespace
}  // namespace qxpkutil::qxpeak
