#include "tools/qxpeak/output/output_files.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qxpkutil::qxpeak {

namespace {

// Temporaries in flight, as strings a signal handler may read: a slot holds a path from
// malloc or null. A handler only reads slots and calls unlink, both async-signal-safe.
constexpr std::size_t kSlots = 4096;
std::array<std::atomic<char*>, kSlots> g_temporaries{};

std::size_t Register(const std::string& path) {
  char* copy = static_cast<char*>(std::malloc(path.size() + 1));
  if (copy == nullptr) return kSlots;
  std::memcpy(copy, path.c_str(), path.size() + 1);
  for (std::size_t i = 0; i < kSlots; ++i) {
    char* expected = nullptr;
    if (g_temporaries[i].compare_exchange_strong(expected, copy)) return i;
  }
  std::free(copy);
  return kSlots;  // untracked: still removed on every ordinary path
}

void Unregister(std::size_t slot) {
  if (slot < kSlots) std::free(g_temporaries[slot].exchange(nullptr));
}

extern "C" void RemoveTemporariesAndExit(int signal) {
  for (auto& slot : g_temporaries) {
    if (char* path = slot.load()) ::unlink(path);
  }
  ::_exit(128 + signal);
}

// The mode a new file gets: what the umask allows of 0666. Read once, before any thread
// starts, since reading the umask means setting it.
mode_t NewFileMode() {
  static const mode_t mode = [] {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    return static_cast<mode_t>(0666 & ~mask);
  }();
  return mode;
}

struct Pending {
  std::string target, temp;
  std::size_t slot = kSlots;
};

void Discard(std::vector<Pending>& pending) {
  for (Pending& p : pending) {
    ::unlink(p.temp.c_str());
    Unregister(p.slot);
  }
  pending.clear();
}

bool WriteAll(int fd, std::string_view content) {
  while (!content.empty()) {
    const ssize_t n = ::write(fd, content.data(), content.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    content.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

}  // namespace

bool WriteOutputsTogether(const std::vector<std::pair<std::string, std::string_view>>& outputs,
                          std::string& error) {
  std::vector<Pending> pending;
  std::vector<std::pair<std::string, std::string_view>> direct;
  std::string_view toStdout;
  bool stdoutUsed = false;
  for (const auto& [path, content] : outputs) {
    if (path == "-") {
      toStdout = content;
      stdoutUsed = true;
      continue;
    }
    struct stat existing {};
    const bool exists = ::stat(path.c_str(), &existing) == 0;
    if (exists && !S_ISREG(existing.st_mode)) {
      direct.emplace_back(path, content);
      continue;
    }
    const std::filesystem::path target(path);
    const std::filesystem::path dir = target.has_parent_path() ? target.parent_path() : ".";
    std::string temp = (dir / ".qxpeak-XXXXXX").string();
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) {
      error = path + ": cannot write: " + std::strerror(errno);
      Discard(pending);
      return false;
    }
    Pending p{path, temp, Register(temp)};
    // A replaced file keeps its permission bits; a new one gets the usual mode.
    const mode_t mode = exists ? (existing.st_mode & 07777) : NewFileMode();
    const bool ok = WriteAll(fd, content) && ::fchmod(fd, mode) == 0;
    const int savedErrno = errno;
    const bool closed = ::close(fd) == 0;
    pending.push_back(std::move(p));
    if (!ok || !closed) {
      error = path + ": cannot write: " + std::strerror(ok ? errno : savedErrno);
      Discard(pending);
      return false;
    }
  }
  for (Pending& p : pending) {
    if (std::rename(p.temp.c_str(), p.target.c_str()) != 0) {
      error = p.target + ": cannot replace: " + std::strerror(errno);
      Discard(pending);
      return false;
    }
    Unregister(p.slot);
    p.slot = kSlots;
    p.temp.clear();
  }
  for (const auto& [path, content] : direct) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    const bool ok = f != nullptr && std::fwrite(content.data(), 1, content.size(), f) ==
                                        content.size();
    if (f != nullptr && std::fclose(f) != 0) error = path + ": cannot write";
    if (!ok) {
      error = path + ": cannot write";
      return false;
    }
  }
  if (stdoutUsed && (std::fwrite(toStdout.data(), 1, toStdout.size(), stdout) != toStdout.size() ||
                     std::fflush(stdout) != 0)) {
    error = "standard output: write error";
    return false;
  }
  return true;
}

void InstallSignalCleanup() {
  NewFileMode();
  struct sigaction action {};
  action.sa_handler = RemoveTemporariesAndExit;
  sigemptyset(&action.sa_mask);
  for (const int s : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(s, &action, nullptr);
}

bool SameFile(const std::string& a, const std::string& b) {
  if (a == "-" || b == "-") return false;
  struct stat sa {}, sb {};
  if (::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0) {
    return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  }
  std::error_code ea, eb;
  const auto full = [](const std::string& p, std::error_code& ec) {
    return std::filesystem::weakly_canonical(std::filesystem::absolute(p, ec), ec);
  };
  return full(a, ea) == full(b, eb) && !ea && !eb;
}

}  // namespace qxpkutil::qxpeak
