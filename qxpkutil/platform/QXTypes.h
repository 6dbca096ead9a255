// Types and sentinels shared by every part of the library.
#pragma once

#include <cstdint>
#include <limits>

namespace qxpkutil {

// The most negative finite double: marks an unset value (a setting's Divisor, a centroid
// output that was not computed) and the absent upper limit of a range query.
inline constexpr double kQXUnsetValue = -std::numeric_limits<double>::max();

// The most points one array may hold, 2^31 - 1: indices and counts travel as std::int32_t,
// so every routine that takes a count refuses more than this.
inline constexpr std::uint32_t kQXMaxPoints =
    static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());

// A point in window coordinates.
struct QXPoint {
  std::int32_t x;
  std::int32_t y;
};

}  // namespace qxpkutil
