#include "qxpkutil/fitting/QXNonLinFit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr double kMax = std::numeric_limits<double>::max();

// A row-major block with row pointers for the routines; copies stay independent.
struct Matrix {
  Matrix(int r, int c) : rows(r), cols(c), data(static_cast<std::size_t>(r * c)) {}
  double* operator[](int i) { return data.data() + i * cols; }
  double** get() {
    ptr.resize(static_cast<std::size_t>(rows));
    for (int i = 0; i < rows; ++i) ptr[i] = (*this)[i];
    return ptr.data();
  }
  int rows, cols;
  std::vector<double> data;
  std::vector<double*> ptr;
};

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

// Analytic derivatives of both models against central differences.
TEST(GaussModels, DerivativesMatchFiniteDifferences) {
  using Model = double (*)(double, double*, double*);
  const Model fgauss = [](double x, double* a, double* dyda) {
    double y = 0.0;
    QXNonLinFit::fgauss(x, a, y, dyda, 7);
    return y;
  };
  const Model common = [](double x, double* a, double* dyda) {
    double y = 0.0;
    QXNonLinFit::GaussFitCommonSigBaseSlope(x, a, &y, dyda, 7);
    return y;
  };
  const std::pair<Model, std::vector<double>> cases[] = {
      {fgauss, {100.0, 10.0, 0.3, 40.0, 10.6, 0.5, 5.0}},
      {common, {100.0, 10.0, 40.0, 10.6, 0.4, 5.0, -0.2}}};
  for (const auto& [model, a] : cases) {
    for (double x : {9.7, 10.0, 10.45, 11.2}) {
      std::vector<double> dyda(7), scratch(7), up = a, down = a;
      model(x, up.data(), dyda.data());
      for (std::size_t j = 0; j < 7; ++j) {
        const double h = 1e-6 * std::max(1.0, std::fabs(a[j]));
        up = a;
        down = a;
        up[j] += h;
        down[j] -= h;
        const double numeric =
            (model(x, up.data(), scratch.data()) - model(x, down.data(), scratch.data())) / (2 * h);
        EXPECT_NEAR(dyda[j], numeric, 1e-6 * std::max(1.0, std::fabs(numeric))) << j;
      }
    }
  }
  // The width is the 1/e half-width: one width away the peak falls to amp/e.
  double y = 0.0, dyda[4];
  const double a[4] = {100.0, 10.0, 0.5, 7.0};
  QXNonLinFit::fgauss(10.5, a, y, dyda, 4);
  EXPECT_NEAR(y, 100.0 / std::exp(1.0) + 7.0, 1e-12);
}

// y = a0 + a1*x + a2*x^2: linear in its parameters, so its fit has a closed-form answer.
void Quadratic(double x, double* a, double* y, double* dyda, int) {
  *y = a[0] + a[1] * x + a[2] * x * x;
  dyda[0] = 1.0;
  dyda[1] = x;
  dyda[2] = x * x;
}

// One fit of Quadratic to 20 exact points of 1 - 2x + x^2/2, stepped by hand.
struct QuadraticFit {
  explicit QuadraticFit(QXMrqContext* c = nullptr) : context(c) {
    for (int i = 0; i < 20; ++i) {
      x.push_back(0.25 * i);
      y.push_back(1.0 - 2.0 * x.back() + 0.5 * x.back() * x.back());
    }
  }
  // One step; without a context the per-thread one is used.
  int Step(int ma = 3) {
    const int ia[3] = {1, 1, 1};
    double** c = covar.get();
    double** vv = v.get();
    return context ? QXNonLinFit::SvdMrqMin(x.data(), y.data(), sig.data(), 20, a.data(), ia, ma,
                                            c, vv, w.data(), &chisq, &Quadratic, &alamda, *context)
                   : QXNonLinFit::SvdMrqMin(x.data(), y.data(), sig.data(), 20, a.data(), ia, ma,
                                            c, vv, w.data(), &chisq, &Quadratic, &alamda);
  }
  // The whole protocol: start, `iterations` damped steps, covariance.
  void Run(int iterations) {
    alamda = -1.0;
    EXPECT_EQ(Step(), 1);
    // The first call also takes a step from the start value, 0.001 in single precision.
    const double start = 0.0010000000474974513;
    EXPECT_TRUE(alamda == start * 0.5 || alamda == start * 2.0) << alamda;
    for (int i = 0; i < iterations; ++i) {
      const double before = alamda, chiBefore = chisq;
      EXPECT_EQ(Step(), 1);
      EXPECT_EQ(alamda, chisq < chiBefore ? before * 0.5 : before * 2.0);
    }
    alamda = 0.0;
    EXPECT_EQ(Step(), 1);
  }

