// The application's settings store: integers and strings by section and key.
// Two stores ship: QXMemoryProfile (in memory) and QXIniProfile (an INI file on disk,
// rewritten atomically on every write). The process-wide "application profile" is the
// one set with QXSetAppProfile; with none set, operations that need it do nothing.
//
//   QXIniProfile ini("qxpeak.ini");
//   QXSetAppProfile(&ini);
//   list.PersistSettings("PeakDetect");
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace qxpkutil {

// Stores are not synchronised: callers that share one between threads serialise access.
class QXProfile {
 public:
  virtual ~QXProfile() = default;
  // The integer at section/key: the stored text's leading decimal number after blanks and
  // an optional sign, as atoi reads it, clamped to the range of int. `def` when the key is
  // missing, holds no digits, or `section` or `key` is null.
  virtual int GetProfileInt(const char* section, const char* key, int def) = 0;
  // Writes `value` in decimal; false for a null `section` or `key` or when the store cannot
  // be written.
  virtual bool WriteProfileInt(const char* section, const char* key, int value) = 0;
  // The text at section/key, or `def` (empty for a null `def`) when missing or when
  // `section` or `key` is null.
  virtual std::string GetProfileString(const char* section, const char* key, const char* def) = 0;
  // Writes text; a null `value` removes the key, a null `key` removes the whole section.
  // False for a null `section` or when the store cannot be written.
  virtual bool WriteProfileString(const char* section, const char* key, const char* value) = 0;
};

// Sections and keys compare without regard to ASCII case; their first spelling is kept.
// Any text can be stored. A section whose last key is removed disappears.
class QXMemoryProfile : public QXProfile {
 public:
  QXMemoryProfile() = default;
  int GetProfileInt(const char* section, const char* key, int def) override;
  bool WriteProfileInt(const char* section, const char* key, int value) override;
  std::string GetProfileString(const char* section, const char* key, const char* def) override;
  bool WriteProfileString(const char* section, const char* key, const char* value) override;

 protected:
  struct NoCaseLess {
    bool operator()(const std::string& a, const std::string& b) const;
  };
  // Sections and keys remember when they were first written, so that a file can be
  // saved in that order.
  struct Entry {
    std::string value;
    std::uint64_t order = 0;
  };
  struct Section {
    std::map<std::string, Entry, NoCaseLess> keys;
    std::uint64_t order = 0;
  };

  // Sets section/key to `value`; an existing key keeps its spelling and place, and its
  // value too unless `replace`.
  void Put(const std::string& section, const std::string& key, std::string_view value,
           bool replace);
  // Replaces every section with those of INI `text` (comments, blanks, CRLF and a byte
  // order mark tolerated; the first of repeated keys wins).
  void ParseIni(std::string_view text);

  std::map<std::string, Section, NoCaseLess> m_sections;
  std::uint64_t m_nextOrder = 0;
};

// An INI file: "[section]" lines and "key=value" lines. Reading tolerates comments (";" or
// "#" at line start), blank lines, blanks around "=" and around section names, CRLF line
// ends and a UTF-8 byte order mark; lines before the first section and lines without "="
// are ignored; values are kept verbatim after trimming surrounding blanks. Of a key or
// section that appears twice, the first value wins and the sections merge. Every write
// saves the whole file through a temporary file and a rename, so the file is never
// half-written; sections and keys are saved in the order they were first read or written,
// a blank line between sections. Comments are not kept. Files above 64 MiB are refused.
class QXIniProfile : public QXMemoryProfile {
 public:
  // Loads `path` when it exists; a missing file is an empty profile.
  explicit QXIniProfile(std::string path);
  // Re-reads the file; a missing file empties the profile. False (profile left as it was)
  // when the file exists but cannot be read.
  bool Load();
  // Writes the file atomically; false when it cannot be written (old file intact). Also
  // false while the last load failed, so that a file that could not be read is never
  // replaced by what little the profile holds.
  bool Save() const;
  const std::string& GetPath() const { return m_path; }

  bool WriteProfileInt(const char* section, const char* key, int value) override;
  // Also false, with profile and file unchanged, for text an INI line cannot hold: a line
  // break anywhere, "]" in a section name, or a key that is blank, holds "=" or starts
  // like a comment or section line. Blanks around names and values do not survive a reload.
  bool WriteProfileString(const char* section, const char* key, const char* value) override;

 private:
  std::string ToText() const;

  std::string m_path;
  bool m_loaded = false;
};

// The process-wide application profile; null when none is set.
void QXSetAppProfile(QXProfile* profile);
QXProfile* QXGetAppProfile();

// Makes `profile` the application profile for the life of this object, then restores the
// one before it: how a store is lent to the persistence calls, which read only through it.
class QXScopedAppProfile {
 public:
  explicit QXScopedAppProfile(QXProfile& profile) : m_previous(QXGetAppProfile()) {
    QXSetAppProfile(&profile);
  }
  ~QXScopedAppProfile() { QXSetAppProfile(m_previous); }
  QXScopedAppProfile(const QXScopedAppProfile&) = delete;
  QXScopedAppProfile& operator=(const QXScopedAppProfile&) = delete;

 private:
  QXProfile* m_previous;
};

}  // namespace qxpkutil
