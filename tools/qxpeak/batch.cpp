#include "tools/qxpeak/batch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <ostream>
#include <set>
#include <thread>

#include <unistd.h>

#include "qxpkutil/io/MzmlWriter.h"
#include "qxpkutil/io/TextReader.h"
#include "tools/qxpeak/file_io.h"
#include "tools/qxpeak/options.h"
#include "tools/qxpeak/peak_writers.h"
#include "tools/qxpeak/svg_plot.h"

namespace qxpkutil::qxpeak {

namespace {

bool LooksLikeXml(const std::vector<char>& bytes) {
  std::size_t i = 0;
  if (bytes.size() >= 3 && bytes[0] == '\xEF' && bytes[1] == '\xBB' && bytes[2] == '\xBF') i = 3;
  while (i < bytes.size() &&
         (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\r' || bytes[i] == '\n')) {
    ++i;
  }
  return i < bytes.size() && bytes[i] == '<';
}

std::string Extension(const std::string& format) {
  if (format == "tsv") return ".peaks.tsv";
  if (format == "json") return ".peaks.json";
  if (format == "dump") return ".peaks.txt";
  if (format == "mzml") return ".centroided.mzML";
  return ".svg";
}

// A line on standard error that a terminal overwrites in place, at most a few times a second
// and only once a run has taken longer than a second.
class Progress {
 public:
  Progress(std::ostream& err, bool enabled, std::size_t inputs)
      : m_err(err), m_enabled(enabled && ::isatty(STDERR_FILENO)), m_inputs(inputs) {}

  void InputDone() {
    ++m_inputsDone;
    Show();
  }
  void TraceDone() {
    ++m_tracesDone;
    Show();
  }
  // Writes a line of its own, clearing the progress line first.
  void Message(const std::string& line) {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shown) m_err << "\r\033[K";
    m_shown = false;
    m_err << line << '\n' << std::flush;
  }
  void Finish() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_shown) m_err << "\r\033[K" << std::flush;
  }

 private:
  void Show() {
    if (!m_enabled) return;
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (now - m_start < std::chrono::seconds(1) || now - m_last < std::chrono::milliseconds(200)) {
      return;
    }
    m_last = now;
    m_shown = true;
    m_err << "\rqxpeak: " << m_inputsDone.load() << "/" << m_inputs << " inputs, "
          << m_tracesDone.load() << " traces searched\033[K" << std::flush;
  }

  std::ostream& m_err;
  const bool m_enabled;
  const std::size_t m_inputs;
  std::atomic<std::size_t> m_inputsDone{0};
  std::atomic<std::size_t> m_tracesDone{0};
  const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
  std::chrono::steady_clock::time_point m_last{};
  bool m_shown = false;
  std::mutex m_mutex;
};

// What the centroided-mzML writer needs of each trace's peaks: apex and, when measured, the
// centroid.
std::vector<std::vector<Peak>> CentroidsOf(const std::vector<TracePeaks>& peaks) {
  std::vector<std::vector<Peak>> out(peaks.size());
  for (std::size_t t = 0; t < peaks.size(); ++t) {
    const QXPeakTable& table = peaks[t].table;
    out[t].resize(static_cast<std::size_t>(table.GetNumPeaks()));
    for (std::size_t i = 0; i < out[t].size(); ++i) {
      const QXPeakTableElement* e = table.GetPeak(static_cast<long>(i));
      out[t][i].apex_x = e->m_dApexX;
      out[t][i].apex_y = e->m_dApexY;
      if (peaks[t].centroids) out[t][i].centroid_x = e->m_dCentroidX;
    }
  }
  return out;
}

}  // namespace

void ParallelFor(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& fn) {
  std::atomic<std::size_t> next{0};
  std::exception_ptr failure;
  std::mutex failureMutex;
  const auto work = [&] {
    for (std::size_t i = next++; i < count; i = next++) {
      try {
        fn(i);
      } catch (...) {
        const std::lock_guard<std::mutex> lock(failureMutex);
        if (!failure) failure = std::current_exception();
        next = count;  // stop handing out work
      }
    }
  };
  const std::size_t helpers = std::min<std::size_t>(std::max(threads, 1u), count) - (count > 0);
  std::vector<std::thread> pool;
  pool.reserve(helpers);
  for (std::size_t t = 0; t < helpers; ++t) pool.emplace_back(work);
  work();
  for (std::thread& t : pool) t.join();
  if (failure) std::rethrow_exception(failure);
}

bool LoadInput(const std::string& path, const MzmlSelection& selection, LoadedInput& input,
               std::string& error) {
  std::vector<char> bytes;
  if (!ReadWholeFile(path, kMaxInputBytes, bytes, error)) return false;
  const std::string name = path == "-" ? "standard input" : path;
  if (LooksLikeXml(bytes)) {
    input.mzml = std::make_unique<MzmlRun>();
    if (!input.mzml->Parse(std::move(bytes), name, selection, error)) return false;
    const MzmlRun& run = *input.mzml;
    if (run.Traces().empty()) {
      error = run.ListSize() == 0 ? name + ": holds no spectrum or chromatogram"
                                  : name + ": none of its " + std::to_string(run.ListSize()) + " " +
                                        run.ListElement() + " elements matches the selection";
      return false;
    }
    return true;
  }
  input.mzml.reset();
  input.text.assign(1, Trace{});
  return ParseTextSignal(std::string_view(bytes.data(), bytes.size()), name, input.text[0], error);
}

