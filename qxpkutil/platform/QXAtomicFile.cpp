#include "qxpkutil/platform/QXAtomicFile.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace qxpkutil {
namespace {

bool WriteAll(std::FILE* file, std::string_view content) {
  if (!content.empty() && std::fwrite(content.data(), 1, content.size(), file) != content.size()) {
    return false;
  }
  return std::fflush(file) == 0;
}

// A name part no other writer in this process or another one picks at the same time.
std::string UniqueSuffix() {
  static std::atomic<unsigned long> counter{0};
  thread_local std::mt19937_64 rng(std::random_device{}());
  char text[64];
  std::snprintf(text, sizeof text, "%ld-%lu-%06llx", static_cast<long>(::getpid()),
                counter.fetch_add(1), static_cast<unsigned long long>(rng() & 0xFFFFFF));
  return text;
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

  // The temporary file is created exclusively with the usual mode of a new file, so the
  // process's file-creation mask applies as it would to any file (and is never touched,
  // which keeps the routine safe to call from several threads).
  int fd = -1;
  std::string temp;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temp = target + ".tmp-" + UniqueSuffix();
    fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) return false;
  }
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
    fs::rename(temp, target, ec);
    ok = !ec;
  }
  if (!ok) ::unlink(temp.c_str());
  return ok;
}

bool WriteBehind(std::FILE* file, std::size_t written, std::size_t& started) {
#ifdef SYNC_FILE_RANGE_WRITE
  constexpr std::size_t kStep = std::size_t{4} << 20;
  if (written - started < kStep) return true;
  if (std::fflush(file) != 0) return false;
  (void)::sync_file_range(::fileno(file), static_cast<off_t>(started),
                          static_cast<off_t>(written - started), SYNC_FILE_RANGE_WRITE);
  started = written;
#else
  (void)file, (void)written, (void)started;
#endif
  return true;
}

}  // namespace qxpkutil
