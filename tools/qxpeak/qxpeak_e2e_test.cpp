// End-to-end tests: run the built qxpeak binary on files written here and check what it
// prints and writes.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <signal.h>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "testing/QXTestFiles.h"

namespace qxpkutil::qxpeak {
namespace {

namespace fs = std::filesystem;
using testing::FixtureSpectrum;
using qxpkutil::testing::TsvColumn;

struct Result {
  int status = -1;
  std::string out, err;
};

std::string ReadFile(const fs::path& path) { return qxpkutil::testing::ReadText(path.string()); }

class QxpeakRun : public ::testing::Test {
 protected:
  void SetUp() override { dir_ = fs::path(scratch_.PathOf("")).parent_path(); }

  Result Run(const std::string& args) const {
    const std::string cmd =
        "cd '" + dir_.string() + "' && '" QXPEAK_BINARY "' " + args + " > out.txt 2> err.txt";
    Result r;
    const int raw = std::system(cmd.c_str());
    r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    r.out = ReadFile(dir_ / "out.txt");
    r.err = ReadFile(dir_ / "err.txt");
    return r;
  }
  void Write(const std::string& name, const std::string& text) const {
    qxpkutil::testing::WriteText((dir_ / name).string(), text);
  }
  qxpkutil::testing::ScratchDir scratch_;
  fs::path dir_;
};

// A profile spectrum with peaks at 500, 520 and 540 on a noisy baseline.
FixtureSpectrum Spectrum() { return testing::ThreePeaks(500.0, 20.0, 0.01, 0.03); }

std::vector<double> ApexX(const std::string& tsv) {
  std::vector<double> xs;
  for (const std::string& cell : TsvColumn(tsv, "apex_x")) xs.push_back(std::stod(cell));
  return xs;
}

void ExpectPeaksAt(const std::vector<double>& found, const std::vector<double>& expected,
                   double tolerance) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i) EXPECT_NEAR(found[i], expected[i], tolerance);
}

TEST_F(QxpeakRun, SearchesChromatograms) {
  FixtureSpectrum trace = Spectrum();
  for (double& t : trace.x) t -= 480.0;  // minutes 10 to 70
  Write("chrom.mzML", testing::MakeMzml({}, {trace}));
  std::string text;
  for (std::size_t i = 0; i < trace.x.size(); ++i) {
    text += std::to_string(trace.x[i]) + "\t" + std::to_string(trace.y[i]) + "\n";
  }
  Write("chrom.txt", text);
  for (const char* input : {"chrom.mzML", "chrom.txt --chromatograms"}) {
    const Result r = Run(std::string(input) + " -f tsv -q");
    ASSERT_EQ(r.status, 0) << input << ": " << r.err;
    const std::string tsv = ReadFile(dir_ / "chrom.peaks.tsv");
    ExpectPeaksAt(ApexX(tsv), {20.0, 40.0, 60.0}, 0.011);
    EXPECT_EQ(TsvColumn(tsv, "x_unit"), std::vector<std::string>(3, "s")) << input;
  }
}

