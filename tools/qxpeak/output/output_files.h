// Writing the outputs of one input together: every file goes to a temporary beside its
// target first, and only when all of them are complete are they renamed into place, so a
// full disk or a failed format leaves the previous outputs as they were (never a mix of new
// and old). A replaced file keeps its permission bits. Temporaries are short names of their
// own (".qxpeak-XXXXXX"), so a target name as long as the file system allows still works,
// and they are removed when the process is stopped by SIGINT, SIGTERM, SIGHUP or SIGBUS.
//
//   InstallSignalCleanup();                                  // once, in main
//   std::string error;
//   if (!WriteOutputsTogether({{"a.tsv", tsv}, {"a.svg", svg}}, error)) { ... }
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qxpkutil::qxpeak {

// The files of one input, written through temporaries and renamed into place together.
// Reserve gives each target a temporary (created with the mode the target will have);
// writers fill the temporaries in any way they like (streams, other writers); Commit renames
// them all, Abandon (or the destructor, when Commit was not reached) removes them.
class OutputGroup {
 public:
  OutputGroup() = default;
  ~OutputGroup() { Abandon(); }
  OutputGroup(const OutputGroup&) = delete;
  OutputGroup& operator=(const OutputGroup&) = delete;

  // The path to write instead of `target`: a temporary beside it, or `target` itself when it
  // exists but is not a regular file (a terminal, a pipe) or is "-". False with a message.
  [[nodiscard]] bool Reserve(const std::string& target, std::string& writePath,
                             std::string& error);
  // Reserve, and the file to write opened (standard output for "-"); nullptr with a message.
  // A temporary is written through the descriptor that created it: opened again with
  // truncation, ext4 starts writing it out when it is closed (about 1 ms for 12 MB).
  [[nodiscard]] std::FILE* Open(const std::string& target, std::string& error);
  // True when `target` was given a temporary and a regular file exists there now.
  bool Replaces(const std::string& target) const;
  // Renames every temporary onto its target (with the target's mode); false with a message
  // when one fails (the rest are then removed).
  [[nodiscard]] bool Commit(std::string& error);
  void Abandon();

 private:
  // Reserve's work; `fd` is the temporary, open for writing (-1: none was made).
  bool Create(const std::string& target, std::string& writePath, int& fd, std::string& error);

  struct Entry {
    std::string target, temp;
    unsigned mode = 0;
    std::size_t slot = 0;
    bool replaces = false;
  };
  std::vector<Entry> m_entries;
};

// Writes every (path, content) pair: all of them or, on failure, none (a previous file at
// each path is left as it was, no temporary stays behind). "-" is standard output, written
// after the files are in place; a path that exists but is not a regular file (a terminal,
// a pipe) is written directly. False with one line in `error` naming the file.
[[nodiscard]] bool WriteOutputsTogether(
    const std::vector<std::pair<std::string, std::string_view>>& outputs, std::string& error);

// For temporaries another writer makes (the library's streamed mzML writes its own beside
// its target): the names in `dir` that look like one (".qx*.tmp") and are not in `before`,
// registered for removal on a signal until Forget is called with what this returned.
std::vector<std::string> TemporaryLookalikes(const std::string& dir);
std::vector<std::size_t> WatchNewTemporaries(const std::string& dir,
                                             const std::vector<std::string>& before);
void ForgetTemporaries(const std::vector<std::size_t>& watched);

// Handlers for SIGINT, SIGTERM and SIGHUP that remove the temporaries in flight and end the
// process with status 128 + the signal's number; SIGBUS too (a mapped input file was
// truncated under the reader), with a message saying so.
void InstallSignalCleanup();

// True when `a` and `b` name the same file (the same inode, or the same path once made
// absolute when either does not exist yet).
bool SameFile(const std::string& a, const std::string& b);

}  // namespace qxpkutil::qxpeak
