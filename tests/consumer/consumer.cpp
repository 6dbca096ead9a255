// Uses the installed package the way an application does: include, link, call.
#include <qxpkutil/qxpkutil.h>

#include <cstdio>

#ifdef CONSUMER_IO
bool ConsumerReadsText();
#endif

int main() {
#ifdef CONSUMER_IO
  if (!ConsumerReadsText()) return 1;
  std::printf("io component: text read\n");
#endif
  qxpkutil::QXPeakTable table;
  table.AddPeak(qxpkutil::QXPeakTableElement(500.0, 100.0, 10));
  table.AddPeak(qxpkutil::QXPeakTableElement(400.0, 300.0, 5));
  const long nearest = table.GetPeakNearest(410.0, 0);
  std::printf("peaks %ld, nearest to 410 is %ld\n", table.GetNumPeaks(), nearest);
  return (table.GetNumPeaks() == 2 && nearest == 0) ? 0 : 1;
}
