#include "tools/qxpeak/run/batch.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <chrono>
#include <exception>
#include <filesystem>
#include <mutex>
#include <new>
#include <ostream>
#include <set>
#include <thread>

#include <unistd.h>

#include "qxpkutil/io/TraceReader.h"
#include "qxpkutil/platform/QXAtomicFile.h"
#include "tools/qxpeak/output/output_files.h"
#include "tools/qxpeak/output/printable.h"
#include "tools/qxpeak/output/peak_writers.h"
#include "tools/qxpeak/output/svg_plot.h"

namespace qxpkutil::qxpeak {

namespace {

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
      : m_err(err), m_enabled(enabled && ::isatty(STDERR_FILENO) == 1), m_inputs(inputs) {}

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

std::string OutputPath(const std::string& input, const std::string& format,
                       const std::string& output, const std::string& outDir) {
  if (!output.empty()) return output;
  const std::string stem = input == "-" ? "stdin" : std::filesystem::path(input).stem().string();
  return (std::filesystem::path(outDir.empty() ? "." : outDir) / (stem + Extension(format)))
      .lexically_normal()
      .string();
}

bool PlanJobs(const std::vector<std::string>& inputs, const std::vector<std::string>& formats,
              const std::string& output, const std::string& outDir,
              const std::vector<std::string>& protectedFiles, std::vector<Job>& jobs,
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
      for (const std::string& kept : protectedFiles) {
        if (SameFile(path, kept)) {
          error = "the output " + Printable(path) + " would overwrite " + Printable(kept) +
                  ", which this run reads; choose another output name";
          return false;
        }
      }
      if (path != "-" && !taken.insert(std::filesystem::weakly_canonical(path).string()).second) {
        error = "two inputs, or an input and an output, share the file name " + Printable(path) +
                "; rename one or search them in separate runs";
        return false;
      }
      job.outputs.emplace_back(format, path);
    }
    jobs.push_back(std::move(job));
  }
  return true;
}

OutputSet::~OutputSet() {
  m_mzml.reset();  // an unfinished writer removes its own temporary
  ForgetTemporaries(m_watched);
  for (Stream& s : m_streams) {
    if (s.file != nullptr && !s.toStdout) std::fclose(s.file);
  }
  // m_group removes the temporaries of an unfinished set.
}

bool OutputSet::Write(Stream& s, std::string_view text, std::string& error) {
  s.written += text.size();
  if (std::fwrite(text.data(), 1, text.size(), s.file) == text.size() &&
      (!s.writeBehind || WriteBehind(s.file, s.written, s.started))) {
    return true;
  }
  error = (s.toStdout ? std::string("standard output") : s.path) + ": write error";
  return false;
}

bool OutputSet::Open(const std::vector<std::pair<std::string, std::string>>& outputs,
                     const std::string& name, const std::string& settingsSummary,
                     bool withResolution, std::string& error) {
  m_name = name;
  m_settings = settingsSummary;
  m_withResolution = withResolution;
  for (const auto& [format, path] : outputs) {
    if (format == "svg" || format == "mzml") {
      std::string writePath;
      if (!m_group.Reserve(path, writePath, error)) return false;
      (format == "svg" ? m_svgPath : m_mzmlPath) = writePath;
      continue;
    }
    Stream s{format, path};
    s.toStdout = path == "-";
    s.file = m_group.Open(path, error);
    if (s.file == nullptr) return false;
    s.writeBehind = m_group.Replaces(path);
    m_streams.push_back(s);
    if (format == "tsv" && !Write(m_streams.back(), TsvHeader(withResolution), error)) return false;
    if (format == "json" && !Write(m_streams.back(), JsonHead(name), error)) return false;
  }
  return true;
}

std::vector<std::string> OutputSet::Rows(const Trace& trace, const TracePeaks& found) const {
  std::vector<std::string> rows(m_streams.size());
  if (!trace.selected) return rows;
  for (std::size_t i = 0; i < m_streams.size(); ++i) {
    const std::string& format = m_streams[i].format;
    if (format == "tsv") {
      AppendTsvRows(rows[i], trace, found, m_withResolution);
    } else if (format == "json") {
      rows[i] = JsonTrace(trace, found);
    } else {
      AppendDump(rows[i], trace, found);
    }
  }
  return rows;
}

