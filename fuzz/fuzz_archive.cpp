// The object archive on hostile bytes, through a peak table and a peak table list (the
// first byte chooses). Loading must fail cleanly or give an object whose store-load-store
// round trip reproduces its bytes; sorting and duplicate removal on what was loaded keep
// their promises.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "fuzz_common.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace {

using qxpkutil::QXArchive;
using qxpkutil::QXPeakTable;
using qxpkutil::QXPeakTableList;

template <class T>
bool Load(const std::string& bytes, T& object) {
  std::istringstream in(bytes);
  QXArchive ar(in);
  object.Serialize(ar);
  return !ar.Failed();
}

template <class T>
std::string Store(T& object) {
  std::ostringstream out;
  {
    QXArchive ar(out);
    object.Serialize(ar);
    QXFUZZ_CHECK(!ar.Failed());
  }
  return out.str();
}

std::size_t Count(const QXPeakTable& t) { return static_cast<std::size_t>(t.GetNumPeaks()); }
std::size_t Count(const QXPeakTableList& l) {
  return static_cast<std::size_t>(l.GetNumPeakTablesInList());
}

// Stored bytes load back to an object that stores the same bytes again.
template <class T>
void CheckRoundTrip(T& loaded) {
  const std::string first = Store(loaded);
  T again;
  QXFUZZ_CHECK(Load(first, again));
  QXFUZZ_CHECK(Count(again) == Count(loaded));
  QXFUZZ_CHECK(Store(again) == first);
}

void CheckOrderAndDuplicates(QXPeakTable& table) {
  const auto n = table.GetNumPeaks();
  for (decltype(table.GetNumPeaks()) i = 0; i < n; ++i) {
    if (std::isnan(table.GetPeak(i)->m_dApexX)) return;  // no order exists to check
  }
  table.SortPeakTable(0);
  QXFUZZ_CHECK(table.GetNumPeaks() == n);
  for (decltype(table.GetNumPeaks()) i = 1; i < n; ++i) {
    QXFUZZ_CHECK(table.GetPeak(i - 1)->m_dApexX <= table.GetPeak(i)->m_dApexX);
  }
  table.RemoveDuplicatedPeaks();
  const std::string once = Store(table);
  const auto kept = table.GetNumPeaks();
  for (decltype(table.GetNumPeaks()) i = 1; i < kept; ++i) {
    QXFUZZ_CHECK(table.GetPeak(i - 1)->m_dApexX != table.GetPeak(i)->m_dApexX);
  }
  table.RemoveDuplicatedPeaks();  // idempotent
  QXFUZZ_CHECK(Store(table) == once);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  if ((data[0] & 1) == 0) {
    QXPeakTable table;
    if (!Load(bytes, table)) {
      QXFUZZ_CHECK(table.GetNumPeaks() == 0);
      return 0;
    }
    CheckRoundTrip(table);
    CheckOrderAndDuplicates(table);
  } else {
    QXPeakTableList list;
    if (!Load(bytes, list)) {
      QXFUZZ_CHECK(list.GetNumPeakTablesInList() == 0);
      return 0;
    }
    CheckRoundTrip(list);
    for (std::int32_t i = 0; i < list.GetNumPeakTablesInList(); ++i) {
      CheckOrderAndDuplicates(*list.GetPeakTableFromList(i));
    }
  }
  return 0;
}
