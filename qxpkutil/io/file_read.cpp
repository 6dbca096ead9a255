#include "qxpkutil/io/io_internal.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>

namespace qxpkutil::io_internal {

namespace {

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};

std::string Describe(const std::string& path) { return path == "-" ? "standard input" : path; }

}  // namespace

bool ReadWholeFile(const std::string& path, std::size_t maxBytes, std::vector<char>& out,
                   std::string& error) {
  out.clear();
  constexpr std::size_t kChunk = std::size_t{1} << 20;
  std::unique_ptr<std::FILE, FileCloser> owned;
  std::FILE* file = stdin;
  if (path != "-") {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) {
      error = path + ": is a directory";
      return false;
    }
    owned.reset(std::fopen(path.c_str(), "rb"));
    if (!owned) {
      error = path + ": cannot open: " + std::strerror(errno);
      return false;
    }
    file = owned.get();
    // A regular file's size lets the buffer be sized once; pipes grow it as they go.
    if (S_ISREG(info.st_mode) && static_cast<std::size_t>(info.st_size) <= maxBytes) {
      out.reserve(static_cast<std::size_t>(info.st_size) + kChunk);
    }
  }
  for (;;) {
    const std::size_t used = out.size();
    out.resize(used + kChunk);
    const std::size_t got = std::fread(out.data() + used, 1, kChunk, file);
    out.resize(used + got);
    if (out.size() > maxBytes) {
      error = Describe(path) + ": larger than " + std::to_string(maxBytes >> 20) +
              " MiB, the most that is read";
      out.clear();
      return false;
    }
    if (got < kChunk) break;
  }
  if (std::ferror(file)) {
    error = Describe(path) + ": read error: " + std::strerror(errno);
    out.clear();
    return false;
  }
  return true;
}

}  // namespace qxpkutil::io_internal
