#include "tools/qxpeak/options.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <map>
#include <ostream>

#include <CLI/CLI.hpp>

namespace qxpkutil::qxpeak {

namespace {

constexpr const char* kDescription =
    "qxpeak finds, measures and labels the peaks of mass spectra and chromatograms.\n"
    "It reads mzML files or two-column text (x and y) and writes one peak table per input.\n";

constexpr const char* kFooter = R"(Examples:
  qxpeak demo                                   search a built-in spectrum, write TSV and SVG
  qxpeak run.mzML --ms-level 1 -f tsv,svg       every MS1 spectrum; run.peaks.tsv, run.svg
  qxpeak scan.txt --mass --max-charge 4 -o -    charge states, table on standard output
  qxpeak settings --threshold 2 > my.ini        save settings, edit them, then:
  qxpeak *.mzML --settings my.ini -d out -j 4   a batch with four worker threads

Outputs are named after the input: NAME.peaks.tsv, NAME.peaks.json, NAME.peaks.txt (the
library's dump), NAME.centroided.mzML and NAME.svg, in the output folder. Every file is
written completely or not at all. Errors go to standard error, one line each; the exit
status is 0 on success, 1 when an input or output fails, 2 for a usage error.)";

bool ParseNumber(std::string_view text, double& value) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto r = std::from_chars(text.data(), text.data() + text.size(), value);
  return r.ec == std::errc() && r.ptr == text.data() + text.size() && !text.empty() &&
         std::isfinite(value);
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
  if (!ParseNumber(text, seconds)) return false;
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
    NumberRange r;
    const auto ra = std::from_chars(a.data(), a.data() + a.size(), r.first);
    const auto rb = std::from_chars(b.data(), b.data() + b.size(), r.last);
    if (a.empty() || b.empty() || ra.ptr != a.data() + a.size() || rb.ptr != b.data() + b.size() ||
        ra.ec != std::errc() || rb.ec != std::errc() || r.first < 0 || r.first > r.last) {
      return false;
    }
    ranges.push_back(r);
  }
  return !ranges.empty();
}

// Help text: what the option does, then an example on a line of its own.
std::string Help(const char* what, const char* example) {
  return std::string(what) + "\nExample: " + example;
}

// Checks that need several options at once; an empty message means all is well.
std::string CheckCombination(const Options& o) {
  const bool find = o.command == Options::Command::kFind;
  if (find && o.inputs.empty()) return "no input file given (try 'qxpeak demo', or see --help)";
  if (!find && !o.inputs.empty()) return "input files are only taken when searching them";
  if (!o.output.empty() && (o.inputs.size() > 1 || o.formats.size() != 1)) {
    return "--output names one file: use it with one input and one --format, or use --out-dir";
  }
  if (!o.output.empty() && !o.outDir.empty()) return "--output and --out-dir exclude each other";
  return {};
}

}  // namespace

bool ParseRange(const std::string& text, std::pair<double, double>& range) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  double a = 0.0, b = 0.0;
  if (!ParseNumber(std::string_view(text).substr(0, colon), a) ||
      !ParseNumber(std::string_view(text).substr(colon + 1), b) || a > b) {
    return false;
  }
  range = {a, b};
  return true;
}

