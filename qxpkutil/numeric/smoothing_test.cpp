#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

// The kernel written out from its definition: widths up to 201 take the first w weights of
// table row w-2 over the whole row's sum; wider ones a normalised symmetric kernel.
double NaiveGaussMean(const std::vector<double>& v, int w) {
  double sum = 0, divisor = 0;
  if (w <= 201) {
    const int r = w - 2;
    for (int k = -r; k <= r; ++k) {
      const double weight = r == 0 ? 1.0 : std::exp(-double(k * k) / (r * r));
      divisor += weight;
      if (k + r < w) sum += weight * v[k + r];
    }
  } else {
    const int h = w / 2;
    for (int k = 0; k < w; ++k) {
      const double weight = std::exp(-double((h - k) * (h - k)) / (h * h));
      divisor += weight;
      sum += weight * v[k];
    }
  }
  return w == 1 ? v[0] : sum / divisor;
}

std::vector<double> Noise(std::size_t n, unsigned seed) {
  std::vector<double> v = testing::MakeNoise(n, 50.0, seed);
  for (double& x : v) x = std::round(std::fabs(x));  // whole counts, so both families agree
  return v;
}

TEST(NormGaussMean, KnownKernelsOfWidthThreeAndFive) {
  const double e1 = std::exp(-1.0);
  const double three[] = {1, 2, 3};
  EXPECT_DOUBLE_EQ(U::NormGaussMean(three, 3), (e1 * 1 + 2 + e1 * 3) / (1 + 2 * e1));
  const double five[] = {1, 2, 3, 4, 5};
  const double a = std::exp(-4.0 / 9), b = std::exp(-1.0 / 9);
  EXPECT_DOUBLE_EQ(U::NormGaussMean(five, 5),
                   (e1 * 1 + a * 2 + b * 3 + 1.0 * 4 + b * 5) / (1 + 2 * (b + a + e1)));
}

TEST(NormGaussMean, MatchesDefinitionAcrossWidthsAndCacheChanges) {
  const std::vector<double> v = Noise(2001, 7);
  std::vector<std::uint32_t> counts(v.begin(), v.end());
  for (int w : {1, 2, 3, 4, 5, 10, 100, 200, 201, 202, 300, 300, 400, 300, 2001, 300}) {
    const double expected = NaiveGaussMean(v, w);
    EXPECT_NEAR(U::NormGaussMean(v.data(), w), expected, 1e-12 * expected) << "w=" << w;
    EXPECT_EQ(U::NormGaussMean(counts.data(), w), U::NormGaussMean(v.data(), w)) << "w=" << w;
  }
  for (int w : {0, -3, 2002}) EXPECT_EQ(U::NormGaussMean(v.data(), w), 0.0);
  EXPECT_EQ(U::NormGaussMean(static_cast<const double*>(nullptr), 5), 0.0);
}

TEST(NormGaussMean, RebuildsAfterTheTableIsDeleted) {
  const std::vector<double> v = Noise(300, 3);
  const double small = U::NormGaussMean(v.data(), 9), large = U::NormGaussMean(v.data(), 300);
  U::DeleteGaussTable();
  EXPECT_EQ(U::NormGaussMean(v.data(), 300), large);  // the freed cache is not reused
  EXPECT_EQ(U::NormGaussMean(v.data(), 9), small);
  U::DeleteGaussTable();
  U::BuildGaussTable();
  U::BuildGaussTable();
  EXPECT_EQ(U::NormGaussMean(v.data(), 9), small);
}

TEST(NormGaussMean, ThreadsWithDifferentLargeWidthsKeepTheirOwnKernels) {
  const std::vector<double> v = Noise(2001, 11);
  const auto run = [&](int w, bool& ok) {
    const double expected = NaiveGaussMean(v, w);
    ok = true;
    for (int i = 0; i < 300; ++i) {
      ok = ok && std::fabs(U::NormGaussMean(v.data(), w) - expected) <= 1e-12 * expected;
    }
  };
  bool ok1 = false, ok2 = false;
  std::thread t1(run, 1500, std::ref(ok1)), t2(run, 1700, std::ref(ok2));
  t1.join();
  t2.join();
  EXPECT_TRUE(ok1);
  EXPECT_TRUE(ok2);
}

