#include "tools/qxpeak/cli/options.h"

#include <cmath>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

namespace qxpkutil::qxpeak {
namespace {

struct Parsed {
  std::optional<int> done;
  Options options;
  std::string out, err;
};

Parsed Parse(std::vector<const char*> args) {
  args.insert(args.begin(), "qxpeak");
  Parsed p;
  std::ostringstream out, err;
  p.done = ParseOptions(static_cast<int>(args.size()), args.data(), p.options, out, err);
  p.out = out.str();
  p.err = err.str();
  return p;
}

TEST(Options, ReadsEveryKindOfValue) {
  const Parsed p = Parse({"a.mzML",
                          "b.txt",
                          "--spectra",
                          "0,3-5",
                          "--scans",
                          "12",
                          "--rt",
                          "1.5min:",
                          "--ms-level",
                          "1",
                          "--centroided",
                          "no",
                          "--threshold",
                          "2.5",
                          "--filter",
                          "mean",
                          "--baseline",
                          "flat",
                          "--no-mass",
                          "--gauss-fit",
                          "--segment",
                          "400:900",
                          "--segment",
                          "880:2000",
                          "--sn",
                          "10:20",
                          "--measure-resolution",
                          "50",
                          "-f",
                          "svg,tsv,svg",
                          "-d",
                          "out",
                          "-j",
                          "3"});
  ASSERT_FALSE(p.done) << p.err;
  const Options& o = p.options;
  const MzmlSelection& s = o.selection;
  const SettingOverrides& v = o.overrides;
  ASSERT_EQ(s.indices.size(), 2u);
  EXPECT_EQ(std::make_tuple(o.command, o.mode, o.inputs, o.centroided, o.gaussFit, o.formats,
                            o.outDir, o.threads),
            std::make_tuple(Options::Command::kFind, Options::Mode::kClassic,
                            std::vector<std::string>{"a.mzML", "b.txt"}, CentroidedInput::kNo,
                            true, std::vector<std::string>{"svg", "tsv"}, "out", 3));
  EXPECT_EQ(std::make_tuple(s.indices[1].first, s.indices[1].last, s.scans[0].first, s.rt_min,
                            std::isinf(s.rt_max), s.ms_level),
            std::make_tuple(3, 5, 12, 90.0, true, 1));
  EXPECT_EQ(std::make_tuple(v.threshold, v.filterType, v.integration, v.massProcessing,
                            v.autoNoise.has_value(), v.maxCharge.has_value(), v.segments.size()),
            std::make_tuple(2.5, 1, 0, false, false, false, 2u));
  EXPECT_EQ(o.noiseRegion, (std::pair<double, double>{10.0, 20.0}));
  EXPECT_EQ(o.resolutionPercent, 50);
}

TEST(Options, CommandsTakeTheSharedOptions) {
  const Parsed settings = Parse({"settings", "--mass", "--max-charge", "3"});
  ASSERT_FALSE(settings.done) << settings.err;
  EXPECT_EQ(settings.options.command, Options::Command::kSettings);
  EXPECT_EQ(settings.options.overrides.maxCharge, 3);
  const Parsed demo = Parse({"demo", "-d", "/tmp/x"});
  ASSERT_FALSE(demo.done) << demo.err;
  EXPECT_EQ(demo.options.command, Options::Command::kDemo);
  EXPECT_EQ(demo.options.formats, (std::vector<std::string>{"svg", "tsv"}));
}

// No option means the automatic mode; physical options keep it, classic ones leave it.
TEST(Options, TheOptionsChooseTheMode) {
  const struct {
    std::vector<const char*> args;
    Options::Mode mode;
  } cases[] = {
      {{"a"}, Options::Mode::kAutomatic},
      {{"a", "--snr", "5", "--fwhm", "0.01@400", "--max-charge", "3"}, Options::Mode::kAutomatic},
      {{"a", "--resolution", "60000", "--analyzer", "orbitrap"}, Options::Mode::kAutomatic},
      {{"a", "--gauss-fit"}, Options::Mode::kAutomatic},
      {{"a", "--classic"}, Options::Mode::kClassic},
      {{"a", "--settings", "my.ini"}, Options::Mode::kClassic},
      {{"a", "--filter-width", "7"}, Options::Mode::kClassic},
  };
  for (const auto& c : cases) {
    const Parsed p = Parse(c.args);
    ASSERT_FALSE(p.done) << p.err;
    EXPECT_EQ(p.options.mode, c.mode) << c.args.back();
  }
}

// -o's extension gives the format when -f does not; a disagreement is refused.
TEST(Options, OutputExtensionGivesTheFormat) {
  const Parsed mzml = Parse({"a", "-o", "out.mzML"});
  ASSERT_FALSE(mzml.done) << mzml.err;
  EXPECT_EQ(mzml.options.formats, (std::vector<std::string>{"mzml"}));
  EXPECT_EQ(Parse({"a", "-o", "out.json"}).options.formats, (std::vector<std::string>{"json"}));
  EXPECT_EQ(Parse({"a", "-o", "out.dat"}).options.formats, (std::vector<std::string>{"tsv"}));
  EXPECT_EQ(Parse({"a", "-o", "out.mzML", "-f", "tsv"}).done, 2);
}

TEST(Options, MistakesGiveOneLineAndStatusTwo) {
  const std::vector<std::vector<const char*>> cases = {
      {}, {"--bogus", "a"}, {"demo", "a"}, {"settings", "a.mzML", "b.mzML"},
      // Values out of their range or not numbers at all.
      {"a", "--threshold", "abc"}, {"a", "--threshold", "101"}, {"a", "--threshold", "+-3"},
      {"a", "--abs-threshold", "inf"}, {"settings", "--abs-threshold", "nan"},
      {"a", "--snr", "nan"}, {"a", "--fwhm", "wide"}, {"a", "--max-charge", "0"},
      {"a", "--filter-width", "0"}, {"a", "--filter-step", "-5"}, {"a", "--filter", "median"},
      {"a", "-f", "xml"}, {"a", "--spectra", "5-2"}, {"a", "--scans", "x"}, {"a", "--rt", "5:1"},
      {"a", "--rt", ":"}, {"a", "--sn", "20:10"}, {"a", "--segment", "1"},
      // Options that do not go together.
      {"a", "b", "-o", "x.tsv"}, {"a", "-f", "tsv,json", "-o", "x"}, {"a", "-o", "x", "-d", "y"},
      {"settings", "--snr", "5"}, {"a", "--snr", "3", "--classic"},
      {"a", "--fwhm", "4s", "--threshold", "2"},
  };
  for (const auto& args : cases) {
    const Parsed p = Parse(args);
    EXPECT_EQ(p.done, 2) << (args.empty() ? "" : args.back());
    EXPECT_EQ(p.err.rfind("qxpeak: ", 0), 0u) << p.err;
    EXPECT_EQ(p.err.find('\n'), p.err.size() - 1) << p.err;
  }
  // The message states the range that is really accepted.
  for (const auto& [option, value, says] :
       {std::tuple{"--snr", "0", "not a number above 0 and at most 1e+09"},
        std::tuple{"--threshold", "101", "not a number from 0 to 100"},
        std::tuple{"--res-min-intensity", "-1", "not a number of at least 0"}}) {
    const Parsed p = Parse({"a", option, value});
    EXPECT_NE(p.err.find(says), std::string::npos) << p.err;
  }
}

TEST(Options, HelpGivesAnExampleForEveryOption) {
  const Parsed p = Parse({"--help"});
  EXPECT_EQ(p.done, 0);
  std::istringstream lines(p.out);
  int options = 0, examples = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("  -", 0) == 0 && line.find("--help") == std::string::npos &&
        line.find("--version") == std::string::npos) {
      ++options;
    }
    if (line.find("Example:") != std::string::npos) ++examples;
  }
  EXPECT_GT(options, 35);
  EXPECT_GE(examples, options);
  EXPECT_EQ(Parse({"--version"}).done, 0);
}

}  // namespace
}  // namespace qxpkutil::qxpeak
