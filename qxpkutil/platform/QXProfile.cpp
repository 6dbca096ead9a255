#include "qxpkutil/platform/QXProfile.h"

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXAtomicFile.h"
#include "qxpkutil/platform/QXParse.h"

namespace qxpkutil {
namespace {

// A settings file this large is not a settings file; refusing it bounds the memory a
// wrong path can cost.
constexpr std::uintmax_t kMaxIniFileSize = 64u << 20;
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t\r";

char LowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string_view Trim(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// atoi's reading, except that a text without digits gives `def`.
int LeadingInt(std::string_view text, int def) {
  int value = def;
  return QXParseLeadingInt(text, value) ? value : def;
}

bool HasLineBreak(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos;
}

// What a reload would read back as this section or key.
bool IsIniSection(std::string_view name) {
  return !HasLineBreak(name) && name.find(']') == std::string_view::npos;
}

bool IsIniKey(std::string_view key) {
  const std::string_view trimmed = Trim(key);
  return !trimmed.empty() && !HasLineBreak(key) && key.find('=') == std::string_view::npos &&
         trimmed.front() != ';' && trimmed.front() != '#' && trimmed.front() != '[';
}

// The entries of `map` in the order they were first written.
template <typename Map>
std::vector<const typename Map::value_type*> InWrittenOrder(const Map& map) {
  std::vector<const typename Map::value_type*> entries;
  entries.reserve(map.size());
  for (const auto& entry : map) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->second.order < b->second.order; });
  return entries;
}

constinit std::atomic<QXProfile*> g_appProfile{nullptr};

}  // namespace

bool QXMemoryProfile::NoCaseLess::operator()(const std::string& a, const std::string& b) const {
  return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
    return static_cast<unsigned char>(LowerAscii(x)) < static_cast<unsigned char>(LowerAscii(y));
  });
}

void QXMemoryProfile::Put(const std::string& section, const std::string& key,
                          std::string_view value, bool replace) {
  auto [sectionIt, newSection] = m_sections.try_emplace(section);
  if (newSection) sectionIt->second.order = m_nextOrder++;
  auto [keyIt, newKey] = sectionIt->second.keys.try_emplace(key);
  if (newKey) {
    keyIt->second.order = m_nextOrder++;
  } else if (!replace) {
    return;
  }
  keyIt->second.value = value;
}

int QXMemoryProfile::GetProfileInt(const char* section, const char* key, int def) {
  if (section == nullptr || key == nullptr) return def;
  const auto sectionIt = m_sections.find(section);
  if (sectionIt == m_sections.end()) return def;
  const auto keyIt = sectionIt->second.keys.find(key);
  return keyIt == sectionIt->second.keys.end() ? def : LeadingInt(keyIt->second.value, def);
}

bool QXMemoryProfile::WriteProfileInt(const char* section, const char* key, int value) {
  if (key == nullptr) return false;  // a null key would remove the section
  return WriteProfileString(section, key, std::to_string(value).c_str());
}

std::string QXMemoryProfile::GetProfileString(const char* section, const char* key,
                                              const char* def) {
  if (section != nullptr && key != nullptr) {
    if (const auto sectionIt = m_sections.find(section); sectionIt != m_sections.end()) {
      const auto keyIt = sectionIt->second.keys.find(key);
      if (keyIt != sectionIt->second.keys.end()) return keyIt->second.value;
    }
  }
  return def == nullptr ? std::string() : std::string(def);
}

bool QXMemoryProfile::WriteProfileString(const char* section, const char* key,
                                         const char* value) {
  if (section == nullptr) return false;
  if (key == nullptr) {
    m_sections.erase(section);
  } else if (value != nullptr) {
    Put(section, key, value, true);
  } else if (const auto sectionIt = m_sections.find(section); sectionIt != m_sections.end()) {
    sectionIt->second.keys.erase(key);
    if (sectionIt->second.keys.empty()) m_sections.erase(sectionIt);
  }
  return true;
}

QXIniProfile::QXIniProfile(std::string path) : m_path(std::move(path)) { (void)Load(); }

bool QXIniProfile::Load() {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::file_status status = fs::status(m_path, ec);
  if (status.type() == fs::file_type::not_found) {
    m_sections.clear();
    m_loaded = true;
    return true;
  }
  m_loaded = false;
  if (ec || fs::is_directory(status)) return false;
  std::ifstream in(m_path, std::ios::binary);
  std::string text;
  char block[4096];
  while (in.read(block, sizeof block) || in.gcount() > 0) {
    text.append(block, static_cast<std::size_t>(in.gcount()));
    if (text.size() > kMaxIniFileSize) return false;
  }
  if (in.bad() || !in.eof()) return false;
  ParseIni(text);
  m_loaded = true;
  return true;
}

void QXMemoryProfile::ParseIni(std::string_view text) {
  m_sections.clear();
  if (text.starts_with(kUtf8Bom)) text.remove_prefix(kUtf8Bom.size());
  std::string section;
  bool inSection = false;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const std::string_view line = Trim(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.empty() || line.front() == ';' || line.front() == '#') continue;
    if (line.front() == '[') {
      // Text after the closing bracket is ignored; a missing bracket is forgiven.
      section = Trim(line.substr(1, line.find(']') - 1));
      inSection = true;
      continue;
    }
    const std::size_t equals = line.find('=');
    if (!inSection || equals == std::string_view::npos) continue;
    const std::string key(Trim(line.substr(0, equals)));
    if (!key.empty()) Put(section, key, Trim(line.substr(equals + 1)), false);
  }
}

std::string QXIniProfile::ToText() const {
  std::string text;
  for (const auto* section : InWrittenOrder(m_sections)) {
    if (!text.empty()) text += '\n';
    text.append("[").append(section->first).append("]\n");
    for (const auto* entry : InWrittenOrder(section->second.keys)) {
      text.append(entry->first).append("=").append(entry->second.value).append("\n");
    }
  }
  return text;
}

bool QXIniProfile::Save() const { return m_loaded && QXWriteFileAtomically(m_path, ToText()); }

bool QXIniProfile::WriteProfileInt(const char* section, const char* key, int value) {
  // The base formats the number and comes back through WriteProfileString below.
  return QXMemoryProfile::WriteProfileInt(section, key, value);
}

bool QXIniProfile::WriteProfileString(const char* section, const char* key, const char* value) {
  if (section == nullptr || !IsIniSection(section)) return false;
  if (key != nullptr && (!IsIniKey(key) || (value != nullptr && HasLineBreak(value)))) {
    return false;
  }
  auto sections = m_sections;
  const std::uint64_t nextOrder = m_nextOrder;
  (void)QXMemoryProfile::WriteProfileString(section, key, value);
  if (Save()) return true;
  m_sections = std::move(sections);
  m_nextOrder = nextOrder;
  return false;
}

void QXSetAppProfile(QXProfile* profile) { g_appProfile.store(profile); }

QXProfile* QXGetAppProfile() { return g_appProfile.load(); }

}  // namespace qxpkutil