TEST(SmoothData, RejectsBadArgumentsWithoutWriting) {
  std::vector<double> in(10, 1.0), out(10, -1.0);
  struct Case {
    const double* in;
    double* out;
    std::uint32_t n;
    int type, w;
  };
  for (const Case& c : {Case{in.data(), out.data(), 10, 0, 11}, Case{in.data(), out.data(), 10, 2, 3},
                        Case{nullptr, out.data(), 10, 0, 3}, Case{in.data(), nullptr, 10, 0, 3},
                        Case{in.data(), out.data(), 0, 0, 1}, Case{in.data(), out.data(), 10, 0, 0},
                        Case{in.data(), out.data(), 10, 0, -1}}) {
    EXPECT_EQ(U::SmoothData(c.in, c.out, c.n, 0, c.type, c.w), 0) << c.n << " " << c.type << " " << c.w;
  }
  std::vector<double> big(3000, 1.0);
  EXPECT_EQ(U::SmoothData(big.data(), big.data(), 3000, 0, 0, 2002), 0);
  EXPECT_EQ(U::SmoothData(in.data(), out.data(), 10, 0, 1, 3), 1);  // type 1 smooths nothing
  EXPECT_EQ(out, std::vector<double>(10, -1.0));
}

// Each interior point is the kernel over the window from p - w/2 (for even w: w/2 points
// before, w/2 - 1 after); the ends are copies. In place gives the same.
class SmoothDataWidth : public ::testing::TestWithParam<int> {};

TEST_P(SmoothDataWidth, InteriorIsTheWindowMeanAndEndsAreCopies) {
  const int w = GetParam(), h = w / 2;
  const std::vector<double> in = Noise(700, 5);
  std::vector<double> out(in.size()), inPlace = in;
  ASSERT_EQ(U::SmoothData(in.data(), out.data(), 700, 0, 0, w), 1);
  ASSERT_EQ(U::SmoothData(inPlace.data(), inPlace.data(), 700, 0, 0, w), 1);
  EXPECT_EQ(out, inPlace);
  for (int p = 0; p < 700; ++p) {
    const double expected = p < h || p >= 700 - h ? in[p] : U::NormGaussMean(in.data() + p - h, w);
    ASSERT_EQ(out[p], expected) << "p=" << p;
  }
}

// The gap rule written out: a zero beside another zero stays 0; otherwise the window is
// zeroed from the first adjacent-zero pair outward on either side of p.
double NaiveGapMean(const std::vector<double>& in, int p, int w) {
  const int h = w / 2;
  const auto zero = [&](int j) { return j >= 0 && j < int(in.size()) && in[j] == 0; };
  if (in[p] == 0 && (zero(p - 1) || zero(p + 1))) return 0.0;
  std::vector<double> window(in.begin() + (p - h), in.begin() + (p - h + w));
  for (int pos = h - 1; pos >= 1; --pos) {
    if (window[pos] == 0 && window[pos - 1] == 0) {
      std::fill(window.begin(), window.begin() + pos + 1, 0.0);
      break;
    }
  }
  for (int pos = h; pos < w - 1; ++pos) {
    if (window[pos] == 0 && window[pos + 1] == 0) {
      std::fill(window.begin() + pos, window.end(), 0.0);
      break;
    }
  }
  return U::NormGaussMean(window.data(), w);
}

TEST_P(SmoothDataWidth, GapAwareMatchesTheRuleWrittenOut) {
  const int w = GetParam(), h = w / 2;
  std::vector<double> in = Noise(700, 9);
  for (int g = 40; g + 3 < 700; g += 97) in[g] = in[g + 1] = in[g + 3] = 0.0;
  std::vector<double> out(in.size());
  ASSERT_EQ(U::SmoothData(in.data(), out.data(), 700, 1, 0, w), 1);
  for (int p = h; p < 700 - h; ++p) ASSERT_EQ(out[p], NaiveGapMean(in, p, w)) << "p=" << p;
}

INSTANTIATE_TEST_SUITE_P(Widths, SmoothDataWidth, ::testing::Values(1, 2, 3, 4, 7, 8, 202, 699));

TEST(SmoothData, ConstantSignalInteriorSitsAtTheKernelsWeightRatio) {
  const std::vector<double> in(50, 10.0);
  std::vector<double> out(50);
  ASSERT_EQ(U::SmoothData(in.data(), out.data(), 50, 0, 0, 7), 1);
  double applied = 0, row = 0;  // width 7 applies the first 7 of row 5's 11 weights
  for (int k = -5; k <= 5; ++k) {
    row += std::exp(-k * k / 25.0);
    if (k <= 1) applied += std::exp(-k * k / 25.0);
  }
  EXPECT_EQ(out[0], 10.0);
  EXPECT_EQ(out[49], 10.0);
  for (int p = 3; p < 47; ++p) EXPECT_NEAR(out[p], 10.0 * applied / row, 1e-12);
}