  QXMrqContext* context;
  std::vector<double> x, y, sig = std::vector<double>(20, 1.0);
  std::vector<double> a = std::vector<double>(3, 0.0), w = std::vector<double>(3);
  Matrix covar{3, 3}, v{3, 3};
  double chisq = 0.0, alamda = -1.0;
};

TEST(SvdMrqMin, FollowsTheStepProtocolToTheExactAnswer) {
  QXMrqContext context;
  QuadraticFit fit(&context);
  fit.alamda = 0.5;
  EXPECT_EQ(fit.Step(), 0);  // no fit started
  fit.Run(12);
  EXPECT_FALSE(context.IsActive());
  EXPECT_NEAR(fit.a[0], 1.0, 1e-9);
  EXPECT_NEAR(fit.a[1], -2.0, 1e-9);
  EXPECT_NEAR(fit.a[2], 0.5, 1e-9);
  // The final step decomposes the curvature matrix N = B^T*B itself, so V*W^-2*V^T is N^-2.
  Matrix n(3, 3);
  for (double xi : fit.x) {
    const double b[3] = {1.0, xi, xi * xi};
    for (int p = 0; p < 3; ++p)
      for (int q = 0; q < 3; ++q) n[p][q] += b[p] * b[q];
  }
  for (int p = 0; p < 3; ++p) {
    for (int q = 0; q < 3; ++q) {
      double s = 0.0;  // covar * N * N = I
      for (int k = 0; k < 3; ++k)
        for (int r = 0; r < 3; ++r) s += fit.covar[p][k] * n[k][r] * n[r][q];
      EXPECT_NEAR(s, p == q ? 1.0 : 0.0, 1e-9);
    }
  }
  fit.alamda = -1.0;
  ASSERT_EQ(fit.Step(), 1);
  EXPECT_EQ(fit.Step(2), 0);  // started with another parameter count
  std::vector<double>().swap(fit.y);
  EXPECT_EQ(fit.Step(), 0);  // null data
}

TEST(SvdMrqMin, InterleavedFitsAndThreadsDoNotDisturbEachOther) {
  QuadraticFit alone;
  alone.Run(8);
  // Two fits stepped alternately, each with its own context.
  QXMrqContext c1, c2;
  QuadraticFit f1(&c1), f2(&c2);
  for (int i = 0; i < 10; ++i) {
    if (i == 9) f1.alamda = f2.alamda = 0.0;
    EXPECT_EQ(f1.Step(), 1);
    EXPECT_EQ(f2.Step(), 1);
  }
  EXPECT_EQ(f1.a, alone.a);
  EXPECT_EQ(f2.a, alone.a);
  // Two threads, each with its per-thread context, at the same time.
  QuadraticFit t1fit, t2fit;
  std::thread t1([&] { t1fit.Run(8); });
  std::thread t2([&] { t2fit.Run(8); });
  t1.join();
  t2.join();
  EXPECT_EQ(t1fit.a, alone.a);
  EXPECT_EQ(t2fit.a, alone.a);
}

// Amplitude, bounded centre, width, baseline and slope, as the peak-list fit sets them up.
std::vector<QXNonLinFitParam> OnePeak(double amp, double centre, double lo, double hi) {
  return {{amp, 0.0, kMax},
          {centre, lo, hi},
          {0.1, std::numeric_limits<double>::min(), kMax},
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
  testing::SignalOptions o;
  o.baseline = c.baseline;
  o.noiseSigma = c.noise;
  o.seed = c.seed;
  const double x0 = c.centre - 6 * c.sigma;
  const auto s = testing::MakeSignal(61, x0, c.sigma / 5, {{c.centre, c.height, c.sigma}}, o);
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
    EXPECT_TRUE(p[1].m_dFittedValue >= 9.5 && p[1].m_dFittedValue <= 9.8) << start;
    EXPECT_GE(p[0].m_dFittedValue, 0.0);
    EXPECT_GE(p[2].m_dFittedValue, std::numeric_limits<double>::min());
  }

  const double fitted = p[1].m_dFittedValue;
  std::vector<QXNonLinFitParam> none;
  EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(nullptr, s.y.data(), 41, p, 0.001, 30), 0u);
  EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 0, p, 0.001, 30), 0u);
  EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 9, none, 0.001, 30),
            0u);
  EXPECT_EQ(p[1].m_dFittedValue, fitted);
}

