// The divisor path over a one-million-point profile spectrum: 4000 Gaussian peaks at
// constant resolution (2 to 10 points at half height along the axis) on white noise and a
// drifting baseline. Reports points per second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr std::size_t kPoints = 1000000;
constexpr double kDx = 0.002;           // x = i * dx, up to m/z 2000
constexpr double kResolution = 100000;  // half-height width in points = index / resolution
// Windows about a peak's base width (six sigma): index / (resolution * 2.3548 / 6).
constexpr double kDivisor = kResolution * 2.3548 / 6.0;

const testing::Signal& ProfileSpectrum() {
  static const testing::Signal signal = [] {
    testing::Signal s;
    s.x.resize(kPoints);
    s.y.resize(kPoints);
    const std::vector<double> noise = testing::MakeNoise(kPoints, 8.0, 7);
    for (std::size_t i = 0; i < kPoints; ++i) {
      s.x[i] = static_cast<double>(i) * kDx;
      s.y[i] = 50.0 + 0.02 * s.x[i] + noise[i];
    }
    // Each peak is added over +-8 sigma only, so building the signal stays cheap.
    std::mt19937 rng(42);
    std::uniform_real_distribution<double> centre(100.0, 1990.0);
    std::uniform_real_distribution<double> logHeight(std::log(200.0), std::log(20000.0));
    for (int k = 0; k < 4000; ++k) {
      const double c = centre(rng);
      const double h = std::exp(logHeight(rng));
      const double sigma = c / kResolution / 2.3548;
      const auto lo = static_cast<std::size_t>((c - 8 * sigma) / kDx);
      const auto hi = std::min(kPoints - 1, static_cast<std::size_t>((c + 8 * sigma) / kDx) + 1);
      for (std::size_t i = lo; i <= hi; ++i) {
        const double z = (s.x[i] - c) / sigma;
        s.y[i] += h * std::exp(-0.5 * z * z);
      }
    }
    return s;
  }();
  return signal;
}

// Runs `search(table, x, y, n, finish)` on a fresh table per iteration, finish taken from
// the benchmark's argument: 0 the search alone, 1 with its finishing steps (summed areas,
// charge states).
template <class Search>
void RunOnSpectrum(benchmark::State& state, Search search) {
  const testing::Signal& s = ProfileSpectrum();
  const int finish = static_cast<int>(state.range(0));
  std::int32_t found = 0;
  for (auto _ : state) {
    QXPeakTable table;
    found = search(table, s.x.data(), s.y.data(), static_cast<std::uint32_t>(kPoints), finish);
    benchmark::DoNotOptimize(found);
  }
  state.counters["peaks"] = static_cast<double>(found);
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPoints));
}

void BM_FindPeaksDivisor(benchmark::State& state) {
  RunOnSpectrum(state, [](QXPeakTable& t, const double* x, const double* y, std::uint32_t n,
                          int finish) {
    return t.FindPeaks(x, y, n, 200.0, kDivisor, 50.0, 1, finish, 3, 6, 0.05, 2.0, finish, 0.0,
                       0.0, 0);
  });
}
BENCHMARK(BM_FindPeaksDivisor)->Arg(0)->Arg(1)->ArgName("finish")->Unit(benchmark::kMillisecond);

// Every point above 2000 of the profile spectrum taken as a stick (about 13000 of them).
void BM_BuildCentroidPeakTable(benchmark::State& state) {
  RunOnSpectrum(state, [](QXPeakTable& t, const double* x, const double* y, std::uint32_t n,
                          int finish) {
    return t.BuildCentroidPeakTable(x, y, n, 2000.0, 3, 6, 0.05, 2.0, finish, 0.0, 0.0);
  });
}
BENCHMARK(BM_BuildCentroidPeakTable)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("finish")
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
