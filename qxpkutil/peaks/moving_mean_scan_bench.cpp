// Moving-mean peak finding over a one-million-point profile spectrum: Gaussian peaks a few
// points wide on noise and a drifting baseline. Reports points per second.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

const testing::Signal& ProfileSpectrum() {
  static const testing::Signal signal = [] {
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> centre(200.0, 2200.0);
    std::uniform_real_distribution<double> height(200.0, 20000.0);
    std::vector<testing::GaussPeak> peaks;
    for (int k = 0; k < 4000; ++k) peaks.push_back({centre(rng), height(rng), 0.006});
    return testing::MakeSignal(1000000, 200.0, 0.002, peaks,
                               {.baseline = 50.0, .slope = 0.02, .noiseSigma = 8.0, .seed = 7});
  }();
  return signal;
}

void BM_FindPeaksMovingMean(benchmark::State& state) {
  const testing::Signal& s = ProfileSpectrum();
  const int width = static_cast<int>(state.range(0));
  const int massProcessing = static_cast<int>(state.range(1));
  std::int32_t found = 0;
  for (auto _ : state) {
    QXPeakTable table;
    found = table.FindPeaks(s.x.data(), s.y.data(), static_cast<std::uint32_t>(s.x.size()), 1.0,
                            150.0, 0, width, 1, 0.0, 0, 200, 0.0, 50.0, 1, massProcessing, 3, 6,
                            0.05, 2.0, 1, 0.0, 0.0, 0);
    benchmark::DoNotOptimize(found);
  }
  state.counters["peaks"] = static_cast<double>(found);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(s.x.size()));
}
BENCHMARK(BM_FindPeaksMovingMean)
    ->ArgsProduct({{5, 9, 15}, {0, 1}})
    ->ArgNames({"width", "mass"})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
