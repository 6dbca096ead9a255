// End-to-end tests: run the built qxpeak binary on files written here and check what it
// prints and writes.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>
#include <sys/wait.h>

#include "qxpkutil/io/MzmlFixture.h"

namespace qxpkutil::qxpeak {
namespace {

namespace fs = std::filesystem;
using testing::FixtureSpectrum;

struct Result {
  int status = -1;
  std::string out, err;
};

std::string ReadFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class QxpeakRun : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("qxpeak_e2e_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

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
  fs::path Write(const std::string& name, const std::string& text) const {
    std::ofstream(dir_ / name, std::ios::binary) << text;
    return dir_ / name;
  }
  fs::path dir_;
};

// A profile spectrum with peaks at 500, 520 and 540 on a noisy baseline.
FixtureSpectrum Spectrum() { return testing::ThreePeaks(500.0, 20.0, 0.01, 0.03); }

// The apex x column of a TSV table.
std::vector<double> ApexX(const std::string& tsv) {
  std::vector<double> xs;
  std::istringstream lines(tsv);
  std::string line;
  std::getline(lines, line);  // header: apex_x is the fifth column
  while (std::getline(lines, line)) {
    std::istringstream cells(line);
    std::string cell;
    for (int c = 0; c < 5; ++c) std::getline(cells, cell, '\t');
    xs.push_back(std::stod(cell));
  }
  return xs;
}

void ExpectPeaksAt(const std::vector<double>& found, const std::vector<double>& expected,
                   double tolerance) {
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i) EXPECT_NEAR(found[i], expected[i], tolerance);
}

TEST_F(QxpeakRun, FindsThePeaksInEveryInputForm) {
  const FixtureSpectrum plain = Spectrum();
  std::string text = "m/z\tintensity\n";
  for (std::size_t i = 0; i < plain.x.size(); ++i) {
    text += std::to_string(plain.x[i]) + "," + std::to_string(plain.y[i]) + "\n";
  }
  Write("scan.csv", text);
  FixtureSpectrum packed = plain, narrow = plain;
  packed.zlib = true;
  narrow.bits = 32;
  narrow.zlib = true;
  Write("plain.mzML", testing::MakeMzml({plain}));
  Write("zlib.mzML", testing::MakeMzml({packed}, {}, /*indexed=*/true));
  Write("float32.mzML", testing::MakeMzml({narrow}));
  for (const char* input : {"scan.csv", "plain.mzML", "zlib.mzML", "float32.mzML"}) {
    const Result r = Run(std::string(input) + " -o - -q");
    ASSERT_EQ(r.status, 0) << input << ": " << r.err;
    EXPECT_EQ(r.err, "");
    ExpectPeaksAt(ApexX(r.out), {500.0, 520.0, 540.0}, 0.011);
  }
}

TEST_F(QxpeakRun, SearchesChromatograms) {
  FixtureSpectrum trace = Spectrum();
  for (double& t : trace.x) t -= 480.0;  // minutes 10 to 70
  Write("chrom.mzML", testing::MakeMzml({}, {trace}));
  const Result r = Run("chrom.mzML -f tsv,svg -q");
  ASSERT_EQ(r.status, 0) << r.err;
  ExpectPeaksAt(ApexX(ReadFile(dir_ / "chrom.peaks.tsv")), {20.0, 40.0, 60.0}, 0.011);
  EXPECT_NE(ReadFile(dir_ / "chrom.svg").find("chromatogram 0 (TIC)"), std::string::npos);
}

TEST_F(QxpeakRun, BrokenInputsFailWithOneLineAndLeaveOutputsAlone) {
  const std::string good = testing::MakeMzml({Spectrum()});
  Write("cut.mzML", good.substr(0, good.size() / 2));
  Write("cut.peaks.tsv", "old results\n");
  Write("junk.txt", "this is not\na signal\n");
  Write("empty.mzML", testing::MakeMzml({}));
  Write("one.mzML", good);
  Write("bad.ini", "[qxpeak\\PeakSettingsTrace-0]\nPeakFilterWidth-0=wide\n");
  const struct {
    std::string args;
    int status;
    const char* message;
  } cases[] = {
      {"cut.mzML", 1, "malformed or truncated XML"},
      {"junk.txt", 1, "junk.txt: line 2"},
      {"nothing.mzML", 1, "nothing.mzML: cannot open"},
      {"empty.mzML", 1, "empty.mzML: holds no spectrum or chromatogram"},
      {"one.mzML --ms-level 2", 1, "none of its 1 spectrum elements matches the selection"},
      {"cut.mzML --no-such-option", 2, "--no-such-option"},
      {"junk.txt --settings bad.ini", 1, "PeakFilterWidth-0=wide is not a whole number"},
      {"junk.txt --labels missing.lbs", 1, "missing.lbs: cannot open"},
      {"junk.txt -d out.txt", 1, "cannot create the output folder"},
  };
  Write("out.txt", "");
  for (const auto& c : cases) {
    const Result r = Run(c.args);
    EXPECT_EQ(r.status, c.status) << c.args;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << c.args << ": " << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << c.args << ": " << r.err;
  }
  EXPECT_EQ(ReadFile(dir_ / "cut.peaks.tsv"), "old results\n");
  for (const auto& entry : fs::directory_iterator(dir_)) {
    EXPECT_EQ(entry.path().filename().string().find(".tmp"), std::string::npos)
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

TEST_F(QxpeakRun, CentroidedMzmlFeedsTheNextSearch) {
  Write("run.mzML", testing::MakeMzml({Spectrum(), Spectrum()}));
  ASSERT_EQ(Run("run.mzML -f mzml -q --mass").status, 0);
  const Result again = Run("run.centroided.mzML -o - -q --mass --spectra 1");
  ASSERT_EQ(again.status, 0) << again.err;
  ExpectPeaksAt(ApexX(again.out), {500.0, 520.0, 540.0}, 0.011);
}

TEST_F(QxpeakRun, SettingsAndLabelsRoundTrip) {
  Write("run.mzML", testing::MakeMzml({Spectrum()}));
  Write("marks.lbs", "Label\tX Value\tDelta X\nmiddle <b>\t520.0\t0.05\n");
  ASSERT_EQ(Run("settings --threshold 40 -o strict.ini").status, 0);
  const Result r = Run("run.mzML --settings strict.ini --labels marks.lbs -f tsv,svg -q");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::string tsv = ReadFile(dir_ / "run.peaks.tsv");
  ExpectPeaksAt(ApexX(tsv), {520.0, 540.0}, 0.011);  // 1000 is below 40 % of 3000
  EXPECT_NE(tsv.find("labelled\tmiddle <b>\n"), std::string::npos) << tsv;
  const std::string svg = ReadFile(dir_ / "run.svg");
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_string(svg.c_str()));
  EXPECT_NE(svg.find("middle &lt;b&gt;"), std::string::npos);
  if (std::system("command -v rsvg-convert > /dev/null 2>&1") == 0) {
    EXPECT_EQ(std::system(("rsvg-convert -o '" + (dir_ / "run.png").string() + "' '" +
                           (dir_ / "run.svg").string() + "'")
                              .c_str()),
              0);
    EXPECT_GT(fs::file_size(dir_ / "run.png"), 1000u);
  }
}

TEST_F(QxpeakRun, DemoWorksWithoutAnyFile) {
  const Result r = Run("demo -d results");
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("Isotope series found with their charge: 6 of 6"), std::string::npos)
      << r.out;
  EXPECT_GT(fs::file_size(dir_ / "results" / "qxpeak_demo.peaks.tsv"), 1000u);
  EXPECT_GT(fs::file_size(dir_ / "results" / "qxpeak_demo.svg"), 1000u);
  EXPECT_EQ(Run("--help").status, 0);
}

}  // namespace
}  // namespace qxpkutil::qxpeak