// A table peak with the given apex and bound indices, its centroid started `offset` off
// the apex x.
void AddPeak(QXPeakTable& t, const testing::Signal& s, std::uint32_t apex, std::uint32_t left,
             std::uint32_t right, double offset) {
  t.AddPeak(s.x[apex], s.y[apex], apex, s.x[left], s.y[left], left, s.x[right], s.y[right], right,
            s.x[apex] + offset, 0.0, 0.0, 0.0, 0.0, 0.0, 0);
}

TEST(GaussFitPeakList, RefinesSeparatePeaksAndKeepsCentresInBounds) {
  // Centres between grid points; sigma 0.07 gives a fitted width near the 0.1 start.
  const std::vector<testing::GaussPeak> truth = {{100.013, 900.0, 0.07}, {103.047, 400.0, 0.07}};
  testing::SignalOptions o;
  o.baseline = 10.0;
  o.noiseSigma = 3.0;
  const auto s = testing::MakeSignal(600, 99.0, 0.01, truth, o);
  QXPeakTable t;
  AddPeak(t, s, 405, 370, 440, 0.02);  // second peak added first: the fit sorts
  AddPeak(t, s, 101, 70, 130, -0.02);
  AddPeak(t, s, 250, 245, 255, 0.0);   // flat noise: its centre may only move within bounds
  AddPeak(t, s, 590, 580, 599, 0.01);
  t.GetPeak(-1)->m_nRightIndex = 600;   // reaches past the data: left alone
  QXNonLinFit::GaussFitPeakList(&t, s.x.data(), s.y.data(), 600);
  QXNonLinFit::GaussFitPeakList(&t, nullptr, s.y.data(), 600);  // no effect
  QXNonLinFit::GaussFitPeakList(nullptr, s.x.data(), s.y.data(), 600);
  ASSERT_EQ(t.GetNumPeaks(), 4);
  EXPECT_EQ(t.GetPeak(3)->m_dCentroidX, s.x[590] + 0.01);
  EXPECT_NEAR(t.GetPeak(0)->m_dCentroidX, truth[0].centre, 0.003);
  EXPECT_NEAR(t.GetPeak(2)->m_dCentroidX, truth[1].centre, 0.003);
  for (std::int32_t i = 0; i < t.GetNumPeaks(); ++i) {
    const QXPeakTableElement* p = t.GetPeak(i);
    EXPECT_TRUE(p->m_dCentroidX >= p->m_dLeftX && p->m_dCentroidX <= p->m_dRightX) << i;
  }
}

TEST(GaussFitPeakList, JointPassBeatsSinglePassOnOverlappingPeaks) {
  const std::vector<testing::GaussPeak> truth = {{50.0, 1000.0, 0.07}, {50.2, 700.0, 0.07}};
  const auto s = testing::MakeSignal(200, 49.0, 0.01, truth);
  // Bounds meet in the valley at index 111 (x = 50.11).
  const auto fitted = [&](std::vector<int> which) {
    QXPeakTable t;
    if (which[0]) AddPeak(t, s, 100, 75, 111, 0.0);
    if (which[1]) AddPeak(t, s, 120, 111, 145, 0.0);
    QXNonLinFit::GaussFitPeakList(&t, s.x.data(), s.y.data(), 200);
    std::vector<double> c;
    for (std::int32_t i = 0; i < t.GetNumPeaks(); ++i) c.push_back(t.GetPeak(i)->m_dCentroidX);
    return c;
  };
  const double aloneLeft = fitted({1, 0})[0], aloneRight = fitted({0, 1})[0];
  const std::vector<double> joint = fitted({1, 1});
  EXPECT_LT(std::fabs(joint[0] - truth[0].centre), std::fabs(aloneLeft - truth[0].centre));
  EXPECT_LT(std::fabs(joint[1] - truth[1].centre), std::fabs(aloneRight - truth[1].centre));
}

}  // namespace
}  // namespace qxpkutil
