// Types and sentinels shared by every part of the library.
#pragma once

#include <cstdint>
#include <limits>

namespace qxpkutil {

// The most negative finite double: marks an unset value (a setting's Divisor, a centroid
// output that was not computed) and the absent upper limit of a range query.
inline constexpr double kQXUnsetValue = -std::numeric_limits<double>::max();

// A point in window coordinates.
struct QXPoint {
  std::int32_t x;
  std::int32_t y;
};

}  // namespace qxpkutil
