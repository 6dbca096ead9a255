// Whole-file writes that never leave a half-written file: the text goes to a temporary
// file beside the target, which then replaces the target in one rename. Used by every
// writer of the library (INI profiles, label files, peak table dumps). WriteBehind serves
// writers that stream into such a temporary themselves (mzML, the tool's tables).
//
//   if (!QXWriteFileAtomically("peaks.txt", text)) { /* old file, if any, is intact */ }
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

namespace qxpkutil {

// Replaces the file at `path` with `content`; false (old file intact, no temporary left
// behind) when it cannot be written. A target that exists but is not a regular file (a
// terminal, a pipe, /dev/stdout) is written directly, since it cannot be renamed over.
[[nodiscard]] bool QXWriteFileAtomically(const std::string& path, std::string_view content);

// For a stream written to a temporary that will replace a file: has the system start
// writing out what was written to `file` beyond `started` (updated) once `written` is a few
// MiB past it. What is left to write at the end (at a sync, or at the rename over an
// existing file, where ext4 writes the new file out and then frees the old one's blocks
// behind those writes) is then at most that step, not the whole file. False when flushing
// the stream failed (a write error).
[[nodiscard]] bool WriteBehind(std::FILE* file, std::size_t written, std::size_t& started);

}  // namespace qxpkutil
