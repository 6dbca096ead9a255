#include "qxpkutil/fitting/CTriangulationGrid.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace qxpkutil {
namespace {

TEST(C3DPoint, VectorArithmetic) {
  const C3DPoint ex(1, 0, 0), ey(0, 1, 0);
  const C3DPoint ez = ex ^ ey;
  EXPECT_EQ(ez == C3DPoint(0, 0, 1), 1);
  EXPECT_EQ((C3DPoint(1, 2, 3) ^ C3DPoint(4, 5, 6)) == C3DPoint(-3, 6, -3), 1);
  EXPECT_EQ(C3DPoint(1, 2, 3) * C3DPoint(4, -5, 6), 12.0);
  EXPECT_EQ((C3DPoint(1, 2, 3) - C3DPoint(4, -5, 6)) == C3DPoint(-3, 7, -3), 1);
  EXPECT_EQ(C3DPoint(1, 2, 3) == C3DPoint(1, 2, 3.0000001), 0);
}

TEST(CTriangulationGrid, StoresEachPointOnceAndNeedsFourPointsAndAnOutput) {
  CTriangulationGrid grid;
  EXPECT_EQ(grid.AddPoint(C3DPoint(1, 2, 3)), 1);
  EXPECT_EQ(grid.AddPoint(C3DPoint(1, 2, 3)), 0);
  EXPECT_EQ(grid.AddPoint(C3DPoint(1, 2, 4)), 1);  // differs only in z
  EXPECT_EQ(grid.GetSize(), 2);
  grid.RemoveAll();
  EXPECT_EQ(grid.GetSize(), 0);
  double z = 42.0;
  for (int i = 0; i < 3; ++i) {
    grid.AddPoint(C3DPoint(i, i * i, 1.0));
    EXPECT_EQ(grid.ExtrapolateZ(0.5, 0.5, &z), 0);
    EXPECT_EQ(z, 0.0);
  }
  grid.AddPoint(C3DPoint(5, 1, 1.0));
  EXPECT_EQ(grid.ExtrapolateZ(0.5, 0.5, nullptr), 0);
  EXPECT_EQ(grid.ExtrapolateZ(0.5, 0.5, &z), 1);
  EXPECT_NEAR(z, 1.0, 1e-12);
}

struct Plane {
  double k0, k1, k2;
  double operator()(double x, double y) const { return k0 + k1 * x + k2 * y; }
};

class PlaneCases : public ::testing::TestWithParam<Plane> {};

// Points scattered over a plane, plus a far off-plane point that is never among the four
// nearest to the queries: the estimate reproduces the plane anywhere.
TEST_P(PlaneCases, ReproducesPlanesInsideAndFarOutsideThePoints) {
  const Plane plane = GetParam();
  CTriangulationGrid grid;
  grid.AddPoint(C3DPoint(1e6, 1e6, -7.0));  // stored first, replaced by nearer points
  const double pts[][2] = {{0, 0}, {1, 0.2}, {0.3, 1}, {1.1, 1.3}, {0.5, 0.4}, {2, 2.5}};
  for (const auto& p : pts) grid.AddPoint(C3DPoint(p[0], p[1], plane(p[0], p[1])));
  for (const auto& q : std::vector<std::vector<double>>{{0.5, 0.5}, {-300, 40}, {1e4, -2e4}}) {
    double z = 0.0;
    ASSERT_EQ(grid.ExtrapolateZ(q[0], q[1], &z), 1);
    EXPECT_NEAR(z, plane(q[0], q[1]), 1e-9 * (1.0 + std::fabs(plane(q[0], q[1]))));
  }
}

INSTANTIATE_TEST_SUITE_P(Planes, PlaneCases,
                         ::testing::Values(Plane{0, 0, 0}, Plane{3.5, 0, 0}, Plane{1, 2, -3},
                                           Plane{-100, 0.01, 250}));

// Four collinear points fix the plane only along their line; of all such planes the
// estimate takes the one with the smallest coefficients.
TEST(CTriangulationGrid, CollinearPointsGiveTheMinimumNormPlane) {
  CTriangulationGrid alongX;  // y = 0: z = 1 + 2x, and no y term
  CTriangulationGrid diagonal;  // y = x: z = 1 + 2x splits evenly into x and y
  for (double t : {0.0, 1.0, 2.0, 3.5}) {
    alongX.AddPoint(C3DPoint(t, 0.0, 1.0 + 2.0 * t));
    diagonal.AddPoint(C3DPoint(t, t, 1.0 + 2.0 * t));
  }
  for (const auto& q : std::vector<std::vector<double>>{{1.0, 5.0}, {-4.0, 2.0}, {10.0, -3.0}}) {
    double z = 0.0;
    ASSERT_EQ(alongX.ExtrapolateZ(q[0], q[1], &z), 1);
    EXPECT_NEAR(z, 1.0 + 2.0 * q[0], 1e-9);
    ASSERT_EQ(diagonal.ExtrapolateZ(q[0], q[1], &z), 1);
    EXPECT_NEAR(z, 1.0 + q[0] + q[1], 1e-9);
  }
}

}  // namespace
}  // namespace qxpkutil
