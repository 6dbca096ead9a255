// Helpers shared by the readers of the io component; not installed.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace qxpkutil::io_internal {

// The largest input read whole: far above any single run, low enough that a wrong path
// (a disk image, /dev/zero) fails quickly instead of exhausting memory.
inline constexpr std::size_t kMaxInputBytes = std::size_t{4} << 30;

// Reads the file at `path` ("-" is standard input) into `out`. False, with a message naming
// the file in `error`, when it cannot be opened or read, is a directory, or holds more than
// `maxBytes` bytes.
[[nodiscard]] bool ReadWholeFile(const std::string& path, std::size_t maxBytes,
                                 std::vector<char>& out, std::string& error);

}  // namespace qxpkutil::io_internal
