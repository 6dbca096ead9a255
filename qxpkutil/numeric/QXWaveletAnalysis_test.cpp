#include "qxpkutil/numeric/QXWaveletAnalysis.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numbers>
#include <tuple>
#include <vector>

#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using W = QXWaveletAnalysis;
using testing::MakeNoise;

double Rms(const std::vector<double>& a, const std::vector<double>& b) {
  double e = 0.0;
  for (std::size_t i = 0; i < a.size(); ++i) e += (a[i] - b[i]) * (a[i] - b[i]);
  return std::sqrt(e / static_cast<double>(a.size()));
}

// A spectrum of narrow peaks on an offset, `peaks` of them `spacing` points apart.
testing::Signal Spectrum(std::size_t n, int peaks, double spacing) {
  std::vector<testing::GaussPeak> p;
  for (int i = 0; i < peaks; ++i)
    p.push_back({50.0 + spacing * i, 200.0 + 50.0 * (i % 7), 2.0 + (i % 3)});
  return testing::MakeSignal(n, 0.0, 1.0, p, {.baseline = 10.0});
}

// A set's scaling coefficients, read back from the inverse of one unit smooth value: smooth
// pair 0 feeds the positions 2 + k - taps/2 (mod n).
std::vector<double> Coefficients(int taps) {
  constexpr int n = 64;
  std::vector<double> data(n, 0.0);
  data[0] = 1.0;
  EXPECT_EQ(W::DaubTransform(taps, data.data(), n, -1, 0), 1);
  std::vector<double> h(taps);
  for (int k = 0; k < taps; ++k) h[k] = data[(2 + k - taps / 2 + n) % n];
  return h;
}

class TapsTest : public ::testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(AllSets, TapsTest, ::testing::Values(2, 4, 6, 12, 20));

TEST_P(TapsTest, CoefficientsAreOrthonormalWithVanishingMoments) {
  const int taps = GetParam();
  const std::vector<double> h = Coefficients(taps);
  double sum = 0.0;
  for (double c : h) sum += c;
  EXPECT_NEAR(sum, std::numbers::sqrt2, 1e-15);
  for (int shift = 0; shift < taps; shift += 2) {
    double dot = 0.0;
    for (int k = 0; k + shift < taps; ++k) dot += h[k] * h[k + shift];
    EXPECT_NEAR(dot, shift == 0 ? 1.0 : 0.0, 1e-15) << "even shift " << shift;
  }
  for (int power = 0; power < taps / 2; ++power) {
    double moment = 0.0;
    double scale = 0.0;
    for (int k = 0; k < taps; ++k) {
      const double term = (k % 2 ? -1.0 : 1.0) * std::pow(k, power) * h[k];
      moment += term;
      scale += std::fabs(term);
    }
    EXPECT_NEAR(moment, 0.0, 1e-14 * scale) << "moment " << power;
  }
}

TEST(WaveletCoefficients, MatchPublishedValues) {
  const double r3 = std::sqrt(3.0);
  const double d = 4.0 * std::numbers::sqrt2;
  const std::vector<double> d4 = Coefficients(4);
  const double closed[4] = {(1 + r3) / d, (3 + r3) / d, (3 - r3) / d, (1 - r3) / d};
  for (int k = 0; k < 4; ++k) EXPECT_NEAR(d4[k], closed[k], 4e-16);  // the closed form rounds
  // First and last taps as printed in the usual tables (to their printed digits).
  EXPECT_NEAR(Coefficients(6).front(), 0.33267055295, 1e-11);
  EXPECT_NEAR(Coefficients(6).back(), 0.035226291886, 1e-12);
  EXPECT_NEAR(Coefficients(12).front(), 0.11154074335, 1e-11);
  EXPECT_NEAR(Coefficients(12).back(), -0.001077301085, 1e-12);
  EXPECT_NEAR(Coefficients(20).front(), 0.026670057901, 1e-12);
  EXPECT_NEAR(Coefficients(20).back(), -1.3264203e-05, 1e-12);
}