TEST(SmoothData, GapAwareStopsAtTwoZeros) {
  const std::vector<double> in = {5, 5, 0, 0, 5, 5, 5};
  std::vector<double> out(7), inPlace = in;
  ASSERT_EQ(U::SmoothData(in.data(), out.data(), 7, 1, 0, 3), 1);
  const std::vector<double> w1 = {5, 5, 0}, w4 = {0, 5, 5}, w5 = {5, 5, 5};
  EXPECT_EQ(out, (std::vector<double>{5, U::NormGaussMean(w1.data(), 3), 0, 0,
                                       U::NormGaussMean(w4.data(), 3),
                                       U::NormGaussMean(w5.data(), 3), 5}));
  ASSERT_EQ(U::SmoothData(inPlace.data(), inPlace.data(), 7, 1, 0, 3), 1);
  EXPECT_EQ(inPlace, out);

  // Values beyond a gap on either side are left out of the window.
  const std::vector<double> wide = {4, 0, 0, 6, 7, 8, 0, 0, 4};
  const std::vector<double> left = {0, 0, 0, 6, 7, 8, 0}, right = {0, 6, 7, 8, 0, 0, 0};
  std::vector<double> full(9);
  ASSERT_EQ(U::SmoothData(wide.data(), full.data(), 9, 1, 0, 7), 1);
  EXPECT_EQ(full[3], U::NormGaussMean(left.data(), 7));
  EXPECT_EQ(full[5], U::NormGaussMean(right.data(), 7));
}

TEST(ResolutionSmoothData, HalfWeightAtHalfTheResolvedWidth) {
  // At x = 100 and resolving power 200 the kernel's half width is 0.25: the neighbour
  // weighs 0.5. At x = 100.25 the width grows with x.
  const double x[] = {100.0, 100.25};
  double y[] = {2.0, 0.0};
  ASSERT_EQ(U::ResolutionSmoothData(x, y, 2, 200.0, 10.0), 1);
  const double far = std::pow(0.5, std::pow(100.0 / 100.25, 2));
  EXPECT_NEAR(y[0], 2.0 / 1.5, 1e-12);
  EXPECT_NEAR(y[1], 2.0 * far / (1 + far), 1e-12);  // from the unsmoothed y[0]

  const auto s = testing::MakeSignal(200, 400.0, 0.01, {{401.0, 1000.0, 0.05}});
  std::vector<double> same = s.y;
  ASSERT_EQ(U::ResolutionSmoothData(s.x.data(), same.data(), 200, 1000.0, 0.0), 1);
  EXPECT_EQ(same, s.y);
  for (double bad : {0.0, -5.0, std::nan("")}) {
    EXPECT_EQ(U::ResolutionSmoothData(s.x.data(), same.data(), 200, bad, 3.0), 0);
  }
  EXPECT_EQ(U::ResolutionSmoothData(s.x.data(), same.data(), 0, 1000.0, 3.0), 0);
}

TEST(BinData, MergesRunsCloserThanTheWidth) {
  const double x[] = {1.0, 1.05, 2.0}, y[] = {1, 3, 2};
  double outX[3] = {-1, -1, -1}, outY[3] = {-1, -1, -1};
  ASSERT_EQ(U::BinData(x, y, outX, outY, 3, 0.1), 1);
  EXPECT_DOUBLE_EQ(outX[0], 1.0375);
  EXPECT_EQ(outY[0], 4.0);
  EXPECT_EQ(outX[1], 2.0);
  EXPECT_EQ(outY[1], 2.0);
  EXPECT_EQ(outX[2], -1);
  EXPECT_EQ(U::BinData(x, y, outX, outY, 3, 0.0), 0);
  EXPECT_EQ(U::BinData(x, y, outX, outY, 3, std::nan("")), 0);
  // A width too small to change x must still move on, one point per bin.
  const double huge[] = {1e300, 1e300};
  ASSERT_EQ(U::BinData(huge, y, outX, outY, 2, 1e-300), 1);
  EXPECT_EQ(outY[1], 3.0);
}

TEST(GetSpecLinearFactor, FirstPointsAboveOneAtBothEnds) {
  std::vector<double> x(100);
  for (int i = 0; i < 100; ++i) x[i] = 0.5 + 0.01 * i;  // first x > 1 on the stride: i = 60
  const double front = 2 * std::sqrt(x[61]) * 3.0 / 0.01, back = 2 * std::sqrt(x[97]) * 3.0 / 0.01;
  EXPECT_NEAR(U::GetSpecLinearFactor(x.data(), 100, 3.0), (front + back) / 2, 1e-6);
  EXPECT_EQ(U::GetSpecLinearFactor(x.data(), 50, 3.0), 0.0);  // nothing above 1
  const double shortX[] = {2.0, 3.0};
  EXPECT_EQ(U::GetSpecLinearFactor(shortX, 2, 3.0), 0.0);  // too short to read x[i + 2]
  EXPECT_EQ(U::GetSpecLinearFactor(nullptr, 100, 3.0), 0.0);
}

}  // namespace
}  // namespace qxpkutil