TEST_F(QxpeakRun, BrokenInputsFailWithOneLineAndLeaveOutputsAlone) {
  const std::string good = testing::MakeMzml({Spectrum()});
  Write("cut.mzML", good.substr(0, good.size() / 2));
  Write("cut.peaks.tsv", "old results\n");
  Write("junk.txt", "this is not\na signal\n");
  Write("empty.mzML", testing::MakeMzml({}));
  Write("one.mzML", good);
  Write("my.lbs", "Label\tX Value\tDelta X\nA\t500\t0.1\n");
  Write("bad.ini", "[qxpeak\\PeakSettingsTrace-0]\nPeakFilterWidth-0=wide\n");
  std::string lie = testing::MakeMzml({Spectrum(), Spectrum()});  // a length into the next array
  const std::size_t from = lie.find("<binary>") + 8;
  const std::size_t to = lie.find("</binary>", lie.find("<binary>", from));
  lie.replace(lie.find("encodedLength=\"0\""), 17,
              "encodedLength=\"" + std::to_string(to - from) + "\"");
  Write("lie.mzML", lie);
  const struct {
    std::string args;
    int status;
    const char* message;
  } cases[] = {
      {"cut.mzML", 1, "cut.mzML: ends inside spectrum 0 (truncated file?)"},
      {"junk.txt", 1, "junk.txt: line 2"},
      {"nothing.mzML", 1, "nothing.mzML: cannot open"},
      {"empty.mzML", 1, "empty.mzML: holds no spectrum or chromatogram"},
      {"one.mzML --ms-level 2", 1, "none of its 1 spectrum elements matches the selection"},
      {"lie.mzML -j 1", 1, "lie.mzML: spectrum 0: an array's encodedLength reaches past"},
      {"lie.mzML -j 2", 1, "lie.mzML: spectrum 0: an array's encodedLength reaches past"},
      {"cut.mzML --no-such-option", 2, "--no-such-option"},
      {"junk.txt --settings bad.ini", 1, "PeakFilterWidth-0=wide is not a whole number"},
      {"junk.txt --labels missing.lbs", 1, "missing.lbs: cannot open"},
      {"junk.txt -d out.txt", 1, "cannot create the output folder"},
      {"one.mzML --settings bad.ini -o bad.ini", 1, "would overwrite bad.ini"},
      {"one.mzML --labels my.lbs -o my.lbs -f tsv", 1, "would overwrite my.lbs"},
      {"one.mzML -o one.mzML", 1, "share the file name one.mzML"},
      {"'bad\x1b[31m.mzML'", 1, "bad\\x1b[31m.mzML: cannot open"},
  };
  Write("out.txt", "");
  for (const auto& c : cases) {
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << ": " << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << c.args << ": " << r.err;
  }
  EXPECT_EQ(ReadFile(dir_ / "cut.peaks.tsv"), "old results\n");
  EXPECT_EQ(ReadFile(dir_ / "bad.ini"), "[qxpeak\\PeakSettingsTrace-0]\nPeakFilterWidth-0=wide\n");
  for (const auto& entry : fs::directory_iterator(dir_)) {
    EXPECT_EQ(entry.path().filename().string().find(".qxpeak-"), std::string::npos)
        << "temporary left behind: " << entry.path();
  }
}

TEST_F(QxpeakRun, BatchGivesTheSameFilesAsSingleRuns) {
  std::vector<FixtureSpectrum> spectra(5, Spectrum());
  for (std::size_t k = 0; k < spectra.size(); ++k) {
    for (double& y : spectra[k].y) y *= 1.0 + 0.1 * static_cast<double>(k);
  }
  Write("a.mzML", testing::MakeMzml(spectra));
  Write("b.mzML", testing::MakeMzml({spectra[1], spectra[3]}, {}, true));
  Write("c.mzML", testing::MakeMzml({spectra[4]}));
  const std::string formats = " -f tsv,json,dump,mzml,svg -q --mass";
  ASSERT_EQ(Run("a.mzML b.mzML c.mzML -j 3 -d batch" + formats).status, 0);
  for (const char* input : {"a", "b", "c"}) {
    ASSERT_EQ(Run(std::string(input) + ".mzML -j 1 -d single" + formats).status, 0);
    for (const char* ext :
         {".peaks.tsv", ".peaks.json", ".peaks.txt", ".centroided.mzML", ".svg"}) {
      const std::string name = std::string(input) + ext;
      const std::string single = ReadFile(dir_ / "single" / name);
      EXPECT_FALSE(single.empty()) << name;
      EXPECT_EQ(ReadFile(dir_ / "batch" / name), single) << name;
    }
  }
}

// A trace that cannot be searched is named on standard error and skipped, and an input that
// cannot be read fails alone: the rest is searched and written, and the exit status says so.
TEST_F(QxpeakRun, SkippedTracesAndFailedInputsStopNothingElse) {
  FixtureSpectrum far = Spectrum();
  for (double& x : far.x) x += 1000.0;
  Write("run.mzML", testing::MakeMzml({Spectrum(), far, Spectrum()}));
  Write("again.mzML", testing::MakeMzml({Spectrum()}));
  Result r = Run("run.mzML --sn 490:495 -f tsv,json");
  EXPECT_EQ(r.status, 3) << r.err;
  EXPECT_NE(r.err.find("spectrum 1 (scan=2) skipped: the --sn range 490:495 lies outside"),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("run.mzML: 3 traces, 6 peaks, 1 skipped"), std::string::npos) << r.err;
  r = Run("run.mzML missing.mzML again.mzML --sn 490:495 -j 3 -d batch");
  EXPECT_EQ(r.status, 1) << r.err;
  EXPECT_NE(r.err.find("qxpeak: missing.mzML: cannot open"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("2 of 3 inputs searched, 4 traces (1 skipped), 9 peaks"), std::string::npos)
      << r.err;
  EXPECT_EQ(ApexX(ReadFile(dir_ / "batch" / "run.peaks.tsv")).size(), 6u);
  EXPECT_EQ(ApexX(ReadFile(dir_ / "batch" / "again.peaks.tsv")).size(), 3u);
  // A note names its input once, a text file as an mzML spectrum.
  const FixtureSpectrum s = Spectrum();
  std::string text = "501 1\n";
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    text += std::to_string(s.x[i]) + " " + std::to_string(s.y[i]) + "\n";
  }
  Write("uns.txt", text);
  r = Run("uns.txt -f tsv");
  EXPECT_NE(r.err.find("qxpeak: uns.txt: x values were out of order"), std::string::npos) << r.err;
}

