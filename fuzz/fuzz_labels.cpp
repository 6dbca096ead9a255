// Label lists read from their ";"-terminated text form. A load then save is a fixed point
// after one round (the saved text reloads to as many labels and saves to the same text),
// and merging a list into its own copy by name changes nothing.
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz_common.h"
#include "qxpkutil/labels/QXUserPkLabels.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using qxpkutil::QXUserPkLabels;
  if (size == 0) return 0;
  const int withCharge = data[0] & 1;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);

  QXUserPkLabels loaded;
  const int read = loaded.LoadLabelsFromFile(nullptr, 0, text);
  QXFUZZ_CHECK(read == 0 || loaded.GetNumUserLabels() > 0);

  std::string first;
  const int wrote = loaded.SaveLabelsToFile(withCharge, nullptr, 0, first);
  QXFUZZ_CHECK(wrote == (loaded.GetNumUserLabels() > 0 ? 1 : 0));

  QXUserPkLabels again;
  const int reread = again.LoadLabelsFromFile(nullptr, 0, first);
  QXFUZZ_CHECK(reread == wrote);
  QXFUZZ_CHECK(again.GetNumUserLabels() == loaded.GetNumUserLabels());
  QXFUZZ_CHECK(again.GetUseChargeState() == loaded.GetUseChargeState());
  QXFUZZ_CHECK(again.GetUserLabelType() == loaded.GetUserLabelType());
  std::string second;
  (void)again.SaveLabelsToFile(withCharge, nullptr, 0, second);
  QXFUZZ_CHECK(second == first);

  // Every name of the copy is found in the list, so merging by name only overwrites.
  QXUserPkLabels merged;
  (void)merged.AppendLabelList(&loaded);
  QXFUZZ_CHECK(merged.AppendListReplaceDup(&again) == 1);
  QXFUZZ_CHECK(merged.GetNumUserLabels() == loaded.GetNumUserLabels());
  return 0;
}
