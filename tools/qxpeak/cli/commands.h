// The three commands of qxpeak, each given parsed options and the two output streams:
// searching inputs, printing the effective settings, and the built-in demo. Each returns
// the process exit status (0 success, 1 an input or output failed).
//
//   Options options;  ParseOptions(argc, argv, options, std::cout, std::cerr);
//   return RunCommand(options, std::cout, std::cerr);
#pragma once

#include <iosfwd>

#include "tools/qxpeak/cli/options.h"

namespace qxpkutil::qxpeak {

// Searches every input and writes its outputs; one line per input on `err`.
int RunFind(const Options& options, std::ostream& out, std::ostream& err);

// Writes the effective settings (file, overrides) to `out`, or to --output.
int RunSettings(const Options& options, std::ostream& out, std::ostream& err);

// Searches the built-in spectrum with the demo's settings (overridable like any search),
// prints a summary to `out` and writes the requested outputs (TSV and SVG by default) to the
// output folder, named qxpeak_demo.*.
int RunDemo(const Options& options, std::ostream& out, std::ostream& err);

// The command that `options` names.
int RunCommand(const Options& options, std::ostream& out, std::ostream& err);

}  // namespace qxpkutil::qxpeak