TEST_P(TapsTest, ForwardThenInverseRestoresData) {
  const int taps = GetParam();
  const std::vector<double> original = MakeNoise(256, 50.0, 7);
  for (int shift : {0, 1}) {
    std::vector<double> d = original;
    std::vector<float> f(original.begin(), original.end());
    const std::vector<float> fOriginal = f;
    for (std::uint32_t len = 256; len > 3; len /= 2) {  // full transform, then back up
      W::DaubTransform(taps, d.data(), len, 1, shift);
      W::DaubTransform(taps, f.data(), len, 1, shift);
    }
    EXPECT_GT(Rms(d, original), 1.0) << "the forward transform must change the data";
    for (std::uint32_t len = 4; len <= 256; len *= 2) {
      W::DaubTransform(taps, d.data(), len, -1, shift);
      W::DaubTransform(taps, f.data(), len, -1, shift);
    }
    for (std::size_t i = 0; i < original.size(); ++i) {
      EXPECT_NEAR(d[i], original[i], 1e-12) << "shift " << shift << " at " << i;
      EXPECT_NEAR(f[i], fOriginal[i], 1e-4) << "float, shift " << shift << " at " << i;
    }
  }
}

TEST(DaubTransform, HaarPairsAreCentredAndShiftRotatesTheInput) {
  const double r = std::numbers::sqrt2;
  // Shift 0 pairs (1, 2) and (3, 0); shift 1 reads the data rotated left by one.
  const std::vector<std::vector<double>> expected = {
      {5 / r, 5 / r, -1 / r, 3 / r}, {7 / r, 3 / r, -1 / r, -1 / r}};
  for (int shift : {0, 1}) {
    std::vector<double> data = {1, 2, 3, 4};
    EXPECT_EQ(W::DaubTransform(2, data.data(), 4, 1, shift), 1);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(data[i], expected[shift][i], 1e-15);
  }
}

TEST(DaubTransform, RefusedInputsLeaveDataAlone) {
  const std::vector<double> original = {1, 2, 3, 4, 5, 6, 7, 8};
  const double coef[3] = {0.5, 0.5, 0.5};
  std::vector<double> d = original;
  EXPECT_EQ(W::DaubTransform(8, d.data(), 8, 1, 0), 0);
  EXPECT_EQ(W::DaubTransform(2, static_cast<double*>(nullptr), 8, 1, 0), 1);
  W::UserTransform(coef, 3, d.data(), 8, 1, 0);       // odd tap count
  W::UserTransform(coef, 0, d.data(), 8, 1, 0);       // no taps
  W::UserTransform(nullptr, 2, d.data(), 8, 1, 0);    // no coefficients
  W::UserTransform(coef, 2, d.data(), 2, 1, 0);       // n < 4
  W::UserTransform(coef, 2, d.data(), 6, 1, 0);       // not a power of two
  EXPECT_EQ(d, original);
}

TEST(CalcNoiseLevel, KnownAnswers) {
  const double pair[2] = {1, 3};
  const std::vector<double> flat(100, 7.5);
  EXPECT_DOUBLE_EQ(W::CalcNoiseLevel(pair, 2), std::sqrt(2.0));
  EXPECT_EQ(W::CalcNoiseLevel(pair, 1), 0.0);
  EXPECT_EQ(W::CalcNoiseLevel(nullptr, 100), 0.0);
  EXPECT_EQ(W::CalcNoiseLevel(flat.data(), 100), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevel(flat.data(), 100), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevel(pair, 3), 0.0);
}

// Padding to a power of two fills the tail with the start of the signal backwards.
TEST(NoiseLevels, PadWithTheStartOfTheSignalBackwards) {
  for (std::uint32_t n : {3u, 5u, 13u, 100u, 1000u}) {
    const std::vector<double> y = MakeNoise(n, 3.0, n);
    std::vector<double> padded(std::bit_ceil(n));
    std::copy(y.begin(), y.end(), padded.begin());
    for (std::size_t b = 0; n + b < padded.size(); ++b) padded[padded.size() - 1 - b] = y[b];
    const auto pn = static_cast<std::uint32_t>(padded.size());
    EXPECT_EQ(W::CalcNoiseLevel(y.data(), n), W::CalcNoiseLevel(padded.data(), pn)) << n;
    if (n >= 4) {  // the white level needs four points
      EXPECT_EQ(W::CalcWhiteNoiseLevel(y.data(), n), W::CalcWhiteNoiseLevel(padded.data(), pn));
    }
  }
}

