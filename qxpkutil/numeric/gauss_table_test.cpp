// NormGaussMean and the kernels behind it: the table rows up to width 201, the per-thread
// cached kernel above, checked against the kernel's definition in both array families; and
// the runs of means (GaussMeans) against NormGaussMean bit for bit.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/numeric_internal.h"
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

// Runs of means take other paths than one mean (a loop per width, and where the processor
// has it a vector path that falls back to the x87 sums near a rounding boundary), which
// must give the same bits: on noise, whole counts with ties, values of every sign and
// magnitude with zeros and sums that overflow a double, values near and below the
// smallest normal double, values with short mantissas, values that are not finite, and
// large values a few places from NaNs; also when the program rounds otherwise. Each vector
// unit this processor has is checked in turn.
class GaussMeansOn : public ::testing::TestWithParam<numeric_detail::MeansUnit> {};

std::string UnitName(const ::testing::TestParamInfo<numeric_detail::MeansUnit>& unit) {
  constexpr const char* kNames[] = {"x87", "avx2", "avx512"};
  return kNames[static_cast<int>(unit.param)];
}

TEST_P(GaussMeansOn, RunsMatchSingleMeansBitForBit) {
  std::mt19937_64 rng(11);
  std::vector<std::vector<double>> arrays = {testing::MakeNoise(4000, 20.0, 3), Counts(4000, 5)};
  std::vector<double> wild(4000), tiny(4000), coarse(4000);
  std::vector<double> broken = testing::MakeNoise(4000, 100.0, 9);
  for (double& v : wild) {
    const double sign = rng() % 2 ? 1.0 : -1.0;
    v = rng() % 50 == 0 ? sign * 0.0 : sign * std::ldexp(1.0 + (rng() % 1000) / 999.0,
                                                          static_cast<int>(rng() % 2150) - 1075);
  }
  for (double& v : tiny) v = std::ldexp(1.0 + (rng() % 1000) / 999.0, -1000 - int(rng() % 70));
  for (double& v : coarse) v = static_cast<double>(rng() % 4096) / 64.0;
  const double specials[] = {std::numeric_limits<double>::quiet_NaN(),
                             std::numeric_limits<double>::infinity(), 1e308, -1e308, 4.9e-324};
  for (std::size_t i = 0; i < broken.size(); i += 37) broken[i] = specials[i % 5];
  // NaNs a few places from large values: a window beside a NaN still takes its own bits.
  std::vector<double> beside = testing::MakeNoise(4000, 100.0, 13);
  for (std::size_t i = 0; i < beside.size(); i += 9) {
    beside[i] = std::numeric_limits<double>::quiet_NaN();
    if (i + 4 < beside.size()) {
      beside[i + 4] = std::ldexp(1.0 + (rng() % 1000) / 999.0, 20 + static_cast<int>(rng() % 30));
    }
  }
  arrays.insert(arrays.end(), {wild, tiny, coarse, broken, beside});
  for (const int mode : {FE_TONEAREST, FE_TOWARDZERO}) {
    std::fesetround(mode);
    for (const std::vector<double>& v : arrays) {
      for (int w = 1; w <= 20; ++w) {
        const std::size_t count = v.size() - static_cast<std::size_t>(w) + 1;
        std::vector<double> runs(count);
        numeric_detail::GaussMeans(v.data(), w, count, runs.data(), GetParam());
        for (std::size_t i = 0; i < count; ++i) {
          const double one = U::NormGaussMean(v.data() + i, w);
          ASSERT_EQ(std::memcmp(&one, &runs[i], sizeof one), 0)
              << "w=" << w << " i=" << i << " mode=" << mode << ": " << one << " " << runs[i];
        }
      }
    }
  }
  std::fesetround(FE_TONEAREST);
}

INSTANTIATE_TEST_SUITE_P(Units, GaussMeansOn,
                         ::testing::Values(numeric_detail::MeansUnit::kX87,
                                           numeric_detail::MeansUnit::kAvx2,
                                           numeric_detail::MeansUnit::kAvx512),
                         UnitName);

}  // namespace
}  // namespace qxpkutil
