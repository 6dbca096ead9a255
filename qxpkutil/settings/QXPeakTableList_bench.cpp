// The list's whole-list operations on a data view of 16 traces with 10000 peaks each: a deep
// copy, and an archive store plus load. Reports peaks per second.
#include <benchmark/benchmark.h>

#include <sstream>

#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil {
namespace {

constexpr int kTables = 16;
constexpr int kPeaksPerTable = 10000;

const QXPeakTableList& BigList() {
  static const QXPeakTableList list = [] {
    QXPeakTableList l;
    for (int t = 0; t < kTables; ++t) {
      l.AddPeakTableToList();
      QXPeakTable* table = l.GetPeakTableFromList(-1);
      for (int p = 0; p < kPeaksPerTable; ++p) {
        const double x = 100.0 + 0.1 * p;
        table->AddPeak(QXPeakTableElement(x, 1000.0 + p % 97, 0, x - 0.02, 1.0, 0, x + 0.02, 1.0, 0,
                                          x, 25.0, x - 0.01, 500.0, x + 0.01, 500.0));
      }
    }
    l.CreateDefaultSegment(1000.0, 5.5e6, 1e8, 12.1, 4000.0, 500.0, 0.5, 10.0, 1.0, 2.0, 400, 3.0,
                           2, 40.0, 4, 20, 0.1, 0.9);
    return l;
  }();
  return list;
}

void BM_CopyList(benchmark::State& state) {
  const QXPeakTableList& source = BigList();
  for (auto _ : state) {
    QXPeakTableList copy(source);
    benchmark::DoNotOptimize(copy.GetNumPeakTablesInList());
  }
  state.SetItemsProcessed(state.iterations() * kTables * kPeaksPerTable);
}
BENCHMARK(BM_CopyList)->Unit(benchmark::kMillisecond);

void BM_ArchiveRoundTrip(benchmark::State& state) {
  QXPeakTableList source(BigList());
  for (auto _ : state) {
    std::ostringstream out;
    {
      QXArchive ar(out);
      source.Serialize(ar);
    }
    std::istringstream in(out.str());
    QXArchive ar(in);
    QXPeakTableList loaded;
    loaded.Serialize(ar);
    benchmark::DoNotOptimize(loaded.GetNumPeakTablesInList());
  }
  state.SetItemsProcessed(state.iterations() * kTables * kPeaksPerTable);
}
BENCHMARK(BM_ArchiveRoundTrip)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace qxpkutil
