#include "qxpkutil/fitting/QXNonLinFit.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "qxpkutil/fitting/CTriangulationGrid.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

// A spectrum of `count` peaks one unit apart, every fifth with a shoulder 0.2 to its right
// so that the joint pass has work, and the table of their bounds.
struct Spectrum {
  explicit Spectrum(int count) {
    std::vector<testing::GaussPeak> peaks;
    for (int i = 0; i < count; ++i) {
      peaks.push_back({100.0 + i, 1000.0 + 10.0 * (i % 7), 0.07});
      if (i % 5 == 0) peaks.push_back({100.2 + i, 600.0, 0.07});
    }
    testing::SignalOptions o;
    o.baseline = 20.0;
    o.noiseSigma = 5.0;
    signal = testing::MakeSignal(static_cast<std::size_t>(count) * 100 + 200, 99.0, 0.01, peaks, o);
    const auto add = [&](std::uint32_t apex, std::uint32_t left, std::uint32_t right) {
      const auto& s = signal;
      table.AddPeak(s.x[apex], s.y[apex], apex, s.x[left], s.y[left], left, s.x[right],
                    s.y[right], right, s.x[apex], 0.0, 0.0, 0.0, 0.0, 0.0, 0);
    };
    for (int i = 0; i < count; ++i) {
      const auto apex = static_cast<std::uint32_t>(100 + 100 * i);
      if (i % 5 == 0) {
        add(apex, apex - 25, apex + 11);
        add(apex + 20, apex + 11, apex + 45);
      } else {
        add(apex, apex - 25, apex + 25);
      }
    }
  }
  testing::Signal signal;
  QXPeakTable table;
};

void BM_GaussFitPeakList(benchmark::State& state) {
  const Spectrum spectrum(static_cast<int>(state.range(0)));
  const auto n = static_cast<int>(spectrum.signal.x.size());
  for (auto _ : state) {
    QXPeakTable table(spectrum.table);
    QXNonLinFit::GaussFitPeakList(&table, spectrum.signal.x.data(), spectrum.signal.y.data(), n);
    benchmark::DoNotOptimize(table.GetPeak(0)->m_dCentroidX);
  }
  state.counters["peaks/s"] = benchmark::Counter(
      static_cast<double>(spectrum.table.GetNumPeaks()) * static_cast<double>(state.iterations()),
      benchmark::Counter::kIsRate);
}
BENCHMARK(BM_GaussFitPeakList)->Arg(3000)->Unit(benchmark::kMillisecond);

void BM_Svdcmp(benchmark::State& state) {
  const int n = static_cast<int>(state.range(0));
  std::mt19937 rng(1);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  std::vector<double> source(static_cast<std::size_t>(n * n));
  for (double& v : source) v = u(rng);
  std::vector<double> a(source.size()), vm(source.size()), w(static_cast<std::size_t>(n));
  std::vector<double*> aRows(static_cast<std::size_t>(n)), vRows(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    aRows[i] = a.data() + i * n;
    vRows[i] = vm.data() + i * n;
  }
  for (auto _ : state) {
    a = source;
    benchmark::DoNotOptimize(QXNonLinFit::Svdcmp(aRows.data(), n, n, w.data(), vRows.data()));
  }
}
BENCHMARK(BM_Svdcmp)->Arg(5)->Arg(9)->Arg(50);

void BM_ExtrapolateZ(benchmark::State& state) {
  std::mt19937 rng(2);
  std::uniform_real_distribution<double> u(0.0, 100.0);
  CTriangulationGrid grid;
  for (int i = 0; i < state.range(0); ++i) {
    const double x = u(rng), y = u(rng);
    grid.AddPoint(C3DPoint(x, y, 0.5 * x - 0.25 * y));
  }
  double z = 0.0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(grid.ExtrapolateZ(u(rng), u(rng), &z));
  }
}
BENCHMARK(BM_ExtrapolateZ)->Arg(1000)->Arg(100000);

}  // namespace
}  // namespace qxpkutil
