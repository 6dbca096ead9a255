#include "tools/qxpeak/commands.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <ostream>
#include <system_error>
#include <thread>

#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "tools/qxpeak/batch.h"
#include "tools/qxpeak/demo_signal.h"
#include "tools/qxpeak/file_io.h"
#include "tools/qxpeak/peak_writers.h"
#include "tools/qxpeak/settings_file.h"

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
Options DemoOptions(const Options& given) {
  Options demo = given;
  SettingOverrides& o = demo.overrides;
  if (!o.massProcessing) o.massProcessing = true;
  if (!o.maxCharge) o.maxCharge = 4;
  if (!o.maxIsotope) o.maxIsotope = 8;
  if (!o.filterWidth) o.filterWidth = 5;
  if (!o.threshold) o.threshold = 0.5;
  return demo;
}

// The command-line options that repeat the demo's search on a file.
std::string DemoCommandLine(const SettingOverrides& o) {
  std::string line = "qxpeak FILE --mass --max-charge " + std::to_string(*o.maxCharge) +
                     " --max-isotopes " + std::to_string(*o.maxIsotope) + " --filter-width " +
                     std::to_string(*o.filterWidth);
  char threshold[32];
  std::snprintf(threshold, sizeof threshold, " --threshold %g", *o.threshold);
  return line + threshold + " -f tsv,svg";
}

void DemoSummary(const Trace& trace, const TracePeaks& peaks, double seconds, std::ostream& out) {
  const QXPeakTable& table = peaks.table;
  std::map<int, int> charges;
  for (std::int32_t i = 0; i < table.GetNumPeaks(); ++i) ++charges[table.GetPeak(i)->m_nCharge];
  char line[160];
  std::snprintf(line, sizeof line,
                "qxpeak demo: a generated profile spectrum, m/z %.0f to %.0f, %zu points\n",
                trace.x.front(), trace.x.back(), trace.x.size());
  out << line;
  std::snprintf(line, sizeof line, "Found %d peaks in %.0f ms; by charge:",
                static_cast<int>(table.GetNumPeaks()), seconds * 1000.0);
  out << line;
  for (const auto& [z, count] : charges) {
    out << ' ' << (z == 0 ? std::string("none") : "z=" + std::to_string(z)) << ' ' << count;
  }
  out << '\n';

  int found = 0;
  for (const DemoSeries& s : kDemoSeries) {
    for (std::int32_t i = 0; i < table.GetNumPeaks(); ++i) {
      const QXPeakTableElement& p = *table.GetPeak(i);
      if (std::fabs(p.m_dCentroidX - s.monoisotopicMz) < 0.02 && p.m_nCharge == s.charge) {
        ++found;
        break;
      }
    }
  }
  out << "Isotope series found with their charge: " << found << " of " << std::size(kDemoSeries)
      << " placed in the spectrum\n";

  std::vector<const QXPeakTableElement*> top;
  for (std::int32_t i = 0; i < table.GetNumPeaks(); ++i) top.push_back(table.GetPeak(i));
  std::stable_sort(top.begin(), top.end(),
                   [](const auto* a, const auto* b) { return a->m_dApexY > b->m_dApexY; });
  top.resize(std::min<std::size_t>(top.size(), 8));
  out << "The most intense peaks:\n  centroid m/z   intensity      area   z  marks\n";
  for (const QXPeakTableElement* p : top) {
    std::snprintf(line, sizeof line, "  %12.4f %11.1f %9.0f %3d  %s\n", p->m_dCentroidX,
                  p->m_dApexY, p->m_dArea, p->m_nCharge, MarkNames(p->m_dwFlags).c_str());
    out << line;
  }
}

}  // namespace

int RunFind(const Options& options, std::ostream& /*out*/, std::ostream& err) {
  BatchContext context;
  std::string error;
  std::vector<Job> jobs;
  if (!BuildDetectionConfig(options, context.config, error) ||
      !PlanJobs(options.inputs, options.formats, options.output, options.outDir, jobs, error) ||
      !MakeOutDir(options.outDir, error)) {
    err << "qxpeak: " << error << '\n';
    return 1;
  }
  context.selection = options.selection;
  context.settingsSummary =
      FormatSettingsLine(context.config.list, options.section, options.settingsTrace);
  const BatchSummary summary =
      RunBatch(jobs, context, Threads(options.threads), err, options.quiet);
  if (summary.inputs > 1 && !options.quiet) {
    err << "qxpeak: " << summary.inputs - summary.failed << " of " << summary.inputs
        << " inputs searched, " << summary.traces << " traces, " << summary.peaks << " peaks\n";
  }
  return summary.failed == 0 ? 0 : 1;
}

int RunSettings(const Options& options, std::ostream& out, std::ostream& err) {
  DetectionConfig config;
  std::string error;
  if (!BuildDetectionConfig(options, config, error)) {
    err << "qxpeak: " << error << '\n';
    return 1;
  }
  const std::string text = FormatSettingsIni(config.list, options.section, options.settingsTrace);
  if (options.output.empty()) {
    out << text;
    return 0;
  }
  if (!WriteOutput(options.output, text, error)) {
    err << "qxpeak: " << error << '\n';
    return 1;
  }
  return 0;
}

int RunDemo(const Options& options, std::ostream& out, std::ostream& err) {
  const Options demo = DemoOptions(options);
  DetectionConfig config;
  std::string error;
  if (!BuildDetectionConfig(demo, config, error) || !MakeOutDir(options.outDir, error)) {
    err << "qxpeak: " << error << '\n';
    return 1;
  }
  LoadedInput input;
  input.text.push_back(MakeDemoSpectrum());
  const auto start = std::chrono::steady_clock::now();
  const std::vector<TracePeaks> peaks = SearchTraces(input.text, config, Threads(options.threads));
  const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
  // Data written to standard output must not mix with the summary.
  std::ostream& summary = options.output == "-" ? err : out;
  if (!options.quiet) DemoSummary(input.text[0], peaks[0], elapsed.count(), summary);

  const std::string settings = FormatSettingsLine(config.list, demo.section, demo.settingsTrace);
  std::vector<std::string> written;
  for (const std::string& format : options.formats) {
    const std::string path = OutputPath(kDemoName, format, options.output, options.outDir);
    std::string text;
    if (!FormatOutput(format, "qxpeak demo spectrum", input, peaks, settings, text, error) ||
        !WriteOutput(path, text, error)) {
      err << "qxpeak: " << error << '\n';
      return 1;
    }
    written.push_back(path == "-" ? "standard output" : std::filesystem::absolute(path).string());
  }
  if (!options.quiet) {
    summary << "Wrote";
    for (std::size_t i = 0; i < written.size(); ++i) summary << (i == 0 ? " " : ", ") << written[i];
    summary << ".\nThe same search on a file of your own: " << DemoCommandLine(demo.overrides)
            << '\n';
  }
  return 0;
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
