#include "tools/qxpeak/input/load_input.h"

#include "qxpkutil/io/TraceReader.h"

namespace qxpkutil::qxpeak {

bool ReadFirstTrace(const std::string& path, const MzmlSelection& selection, Trace& trace,
                    std::string& error) {
  TraceReader reader;
  MzmlReadOptions options;
  options.selection = selection;
  if (!reader.Open(path, options, error)) return false;
  for (Trace t; reader.Next(t);) {
    if (t.selected && t.problem.empty()) {
      trace = std::move(t);
      return true;
    }
  }
  const std::string name = path == "-" ? "standard input" : path;
  error = !reader.Error().empty() ? reader.Error() : name + ": holds no trace to search";
  return false;
}

}  // namespace qxpkutil::qxpeak
