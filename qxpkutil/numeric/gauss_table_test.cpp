// NormGaussMean and the kernels behind it: the table rows up to width 201, the per-thread
// cached kernel above, checked against the kernel's definition in both array families.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

// The kernel from its definition: widths up to 201 apply the first w weights of table row
// w-2 (centre c = w-2, 2c+1 weights) and divide by the whole row's sum; wider ones apply a
// symmetric kernel of w weights centred on c = w/2, normalised.
double NaiveGaussMean(const std::vector<double>& v, int w) {
  const int c = w <= 201 ? w - 2 : w / 2, length = w <= 201 ? 2 * c + 1 : w;
  double sum = 0, divisor = 0;
  for (int pos = 0; pos < length; ++pos) {
    const double weight = c == 0 ? 1.0 : std::exp(-double((pos - c) * (pos - c)) / (c * c));
    divisor += weight;
    if (pos < w) sum += weight * v[pos];
  }
  return w == 1 ? v[0] : sum / divisor;
}

std::vector<double> Counts(std::size_t n, unsigned seed) {
  std::vector<double> v = testing::MakeNoise(n, 50.0, seed);
  for (double& x : v) x = std::round(std::fabs(x));  // whole counts suit both families
  return v;
}

TEST(NormGaussMean, MatchesDefinitionAcrossWidthsCacheChangesAndFamilies) {
  const std::vector<double> v = Counts(2001, 7);
  const std::vector<std::uint32_t> counts(v.begin(), v.end());
  for (int w : {1, 2, 3, 4, 5, 100, 201, 202, 300, 300, 400, 300, 2001}) {
    const double expected = NaiveGaussMean(v, w);
    EXPECT_NEAR(U::NormGaussMean(v.data(), w), expected, 1e-12 * expected) << "w=" << w;
    EXPECT_EQ(U::NormGaussMean(counts.data(), w), U::NormGaussMean(v.data(), w)) << "w=" << w;
  }
  for (int w : {0, -3, 2002}) EXPECT_EQ(U::NormGaussMean(v.data(), w), 0.0);
  EXPECT_EQ(U::NormGaussMean(static_cast<const double*>(nullptr), 5), 0.0);

  const double small = U::NormGaussMean(v.data(), 9), large = U::NormGaussMean(v.data(), 300);
  U::DeleteGaussTable();  // frees the cache too: it must be rebuilt, not reused
  EXPECT_EQ(U::NormGaussMean(v.data(), 300), large);
  EXPECT_EQ(U::NormGaussMean(v.data(), 9), small);
}

}  // namespace
}  // namespace qxpkutil
