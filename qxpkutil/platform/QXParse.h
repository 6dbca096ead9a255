// The library's one reading of numbers in text. The text and mzML readers, label files,
// checked settings files, dialog fields, ParseFwhm and qxpeak's options all go through it,
// so that " 3 " (3), "+-3", "0x10", "1e400" or "nan" (all refused) mean the same
// everywhere. Built on std::from_chars: no locale; hot enough for the text reader.
//
//   double x = 0.0;
//   if (!QXParseDouble(" 1.5e3 ", x)) return false;   // x == 1500.0
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qxpkutil {

// The rule: optional blanks (space, tab, CR, LF, VT, FF), at most one sign ('+' or '-'),
// decimal digits with an optional fraction (".5" and "5." count) and an optional exponent
// ("e-3"; integers take none), optional blanks. "nan", "inf", hexadecimal, an empty text,
// a second sign and anything after the number are refused, and so is a value outside the
// type's range (for doubles, overflow and underflow below the smallest subnormal).

// True and `out` set when the whole of `text` is one number by the rule; false with `out`
// untouched otherwise.
[[nodiscard]] bool QXParseDouble(std::string_view text, double& out);
[[nodiscard]] bool QXParseInt(std::string_view text, int& out);
[[nodiscard]] bool QXParseUInt64(std::string_view text, std::uint64_t& out);  // no '-'

// For readers that take several numbers from one line: the number at the start of `text`
// (after blanks), by the same rule but ending where the number ends. Returns how many
// characters it took, blanks included, or 0 with `out` untouched when no number starts
// there or it is out of range.
[[nodiscard]] std::size_t QXParseDoublePrefix(std::string_view text, double& out);
[[nodiscard]] std::size_t QXParseIntPrefix(std::string_view text, int& out);

// The one exception is the doubles of saved settings text restored as it is, which keep
// atof's reading (in QXPersistUtils) for the same reason as the integers below; a settings
// file that a person edits is checked by this rule first (SettingsFile.h).

// The C library's atoi reading, which the settings text and the profile keep on purpose
// because saved files rely on it ("12abc" reads 12): blanks, one sign, the leading digits,
// the rest ignored; a value beyond int clamps to INT_MIN or INT_MAX instead of being
// undefined. False with `out` untouched when no digit follows the sign.
[[nodiscard]] bool QXParseLeadingInt(std::string_view text, int& out);

}  // namespace qxpkutil
