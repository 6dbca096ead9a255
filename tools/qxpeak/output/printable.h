// Text from files and the command line made safe for a terminal, as the library quotes it
// (QXPrintable): a tab becomes \t, other control characters \xNN.
//
//   err << "qxpeak: " << Printable(trace.id) << ": skipped\n";
#pragma once

#include "qxpkutil/platform/QXFormat.h"

namespace qxpkutil::qxpeak {

inline std::string Printable(std::string_view text) { return QXPrintable(text); }

}  // namespace qxpkutil::qxpeak
