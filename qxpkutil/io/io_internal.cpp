#include "qxpkutil/io/io_internal.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "qxpkutil/numeric/trace_scan.h"
#include "qxpkutil/platform/QXAtomicFile.h"
#include "qxpkutil/platform/QXFormat.h"

namespace qxpkutil::io_internal {

Input::~Input() {
  Unmap();
  if (m_gz != nullptr) gzclose(static_cast<gzFile>(m_gz));
}

void Input::Unmap() {
  if (m_map != nullptr) ::munmap(m_map, m_mapSize);
  m_map = nullptr;
  m_mapSize = m_released = 0;
}

std::string_view Input::Map() {
  if (m_map == nullptr) {
    struct stat info {};
    if (m_gz == nullptr || m_fd < 0 || m_read || gzdirect(static_cast<gzFile>(m_gz)) != 1 ||
        ::fstat(m_fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size <= 0 ||
        static_cast<std::uint64_t>(info.st_size) > SIZE_MAX) {
      return {};
    }
    const auto size = static_cast<std::size_t>(info.st_size);
    void* map = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, m_fd, 0);
    if (map == MAP_FAILED) return {};
    (void)::madvise(map, size, MADV_SEQUENTIAL);
    m_map = static_cast<char*>(map);
    m_mapSize = size;
  }
  return {m_map, m_mapSize};
}

Input::Pages Input::Passed(std::size_t offset) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  // In steps of a few MiB: a call per small element would cost more than it saves.
  offset = std::min(offset, m_mapSize) / page * page;
  if (m_map == nullptr || offset < m_released + (std::size_t{4} << 20)) return {};
  const Pages pages(m_map + m_released, offset - m_released);
  m_released = offset;
  return pages;
}

void Input::Release(Pages pages) {
  if (!pages.empty()) (void)::madvise(pages.data(), pages.size(), MADV_DONTNEED);
}

bool Input::Open(const std::string& path, std::string& error) {
  m_name = path == "-" ? "standard input" : path;
  int fd = -1;
  if (path == "-") {
    fd = ::dup(STDIN_FILENO);
  } else {
    fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  }
  if (fd < 0) {
    error = m_name + ": cannot open: " + std::strerror(errno);
    return false;
  }
  struct stat info {};
  if (::fstat(fd, &info) == 0 && S_ISDIR(info.st_mode)) {
    ::close(fd);
    error = m_name + ": is a directory";
    return false;
  }
  gzFile gz = gzdopen(fd, "rb");
  if (gz == nullptr) {
    ::close(fd);
    error = m_name + ": cannot open";
    return false;
  }
  gzbuffer(gz, 1u << 17);
  m_gz = gz;
  // Standard input may be a file that someone has read part of: then it is not mapped.
  m_fd = ::lseek(fd, 0, SEEK_CUR) == 0 ? fd : -1;
  return true;
}

Input::Input(Input&& other) noexcept { *this = std::move(other); }

Input& Input::operator=(Input&& other) noexcept {
  if (this != &other) {
    Unmap();
    if (m_gz != nullptr) gzclose(static_cast<gzFile>(m_gz));
    m_gz = std::exchange(other.m_gz, nullptr);
    m_fd = std::exchange(other.m_fd, -1);
    m_read = other.m_read;
    m_map = std::exchange(other.m_map, nullptr);
    m_mapSize = std::exchange(other.m_mapSize, 0);
    m_released = std::exchange(other.m_released, 0);
    m_name = std::move(other.m_name);
    m_error = std::move(other.m_error);
    m_peeked = std::move(other.m_peeked);
    m_peekedPos = other.m_peekedPos;
  }
  return *this;
}

std::string Input::Peek(std::size_t size) {
  while (m_peeked.size() < size && m_gz != nullptr) {
    const std::size_t used = m_peeked.size();
    m_peeked.resize(size);
    const int got = gzread(static_cast<gzFile>(m_gz), m_peeked.data() + used,
                           static_cast<unsigned>(size - used));
    m_peeked.resize(used + static_cast<std::size_t>(std::max(got, 0)));
    if (got <= 0) break;
  }
  return m_peeked.substr(0, size);
}

