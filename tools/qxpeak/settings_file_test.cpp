#include "tools/qxpeak/settings_file.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"

namespace qxpkutil::qxpeak {
namespace {

std::string Printed(QXPeakTableList& list) { return FormatSettingsIni(list, "qxpeak", 0); }

TEST(SettingsFile, PrintedSettingsReadBackUnchanged) {
  QXPeakTableList list;
  LoadDefaultSettings("qxpeak", 0, list);
  SettingOverrides o;
  o.massProcessing = true;
  o.maxCharge = 3;
  o.threshold = 2.5;
  o.filterType = 1;
  o.gaussFit = true;
  o.segments = {{400.0, 900.0}, {880.0, 2000.0}};
  ApplyOverrides(o, list);
  const std::string text = Printed(list);
  const std::string path = testing::WriteTempFile("round.ini", text);
  QXPeakTableList back;
  std::string error;
  ASSERT_TRUE(LoadSettingsFile(path, "qxpeak", 0, back, error)) << error;
  EXPECT_EQ(Printed(back), text);
  EXPECT_EQ(back.GetNumDetectionSettings(), 2);
  EXPECT_NE(text.find("PeakThresholdPct-1=2.500000"), std::string::npos) << text;
  EXPECT_NE(text.find("MaxCharge-1=3"), std::string::npos);
  EXPECT_NE(text.find("DetectRangeX2-1=2000.000000"), std::string::npos);
  EXPECT_EQ(back.IsGaussFitOn(), 1);
}

TEST(SettingsFile, OverridesTouchOnlyWhatTheyName) {
  QXPeakTableList list;
  LoadDefaultSettings("qxpeak", 0, list);
  const std::string before = Printed(list);
  ApplyOverrides({}, list);
  EXPECT_EQ(Printed(list), before);
  SettingOverrides o;
  o.filterWidth = 9;
  ApplyOverrides(o, list);
  QXPeakDetectSetting s;
  ASSERT_EQ(list.GetDetectionSetting(0, s), 1);
  EXPECT_EQ(s.GetFilterWidth(), 9);
  EXPECT_EQ(s.GetRelThreshold(), 1.0);
}

TEST(SettingsFile, MistakesInTheFileAreReported) {
  QXPeakTableList list;
  LoadDefaultSettings("qxpeak", 0, list);
  const std::string good = Printed(list);
  const auto with = [&](const std::string& from, const std::string& to) {
    std::string text = good;
    text.replace(text.find(from), from.size(), to);
    return text;
  };
  const std::pair<std::string, const char*> cases[] = {
      {"[other]\nx=1\n", "no [qxpeak\\PeakSettingsTrace-0] section"},
      {with("PeakFilterWidth-0=3", "PeakFilterWidth-0=3.5"), "is not a whole number"},
      {with("PeakThresholdPct-0=1.000000", "PeakThresholdPct-0=high"), "is not a number"},
      {with("PeakFilterWidth-0=3", "PeakFilterWidht-0=3"), "unknown key 'PeakFilterWidht-0'"},
      {with("PeakFilterWidth-0=3", "PeakFilterWidth-1=3"), "names segment 1"},
      {with("NumDetectSegments=1", "NumDetectSegments=0"), "not a segment count"},
      {with("NumDetectSegments=1", "NumDetectSegments=99999999999"), "not a segment count"},
  };
  for (const auto& [text, expected] : cases) {
    QXPeakTableList target;
    std::string error;
    EXPECT_FALSE(
        LoadSettingsFile(testing::WriteTempFile("bad.ini", text), "qxpeak", 0, target, error));
    EXPECT_NE(error.find(expected), std::string::npos) << error;
  }
  std::string error;
  EXPECT_FALSE(LoadSettingsFile("/nonexistent/x.ini", "qxpeak", 0, list, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

TEST(SettingsFile, LabelFileMustHoldLabels) {
  Options options;
  options.labelsFile = testing::WriteTempFile("empty.lbs", "Label\tX Value\tDelta X\n");
  DetectionConfig config;
  std::string error;
  EXPECT_FALSE(BuildDetectionConfig(options, config, error));
  EXPECT_NE(error.find("no labels read"), std::string::npos) << error;
  options.labelsFile = testing::WriteTempFile("one.lbs", "Label\tX Value\tDelta X\nA\t5\t0.1\n");
  ASSERT_TRUE(BuildDetectionConfig(options, config, error)) << error;
  ASSERT_TRUE(config.labels);
  EXPECT_EQ(config.labels->GetNumUserLabels(), 1);
}

}  // namespace
}  // namespace qxpkutil::qxpeak
