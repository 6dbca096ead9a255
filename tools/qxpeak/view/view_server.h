// `qxpeak view FILE`: serves the page and the JSON API of view_api.h on the loopback
// interface, prints the address and, unless told not to, opens it in the user's browser.
// The page's files are compiled into the program, so nothing is fetched at run time.
//
//   qxpeak view run.mzML                      # a free port, opens the browser
//   qxpeak view run.mzML --port 8080 --no-browser --settings my.ini
#pragma once

#include <iosfwd>

namespace qxpkutil::qxpeak::view {

// Runs the `view` command; `argv[0]` is "view". Returns the exit status: 0 when the server
// stopped normally, 1 when the file could not be read or the port could not be bound, and
// CLI11's status for a bad command line (after printing why).
int RunView(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace qxpkutil::qxpeak::view
