// The Gaussian models and the Levenberg-Marquardt step: coefficients, then a damped normal
// system solved by singular value decomposition instead of elimination, so that a
// degenerate curvature matrix gives the minimum-norm step rather than a failure.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <cmath>
#include <cstddef>
#include <exception>
#include <memory>
#include <new>

namespace qxpkutil {
namespace {

int CountFitted(const int* ia, int ma) {
  int mfit = 0;
  for (int j = 0; j < ma; ++j) {
    if (ia[j] != 0) ++mfit;
  }
  return mfit;
}

// The coefficient pass with caller-owned dyda storage, so that the step allocates nothing.
void Coefficients(const double* x, const double* y, const double* sig, int ndata, double* a,
                  const int* ia, int ma, double** alpha, double* beta, double* chisq,
                  QXFitModel model, double* dyda) {
  const int mfit = CountFitted(ia, ma);
  for (int j = 0; j < mfit; ++j) {
    for (int k = 0; k <= j; ++k) alpha[j][k] = 0.0;
    beta[j] = 0.0;
  }
  double chi = 0.0;
  for (int i = 0; i < ndata; ++i) {
    double ymod = 0.0;
    model(x[i], a, &ymod, dyda, ma);
    const double sig2i = 1.0 / (sig[i] * sig[i]);
    const double dy = y[i] - ymod;
    // Lower triangle only, over the fitted parameters in their order.
    for (int l = 0, j = 0; l < ma; ++l) {
      if (ia[l] == 0) continue;
      const double wt = dyda[l] * sig2i;
      for (int mm = 0, k = 0; mm <= l; ++mm) {
        if (ia[mm] != 0) alpha[j][k++] += wt * dyda[mm];
      }
      beta[j++] += dy * wt;
    }
    chi += dy * dy * sig2i;
  }
  for (int j = 1; j < mfit; ++j) {
    for (int k = 0; k < j; ++k) alpha[k][j] = alpha[j][k];
  }
  *chisq = chi;
}

}  // namespace

void QXNonLinFit::fgauss(double x, const double* a, double& y, double* dyda, int na) {
  if (!a || !dyda || na < 1) return;
  double sum = 0.0;
  // (na + 1) / 3 triples; a count that is not 3k+1 still never reads past a[na - 1].
  for (int i = 0; i + 2 < na; i += 3) {
    const double arg = (x - a[i + 1]) / a[i + 2];
    const double ex = std::exp(-arg * arg);
    const double fac = a[i] * ex * 2.0 * arg;
    sum += a[i] * ex;
    dyda[i] = ex;
    dyda[i + 1] = fac / a[i + 2];
    dyda[i + 2] = fac * arg / a[i + 2];
  }
  y = sum + a[na - 1];
  dyda[na - 1] = 1.0;
}

void QXNonLinFit::GaussFitCommonSigBaseSlope(double x, double* a, double* y, double* dyda,
                                             int na) {
  if (!a || !y || !dyda || na < 3) return;
  const int is = na - 3;  // common width, then baseline and slope
  // (na - 2) / 2 pairs: for an even na the last pair's centre is the width itself, which
  // stays inside the array.
  const int pairs = is > 0 ? (na - 2) / 2 : 0;
  double sum = 0.0;
  dyda[is] = 0.0;
  for (int j = 0; j < 2 * pairs; j += 2) {
    const double arg = (x - a[j + 1]) / a[is];
    const double ex = std::exp(-arg * arg);
    const double fac = a[j] * ex * 2.0 * arg;
    sum += a[j] * ex;
    dyda[j] = ex;
    dyda[j + 1] = fac / a[is];
    dyda[is] += fac * arg / a[is];
  }
  sum += a[na - 2];
  dyda[na - 2] = 1.0;
  sum += x * a[na - 1];
  dyda[na - 1] = x;
  *y = sum;
}

void QXNonLinFit::MrqCoeff(const double* x, const double* y, const double* sig, int ndata,
                           double* a, const int* ia, int ma, double** alpha, double* beta,
                           double* chisq, QXFitModel model) {
  if (!a || !ia || !alpha || !beta || !chisq || !model || ma <= 0 || ndata < 0) return;
  if (ndata > 0 && (!x || !y || !sig)) return;
  const std::unique_ptr<double[]> dyda(new (std::nothrow) double[static_cast<std::size_t>(ma)]);
  if (!dyda) return;
  Coefficients(x, y, sig, ndata, a, ia, ma, alpha, beta, chisq, model, dyda.get());
}

int QXNonLinFit::SvdMrqMin(const double* x, const double* y, const double* sig, int ndata,
                           double* a, const int* ia, int ma, double** covar, double** v,
                           double* w, double* chisq, QXFitModel model, double* alamda,
                           QXMrqContext& context) {
  if (!a || !ia || !covar || !v || !w || !chisq || !model || !alamda || ma <= 0 || ndata < 0)
    return 0;
  if (ndata > 0 && (!x || !y || !sig)) return 0;

  QXMrqContext& c = context;
  if (*alamda < 0.0) {
    const auto size = static_cast<std::size_t>(ma);
    try {
      c.m_arrTrial.assign(size, 0.0);
      c.m_arrBeta.assign(size, 0.0);
      c.m_arrDa.assign(size, 0.0);
      c.m_arrDyda.assign(size, 0.0);
      c.m_arrAlpha.assign(size * size, 0.0);
      c.m_arrAlphaRows.resize(size);
    } catch (const std::exception&) {
      c = QXMrqContext{};
      return 0;
    }
    for (std::size_t r = 0; r < size; ++r) c.m_arrAlphaRows[r] = c.m_arrAlpha.data() + r * size;
    c.m_nParams = ma;
    c.m_nFit = CountFitted(ia, ma);
    c.m_bActive = true;
    // 0.001 rounded to single precision and widened: the damping the step has always
    // started from, kept bit for bit.
    *alamda = static_cast<double>(0.001f);
    Coefficients(x, y, sig, ndata, a, ia, ma, c.m_arrAlphaRows.data(), c.m_arrBeta.data(), chisq,
                 model, c.m_arrDyda.data());
    c.m_dOldChiSq = *chisq;
    for (int l = 0; l < ma; ++l) c.m_arrTrial[static_cast<std::size_t>(l)] = a[l];
  } else if (!c.m_bActive || c.m_nParams != ma) {
    return 0;
  }

  const int mfit = c.m_nFit;
  double** alpha = c.m_arrAlphaRows.data();
  double* beta = c.m_arrBeta.data();
  double* da = c.m_arrDa.data();
  for (int j = 0; j < mfit; ++j) {
    for (int k = 0; k < mfit; ++k) covar[j][k] = alpha[j][k];
    covar[j][j] = alpha[j][j] * (1.0 + *alamda);
  }
  // With every parameter fixed there is nothing to solve: the step then moves nothing.
  if (mfit > 0 && !Svdcmp(covar, mfit, mfit, w, v)) return 0;

  // Singular values below 1e-12 of the largest are treated as exact zeros, so that a
  // near-singular direction is left alone instead of being amplified.
  double wmax = 0.0;
  for (int j = 0; j < mfit; ++j) {
    if (w[j] > wmax) wmax = w[j];
  }
  const double thresh = wmax * 1.0e-12;
  for (int j = 0; j < mfit; ++j) {
    if (w[j] < thresh) w[j] = 0.0;
  }
  SvdBackSub(covar, w, v, mfit, mfit, beta, da);

  if (*alamda == 0.0) {
    // Kept as the fit has always reported it: the variance formula meant for a design
    // matrix is applied to the curvature matrix, giving its inverse squared.
    SVDVariance(v, mfit, w, covar);
    c = QXMrqContext{};
    return 1;
  }

  double* trial = c.m_arrTrial.data();
  for (int l = 0, j = 0; l < ma; ++l) {
    if (ia[l] != 0) trial[l] = a[l] + da[j++];
  }
  Coefficients(x, y, sig, ndata, trial, ia, ma, covar, da, chisq, model, c.m_arrDyda.data());
  // Halving and doubling, not the textbook tenfold steps: the damping schedule is
  // deliberately gentler.
  if (*chisq < c.m_dOldChiSq) {
    *alamda *= 0.5;
    c.m_dOldChiSq = *chisq;
    for (int j = 0; j < mfit; ++j) {
      for (int k = 0; k < mfit; ++k) alpha[j][k] = covar[j][k];
      beta[j] = da[j];
    }
    for (int l = 0; l < ma; ++l) a[l] = trial[l];
  } else {
    for (int j = 0; j < mfit; ++j) {
      for (int k = 0; k < mfit; ++k) covar[j][k] = alpha[j][k];
    }
    *alamda *= 2.0;
    *chisq = c.m_dOldChiSq;
  }
  return 1;
}

int QXNonLinFit::SvdMrqMin(const double* x, const double* y, const double* sig, int ndata,
                           double* a, const int* ia, int ma, double** covar, double** v,
                           double* w, double* chisq, QXFitModel model, double* alamda) {
  thread_local QXMrqContext context;
  return SvdMrqMin(x, y, sig, ndata, a, ia, ma, covar, v, w, chisq, model, alamda, context);
}

}  // namespace qxpkutil
