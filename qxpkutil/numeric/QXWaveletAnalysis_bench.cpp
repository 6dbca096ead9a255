#include "qxpkutil/numeric/QXWaveletAnalysis.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

// A noisy spectrum: narrow peaks every 60 points on an offset, noise sigma 10.
std::vector<double> Spectrum(std::size_t n) {
  std::vector<testing::GaussPeak> peaks;
  for (std::size_t i = 0; 50 + 60 * i < n; ++i)
    peaks.push_back({50.0 + 60.0 * static_cast<double>(i),
                     200.0 + 50.0 * static_cast<double>(i % 7), 2.0 + static_cast<double>(i % 3)});
  return testing::MakeSignal(n, 0.0, 1.0, peaks, {.baseline = 10.0, .noiseSigma = 10.0}).y;
}

// The detection driver's call, once per segment; a million points pad to 2^20.
void BM_CalcWhiteNoiseLevel(benchmark::State& state) {
  const auto n = static_cast<std::uint32_t>(state.range(0));
  const std::vector<double> y = Spectrum(n);
  for (auto _ : state)
    benchmark::DoNotOptimize(QXWaveletAnalysis::CalcWhiteNoiseLevel(y.data(), n));
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_CalcWhiteNoiseLevel)
    ->Arg(1000)->Arg(65536)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_CalcWhiteNoiseLevelFloat(benchmark::State& state) {
  const auto n = static_cast<std::uint32_t>(state.range(0));
  const std::vector<double> y = Spectrum(n);
  const std::vector<float> f(y.begin(), y.end());
  for (auto _ : state)
    benchmark::DoNotOptimize(QXWaveletAnalysis::CalcWhiteNoiseLevel(f.data(), n));
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_CalcWhiteNoiseLevelFloat)->Arg(1000000)->Unit(benchmark::kMillisecond);

void BM_CalcNoiseLevel(benchmark::State& state) {
  const auto n = static_cast<std::uint32_t>(state.range(0));
  const std::vector<double> y = Spectrum(n);
  for (auto _ : state) benchmark::DoNotOptimize(QXWaveletAnalysis::CalcNoiseLevel(y.data(), n));
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_CalcNoiseLevel)->Arg(1000000)->Unit(benchmark::kMillisecond);

// The filters rewrite their input, so each iteration starts from a fresh copy.
void BM_Filter(benchmark::State& state, void (*filter)(double*, std::uint32_t, double),
               double argument) {
  const auto n = static_cast<std::uint32_t>(state.range(0));
  const std::vector<double> y = Spectrum(n);
  std::vector<double> work(n);
  for (auto _ : state) {
    work = y;
    filter(work.data(), n, argument);
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK_CAPTURE(BM_Filter, SubtractNoise, &QXWaveletAnalysis::SubtractNoise, 1.5)
    ->Arg(65536)->Arg(1000000)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Filter, SubtractColoredNoise, &QXWaveletAnalysis::SubtractColoredNoise, 1.5)
    ->Arg(65536)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Filter, SmoothBaseline, &QXWaveletAnalysis::SmoothBaseline, 256.0)
    ->Arg(65536)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
