#include "tools/qxpeak/input/load_input.h"

#include "qxpkutil/io/TextReader.h"
#include "tools/qxpeak/input/file_io.h"

namespace qxpkutil::qxpeak {

namespace {

bool LooksLikeXml(const std::vector<char>& bytes) {
  std::size_t i = 0;
  if (bytes.size() >= 3 && bytes[0] == '\xEF' && bytes[1] == '\xBB' && bytes[2] == '\xBF') i = 3;
  while (i < bytes.size() &&
         (bytes[i] == ' ' || bytes[i] == '\t' || bytes[i] == '\r' || bytes[i] == '\n')) {
    ++i;
  }
  return i < bytes.size() && bytes[i] == '<';
}

}  // namespace

bool LoadInput(const std::string& path, const MzmlSelection& selection, LoadedInput& input,
               std::string& error) {
  std::vector<char> bytes;
  if (!ReadWholeFile(path, kMaxInputBytes, bytes, error)) return false;
  const std::string name = path == "-" ? "standard input" : path;
  if (LooksLikeXml(bytes)) {
    input.mzml = std::make_unique<MzmlRun>();
    if (!input.mzml->Parse(std::move(bytes), name, selection, error)) return false;
    const MzmlRun& run = *input.mzml;
    if (run.Traces().empty()) {
      error = run.ListSize() == 0 ? name + ": holds no spectrum or chromatogram"
                                  : name + ": none of its " + std::to_string(run.ListSize()) + " " +
                                        run.ListElement() + " elements matches the selection";
      return false;
    }
    return true;
  }
  input.mzml.reset();
  input.text.assign(1, Trace{});
  return ParseTextSignal(std::string_view(bytes.data(), bytes.size()), name, input.text[0], error);
}

}  // namespace qxpkutil::qxpeak
