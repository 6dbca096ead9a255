#include "qxpkutil/numeric/QXWaveletAnalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <map>
#include <numbers>
#include <utility>
#include <vector>

#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using W = QXWaveletAnalysis;
using testing::MakeNoise;
constexpr double kPi = std::numbers::pi;

double Rms(const std::vector<double>& a, const std::vector<double>& b) {
  double e = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) e += (a[i] - b[i]) * (a[i] - b[i]);
  return std::sqrt(e / static_cast<double>(a.size()));
}

// Narrow peaks on an offset, `peaks` of them `spacing` points apart.
std::vector<double> Spectrum(std::size_t n, int peaks, double spacing) {
  std::vector<testing::GaussPeak> p;
  for (int i = 0; i < peaks; ++i)
    p.push_back({50.0 + spacing * i, 200.0 + 50.0 * (i % 7), 2.0 + (i % 3)});
  return testing::MakeSignal(n, 0.0, 1.0, p, {.baseline = 10.0}).y;
}

// A set's scaling coefficients, read back from the inverse of one unit smooth value (pair 0
// feeds positions 2 + k - taps/2, mod n).
std::vector<double> Coefficients(int taps) {
  std::vector<double> data(64, 0.0);
  data[0] = 1.0;
  EXPECT_EQ(W::DaubTransform(taps, data.data(), 64, -1, 0), 1);
  std::vector<double> h(taps);
  for (int k = 0; k < taps; ++k) h[k] = data[(66 + k - taps / 2) % 64];
  return h;
}

class TapsTest : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(AllSets, TapsTest, ::testing::Values(2, 4, 6, 12, 20));

TEST_P(TapsTest, CoefficientsAreOrthonormalWithVanishingMoments) {
  const int taps = GetParam();
  const std::vector<double> h = Coefficients(taps);
  for (int shift = 0; shift < taps; shift += 2) {
    double dot = 0.0;
    for (int k = 0; k + shift < taps; ++k) dot += h[k] * h[k + shift];
    EXPECT_NEAR(dot, shift == 0 ? 1.0 : 0.0, 1e-15) << "even shift " << shift;
  }
  for (int power = 0; power < taps / 2; ++power) {  // power 0 also makes the sum sqrt(2)
    double moment = 0.0, scale = 0.0;
    for (int k = 0; k < taps; ++k) {
      moment += (k % 2 ? -1.0 : 1.0) * std::pow(k, power) * h[k];
      scale += std::pow(k, power) * std::fabs(h[k]);
    }
    EXPECT_NEAR(moment, 0.0, 1e-14 * scale) << "moment " << power;
  }
  // First and last taps to the printed digits of the usual tables.
  const std::map<int, std::pair<double, double>> printed = {
      {2, {0.707106781187, 0.707106781187}}, {4, {0.482962913145, -0.129409522551}},
      {6, {0.33267055295, 0.035226291886}}, {12, {0.11154074335, -0.001077301085}},
      {20, {0.026670057901, -1.3264203e-05}}};
  EXPECT_NEAR(h.front(), printed.at(taps).first, 5e-12);
  EXPECT_NEAR(h.back(), printed.at(taps).second, 5e-12);
}

TEST_P(TapsTest, ForwardThenInverseRestoresDataForBothShifts) {
  const std::vector<double> original = MakeNoise(256, 50.0, 7);
  for (int shift : {0, 1}) {
    std::vector<double> d = original;
    std::vector<float> f(original.begin(), original.end());
    const std::vector<float> fOriginal = f;
    for (std::uint32_t len = 256; len > 3; len /= 2) {  // the full transform, then back up
      W::DaubTransform(GetParam(), d.data(), len, 1, shift);
      W::DaubTransform(GetParam(), f.data(), len, 1, shift);
    }
    EXPECT_GT(Rms(d, original), 1.0);
    for (std::uint32_t len = 4; len <= 256; len *= 2) {
      W::DaubTransform(GetParam(), d.data(), len, -1, shift);
      W::DaubTransform(GetParam(), f.data(), len, -1, shift);
    }
    for (std::size_t i = 0; i < original.size(); ++i) {
      EXPECT_NEAR(d[i], original[i], 1e-12) << "shift " << shift << " at " << i;
      EXPECT_NEAR(f[i], fOriginal[i], 1e-4) << "float, shift " << shift << " at " << i;
    }
  }
}

TEST(DaubTransform, HaarPairsAreCentredAndShiftRotatesTheInput) {
  const double r = std::numbers::sqrt2;  // shift 0 pairs (1, 2) and (3, 0)
  const double expected[2][4] = {{5 / r, 5 / r, -1 / r, 3 / r}, {7 / r, 3 / r, -1 / r, -1 / r}};
  for (int shift : {0, 1}) {
    std::vector<double> data = {1, 2, 3, 4};
    W::DaubTransform(2, data.data(), 4, 1, shift);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(data[i], expected[shift][i], 1e-15);
  }
}