long Input::Read(char* data, std::size_t size) {
  m_read = true;
  if (m_peekedPos < m_peeked.size()) {
    const std::size_t take = std::min(size, m_peeked.size() - m_peekedPos);
    std::memcpy(data, m_peeked.data() + m_peekedPos, take);
    m_peekedPos += take;
    if (m_peekedPos == m_peeked.size()) {
      m_peeked.clear();
      m_peekedPos = 0;
    }
    return static_cast<long>(take);
  }
  if (m_gz == nullptr) return 0;
  const unsigned chunk = static_cast<unsigned>(std::min<std::size_t>(size, 1u << 30));
  const int got = gzread(static_cast<gzFile>(m_gz), data, chunk);
  if (got < 0) {
    int code = 0;
    const char* why = gzerror(static_cast<gzFile>(m_gz), &code);
    m_error = m_name + ": " + (code == Z_ERRNO ? std::strerror(errno) : why);
    return -1;
  }
  // A gzip stream cut short reads as an end; zlib tells it apart.
  if (got == 0) {
    int code = 0;
    gzerror(static_cast<gzFile>(m_gz), &code);
    if (code == Z_BUF_ERROR) {
      m_error = m_name + ": the gzip data ends early (truncated file)";
      return -1;
    }
  }
  return got;
}

namespace {

// A short random name part: the temporary name stays short, so that a target name near the
// file system's limit still works.
std::string RandomPart() {
  static std::atomic<unsigned> counter{0};
  thread_local std::mt19937_64 rng(std::random_device{}());
  char text[32];
  std::snprintf(text, sizeof text, "%x%08llx", counter.fetch_add(1) & 0xFF,
                static_cast<unsigned long long>(rng() & 0xFFFFFFFF));
  return text;
}

}  // namespace

OutputFile::~OutputFile() { Abandon(); }

bool OutputFile::Open(const std::string& path, std::string& error) {
  namespace fs = std::filesystem;
  Abandon();
  m_failed = false;
  m_written = m_started = 0;
  if (path == "-") {
    m_file = stdout;
    m_owned = false;
    m_target = "standard output";
    return true;
  }
  std::error_code ec;
  std::string target = path;
  if (fs::is_symlink(fs::symlink_status(path, ec))) {
    target = fs::weakly_canonical(path, ec).string();
  }
  struct stat info {};
  const bool exists = ::stat(target.c_str(), &info) == 0;
  if (exists && S_ISDIR(info.st_mode)) {
    error = path + ": is a directory";
    return false;
  }
  if (exists && !S_ISREG(info.st_mode)) {  // a pipe or a device cannot be renamed over
    m_file = std::fopen(target.c_str(), "wb");
    if (m_file == nullptr) {
      error = path + ": cannot write: " + std::strerror(errno);
      return false;
    }
    m_owned = true;
    m_target = path;
    return true;
  }
  const fs::path dir = fs::path(target).parent_path();
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    m_temp = (dir / (".qx" + RandomPart() + ".tmp")).string();
    fd = ::open(m_temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) {
    error = path + ": cannot write: " + std::strerror(errno);
    m_temp.clear();
    return false;
  }
  // A replaced file keeps its permissions (a private table stays private).
  if (exists) (void)::fchmod(fd, info.st_mode & 07777);
  m_file = ::fdopen(fd, "wb");
  if (m_file == nullptr) {
    ::close(fd);
    ::unlink(m_temp.c_str());
    m_temp.clear();
    error = path + ": cannot write";
    return false;
  }
  m_owned = true;
  m_target = target;
  return true;
}

