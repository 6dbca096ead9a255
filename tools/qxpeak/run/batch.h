// Searching inputs in bulk. Each input is streamed: with -j N, N threads (the calling one
// among them) each cut the next mzML element out of the file in turn, parse and decode it,
// search the trace and format its rows, and write the rows that are ready in input order.
// At most a few traces are in flight, so memory is bounded by a few spectra, not the file.
// Several inputs share the threads out one input each. One line per input (and one per
// skipped trace) goes to standard error; a terminal also gets a progress line.
//
//   BatchContext context;  context.config = config;
//   std::vector<Job> jobs;  std::string error;
//   if (PlanJobs(options.inputs, {"tsv"}, "", "out", {}, jobs, error))
//     BatchSummary s = RunBatch(jobs, context, 4, std::cerr, /*quiet=*/false);
#pragma once

#include <cstddef>
#include <cstdio>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/MzmlWriter.h"
#include "qxpkutil/io/Trace.h"
#include "tools/qxpeak/output/output_files.h"
#include "tools/qxpeak/output/svg_plot.h"
#include "tools/qxpeak/run/detection.h"

namespace qxpkutil::qxpeak {

// One input and the files its outputs go to.
struct Job {
  std::string input;                                         // a path, or "-"
  std::vector<std::pair<std::string, std::string>> outputs;  // (format, path or "-")
};

// What every search of a batch shares; read only while the workers run.
struct BatchContext {
  DetectionConfig config;
  MzmlSelection selection;
  std::string settingsSummary;  // recorded in centroided mzML
};

struct BatchSummary {
  std::size_t inputs = 0;
  std::size_t failed = 0;
  std::size_t traces = 0;
  std::size_t peaks = 0;
  std::size_t skipped = 0;  // traces that could not be searched
};

// The output file of `format` for `input`: `output` when given, else NAME.peaks.tsv,
// NAME.peaks.json, NAME.peaks.txt, NAME.centroided.mzML or NAME.svg in `outDir` (the
// current folder when empty), NAME being the input's file name without its extension
// ("stdin" for "-").
std::string OutputPath(const std::string& input, const std::string& format,
                       const std::string& output, const std::string& outDir);

// Jobs for `inputs` with one output per format. False with a message when two outputs would
// land on the same file, or an output would overwrite an input or one of `protectedFiles`
// (the settings and label files the run reads).
[[nodiscard]] bool PlanJobs(const std::vector<std::string>& inputs,
                            const std::vector<std::string>& formats, const std::string& output,
                            const std::string& outDir,
                            const std::vector<std::string>& protectedFiles,
                            std::vector<Job>& jobs, std::string& error);

// "spectrum 3 (scan=12)": how messages name a trace, with its id made printable.
std::string TraceName(const Trace& trace);

// The outputs of one input, written as its traces arrive in input order: TSV, JSON and dump
// rows go straight to their files, the plot keeps the first traces it shows, centroided mzML
// is streamed by the library's writer. Every file goes to a temporary; Finish puts them all
// in place together, and an OutputSet destroyed before Finish leaves the old files alone.
class OutputSet {
 public:
  OutputSet() = default;
  ~OutputSet();
  OutputSet(const OutputSet&) = delete;
  OutputSet& operator=(const OutputSet&) = delete;

  // `outputs` as (format, path); `name` names the input inside the outputs; `withResolution`
  // adds the resolution column. False with a message when a file cannot be started.
  [[nodiscard]] bool Open(const std::vector<std::pair<std::string, std::string>>& outputs,
                          const std::string& name, const std::string& settingsSummary,
                          bool withResolution, std::string& error);
  // The text each row output (TSV, JSON, dump) gets for a trace, in the order of the
  // outputs; reads only what Open set, so worker threads may format while another writes.
  std::vector<std::string> Rows(const Trace& trace, const TracePeaks& found) const;
  // Every trace the reader returned, in order (for mzML kept whole, the unselected ones
  // too), with its Rows; `mzml` is the reader of an mzML input (null for text), needed by
  // the first call.
  [[nodiscard]] bool Add(const Trace& trace, const TracePeaks& found,
                         const std::vector<std::string>& rows, const MzmlReader* mzml,
                         std::string& error);
  [[nodiscard]] bool Finish(std::string& error);
  bool WantsWholeMzml() const { return !m_mzmlPath.empty(); }
  // Whether Add reads a trace's points (centroided mzML and the plot do; rows do not).
  bool ReadsPoints() const { return !m_mzmlPath.empty() || !m_svgPath.empty(); }

 private:
  struct Stream {
    std::string format, path;
    std::FILE* file = nullptr;
    bool toStdout = false;
    // It replaces a file: written out as it grows (WriteBehind). A new file is
    // left to the system's own write-out.
    bool writeBehind = false;
    std::size_t written = 0, started = 0;
  };
  bool Write(Stream& s, std::string_view text, std::string& error);

  OutputGroup m_group;
  std::vector<Stream> m_streams;  // tsv, json, dump
  std::string m_name, m_settings;
  bool m_withResolution = false;
  std::size_t m_jsonTraces = 0;
  // The plot: the first traces it shows, and how many there were.
  std::string m_svgPath;
  std::vector<Trace> m_plotTraces;
  std::vector<TracePeaks> m_plotPeaks;
  std::size_t m_plotTotal = 0;
  // Centroided mzML.
  std::string m_mzmlPath;
  std::unique_ptr<MzmlWriter> m_mzml;
  std::vector<std::size_t> m_watched;  // the writer's own temporary, for signal cleanup
};

// What one input gave.
struct InputResult {
  bool ok = false;
  std::string error;
  std::size_t traces = 0, peaks = 0, skipped = 0;
};

// Reads, searches and writes one input with `workers` threads (1: all in the calling thread).
// `message` gets each line for standard error (notes and skipped traces), `traceDone` is
// called after each trace is written; both in input order, one call at a time, from
// whichever of the threads writes.
InputResult RunInput(const Job& job, const BatchContext& context, unsigned workers,
                     const std::function<void(const std::string&)>& message,
                     const std::function<void()>& traceDone = {});

// Runs every job. One line per input goes to `err`: what failed, or (unless `quiet`) what
// was found and written; one line per trace that was skipped, naming it and why. Unless
// `quiet`, a progress line is also shown on a terminal for runs over a second. Inputs are
// independent: one failing stops no other.
BatchSummary RunBatch(const std::vector<Job>& jobs, const BatchContext& context, unsigned threads,
                      std::ostream& err, bool quiet);

// Calls fn(i) for i in 0..count-1 on up to `threads` threads (the caller's among them).
// An exception thrown by fn is rethrown here once all threads have stopped.
void ParallelFor(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& fn);

}  // namespace qxpkutil::qxpeak
