// Saving and restoring a list of 16 mass-processing segments: as text lines, from the
// text block, from the profile, and from a text whose segment count was raised to the
// list's limit (the worst a stored count can ask for). Reports segments per second.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "qxpkutil/settings/QXPersistUtils.h"

namespace qxpkutil {
namespace {

constexpr int kSegments = 16;

QXPeakTableList SavedList() {
  QXPeakTableList list;
  list.CreateDefaultSegment(1000.0, 5.5e6, 1e8, 12.1, 4000.0, 500.0, 0.5, 10.0, 1.0, 2.0, 400, 3.0,
                            2, 40.0, 4, 20, 0.1, 0.9);
  while (list.GetNumDetectionSettings() < kSegments) list.AddDetectionSetting(-1);
  while (list.GetNumDetectionSettings() > kSegments) list.DeleteDetectionSetting(-1);
  list.SetMassProcessing(1);
  return list;
}

std::string SavedText(QXPeakTableList& list) {
  std::vector<std::string> lines;
  list.PersistSettings("App", 0, &lines, 0);
  std::string text;
  QXPersistUtils::FormStringFromList(text, lines);
  return text;
}

void BM_PersistToText(benchmark::State& state) {
  QXMemoryProfile profile;
  QXSetAppProfile(&profile);
  QXPeakTableList list = SavedList();
  for (auto _ : state) {
    std::vector<std::string> lines;
    list.PersistSettings("App", 0, &lines, 0);
    benchmark::DoNotOptimize(lines.data());
  }
  QXSetAppProfile(nullptr);
  state.SetItemsProcessed(state.iterations() * kSegments);
}
BENCHMARK(BM_PersistToText);

void BM_RestoreFromText(benchmark::State& state) {
  QXMemoryProfile profile;
  QXSetAppProfile(&profile);
  QXPeakTableList list = SavedList();
  std::string text = SavedText(list);
  std::int64_t segments = kSegments;
  if (state.range(0) != 0) {
    const std::string count = "NumDetectSegments=" + std::to_string(kSegments);
    text.replace(text.find(count), count.size(), "NumDetectSegments=2147483647");
    segments = QXPeakTableList::kMaxDetectionSettings;
  }
  QXPeakTableList restored;
  for (auto _ : state) {
    restored.RestoreSettings("App", 0, text.c_str(), kQXPersistFromText);
    benchmark::DoNotOptimize(restored.GetNumDetectionSettings());
  }
  QXSetAppProfile(nullptr);
  state.SetItemsProcessed(state.iterations() * segments);
}
BENCHMARK(BM_RestoreFromText)->Arg(0)->ArgName("raised_count");
BENCHMARK(BM_RestoreFromText)->Arg(1)->ArgName("raised_count")->Unit(benchmark::kMillisecond);

void BM_RestoreFromProfile(benchmark::State& state) {
  QXMemoryProfile profile;
  QXSetAppProfile(&profile);
  QXPeakTableList list = SavedList();
  list.PersistSettings("App", 0, nullptr, 1);
  QXPeakTableList restored;
  for (auto _ : state) {
    restored.RestoreSettings("App", 0, nullptr, kQXPersistFromProfile);
    benchmark::DoNotOptimize(restored.GetNumDetectionSettings());
  }
  QXSetAppProfile(nullptr);
  state.SetItemsProcessed(state.iterations() * kSegments);
}
BENCHMARK(BM_RestoreFromProfile);

}  // namespace
}  // namespace qxpkutil
