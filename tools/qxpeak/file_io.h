// Whole-file reading and writing for the tool: inputs are read in one piece (regular files,
// pipes and standard input alike, with a size cap), outputs are built in memory and handed
// to QXWriteFileAtomically, so that an output file is either complete or not replaced.
//
//   std::vector<char> bytes;  std::string error;
//   if (!ReadWholeFile("run.mzML", kMaxInputBytes, bytes, error)) { /* error says why */ }
//   if (!WriteOutput("-", "text\n", error)) { ... }            // "-" is standard output
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qxpkutil::qxpeak {

// The largest input the tool reads: far above any single run it is meant for, low enough
// that a wrong path (a disk image, /dev/zero) fails quickly instead of exhausting memory.
inline constexpr std::size_t kMaxInputBytes = std::size_t{4} << 30;

// Reads the file at `path` ("-" is standard input) into `out`. False, with a message naming
// the file in `error`, when it cannot be opened or read, is a directory, or holds more than
// `maxBytes` bytes.
[[nodiscard]] bool ReadWholeFile(const std::string& path, std::size_t maxBytes,
                                 std::vector<char>& out, std::string& error);

// Writes `content` to `path` in one step ("-" is standard output). False, with a message in
// `error`, when it cannot be written; a previous file at `path` is then left as it was.
// Safe to call from several threads at once.
[[nodiscard]] bool WriteOutput(const std::string& path, std::string_view content,
                               std::string& error);


}  // namespace qxpkutil::qxpeak
