// qxpeak: finds, measures and labels the peaks of mass spectra and chromatograms from the
// command line. Everything but the process boundary lives in the qxpeak_core units.
#include <cerrno>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iostream>
#include <new>
#include <string>
#include <string_view>

#include <unistd.h>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "tools/qxpeak/cli/commands.h"
#include "tools/qxpeak/cli/options.h"
#include "tools/qxpeak/output/output_files.h"
#ifdef QXPEAK_VIEW_SERVER
#include "tools/qxpeak/view/view_server.h"
#endif

#ifdef QXPEAK_VIEW_PROGRAM
namespace {

// `qxpeak view` runs the program beside this one that holds the browser view (the same
// tool with the view linked in), so that a search does not load the view's HTTP library,
// with OpenSSL and brotli, every time it starts (3 ms of a 5 ms start). Returns only when
// the program cannot be started.
int StartView(char** argv) {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  std::string program =
      ((error ? std::filesystem::path(argv[0]) : self).parent_path() / QXPEAK_VIEW_PROGRAM)
          .string();
  argv[0] = program.data();
  ::execv(program.c_str(), argv);
  std::cerr << "qxpeak: cannot start the browser view (" << program << "): "
            << std::strerror(errno) << '\n';
  return 2;
}

}  // namespace
#endif

int main(int argc, char** argv) {
  using namespace qxpkutil::qxpeak;
  InstallSignalCleanup();
#ifdef __GLIBC__
  // Every trace allocates arrays of the same few sizes, often in another thread than the one
  // that frees them. Kept by the allocator instead of being handed back to the system and
  // faulted in again, they cost a page fault per 4 KiB once, not once per trace.
  mallopt(M_MMAP_THRESHOLD, 64 << 20);
  mallopt(M_TRIM_THRESHOLD, 256 << 20);
#endif
  // Subcommands with a command line of their own are dispatched here, before the search's
  // options are parsed (the browser view's `qxpeak view` goes on this line).
  try {
    if (argc > 1 && std::string_view(argv[1]) == "view") {
#if defined(QXPEAK_VIEW_SERVER)
      return view::RunView(argc - 1, argv + 1, std::cout, std::cerr);
#elif defined(QXPEAK_VIEW_PROGRAM)
      return StartView(argv);
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
