#include "qxpkutil/labels/QXUserPkLabels.h"

#include <string>

#include <benchmark/benchmark.h>

#include "qxpkutil/peaks/QXPeakTable.h"

namespace qxpkutil {
namespace {

QXUserPkLabels MakeLabels(std::int32_t n, int type) {
  QXUserPkLabels labels;
  for (std::int32_t i = 0; i < n; ++i) {
    const std::string name = "label" + std::to_string(i);
    const double x = type == 1 ? 0.5 + 0.25 * (i % 8) : 100.0 + 1.7 * i;
    labels.AddUserLabel(QXUserPeakLabelItem(x, 0.01, name.c_str(), i % 3), -1);
  }
  labels.SetUserLabelType(type);
  return labels;
}

// Peaks 0.5 apart, so a difference list of spacings 0.5 .. 2.25 always finds pairs.
QXPeakTable MakeTable(std::int32_t n) {
  QXPeakTable table;
  for (std::int32_t i = 0; i < n; ++i) {
    const double x = 100.0 + 0.5 * static_cast<double>(i);
    table.AddPeak(x, 1.0 + static_cast<double>(i % 17), 0, x, 0, 0, x, 0, 0, x, 0, x, 0, x, 0, 0);
  }
  table.SortPeakTable(0);
  return table;
}

void BM_SaveLabelsToText(benchmark::State& state) {
  QXUserPkLabels labels = MakeLabels(static_cast<std::int32_t>(state.range(0)), 0);
  std::string text;
  for (auto _ : state) {
    benchmark::DoNotOptimize(labels.SaveLabelsToFile(1, nullptr, 0, text));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_SaveLabelsToText)->Arg(10000);

void BM_LoadLabelsFromText(benchmark::State& state) {
  QXUserPkLabels labels = MakeLabels(static_cast<std::int32_t>(state.range(0)), 0);
  std::string text;
  labels.SaveLabelsToFile(1, nullptr, 0, text);
  for (auto _ : state) {
    benchmark::DoNotOptimize(labels.LoadLabelsFromFile(nullptr, 0, text));
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LoadLabelsFromText)->Arg(10000);

// Matching, then clearing so that every round starts from unlabelled peaks.
void BM_MatchUserPeakLabels(benchmark::State& state) {
  QXPeakTable table = MakeTable(state.range(0));
  QXUserPkLabels labels =
      MakeLabels(static_cast<std::int32_t>(state.range(1)), static_cast<int>(state.range(2)));
  for (auto _ : state) {
    table.MatchUserPeakLabels(&labels, 1, kQXFilterAll, nullptr);
    table.ClearUserPeakLabels();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_MatchUserPeakLabels)
    ->ArgNames({"peaks", "labels", "difference"})
    ->Args({100000, 1000, 0})
    ->Args({100000, 8, 1});

}  // namespace
}  // namespace qxpkutil
