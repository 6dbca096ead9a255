#include "qxpkutil/settings/QXPersistUtils.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "qxpkutil/platform/QXFormat.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/persist_internal.h"

namespace qxpkutil {

namespace {

using persist_detail::FullKey;
using persist_detail::ParseInt;

void AppendLine(std::vector<std::string>* list, const char* section, const char* key,
                std::string_view value) {
  if (list == nullptr) return;
  std::string line = FullKey(section, key);
  line += '=';
  line += value;
  line += "\r\n";
  list->push_back(std::move(line));
}

// Sets `out` to the value of the entry that starts at `match`: the rest of the line after
// the first "=" from `match` on, which a caller has made sure exists.
void AssignEntryValue(const char* match, std::string& out) {
  const char* value = std::strchr(match, '=') + 1;
  out.assign(value, std::strcspn(value, "\r\n"));
}

template <class T>
int GetConvertedEntry(const char* text, const char* key, T& out, T (*convert)(const char*)) {
  std::string found;
  if (QXPersistUtils::GetEntry(text, key, found) == 0) return 0;
  out = convert(found.c_str());
  return 1;
}

}  // namespace

namespace persist_detail {

int ParseInt(const char* text) {
  int value = 0;  // atoi's 0 for a text without digits
  return QXParseLeadingInt(text, value) ? value : 0;
}

// Not QXParseDouble: saved settings texts load as atof reads them ("1.5abc" is 1.5, "abc" 0).
double ParseDouble(const char* text) { return std::strtod(text, nullptr); }

std::string FormatDouble(double value, DoubleFormat format) {
  return format == DoubleFormat::kFixed ? QXFormat("%f", value) : QXFormat("%e", value);
}

std::string IndexedKey(const char* name, std::int32_t index) {
  std::string key = name;
  key += '-';
  key += std::to_string(index);
  return key;
}

std::string FullKey(const char* section, const char* key) {
  std::string full = section;
  full += '\\';
  full += key;
  return full;
}

SectionEntries::SectionEntries(const char* text, const char* section, std::size_t maxKeyLength)
    : m_text(text), m_prefix(section != nullptr ? section : ""), m_maxKeyLength(maxKeyLength) {
  m_prefix += '\\';
  if (text == nullptr || section == nullptr) return;
  // Every "section\key=" starts with an occurrence of the prefix, and its key runs to the
  // first "=" after the prefix. Occurrences come in text order, so the first one of each
  // key is kept. The "=" found for one occurrence serves the later ones up to it, which
  // keeps the pass linear even for a text made of prefixes.
  const char* equals = nullptr;
  for (const char* at = std::strstr(text, m_prefix.c_str()); at != nullptr;
       at = std::strstr(at + 1, m_prefix.c_str())) {
    const char* key = at + m_prefix.size();
    if (equals == nullptr || equals < key) {
      equals = std::strchr(key, '=');
      if (equals == nullptr) break;  // no entry can follow
    }
    const auto length = static_cast<std::size_t>(equals - key);
    if (length <= m_maxKeyLength) m_first.emplace(std::string_view(key, length), at);
  }
}

bool SectionEntries::Find(const char* key, std::string& out) const {
  if (m_text == nullptr || key == nullptr) return false;
  const std::string_view wanted(key);
  if (wanted.size() > m_maxKeyLength || wanted.find('=') != std::string_view::npos) {
    return QXPersistUtils::GetEntry(m_text, (m_prefix + key).c_str(), out) == 1;
  }
  const auto it = m_first.find(wanted);
  if (it == m_first.end()) return false;
  AssignEntryValue(it->second, out);
  return true;
}

bool FindValue(const char* text, const char* section, const char* key, std::string& out) {
  return QXPersistUtils::GetEntry(text, FullKey(section, key).c_str(), out) == 1;
}

bool FindValue(const SectionEntries& entries, const char*, const char* key, std::string& out) {
  return entries.Find(key, out);
}

bool FindValue(const std::map<std::string, std::string>& map, const char* section, const char* key,
               std::string& out) {
  const auto it = map.find(FullKey(section, key));
  if (it == map.end()) return false;
  out = it->second;
  return true;
}

Origin ChooseOrigin(const QXProfile* app, const char* section, const char* key, unsigned flags) {
  if (section == nullptr || key == nullptr) return Origin::kDefault;
  if ((flags & kQXPersistFromText) != 0) return Origin::kSource;
  if ((flags & kQXPersistFromProfile) != 0 && app != nullptr) return Origin::kProfile;
  return Origin::kDefault;
}

void WriteDoubleSetting(QXProfile* app, const char* section, const char* key, double value,
                        DoubleFormat format, std::vector<std::string>* list, int toProfile) {
  QXPersistUtils::WriteParamSetting(app, section, key, FormatDouble(value, format).c_str(), list,
                                    toProfile);
}

}  // namespace persist_detail

void QXPersistUtils::WriteParamSetting(QXProfile* app, const char* section, const char* key,
                                       int value, std::vector<std::string>* list, int toProfile) {
  if (section == nullptr || key == nullptr) return;
  AppendLine(list, section, key, std::to_string(value));
  if (toProfile != 0 && app != nullptr) app->WriteProfileInt(section, key, value);
}

void QXPersistUtils::WriteParamSetting(QXProfile* app, const char* section, const char* key,
                                       const char* value, std::vector<std::string>* list,
                                       int toProfile) {
  if (section == nullptr || key == nullptr) return;
  if (value == nullptr) value = "";
  AppendLine(list, section, key, value);
  if (toProfile != 0 && app != nullptr) app->WriteProfileString(section, key, value);
}

std::uint32_t QXPersistUtils::GetParamSetting(QXProfile* app, const char* section, const char* key,
                                              int def, const char* text, unsigned flags) {
  return persist_detail::ReadInt(app, section, key, def, text, flags);
}

std::string QXPersistUtils::GetParamSetting(QXProfile* app, const char* section, const char* key,
                                            const char* def, const char* text, unsigned flags) {
  return persist_detail::ReadText(app, section, key, def, text, flags);
}

std::uint32_t QXPersistUtils::GetParamSetting(QXProfile* app, const char* section, const char* key,
                                              int def,
                                              const std::map<std::string, std::string>& map,
                                              unsigned flags) {
  return persist_detail::ReadInt(app, section, key, def, map, flags);
}

std::string QXPersistUtils::GetParamSetting(QXProfile* app, const char* section, const char* key,
                                            const char* def,
                                            const std::map<std::string, std::string>& map,
                                            unsigned flags) {
  return persist_detail::ReadText(app, section, key, def, map, flags);
}

int QXPersistUtils::GetEntry(const char* text, const char* key, std::string& out) {
  if (text == nullptr || key == nullptr) return 0;
  std::string pattern = key;
  pattern += '=';
  const char* match = std::strstr(text, pattern.c_str());
  if (match == nullptr) return 0;
  AssignEntryValue(match, out);  // the pattern holds an "=", so there is one
  return 1;
}

int QXPersistUtils::GetEntry(const char* text, const char* key, int& out) {
  return GetConvertedEntry(text, key, out, &ParseInt);
}

int QXPersistUtils::GetEntry(const char* text, const char* key, std::uint32_t& out) {
  int value = 0;
  if (GetEntry(text, key, value) == 0) return 0;
  out = static_cast<std::uint32_t>(value);
  return 1;
}

int QXPersistUtils::GetEntry(const char* text, const char* key, double& out) {
  return GetConvertedEntry(text, key, out, &persist_detail::ParseDouble);
}

void QXPersistUtils::FormStringFromList(std::string& out, const std::vector<std::string>& list) {
  std::size_t size = 0;
  for (const std::string& line : list) size += line.size() + 2;
  out.clear();
  out.reserve(size);
  for (const std::string& line : list) {
    out += line;
    out += "\r\n";
  }
}

void QXPersistUtils::ParseStringToList(const std::string& text, std::vector<std::string>& list,
                                       const char* separators) {
  if (separators == nullptr || *separators == '\0') {
    if (!text.empty()) list.push_back(text);
    return;
  }
  std::size_t start = text.find_first_not_of(separators);
  while (start != std::string::npos) {
    const std::size_t end = text.find_first_of(separators, start);
    list.push_back(text.substr(start, end - start));
    if (end == std::string::npos) break;
    start = text.find_first_not_of(separators, end);
  }
}

}  // namespace qxpkutil