bool OutputSet::Add(const Trace& trace, const TracePeaks& found,
                    const std::vector<std::string>& rows, const MzmlReader* mzml,
                    std::string& error) {
  if (!m_mzmlPath.empty()) {
    if (!m_mzml) {
      // Started with the first trace, once the reader has seen the list it comes from.
      m_mzml = std::make_unique<MzmlWriter>();
      MzmlWriteOptions options;
      options.software_version = QXPEAK_VERSION;
      options.settings = m_settings;
      options.source_name = m_name;
      // The writer keeps a temporary of its own beside ours: watched, so a signal removes it.
      const std::string dir = std::filesystem::path(m_mzmlPath).parent_path().string();
      const std::vector<std::string> before = TemporaryLookalikes(dir);
      const bool opened = mzml != nullptr
                              ? m_mzml->Open(m_mzmlPath, *mzml, options, error)
                              : m_mzml->Open(m_mzmlPath, trace.kind == Trace::Kind::kSpectrum,
                                             trace.kind == Trace::Kind::kChromatogram, options,
                                             error);
      m_watched = WatchNewTemporaries(dir, before);
      if (!opened) return false;
    }
    if (!m_mzml->Add(trace, found.peaks, error)) return false;
  }
  if (!trace.selected) return true;
  for (std::size_t i = 0; i < m_streams.size() && i < rows.size(); ++i) {
    Stream& s = m_streams[i];
    if (s.format == "json" && !Write(s, m_jsonTraces == 0 ? "\n" : ",\n", error)) return false;
    if (!Write(s, rows[i], error)) return false;
  }
  ++m_jsonTraces;
  if (!m_svgPath.empty()) {
    if (m_plotTraces.size() < PlotOptions{}.maxPanels) {
      m_plotTraces.push_back(trace);
      m_plotTraces.back().element.clear();
      m_plotPeaks.push_back(found);
    }
    ++m_plotTotal;
  }
  return true;
}

bool OutputSet::Finish(std::string& error) {
  for (Stream& s : m_streams) {
    if (s.format == "json" && !Write(s, kJsonTail, error)) return false;
    const bool ok = std::fflush(s.file) == 0 && std::ferror(s.file) == 0;
    const bool closed = s.toStdout || std::fclose(s.file) == 0;
    s.file = nullptr;
    if (!ok || !closed) {
      error = (s.toStdout ? std::string("standard output") : s.path) + ": write error";
      return false;
    }
  }
  if (!m_mzmlPath.empty()) {
    if (!m_mzml) {
      error = m_name + ": no trace to write as centroided mzML";
      return false;
    }
    const bool finished = m_mzml->Finish(error);
    ForgetTemporaries(m_watched);
    m_watched.clear();
    if (!finished) return false;
  }
  if (!m_svgPath.empty()) {
    PlotOptions plot;
    plot.totalTraces = m_plotTotal;
    const std::string svg = FormatSvg(m_name, m_plotTraces, m_plotPeaks, plot);
    std::FILE* f = m_svgPath == "-" ? stdout : std::fopen(m_svgPath.c_str(), "wb");
    const bool ok = f != nullptr && std::fwrite(svg.data(), 1, svg.size(), f) == svg.size();
    const bool closed = f != nullptr && (f == stdout ? std::fflush(f) == 0 : std::fclose(f) == 0);
    if (!ok || !closed) {
      error = m_name + ": cannot write the plot";
      return false;
    }
  }
  return m_group.Commit(error);
}

namespace {

// One trace on its way through the pipeline.
struct Item {
  MzmlReader::Element element;  // the text a thread turns into `trace`
  bool returned = true;         // false: outside the selection, nothing to write
  Trace trace;
  TracePeaks found;
  std::vector<std::string> rows;  // OutputSet::Rows
  std::exception_ptr failure;     // what the search threw, rethrown once the item's turn comes
  bool ready = false;             // searched and formatted; guarded by the pipeline's mutex
};

// Everything an item needs after reading: the search (or why there is none) and its rows.
// Points no output reads again go back to the allocator here, in the thread that decodes
// its next trace into them while they are still in its cache, not when the item's turn to
// be written comes (with -j N, several traces later and often in another thread).
void Complete(Item& item, const DetectionConfig& config, const OutputSet& out) {
  Trace& t = item.trace;
  if (t.selected && !t.problem.empty()) {
    item.found.skipped = t.problem;
  } else if (t.selected) {
    item.found = SearchTrace(t, config);
  }
  item.rows = out.Rows(t, item.found);
  if (!out.ReadsPoints()) {
    std::vector<double>().swap(t.x);
    std::vector<double>().swap(t.y);
  }
}

// One mzML input searched by several threads, the calling thread among them, with no thread
// of its own for reading: each thread cuts the next element out of the file (one at a time),
// parses, decodes, searches and formats it, and then writes whatever is ready at the front,
// in input order (one thread at a time). The element is still in the thread's cache when it
// is decoded, and no thread waits for a reading thread to get a core. At most `window`
// items are in flight.
class Pipeline {
 public:
  using Emit = std::function<bool(Item&)>;  // writes an item (if any); false stops the input

