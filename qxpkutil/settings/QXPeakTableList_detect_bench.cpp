// The detection driver over a one-million-point profile spectrum (m/z 100 to 2100, 2000
// peaks whose width grows with m/z, white noise) in three segments with the automatic noise
// threshold on: the moving-mean scan (argument 0) or the divisor search (1). Reports points
// per second.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "qxpkutil/settings/QXPeakTableList.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr std::uint32_t kPoints = 1'000'000;
constexpr double kStartX = 100.0;
constexpr double kStepX = 0.002;

const testing::Signal& Spectrum() {
  static const testing::Signal s = [] {
    // One peak per m/z unit, as wide as a resolving power of 60000 makes it.
    std::vector<testing::GaussPeak> peaks;
    for (int k = 0; k < 2000; ++k) {
      const double centre = kStartX + 0.5 + k;
      peaks.push_back({centre, 200.0 + 5000.0 * std::fabs(std::sin(0.7 * k)), centre / 60000.0});
    }
    return testing::MakeSignal(kPoints, kStartX, kStepX, peaks,
                               {.baseline = 20.0, .noiseSigma = 4.0});
  }();
  return s;
}

QXPeakTableList MakeList(bool divisor) {
  QXPeakTableList list;
  const double bounds[] = {100.0, 700.0, 1400.0, 2100.0};
  for (int i = 0; i < 3; ++i) {
    list.AddDetectionSetting(-1);
    const int width = 5 + 2 * i;
    if (divisor) {
      list.SetDetectionSetting(i, bounds[i], bounds[i + 1], 2.0, 50.0, 15000.0, 1, 6, 40, 0.05,
                               0.99);
    } else {
      list.SetDetectionSetting(i, bounds[i], bounds[i + 1], 2.0, 0.0, 0, width, 1, 0.0, 1.0, width,
                               200, 1, 0.0, 1, 50.0, 6, 40, 0.05, 0.99);
    }
  }
  list.SetAutoSNCalcOn(1);
  list.AddPeakTableToList();
  return list;
}

void BM_DetectSegments(benchmark::State& state) {
  const testing::Signal& s = Spectrum();
  const double yMax = *std::max_element(s.y.begin(), s.y.end());
  QXPeakTableList list = MakeList(state.range(0) != 0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(list.FindPeaks(s.x.data(), s.y.data(), kPoints, yMax, 1.0, 0));
  }
  state.counters["peaks"] = list.GetNumPeaksFromList(0);
  state.SetItemsProcessed(state.iterations() * kPoints);
}
BENCHMARK(BM_DetectSegments)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
