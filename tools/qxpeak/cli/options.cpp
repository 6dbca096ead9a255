#include "tools/qxpeak/cli/options.h"

#include <algorithm>
#include <cctype>
#include <limits>
#include <map>
#include <ostream>

#include <CLI/CLI.hpp>

#include "qxpkutil/platform/QXParse.h"
#include "tools/qxpeak/output/printable.h"
#include "tools/qxpeak/cli/settings_file.h"

namespace qxpkutil::qxpeak {

namespace {

constexpr const char* kDescription =
    "qxpeak finds, measures and labels the peaks of mass spectra and chromatograms.\n"
    "It reads mzML files or two-column text (x and y) and writes one peak table per input.\n"
    "Two modes: automatic (the default; noise and peak width from the data or from the\n"
    "physical options) and classic (the library's segment settings, chosen by --classic,\n"
    "--settings or any classic option).\n";

constexpr const char* kFooter = R"(Examples:
  qxpeak run.mzML                               automatic mode, S/N >= 3; run.peaks.tsv
  qxpeak run.mzML --fwhm 0.01@400 --snr 5 -f tsv,svg
  qxpeak chrom.mzML --fwhm 4s                   chromatograms: a width in seconds
  qxpeak run.mzML --resolution 60000 --analyzer orbitrap --max-charge 4
  qxpeak settings run.mzML > auto.ini           the segments automatic mode picks, to edit
  qxpeak scan.txt --classic --mass -o -         classic defaults, table on standard output
  qxpeak *.mzML --settings my.ini -d out -j 4   classic settings, four worker threads

Outputs are named after the input: NAME.peaks.tsv, NAME.peaks.json, NAME.peaks.txt (the
library's dump), NAME.centroided.mzML and NAME.svg, in the output folder. The outputs of
one input are written together or not at all. x is m/z for spectra and seconds for
chromatograms. Errors go to standard error, one line each. Exit status: 0 success, 1 an
input or output failed, 2 a usage error, 3 every output written but some traces were
skipped (each named on standard error), 128+N after signal N.)";

// Help text: what the option does, then an example on a line of its own.
std::string Help(const char* what, const char* example) {
  return std::string(what) + "\nExample: " + example;
}

const double kBig = std::numeric_limits<double>::max();

// The tool's one number rule, as a validator: the library's parser, then a range; lo itself
// is refused too with `loExcluded`.
CLI::Validator NumberIn(double lo, double hi, bool integer, bool loExcluded = false) {
  return CLI::Validator(
      [=](std::string& text) -> std::string {
        double v = 0.0;
        int i = 0;
        const bool ok = integer ? QXParseInt(text, i) : QXParseDouble(text, v);
        if (integer) v = i;
        if (ok && (loExcluded ? v > lo : v >= lo) && v <= hi) return {};
        return "not " + DescribeNumbers(lo, hi, integer, loExcluded);
      },
      integer ? "INT" : "NUMBER");
}

// The range the settings file uses for `key`, as a validator.
CLI::Validator RangeOf(const char* key) {
  const SettingRange* r = FindSettingRange(key);
  return NumberIn(r->min, r->max, r->integer);
}

// A retention time with an optional unit: "90", "90s", "1.5min".
bool ParseTime(std::string_view text, double& seconds) {
  double factor = 1.0;
  if (text.ends_with("min")) {
    factor = 60.0;
    text.remove_suffix(3);
  } else if (text.ends_with("s")) {
    text.remove_suffix(1);
  }
  if (!QXParseDouble(text, seconds)) return false;
  seconds *= factor;
  return true;
}

// "MIN:MAX" where either side may be empty (no limit).
bool ParseTimeRange(const std::string& text, double& lo, double& hi) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  const std::string_view a = std::string_view(text).substr(0, colon);
  const std::string_view b = std::string_view(text).substr(colon + 1);
  lo = -std::numeric_limits<double>::infinity();
  hi = std::numeric_limits<double>::infinity();
  if (a.empty() && b.empty()) return false;
  if (!a.empty() && !ParseTime(a, lo)) return false;
  if (!b.empty() && !ParseTime(b, hi)) return false;
  return lo <= hi;
}

// "0,3-5,9" as inclusive ranges of non-negative whole numbers.
bool ParseNumberList(const std::string& text, std::vector<NumberRange>& ranges) {
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t comma = rest.find(',');
    const std::string_view item = rest.substr(0, comma);
    rest = comma == std::string_view::npos ? std::string_view() : rest.substr(comma + 1);
    const std::size_t dash = item.find('-');
    const std::string_view a = item.substr(0, dash);
    const std::string_view b = dash == std::string_view::npos ? a : item.substr(dash + 1);
    int first = 0, last = 0;
    if (a.empty() || b.empty() || a.front() == '+' || b.front() == '+' || !QXParseInt(a, first) ||
        !QXParseInt(b, last) || first < 0 || first > last) {
      return false;
    }
    ranges.push_back({first, last});
  }
  return !ranges.empty();
}

