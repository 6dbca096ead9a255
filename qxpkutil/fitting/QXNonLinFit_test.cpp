#include "qxpkutil/fitting/QXNonLinFit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

constexpr double kMax = std::numeric_limits<double>::max();

// A row-pointer matrix over one block; copies point at their own block.
struct Matrix {
  Matrix(int r, int c) : rows(r), cols(c), data(static_cast<std::size_t>(r * c)) { Point(); }
  Matrix(const Matrix& o) : rows(o.rows), cols(o.cols), data(o.data) { Point(); }
  Matrix& operator=(const Matrix& o) {
    rows = o.rows;
    cols = o.cols;
    data = o.data;
    Point();
    return *this;
  }
  void Point() {
    ptr.resize(static_cast<std::size_t>(rows));
    for (int i = 0; i < rows; ++i) ptr[i] = data.data() + i * cols;
  }
  double* operator[](int i) { return ptr[i]; }
  double** get() { return ptr.data(); }
  int rows;
  int cols;
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

// Eigenvalues of a symmetric matrix by cyclic Jacobi rotations: the independent reference
// for singular values (the square roots of the eigenvalues of A^T*A).
std::vector<double> JacobiEigenvalues(Matrix s) {
  const int n = s.rows;
  for (int sweep = 0; sweep < 100; ++sweep) {
    for (int p = 0; p < n; ++p) {
      for (int q = p + 1; q < n; ++q) {
        if (std::fabs(s[p][q]) < 1e-300) continue;
        const double theta = (s[q][q] - s[p][p]) / (2.0 * s[p][q]);
        const double t = (theta >= 0 ? 1.0 : -1.0) / (std::fabs(theta) + std::hypot(theta, 1.0));
        const double c = 1.0 / std::hypot(t, 1.0);
        const double sn = t * c;
        for (int k = 0; k < n; ++k) {  // S = J^T S J
          const double kp = s[k][p], kq = s[k][q];
          s[k][p] = c * kp - sn * kq;
          s[k][q] = sn * kp + c * kq;
        }
        for (int k = 0; k < n; ++k) {
          const double pk = s[p][k], qk = s[q][k];
          s[p][k] = c * pk - sn * qk;
          s[q][k] = sn * pk + c * qk;
        }
      }
    }
  }
  std::vector<double> e(n);
  for (int i = 0; i < n; ++i) e[i] = s[i][i];
  return e;
}

struct Shape {
  int m;
  int n;
};

class SvdcmpShapes : public ::testing::TestWithParam<Shape> {};

TEST_P(SvdcmpShapes, ReconstructsRandomMatricesWithOrthonormalFactors) {
  const auto [m, n] = GetParam();
  for (unsigned seed = 1; seed <= 5; ++seed) {
    const Matrix a = RandomMatrix(m, n, seed);
    Matrix u = a;
    Matrix v(n, n);
    std::vector<double> w(n);
    ASSERT_EQ(QXNonLinFit::Svdcmp(u.get(), m, n, w.data(), v.get()), 1);

    for (int i = 0; i < m; ++i) {
      for (int j = 0; j < n; ++j) {
        double s = 0.0;
        for (int k = 0; k < n; ++k) s += u[i][k] * w[k] * v[j][k];
        EXPECT_NEAR(s, a.data[i * n + j], 1e-13);
      }
    }
    for (double wj : w) EXPECT_GE(wj, 0.0);
    // V is orthonormal; so are U's columns when there are at least as many rows.
    for (int p = 0; p < n; ++p) {
      for (int q = 0; q < n; ++q) {
        double vv = 0.0, uu = 0.0;
        for (int k = 0; k < n; ++k) vv += v[k][p] * v[k][q];
        for (int k = 0; k < m; ++k) uu += u[k][p] * u[k][q];
        EXPECT_NEAR(vv, p == q ? 1.0 : 0.0, 1e-13);
        if (m >= n) {
          EXPECT_NEAR(uu, p == q ? 1.0 : 0.0, 1e-13);
        }
      }
    }

    Matrix ata(n, n);
    for (int p = 0; p < n; ++p)
      for (int q = 0; q < n; ++q)
        for (int k = 0; k < m; ++k) ata[p][q] += a.data[k * n + p] * a.data[k * n + q];
    std::vector<double> expected = JacobiEigenvalues(ata);
    for (double& e : expected) e = std::sqrt(std::max(e, 0.0));
    std::sort(expected.begin(), expected.end());
    std::sort(w.begin(), w.end());
    for (int j = 0; j < n; ++j) EXPECT_NEAR(w[j], expected[j], 1e-7);
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, SvdcmpShapes,
                         ::testing::Values(Shape{1, 1}, Shape{2, 2}, Shape{3, 3}, Shape{5, 3},
                                           Shape{9, 9}, Shape{12, 5}, Shape{3, 5}, Shape{1, 4}));

TEST(Svdcmp, RejectsInvalidArgumentsAndNonFiniteInput) {
  Matrix a(3, 3), v(3, 3);
  std::vector<double> w(3);
  EXPECT_EQ(QXNonLinFit::Svdcmp(nullptr, 3, 3, w.data(), v.get()), 0);
  EXPECT_EQ(QXNonLinFit::Svdcmp(a.get(), 0, 3, w.data(), v.get()), 0);
  EXPECT_EQ(QXNonLinFit::Svdcmp(a.get(), 3, -1, w.data(), v.get()), 0);
  for (double bad : {std::nan(""), std::numeric_limits<double>::infinity()}) {
    a = RandomMatrix(3, 3, 7);
    a[1][2] = bad;
    EXPECT_EQ(QXNonLinFit::Svdcmp(a.get(), 3, 3, w.data(), v.get()), 0) << bad;
  }
}

TEST(SvdBackSub, SolvesSquareSystemsAndGivesMinimumNormForSingularOnes) {
  // Well-conditioned random system, solved in place (x aliasing b).
  Matrix a = RandomMatrix(4, 4, 3), v(4, 4);
  std::vector<double> x0 = {1.0, -2.0, 0.5, 3.0}, b(4), w(4);
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) b[i] += a[i][j] * x0[j];
  ASSERT_EQ(QXNonLinFit::Svdcmp(a.get(), 4, 4, w.data(), v.get()), 1);
  QXNonLinFit::SvdBackSub(a.get(), w.data(), v.get(), 4, 4, b.data(), b.data());
  for (int j = 0; j < 4; ++j) EXPECT_NEAR(b[j], x0[j], 1e-12);

  // x + y = 2 twice: of all solutions, (1, 1) has the least norm.
  Matrix s(2, 2), sv(2, 2);
  s.data = {1.0, 1.0, 1.0, 1.0};
  std::vector<double> sb = {2.0, 2.0}, sw(2), sx(2);
  ASSERT_EQ(QXNonLinFit::Svdcmp(s.get(), 2, 2, sw.data(), sv.get()), 1);
  const double wmax = std::max(sw[0], sw[1]);
  for (double& wj : sw) wj = wj < 1e-12 * wmax ? 0.0 : wj;
  QXNonLinFit::SvdBackSub(s.get(), sw.data(), sv.get(), 2, 2, sb.data(), sx.data());
  EXPECT_NEAR(sx[0], 1.0, 1e-14);
  EXPECT_NEAR(sx[1], 1.0, 1e-14);
}

TEST(SVDVariance, InvertsTheNormalMatrix) {
  const Matrix a = RandomMatrix(6, 3, 11);
  Matrix u = a, v(3, 3), cvm(3, 3);
  std::vector<double> w(3);
  ASSERT_EQ(QXNonLinFit::Svdcmp(u.get(), 6, 3, w.data(), v.get()), 1);
  QXNonLinFit::SVDVariance(v.get(), 3, w.data(), cvm.get());
  for (int p = 0; p < 3; ++p) {
    for (int q = 0; q < 3; ++q) {
      double s = 0.0;  // (A^T A)^-1 * (A^T A) = I
      for (int k = 0; k < 3; ++k)
        for (int r = 0; r < 6; ++r) s += cvm[p][k] * a.data[r * 3 + k] * a.data[r * 3 + q];
      EXPECT_NEAR(s, p == q ? 1.0 : 0.0, 1e-12);
    }
  }
}

TEST(dpythag, NeitherOverflowsNorUnderflows) {
  struct Case {
    double a, b, expected;
  };
  for (const Case& c : {Case{3.0, -4.0, 5.0}, Case{0.0, 0.0, 0.0}, Case{-2.0, 0.0, 2.0},
                        Case{1e300, 1e300, std::sqrt(2.0) * 1e300},
                        Case{3e-300, 4e-300, 5e-300}}) {
    EXPECT_NEAR(QXNonLinFit::dpythag(c.a, c.b), c.expected, 1e-15 * c.expected)
        << c.a << ", " << c.b;
  }
}

// Analytic derivatives of both models against central differences.
TEST(GaussModels, DerivativesMatchFiniteDifferences) {
  const auto check = [](auto eval, std::vector<double> a, double x) {
    std::vector<double> dyda(a.size()), scratch(a.size());
    eval(x, a.data(), dyda.data());
    for (std::size_t j = 0; j < a.size(); ++j) {
      const double h = 1e-6 * std::max(1.0, std::fabs(a[j]));
      std::vector<double> up = a, down = a;
      up[j] += h;
      down[j] -= h;
      const double numeric =
          (eval(x, up.data(), scratch.data()) - eval(x, down.data(), scratch.data())) / (2 * h);
      EXPECT_NEAR(dyda[j], numeric, 1e-6 * std::max(1.0, std::fabs(numeric))) << j;
    }
  };
  const auto fgauss = [](double x, double* a, double* dyda) {
    double y = 0.0;
    QXNonLinFit::fgauss(x, a, y, dyda, 7);
    return y;
  };
  const auto common = [](double x, double* a, double* dyda) {
    double y = 0.0;
    QXNonLinFit::GaussFitCommonSigBaseSlope(x, a, &y, dyda, 7);
    return y;
  };
  for (double x : {9.7, 10.0, 10.45, 11.2}) {
    check(fgauss, {100.0, 10.0, 0.3, 40.0, 10.6, 0.5, 5.0}, x);
    check(common, {100.0, 10.0, 40.0, 10.6, 0.4, 5.0, -0.2}, x);
  }
  // The width is the 1/e half-width: one width away the peak falls to amp/e.
  double y = 0.0, dyda[4];
  const double a[4] = {100.0, 10.0, 0.5, 7.0};
  QXNonLinFit::fgauss(10.5, a, y, dyda, 4);
  EXPECT_NEAR(y, 100.0 / std::exp(1.0) + 7.0, 1e-12);
}

// y = a0 + a1*x + a2*x^2: linear in its parameters, so the fit has a closed-form answer.
void Quadratic(double x, double* a, double* y, double* dyda, int) {
  *y = a[0] + a[1] * x + a[2] * x * x;
  dyda[0] = 1.0;
  dyda[1] = x;
  dyda[2] = x * x;
}

// One fit of Quadratic to fixed noisy data, stepped by hand.
struct QuadraticFit {
  explicit QuadraticFit(QXMrqContext* c = nullptr) : context(c) {
    const std::vector<double> noise = testing::MakeNoise(20, 0.05, 99);
    for (int i = 0; i < 20; ++i) {
      x.push_back(0.25 * i);
      y.push_back(1.0 - 2.0 * x.back() + 0.5 * x.back() * x.back() + noise[i]);
    }
  }
  // One step; without a context the per-thread one is used.
  int Step(int ma = 3) {
    const int ia[3] = {1, 1, 1};
    return context ? QXNonLinFit::SvdMrqMin(x.data(), y.data(), sig.data(), 20, a.data(), ia, ma,
                                            covar.get(), v.get(), w.data(), &chisq, &Quadratic,
                                            &alamda, *context)
                   : QXNonLinFit::SvdMrqMin(x.data(), y.data(), sig.data(), 20, a.data(), ia, ma,
                                            covar.get(), v.get(), w.data(), &chisq, &Quadratic,
                                            &alamda);
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

TEST(SvdMrqMin, ConvergesToTheLinearLeastSquaresAnswerWithItsCovariance) {
  QXMrqContext context;
  QuadraticFit fit(&context);
  fit.Run(12);
  EXPECT_FALSE(context.IsActive());
  const std::vector<double>& a = fit.a;
  Matrix& covar = fit.covar;
  // Normal equations B^T B k = B^T y, solved independently by Cramer's rule.
  Matrix n(3, 3);
  double r[3] = {};
  for (std::size_t i = 0; i < fit.x.size(); ++i) {
    const double b[3] = {1.0, fit.x[i], fit.x[i] * fit.x[i]};
    for (int p = 0; p < 3; ++p) {
      r[p] += b[p] * fit.y[i];
      for (int q = 0; q < 3; ++q) n[p][q] += b[p] * b[q];
    }
  }
  const auto det = [](double m[3][3]) {
    return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) -
           m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
           m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
  };
  double base[3][3];
  for (int p = 0; p < 3; ++p)
    for (int q = 0; q < 3; ++q) base[p][q] = n[p][q];
  const double d = det(base);
  for (int j = 0; j < 3; ++j) {
    double mj[3][3];
    for (int p = 0; p < 3; ++p)
      for (int q = 0; q < 3; ++q) mj[p][q] = q == j ? r[p] : base[p][q];
    EXPECT_NEAR(a[j], det(mj) / d, 1e-9);
  }
  // The final step decomposes the curvature matrix N itself, so V*W^-2*V^T is N^-2.
  Matrix nn(3, 3);
  for (int p = 0; p < 3; ++p)
    for (int q = 0; q < 3; ++q)
      for (int k = 0; k < 3; ++k) nn[p][q] += n[p][k] * n[k][q];
  for (int p = 0; p < 3; ++p) {
    for (int q = 0; q < 3; ++q) {
      double s = 0.0;
      for (int k = 0; k < 3; ++k) s += covar[p][k] * nn[k][q];
      EXPECT_NEAR(s, p == q ? 1.0 : 0.0, 1e-9);
    }
  }
}

TEST(SvdMrqMin, RefusesStepsWithoutAFitInProgress) {
  QXMrqContext context;
  QuadraticFit fit(&context);
  fit.alamda = 0.5;
  EXPECT_EQ(fit.Step(), 0);  // never started
  fit.alamda = -1.0;
  ASSERT_EQ(fit.Step(), 1);
  EXPECT_TRUE(context.IsActive());
  EXPECT_EQ(fit.Step(2), 0);  // started with another parameter count
  std::vector<double>().swap(fit.y);
  EXPECT_EQ(fit.Step(), 0);   // null data
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

// A Gaussian with the model's own parameters (width = sigma*sqrt(2)) on a sloped baseline.
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
  std::vector<QXNonLinFitParam> p = {{c.height * 0.8, 0.0, kMax},
                                     {c.centre + 0.5 * c.sigma, x0, s.x.back()},
                                     {0.1, std::numeric_limits<double>::min(), kMax},
                                     {0.0, -kMax, kMax},
                                     {0.0, -kMax, kMax}};
  const std::uint32_t iter =
      QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 61, p, 0.001, 30);
  EXPECT_GE(iter, 6u);  // never stops before iteration 6
  EXPECT_LE(iter, 30u);
  const double rel = c.noise / c.height;
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
    p = {{90.0, 0.0, kMax},
         {start, 9.5, 9.8},
         {0.1, std::numeric_limits<double>::min(), kMax},
         {0.0, -kMax, kMax},
         {0.0, -kMax, kMax}};
    EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 41, p, 0.001, 4),
              4u);  // too few iterations to stop early
    EXPECT_TRUE(p[1].m_dFittedValue >= 9.5 && p[1].m_dFittedValue <= 9.8) << start;
    EXPECT_GE(p[0].m_dFittedValue, 0.0);
    EXPECT_GE(p[2].m_dFittedValue, std::numeric_limits<double>::min());
  }

  const std::vector<QXNonLinFitParam> before = p;
  std::vector<QXNonLinFitParam> none;
  EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(nullptr, s.y.data(), 41, p, 0.001, 30), 0u);
  EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 0, p, 0.001, 30), 0u);
  EXPECT_EQ(QXNonLinFit::DeconvoluteSimilarGaussPeaks(s.x.data(), s.y.data(), 41, none, 0.001, 30),
            0u);
  for (std::size_t i = 0; i < p.size(); ++i) EXPECT_EQ(p[i].m_dFittedValue, before[i].m_dFittedValue);
}

