#include "tools/qxpeak/view/view_api.h"

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "qxpkutil/io/MzmlFixture.h"
#include "testing/QXTestDialogs.h"
#include "testing/QXTestFiles.h"
#include "testing/QXTestSignals.h"
#include "tools/qxpeak/cli/settings_file.h"

namespace qxpkutil::qxpeak::view {
namespace {

using json = nlohmann::json;
using qxpkutil::testing::MakeMzml;
using qxpkutil::testing::ScratchDir;

// Five peaks on 0..100; the last two are under half the tallest one.
std::string SignalText() {
  const auto s = qxpkutil::testing::MakeSignal(
      2000, 0.0, 0.05,
      {{15, 1000, 0.4}, {35, 800, 0.4}, {55, 600, 0.4}, {75, 300, 0.4}, {90, 250, 0.4}},
      {.baseline = 5.0, .noiseSigma = 1.0});
  std::string text;
  char line[64];
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    std::snprintf(line, sizeof line, "%.4f\t%.4f\n", s.x[i], s.y[i]);
    text += line;
  }
  return text;
}

// Ranges [0,30] [30,60] [60,100] with mass processing; the third asks for 90 % of the tallest
// peak, so it finds none.
std::string ThreeSegmentIni() {
  QXPeakTableList list = qxpkutil::testing::MakeList({{0, 30}, {30, 60}, {60, 100}});
  QXPeakDetectSetting high;
  list.GetDetectionSetting(2, high);
  high.SetRelThreshold(90.0);
  list.SetDetectionSetting(2, high);
  list.SetMassProcessing(1);
  return FormatSettingsIni(list, "qxpeak", 0);
}

// The parsed reply to a GET of `path`, or with a body to a POST; its status must be `status`.
json Api(ViewState& state, const std::string& path, const json& body = {}, int status = 200) {
  const ApiReply r = HandleApi(state, body.is_null() ? "GET" : "POST", path,
                               body.is_null() ? "" : body.dump());
  EXPECT_EQ(r.status, status) << path << ' ' << r.body;
  return json::parse(r.body);
}

class ViewApiTest : public ::testing::Test {
 protected:
  void SetUp() override {
    qxpkutil::testing::WriteText(dir.PathOf("signal.txt"), SignalText());
    qxpkutil::testing::WriteText(dir.PathOf("three.ini"), ThreeSegmentIni());
    std::string error;
    ASSERT_TRUE(OpenViewFile(dir.PathOf("signal.txt"), dir.PathOf("three.ini"), state, error))
        << error;
  }
  json Call(const std::string& path, const json& body, int expected = 200) {
    return Api(state, path, body, expected);
  }
  json Get(const std::string& path) { return Api(state, path); }
  // Mass processing is on in the settings file, so every peak has a centroid.
  std::vector<double> Centroids() {
    const json s = Get("/api/state");
    std::vector<double> x;
    for (const json& p : s["peaks"]) x.push_back(p["centroid_x"].get<double>());
    return x;
  }

