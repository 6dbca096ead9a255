// The INI profile on hostile files and writes. The first half of the input is a file to
// load; the rest, split at 0x01 bytes, names up to four section/key/value writes. A load
// then save is a fixed point after one round (the saved text reloads and saves to the same
// bytes); an accepted write reads back at once and, for names and values without blanks
// at their ends, after a reload from the file.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_common.h"
#include "qxpkutil/platform/QXProfile.h"

#include <unistd.h>

namespace {

using qxpkutil::QXIniProfile;

std::string ScratchPath() {
  static const std::string path = [] {
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir != nullptr ? dir : "/tmp") + "/qxpkutil-fuzz-profile-" +
           std::to_string(::getpid()) + ".ini";
  }();
  return path;
}

std::string ReadBack(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

void WriteFile(const std::string& path, std::string_view text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc)
      .write(text.data(), static_cast<std::streamsize>(text.size()));
}

bool TrimStable(const std::string& s) {
  const auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
  return s.empty() || (!blank(s.front()) && !blank(s.back()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = ScratchPath();
  const std::string_view all(reinterpret_cast<const char*>(data), size);
  const std::size_t split = all.find('\x02');
  const std::string_view file = all.substr(0, split);
  const std::string_view ops =
      split == std::string_view::npos ? std::string_view() : all.substr(split + 1);

  WriteFile(path, file);
  QXIniProfile loaded(path);
  QXFUZZ_CHECK(loaded.Save());
  const std::string first = ReadBack(path);
  {
    QXIniProfile again(path);
    QXFUZZ_CHECK(again.Save());
    QXFUZZ_CHECK(ReadBack(path) == first);
  }

  // Writes: fields separated by 0x01, NUL bytes made harmless for C strings.
  std::vector<std::string> fields(1);
  for (char c : ops) {
    if (c == '\x01') {
      fields.emplace_back();
    } else {
      fields.back() += c == '\0' ? 'z' : c;
    }
  }
  // Names with blanks at their ends are documented not to survive a reload, and one such
  // write can shadow a later key on reload ("k " and "k" both load as "k", first wins), so
  // reloads are compared only until the first of them.
  bool reloadable = true;
  for (std::size_t i = 0; i + 2 < fields.size() && i < 12; i += 3) {
    const std::string& section = fields[i];
    const std::string& key = fields[i + 1];
    const std::string& value = fields[i + 2];
    if (!loaded.WriteProfileString(section.c_str(), key.c_str(), value.c_str())) continue;
    QXFUZZ_CHECK(loaded.GetProfileString(section.c_str(), key.c_str(), "\x01") == value);
    reloadable = reloadable && TrimStable(section) && TrimStable(key) && TrimStable(value);
    if (reloadable) {
      QXIniProfile reloaded(path);
      QXFUZZ_CHECK(reloaded.GetProfileString(section.c_str(), key.c_str(), "\x01") == value);
    }
  }
  std::remove(path.c_str());
  return 0;
}
