// Data exchange and validation for the numeric fields of the setup dialogs, free of any
// window system: a field's text becomes a number (and back), and a number is checked
// against its field's limits. Each check returns whether the value passes and, when it
// does not, the string-table message to show (see QXMessages.h).
//
//   double divisor; std::string why;
//   if (!DDX_TextSpace(fieldText, divisor, why) || !DDV_MinDouble(divisor, 0.0, why))
//     QXShowMessage(0, why);
#pragma once

#include <cstdint>
#include <string>

namespace qxpkutil {

// The most decimals a field shows. Every double prints exactly with 1074 decimals, so a
// larger precision would show nothing more and is taken as this one.
inline constexpr std::int32_t kQXMaxDisplayPrecision = 1074;

// Reads the number a field holds. Blanks around it are allowed, and a field of nothing
// but blanks stands for the unset value kQXUnsetValue (an optional value such as a
// Divisor left empty). The text is read the same way whatever the C locale: '.' is the
// decimal point, one leading '+' is allowed, infinities and NaN are refused. true with
// `value` set; false with `value` untouched and `message` set to "Enter a number.".
bool DDX_TextSpace(const std::string& text, double& value, std::string& message);

// The text a field shows for `value`: "%.*f" with `precision` decimals (clamped to
// 0..kQXMaxDisplayPrecision), or an empty field for the unset value kQXUnsetValue, which
// the reading form above turns back into the unset value.
std::string DDX_TextSpace(double value, std::int32_t precision);

// `value` as a field showing `precision` decimals reads it back: formatted with "%.*f"
// and parsed again. Infinities and NaN come back unchanged.
double QXRoundToPrecision(double value, std::int32_t precision);

// Passes when `value` >= `minValue` (NaN never passes); otherwise `message` is "The value
// is below the allowed minimum.". `message` is untouched when the value passes, here and
// in the checks below.
bool DDV_MinDouble(double value, double minValue, std::string& message);

// Passes when `value` is odd and within `minValue`..`maxValue` (limits included), as a
// smoothing filter width must be. Out of range: "Enter a whole number within the allowed
// range."; in range but even: "The filter width must be an odd number.". Nothing passes
// when `minValue` > `maxValue`.
bool DDV_OddMinMaxInt(int value, int minValue, int maxValue, std::string& message);

// As DDV_OddMinMaxInt, except that 0 always passes (0 switches the filter off) and an
// even value in range gets "The filter width must be zero or an odd number.".
bool DDV_ZeroOddMinMaxInt(int value, int minValue, int maxValue, std::string& message);

// Checks a range typed as a pair of bounds, as a new detection range is entered. Fails
// with "Segment range values must be greater or equal to 0" when either bound is negative
// or not finite, "Range bounds are reversed." when `lo` > `hi` and "Left edge must be left
// of the right edge" when they are equal.
bool DDV_SegmentRange(double lo, double hi, std::string& message);

}  // namespace qxpkutil