std::string OutputPath(const std::string& input, const std::string& format,
                       const std::string& output, const std::string& outDir) {
  if (!output.empty()) return output;
  const std::string stem = input == "-" ? "stdin" : std::filesystem::path(input).stem().string();
  return (std::filesystem::path(outDir.empty() ? "." : outDir) / (stem + Extension(format)))
      .lexically_normal()
      .string();
}

bool PlanJobs(const std::vector<std::string>& inputs, const std::vector<std::string>& formats,
              const std::string& output, const std::string& outDir, std::vector<Job>& jobs,
              std::string& error) {
  std::set<std::string> taken;
  for (const std::string& in : inputs) {
    if (in != "-") taken.insert(std::filesystem::weakly_canonical(in).string());
  }
  jobs.clear();
  for (const std::string& in : inputs) {
    Job job{in, {}};
    for (const std::string& format : formats) {
      const std::string path = OutputPath(in, format, output, outDir);
      if (path != "-" && !taken.insert(std::filesystem::weakly_canonical(path).string()).second) {
        error = "two inputs, or an input and an output, share the file name " + path +
                "; rename one or search them in separate runs";
        return false;
      }
      job.outputs.emplace_back(format, path);
    }
    jobs.push_back(std::move(job));
  }
  return true;
}

std::vector<TracePeaks> SearchTraces(const std::vector<Trace>& traces,
                                     const DetectionConfig& config, unsigned threads,
                                     const std::function<void()>& traceDone) {
  std::vector<TracePeaks> peaks(traces.size());
  ParallelFor(traces.size(), threads, [&](std::size_t i) {
    peaks[i] = DetectPeaks(traces[i], config);
    if (traceDone) traceDone();
  });
  return peaks;
}

bool FormatOutput(const std::string& format, const std::string& name, LoadedInput& input,
                  const std::vector<TracePeaks>& peaks, const std::string& settingsSummary,
                  std::string& text, std::string& error) {
  const std::vector<Trace>& traces = input.Traces();
  if (format == "tsv") {
    text = FormatTsv(traces, peaks);
  } else if (format == "json") {
    text = FormatJson(name, traces, peaks);
  } else if (format == "dump") {
    text = FormatDump(peaks);
  } else if (format == "svg") {
    text = FormatSvg(name, traces, peaks);
  } else {
    const ProcessingRecord record{kVersion, settingsSummary};
    const std::vector<std::vector<Peak>> centroids = CentroidsOf(peaks);
    return input.mzml ? FormatCentroidedMzml(*input.mzml, centroids, record, text, error)
                      : FormatCentroidedMzml(name, traces, centroids, record, text, error);
  }
  return true;
}

BatchSummary RunBatch(const std::vector<Job>& jobs, const BatchContext& context, unsigned threads,
                      std::ostream& err, bool quiet) {
  BatchSummary summary;
  summary.inputs = jobs.size();
  Progress bar(err, !quiet, jobs.size());
  std::mutex mutex;  // guards `summary`
  // Many inputs share the workers out one input each; a single input shares its traces.
  const std::size_t outer = std::min<std::size_t>(std::max(threads, 1u), jobs.size());
  const unsigned inner =
      static_cast<unsigned>(std::max<std::size_t>(1, threads / std::max<std::size_t>(outer, 1)));
  ParallelFor(jobs.size(), static_cast<unsigned>(outer), [&](std::size_t j) {
    const Job& job = jobs[j];
    const std::string name = job.input == "-" ? "standard input" : job.input;
    std::string error;
    std::size_t traces = 0, found = 0;
    bool ok = false;
    try {
      LoadedInput input;
      ok = LoadInput(job.input, context.selection, input, error);
      if (ok) {
        const std::vector<TracePeaks> peaks =
            SearchTraces(input.Traces(), context.config, inner, [&bar] { bar.TraceDone(); });
        traces = peaks.size();
        for (const TracePeaks& p : peaks) found += static_cast<std::size_t>(p.table.GetNumPeaks());
        for (const auto& [format, path] : job.outputs) {
          std::string text;
          ok = FormatOutput(format, name, input, peaks, context.settingsSummary, text, error) &&
               WriteOutput(path, text, error);
          if (!ok) break;
        }
      }
    } catch (const std::bad_alloc&) {
      ok = false;
      error = name + ": not enough memory to search it";
    }
    if (!ok) {
      bar.Message("qxpeak: " + error);
    } else if (!quiet) {
      std::string line = name + ": " + std::to_string(traces) +
                         (traces == 1 ? " trace, " : " traces, ") + std::to_string(found) +
                         (found == 1 ? " peak" : " peaks");
      const char* separator = " -> ";
      for (const auto& output : job.outputs) {
        line += separator + (output.second == "-" ? std::string("standard output") : output.second);
        separator = ", ";
      }
      bar.Message(line);
    }
    bar.InputDone();
    const std::lock_guard<std::mutex> lock(mutex);
    summary.failed += ok ? 0 : 1;
    summary.traces += traces;
    summary.peaks += found;
  });
  bar.Finish();
  return summary;
}

}  // namespace qxpkutil::qxpeak
