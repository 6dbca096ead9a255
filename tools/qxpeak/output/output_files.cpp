#include "tools/qxpeak/output/output_files.h"

#include <algorithm>
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
  if (signal == SIGBUS) {
    static constexpr char kShrunk[] =
        "qxpeak: an input file was cut short by another program while it was being read\n";
    (void)!::write(STDERR_FILENO, kShrunk, sizeof kShrunk - 1);
  }
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

}  // namespace

bool OutputGroup::Reserve(const std::string& target, std::string& writePath,
                          std::string& error) {
  int fd = -1;
  if (!Create(target, writePath, fd, error)) return false;
  if (fd >= 0) ::close(fd);
  return true;
}

std::FILE* OutputGroup::Open(const std::string& target, std::string& error) {
  std::string writePath;
  int fd = -1;
  if (!Create(target, writePath, fd, error)) return nullptr;
  if (writePath == "-") return stdout;
  std::FILE* f = fd >= 0 ? ::fdopen(fd, "wb") : std::fopen(writePath.c_str(), "wb");
  if (f == nullptr) {
    error = target + ": cannot write: " + std::strerror(errno);
    if (fd >= 0) ::close(fd);
  }
  return f;
}

bool OutputGroup::Create(const std::string& target, std::string& writePath, int& fd,
                         std::string& error) {
  writePath = target;
  if (target == "-") return true;
  struct stat existing {};
  const bool exists = ::stat(target.c_str(), &existing) == 0;
  if (exists && S_ISDIR(existing.st_mode)) {
    error = target + ": is a directory";
    return false;
  }
  if (exists && !S_ISREG(existing.st_mode)) return true;
  const std::filesystem::path path(target);
  const std::filesystem::path dir = path.has_parent_path() ? path.parent_path() : ".";
  // A short name of its own, so that a target name as long as the system allows still works.
  std::string temp = (dir / ".qxpeak-XXXXXX").string();
  fd = ::mkstemp(temp.data());
  if (fd < 0) {
    error = target + ": cannot write: " + std::strerror(errno);
    return false;
  }
  // A replaced file keeps its permission bits; a new one gets the usual mode.
  const mode_t mode = exists ? (existing.st_mode & 07777) : NewFileMode();
  (void)::fchmod(fd, mode);
  m_entries.push_back({target, temp, static_cast<unsigned>(mode), Register(temp), exists});
  writePath = temp;
  return true;
}

bool OutputGroup::Replaces(const std::string& target) const {
  return std::any_of(m_entries.begin(), m_entries.end(),
                     [&](const Entry& e) { return e.target == target && e.replaces; });
}

bool OutputGroup::Commit(std::string& error) {
  for (Entry& e : m_entries) {
    // Another writer may have replaced the temporary with a file of its own mode.
    (void)::chmod(e.temp.c_str(), static_cast<mode_t>(e.mode));
    if (std::rename(e.temp.c_str(), e.target.c_str()) != 0) {
      error = e.target + ": cannot replace: " + std::strerror(errno);
      Abandon();
      return false;
    }
    Unregister(e.slot);
    e.slot = kSlots;
    e.temp.clear();
  }
  m_entries.clear();
  return true;
}

void OutputGroup::Abandon() {
  for (Entry& e : m_entries) {
    if (!e.temp.empty()) ::unlink(e.temp.c_str());
    Unregister(e.slot);
  }
  m_entries.clear();
}

bool WriteOutputsTogether(const std::vector<std::pair<std::string, std::string_view>>& outputs,
                          std::string& error) {
  OutputGroup group;
  std::string_view toStdout;
  bool stdoutUsed = false;
  for (const auto& [path, content] : outputs) {
    if (path == "-") {
      toStdout = content;
      stdoutUsed = true;
      continue;
    }
    std::FILE* f = group.Open(path, error);
    if (f == nullptr) return false;
    const bool ok = std::fwrite(content.data(), 1, content.size(), f) == content.size();
    const bool closed = std::fclose(f) == 0;
    if (!ok || !closed) {
      error = path + ": cannot write: " + std::strerror(errno);
      return false;
    }
  }
  if (!group.Commit(error)) return false;
  if (stdoutUsed && (std::fwrite(toStdout.data(), 1, toStdout.size(), stdout) != toStdout.size() ||
                     std::fflush(stdout) != 0)) {
    error = "standard output: write error";
    return false;
  }
  return true;
}

std::vector<std::string> TemporaryLookalikes(const std::string& dir) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(dir.empty() ? "." : dir, ec)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with(".qx") && name.ends_with(".tmp")) names.push_back(entry.path().string());
  }
  return names;
}

std::vector<std::size_t> WatchNewTemporaries(const std::string& dir,
                                             const std::vector<std::string>& before) {
  std::vector<std::size_t> slots;
  for (const std::string& path : TemporaryLookalikes(dir)) {
    if (std::find(before.begin(), before.end(), path) == before.end()) {
      slots.push_back(Register(path));
    }
  }
  return slots;
}

void ForgetTemporaries(const std::vector<std::size_t>& watched) {
  for (const std::size_t slot : watched) Unregister(slot);
}

void InstallSignalCleanup() {
  NewFileMode();
  struct sigaction action {};
  action.sa_handler = RemoveTemporariesAndExit;
  sigemptyset(&action.sa_mask);
  for (const int s : {SIGINT, SIGTERM, SIGHUP, SIGBUS}) ::sigaction(s, &action, nullptr);
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
