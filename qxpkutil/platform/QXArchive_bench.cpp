// Store and load throughput of tagged 96-byte records, the shape of an archived peak table.
#include "qxpkutil/platform/QXArchive.h"

#include <benchmark/benchmark.h>

#include <sstream>
#include <vector>

namespace qxpkutil {
namespace {

class Record : public QXObject {
 public:
  static const QXRuntimeClass classRecord;
  static QXObject* Create() { return new Record(); }
  const QXRuntimeClass* GetRuntimeClass() const override { return &classRecord; }
  void Serialize(QXArchive& ar) override {
    for (double& v : values) ar.IsStoring() ? void(ar << v) : void(ar >> v);
  }
  double values[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
};
const QXRuntimeClass Record::classRecord{"QXPeakTableElement", kQXNoSchema,
                                         &QXObject::classQXObject};

std::string StoreRecords(const std::vector<Record>& records) {
  std::ostringstream out;
  {
    QXArchive ar(out);
    ar.WriteCount(static_cast<std::uint32_t>(records.size()));
    for (const Record& r : records) ar.WriteObject(&r);
  }
  return out.str();
}

void BM_StoreRecords(benchmark::State& state) {
  const std::vector<Record> records(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(StoreRecords(records));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_StoreRecords)->Arg(1000)->Arg(100000);

void BM_LoadRecords(benchmark::State& state) {
  const std::string bytes =
      StoreRecords(std::vector<Record>(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    std::istringstream in(bytes);
    QXArchive ar(in);
    const std::uint32_t count = ar.ReadCount();
    for (std::uint32_t i = 0; i < count; ++i) {
      benchmark::DoNotOptimize(ar.ReadNewObject(&Record::classRecord, &Record::Create));
    }
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_LoadRecords)->Arg(1000)->Arg(100000);

}  // namespace
}  // namespace qxpkutil
