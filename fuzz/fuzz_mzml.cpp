// The mzML reader on hostile documents. The first byte chooses a selection (MS level,
// list, an index range); the rest is the document. A document that opens gives usable
// traces that keep the reader's promises (as many y as x, all finite, x non-decreasing,
// each accepted by the selection), and reading it again with an MS-level selection gives
// exactly the usable traces of that level.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_common.h"
#include "qxpkutil/io/MzmlReader.h"

namespace {

using qxpkutil::MzmlReader;
using qxpkutil::MzmlSelection;
using qxpkutil::Trace;

// Reads the whole document with `selection`: false when it does not open. Every usable
// trace keeps the reader's promises; the rest carry a problem and no claim.
bool ReadAll(const std::string& text, const MzmlSelection& selection, std::vector<Trace>& traces) {
  MzmlReader reader;
  std::string error;
  qxpkutil::MzmlReadOptions options;
  options.selection = selection;
  if (!reader.OpenText(text, "fuzz", options, error)) {
    QXFUZZ_CHECK(!error.empty());
    return false;
  }
  for (Trace t; reader.Next(t);) {
    QXFUZZ_CHECK(traces.size() < reader.ListSize() + 1);
    if (!t.problem.empty()) continue;
    QXFUZZ_CHECK(t.x.size() == t.y.size());
    for (std::size_t i = 0; i < t.x.size(); ++i) {
      QXFUZZ_CHECK(std::isfinite(t.x[i]) && std::isfinite(t.y[i]));
      if (i > 0) QXFUZZ_CHECK(t.x[i - 1] <= t.x[i]);
    }
    QXFUZZ_CHECK(selection.Accepts(t));
    traces.push_back(std::move(t));
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint8_t flags = data[0];
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

  MzmlSelection selection;
  selection.list = static_cast<MzmlSelection::List>(flags % 3);
  if (flags & 0x04) selection.indices.push_back({0, (flags >> 4) & 3});
  std::vector<Trace> traces;
  if (!ReadAll(text, selection, traces) || traces.empty()) return 0;

  // Reading again with the first trace's MS level gives exactly the usable traces of it.
  MzmlSelection byLevel = selection;
  byLevel.ms_level = traces.front().ms_level;
  if (byLevel.ms_level == 0) return 0;  // 0 selects any level
  std::size_t expected = 0;
  for (const Trace& t : traces) expected += t.ms_level == byLevel.ms_level ? 1 : 0;
  std::vector<Trace> again;
  QXFUZZ_CHECK(ReadAll(text, byLevel, again));
  QXFUZZ_CHECK(again.size() == expected);
  return 0;
}