// A table peak with bounds `halfSpan` points either side of the apex index, centroid
// started off the true centre by `offset`.
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
  QXNonLinFit::GaussFitPeakList(&t, s.x.data(), s.y.data(), 600);
  ASSERT_EQ(t.GetNumPeaks(), 3);
  EXPECT_NEAR(t.GetPeak(0)->m_dCentroidX, truth[0].centre, 0.003);
  EXPECT_NEAR(t.GetPeak(2)->m_dCentroidX, truth[1].centre, 0.003);
  for (long i = 0; i < 3; ++i) {
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
    for (long i = 0; i < t.GetNumPeaks(); ++i) c.push_back(t.GetPeak(i)->m_dCentroidX);
    return c;
  };
  const double aloneLeft = fitted({1, 0})[0], aloneRight = fitted({0, 1})[0];
  const std::vector<double> joint = fitted({1, 1});
  EXPECT_LT(std::fabs(joint[0] - truth[0].centre), std::fabs(aloneLeft - truth[0].centre));
  EXPECT_LT(std::fabs(joint[1] - truth[1].centre), std::fabs(aloneRight - truth[1].centre));
}

TEST(GaussFitPeakList, LeavesPeaksOutsideTheDataAndBadArgumentsAlone) {
  const auto s = testing::MakeSignal(100, 0.0, 0.01, {{0.5, 100.0, 0.05}});
  QXPeakTable t;
  AddPeak(t, s, 50, 30, 70, 0.01);
  t.GetPeak(0)->m_nRightIndex = 100;  // one past the data
  QXNonLinFit::GaussFitPeakList(&t, s.x.data(), s.y.data(), 100);
  QXNonLinFit::GaussFitPeakList(&t, nullptr, s.y.data(), 100);
  QXNonLinFit::GaussFitPeakList(nullptr, s.x.data(), s.y.data(), 100);
  EXPECT_EQ(t.GetPeak(0)->m_dCentroidX, s.x[50] + 0.01);
  QXPeakTable empty;
  QXNonLinFit::GaussFitPeakList(&empty, s.x.data(), s.y.data(), 100);
  EXPECT_EQ(empty.GetNumPeaks(), 0);
}

}  // namespace
}  // namespace qxpkutil
