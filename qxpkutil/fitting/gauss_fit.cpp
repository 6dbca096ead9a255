// The fitting kernel: a bounded Levenberg-Marquardt loop over the common-width Gaussian
// model. It takes plain arrays; the refinement of a peak table's centroids that drives it
// lives with the table, in peaks/QXNonLinFit_peaks.cpp.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <vector>

#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

std::uint32_t QXNonLinFit::DeconvoluteSimilarGaussPeaks(const double* x, const double* y,
                                                        std::uint32_t n,
                                                        std::vector<QXNonLinFitParam>& params,
                                                        double tol, std::uint32_t maxIter) {
  const std::size_t size = params.size();
  if (!x || !y || n == 0 || n > kQXMaxPoints || size == 0 || size > kQXMaxPoints) return 0;
  const int ma = static_cast<int>(size);
  const int ndata = static_cast<int>(n);

  std::vector<double> matrices;  // covar then v, ma x ma each
  std::vector<double*> rows;
  std::vector<double> w;
  std::vector<double> sig;
  std::vector<double> a;
  std::vector<int> ia;
  try {
    matrices.assign(2 * size * size, 0.0);
    rows.resize(2 * size);
    w.assign(size, 0.0);
    sig.assign(n, 1.0);  // unweighted
    a.resize(size);
    ia.resize(size);
  } catch (const std::exception&) {
    return 0;
  }
  for (std::size_t r = 0; r < 2 * size; ++r) rows[r] = matrices.data() + r * size;
  double** covar = rows.data();
  double** v = rows.data() + size;
  for (std::size_t i = 0; i < size; ++i) {
    a[i] = params[i].m_dValue;
    ia[i] = params[i].m_nFit;
  }

  // A failed step (the decomposition did not converge) is ignored: the parameters keep
  // their last accepted values.
  QXMrqContext context;
  double chisq = 0.0;
  double alamda = -1.0;
  const auto step = [&] {
    SvdMrqMin(x, y, sig.data(), ndata, a.data(), ia.data(), ma, covar, v, w.data(), &chisq,
              &GaussFitCommonSigBaseSlope, &alamda, context);
  };
  step();
  // The damping starts at half the convergence tolerance, overriding the step's own start.
  alamda = tol * 0.5;
  double ochisq = chisq;
  std::uint32_t iter = 0;
  for (; iter < maxIter; ++iter) {
    step();
    // Bounds are enforced by clamping after the step, never inside it.
    for (std::size_t i = 0; i < size; ++i) {
      if (a[i] < params[i].m_dMinimum) {
        a[i] = params[i].m_dMinimum;
      } else if (a[i] > params[i].m_dMaximum) {
        a[i] = params[i].m_dMaximum;
      }
    }
    // A step that does not lower chi-square neither stops the loop nor becomes the
    // reference; at least six iterations always run.
    if (chisq < ochisq) {
      if (1.0 - chisq / ochisq < tol && iter > 5) break;
      ochisq = chisq;
    }
  }
  alamda = 0.0;
  step();

  // The covariance holds the fitted parameters only, in their order; with fixed parameters
  // the errors are read from it as they stand, without re-expansion.
  for (std::size_t i = 0; i < size; ++i) {
    params[i].m_dFittedValue = a[i];
    params[i].m_dStdError = std::sqrt(covar[i][i]);
  }
  return iter;
}

}  // namespace qxpkutil