// Text the parser collects before it is checked as a whole.
struct RawText {
  std::string spectra, scans, rt, noise;
  std::vector<std::string> segments;
};

void AddTraceOptions(CLI::App& app, Options& options, RawText& raw) {
  const char* group = "Traces";
  app.add_option("--spectra", raw.spectra,
                 Help("Search only these spectrum (or chromatogram) positions,\ncounted from 0",
                      "--spectra 0,5-9"))
      ->option_text("LIST")
      ->group(group);
  app.add_option(
         "--scans", raw.scans,
         Help("Search only spectra with these scan numbers ('scan=N' ids)", "--scans 1200-1300"))
      ->option_text("LIST")
      ->group(group);
  app.add_option("--rt", raw.rt,
                 Help("Search only spectra whose retention time is within\n"
                      "MIN:MAX, in seconds or with 'min'; a side may stay open",
                      "--rt 5min:6.5min"))
      ->option_text("MIN:MAX")
      ->group(group);
  app.add_option("--ms-level", options.selection.ms_level,
                 Help("Search only spectra of this MS level", "--ms-level 1"))
      ->check(NumberIn(1, 100, true))
      ->option_text("N")
      ->group(group);
  app.add_flag_callback(
         "--chromatograms", [&] { options.selection.list = MzmlSelection::List::kChromatograms; },
         Help("Search the chromatograms of mzML files instead of their\n"
              "spectra (done anyway for a file without spectra), and read\n"
              "two-column text as a chromatogram, x in seconds",
              "--chromatograms"))
      ->group(group);
}

void AddAutomaticOptions(CLI::App& app, Options& options) {
  const char* group = "Automatic mode (the default)";
  AutomaticSettings& a = options.automatic;
  app.add_option_function<double>(
         "--snr", [&a](double v) { a.snr = v; },
         Help("Keep peaks at least K times the local noise high (default 3)", "--snr 5"))
      ->check(NumberIn(0.0, 1e9, false, true))
      ->option_text("K")
      ->group(group);
  app.add_option("--fwhm", a.fwhm,
                 Help("Peak width: FWHM in x units, optionally @ the x where it\n"
                      "holds; 's'/'min' for chromatograms, 'ppm' relative to x",
                      "--fwhm 0.01@400   --fwhm 4s   --fwhm 20ppm"))
      ->option_text("W[@X]")
      ->group(group);
  app.add_option_function<double>(
         "--resolution", [&a](double v) { a.resolution = v; },
         Help("Resolving power (x / FWHM) at --resolution-at, scaled\nalong x by --analyzer",
              "--resolution 60000 --analyzer orbitrap"))
      ->check(NumberIn(1.0, 1e9, false))
      ->option_text("R")
      ->group(group);
  app.add_option_function<double>(
         "--resolution-at", [&a](double v) { a.resolutionAt = v; },
         Help("Where the resolving power holds (default 400)", "--resolution-at 200"))
      ->check(NumberIn(1e-9, 1e9, false))
      ->option_text("X")
      ->group(group);
  app.add_option_function<WidthLaw>(
         "--analyzer", [&a](WidthLaw v) { a.analyzer = v; },
         Help("How the width scales with x: tof (constant resolving\n"
              "power), orbitrap, fticr, or constant (the same FWHM)",
              "--analyzer tof"))
      ->transform(CLI::CheckedTransformer(std::map<std::string, WidthLaw>{
          {"tof", WidthLaw::kTof},
          {"orbitrap", WidthLaw::kOrbitrap},
          {"fticr", WidthLaw::kFtIcr},
          {"constant", WidthLaw::kConstant}}))
      ->option_text("LAW")
      ->group(group);
}

