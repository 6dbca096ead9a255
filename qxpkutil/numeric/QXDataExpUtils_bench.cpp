// Costs of the routines in peak finding's inner loops, over a million-point signal.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "testing/QXTestSignals.h"

namespace {

using qxpkutil::QXDataExpUtils;
namespace signals = qxpkutil::testing;

constexpr std::uint32_t kPoints = 1'000'000;

const signals::Signal& Spectrum() {
  static const signals::Signal s = signals::MakeSignal(
      kPoints, 100.0, 0.001, {{300.0, 5000.0, 0.05}, {700.0, 20000.0, 0.2}},
      {.baseline = 200.0, .noiseSigma = 20.0});
  return s;
}

const signals::CountSignal& CountSpectrum() {
  static const signals::CountSignal c = signals::ToCountFamily(Spectrum());
  return c;
}

// Look-up values spread over the x range, in random order.
const std::vector<double>& RandomValues() {
  static const std::vector<double> values = [] {
    std::mt19937_64 rng(42);
    std::uniform_real_distribution<double> pick(100.0, 1100.0);
    std::vector<double> v(kPoints);
    for (double& x : v) x = pick(rng);
    return v;
  }();
  return values;
}

// One Gaussian mean per window position, as the moving-mean scan computes them.
template <class Y>
void SlideGaussMean(benchmark::State& state, const std::vector<Y>& y) {
  const int w = static_cast<int>(state.range(0));
  const std::size_t windows = kPoints - static_cast<std::size_t>(w) + 1;
  for (auto _ : state) {
    double total = 0;
    for (std::size_t p = 0; p < windows; ++p)
      total += QXDataExpUtils::NormGaussMean(y.data() + p, w);
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * windows));
}

void BM_NormGaussMean(benchmark::State& state) { SlideGaussMean(state, Spectrum().y); }
void BM_NormGaussMeanCounts(benchmark::State& state) { SlideGaussMean(state, CountSpectrum().y); }
BENCHMARK(BM_NormGaussMean)->Arg(5)->Arg(21)->Arg(101)->Arg(501)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_NormGaussMeanCounts)->Arg(21)->Arg(501)->Unit(benchmark::kMillisecond);

// Arguments: width, gap-aware flag.
void BM_SmoothData(benchmark::State& state) {
  const std::vector<double>& y = Spectrum().y;
  std::vector<double> out(kPoints);
  for (auto _ : state) {
    benchmark::DoNotOptimize(QXDataExpUtils::SmoothData(y.data(), out.data(), kPoints,
                                                        static_cast<int>(state.range(1)), 0,
                                                        static_cast<int>(state.range(0))));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}
BENCHMARK(BM_SmoothData)
    ->Args({21, 0})
    ->Args({21, 1})
    ->Args({501, 0})
    ->Unit(benchmark::kMillisecond);

void BM_SmoothDataInPlace(benchmark::State& state) {
  std::vector<double> y = Spectrum().y;
  for (auto _ : state) {
    benchmark::DoNotOptimize(QXDataExpUtils::SmoothData(y.data(), y.data(), kPoints, 0, 0, 21));
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}
BENCHMARK(BM_SmoothDataInPlace)->Unit(benchmark::kMillisecond);

// A million look-ups at random positions in a million-point x array.
template <class Search>
void RandomLookUps(benchmark::State& state, Search search) {
  const double* x = Spectrum().x.data();
  const std::vector<double>& values = RandomValues();
  for (auto _ : state) {
    std::int64_t total = 0;
    for (double v : values) total += search(x, v);
    benchmark::DoNotOptimize(total);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * values.size()));
}

void BM_FindNearestIndex(benchmark::State& state) {
  RandomLookUps(state, [](const double* x, double v) {
    return QXDataExpUtils::FindNearestIndex(x, kPoints, v);
  });
}
BENCHMARK(BM_FindNearestIndex)->Unit(benchmark::kMillisecond);

// Without a remembered start the hunt is a plain bisection.
void BM_HuntIndexCold(benchmark::State& state) {
  RandomLookUps(state, [](const double* x, double v) {
    return QXDataExpUtils::HuntIndex(x, kPoints, std::numeric_limits<std::uint32_t>::max(), v);
  });
}
BENCHMARK(BM_HuntIndexCold)->Unit(benchmark::kMillisecond);

// Walking along the array with the previous result as the start, as peak finding does.
void BM_HuntIndexSequential(benchmark::State& state) {
  const std::vector<double>& x = Spectrum().x;
  for (auto _ : state) {
    std::uint32_t start = 0;
    for (std::uint32_t i = 0; i < kPoints; ++i) {
      const std::int32_t j = QXDataExpUtils::HuntIndex(x.data(), kPoints, start, x[i] + 0.0004);
      start = static_cast<std::uint32_t>(j);
    }
    benchmark::DoNotOptimize(start);
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * kPoints));
}
BENCHMARK(BM_HuntIndexSequential)->Unit(benchmark::kMillisecond);

}  // namespace
