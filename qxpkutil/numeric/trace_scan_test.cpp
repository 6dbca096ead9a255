#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "qxpkutil/numeric/trace_scan.h"

namespace qxpkutil {
namespace {

// Against a plain loop: rising traces of lengths around the block size, each with NaN,
// infinities and falls put at random points, near block edges included.
TEST(TraceScan, FindsTheFirstFlawOfEachKindLikeAPlainLoop) {
  std::mt19937 rng(7);
  const double flaws[] = {std::nan(""), std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity()};
  for (int round = 0; round < 3000; ++round) {
    const std::size_t n = std::uniform_int_distribution<std::size_t>(0, 700)(rng);
    std::vector<double> x(n), y(n, 1.0);
    for (std::size_t i = 0; i < n; ++i) x[i] = static_cast<double>(i);
    for (int k = round % 4; k > 0 && n > 0; --k) {
      const std::size_t at = std::uniform_int_distribution<std::size_t>(0, n - 1)(rng);
      switch (rng() % 3) {
        case 0: x[at] = flaws[rng() % 3]; break;
        case 1: y[at] = flaws[rng() % 3]; break;
        default: x[at] -= 1.5; break;
      }
    }
    TraceScan plain{n, n};
    for (std::size_t i = 0; i < n; ++i) {
      if (plain.first_not_finite == n && !(std::isfinite(x[i]) && std::isfinite(y[i]))) {
        plain.first_not_finite = i;
      }
      if (plain.first_fall == n && i > 0 && x[i] < x[i - 1]) plain.first_fall = i;
    }
    const TraceScan scan = ScanTrace(x.data(), y.data(), n);
    ASSERT_EQ(scan.first_not_finite, plain.first_not_finite) << "round " << round;
    ASSERT_EQ(scan.first_fall, plain.first_fall) << "round " << round;
  }
}

}  // namespace
}  // namespace qxpkutil