  Pipeline(MzmlReader& reader, const DetectionConfig& config, const OutputSet& out,
           const Emit& emit, std::size_t window)
      : m_reader(reader), m_config(config), m_out(out), m_emit(emit), m_window(window) {}

  // Runs the input to its end (or to the first failure) on `threads` threads. An exception
  // thrown while an item was searched or written is rethrown here, once every thread stopped.
  void Run(unsigned threads) {
    std::vector<std::thread> helpers;
    for (unsigned t = 1; t < threads; ++t) {
      try {
        helpers.emplace_back([this] { Work(); });
      } catch (...) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        Stop(std::current_exception());
        break;
      }
    }
    Work();
    for (std::thread& t : helpers) t.join();
    if (m_failure) std::rethrow_exception(m_failure);
  }

 private:
  void Work() {
    MzmlReader::Workspace workspace;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_room.wait(lock, [&] { return m_stop || m_readEnd || m_inflight.size() < m_window; });
      if (m_stop || m_readEnd) return;
      Item* item = nullptr;
      try {
        auto owned = std::make_unique<Item>();
        // The text of an element searched already is not looked at again.
        const auto busy = std::find_if(m_inflight.begin(), m_inflight.end(),
                                       [](const std::unique_ptr<Item>& i) { return !i->ready; });
        const MzmlReader::Element* oldest = busy == m_inflight.end() ? nullptr : &(*busy)->element;
        if (!m_reader.NextElement(owned->element, oldest)) {
          m_readEnd = true;  // the end, or a broken file: Error() says which
          m_room.notify_all();
          return;
        }
        m_inflight.push_back(std::move(owned));
        item = m_inflight.back().get();
      } catch (...) {
        Stop(std::current_exception());
        return;
      }
      lock.unlock();
      try {
        item->returned = m_reader.Interpret(item->element, workspace, item->trace);
        if (item->returned) Complete(*item, m_config, m_out);
      } catch (...) {
        item->failure = std::current_exception();
      }
      lock.lock();
      item->ready = true;
      if (!m_writing) WriteReady(lock);
    }
  }

  // Writes the items ready at the front, the lock let go meanwhile so that others go on
  // reading; whatever becomes ready while this thread writes is written by it too.
  void WriteReady(std::unique_lock<std::mutex>& lock) {
    m_writing = true;
    while (!m_stop && !m_inflight.empty() && m_inflight.front()->ready) {
      const std::unique_ptr<Item> front = std::move(m_inflight.front());
      m_inflight.pop_front();
      m_room.notify_one();
      lock.unlock();
      std::exception_ptr failure = front->failure;
      bool ok = false;
      if (!failure) {
        try {
          ok = m_emit(*front);
        } catch (...) {
          failure = std::current_exception();
        }
      }
      lock.lock();
      if (failure) Stop(failure);
      if (!ok) m_stop = true;
    }
    m_writing = false;
    if (m_stop) m_room.notify_all();
  }

  void Stop(std::exception_ptr failure) {  // called with the lock held
    if (!m_failure) m_failure = failure;
    m_stop = true;
    m_room.notify_all();
  }

  MzmlReader& m_reader;
  const DetectionConfig& m_config;
  const OutputSet& m_out;
  const Emit m_emit;
  const std::size_t m_window;
  std::mutex m_mutex;  // guards what follows, and the reader's NextElement
  std::condition_variable m_room;
  std::deque<std::unique_ptr<Item>> m_inflight;  // read, in input order, not yet written
  bool m_writing = false;                        // a thread is writing the front
  bool m_readEnd = false;                        // the reader has nothing more
  bool m_stop = false;                           // a failure: nothing more is written
  std::exception_ptr m_failure;
};

}  // namespace

