// Searching inputs in bulk: reads each input (mzML or text, told apart by content), runs the
// detection step on every selected trace with worker threads, and writes each requested
// output in one step. Several inputs are shared out among the workers; the traces of a single
// input (every spectrum of a run) are shared out instead. A progress line on standard error
// keeps a person informed during long runs.
//
//   BatchContext context{config, selection, "settings text"};
//   std::vector<Job> jobs;  std::string error;
//   if (PlanJobs(options.inputs, {"tsv"}, "", "out", jobs, error))
//     BatchSummary s = RunBatch(jobs, context, 4, std::cerr, /*quiet=*/false);
#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/Trace.h"
#include "tools/qxpeak/detection.h"

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
};

// An input read into memory: the mzML run it came from, or traces read from text.
struct LoadedInput {
  std::unique_ptr<MzmlRun> mzml;  // null for text input
  std::vector<Trace> text;
  std::vector<Trace>& Traces() { return mzml ? mzml->Traces() : text; }
};

// Reads `path` ("-" is standard input): mzML when its first character (after blanks and a
// byte order mark) is '<', else two-column text. False with one line in `error` when the
// input cannot be read, is malformed, or has no trace that `selection` accepts.
[[nodiscard]] bool LoadInput(const std::string& path, const MzmlSelection& selection,
                             LoadedInput& input, std::string& error);

// The output file of `format` for `input`: `output` when given, else NAME.peaks.tsv,
// NAME.peaks.json, NAME.peaks.txt, NAME.centroided.mzML or NAME.svg in `outDir` (the
// current folder when empty), NAME being the input's file name without its extension
// ("stdin" for "-").
std::string OutputPath(const std::string& input, const std::string& format,
                       const std::string& output, const std::string& outDir);

// Jobs for `inputs` with one output per format. False with a message when two outputs would
// land on the same file or an output would overwrite an input.
[[nodiscard]] bool PlanJobs(const std::vector<std::string>& inputs,
                            const std::vector<std::string>& formats, const std::string& output,
                            const std::string& outDir, std::vector<Job>& jobs, std::string& error);

// Searches `traces` with up to `threads` workers; the result is parallel to `traces`.
// `traceDone`, when set, is called (from any worker) after each trace.
std::vector<TracePeaks> SearchTraces(const std::vector<Trace>& traces,
                                     const DetectionConfig& config, unsigned threads,
                                     const std::function<void()>& traceDone = {});

// The text of output `format` ("tsv", "json", "dump", "mzml" or "svg") for `input`, named
// `name` in the output. Formatting centroided mzML changes the input's document. False with
// a message when the output cannot be made.
[[nodiscard]] bool FormatOutput(const std::string& format, const std::string& name,
                                LoadedInput& input, const std::vector<TracePeaks>& peaks,
                                const std::string& settingsSummary, std::string& text,
                                std::string& error);

// Runs every job: reads, searches, writes. One line per input goes to `err`: what failed, or
// (unless `quiet`) what was found and written; unless `quiet`, a progress line is shown on
// a terminal for runs over a second. Inputs are independent: one failing stops no other.
BatchSummary RunBatch(const std::vector<Job>& jobs, const BatchContext& context, unsigned threads,
                      std::ostream& err, bool quiet);

// Calls fn(i) for i in 0..count-1 on up to `threads` threads (the caller's among them).
// An exception thrown by fn is rethrown here once all threads have stopped.
void ParallelFor(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& fn);

}  // namespace qxpkutil::qxpeak