// Over 20 seeds per length, on an offset: CalcNoiseLevel within 10 % of sigma, and
// CalcWhiteNoiseLevel within 20 % (it averages about 0.975 sigma from 1000 points on).
TEST(NoiseLevels, RecoverTheSigmaOfWhiteNoise) {
  constexpr double sigma = 2.5;
  for (std::uint32_t n : {1000u, 3000u, 4096u, 10007u, 65536u}) {
    double meanWhite = 0.0;
    for (unsigned seed = 1; seed <= 20; ++seed) {
      std::vector<double> y = MakeNoise(n, sigma, seed);
      for (double& v : y) v += 100.0;
      EXPECT_NEAR(W::CalcNoiseLevel(y.data(), n) / sigma, 1.0, 0.10) << n << " " << seed;
      const double white = W::CalcWhiteNoiseLevel(y.data(), n) / sigma;
      EXPECT_NEAR(white, 1.0, 0.20) << n << " " << seed;
      meanWhite += white / 20.0;
    }
    EXPECT_NEAR(meanWhite, 0.975, 0.03) << n;
  }
}

TEST(NoiseLevels, FloatFormEqualsDoubleFormOnWidenedData) {
  for (std::uint32_t n : {4u, 77u, 5000u}) {
    const std::vector<double> y = MakeNoise(n, 40.0, 3);
    const std::vector<float> f(y.begin(), y.end());
    const std::vector<double> widened(f.begin(), f.end());
    EXPECT_EQ(W::CalcWhiteNoiseLevel(f.data(), n), W::CalcWhiteNoiseLevel(widened.data(), n));
  }
}

// The white-noise level step by step as described: a plain sort and linear run walks.
double LiteralWhiteNoiseLevel(const std::vector<double>& y) {
  const std::size_t n = y.size();
  std::vector<double> v(std::bit_ceil(n));
  const std::size_t top = v.size();
  std::copy(y.begin(), y.end(), v.begin());
  for (std::size_t b = 0; n + b < top; ++b) v[top - 1 - b] = y[b];
  for (auto len = static_cast<std::uint32_t>(top); len > 3; len /= 2)
    W::DaubTransform(2, v.data(), len, 1, 0);
  std::sort(v.begin(), v.end());
  std::size_t f = 0;
  while (f < top && v[f] < 0.0) ++f;
  std::ptrdiff_t z = static_cast<std::ptrdiff_t>(top) - 1;
  while (z >= 0 && v[z] > 0.0) --z;
  const std::size_t mid = ((z < 0 ? top - 1 : z) + (f == top ? 0 : f)) / 2;
  const auto lo = static_cast<std::size_t>(std::floor(0.1 * top));
  const auto hi = static_cast<std::size_t>(std::ceil(0.9 * top));
  double sum = 0.0, sumSq = 0.0;
  for (std::size_t i = lo; i < hi; ++i) sum += v[i], sumSq += v[i] * v[i];
  const double m = static_cast<double>(hi - lo);
  const double fallback = std::sqrt((sumSq - sum * sum / (m + 1)) / m);
  double best = 0.0, level = 1.0;
  for (int offset = 0; offset <= 95; offset += 5) {
    const auto s = static_cast<std::size_t>(offset * static_cast<double>(top - 1) * 0.5 * 0.01);
    const double tol = 0.2 * std::max(std::fabs(v[s]), std::fabs(v[top - s - 1]));
    double sx = 0, sxx = 0, sy = 0, syy = 0, sxy = 0;
    const auto add = [&](double k, std::size_t count) {
      const double lc = std::log(static_cast<double>(std::max<std::size_t>(count, 1)));
      sx += k * k, sxx += k * k * (k * k), sy += lc, syy += lc * lc, sxy += lc * (k * k);
    };
    std::size_t u = s;
    for (int r = 0; r < 5; ++r) {
      std::size_t w = u;
      while (w < mid && v[w] <= v[u] + tol) ++w;
      add(5 - r, w - u + 1);
      u = w;
    }
    u = mid + 1;
    int r = 0;
    for (bool ended = false; r < 5 && !ended; ++r) {
      std::size_t w = u;
      while (w < top - s && v[w] <= v[u] + tol) ++w;
      ended = w == top;
      add(r + 1, ended ? w - u : w - u + 1);
      u = w;
    }
    for (; r < 5; ++r) add(r + 1, 0);
    const double det = 10 * sxx - sx * sx;
    const double b = (10 * sxy - sx * sy) / det;
    const double a = (sxx * sy - sx * sxy) / det;
    const double r2 = 1 - (syy - a * sy - b * sxy) / (syy - sy * sy * 0.1);
    if (r2 > best && b < 0) level = std::sqrt(-1 / b) * tol * 0.625, best = r2;
    if (r2 > 0.985) break;
  }
  return best < 0.8 ? fallback : level;
}

