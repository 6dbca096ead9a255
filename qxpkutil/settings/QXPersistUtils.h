// Named values under a section, kept in the application profile (QXProfile) or as text
// lines "section\key=value\r\n" that the host stores wherever it likes, and read back from
// the profile, from such a block of text or from a map the host has filled. The detection
// settings, the calculators and the dialog state persist themselves through these calls.
//
//   std::vector<std::string> lines;
//   QXPersistUtils::WriteParamSetting(nullptr, "Peaks", "MaxCharge", 4, &lines, 0);
//   std::string text;  QXPersistUtils::FormStringFromList(text, lines);
//   int charge = QXPersistUtils::GetParamSetting(nullptr, "Peaks", "MaxCharge", 6, text.c_str(),
//                                                kQXPersistFromText);
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qxpkutil {

class QXProfile;

// Source flags of the reading calls. The text (or map) is asked first and wins; with
// neither bit set a read yields its default.
inline constexpr unsigned kQXPersistFromText = 0x200;     // under "section\key"
inline constexpr unsigned kQXPersistFromProfile = 0x100;  // under section and key

// Keys and values of any length are handled whole. Numbers are read as atoi and atof read
// them (leading blanks, no digits gives 0), except that an integer beyond the range of int
// clamps to it. A null section or key writes nothing and reads the default.
class QXPersistUtils {
 public:
  // Appends "section\key=value\r\n" (value in decimal) to `list` when it is not null, and
  // writes the integer to `app` under section and key when `toProfile` is non-zero and
  // `app` is not null.
  static void WriteParamSetting(QXProfile* app, const char* section, const char* key, int value,
                                std::vector<std::string>* list, int toProfile);
  // The same with a text value; a null `value` counts as the empty text.
  static void WriteParamSetting(QXProfile* app, const char* section, const char* key,
                                const char* value, std::vector<std::string>* list, int toProfile);

  // With kQXPersistFromText: the integer after "section\key=" in `text` (GetEntry rules),
  // or `def` when the text lacks it. Else with kQXPersistFromProfile and a non-null `app`:
  // the profile's integer, `def` when missing. Else `def`. Negative values come back as
  // their unsigned 32-bit pattern, so an int receives them unchanged.
  static std::uint32_t GetParamSetting(QXProfile* app, const char* section, const char* key,
                                       int def, const char* text, unsigned flags);
  // The same for text; a null `def` counts as the empty text.
  static std::string GetParamSetting(QXProfile* app, const char* section, const char* key,
                                     const char* def, const char* text, unsigned flags);
  // With kQXPersistFromText: the value stored in `map` under exactly "section\key",
  // converted to an integer, or `def` when absent; kQXPersistFromProfile as above.
  static std::uint32_t GetParamSetting(QXProfile* app, const char* section, const char* key,
                                       int def, const std::map<std::string, std::string>& map,
                                       unsigned flags);
  static std::string GetParamSetting(QXProfile* app, const char* section, const char* key,
                                     const char* def, const std::map<std::string, std::string>& map,
                                     unsigned flags);

  // Finds the first "key=" in `text` and sets `out` to the rest of that line (up to a
  // carriage return, line feed or the end; empty for an empty value). 1 when found; 0 with
  // `out` untouched when not, or for a null `text` or `key`. A plain substring search:
  // "B\Key" also matches inside "AB\Key=", and the first occurrence wins. The value starts
  // after the first "=" at or after the match, which is inside the key when the key
  // itself holds one.
  static int GetEntry(const char* text, const char* key, std::string& out);
  // Typed forms: the found value converted as atoi (int, or its unsigned pattern) or atof
  // reads it; `out` untouched when the key is absent.
  static int GetEntry(const char* text, const char* key, int& out);
  static int GetEntry(const char* text, const char* key, std::uint32_t& out);
  static int GetEntry(const char* text, const char* key, double& out);

  // Empties `out`, then appends each string of `list` followed by "\r\n". Lines made by
  // WriteParamSetting already end in "\r\n", so each value line is followed by an empty
  // line: intended, and harmless to GetEntry.
  static void FormStringFromList(std::string& out, const std::vector<std::string>& list);
  // Appends to `list` the pieces of `text` between any of the `separators` characters;
  // runs of separators count as one and empty pieces are dropped. Null or empty separators
  // give the whole text as one piece (none for an empty text).
  static void ParseStringToList(const std::string& text, std::vector<std::string>& list,
                                const char* separators);
};

}  // namespace qxpkutil
