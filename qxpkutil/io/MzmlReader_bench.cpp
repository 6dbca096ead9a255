// Reading a one-million-point profile spectrum from mzML (64-bit, plain and zlib) and from
// text, and reading plus searching it with the library's default detection; and streaming a
// 200-spectrum run of about 210 MB, whose peak memory (peak_rss_MiB, the process's highest
// resident size so far; this benchmark runs first) should stay near a few spectra, far
// below 64 MiB.
#include "qxpkutil/io/MzmlReader.h"

#include <fstream>
#include <string>
#include <vector>

#include <sys/resource.h>

#include <benchmark/benchmark.h>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/io/TextReader.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr std::size_t kPoints = 1000000;

// A run of 200 spectra x 50,000 points (64-bit, uncompressed) written to a temporary file
// element by element, so that building it never holds the whole run in memory.
std::string RunOnDisk() {
  static const std::string path = [] {
    const auto s = qxpkutil::testing::MakeSignal(50000, 400.0, 0.02, {{700.0, 5000.0, 0.05}},
                                                 {.baseline = 20.0, .noiseSigma = 2.0});
    testing::FixtureSpectrum f;
    f.x = s.x;
    f.y = s.y;
    const std::string one = testing::MakeMzml({f});
    const std::size_t begin = one.find("<spectrum "), end = one.find("</spectrumList>");
    const std::string head = one.substr(0, begin), element = one.substr(begin, end - begin);
    const std::string file = testing::WriteTempFile("run200.mzML", "");
    std::ofstream out(file, std::ios::binary);
    out << head;
    for (int i = 0; i < 200; ++i) {
      std::string e = element;
      e.replace(e.find("scan=1"), 6, "scan=" + std::to_string(i + 1));
      out << e;
    }
    out << one.substr(end);
    return file;
  }();
  return path;
}

void BM_StreamRun(benchmark::State& state) {
  const std::string path = RunOnDisk();
  std::size_t traces = 0;
  for (auto _ : state) {
    MzmlReader reader;
    std::string error;
    if (!reader.Open(path, {}, error)) state.SkipWithError(error.c_str());
    traces = 0;
    for (Trace t; reader.Next(t);) traces += t.problem.empty() ? 1 : 0;
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  state.counters["traces"] = static_cast<double>(traces);
  state.counters["peak_rss_MiB"] = static_cast<double>(usage.ru_maxrss) / 1024.0;
}
BENCHMARK(BM_StreamRun)->Unit(benchmark::kMillisecond)->Iterations(2);

// A peak every 2 m/z over 400 to 1400, on a noisy baseline.
testing::FixtureSpectrum MillionPoints(bool zlib) {
  std::vector<qxpkutil::testing::GaussPeak> peaks;
  for (double mz = 401.0; mz < 1400.0; mz += 2.0) peaks.push_back({mz, 1000.0 + mz, 0.01});
  const auto s = qxpkutil::testing::MakeSignal(kPoints, 400.0, 0.001, peaks,
                                               {.baseline = 50.0, .noiseSigma = 3.0});
  testing::FixtureSpectrum f;
  f.x = s.x;
  f.y = s.y;
  f.zlib = zlib;
  return f;
}

void BM_ParseMzml(benchmark::State& state) {
  const std::string text = testing::MakeMzml({MillionPoints(state.range(0) != 0)});
  for (auto _ : state) {
    MzmlReader reader;
    std::string error;
    if (!reader.OpenText(text, "bench", {}, error)) state.SkipWithError(error.c_str());
    Trace trace;
    while (reader.Next(trace)) benchmark::DoNotOptimize(trace.x.data());
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
  state.SetLabel(state.range(0) != 0 ? "zlib" : "plain");
}
BENCHMARK(BM_ParseMzml)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

void BM_ParseText(benchmark::State& state) {
  const testing::FixtureSpectrum f = MillionPoints(false);
  std::string text;
  for (std::size_t i = 0; i < f.x.size(); ++i) {
    text += std::to_string(f.x[i]) + '\t' + std::to_string(f.y[i]) + '\n';
  }
  for (auto _ : state) {
    Trace trace;
    std::string error;
    benchmark::DoNotOptimize(ParseTextSignal(text, "bench", trace, error));
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}
BENCHMARK(BM_ParseText)->Unit(benchmark::kMillisecond);

// What a user waits for: the file read, decoded and searched (peak table in memory).
void BM_ReadAndSearch(benchmark::State& state) {
  const std::string path =
      testing::WriteTempFile("bench.mzML", testing::MakeMzml({MillionPoints(true)}));
  std::size_t peaks = 0;
  for (auto _ : state) {
    std::vector<Trace> traces;
    std::string error;
    if (!ReadMzml(path, {}, traces, error)) state.SkipWithError(error.c_str());
    const PeakList found = DetectPeaks(traces[0].x, traces[0].y);
    peaks = found.peaks.size();
  }
  state.counters["peaks"] = static_cast<double>(peaks);
}
BENCHMARK(BM_ReadAndSearch)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
