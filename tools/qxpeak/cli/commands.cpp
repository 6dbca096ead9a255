#include "tools/qxpeak/cli/commands.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <ostream>
#include <system_error>
#include <thread>

#include "tools/qxpeak/run/batch.h"
#include "tools/qxpeak/cli/demo_signal.h"
#include "tools/qxpeak/input/load_input.h"
#include "tools/qxpeak/output/output_files.h"
#include "tools/qxpeak/output/printable.h"
#include "tools/qxpeak/output/peak_writers.h"
#include "tools/qxpeak/cli/settings_file.h"

namespace qxpkutil::qxpeak {

namespace {

constexpr const char* kDemoName = "qxpeak_demo";

unsigned Threads(int requested) {
  if (requested > 0) return static_cast<unsigned>(requested);
  return std::max(1u, std::thread::hardware_concurrency());
}

bool MakeOutDir(const std::string& dir, std::string& error) {
  if (dir.empty()) return true;
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) error = dir + ": cannot create the output folder: " + ec.message();
  return !ec;
}

// The demo's settings: what its spectrum needs, each still open to the command line.
// The demo runs what `qxpeak FILE` runs: the automatic mode, unless classic options were
// given, in which case the classic settings that suit its spectrum fill what is not set.
Options DemoOptions(const Options& given) {
  Options demo = given;
  if (demo.mode != Options::Mode::kClassic) return demo;
  SettingOverrides& o = demo.overrides;
  if (!o.massProcessing) o.massProcessing = true;
  if (!o.maxCharge) o.maxCharge = 4;
  if (!o.maxIsotope) o.maxIsotope = 8;
  if (!o.filterWidth) o.filterWidth = 5;
  if (!o.threshold) o.threshold = 0.5;
  return demo;
}

// The command line that repeats the demo's search on a file.
std::string DemoCommandLine(const Options& demo) {
  if (demo.mode != Options::Mode::kClassic) return "qxpeak FILE -f tsv,svg";
  const SettingOverrides& o = demo.overrides;
  std::string line = "qxpeak FILE --mass --max-charge " + std::to_string(*o.maxCharge) +
                     " --max-isotopes " + std::to_string(*o.maxIsotope) + " --filter-width " +
                     std::to_string(*o.filterWidth);
  char threshold[32];
  std::snprintf(threshold, sizeof threshold, " --threshold %g", *o.threshold);
  return line + threshold + " -f tsv,svg";
}

void DemoSummary(const Trace& trace, const TracePeaks& found, double seconds, std::ostream& out) {
  const std::vector<Peak>& peaks = found.peaks;
  std::map<int, int> charges;
  for (const Peak& p : peaks) ++charges[p.charge];
  char line[160];
  std::snprintf(line, sizeof line,
                "qxpeak demo: a generated profile spectrum, m/z %.0f to %.0f, %zu points\n",
                trace.x.front(), trace.x.back(), trace.x.size());
  out << line;
  std::snprintf(line, sizeof line, "Found %zu peaks in %.0f ms; by charge:", peaks.size(),
                seconds * 1000.0);
  out << line;
  for (const auto& [z, count] : charges) {
    out << ' ' << (z == 0 ? std::string("none") : "z=" + std::to_string(z)) << ' ' << count;
  }
  out << '\n';

  int seriesFound = 0;
  for (const DemoSeries& s : kDemoSeries) {
    for (const Peak& p : peaks) {
      if (std::fabs(p.centroid_x - s.monoisotopicMz) < 0.02 && p.charge == s.charge) {
        ++seriesFound;
        break;
      }
    }
  }
  out << "Isotope series found with their charge: " << seriesFound << " of "
      << std::size(kDemoSeries) << " placed in the spectrum\n";

  std::vector<const Peak*> top;
  for (const Peak& p : peaks) top.push_back(&p);
  std::stable_sort(top.begin(), top.end(),
                   [](const Peak* a, const Peak* b) { return a->apex_y > b->apex_y; });
  top.resize(std::min<std::size_t>(top.size(), 8));
  out << "The most intense peaks:\n  centroid m/z   intensity      area   z  marks\n";
  for (const Peak* p : top) {
    std::snprintf(line, sizeof line, "  %12.4f %11.1f %9.0f %3d  %s\n", p->centroid_x, p->apex_y,
                  p->area, p->charge, MarkNames(p->marks).c_str());
    out << line;
  }
}

// The files a run reads besides its inputs; no output may replace them.
std::vector<std::string> ReadFiles(const Options& options) {
  std::vector<std::string> files;
  if (!options.settingsFile.empty()) files.push_back(options.settingsFile);
  if (!options.labelsFile.empty()) files.push_back(options.labelsFile);
  return files;
}

// What the centroided mzML records about the search.
std::string SettingsSummary(const Options& options, const DetectionConfig& config) {
  if (config.options.classic) {
    QXPeakTableList list(*config.options.classic);
    return "classic: " + FormatSettingsLine(list, options.section, options.settingsTrace);
  }
  const DetectOptions& d = config.options;
  char text[200];
  std::snprintf(text, sizeof text, "automatic: snr=%g; fwhm=%g@%g; resolution=%g@%g; max_charge=%d",
                d.snr, d.fwhm, d.fwhm_at, d.resolution, d.resolution_at, d.max_charge);
  return std::string(text) + (d.gauss_refine ? "; gauss_refine" : "");
}

}  // namespace