std::optional<int> ParseOptions(int argc, const char* const* argv, Options& options,
                                std::ostream& out, std::ostream& err) {
  CLI::App app(kDescription, "qxpeak");
  app.footer(kFooter);
  app.get_formatter()->column_width(30);
  app.set_version_flag("--version", std::string("qxpeak ") + kVersion);
  app.add_option("inputs", options.inputs,
                 Help("mzML (plain or indexed, zlib or not) or two-column text\n"
                      "files; - reads standard input",
                      "qxpeak a.mzML b.txt"))
      ->option_text("FILE...");

  CLI::App* settingsCommand = app.add_subcommand(
      "settings", Help("Print the effective settings as an INI file that\n--settings reads back",
                       "qxpeak settings --mass > my.ini"));
  CLI::App* demoCommand = app.add_subcommand(
      "demo", Help("Search a built-in spectrum (isotope series of charges 1 to 4\n"
                   "on a noisy baseline); print a summary and write\n"
                   "qxpeak_demo.peaks.tsv and qxpeak_demo.svg",
                   "qxpeak demo -d /tmp"));
  settingsCommand->fallthrough();
  demoCommand->fallthrough();
  app.require_subcommand(0, 1);

  // Traces.
  std::string spectra, scans, rt;
  const char* traces = "Traces";
  app.add_option("--spectra", spectra,
                 Help("Search only these spectrum (or chromatogram) positions,\ncounted from 0",
                      "--spectra 0,5-9"))
      ->option_text("LIST")
      ->group(traces);
  app.add_option(
         "--scans", scans,
         Help("Search only spectra with these scan numbers ('scan=N' ids)", "--scans 1200-1300"))
      ->option_text("LIST")
      ->group(traces);
  app.add_option("--rt", rt,
                 Help("Search only spectra whose retention time is within\n"
                      "MIN:MAX, in seconds or with 'min'; a side may stay open",
                      "--rt 5min:6.5min"))
      ->option_text("MIN:MAX")
      ->group(traces);
  app.add_option("--ms-level", options.selection.ms_level,
                 Help("Search only spectra of this MS level", "--ms-level 1"))
      ->check(CLI::Range(1, 100))
      ->option_text("N")
      ->group(traces);
  app.add_flag_callback(
         "--chromatograms", [&] { options.selection.list = MzmlSelection::List::kChromatograms; },
         Help("Search the chromatograms of mzML files instead of their\n"
              "spectra (done anyway for a file without spectra)",
              "--chromatograms"))
      ->group(traces);
  app.add_option("--centroided", options.centroided,
                 Help("Treat the data as centroided sticks (yes), as profile\n"
                      "data (no), or as each spectrum declares (auto, the\n"
                      "default; text counts as profile)",
                      "--centroided yes"))
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, CentroidedInput>{{"auto", CentroidedInput::kAuto},
                                                 {"yes", CentroidedInput::kYes},
                                                 {"no", CentroidedInput::kNo}}))
      ->option_text("auto|yes|no")
      ->group(traces);

  // Settings.
  const char* settings = "Settings (each overrides the --settings file)";
  SettingOverrides& o = options.overrides;
  const auto value = [&](const char* name, auto& target, const std::string& help,
                         const char* placeholder) {
    using T = typename std::decay_t<decltype(target)>::value_type;
    return app
        .add_option_function<T>(
            name, [&target](const T& v) { target = v; }, help)
        ->option_text(placeholder)
        ->group(settings);
  };
  const auto toggle = [&](const std::string& name, std::optional<bool>& target,
                          const std::string& help) {
    app.add_flag_callback(
           "--" + name, [&target] { target = true; }, help)
        ->group(settings);
    app.add_flag_callback("--no-" + name, [&target] { target = false; })->group("");
  };
  app.add_option("--settings", options.settingsFile,
                 Help("INI file with the detection settings, as 'qxpeak\n"
                      "settings' prints them",
                      "--settings my.ini"))
      ->option_text("FILE")
      ->group(settings);
  app.add_option("--section", options.section,
                 Help("Section prefix in that file (default qxpeak: the keys\n"
                      "are read from [qxpeak\\PeakSettingsTrace-0])",
                      "--section Lab2"))
      ->option_text("NAME")
      ->group(settings);
  app.add_option(
         "--settings-trace", options.settingsTrace,
         Help("Which trace's settings to take from that file (default 0)", "--settings-trace 1"))
      ->check(CLI::Range(0, 1000000))
      ->option_text("N")
      ->group(settings);
  std::vector<std::string> segments;
  app.add_option("--segment", segments,
                 Help("Search only X1:X2; repeat for several segments, which\n"
                      "then replace the file's (each a copy of its first)",
                      "--segment 400:900 --segment 880:2000"))
      ->option_text("X1:X2")
      ->group(settings);
  value("--threshold", o.threshold,
        Help("Intensity threshold, percent of the data's height", "--threshold 2.5"), "PCT")
      ->check(CLI::Range(0.0, 100.0));
  value("--abs-threshold", o.absThreshold,
        Help("Lowest intensity threshold, as an intensity", "--abs-threshold 500"), "I");
  value("--filter", o.filterType,
        Help("Smoothing window: gauss (weighted) or mean", "--filter mean"), "gauss|mean")
      ->transform(CLI::CheckedTransformer(std::map<std::string, int>{{"gauss", 0}, {"mean", 1}}));
  value("--filter-width", o.filterWidth,
        Help("Smoothing window length, in points", "--filter-width 7"), "N")
      ->check(CLI::Range(1, 2001));
  value("--filter-step", o.filterInc, Help("Points the window moves per step", "--filter-step 1"),
        "N")
      ->check(CLI::Range(1, 1000));
  value("--min-area", o.minArea,
        Help("Smallest peak area kept (a sum of intensities)", "--min-area 1000"), "A");
  value("--min-area-pct", o.areaPercent,
        Help("Smallest peak area kept, percent of the largest", "--min-area-pct 0.5"), "PCT")
      ->check(CLI::Range(0.0, 100.0));
  value("--max-width", o.maxWidth, Help("Widest peak kept, in points", "--max-width 200"), "N")
      ->check(CLI::Range(1, 100000000));
  value("--noise-threshold", o.noiseThreshold,
        Help("Change of the window mean that ends a peak's bounds;\n"
             "0 puts them at the valleys",
             "--noise-threshold 20"),
        "I");
  value("--baseline", o.integration,
        Help("Baseline under a peak's area: line (through its bounds)\n"
             "or flat (at the lower bound)",
             "--baseline flat"),
        "line|flat")
      ->transform(CLI::CheckedTransformer(std::map<std::string, int>{{"line", 1}, {"flat", 0}}));
  value(
      "--centroid-pct", o.centroidPercent,
      Help("Height, percent of the apex, above which the centroid\nis taken", "--centroid-pct 50"),
      "PCT")
      ->check(CLI::Range(0.0, 100.0));
  toggle("mass", o.massProcessing,
         Help("Mass processing: centroids, charge states and isotope\n"
              "series (--no-mass turns it off)",
              "--mass"));
  value("--max-charge", o.maxCharge, Help("Highest charge state tried", "--max-charge 4"), "N")
      ->check(CLI::Range(1, 100));
  value("--max-isotopes", o.maxIsotope,
        Help("Longest isotope series walked each way", "--max-isotopes 8"), "N")
      ->check(CLI::Range(1, 40));
  toggle(
      "gauss-fit", o.gaussFit,
      Help("Refine centroids by fitting Gaussians (--no-gauss-fit\nturns it off)", "--gauss-fit"));
  toggle("auto-noise", o.autoNoise,
         Help("Noise threshold from the data's white-noise level\n(--no-auto-noise turns it off)",
              "--auto-noise"));

  // Measurements.
  const char* measure = "Measurements and labels";
  std::string noise;
  app.add_option("--sn", noise,
                 Help("Add a signal-to-noise column; baseline and noise are\n"
                      "measured over X1:X2, a stretch without peaks",
                      "--sn 1500:1600"))
      ->option_text("X1:X2")
      ->group(measure);
  app.add_option("--resolution", options.resolutionPercent,
                 Help("Add a resolution column: apex x over the peak's width\n"
                      "at PCT percent of its height (50: at half height)",
                      "--resolution 50"))
      ->check(CLI::Range(1, 99))
      ->option_text("PCT")
      ->group(measure);
  app.add_option("--res-min-intensity", options.resolutionMinIntensity,
                 Help("Lowest apex intensity measured for resolution (default 0)",
                      "--res-min-intensity 100"))
      ->check(CLI::NonNegativeNumber)
      ->option_text("I")
      ->group(measure);
  app.add_option("--labels", options.labelsFile,
                 Help("Label file (.lbs for spectra, .lbc for chromatograms)\n"
                      "matched onto the peaks",
                      "--labels calibrants.lbs"))
      ->option_text("FILE")
      ->group(measure);

  // Outputs.
  const char* outputs = "Output";
  app.add_option("-f,--format", options.formats,
                 Help("What to write, comma-separated (default tsv): tsv,\n"
                      "json, dump (the library's text format), mzml\n"
                      "(centroided mzML), svg (a plot)",
                      "-f tsv,svg"))
      ->delimiter(',')
      ->check(CLI::IsMember({"tsv", "json", "dump", "mzml", "svg"}))
      ->option_text("LIST")
      ->group(outputs);
  app.add_option("-o,--output", options.output,
                 Help("Output file, for one input and one format; - writes to\n"
                      "standard output",
                      "-o peaks.tsv"))
      ->option_text("FILE")
      ->group(outputs);
  app.add_option("-d,--out-dir", options.outDir,
                 Help("Folder for the outputs (default: the current folder)", "-d results"))
      ->option_text("DIR")
      ->group(outputs);
  app.add_option("-j,--threads", options.threads,
                 Help("Worker threads (default: one per processor)", "-j 4"))
      ->check(CLI::Range(0, 1024))
      ->option_text("N")
      ->group(outputs);
  app.add_flag("-q,--quiet", options.quiet, Help("No summary and no progress line", "-q"))
      ->group(outputs);

  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp&) {
    out << app.help();
    return 0;
  } catch (const CLI::CallForVersion&) {
    out << app.version() << '\n';
    return 0;
  } catch (const CLI::ParseError& e) {
    std::string text = e.what();
    err << "qxpeak: " << text.substr(0, text.find('\n')) << " (see qxpeak --help)\n";
    return 2;
  }
  if (settingsCommand->parsed()) options.command = Options::Command::kSettings;
  if (demoCommand->parsed()) options.command = Options::Command::kDemo;

  std::string problem;
  if (!spectra.empty() && !ParseNumberList(spectra, options.selection.indices)) {
    problem = "--spectra takes positions like 0,5-9, not '" + spectra + "'";
  } else if (!scans.empty() && !ParseNumberList(scans, options.selection.scans)) {
    problem = "--scans takes scan numbers like 1200-1300, not '" + scans + "'";
  } else if (!rt.empty() && !ParseTimeRange(rt, options.selection.rt_min, options.selection.rt_max)) {
    problem = "--rt takes MIN:MAX in seconds or with 'min', like 5min:6.5min, not '" + rt + "'";
  } else if (!noise.empty()) {
    std::pair<double, double> range;
    if (ParseRange(noise, range) && range.first < range.second) {
      options.noiseRegion = range;
    } else {
      problem = "--sn takes X1:X2 with X1 < X2, like 1500:1600, not '" + noise + "'";
    }
  }
  for (const std::string& s : segments) {
    std::pair<double, double> range;
    if (!problem.empty()) break;
    if (ParseRange(s, range)) {
      o.segments.push_back(range);
    } else {
      problem = "--segment takes X1:X2 with X1 <= X2, like 400:900, not '" + s + "'";
    }
  }
  std::sort(options.formats.begin(), options.formats.end());
  options.formats.erase(std::unique(options.formats.begin(), options.formats.end()),
                        options.formats.end());
  if (options.formats.empty()) {
    options.formats = options.command == Options::Command::kDemo
                          ? std::vector<std::string>{"tsv", "svg"}
                          : std::vector<std::string>{"tsv"};
  }
  if (problem.empty()) problem = CheckCombination(options);
  if (!problem.empty()) {
    err << "qxpeak: " << problem << '\n';
    return 2;
  }
  return std::nullopt;
}

}  // namespace qxpkutil::qxpeak