TEST(DaubTransform, RefusedInputsLeaveDataAlone) {
  const std::vector<double> original = {1, 2, 3, 4, 5, 6, 7, 8};
  const double coef[3] = {0.5, 0.5, 0.5};
  std::vector<double> d = original;
  EXPECT_EQ(W::DaubTransform(8, d.data(), 8, 1, 0), 0);
  EXPECT_EQ(W::DaubTransform(2, static_cast<double*>(nullptr), 8, 1, 0), 1);
  for (unsigned taps : {3u, 0u}) W::UserTransform(coef, taps, d.data(), 8, 1, 0);
  for (std::uint32_t n : {2u, 6u}) W::UserTransform(coef, 2, d.data(), n, 1, 0);
  W::UserTransform(nullptr, 2, d.data(), 8, 1, 0);
  EXPECT_EQ(d, original);
}

TEST(NoiseLevels, KnownAnswersAndPaddingWithTheStartBackwards) {
  const double pair[2] = {1, 3};
  const std::vector<double> flat(100, 7.5);
  EXPECT_DOUBLE_EQ(W::CalcNoiseLevel(pair, 2), std::sqrt(2.0));
  EXPECT_EQ(W::CalcNoiseLevel(pair, 1), 0.0);
  EXPECT_EQ(W::CalcNoiseLevel(flat.data(), 100), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevel(flat.data(), 100), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevel(pair, 3), 0.0);
  for (std::uint32_t n : {5u, 13u, 100u, 1000u}) {  // 5 pads to 8 with y2, y1, y0 last
    const std::vector<double> y = MakeNoise(n, 3.0, n);
    std::vector<double> padded(y);
    for (std::size_t b = std::bit_ceil(n) - n; b-- > 0;) padded.push_back(y[b]);
    const auto pn = static_cast<std::uint32_t>(padded.size());
    EXPECT_EQ(W::CalcNoiseLevel(y.data(), n), W::CalcNoiseLevel(padded.data(), pn));
    EXPECT_EQ(W::CalcWhiteNoiseLevel(y.data(), n), W::CalcWhiteNoiseLevel(padded.data(), pn));
    const std::vector<float> f(y.begin(), y.end());
    const std::vector<double> widened(f.begin(), f.end());
    EXPECT_EQ(W::CalcWhiteNoiseLevel(f.data(), n), W::CalcWhiteNoiseLevel(widened.data(), n));
  }
}

// Over 20 seeds per length, on an offset, CalcNoiseLevel is within 10 % of sigma. (The
// white-noise level is pinned step by step below.)
TEST(NoiseLevels, RecoverTheSigmaOfWhiteNoise) {
  for (std::uint32_t n : {1000u, 3000u, 4096u, 10007u, 65536u}) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
      std::vector<double> y = MakeNoise(n, 2.5, seed);
      for (double& v : y) v += 100.0;
      EXPECT_NEAR(W::CalcNoiseLevel(y.data(), n) / 2.5, 1.0, 0.10) << n << " " << seed;
    }
  }
}

// The full transform of y padded with its start backwards.
std::vector<double> PaddedTransform(const std::vector<double>& y, int taps) {
  std::vector<double> v(y);
  for (std::size_t b = std::bit_ceil(y.size()) - y.size(); b-- > 0;) v.push_back(y[b]);
  for (auto len = static_cast<std::uint32_t>(v.size()); len > 3; len /= 2)
    W::DaubTransform(taps, v.data(), len, 1, 0);
  return v;
}