void AddSharedDetectionOptions(CLI::App& app, Options& options) {
  const char* group = "Either mode";
  app.add_option_function<int>(
         "--max-charge", [&options](int v) { options.overrides.maxCharge = v; },
         Help("Highest charge state tried (automatic: isotope spacing;\n"
              "classic: with --mass)",
              "--max-charge 4"))
      ->check(RangeOf("MaxCharge"))
      ->option_text("N")
      ->group(group);
  app.add_flag("--gauss-fit", options.gaussFit,
               Help("Refine each centroid with a Gaussian fitted over a few\n"
                    "FWHM around the apex, started from the measured peak;\n"
                    "kept only where the fit converges nearby. (The classic\n"
                    "GaussianFit=1 key of a settings file is the library's\n"
                    "own fit over the bounds, unchanged.)",
                    "--gauss-fit"))
      ->group(group);
  app.add_option("--centroided", options.centroided,
                 Help("Classic mode: treat the data as centroided sticks (yes),\n"
                      "as profile data (no), or as each spectrum declares\n"
                      "(auto, the default; text counts as profile)",
                      "--centroided yes"))
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, CentroidedInput>{{"auto", CentroidedInput::kAuto},
                                                 {"yes", CentroidedInput::kYes},
                                                 {"no", CentroidedInput::kNo}}))
      ->option_text("auto|yes|no")
      ->group(group);
}

void AddClassicOptions(CLI::App& app, Options& options, RawText& raw) {
  const char* group = "Classic mode (each overrides the --settings file)";
  SettingOverrides& o = options.overrides;
  const auto value = [&](const char* name, auto& target, const std::string& help,
                         const char* placeholder, const char* key) {
    using T = typename std::decay_t<decltype(target)>::value_type;
    CLI::Option* option = app.add_option_function<T>(
                                 name, [&target](const T& v) { target = v; }, help)
                              ->option_text(placeholder)
                              ->group(group);
    if (key != nullptr) option->check(RangeOf(key));
    return option;
  };
  const auto toggle = [&](const std::string& name, std::optional<bool>& target,
                          const std::string& help) {
    app.add_flag_callback(
           "--" + name, [&target] { target = true; }, help)
        ->group(group);
    app.add_flag_callback("--no-" + name, [&target] { target = false; })->group("");
  };
  app.add_flag("--classic", options.classicDefaults,
               Help("Classic mode with the library's default settings", "--classic"))
      ->group(group);
  app.add_option("--settings", options.settingsFile,
                 Help("INI file with the classic settings, as 'qxpeak settings'\n"
                      "prints them (a regular file, a pipe or - for standard input)",
                      "--settings my.ini"))
      ->option_text("FILE")
      ->group(group);
  app.add_option("--section", options.section,
                 Help("Section prefix in that file (default qxpeak: the keys\n"
                      "are read from [qxpeak\\PeakSettingsTrace-0])",
                      "--section Lab2"))
      ->option_text("NAME")
      ->group(group);
  app.add_option(
         "--settings-trace", options.settingsTrace,
         Help("Which trace's settings to take from that file (default 0)", "--settings-trace 1"))
      ->check(NumberIn(0, 1000000, true))
      ->option_text("N")
      ->group(group);
  app.add_option("--segment", raw.segments,
                 Help("Search only X1:X2; repeat for several segments, which\n"
                      "then replace the file's (each a copy of its first)",
                      "--segment 400:900 --segment 880:2000"))
      ->option_text("X1:X2")
      ->group(group);
  value("--threshold", o.threshold,
        Help("Intensity threshold, percent of the data's height", "--threshold 2.5"), "PCT",
        "PeakThresholdPct");
  value("--abs-threshold", o.absThreshold,
        Help("Lowest intensity threshold, as an intensity", "--abs-threshold 500"), "I",
        "AbsoluteThreshold");
  value("--filter", o.filterType,
        Help("Smoothing window: gauss (weighted) or mean", "--filter mean"), "gauss|mean",
        nullptr)
      ->transform(CLI::CheckedTransformer(std::map<std::string, int>{{"gauss", 0}, {"mean", 1}}));
  value("--filter-width", o.filterWidth,
        Help("Smoothing window length, in points", "--filter-width 7"), "N", "PeakFilterWidth");
  value("--filter-step", o.filterInc, Help("Points the window moves per step", "--filter-step 1"),
        "N", "PeakFilterIncrement");
  value("--min-area", o.minArea,
        Help("Smallest peak area kept (a sum of intensities)", "--min-area 1000"), "A",
        "MinPeakArea");
  value("--min-area-pct", o.areaPercent,
        Help("Smallest peak area kept, percent of the largest", "--min-area-pct 0.5"), "PCT",
        "PctPeakArea");
  value("--max-width", o.maxWidth, Help("Widest peak kept, in points", "--max-width 200"), "N",
        "MaxPeakWidth");
  value("--noise-threshold", o.noiseThreshold,
        Help("Change of the window mean that ends a peak's bounds;\n"
             "0 puts them at the valleys",
             "--noise-threshold 20"),
        "I", "NoiseThreshold");
  value("--baseline", o.integration,
        Help("Baseline under a peak's area: line (through its bounds)\n"
             "or flat (at the lower bound)",
             "--baseline flat"),
        "line|flat", nullptr)
      ->transform(CLI::CheckedTransformer(std::map<std::string, int>{{"line", 1}, {"flat", 0}}));
  value(
      "--centroid-pct", o.centroidPercent,
      Help("Height, percent of the apex, above which the centroid\nis taken", "--centroid-pct 50"),
      "PCT", "PeakCentroidPct");
  toggle("mass", o.massProcessing,
         Help("Mass processing: centroids, charge states and isotope\n"
              "series (--no-mass turns it off)",
              "--mass"));
  value("--max-isotopes", o.maxIsotope,
        Help("Longest isotope series walked each way", "--max-isotopes 8"), "N", "MaxIsotope");
  toggle("auto-noise", o.autoNoise,
         Help("Noise threshold from the data's white-noise level\n(--no-auto-noise turns it off)",
              "--auto-noise"));
}