  ScratchDir dir;
  ViewState state;
};

TEST_F(ViewApiTest, StartsFromTheSettingsFileAndFindsOnlyWhatItsSegmentsAllow) {
  const json s = Get("/api/state");
  EXPECT_EQ(s["settings"]["mode"], "classic");
  ASSERT_EQ(s["settings"]["segments"].size(), 3u);
  EXPECT_EQ(s["settings"]["segments"][1]["RangeX2Text"], "60.00");
  const std::vector<double> x = Centroids();
  ASSERT_EQ(x.size(), 3u);
  EXPECT_NEAR(x[2], 55.0, 0.05);
}

TEST_F(ViewApiTest, RangeQuestionGoesToThePageAndItsAnswerBackToTheRule) {
  const json body = {{"index", 1}, {"bound", "x2"}, {"text", "100"}};
  const json asked = Call("/api/segments/range", body);
  ASSERT_TRUE(asked.contains("question"));
  EXPECT_NE(asked["question"]["text"].get<std::string>().find("combine Ranges 2 -> 3"),
            std::string::npos);
  EXPECT_EQ(Get("/api/state")["settings"]["segments"].size(), 3u);  // nothing changed yet

  json no = body;
  no["answers"] = {false};
  EXPECT_FALSE(Call("/api/segments/range", no)["applied"].get<bool>());
  EXPECT_EQ(Centroids().size(), 3u);
  // Trimming the neighbour asks nothing.
  const json trimmed =
      Call("/api/segments/range", {{"index", 1}, {"bound", "x2"}, {"text", "70.5"}});
  EXPECT_TRUE(trimmed["applied"].get<bool>());
  EXPECT_EQ(trimmed["settings"]["segments"][2]["RangeX1"], 70.5);
  EXPECT_EQ(trimmed["settings"]["display_precision"], 1);

  json yes = body;
  yes["answers"] = {true};
  const json done = Call("/api/segments/range", yes);
  EXPECT_TRUE(done["applied"].get<bool>());
  ASSERT_EQ(done["settings"]["segments"].size(), 2u);
  EXPECT_EQ(done["settings"]["segments"][1]["RangeX2"], 100.0);
  EXPECT_EQ(done["peaks"].size(), 5u);  // the low threshold now reaches 75 and 90
}

// Each refused request answers 400 with the library's words and leaves every setting as it was.
TEST_F(ViewApiTest, RefusedRequestsChangeNothing) {
  struct Case {
    const char* path;
    json body;
    const char* message;
  };
  const Case cases[] = {
      {"/api/segments/range", {{"index", 0}, {"bound", "x1"}, {"text", "-5"}},
       "Segment range values must be greater or equal to 0"},
      {"/api/segments/range", {{"index", 0}, {"bound", "x1"}, {"text", "five"}}, "Enter a number."},
      {"/api/segments/field", {{"index", 0}, {"field", "FilterWidth"}, {"text", "4"}},
       "The filter width must be zero or an odd number."},
      {"/api/segments/field", {{"index", 0}, {"field", "MinPeakWidth"}, {"text", "6"}},
       "The filter width must be an odd number."},
      {"/api/segments/field", {{"index", 0}, {"field", "MinPeakWidth"}, {"text", "20001"}},
       "The minimum peak width must not exceed the maximum peak width."},
      {"/api/segments/field", {{"index", 0}, {"field", "AbsThreshold"}, {"text", "-1"}},
       "The value is below the allowed minimum."},
      {"/api/segments/field", {{"index", 0}, {"field", "FilterInc"}, {"text", "1.5"}},
       "Enter a whole number within the allowed range."},
      {"/api/binning", {{"enabled", true}, {"width", "0"}},
       "The bin width must be greater than 0."},
      {"/api/labels/add", {{"label", "a"}, {"x", "15"}, {"delta", "0"}},
       "The delta x value must be greater than 0."},
      {"/api/calc/res", {{"percent", "100"}},
       "The percent of peak height must be between 1 and 99."},
      {"/api/switches", {{"resolution", "0"}}, "The resolution must be greater than 0."},
  };
  const json before = Get("/api/state");
  for (const Case& c : cases) {
    const json reply = Call(c.path, c.body, 400);
    EXPECT_EQ(reply["error"], c.message) << c.path << ' ' << c.body;
    EXPECT_EQ(Get("/api/state"), before) << c.path << ' ' << c.body;
  }
  EXPECT_EQ(HandleApi(state, "POST", "/api/segments/add", "{not json").status, 400);
  EXPECT_EQ(HandleApi(state, "GET", "/api/nothing", "").status, 404);
}

TEST_F(ViewApiTest, SavedSettingsGiveTheSamePeaksToTheCommandLine) {
  Call("/api/segments/field", {{"index", 2}, {"field", "RelThreshold"}, {"text", "1"}});
  const std::string ini = dir.PathOf("saved.ini");
  Call("/api/settings/save", {{"path", ini}});

  QXPeakTableList list;
  std::string error;
  ASSERT_TRUE(LoadSettingsFile(ini, "qxpeak", 0, list, error)) << error;
  DetectOptions options;
  options.classic = list;
  const PeakList again = DetectPeaks(std::span<const double>(state.x),
                                     std::span<const double>(state.y), options);
  const std::vector<double> shown = Centroids();
  ASSERT_EQ(again.peaks.size(), shown.size());
  for (std::size_t i = 0; i < shown.size(); ++i) EXPECT_EQ(again.peaks[i].centroid_x, shown[i]);

  // And loading it back through the page restores the same segments.
  Call("/api/segments/add", json::object());
  Call("/api/settings/load", {{"path", ini}});
  EXPECT_EQ(Get("/api/state")["settings"]["segments"].size(), 3u);
}

TEST_F(ViewApiTest, LabelsMatchOntoPeaksAndRoundTripThroughTheFileText) {
  Call("/api/labels/add", {{"label", "first"}, {"x", "15"}, {"delta", "0.5"}});
  Call("/api/labels/options", {{"match", true}});
  const json s = Get("/api/state");
  EXPECT_EQ(s["peaks"][0]["label"], "first");
  EXPECT_EQ(s["peaks"][1]["label"], "");
  Call("/api/labels/add", {{"label", "first"}, {"x", "35"}, {"delta", "0.5"}}, 400);

  const std::string text = Call("/api/labels/save", json::object())["text"];
  Call("/api/labels/delete", {{"index", 0}});
  Call("/api/labels/load", {{"text", text}});
  EXPECT_EQ(Get("/api/state")["labels"]["items"][0]["label"], "first");
}

TEST_F(ViewApiTest, CalculatorsReportPerTargetOnTheShownPeaks) {
  const json s = Call("/api/calc/sn", {{"baseline_x1", "40"},
                                       {"baseline_x2", "50"},
                                       {"targets", {{{"target", "35"}, {"delta", "1"}},
                                                    {{"target", "45"}, {"delta", "1"}}}}});
  const json& sn = s["sn"]["targets"];
  EXPECT_NEAR(sn[0]["found_x"].get<double>(), 35.0, 0.05);
  EXPECT_GT(sn[0]["result"].get<double>(), 100.0);  // ~800 over a noise of ~1
  EXPECT_EQ(sn[1]["result"], -1.0);                 // no peak near 45

  const json r = Call("/api/calc/res", {{"targets", {{{"target", "55"}, {"delta", "1"}}}}});
  // A Gaussian of sigma 0.4 is 0.94 wide at half height: 55 / 0.94 = 58.
  EXPECT_NEAR(r["res"]["targets"][0]["result"].get<double>(), 58.0, 2.0);
}

TEST_F(ViewApiTest, BinningMergesPointsBeforeDetection) {
  const std::size_t raw = Get("/api/signal")["x"].size();
  Call("/api/binning", {{"enabled", true}, {"width", "0.2"}});
  const json binned = Get("/api/signal");
  // Bins of 0.2 over points 0.05 apart hold four points, or five where rounding lets one more in.
  EXPECT_GE(binned["x"].size(), raw / 5);
  EXPECT_LE(binned["x"].size(), raw / 4);
  EXPECT_EQ(Centroids().size(), 3u);
}

// The spectrum dialog refuses equal bounds silently, the chromatogram dialog with a message:
// the page gets whichever the trace's kind calls for. The chooser switches between the
// file's traces and refuses ones the file lacks.
TEST(ViewApiMzml, TraceKindsAndTheChooser) {
  const auto trace = qxpkutil::testing::ThreePeaks(10.0, 10.0, 0.05, 0.5);
  auto second = qxpkutil::testing::ThreePeaks(50.0, 5.0, 0.05, 0.5);
  second.id = "second";
  const std::string spectra = qxpkutil::testing::WriteTempFile("s.mzML", MakeMzml({trace}));
  const std::string chromatograms =
      qxpkutil::testing::WriteTempFile("c.mzML", MakeMzml({}, {trace, second}));
  const json equal = {{"index", 0}, {"bound", "x2"}, {"text", "0"}};  // the range is 0..0
  for (const auto& [path, status, error] :
       {std::tuple{spectra, 200, ""},
        std::tuple{chromatograms, 400, "0.000000 to 0.000000 is not a valid range."}}) {
    ViewState state;
    std::string message;
    ASSERT_TRUE(OpenViewFile(path, "", state, message)) << message;
    Api(state, "/api/mode", {{"mode", "classic"}});
    const json reply = Api(state, "/api/segments/range", equal, status);
    if (status == 200) {
      EXPECT_FALSE(reply["applied"].get<bool>());
    } else {
      EXPECT_EQ(reply["error"], error);
    }
  }
  ViewState state;
  std::string message;
  ASSERT_TRUE(OpenViewFile(chromatograms, "", state, message)) << message;
  const json first = Api(state, "/api/state");
  ASSERT_EQ(first["traces"].size(), 2u);
  EXPECT_EQ(first["traces"][0]["kind"], "chromatogram");
  const json chosen = Api(state, "/api/trace", {{"index", 1}});
  EXPECT_EQ(chosen["current"], 1);
  ASSERT_EQ(chosen["peaks"].size(), 3u);
  EXPECT_NEAR(chosen["peaks"][0]["apex_x"].get<double>(), 50.0, 0.1);
  Api(state, "/api/trace", {{"index", 2}}, 400);
  Api(state, "/api/settings/save", {{"path", "unused.ini"}}, 400);  // automatic: no settings file
}

}  // namespace
}  // namespace qxpkutil::qxpeak::view