// The white-noise level of coefficients as its steps read: a plain sort and linear run walks.
double LiteralLevel(std::vector<double> v) {
  const std::size_t top = v.size();
  std::sort(v.begin(), v.end());
  std::size_t f = 0;
  while (f < top && v[f] < 0.0) ++f;
  std::ptrdiff_t z = static_cast<std::ptrdiff_t>(top) - 1;
  while (z >= 0 && v[z] > 0.0) --z;
  const std::size_t mid = ((z < 0 ? top - 1 : z) + (f == top ? 0 : f)) / 2;
  const auto lo = static_cast<std::size_t>(std::floor(0.1 * top));
  const auto hi = static_cast<std::size_t>(std::ceil(0.9 * top));
  double sum = 0.0, sumSq = 0.0, best = 0.0, level = 1.0;
  for (std::size_t i = lo; i < hi; ++i) sum += v[i], sumSq += v[i] * v[i];
  const double m = static_cast<double>(hi - lo);
  const double fallback = std::sqrt((sumSq - sum * sum / (m + 1)) / m);
  for (int offset = 0; offset <= 95; offset += 5) {
    const auto s = static_cast<std::size_t>(offset * static_cast<double>(top - 1) * 0.5 * 0.01);
    const double tol = 0.2 * std::max(std::fabs(v[s]), std::fabs(v[top - s - 1]));
    double sx = 0, sxx = 0, sy = 0, syy = 0, sxy = 0;
    const auto add = [&](double k, std::size_t count) {
      const double lc = std::log(static_cast<double>(std::max<std::size_t>(count, 1)));
      sx += k * k, sxx += k * k * (k * k), sy += lc, syy += lc * lc, sxy += lc * (k * k);
    };
    const auto walk = [&](std::size_t u, std::size_t limit) {
      std::size_t w = u;
      while (w < limit && v[w] <= v[u] + tol) ++w;
      return w;
    };
    for (std::size_t r = 0, u = s; r < 5; ++r) {
      const std::size_t w = walk(u, mid);
      add(5.0 - static_cast<double>(r), w - u + 1);
      u = w;
    }
    bool ended = false;
    for (std::size_t r = 0, u = mid + 1; r < 5; ++r) {
      const std::size_t w = ended ? u : walk(u, top - s);
      add(static_cast<double>(r + 1), ended ? 0 : w == top ? w - u : w - u + 1);
      ended = ended || w == top;
      u = w;
    }
    const double b = (10 * sxy - sx * sy) / (10 * sxx - sx * sx);
    const double a = (sxx * sy - sx * sxy) / (10 * sxx - sx * sx);
    const double r2 = 1 - (syy - a * sy - b * sxy) / (syy - sy * sy * 0.1);
    if (r2 > best && b < 0) level = std::sqrt(-1 / b) * tol * 0.625, best = r2;
    if (r2 > 0.985) break;
  }
  return best < 0.8 ? fallback : level;
}

// The lengths alternate long and short: what a longer call left in the arrays the thread
// keeps must not show through. The levels per depth take the same steps, bit for bit.
TEST(NoiseLevels, WhiteLevelsFollowTheirStepsLiterally) {
  for (std::uint32_t n : {20000u, 4u, 4097u, 5u, 1000u, 16u, 100u}) {
    std::vector<std::vector<double>> inputs = {MakeNoise(n, 3.0, n), Spectrum(n, 10, 90.0)};
    inputs.push_back(inputs[1]);
    for (double& v : inputs.back()) v = std::round(v / 10.0);  // coarse counts, many ties
    inputs.push_back(inputs[0]);  // zeros of both signs among subnormals of both signs
    inputs.push_back(inputs[0]);  // two tight clusters: no fit, and the fall-back cuts both
    for (std::size_t i = 0; i < n; ++i) {
      inputs[3][i] = i % 3 == 0 ? (i % 2 == 0 ? 0.0 : -0.0) : inputs[0][i] * 1e-310;
      inputs[4][i] = (i % 2 == 0 ? 1.0 : -1.0) * (1.0 + 1e-5 * inputs[0][i]);
    }
    for (std::vector<double>& y : inputs) {
      EXPECT_EQ(W::CalcWhiteNoiseLevel(y.data(), n), LiteralLevel(PaddedTransform(y, 2))) << n;
      std::vector<double> levels;
      const std::vector<double> c = PaddedTransform(y, 6);
      std::vector<double> literal;
      for (std::size_t len = c.size(); len / 2 >= 1024; len /= 2)
        literal.push_back(LiteralLevel({c.begin() + len / 2, c.begin() + len}));
      W::CalcWhiteNoiseLevels(y.data(), n, levels);
      EXPECT_EQ(levels, literal) << n;
    }
  }
}

TEST(NoiseLevels, OneLevelPerDepthWithEnoughCoefficients) {
  std::vector<double> y = MakeNoise(10000, 2.0, 8);  // pads to 16384
  std::vector<double> levels;
  ASSERT_EQ(W::CalcWhiteNoiseLevels(y.data(), 10000, levels), 4);  // 8192 .. 1024 coefficients
  ASSERT_EQ(levels.size(), 4u);
  for (double level : levels) EXPECT_NEAR(level, 2.0, 0.3);
  std::vector<double> untouched = {1.0};
  EXPECT_EQ(W::CalcWhiteNoiseLevels(y.data(), 1024, untouched), 0);
  EXPECT_EQ(untouched, std::vector<double>{1.0});
}

