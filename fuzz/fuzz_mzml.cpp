// The mzML reader on hostile documents. The first byte chooses a selection (MS level,
// list, an index range); the rest is the document. A document that reads gives traces
// that keep the reader's promises (as many y as x, all finite, x non-decreasing, one node
// per trace, each accepted by the selection), and reading it again with an MS-level
// selection gives exactly the traces of that level.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_common.h"
#include "qxpkutil/io/MzmlReader.h"

namespace {

using qxpkutil::MzmlRun;
using qxpkutil::MzmlSelection;
using qxpkutil::Trace;

void CheckTraces(const MzmlRun& run, const MzmlSelection& selection) {
  QXFUZZ_CHECK(run.Nodes().size() == run.Traces().size());
  QXFUZZ_CHECK(run.Traces().size() <= run.ListSize());
  for (const Trace& t : run.Traces()) {
    QXFUZZ_CHECK(t.x.size() == t.y.size());
    for (std::size_t i = 0; i < t.x.size(); ++i) {
      QXFUZZ_CHECK(std::isfinite(t.x[i]) && std::isfinite(t.y[i]));
      if (i > 0) QXFUZZ_CHECK(t.x[i - 1] <= t.x[i]);
    }
    QXFUZZ_CHECK(selection.Accepts(t));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t flags = data[0];
  const std::vector<char> text(data + 1, data + size);

  MzmlSelection selection;
  selection.list = static_cast<MzmlSelection::List>(flags % 3);
  if (flags & 0x04) selection.indices.push_back({0, (flags >> 4) & 3});
  MzmlRun run;
  std::string error;
  if (!run.Parse(text, "fuzz", selection, error)) {
    QXFUZZ_CHECK(!error.empty());
    return 0;
  }
  CheckTraces(run, selection);
  if (run.Traces().empty()) return 0;

  MzmlSelection byLevel = selection;
  byLevel.ms_level = run.Traces().front().ms_level;
  if (byLevel.ms_level == 0) return 0;  // 0 selects any level
  std::size_t expected = 0;
  for (const Trace& t : run.Traces()) expected += t.ms_level == byLevel.ms_level ? 1 : 0;
  MzmlRun again;
  QXFUZZ_CHECK(again.Parse(text, "fuzz", byLevel, error));
  CheckTraces(again, byLevel);
  QXFUZZ_CHECK(again.Traces().size() == expected);
  return 0;
}
