// SmoothData (plain and gap-aware) and ResolutionSmoothData, against the kernel mean of
// NormGaussMean, which gauss_table_test.cpp checks against its definition.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

TEST(SmoothData, RejectsBadArgumentsWithoutWriting) {
  std::vector<double> in(10, 1.0), out(10, -1.0);
  for (int w : {11, 0, -1, 2002}) EXPECT_EQ(U::SmoothData(in.data(), out.data(), 10, 0, 0, w), 0);
  EXPECT_EQ(U::SmoothData(in.data(), out.data(), 10, 0, 2, 3), 0);
  EXPECT_EQ(U::SmoothData(nullptr, out.data(), 10, 0, 0, 3), 0);
  EXPECT_EQ(U::SmoothData(in.data(), out.data(), 0, 0, 0, 1), 0);
  EXPECT_EQ(U::SmoothData(in.data(), out.data(), 10, 0, 1, 3), 1);  // type 1 smooths nothing
  EXPECT_EQ(out, std::vector<double>(10, -1.0));
}

// Interior point p is the kernel over the w points from p - w/2 (for even w: w/2 before,
// w/2 - 1 after); the ends are copies; in place gives the same.
class SmoothDataWidth : public ::testing::TestWithParam<int> {};

TEST_P(SmoothDataWidth, InteriorIsTheWindowMeanAndEndsAreCopies) {
  const int w = GetParam(), h = w / 2;
  const std::vector<double> in = testing::MakeNoise(700, 50.0, 5);
  std::vector<double> out(in.size()), inPlace = in;
  ASSERT_EQ(U::SmoothData(in.data(), out.data(), 700, 0, 0, w), 1);
  ASSERT_EQ(U::SmoothData(inPlace.data(), inPlace.data(), 700, 0, 0, w), 1);
  EXPECT_EQ(out, inPlace);
  for (int p = 0; p < 700; ++p) {
    const double expected = p < h || p >= 700 - h ? in[p] : U::NormGaussMean(in.data() + p - h, w);
    ASSERT_EQ(out[p], expected) << "p=" << p;
  }
}

INSTANTIATE_TEST_SUITE_P(Widths, SmoothDataWidth, ::testing::Values(1, 2, 3, 4, 7, 8, 202, 699));

TEST(SmoothData, GapAwareKeepsValuesBeyondTwoZerosOutOfTheWindow) {
  const std::vector<double> in = {5, 5, 0, 0, 5, 5, 5};
  std::vector<double> out(7);
  ASSERT_EQ(U::SmoothData(in.data(), out.data(), 7, 1, 0, 3), 1);
  const double w1[] = {5, 5, 0}, w4[] = {0, 5, 5}, w5[] = {5, 5, 5};
  EXPECT_EQ(out, (std::vector<double>{5, U::NormGaussMean(w1, 3), 0, 0, U::NormGaussMean(w4, 3),
                                       U::NormGaussMean(w5, 3), 5}));

  const std::vector<double> wide = {4, 0, 0, 6, 7, 8, 0, 0, 4};  // the 4s lie beyond gaps
  std::vector<double> smoothed(9);
  ASSERT_EQ(U::SmoothData(wide.data(), smoothed.data(), 9, 1, 0, 7), 1);
  const double left[] = {0, 0, 0, 6, 7, 8, 0}, right[] = {0, 6, 7, 8, 0, 0, 0};
  EXPECT_EQ(smoothed[3], U::NormGaussMean(left, 7));
  EXPECT_EQ(smoothed[5], U::NormGaussMean(right, 7));
}

TEST(ResolutionSmoothData, HalfWeightAtHalfTheResolvedWidth) {
  // At x = 100 and resolving power 200 the neighbour 0.25 away weighs 0.5; at x = 100.25
  // the kernel is wider. Both use the unsmoothed values; a zero cutoff changes nothing.
  const double x[] = {100.0, 100.25};
  double y[] = {2.0, 0.0};
  ASSERT_EQ(U::ResolutionSmoothData(x, y, 2, 200.0, 0.0), 1);
  EXPECT_EQ(y[0], 2.0);
  ASSERT_EQ(U::ResolutionSmoothData(x, y, 2, 200.0, 10.0), 1);
  const double far = std::pow(0.5, std::pow(100.0 / 100.25, 2));
  EXPECT_NEAR(y[0], 2.0 / 1.5, 1e-12);
  EXPECT_NEAR(y[1], 2.0 * far / (1 + far), 1e-12);
  EXPECT_EQ(U::ResolutionSmoothData(x, y, 2, 0.0, 3.0) +
                U::ResolutionSmoothData(x, y, 2, 9, std::nan("")),
            0);
}

}  // namespace
}  // namespace qxpkutil
