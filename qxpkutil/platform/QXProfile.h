// The application's settings store: integers and strings by section and key.
// Two stores ship: QXMemoryProfile (in memory) and QXIniProfile (an INI file on disk,
// rewritten atomically on every write). The process-wide "application profile" is the
// one set with QXSetAppProfile; with none set, operations that need it do nothing.
//
//   QXIniProfile ini("qxpeak.ini");
//   QXSetAppProfile(&ini);
//   list.PersistSettings("PeakDetect");
#pragma once

#include <map>
#include <string>

namespace qxpkutil {

class QXProfile {
 public:
  virtual ~QXProfile() = default;
  // The integer at section/key (leading decimal number of the stored text), or `def`
  // when the key is missing or holds no number.
  virtual int GetProfileInt(const char* section, const char* key, int def) = 0;
  virtual bool WriteProfileInt(const char* section, const char* key, int value) = 0;
  // The text at section/key, or `def` (empty for a null `def`) when missing.
  virtual std::string GetProfileString(const char* section, const char* key, const char* def) = 0;
  // Writes text; a null `value` removes the key, a null `key` removes the whole section.
  // False for a null `section` or when the store cannot be written.
  virtual bool WriteProfileString(const char* section, const char* key, const char* value) = 0;
};

// Sections and keys compare without regard to ASCII case; their first spelling is kept.
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
  using Section = std::map<std::string, std::string, NoCaseLess>;
  std::map<std::string, Section, NoCaseLess> m_sections;
};

// An INI file: "[section]" lines and "key=value" lines. Reading tolerates comments (";" or
// "#" at line start), blank lines, spaces around "=" and CRLF line ends. Every write saves
// the whole file through a temporary file and a rename, so the file is never half-written.
class QXIniProfile : public QXMemoryProfile {
 public:
  // Loads `path` when it exists; a missing file is an empty profile.
  explicit QXIniProfile(std::string path);
  // Re-reads the file; false (profile left as it was) when it exists but cannot be read.
  bool Load();
  // Writes the file atomically; false when it cannot be written (old file intact).
  bool Save() const;
  const std::string& GetPath() const { return m_path; }

  bool WriteProfileInt(const char* section, const char* key, int value) override;
  bool WriteProfileString(const char* section, const char* key, const char* value) override;

 private:
  std::string m_path;
};

// The process-wide application profile; null when none is set.
void QXSetAppProfile(QXProfile* profile);
QXProfile* QXGetAppProfile();

}  // namespace qxpkutil
