// Whole-file writes that never leave a half-written file: the text goes to a temporary
// file beside the target, which then replaces the target in one rename. Used by every
// writer of the library (INI profiles, label files, peak table dumps).
//
//   if (!QXWriteFileAtomically("peaks.txt", text)) { /* old file, if any, is intact */ }
#pragma once

#include <string>
#include <string_view>

namespace qxpkutil {

// Replaces the file at `path` with `content`; false (old file intact, no temporary left
// behind) when it cannot be written. A target that exists but is not a regular file (a
// terminal, a pipe, /dev/stdout) is written directly, since it cannot be renamed over.
[[nodiscard]] bool QXWriteFileAtomically(const std::string& path, std::string_view content);

}  // namespace qxpkutil