InputResult RunInput(const Job& job, const BatchContext& context, unsigned workers,
                     const std::function<void(const std::string&)>& message,
                     const std::function<void()>& traceDone) {
  InputResult result;
  const std::string name = job.input == "-" ? "standard input" : Printable(job.input);
  OutputSet out;
  if (!out.Open(job.outputs, name, context.settingsSummary,
                context.config.resolutionPercent.has_value(), result.error)) {
    return result;
  }
  TraceReader reader;
  MzmlReadOptions read;
  read.selection = context.selection;
  read.keep_elements = out.WantsWholeMzml();
  read.map_file = true;  // main() handles SIGBUS, should the file be cut short meanwhile
  if (!reader.Open(job.input, read, result.error)) return result;
  const MzmlReader* mzml = reader.IsMzml() ? &reader.Mzml() : nullptr;

  bool failed = false;
  // Writes one item: its messages, its rows; in input order, one item at a time. False when
  // the file is damaged there or an output cannot be written (result.error says which).
  const auto emit = [&](Item& item) {
    if (!item.element.broken.empty()) {
      result.error = Printable(item.element.broken);
      failed = true;
      return false;
    }
    if (!item.returned) return true;
    const Trace& t = item.trace;
    // A text file's note names the file already; an mzML note names the trace.
    if (!t.note.empty()) message((mzml != nullptr ? name + ": " : "") + Printable(t.note));
    if (t.selected && !t.problem.empty()) {
      message(name + ": skipped " + Printable(t.problem));
    } else if (!item.found.skipped.empty()) {
      message(name + ": " + TraceName(t) + " skipped: " + Printable(item.found.skipped));
    }
    if (t.selected) {
      ++result.traces;
      result.peaks += item.found.peaks.size();
      result.skipped += item.found.skipped.empty() ? 0 : 1;
    }
    failed = !out.Add(t, item.found, item.rows, mzml, result.error);
    if (t.selected && traceDone) traceDone();
    return !failed;
  };

  if (workers <= 1 || mzml == nullptr) {
    // One thread, or a text file (one trace): read, search and write in turn.
    for (Item item; reader.Next(item.trace); item = Item()) {
      Complete(item, context.config, out);
      if (!emit(item)) break;
    }
  } else {
    const std::size_t window = 2 * static_cast<std::size_t>(workers) + 2;
    Pipeline(reader.Mzml(), context.config, out, emit, window).Run(workers);
  }
  if (failed) return result;
  if (!reader.Error().empty()) {
    result.error = Printable(reader.Error());
    return result;
  }
  if (result.traces == 0) {
    if (mzml == nullptr) {
      result.error = name + ": holds no trace";
    } else if (mzml->ListSize() == 0) {
      result.error = name + ": holds no spectrum or chromatogram";
    } else {
      result.error = name + ": none of its " + std::to_string(mzml->ListSize()) + " " +
                     mzml->ListElement() + " elements matches the selection";
    }
    return result;
  }
  result.ok = out.Finish(result.error);
  return result;
}

BatchSummary RunBatch(const std::vector<Job>& jobs, const BatchContext& context, unsigned threads,
                      std::ostream& err, bool quiet) {
  BatchSummary summary;
  summary.inputs = jobs.size();
  Progress bar(err, !quiet, jobs.size());
  std::mutex mutex;  // guards `summary`
  // Many inputs share the workers out one input each; a single input gets them all.
  const std::size_t outer = std::min<std::size_t>(std::max(threads, 1u), jobs.size());
  const unsigned inner =
      static_cast<unsigned>(std::max<std::size_t>(1, threads / std::max<std::size_t>(outer, 1)));
  ParallelFor(jobs.size(), static_cast<unsigned>(outer), [&](std::size_t j) {
    const Job& job = jobs[j];
    const std::string name = job.input == "-" ? "standard input" : Printable(job.input);
    InputResult r;
    try {
      r = RunInput(
          job, context, inner, [&bar](const std::string& line) { bar.Message("qxpeak: " + line); },
          [&bar] { bar.TraceDone(); });
    } catch (const std::bad_alloc&) {
      r = InputResult();
      r.error = name + ": not enough memory to search it";
    }
    if (!r.ok) {
      bar.Message("qxpeak: " + Printable(r.error));
    } else if (!quiet) {
      std::string line = name + ": " + std::to_string(r.traces) +
                         (r.traces == 1 ? " trace, " : " traces, ") + std::to_string(r.peaks) +
                         (r.peaks == 1 ? " peak" : " peaks");
      if (r.skipped > 0) line += ", " + std::to_string(r.skipped) + " skipped";
      const char* separator = " -> ";
      for (const auto& output : job.outputs) {
        line += separator +
                (output.second == "-" ? std::string("standard output") : Printable(output.second));
        separator = ", ";
      }
      bar.Message(line);
      const bool plotted = std::any_of(job.outputs.begin(), job.outputs.end(),
                                       [](const auto& o) { return o.first == "svg"; });
      if (plotted && r.traces > PlotOptions{}.maxPanels) {
        bar.Message("qxpeak: " + name + ": the plot shows the first " +
                    std::to_string(PlotOptions{}.maxPanels) + " of " + std::to_string(r.traces) +
                    " traces");
      }
    }
    bar.InputDone();
    const std::lock_guard<std::mutex> lock(mutex);
    summary.failed += r.ok ? 0 : 1;
    summary.traces += r.traces;
    summary.peaks += r.peaks;
    summary.skipped += r.skipped;
  });
  bar.Finish();
  return summary;
}

std::string TraceName(const Trace& trace) {
  std::string name = trace.kind == Trace::Kind::kChromatogram ? "chromatogram " : "spectrum ";
  name += std::to_string(trace.index);
  if (!trace.id.empty()) name += " (" + Printable(trace.id) + ")";
  return name;
}

}  // namespace qxpkutil::qxpeak