bool OutputFile::Write(std::string_view data) {
  if (m_file == nullptr || m_failed) return false;
  if (!data.empty() && std::fwrite(data.data(), 1, data.size(), m_file) != data.size()) {
    m_failed = true;
  }
  // The temporary is synced before it is renamed: what is written out meanwhile is not
  // waited for then.
  m_written += data.size();
  if (!m_failed && !m_temp.empty()) m_failed = !WriteBehind(m_file, m_written, m_started);
  return !m_failed;
}

bool OutputFile::Commit(std::string& error) {
  if (m_file == nullptr) {
    error = "internal error: no output open";
    return false;
  }
  errno = 0;
  bool ok = !m_failed && std::fflush(m_file) == 0;
  if (ok && !m_temp.empty()) ok = ::fsync(::fileno(m_file)) == 0;
  const int savedErrno = errno;
  if (m_owned) ok = std::fclose(m_file) == 0 && ok;
  m_file = nullptr;
  if (ok && !m_temp.empty()) ok = std::rename(m_temp.c_str(), m_target.c_str()) == 0;
  if (!ok) {
    error = m_target + ": cannot write";
    const int why = errno != 0 ? errno : savedErrno;
    if (why != 0) error += std::string(": ") + std::strerror(why);
    if (!m_temp.empty()) ::unlink(m_temp.c_str());
  }
  m_temp.clear();
  return ok;
}

void OutputFile::Abandon() {
  if (m_file != nullptr && m_owned) std::fclose(m_file);
  m_file = nullptr;
  if (!m_temp.empty()) ::unlink(m_temp.c_str());
  m_temp.clear();
}

namespace {

std::uint32_t Rotl(std::uint32_t v, int n) { return (v << n) | (v >> (32 - n)); }

}  // namespace

Sha1::Sha1() : m_h{0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u, 0xC3D2E1F0u} {}

void Sha1::Block(const std::uint8_t* p) {
  std::uint32_t w[80];
  for (int i = 0; i < 16; ++i) {
    w[i] = (std::uint32_t{p[4 * i]} << 24) | (std::uint32_t{p[4 * i + 1]} << 16) |
           (std::uint32_t{p[4 * i + 2]} << 8) | p[4 * i + 3];
  }
  for (int i = 16; i < 80; ++i) w[i] = Rotl(w[i - 3] ^ w[i - 8] ^ w[i - 14] ^ w[i - 16], 1);
  std::uint32_t a = m_h[0], b = m_h[1], c = m_h[2], d = m_h[3], e = m_h[4];
  for (int i = 0; i < 80; ++i) {
    std::uint32_t f, k;
    if (i < 20) {
      f = (b & c) | (~b & d);
      k = 0x5A827999u;
    } else if (i < 40) {
      f = b ^ c ^ d;
      k = 0x6ED9EBA1u;
    } else if (i < 60) {
      f = (b & c) | (b & d) | (c & d);
      k = 0x8F1BBCDCu;
    } else {
      f = b ^ c ^ d;
      k = 0xCA62C1D6u;
    }
    const std::uint32_t t = Rotl(a, 5) + f + e + k + w[i];
    e = d;
    d = c;
    c = Rotl(b, 30);
    b = a;
    a = t;
  }
  m_h[0] += a;
  m_h[1] += b;
  m_h[2] += c;
  m_h[3] += d;
  m_h[4] += e;
}

void Sha1::Update(const void* data, std::size_t size) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  m_length += size;
  while (size > 0) {
    if (m_used == 0 && size >= 64) {
      Block(p);
      p += 64;
      size -= 64;
      continue;
    }
    const std::size_t take = std::min<std::size_t>(64 - m_used, size);
    std::memcpy(m_buffer + m_used, p, take);
    m_used += take;
    p += take;
    size -= take;
    if (m_used == 64) {
      Block(m_buffer);
      m_used = 0;
    }
  }
}

std::string Sha1::HexDigest() {
  const std::uint64_t bits = m_length * 8;
  const std::uint8_t one = 0x80, zero = 0;
  Update(&one, 1);
  while (m_used != 56) Update(&zero, 1);
  std::uint8_t tail[8];
  for (int i = 0; i < 8; ++i) tail[i] = static_cast<std::uint8_t>(bits >> (56 - 8 * i));
  Update(tail, 8);
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  for (const std::uint32_t h : m_h) {
    for (int shift = 28; shift >= 0; shift -= 4) out += kHex[(h >> shift) & 0xF];
  }
  return out;
}