class NonFiniteTest : public ::testing::TestWithParam<double> {};
INSTANTIATE_TEST_SUITE_P(NanAndInfinities, NonFiniteTest,
                         ::testing::Values(std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::infinity(),
                                           -std::numeric_limits<double>::infinity()));

TEST_P(NonFiniteTest, EstimatorsReturnZeroAndFiltersLeaveDataAlone) {
  std::vector<double> y = MakeNoise(2000, 1.0, 5), levels = {42.0};
  y[123] = GetParam();
  const std::vector<double> before(y);
  EXPECT_EQ(W::CalcNoiseLevel(y.data(), 2000) + W::CalcWhiteNoiseLevel(y.data(), 2000), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevels(y.data(), 2000, levels), 0);
  EXPECT_EQ(W::NotchFilter(y.data(), 2000, 1, 2), 0);
  W::SubtractNoise(y.data(), 2000, 1.5);
  W::SubtractColoredNoise(y.data(), 2000, 1.5);
  W::SmoothBaseline(y.data(), 2000, 64.0);
  EXPECT_EQ(levels, std::vector<double>{42.0});
  EXPECT_EQ(0, std::memcmp(y.data(), before.data(), y.size() * sizeof(double)));  // NaN too
}

TEST(SubtractNoise, LowersTheErrorOfANoisySpectrum) {
  const std::size_t n = 2000;  // pads to 2048
  const std::vector<double> clean = Spectrum(n, 30, 60.0), noise = MakeNoise(n, 10.0, 5);
  std::vector<double> y = clean;
  for (std::size_t i = 0; i < n; ++i) y[i] += noise[i];
  const double before = Rms(y, clean);
  W::SubtractNoise(y.data(), n, 1.0);
  EXPECT_LT(Rms(y, clean), 0.65 * before);
}

TEST(SubtractColoredNoise, LowersTheErrorOfCorrelatedNoise) {
  const std::size_t n = 4000;
  const std::vector<double> clean = Spectrum(n, 8, 450.0), fine = MakeNoise(n, 2.0, 1);
  const std::vector<double> broad = MakeNoise(n + 16, 20.0, 2);  // averaged over 16 points
  std::vector<double> y = clean;
  for (std::size_t i = 0; i < n; ++i) {
    y[i] += fine[i];
    for (int j = 0; j < 16; ++j) y[i] += broad[i + j] / 16.0;
  }
  const double before = Rms(y, clean);
  W::SubtractColoredNoise(y.data(), n, 2.0);
  EXPECT_LT(Rms(y, clean), 0.8 * before);
}

TEST(NotchFilter, RemovesTheChosenDepthsKeepsTheRestAndRejectsBadBounds) {
  constexpr std::uint32_t n = 3000;
  std::vector<double> fast(n), slow(n), y(n);
  for (std::size_t i = 0; i < n; ++i) {
    fast[i] = std::sin(2.0 * kPi * static_cast<double>(i) / 5.0);  // depth 2
    slow[i] = 3.0 * std::sin(2.0 * kPi * static_cast<double>(i) / 300.0);
    y[i] = fast[i] + slow[i];
  }
  const std::vector<double> original = y;
  const std::uint32_t rejected[][3] = {{3, 1, 2}, {n, 0, 2}, {n, 1, 0}, {n, 3, 2}};
  for (const auto& c : rejected) EXPECT_EQ(W::NotchFilter(y.data(), c[0], c[1], c[2]), 0);
  EXPECT_EQ(W::NotchFilter(y.data(), n, 20, 30), 1);  // past the deepest depth: nothing to do
  EXPECT_EQ(y, original);
  ASSERT_EQ(W::NotchFilter(y.data(), n, 1, 3), 1);
  EXPECT_LT(Rms(y, slow), 0.1 * Rms(fast, std::vector<double>(n, 0.0)));
}

TEST(SmoothBaseline, RecoversASlowBaselineUnderPeaks) {
  constexpr std::size_t n = 3000;
  std::vector<testing::GaussPeak> peaks;
  for (int i = 0; i < 25; ++i) peaks.push_back({60.0 + 115.0 * i, 300.0 + 40.0 * (i % 5), 3.0});
  std::vector<double> y = testing::MakeSignal(n, 0.0, 1.0, peaks, {.noiseSigma = 5.0}).y;
  std::vector<double> truth(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto x = static_cast<double>(i);
    truth[i] = 100.0 + 0.05 * x + 40.0 * std::sin(2.0 * kPi * x / 2500.0);
    y[i] += truth[i];
  }
  W::SmoothBaseline(y.data(), n, 128.0);
  EXPECT_LT(Rms(y, truth), 1.5);  // under a third of the noise
  for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(y[i], truth[i], 6.0) << i;
}

}  // namespace
}  // namespace qxpkutil
