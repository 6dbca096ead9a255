// The Gaussian models' derivatives and the Levenberg-Marquardt step protocol of SvdMrqMin,
// on a model whose fit has a closed-form answer.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <thread>
#include <utility>
#include <vector>

#include "testing/QXTestMatrix.h"

namespace qxpkutil {
namespace {

using testing::Matrix;

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
      std::vector<double> dyda(7), scratch(7), at = a;
      model(x, at.data(), dyda.data());
      for (std::size_t j = 0; j < 7; ++j) {
        const double h = 1e-6 * std::max(1.0, std::fabs(a[j]));
        std::vector<double> up = a, down = a;
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
  EXPECT_NEAR(std::hypot(fit.a[0] - 1.0, fit.a[1] + 2.0, fit.a[2] - 0.5), 0.0, 1e-9);
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
  // Two threads, each with its per-thread context, fitting at the same time; a fit is
  // short, so each thread fits many times for the two to overlap.
  bool same[2] = {true, true};
  const auto fits = [&](bool& ok) {
    for (int i = 0; i < 2000 && ok; ++i) {
      QuadraticFit fit;
      fit.Run(8);
      ok = fit.a == alone.a;
    }
  };
  std::thread t1(fits, std::ref(same[0]));
  std::thread t2(fits, std::ref(same[1]));
  t1.join();
  t2.join();
  EXPECT_TRUE(same[0] && same[1]);
}

}  // namespace
}  // namespace qxpkutil