void AddMeasurementOptions(CLI::App& app, Options& options, RawText& raw) {
  const char* group = "Measurements and labels";
  app.add_option("--sn", raw.noise,
                 Help("Signal-to-noise from a baseline and noise measured over\n"
                      "X1:X2, a stretch without peaks inside the data (without\n"
                      "it: the local noise estimate)",
                      "--sn 1500:1600"))
      ->option_text("X1:X2")
      ->group(group);
  app.add_option("--measure-resolution", options.resolutionPercent,
                 Help("Add a resolution column: apex x over the peak's width\n"
                      "at PCT percent of its height (50: at half height)",
                      "--measure-resolution 50"))
      ->check(NumberIn(1, 99, true))
      ->option_text("PCT")
      ->group(group);
  app.add_option("--res-min-intensity", options.resolutionMinIntensity,
                 Help("Lowest apex intensity measured for resolution (default 0)",
                      "--res-min-intensity 100"))
      ->check(NumberIn(0.0, kBig, false))
      ->option_text("I")
      ->group(group);
  app.add_option("--labels", options.labelsFile,
                 Help("Label file (.lbs for spectra, .lbc for chromatogram):\n"
                      "a header line, then name<TAB>x<TAB>tolerance[<TAB>charge]",
                      "--labels examples/calibrants.lbs"))
      ->option_text("FILE")
      ->group(group);
}

void AddOutputOptions(CLI::App& app, Options& options) {
  const char* group = "Output";
  app.add_option("-f,--format", options.formats,
                 Help("What to write, comma-separated (default tsv, or what\n"
                      "-o's extension says): tsv, json, dump (the library's\n"
                      "text format), mzml (centroided mzML), svg (a plot)",
                      "-f tsv,svg"))
      ->delimiter(',')
      ->check(CLI::IsMember({"tsv", "json", "dump", "mzml", "svg"}))
      ->option_text("LIST")
      ->group(group);
  app.add_option("-o,--output", options.output,
                 Help("Output file, for one input and one format; - writes to\n"
                      "standard output",
                      "-o peaks.tsv"))
      ->option_text("FILE")
      ->group(group);
  app.add_option("-d,--out-dir", options.outDir,
                 Help("Folder for the outputs (default: the current folder)", "-d results"))
      ->option_text("DIR")
      ->group(group);
  app.add_option("-j,--threads", options.threads,
                 Help("Worker threads (default: one per processor); spectra are\n"
                      "read, searched and written in a pipeline, in input order",
                      "-j 4"))
      ->check(NumberIn(0, 1024, true))
      ->option_text("N")
      ->group(group);
  app.add_flag("-q,--quiet", options.quiet,
               Help("No progress and no summary on standard error (errors\nstill go there)", "-q"))
      ->group(group);
}

