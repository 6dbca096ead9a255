#include "qxpkutil/platform/QXAtomicFile.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qxpkutil {
namespace {

bool WriteAll(std::FILE* file, std::string_view content) {
  if (!content.empty() && std::fwrite(content.data(), 1, content.size(), file) != content.size()) {
    return false;
  }
  return std::fflush(file) == 0;
}

}  // namespace

bool QXWriteFileAtomically(const std::string& path, std::string_view content) {
  if (path.empty()) return false;
  namespace fs = std::filesystem;
  std::error_code ec;
  // A link is followed, so that the file it points to is replaced, not the link.
  std::string target = path;
  if (fs::is_symlink(fs::symlink_status(path, ec))) {
    const fs::path resolved = fs::weakly_canonical(path, ec);
    if (ec) return false;
    target = resolved.string();
  }
  const fs::file_status status = fs::status(target, ec);
  if (!ec && fs::exists(status) && !fs::is_regular_file(status)) {
    if (fs::is_directory(status)) return false;
    std::FILE* file = std::fopen(target.c_str(), "w");
    if (file == nullptr) return false;
    const bool written = WriteAll(file, content);
    return std::fclose(file) == 0 && written;
  }

  std::string temp = target + ".tmp-XXXXXX";
  const int fd = ::mkstemp(temp.data());
  if (fd < 0) return false;
  std::FILE* file = ::fdopen(fd, "w");
  if (file == nullptr) {
    ::close(fd);
    ::unlink(temp.c_str());
    return false;
  }
  bool ok = WriteAll(file, content) && ::fsync(fd) == 0;
  ok = (std::fclose(file) == 0) && ok;
  if (ok) {
    // mkstemp creates the file private to its owner; give it the usual mode of a new file.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    fs::permissions(temp, static_cast<fs::perms>(0666 & ~mask), ec);
    fs::rename(temp, target, ec);
    ok = !ec;
  }
  if (!ok) ::unlink(temp.c_str());
  return ok;
}

}  // namespace qxpkutil
