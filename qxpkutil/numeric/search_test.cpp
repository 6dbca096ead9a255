#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;
constexpr std::uint32_t kNoStart = std::numeric_limits<std::uint32_t>::max();

// What the linear-scan comparison below cannot show: no points, no array, NaN, flat data.
TEST(Search, KnownAnswers) {
  const double x[] = {1.0, 3.0};
  // An empty array gives 0, as one point does: the bisection never runs and lo clamps to 0.
  const float xf[] = {1.0f};
  EXPECT_EQ(U::FindNearestIndex(x, 0, 2.0), 0);
  EXPECT_EQ(U::FindNearestIndex(xf, 0, 2.0), 0);
  EXPECT_EQ(U::FindNearestIndex(static_cast<const double*>(nullptr), 2, 2.0), -1);
  EXPECT_EQ(U::FindNearestIndex(x, 2, std::nan("")), -1);
  const double flat[] = {2.0, 2.0, 2.0};  // equal ends count as descending
  EXPECT_EQ(U::HuntIndex(flat, 3, kNoStart, 3.0), -1);
  EXPECT_EQ(U::HuntIndex(flat, 3, 1, 1.0), 2);
  EXPECT_EQ(U::HuntIndex(flat, 0, kNoStart, 1.0), -1);
}

// Linear-scan answers for a strictly monotonic array: nearest element (lower index on a
// tie) and the bracketing j (last x[j] <= v ascending, last x[j] > v descending).
std::int32_t NearestByScan(const std::vector<double>& x, double v) {
  std::int32_t best = 0;
  for (std::size_t i = 1; i < x.size(); ++i) {
    if (std::fabs(v - x[i]) < std::fabs(v - x[best])) best = static_cast<std::int32_t>(i);
  }
  return best;
}

std::int32_t BracketByScan(const std::vector<double>& x, double v) {
  const bool ascending = x.front() < x.back();
  std::int32_t j = -1;
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (ascending ? x[i] <= v : x[i] > v) j = static_cast<std::int32_t>(i);
  }
  return j;
}

// Every n up to 40, both directions, every half-step value (ties and exact hits included),
// every start (and the fall-back starts), in both array families.
template <class X>
void CheckAgainstScan() {
  for (std::uint32_t n = 1; n <= 40; ++n) {
    for (bool ascending : {true, false}) {
      std::vector<double> x(n);
      std::vector<X> xs(n);
      for (std::uint32_t i = 0; i < n; ++i) {
        x[i] = 2.0 * (ascending ? i : n - 1 - i);
        xs[i] = static_cast<X>(x[i]);
      }
      for (double v = -1.5; v <= 2.0 * n + 0.5; v += 0.5) {
        SCOPED_TRACE(::testing::Message() << "n=" << n << " asc=" << ascending << " v=" << v);
        ASSERT_EQ(U::FindNearestIndex(xs.data(), n, v), NearestByScan(x, v));
        const std::int32_t expected = BracketByScan(x, v);
        for (std::uint32_t start = 0; start <= n; ++start) {
          ASSERT_EQ(U::HuntIndex(xs.data(), n, start, v), expected) << "start " << start;
        }
        ASSERT_EQ(U::HuntIndex(xs.data(), n, kNoStart, v), expected);
      }
    }
  }
}

TEST(Search, DoubleFamilyAgreesWithLinearScan) { CheckAgainstScan<double>(); }
TEST(Search, FloatFamilyAgreesWithLinearScan) { CheckAgainstScan<float>(); }

}  // namespace
}  // namespace qxpkutil
