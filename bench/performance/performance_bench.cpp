// The speed figures of the library on the TOF-like profile spectrum (bench/performance/
// tof_profile.h): the classic detection driver with one segment, the Gaussian filter and mass
// processing, with the automatic noise threshold off and on, at one and ten million points;
// the automatic mode with its default options; and one pass over the data as the floor.
//
//   qxpkutil_performance --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//   qxpkutil_performance --write-spectrum=spectrum.bin   # n, then x and y as doubles
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <numeric>
#include <span>

#include "bench/performance/tof_profile.h"
#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil::bench {
namespace {

const Spectrum& SpectrumOf(std::int64_t points) {
  static std::map<std::int64_t, Spectrum> made;
  auto found = made.find(points);
  if (found == made.end()) {
    found = made.emplace(points, MakeTofSpectrum(static_cast<std::uint32_t>(points))).first;
  }
  return found->second;
}

// One whole-range segment with the default settings but a seven-point Gaussian window.
QXPeakTableList ClassicList(bool autoNoise, double pctPeakArea) {
  QXPeakTableList list;
  list.AddDetectionSetting(-1);
  QXPeakDetectSetting s;
  list.GetDetectionSetting(0, s);
  s.SetFilterType(0);
  s.SetFilterWidth(7);
  s.SetPctPeakArea(pctPeakArea);
  list.SetDetectionSetting(0, s);
  list.SetMassProcessing(1);
  list.SetAutoSNCalcOn(autoNoise ? 1 : 0);
  list.AddPeakTableToList();
  return list;
}

// Arguments: points, automatic noise (0/1), area percentage of the segment.
void BM_ClassicDriver(benchmark::State& state) {
  const Spectrum& s = SpectrumOf(state.range(0));
  QXPeakTableList list = ClassicList(state.range(1) != 0, static_cast<double>(state.range(2)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(list.FindPeaks(s.x.data(), s.y.data(), s.size(), s.yMax, 1.0, 0));
  }
  state.counters["peaks"] = list.GetNumPeaksFromList(0);
  // Seconds per point (printed with an SI prefix: 25n is 25 ns).
  state.counters["per_point"] = benchmark::Counter(
      static_cast<double>(s.size()),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ClassicDriver)
    ->ArgNames({"points", "noise", "pct"})
    ->Args({1'000'000, 0, 1})
    ->Args({1'000'000, 1, 1})
    ->Args({1'000'000, 0, 0})
    ->Args({10'000'000, 0, 1})
    ->Args({10'000'000, 1, 1})
    ->Unit(benchmark::kMillisecond);

void BM_AutomaticMode(benchmark::State& state) {
  const Spectrum& s = SpectrumOf(state.range(0));
  std::size_t found = 0;
  for (auto _ : state) {
    const PeakList peaks = DetectPeaks(std::span<const double>(s.x), std::span<const double>(s.y));
    found = peaks.peaks.size();
    benchmark::DoNotOptimize(found);
  }
  state.counters["peaks"] = static_cast<double>(found);
}
BENCHMARK(BM_AutomaticMode)->ArgName("points")->Arg(1'000'000)->Unit(benchmark::kMillisecond);

// The floor: one pass that reads every intensity.
void BM_StreamOnce(benchmark::State& state) {
  const Spectrum& s = SpectrumOf(state.range(0));
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::accumulate(s.y.begin(), s.y.end(), 0.0));
  }
}
BENCHMARK(BM_StreamOnce)->ArgName("points")->Arg(1'000'000)->Unit(benchmark::kMillisecond);

// Writes the point count (uint32) then x and y (doubles, this machine's byte order).
int WriteSpectrum(const char* path, std::uint32_t points) {
  const Spectrum& s = SpectrumOf(points);
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return 1;
  const std::uint32_t n = s.size();
  bool ok = std::fwrite(&n, sizeof n, 1, f) == 1 && std::fwrite(s.x.data(), 8, n, f) == n &&
            std::fwrite(s.y.data(), 8, n, f) == n;
  ok = std::fclose(f) == 0 && ok;
  return ok ? 0 : 1;
}

}  // namespace
}  // namespace qxpkutil::bench

int main(int argc, char** argv) {
  constexpr const char kWrite[] = "--write-spectrum=";
  for (int i = 1; i < argc; ++i) {
    if (std::strncmp(argv[i], kWrite, sizeof kWrite - 1) == 0) {
      return qxpkutil::bench::WriteSpectrum(argv[i] + sizeof kWrite - 1, 1'000'000);
    }
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
