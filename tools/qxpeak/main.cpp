// qxpeak: finds, measures and labels the peaks of mass spectra and chromatograms from the
// command line. Everything but the process boundary lives in the qxpeak_core units.
#include <exception>
#include <iostream>
#include <new>
#include <string_view>

#include "tools/qxpeak/cli/commands.h"
#include "tools/qxpeak/cli/options.h"
#include "tools/qxpeak/output/output_files.h"
#ifdef QXPEAK_WITH_VIEW
#include "tools/qxpeak/view/view_server.h"
#endif

int main(int argc, char** argv) {
  using namespace qxpkutil::qxpeak;
  InstallSignalCleanup();
  // Subcommands with a command line of their own are dispatched here, before the search's
  // options are parsed (the browser view's `qxpeak view` goes on this line).
  try {
    if (argc > 1 && std::string_view(argv[1]) == "view") {
#ifdef QXPEAK_WITH_VIEW
      return view::RunView(argc - 1, argv + 1, std::cout, std::cerr);
#else
      std::cerr << "qxpeak: this build has no browser view (cpp-httplib was not found)\n";
      return 2;
#endif
    }
    Options options;
    if (const std::optional<int> done = ParseOptions(argc, argv, options, std::cout, std::cerr)) {
      return *done;
    }
    return RunCommand(options, std::cout, std::cerr);
  } catch (const std::bad_alloc&) {
    std::cerr << "qxpeak: not enough memory\n";
  } catch (const std::exception& e) {
    std::cerr << "qxpeak: " << e.what() << '\n';
  }
  return 1;
}
