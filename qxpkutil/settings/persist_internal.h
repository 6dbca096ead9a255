// Internal to the settings sources (not part of the public API): the number conversions,
// key forms and value sources that the peak table list, the calculators and
// QXPersistUtils share.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"

namespace qxpkutil::persist_detail {

// How a double is written: "%f" (six decimals) or "%e".
enum class DoubleFormat { kFixed, kExponent };

// atoi's reading, except that a value beyond the range of int clamps to it.
int ParseInt(const char* text);
// atof's reading.
double ParseDouble(const char* text);
// The double as printf writes it with the format, at whatever length that takes.
std::string FormatDouble(double value, DoubleFormat format);
// "name-index", the key of one segment's or one target's value.
std::string IndexedKey(const char* name, std::int32_t index);
// "section\key".
std::string FullKey(const char* section, const char* key);

// The entries of a text block under one section, found in one pass over the text, so that
// the many lookups of a restore cost one scan of the text rather than one scan each (a
// segment count read from a hostile text would otherwise multiply the two). Find gives
// exactly what QXPersistUtils::GetEntry gives for "section\key"; keys holding "=" or longer
// than `maxKeyLength` are looked up in the text itself.
class SectionEntries {
 public:
  SectionEntries(const char* text, const char* section, std::size_t maxKeyLength);
  bool Find(const char* key, std::string& out) const;

 private:
  const char* m_text;
  std::string m_prefix;  // "section\"
  std::size_t m_maxKeyLength;
  // Each key to where the first "section\key=" starts.
  std::unordered_map<std::string_view, const char*> m_first;
};

// The value stored for section/key in a source: a text block (GetEntry rules), the
// entries of a text block, or the host's map of full keys. False when absent.
bool FindValue(const char* text, const char* section, const char* key, std::string& out);
bool FindValue(const SectionEntries& entries, const char* section, const char* key,
               std::string& out);
bool FindValue(const std::map<std::string, std::string>& map, const char* section, const char* key,
               std::string& out);

// Where a read takes its value from; the text (or map) bit is tested first and wins.
enum class Origin { kSource, kProfile, kDefault };
Origin ChooseOrigin(const QXProfile* app, const char* section, const char* key, unsigned flags);

// QXPersistUtils::GetParamSetting over any source.
template <class Source>
std::uint32_t ReadInt(QXProfile* app, const char* section, const char* key, int def,
                      const Source& source, unsigned flags) {
  int value = def;
  switch (ChooseOrigin(app, section, key, flags)) {
    case Origin::kSource: {
      std::string found;
      if (FindValue(source, section, key, found)) value = ParseInt(found.c_str());
      break;
    }
    case Origin::kProfile:
      value = app->GetProfileInt(section, key, def);
      break;
    case Origin::kDefault:
      break;
  }
  return static_cast<std::uint32_t>(value);
}

template <class Source>
std::string ReadText(QXProfile* app, const char* section, const char* key, const char* def,
                     const Source& source, unsigned flags) {
  if (def == nullptr) def = "";
  switch (ChooseOrigin(app, section, key, flags)) {
    case Origin::kSource: {
      std::string found;
      return FindValue(source, section, key, found) ? found : std::string(def);
    }
    case Origin::kProfile:
      return app->GetProfileString(section, key, def);
    case Origin::kDefault:
      break;
  }
  return def;
}

// Writes the double as text in `format`.
void WriteDoubleSetting(QXProfile* app, const char* section, const char* key, double value,
                        DoubleFormat format, std::vector<std::string>* list, int toProfile);

// Reads a double stored as text. The default goes through the same text form, so a
// missing key yields `def` as it would have been saved ("%f" keeps six decimals).
template <class Source>
double GetDoubleSetting(QXProfile* app, const char* section, const char* key, double def,
                        DoubleFormat format, const Source& source, unsigned flags) {
  const std::string text =
      ReadText(app, section, key, FormatDouble(def, format).c_str(), source, flags);
  return ParseDouble(text.c_str());
}

// Reads an integer; the unsigned pattern of GetParamSetting turned back into an int.
template <class Source>
int GetIntSetting(QXProfile* app, const char* section, const char* key, int def,
                  const Source& source, unsigned flags) {
  return static_cast<int>(ReadInt(app, section, key, def, source, flags));
}

}  // namespace qxpkutil::persist_detail
