// The two-column text reader on hostile text. A text that reads gives finite, non-
// decreasing x with as many y; written back with every digit and read again it gives the
// same numbers. A text that fails leaves the trace as it was and says why.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "fuzz_common.h"
#include "qxpkutil/io/TextReader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using qxpkutil::Trace;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  Trace trace;
  trace.id = "untouched";
  trace.x = {-1.0};
  std::string error;
  if (!qxpkutil::ParseTextSignal(text, "fuzz", trace, error)) {
    QXFUZZ_CHECK(!error.empty());
    QXFUZZ_CHECK(trace.id == "untouched" && trace.x.size() == 1 && trace.y.empty());
    return 0;
  }
  QXFUZZ_CHECK(!trace.x.empty() && trace.x.size() == trace.y.size());
  std::string again;
  for (std::size_t i = 0; i < trace.x.size(); ++i) {
    QXFUZZ_CHECK(std::isfinite(trace.x[i]) && std::isfinite(trace.y[i]));
    if (i > 0) QXFUZZ_CHECK(trace.x[i - 1] <= trace.x[i]);
    char line[64];
    std::snprintf(line, sizeof line, "%.17g\t%.17g\n", trace.x[i], trace.y[i]);
    again += line;
  }
  Trace reread;
  QXFUZZ_CHECK(qxpkutil::ParseTextSignal(again, "again", reread, error));
  QXFUZZ_CHECK(reread.x == trace.x && reread.y == trace.y);
  return 0;
}