// Without options the automatic mode runs: every peak gets a centroid and an S/N; -o's
// extension chooses the format; -q keeps standard error quiet.
TEST_F(QxpeakRun, DefaultsMeasureEveryPeak) {
  Write("run.mzML", testing::MakeMzml({Spectrum()}, {}, /*indexed=*/true));
  ASSERT_EQ(Run("run.mzML -q").status, 0);
  const std::string tsv = ReadFile(dir_ / "run.peaks.tsv");
  for (const char* column : {"centroid_x", "snr", "fwhm", "height"}) {
    for (const std::string& cell : TsvColumn(tsv, column)) EXPECT_FALSE(cell.empty()) << column;
  }
  // The centroided mzML feeds the next search, with the classic mode's sticks too.
  ASSERT_EQ(Run("run.mzML -q -o picked.mzML").status, 0);
  ASSERT_EQ(Run("run.mzML -q --mass -o classic.mzML").status, 0);
  for (const char* input : {"picked.mzML", "classic.mzML --mass"}) {
    const Result again = Run(std::string(input) + " -o - -q");
    ASSERT_EQ(again.status, 0) << input << ": " << again.err;
    EXPECT_EQ(again.err, "");
    ExpectPeaksAt(ApexX(again.out), {500.0, 520.0, 540.0}, 0.011);
  }
}

// SIGTERM ends a run with status 128 + 15 and leaves no temporary file behind.
TEST_F(QxpeakRun, ASignalEndsTheRunCleanly) {
  const std::string cmd = "cd '" + dir_.string() + "' && (sleep 2 | '" QXPEAK_BINARY
                          "' - -q & p=$!; sleep 0.3; kill -TERM $p; wait $p; echo $? > status)";
  ASSERT_EQ(std::system(cmd.c_str()), 0);
  EXPECT_EQ(ReadFile(dir_ / "status"), "143\n");
  for (const auto& entry : fs::directory_iterator(dir_)) {
    EXPECT_EQ(entry.path().filename().string().find(".qxpeak-"), std::string::npos);
  }
}

TEST_F(QxpeakRun, SettingsAndLabelsRoundTrip) {
  Write("run.mzML", testing::MakeMzml({Spectrum()}));
  Write("marks.lbs", "Label\tX Value\tDelta X\nmiddle <b>\t520.0\t0.05\n");
  ASSERT_EQ(Run("settings --threshold 40 -o strict.ini").status, 0);
  ASSERT_EQ(Run("settings run.mzML -o auto.ini").status, 0);
  EXPECT_NE(ReadFile(dir_ / "auto.ini").find("NumDetectSegments="), std::string::npos);
  const Result r = Run("run.mzML --settings strict.ini --labels marks.lbs -f tsv -q");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string tsv = ReadFile(dir_ / "run.peaks.tsv");
  ExpectPeaksAt(ApexX(tsv), {520.0, 540.0}, 0.011);  // 1000 is below 40 % of 3000
  EXPECT_NE(tsv.find("labelled\tmiddle <b>\n"), std::string::npos) << tsv;
}

TEST_F(QxpeakRun, DemoWorksWithoutAnyFile) {
  const Result r = Run("demo -d results");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Isotope series found with their charge: 6 of 6"), std::string::npos)
      << r.out;
  EXPECT_GT(fs::file_size(dir_ / "results" / "qxpeak_demo.peaks.tsv"), 1000u);
  EXPECT_GT(fs::file_size(dir_ / "results" / "qxpeak_demo.svg"), 1000u);
  EXPECT_EQ(Run("--help").status, 0);
  // The example label file names the demo's six isotope series.
  ASSERT_EQ(Run("demo -q -d labelled --labels '" QXPEAK_EXAMPLES "/calibrants.lbs'").status, 0);
  const std::vector<std::string> labels =
      TsvColumn(ReadFile(dir_ / "labelled" / "qxpeak_demo.peaks.tsv"), "label");
  EXPECT_EQ(std::count_if(labels.begin(), labels.end(), [](const auto& l) { return !l.empty(); }),
            6);
}

}  // namespace
}  // namespace qxpkutil::qxpeak