// Checks that need several options at once; an empty message means all is well.
std::string CheckCombination(Options& o) {
  const bool find = o.command == Options::Command::kFind;
  const bool classic = o.classicDefaults || !o.settingsFile.empty() || o.overrides.AnyClassic();
  if (classic && o.automatic.Any()) {
    return "--snr, --fwhm, --resolution, --resolution-at and --analyzer belong to the "
           "automatic mode; --classic, --settings and the classic options to the classic one: "
           "use one mode";
  }
  o.mode = classic ? Options::Mode::kClassic : Options::Mode::kAutomatic;
  if (find && o.inputs.empty()) return "no input file given (try 'qxpeak demo', or see --help)";
  if (o.command == Options::Command::kDemo && !o.inputs.empty()) {
    return "the demo searches its own spectrum and takes no input file";
  }
  if (o.command == Options::Command::kSettings) {
    if (!o.autoFile.empty()) o.inputs.insert(o.inputs.begin(), o.autoFile);
    if (o.inputs.size() > 1) return "'qxpeak settings' takes one file to choose segments for";
    if (o.inputs.empty() && o.automatic.Any()) {
      return "'qxpeak settings' with automatic options needs the FILE to choose segments for "
             "(qxpeak settings FILE --snr 5)";
    }
    if (classic && !o.inputs.empty()) {
      return "'qxpeak settings FILE' prints the automatic mode's segments for FILE; classic "
             "options do not apply there";
    }
  }
  if (!o.automatic.fwhm.empty()) {
    DetectOptions probe;
    std::string error;
    if (!ParseFwhm(o.automatic.fwhm, probe, error)) return "--fwhm: " + error;
  }
  if (!o.output.empty() && o.formats.empty() && o.output != "-") {
    const std::string implied = FormatFromExtension(o.output);
    if (!implied.empty()) o.formats = {implied};
  } else if (!o.output.empty() && o.output != "-" && o.formats.size() == 1) {
    const std::string implied = FormatFromExtension(o.output);
    if (!implied.empty() && implied != o.formats[0]) {
      return "-o " + o.output + " names a " + implied + " file but -f asks for " + o.formats[0];
    }
  }
  if (o.formats.empty()) {
    o.formats = o.command == Options::Command::kDemo ? std::vector<std::string>{"svg", "tsv"}
                                                     : std::vector<std::string>{"tsv"};
  }
  if (!o.output.empty() && find && (o.inputs.size() > 1 || o.formats.size() != 1)) {
    return "--output names one file: use it with one input and one --format, or use --out-dir";
  }
  if (!o.output.empty() && !o.outDir.empty()) return "--output and --out-dir exclude each other";
  return {};
}

// Turns the collected text into values; an empty message means all is well.
std::string ApplyRawText(const RawText& raw, Options& options) {
  if (!raw.spectra.empty() && !ParseNumberList(raw.spectra, options.selection.indices)) {
    return "--spectra takes positions like 0,5-9, not '" + raw.spectra + "'";
  }
  if (!raw.scans.empty() && !ParseNumberList(raw.scans, options.selection.scans)) {
    return "--scans takes scan numbers like 1200-1300, not '" + raw.scans + "'";
  }
  if (!raw.rt.empty() &&
      !ParseTimeRange(raw.rt, options.selection.rt_min, options.selection.rt_max)) {
    return "--rt takes MIN:MAX in seconds or with 'min', like 5min:6.5min, not '" + raw.rt + "'";
  }
  if (!raw.noise.empty()) {
    std::pair<double, double> range;
    if (!ParseRange(raw.noise, range) || !(range.first < range.second)) {
      return "--sn takes X1:X2 with X1 < X2, like 1500:1600, not '" + raw.noise + "'";
    }
    options.noiseRegion = range;
  }
  for (const std::string& s : raw.segments) {
    std::pair<double, double> range;
    if (!ParseRange(s, range)) {
      return "--segment takes X1:X2 with X1 <= X2, like 400:900, not '" + s + "'";
    }
    options.overrides.segments.push_back(range);
  }
  return {};
}

}  // namespace