TEST(CalcWhiteNoiseLevel, FollowsTheLiteralSteps) {
  for (std::uint32_t n : {4u, 5u, 16u, 100u, 1000u, 4097u, 20000u}) {
    std::vector<std::vector<double>> inputs = {MakeNoise(n, 3.0, n), Spectrum(n, 10, 90.0).y};
    inputs.push_back(inputs[1]);
    for (double& v : inputs.back()) v = std::round(v / 10.0);  // coarse counts, many ties
    for (const std::vector<double>& y : inputs)
      EXPECT_DOUBLE_EQ(W::CalcWhiteNoiseLevel(y.data(), n), LiteralWhiteNoiseLevel(y)) << n;
  }
}

class NonFiniteTest : public ::testing::TestWithParam<double> {};
INSTANTIATE_TEST_SUITE_P(NanAndInfinities, NonFiniteTest,
                         ::testing::Values(std::numeric_limits<double>::quiet_NaN(),
                                           std::numeric_limits<double>::infinity(),
                                           -std::numeric_limits<double>::infinity()));

TEST_P(NonFiniteTest, EstimatorsReturnZeroAndFiltersLeaveDataAlone) {
  std::vector<double> y = MakeNoise(300, 1.0, 5);
  y[123] = GetParam();
  std::vector<double> original = y;
  std::vector<double> levels = {42.0};
  EXPECT_EQ(W::CalcNoiseLevel(y.data(), 300), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevel(y.data(), 300), 0.0);
  EXPECT_EQ(W::CalcWhiteNoiseLevels(y.data(), 300, levels), 0);
  EXPECT_EQ(levels, std::vector<double>{42.0});
  EXPECT_EQ(W::NotchFilter(y.data(), 300, 1, 2), 0);
  W::SubtractNoise(y.data(), 300, 1.5);
  W::SubtractColoredNoise(y.data(), 300, 1.5);
  W::SmoothBaseline(y.data(), 300, 64.0);
  for (std::size_t i = 0; i < y.size(); ++i) EXPECT_EQ(std::isnan(y[i]), std::isnan(original[i]));
  y[123] = original[123] = 0.0;
  EXPECT_EQ(y, original);
}

TEST(CalcWhiteNoiseLevels, OneLevelPerDepthWithEnoughCoefficients) {
  std::vector<double> y = MakeNoise(10000, 2.0, 8);  // padded to 16384
  std::vector<double> levels;
  ASSERT_EQ(W::CalcWhiteNoiseLevels(y.data(), 10000, levels), 4);
  ASSERT_EQ(levels.size(), 4u);  // depths of 8192 .. 1024 coefficients
  for (double level : levels) EXPECT_NEAR(level, 2.0, 0.3);
  std::vector<double> untouched = {1.0};
  EXPECT_EQ(W::CalcWhiteNoiseLevels(y.data(), 1024, untouched), 0);
  EXPECT_EQ(untouched, std::vector<double>{1.0});
}

