// Uses the installed io component: a two-column text signal read from memory.
#include <qxpkutil/io/TextReader.h>

bool ConsumerReadsText() {
  qxpkutil::Trace trace;
  std::string error;
  return qxpkutil::ParseTextSignal("m/z intensity\n100 5\n101 7\n", "memory", trace, error) &&
         trace.x.size() == 2;
}
