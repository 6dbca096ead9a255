#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

TEST(BinData, MergesRunsCloserThanTheWidth) {
  const double x[] = {1.0, 1.05, 2.0}, y[] = {1, 3, 2};
  double outX[3] = {-1, -1, -1}, outY[3] = {-1, -1, -1};
  ASSERT_EQ(U::BinData(x, y, outX, outY, 3, 0.1), 1);
  EXPECT_EQ((std::vector<double>{outX[0], outY[0], outX[1], outY[1], outX[2]}),
            (std::vector<double>{1.0375, 4, 2, 2, -1}));
  EXPECT_EQ(U::BinData(x, y, outX, outY, 3, 0.0), 0);
  const double huge[] = {1e300, 1e300};  // a width too small to change x still moves on
  ASSERT_EQ(U::BinData(huge, y, outX, outY, 2, 1e-300), 1);
  EXPECT_EQ(outY[1], 3.0);
}

TEST(GetSpecLinearFactor, FirstPointsAboveOneAtBothEnds) {
  std::vector<double> x(100);
  for (int i = 0; i < 100; ++i) x[i] = 0.5 + 0.01 * i;  // on the stride of 10, x > 1 from i = 60
  const double front = 2 * std::sqrt(x[61]) * 3 / 0.01, back = 2 * std::sqrt(x[97]) * 3 / 0.01;
  EXPECT_NEAR(U::GetSpecLinearFactor(x.data(), 100, 3.0), (front + back) / 2, 1e-6);
  EXPECT_EQ(U::GetSpecLinearFactor(x.data(), 50, 3.0), 0.0);  // nothing above 1
  EXPECT_EQ(U::GetSpecLinearFactor(x.data() + 90, 2, 3.0), 0.0);  // too short to read x[i+2]
}

}  // namespace
}  // namespace qxpkutil