std::string XmlSafe(std::string_view text) {
  static constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::string out;
  out.reserve(text.size());
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  for (std::size_t i = 0; i < n;) {
    const unsigned char c = s[i];
    if (c < 0x80) {
      if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') {
        out += kReplacement;
      } else {
        out += static_cast<char>(c);
      }
      ++i;
      continue;
    }
    // The length a lead byte announces, and the smallest code point that length may hold.
    std::size_t len = 0;
    std::uint32_t cp = 0, least = 0;
    if (c >= 0xC2 && c <= 0xDF) {
      len = 2, cp = c & 0x1F, least = 0x80;
    } else if (c >= 0xE0 && c <= 0xEF) {
      len = 3, cp = c & 0x0F, least = 0x800;
    } else if (c >= 0xF0 && c <= 0xF4) {
      len = 4, cp = c & 0x07, least = 0x10000;
    }
    bool ok = len != 0 && i + len <= n;
    for (std::size_t k = 1; ok && k < len; ++k) {
      ok = (s[i + k] & 0xC0) == 0x80;
      cp = (cp << 6) | (s[i + k] & 0x3F);
    }
    ok = ok && cp >= least && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF) &&
         cp != 0xFFFE && cp != 0xFFFF;
    if (ok) {
      out.append(text.substr(i, len));
      i += len;
    } else {
      out += kReplacement;
      ++i;
    }
  }
  return out;
}

std::string XmlEscape(std::string_view text) {
  const std::string safe = XmlSafe(text);
  std::string out;
  out.reserve(safe.size());
  for (const char c : safe) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\n': out += "&#10;"; break;
      case '\r': out += "&#13;"; break;
      case '\t': out += "&#9;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string Printable(std::string_view text) {
  constexpr std::size_t kLongest = 80;
  return QXPrintable(text.substr(0, kLongest)) + (text.size() > kLongest ? "..." : "");
}

std::string FormatNumber(double value) {
  char text[40];
  const auto r = std::to_chars(text, text + sizeof text, value);
  return std::string(text, r.ptr);
}

void CheckAndSortTrace(Trace& trace, const std::string& where, const char* xName) {
  if (trace.x.size() != trace.y.size()) {
    trace.problem = where + ": " + xName + " array has " + std::to_string(trace.x.size()) +
                    " values, intensity array " + std::to_string(trace.y.size());
    return;
  }
  const std::size_t n = trace.x.size();
  const TraceScan scan = ScanTrace(trace.x.data(), trace.y.data(), n);
  if (scan.first_not_finite < n) {
    const std::size_t i = scan.first_not_finite;
    const double x = trace.x[i], y = trace.y[i];
    trace.problem = !std::isfinite(x) ? where + ": " + xName + " value " + FormatNumber(x) +
                                            " (point " + std::to_string(i + 1) + " of " +
                                            std::to_string(n) + ")"
                                      : where + ": intensity " + FormatNumber(y) + " at " +
                                            xName + " " + FormatNumber(x);
    return;
  }
  if (scan.first_fall == n) return;
  const std::size_t firstDrop = scan.first_fall;
  trace.note = where + ": " + xName + " values were out of order (" +
               FormatNumber(trace.x[firstDrop]) + " after " + FormatNumber(trace.x[firstDrop - 1]) +
               "); sorted";
  std::vector<std::size_t> order(n);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return trace.x[a] < trace.x[b]; });
  std::vector<double> x(n), y(n);
  for (std::size_t i = 0; i < n; ++i) {
    x[i] = trace.x[order[i]];
    y[i] = trace.y[order[i]];
  }
  trace.x = std::move(x);
  trace.y = std::move(y);
}

}  // namespace qxpkutil::io_internal
