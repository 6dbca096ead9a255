// Signal-to-noise and resolution of 1000 targets on a 1,000,000-point spectrum with 1000
// Gaussian peaks. Reports targets per second.
#include <benchmark/benchmark.h>

#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/settings/PeakCalc.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr int kPeaks = 1000;
constexpr std::uint32_t kPoints = 1000000;
constexpr double kDx = 0.001;
constexpr std::uint32_t kSpacing = kPoints / kPeaks;  // points between peak centres

struct Fixture {
  testing::Signal signal;
  QXPeakTable table;
};

const Fixture& Spectrum() {
  static const Fixture fixture = [] {
    std::vector<testing::GaussPeak> peaks;
    for (int p = 0; p < kPeaks; ++p) {
      peaks.push_back({100.0 + (p + 0.5) * kSpacing * kDx, 1000.0 + p, 0.05});
    }
    Fixture f{
        testing::MakeSignal(kPoints, 100.0, kDx, peaks, {.baseline = 10.0, .noiseSigma = 2.0}), {}};
    for (int p = 0; p < kPeaks; ++p) {
      const std::uint32_t apex = p * kSpacing + kSpacing / 2;
      const std::uint32_t left = apex - 400;
      const std::uint32_t right = apex + 400;
      const auto& x = f.signal.x;
      const auto& y = f.signal.y;
      f.table.AddPeak(QXPeakTableElement(x[apex], y[apex], apex, x[left], y[left], left, x[right],
                                         y[right], right));
    }
    return f;
  }();
  return fixture;
}

template <class Calc>
void AddTargets(Calc& calc) {
  for (int p = 0; p < kPeaks; ++p) {
    calc.AddSetting(-1);
    calc.GetSetting(p)->SetPeakCalcSetting(100.0 + (p + 0.5) * kSpacing * kDx, 0.2);
  }
}

void BM_ResolutionOnList(benchmark::State& state) {
  const Fixture& f = Spectrum();
  QXPeakTable table(f.table);
  ResCalcPeakCalc calc;
  AddTargets(calc);
  for (auto _ : state) {
    benchmark::DoNotOptimize(table.DoResCalcOnList(f.signal.x.data(), f.signal.y.data(), &calc));
  }
  state.SetItemsProcessed(state.iterations() * kPeaks);
}
BENCHMARK(BM_ResolutionOnList);

void BM_SignalToNoiseOnList(benchmark::State& state) {
  const Fixture& f = Spectrum();
  QXPeakTable table(f.table);
  SNPeakCalc calc;
  AddTargets(calc);
  calc.SetBaselineX1(100.0);
  calc.SetBaselineX2(100.3);  // 300 points between two peaks
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        table.DoSignalToNoiseOnList(f.signal.x.data(), f.signal.y.data(), kPoints, &calc));
  }
  state.SetItemsProcessed(state.iterations() * kPeaks);
}
BENCHMARK(BM_SignalToNoiseOnList);

}  // namespace
}  // namespace qxpkutil
