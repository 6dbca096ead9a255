// Uses the installed package the way an application does: include, link, call.
#include <qxpkutil/qxpkutil.h>

#include <cstdint>
#include <cstdio>

int main() {
  qxpkutil::QXPeakTable table;
  table.AddPeak(qxpkutil::QXPeakTableElement(500.0, 100.0, 10));
  table.AddPeak(qxpkutil::QXPeakTableElement(400.0, 300.0, 5));
  const std::int32_t nearest = table.GetPeakNearest(410.0, 0);
  std::printf("peaks %d, nearest to 410 is %d\n", static_cast<int>(table.GetNumPeaks()),
              static_cast<int>(nearest));
  return (table.GetNumPeaks() == 2 && nearest == 0) ? 0 : 1;
}