int RunFind(const Options& options, std::ostream& /*out*/, std::ostream& err) {
  BatchContext context;
  std::string error;
  std::vector<Job> jobs;
  // The plan first: an output onto a file the run reads is refused before it is read.
  if (!PlanJobs(options.inputs, options.formats, options.output, options.outDir,
                ReadFiles(options), jobs, error) ||
      !BuildDetectionConfig(options, context.config, error) ||
      !MakeOutDir(options.outDir, error)) {
    err << "qxpeak: " << Printable(error) << '\n';
    return kExitFailed;
  }
  context.selection = options.selection;
  context.settingsSummary = SettingsSummary(options, context.config);
  const BatchSummary summary =
      RunBatch(jobs, context, Threads(options.threads), err, options.quiet);
  if (summary.inputs > 1 && !options.quiet) {
    err << "qxpeak: " << summary.inputs - summary.failed << " of " << summary.inputs
        << " inputs searched, " << summary.traces << " traces (" << summary.skipped
        << " skipped), " << summary.peaks << " peaks\n";
  }
  if (summary.failed > 0) return kExitFailed;
  return summary.skipped > 0 ? kExitSkipped : kExitOk;
}

int RunSettings(const Options& options, std::ostream& out, std::ostream& err) {
  std::string error;
  std::string text;
  if (!options.inputs.empty()) {
    // The segments the automatic mode picks for the file's first selected trace.
    DetectionConfig config;
    Trace trace;
    if (!BuildDetectionConfig(options, config, error) ||
        !ReadFirstTrace(options.inputs[0], options.selection, trace, error)) {
      err << "qxpeak: " << Printable(error) << '\n';
      return kExitFailed;
    }
    DetectOptions d = config.options;
    d.kind = trace.kind == Trace::Kind::kChromatogram ? SignalKind::kChromatogram
                                                      : SignalKind::kSpectrum;
    QXPeakTableList list = BuildAutomaticSegments(trace.x, trace.y, d);
    if (list.GetNumDetectionSettings() == 0) {
      err << "qxpeak: " << Printable(options.inputs[0]) << ": " << TraceName(trace)
          << " cannot be searched, so no segments were chosen\n";
      return kExitFailed;
    }
    text = FormatSettingsIni(list, options.section, options.settingsTrace);
  } else {
    QXPeakTableList list;
    if (!BuildClassicList(options, list, error)) {
      err << "qxpeak: " << Printable(error) << '\n';
      return kExitFailed;
    }
    text = FormatSettingsIni(list, options.section, options.settingsTrace);
  }
  if (options.output.empty()) {
    out << text;
    return kExitOk;
  }
  for (const std::string& kept : ReadFiles(options)) {
    if (SameFile(options.output, kept)) {
      err << "qxpeak: the output " << Printable(options.output) << " would overwrite "
          << Printable(kept) << ", which this run reads\n";
      return kExitFailed;
    }
  }
  if (!WriteOutputsTogether({{options.output, text}}, error)) {
    err << "qxpeak: " << Printable(error) << '\n';
    return kExitFailed;
  }
  return kExitOk;
}

int RunDemo(const Options& options, std::ostream& out, std::ostream& err) {
  Options demo = DemoOptions(options);
  DetectionConfig config;
  std::string error;
  if (!BuildDetectionConfig(demo, config, error) || !MakeOutDir(options.outDir, error)) {
    err << "qxpeak: " << Printable(error) << '\n';
    return kExitFailed;
  }
  const Trace spectrum = MakeDemoSpectrum();
  const auto start = std::chrono::steady_clock::now();
  const TracePeaks found = SearchTrace(spectrum, config);
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  // Data written to standard output must not mix with the summary.
  std::ostream& summary = options.output == "-" ? err : out;
  if (!options.quiet) DemoSummary(spectrum, found, elapsed.count(), summary);

  std::vector<std::pair<std::string, std::string>> outputs;
  std::vector<std::string> written;
  for (const std::string& format : options.formats) {
    const std::string path = OutputPath(kDemoName, format, options.output, options.outDir);
    outputs.emplace_back(format, path);
    written.push_back(path == "-" ? "standard output" : std::filesystem::absolute(path).string());
  }
  OutputSet files;
  if (!files.Open(outputs, "qxpeak demo spectrum", SettingsSummary(demo, config),
                  config.resolutionPercent.has_value(), error) ||
      !files.Add(spectrum, found, files.Rows(spectrum, found), nullptr, error) ||
      !files.Finish(error)) {
    err << "qxpeak: " << Printable(error) << '\n';
    return kExitFailed;
  }
  if (!options.quiet) {
    summary << "Wrote";
    for (std::size_t i = 0; i < written.size(); ++i) {
      summary << (i == 0 ? " " : ", ") << Printable(written[i]);
    }
    summary << ".\nThe same search on a file of your own: " << DemoCommandLine(demo)
            << '\n';
  }
  return kExitOk;
}

int RunCommand(const Options& options, std::ostream& out, std::ostream& err) {
  switch (options.command) {
    case Options::Command::kSettings:
      return RunSettings(options, out, err);
    case Options::Command::kDemo:
      return RunDemo(options, out, err);
    case Options::Command::kFind:
      break;
  }
  return RunFind(options, out, err);
}

}  // namespace qxpkutil::qxpeak
