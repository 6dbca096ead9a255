// Whole-file reading for the tool: inputs, settings and label files are read in one piece
// and once (regular files, pipes and standard input alike, with a size cap).
//
//   std::vector<char> bytes;  std::string error;
//   if (!ReadWholeFile("run.mzML", kMaxInputBytes, bytes, error)) { /* error says why */ }
#pragma once

#include <cstddef>
#include <string>
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

}  // namespace qxpkutil::qxpeak