TEST(SubtractNoise, LowersTheErrorAndKeepsTheLength) {
  const std::size_t n = 2000;
  const std::vector<double> clean = Spectrum(n, 30, 60.0).y;
  std::vector<double> y = clean;
  const std::vector<double> noise = MakeNoise(n, 10.0, 5);
  for (std::size_t i = 0; i < n; ++i) y[i] += noise[i];
  const double before = Rms(y, clean);
  y.push_back(-1.0);  // must stay as it is
  W::SubtractNoise(y.data(), n, 1.0);
  EXPECT_EQ(y.back(), -1.0);
  y.pop_back();
  EXPECT_LT(Rms(y, clean), 0.65 * before);
}

TEST(SubtractColoredNoise, LowersTheErrorOfCorrelatedNoise) {
  const std::size_t n = 4000;
  const std::vector<double> clean = Spectrum(n, 8, 450.0).y;
  const std::vector<double> fine = MakeNoise(n, 2.0, 1);
  const std::vector<double> broad = MakeNoise(n + 16, 20.0, 2);
  std::vector<double> y = clean;
  for (std::size_t i = 0; i < n; ++i) {
    double sum = 0.0;
    for (int j = 0; j < 16; ++j) sum += broad[i + j];
    y[i] += fine[i] + sum / 16.0;
  }
  const double before = Rms(y, clean);
  W::SubtractColoredNoise(y.data(), n, 2.0);
  EXPECT_LT(Rms(y, clean), 0.8 * before);
}

TEST(NotchFilter, RemovesTheChosenDepthsAndKeepsTheRest) {
  constexpr std::size_t n = 3000;
  std::vector<double> fast(n), slow(n), y(n);
  for (std::size_t i = 0; i < n; ++i) {
    fast[i] = std::sin(2.0 * std::numbers::pi * static_cast<double>(i) / 5.0);    // depth 2
    slow[i] = 3.0 * std::sin(2.0 * std::numbers::pi * static_cast<double>(i) / 300.0);
    y[i] = fast[i] + slow[i];
  }
  const std::vector<double> zero(n, 0.0);
  ASSERT_EQ(W::NotchFilter(y.data(), n, 1, 3), 1);
  EXPECT_LT(Rms(y, slow), 0.1 * Rms(fast, zero));
}

TEST(NotchFilter, RejectsBadBounds) {
  std::vector<double> y = MakeNoise(64, 1.0, 2);
  const std::vector<double> original = y;
  const std::vector<std::tuple<std::uint32_t, std::uint32_t, std::uint32_t>> cases = {
      {3, 1, 2}, {64, 0, 2}, {64, 1, 0}, {64, 3, 2}};
  for (auto [n, lower, upper] : cases) EXPECT_EQ(W::NotchFilter(y.data(), n, lower, upper), 0);
  EXPECT_EQ(W::NotchFilter(nullptr, 64, 1, 2), 0);
  EXPECT_EQ(W::NotchFilter(y.data(), 64, 9, 12), 1);  // beyond the deepest depth: no change
  EXPECT_EQ(y, original);
}

TEST(SmoothBaseline, RecoversASlowBaselineUnderPeaks) {
  constexpr std::size_t n = 3000;
  std::vector<testing::GaussPeak> peaks;
  for (int i = 0; i < 25; ++i) peaks.push_back({60.0 + 115.0 * i, 300.0 + 40.0 * (i % 5), 3.0});
  testing::Signal s = testing::MakeSignal(n, 0.0, 1.0, peaks, {.noiseSigma = 5.0, .seed = 9});
  std::vector<double> truth(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto x = static_cast<double>(i);
    truth[i] = 100.0 + 0.05 * x + 40.0 * std::sin(2.0 * std::numbers::pi * x / 2500.0);
    s.y[i] += truth[i];
  }
  W::SmoothBaseline(s.y.data(), n, 128.0);
  EXPECT_LT(Rms(s.y, truth), 1.5);  // less than a third of the noise
  for (std::size_t i = 0; i < n; ++i) EXPECT_NEAR(s.y[i], truth[i], 6.0) << i;
}

}  // namespace
}  // namespace qxpkutil