bool SettingOverrides::AnyClassic() const {
  return threshold || absThreshold || filterType || filterWidth || filterInc || minArea ||
         areaPercent || maxWidth || noiseThreshold || integration || centroidPercent ||
         maxIsotope || massProcessing || autoNoise || !segments.empty();
}

bool ParseRange(const std::string& text, std::pair<double, double>& range) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  double a = 0.0, b = 0.0;
  if (!QXParseDouble(std::string_view(text).substr(0, colon), a) ||
      !QXParseDouble(std::string_view(text).substr(colon + 1), b) || a > b) {
    return false;
  }
  range = {a, b};
  return true;
}

std::string FormatFromExtension(const std::string& path) {
  std::string ext;
  const std::size_t dot = path.rfind('.');
  const std::size_t slash = path.find_last_of("/\\");
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  for (const char c : path.substr(dot + 1)) {
    ext += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  static const std::map<std::string, std::string> kFormats = {
      {"tsv", "tsv"}, {"json", "json"}, {"txt", "dump"}, {"mzml", "mzml"}, {"svg", "svg"}};
  const auto it = kFormats.find(ext);
  return it == kFormats.end() ? std::string() : it->second;
}

std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options,
                                std::ostream& out, std::ostream& err) {
  CLI::App app(kDescription, "qxpeak");
  app.footer(kFooter);
  app.get_formatter()->column_width(30);
  app.set_version_flag("--version", std::string("qxpeak ") + kVersion);
  app.add_option("inputs", options.inputs,
                 Help("mzML (plain or indexed) or two-column text, gzipped\n"
                      "or not; - reads standard input",
                      "qxpeak a.mzML b.txt"))
      ->option_text("FILE...");

  CLI::App* settingsCommand = app.add_subcommand(
      "settings", Help("Print the classic settings as an INI file that --settings\n"
                       "reads back; with a FILE (or --auto FILE), the segments the\n"
                       "automatic mode chooses for that file's first trace",
                       "qxpeak settings --mass > my.ini"));
  settingsCommand->add_option("--auto", options.autoFile,
                              "File whose automatic segments to print")
      ->option_text("FILE");
  CLI::App* demoCommand = app.add_subcommand(
      "demo", Help("Search a built-in spectrum (isotope series of charges 1 to 4\n"
                   "on a noisy baseline); print a summary and write\n"
                   "qxpeak_demo.peaks.tsv and qxpeak_demo.svg",
                   "qxpeak demo -d /tmp"));
  settingsCommand->fallthrough();
  demoCommand->fallthrough();
  app.require_subcommand(0, 1);
  // The view branch adds its own subcommand beside these.

  RawText raw;
  AddTraceOptions(app, options, raw);
  AddAutomaticOptions(app, options);
  AddSharedDetectionOptions(app, options);
  AddClassicOptions(app, options, raw);
  AddMeasurementOptions(app, options, raw);
  AddOutputOptions(app, options);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    out << app.help();
    return kExitOk;
  } catch (const CLI::CallForVersion&) {
    out << app.version() << '\n';
    return kExitOk;
  } catch (const CLI::ParseError& e) {
    const std::string text = e.what();
    err << "qxpeak: " << Printable(text.substr(0, text.find('\n'))) << " (see qxpeak --help)\n";
    return kExitUsage;
  }
  if (settingsCommand->parsed()) options.command = Options::Command::kSettings;
  if (demoCommand->parsed()) options.command = Options::Command::kDemo;

  std::sort(options.formats.begin(), options.formats.end());
  options.formats.erase(std::unique(options.formats.begin(), options.formats.end()),
                        options.formats.end());
  std::string problem = ApplyRawText(raw, options);
  if (problem.empty()) problem = CheckCombination(options);
  if (!problem.empty()) {
    err << "qxpeak: " << Printable(problem) << '\n';
    return kExitUsage;
  }
  return std::nullopt;
}

}  // namespace qxpkutil::qxpeak
