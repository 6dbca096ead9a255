// DeconvoluteSimilarGaussPeaks: one Gaussian on a baseline recovered, and the bounds held.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr double kMax = std::numeric_limits<double>::max();
constexpr double kMin = std::numeric_limits<double>::min();

// Amplitude, bounded centre, width, baseline and slope, as the peak-list fit sets them up.
std::vector<QXNonLinFitParam> OnePeak(double amp, double centre, double lo, double hi) {
  return {{amp, 0.0, kMax},
          {centre, lo, hi},
          {0.1, kMin, kMax},
          {0.0, -kMax, kMax},
          {0.0, -kMax, kMax}};
}

// One Gaussian on a flat baseline, sampled over +-6 sigma.
struct PeakCase {
  double centre, sigma, height, baseline, noise;
  unsigned seed;
};

class DeconvoluteCases : public ::testing::TestWithParam<PeakCase> {};

TEST_P(DeconvoluteCases, RecoversCentreWidthAndBaseline) {
  const PeakCase c = GetParam();
  const double x0 = c.centre - 6 * c.sigma;
  const auto s =
      testing::MakeSignal(61, x0, c.sigma / 5, {{c.centre, c.height, c.sigma}},
                          {.baseline = c.baseline, .noiseSigma = c.noise, .seed = c.seed});
  auto p = OnePeak(c.height * 0.8, c.centre + 0.5 * c.sigma, x0, s.x.back());
  const std::uint32_t iter =
      QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 61, p, 0.001, 30);
  EXPECT_GE(iter, 6u);  // never stops before iteration 6
  EXPECT_LE(iter, 30u);
  const double rel = c.noise / c.height;  // the model's width is sigma*sqrt(2)
  EXPECT_NEAR(p[1].m_dFittedValue, c.centre, c.sigma * (0.01 + 2 * rel));
  EXPECT_NEAR(p[2].m_dFittedValue, c.sigma * std::sqrt(2.0), c.sigma * (0.01 + 4 * rel));
  EXPECT_NEAR(p[3].m_dFittedValue + p[4].m_dFittedValue * c.centre, c.baseline,
              c.height * (0.001 + 2 * rel));
  for (const auto& q : p) EXPECT_TRUE(q.m_dStdError >= 0.0 && std::isfinite(q.m_dStdError));
}

INSTANTIATE_TEST_SUITE_P(Peaks, DeconvoluteCases,
                         ::testing::Values(PeakCase{500.25, 0.05, 1000.0, 20.0, 0.0, 1},
                                           PeakCase{500.25, 0.05, 1000.0, 20.0, 10.0, 2},
                                           PeakCase{12.0, 0.2, 5e4, 300.0, 200.0, 3},
                                           PeakCase{1.5, 0.02, 80.0, 5.0, 1.0, 4}));

TEST(DeconvoluteSimilarGaussPeaks, ClampsToBoundsAndRejectsEmptyInput) {
  // The true centre lies right of the allowed range, which pulls every fit against it.
  const auto s = testing::MakeSignal(41, 9.0, 0.05, {{10.0, 100.0, 0.1}});
  std::vector<QXNonLinFitParam> p;
  for (double start : {9.5, 9.7, 9.75, 9.79, 9.8, 12.0}) {
    p = OnePeak(90.0, start, 9.5, 9.8);
    EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 41, p, 0.001, 4),
              4u);  // too few iterations to stop early
    EXPECT_TRUE(p[1].m_dFittedValue >= 9.5 && p[1].m_dFittedValue <= 9.8 &&
                p[0].m_dFittedValue >= 0 && p[2].m_dFittedValue >= kMin)
        << start;
  }

  const double fitted = p[1].m_dFittedValue;
  std::vector<QXNonLinFitParam> none;
  const auto fit = &QXNonLinFit::DeconvoluteSimilarGaussPeaks;
  EXPECT_EQ(fit(nullptr, s.y.data(), 41, p, 0.001, 30) +
                fit(s.x.data(), s.y.data(), 0, p, 0.001, 30) +
                fit(s.x.data(), s.y.data(), 9, none, 0.001, 30),
            0u);
  EXPECT_EQ(p[1].m_dFittedValue, fitted);
}

}  // namespace
}  // namespace qxpkutil
