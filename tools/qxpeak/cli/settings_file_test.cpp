#include "tools/qxpeak/cli/settings_file.h"

#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "testing/QXTestFiles.h"

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
  o.segments = {{400.0, 900.0}, {880.0, 2000.0}};
  ApplyOverrides(o, list);
  const std::string text = Printed(list);
  // Read through a named pipe: settings are read once, so a pipe (or "-", or a process
  // substitution) works and never hangs on a second open.
  const std::string fifo = testing::WriteTempFile("round.ini", "") + ".fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  std::thread writer([&] { testing::WriteText(fifo, text); });
  QXPeakTableList back;
  std::string error;
  EXPECT_TRUE(LoadSettingsFile(fifo, "qxpeak", 0, back, error)) << error;
  writer.join();
  ::unlink(fifo.c_str());
  EXPECT_EQ(Printed(back), text);
  EXPECT_EQ(back.GetNumDetectionSettings(), 2);
  EXPECT_NE(text.find("PeakThresholdPct-1=2.500000"), std::string::npos) << text;
  EXPECT_NE(text.find("MaxCharge-1=3"), std::string::npos);
  EXPECT_NE(text.find("DetectRangeX2-1=2000.000000"), std::string::npos);
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
      // A small file must not ask for a thousand copies of the whole data.
      {with("NumDetectSegments=1", "NumDetectSegments=1000"), "segment 1 has no DetectRangeX1-1"},
      // Values the command line refuses are refused here too.
      {with("PeakFilterWidth-0=3", "PeakFilterWidth-0=-5"), "from 1 to 2001"},
      {with("PeakFilterWidth-0=3", "PeakFilterWidth-0=0"), "from 1 to 2001"},
      {with("PeakFilterIncrement-0=1", "PeakFilterIncrement-0=-5"), "PeakFilterIncrement-0=-5"},
      {with("PeakThresholdPct-0=1.000000", "PeakThresholdPct-0=500"), "from 0 to 100"},
      {with("PeakFilterType-0=0", "PeakFilterType-0=7"), "PeakFilterType-0=7"},
      {with("PeakThresholdPct-0=1.000000", "PeakThresholdPct-0=nan"), "is not a number"},
      {good + "MaxCharge-0=0\n", "MaxCharge-0=0"},
      {good + "MaxCharge-0=2147483647\n", "from 1 to 100"},
      {with("PeakFilterWidth-0=3", "PeakFilterWidth-0=3\x1b[31m"), "3\\x1b[31m"},
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

// A label file must start with its header (else its first label would be lost as one) and
// hold at least one label.
TEST(SettingsFile, LabelFilesAreCheckedBeforeUse) {
  const std::pair<const char*, const char*> refused[] = {
      {"Label\tX Value\tDelta X\n", "no labels read"},
      {"A\t5\t0.1\nB\t6\t0.1\n", "does not start with the header line"},
      {"Label\tX Value\tDelta X\nA;B\t5\t0.1\n", "holds ';'"},
  };
  for (const auto& [text, expected] : refused) {
    QXUserPkLabels labels;
    std::string error;
    EXPECT_FALSE(LoadLabels(testing::WriteTempFile("bad.lbs", text), labels, error)) << text;
    EXPECT_NE(error.find(expected), std::string::npos) << error;
  }
  Options options;
  options.labelsFile =
      testing::WriteTempFile("two.lbs", "Label\tX Value\tDelta X\nA\t5\t0.1\r\nB\t6\t0.1");
  DetectionConfig config;
  std::string error;
  ASSERT_TRUE(BuildDetectionConfig(options, config, error)) << error;
  ASSERT_TRUE(config.options.labels);
  EXPECT_EQ(config.options.labels->GetNumUserLabels(), 2);
}

}  // namespace
}  // namespace qxpkutil::qxpeak
