#include "qxpkutil/ui/QXDataExchange.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>
#include <system_error>

#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/platform/QXParse.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";

// Sign, 309 integer digits of the largest double, the point and every decimal.
constexpr std::size_t kFixedTextCapacity =
    1 + std::numeric_limits<double>::max_exponent10 + 2 + kQXMaxDisplayPrecision;

// "%.*f" without printf: std::to_chars gives the same correctly rounded digits and never
// depends on the C locale's decimal point.
std::string FormatFixed(double value, std::int32_t precision) {
  char text[kFixedTextCapacity];
  const int decimals = std::clamp<std::int32_t>(precision, 0, kQXMaxDisplayPrecision);
  const auto [end, ec] =
      std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, decimals);
  return ec == std::errc() ? std::string(text, end) : std::string();
}

bool Fail(int id, std::string& message) {
  message = QXLoadString(id);
  return false;
}

// An odd value within the limits; `evenId` names what an even one is told.
bool CheckOddInRange(int value, int minValue, int maxValue, int evenId, std::string& message) {
  if (value < minValue || value > maxValue) return Fail(kQXMsgWholeNumberInRange, message);
  return value % 2 != 0 || Fail(evenId, message);
}

}  // namespace

bool DDX_TextSpace(const std::string& text, double& value, std::string& message) {
  // A blank field is how the unset value is entered.
  if (std::string_view(text).find_first_not_of(kBlanks) == std::string_view::npos) {
    value = kQXUnsetValue;
    return true;
  }
  return QXParseDouble(text, value) || Fail(kQXMsgEnterNumber, message);
}

std::string DDX_TextSpace(double value, std::int32_t precision) {
  // An empty field is how the unset value is shown.
  if (value == kQXUnsetValue) return {};
  return FormatFixed(value, precision);
}

double QXRoundToPrecision(double value, std::int32_t precision) {
  if (!std::isfinite(value)) return value;
  double rounded = value;
  return QXParseDouble(FormatFixed(value, precision), rounded) ? rounded : value;
}

bool DDV_MinDouble(double value, double minValue, std::string& message) {
  return value >= minValue || Fail(kQXMsgBelowMinimum, message);
}

bool DDV_OddMinMaxInt(int value, int minValue, int maxValue, std::string& message) {
  return CheckOddInRange(value, minValue, maxValue, kQXMsgFilterWidthOdd, message);
}

bool DDV_ZeroOddMinMaxInt(int value, int minValue, int maxValue, std::string& message) {
  return value == 0 ||
         CheckOddInRange(value, minValue, maxValue, kQXMsgFilterWidthZeroOrOdd, message);
}

bool DDV_SegmentRange(double lo, double hi, std::string& message) {
  const auto valid = [](double x) { return std::isfinite(x) && x >= 0.0; };
  if (!valid(lo) || !valid(hi)) return Fail(kQXMsgRangeNegative, message);
  if (lo > hi) return Fail(kQXMsgRangeReversed, message);
  return lo < hi || Fail(kQXMsgLeftEdgeNotLeft, message);
}

}  // namespace qxpkutil
