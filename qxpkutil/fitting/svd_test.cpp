// Svdcmp and dpythag: random matrices rebuilt from their factors, refused input, and
// hypotenuses near the ends of the double range.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include "testing/QXTestMatrix.h"

namespace qxpkutil {
namespace {

using testing::Matrix;

Matrix RandomMatrix(int m, int n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(-1.0, 1.0);
  Matrix a(m, n);
  for (double& v : a.data) v = u(rng);
  return a;
}

class SvdcmpShapes : public ::testing::TestWithParam<std::pair<int, int>> {};

TEST_P(SvdcmpShapes, ReconstructsRandomMatricesWithOrthonormalFactors) {
  const auto [m, n] = GetParam();
  const auto dot = [](int len, auto p, auto q) {
    double s = 0.0;
    for (int k = 0; k < len; ++k) s += p(k) * q(k);
    return s;
  };
  for (unsigned seed = 1; seed <= 5; ++seed) {
    Matrix a = RandomMatrix(m, n, seed), u = a, v(n, n);
    std::vector<double> w(n);
    ASSERT_EQ(QXNonLinFit::Svdcmp(u.get(), m, n, w.data(), v.get()), 1);
    for (int i = 0; i < m; ++i)
      for (int j = 0; j < n; ++j)
        EXPECT_NEAR(dot(n, [&](int k) { return u[i][k] * w[k]; }, [&](int k) { return v[j][k]; }),
                    a[i][j], 1e-13);
    // V is orthonormal; so are U's columns when there are at least as many rows. With
    // W >= 0 that makes U*W*V^T = A the singular value decomposition.
    for (int p = 0; p < n; ++p) {
      EXPECT_GE(w[p], 0.0);
      for (int q = 0; q < n; ++q) {
        const auto col = [](Matrix& x, int c) { return [&x, c](int k) { return x[k][c]; }; };
        EXPECT_NEAR(dot(n, col(v, p), col(v, q)), p == q, 1e-13);
        if (m >= n) {
          EXPECT_NEAR(dot(m, col(u, p), col(u, q)), p == q, 1e-13);
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, SvdcmpShapes,
                         ::testing::Values(std::pair(1, 1), std::pair(2, 2), std::pair(3, 3),
                                           std::pair(5, 3), std::pair(9, 9), std::pair(12, 5),
                                           std::pair(3, 5), std::pair(1, 4)));

TEST(Svdcmp, RejectsInvalidArgumentsAndNonFiniteInput) {
  Matrix a = RandomMatrix(3, 3, 7), v(3, 3);
  std::vector<double> w(3);
  EXPECT_EQ(QXNonLinFit::Svdcmp(nullptr, 3, 3, w.data(), v.get()), 0);
  EXPECT_EQ(QXNonLinFit::Svdcmp(a.get(), 0, 3, w.data(), v.get()), 0);
  EXPECT_EQ(QXNonLinFit::Svdcmp(a.get(), 3, -1, w.data(), v.get()), 0);
  for (double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    a[1][2] = bad;
    EXPECT_EQ(QXNonLinFit::Svdcmp(a.get(), 3, 3, w.data(), v.get()), 0) << bad;
  }
}

TEST(dpythag, NeitherOverflowsNorUnderflows) {
  const double cases[][3] = {{3.0, -4.0, 5.0}, {0.0, 0.0, 0.0}, {-2.0, 0.0, 2.0},
                             {1e300, 1e300, std::sqrt(2.0) * 1e300}, {3e-300, 4e-300, 5e-300}};
  for (const auto& c : cases)
    EXPECT_NEAR(QXNonLinFit::dpythag(c[0], c[1]), c[2], 1e-15 * c[2]) << c[0] << ", " << c[1];
}

}  // namespace
}  // namespace qxpkutil
