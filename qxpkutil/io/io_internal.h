// Helpers shared by the readers and the writer of the io component; not installed.
//  - Input: a file or standard input read in chunks through zlib's gz reader, so gzip is
//    recognised by its magic bytes and anything else passes through unchanged.
//  - OutputFile: a file written in a stream into a temporary file beside the target and
//    renamed over it at the end, keeping an existing target's mode.
//  - Sha1: the digest the indexed mzML wrapper ends with.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>

#include "qxpkutil/io/Trace.h"

namespace qxpkutil::io_internal {

class Input {
 public:
  Input() = default;
  ~Input();
  Input(const Input&) = delete;
  Input& operator=(const Input&) = delete;
  Input(Input&& other) noexcept;
  Input& operator=(Input&& other) noexcept;

  // Opens `path` ("-" is standard input); false with a message naming it in `error`.
  [[nodiscard]] bool Open(const std::string& path, std::string& error);
  // Reads up to `size` bytes (decompressed when the input is gzip); 0 at the end, -1 on a
  // read or decompression error (then Error() says why).
  long Read(char* data, std::size_t size);
  // The first bytes (up to `size`, fewer when the input is shorter), which later reads
  // return again; for telling formats apart without reopening (standard input cannot be).
  std::string Peek(std::size_t size);
  // The whole input, mapped into memory instead of read, when it is a regular uncompressed
  // file from which nothing has been read yet (Peek aside); empty otherwise. Valid while the
  // Input lives; Read must not be used after it.
  std::string_view Map();
  // Mapped pages the system may drop (they are read again if touched): a long file read
  // from front to back then takes no more memory than its window.
  using Pages = std::span<char>;
  // The pages before `offset` not handed out before, once they make a few MiB (else none).
  // Cheap, so that a pipeline can take them under its lock and release them outside it.
  Pages Passed(std::size_t offset);
  // Lets the system drop `pages` (none: nothing); any thread may call it.
  static void Release(Pages pages);
  const std::string& Name() const { return m_name; }
  const std::string& Error() const { return m_error; }

 private:
  void Unmap();

  void* m_gz = nullptr;  // gzFile
  int m_fd = -1;         // owned by m_gz; -1 when it cannot be mapped
  bool m_read = false;   // Read has returned data
  char* m_map = nullptr;
  std::size_t m_mapSize = 0, m_released = 0;
  std::string m_name;
  std::string m_error;
  std::string m_peeked;  // returned by Read before anything else
  std::size_t m_peekedPos = 0;
};

// Reads two-column text from `input` into `trace` (TextReader's rules); the text reader's
// core, shared with TraceReader.
[[nodiscard]] bool ReadTextFrom(Input& input, Trace& trace, std::string& error);

class OutputFile {
 public:
  OutputFile() = default;
  ~OutputFile();  // an unfinished file is abandoned: its temporary is removed
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Starts writing `path` ("-" is standard output). A path that exists but is not a regular
  // file (a terminal, a pipe) is written directly.
  [[nodiscard]] bool Open(const std::string& path, std::string& error);
  [[nodiscard]] bool Write(std::string_view data);
  // Flushes and moves the file into place; false with a message in `error`, the target
  // then as it was.
  [[nodiscard]] bool Commit(std::string& error);
  void Abandon();

 private:
  std::FILE* m_file = nullptr;
  bool m_owned = false;  // m_file is ours to close (not stdout)
  std::string m_target, m_temp;
  std::size_t m_written = 0, m_started = 0;  // for WriteBehind
  bool m_failed = false;
};

class Sha1 {
 public:
  Sha1();
  void Update(const void* data, std::size_t size);
  std::string HexDigest();  // ends the hash; 40 lower-case hex digits

 private:
  void Block(const std::uint8_t* p);
  std::uint32_t m_h[5];
  std::uint8_t m_buffer[64];
  std::size_t m_used = 0;
  std::uint64_t m_length = 0;
};

// `text` as valid UTF-8 that XML 1.0 accepts: invalid byte sequences and control characters
// other than tab, line feed and carriage return become U+FFFD.
std::string XmlSafe(std::string_view text);
// XmlSafe(text) with &, <, > and " escaped, for an attribute value or element text.
std::string XmlEscape(std::string_view text);

// `text` for a one-line message: QXPrintable, cut when long.
std::string Printable(std::string_view text);

// `value` in the shortest form that reads back as the same double.
std::string FormatNumber(double value);

// Makes a freshly read trace fit for searching, or says why it is not: arrays of different
// lengths or a value that is not finite set trace.problem (naming the trace by `where` and
// the point by its x value, `xName` being "m/z" or "time"); x out of order is sorted, with
// y, stably, and trace.note says so.
void CheckAndSortTrace(Trace& trace, const std::string& where, const char* xName);

}  // namespace qxpkutil::io_internal
