// Reading a one-million-point profile spectrum from mzML (64-bit, plain and zlib) and from
// text, and reading plus searching it with the library's default detection.
#include "qxpkutil/io/MzmlReader.h"

#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/io/TextReader.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr std::size_t kPoints = 1000000;

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
    MzmlRun run;
    std::string error;
    if (!run.Parse(std::vector<char>(text.begin(), text.end()), "bench", {}, error)) {
      state.SkipWithError(error.c_str());
    }
    benchmark::DoNotOptimize(run.Traces().data());
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
    MzmlRun run;
    std::string error;
    if (!run.Read(path, {}, error)) state.SkipWithError(error.c_str());
    const PeakList found = DetectPeaks(run.Traces()[0].x, run.Traces()[0].y);
    peaks = found.peaks.size();
  }
  state.counters["peaks"] = static_cast<double>(peaks);
}
BENCHMARK(BM_ReadAndSearch)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
