#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using U = QXDataExpUtils;

// Against the textbook closed forms; with exact data the errors vanish.
TEST(LinearFit, MatchesTextbookFormulasAndExactDataHasZeroErrors) {
  for (double noise : {0.0, 2.0}) {
    const auto s = testing::MakeSignal(500, 10.0, 0.5, {},
                                       {.baseline = 4.0, .slope = 0.3, .noiseSigma = noise});
    double b, a, aError, bError;
    U::LinearFit(s.x.data(), s.y.data(), 500, &b, &a, &aError, &bError);
    double sx = 0, sy = 0, sxx = 0, sxy = 0, chi2 = 0;
    for (int i = 0; i < 500; ++i)
      sx += s.x[i], sy += s.y[i], sxx += s.x[i] * s.x[i], sxy += s.x[i] * s.y[i];
    const double slope = (500 * sxy - sx * sy) / (500 * sxx - sx * sx);
    const double intercept = (sy - slope * sx) / 500;
    for (int i = 0; i < 500; ++i) chi2 += std::pow(s.y[i] - intercept - slope * s.x[i], 2);
    const double sigma = std::sqrt(chi2 / 498), centred = sxx - sx * sx / 500;
    EXPECT_NEAR(b, slope, 1e-9);
    EXPECT_NEAR(a, intercept, 1e-7);
    EXPECT_NEAR(bError, sigma / std::sqrt(centred), 1e-9);
    EXPECT_NEAR(aError, sigma * std::sqrt(sxx / (500 * centred)), 1e-9);
  }
}

TEST(QuadraticFit, ExactParabolaSingularSystemAndPointLimit) {
  const double x[] = {-3, -1, 0, 2, 5}, twoX[] = {1, 1, 2, 2};
  double y[5], c[3];
  for (int i = 0; i < 5; ++i) y[i] = 2.0 - 3.0 * x[i] + 0.5 * x[i] * x[i];
  U::QuadraticFit(x, y, 5, &c[0], &c[1], &c[2]);
  EXPECT_NEAR(std::hypot(c[0] - 2.0, c[1] + 3.0, c[2] - 0.5), 0.0, 1e-12);
  U::QuadraticFit(twoX, y, 4, &c[0], &c[1], &c[2]);  // zero determinant
  EXPECT_EQ(c[0] + c[1] + c[2], 0.0);
  std::vector<double> line(65536);  // y = x, one point beyond the 16-bit limit
  for (std::size_t i = 0; i < line.size(); ++i) line[i] = double(i);
  c[1] = c[2] = 7;
  U::QuadraticFit(line.data(), line.data(), 65536, nullptr, &c[1], nullptr);
  U::LinearFit(line.data(), line.data(), 65536, &c[2], nullptr, nullptr, nullptr);
  EXPECT_EQ(c[1] + c[2], 14.0);  // untouched
  U::LinearFit(line.data(), line.data(), 65535, &c[2], nullptr, nullptr, nullptr);
  EXPECT_DOUBLE_EQ(c[2], 1.0);
}

}  // namespace
}  // namespace qxpkutil
