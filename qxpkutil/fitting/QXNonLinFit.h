// Least-squares fitting of Gaussian peak models: a Levenberg-Marquardt step whose linear
// system is solved by singular value decomposition, the decomposition itself, and the
// drivers that refine the centroid of every peak of a QXPeakTable, jointly with close
// neighbours. Kernels take pointers and counts; only GaussFitPeakList knows the table.
//
//   const double big = std::numeric_limits<double>::max(), tiny = DBL_MIN;
//   std::vector<QXNonLinFitParam> p{{900, 0, big}, {500.3, 500.1, 500.5}, {0.1, tiny, big},
//                                   {10, -big, big}, {0, -big, big}};  // amp, ctr, width, b, m
//   QXNonLinFit::DeconvoluteSimilarGaussPeaks(x, y, n, p, 0.001, 30);  // p[1].m_dFittedValue
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

namespace qxpkutil {

class QXPeakTable;

// One fit parameter: its start value and bounds, whether it varies, and the result.
// A default parameter starts at 0.0, is unbounded and varies.
class QXNonLinFitParam {
 public:
  QXNonLinFitParam() = default;
  // A parameter starting at `value`, kept within [minimum, maximum]; `fit` 0 holds it.
  QXNonLinFitParam(double value, double minimum, double maximum, int fit = 1)
      : m_dValue(value), m_dMaximum(maximum), m_dMinimum(minimum), m_nFit(fit) {}
  QXNonLinFitParam(const QXNonLinFitParam&) = default;
  QXNonLinFitParam& operator=(const QXNonLinFitParam&) = default;
  virtual ~QXNonLinFitParam() = default;

  double m_dValue = 0.0;                                        // starting value
  double m_dMaximum = std::numeric_limits<double>::max();       // upper bound
  double m_dMinimum = -std::numeric_limits<double>::max();      // lower bound
  std::int32_t m_nFit = 1;                                      // 0 holds the value fixed
  double m_dFittedValue = 0.0;                                  // written by the fit
  double m_dStdError = -1.0;  // written by the fit: sqrt of the covariance diagonal
};

// A fit model: y(x) and its derivatives dyda[0..na-1] with respect to the na parameters a.
using QXFitModel = void (*)(double x, double* a, double* y, double* dyda, int na);

// The work storage one Levenberg-Marquardt fit carries from step to step (trial values,
// gradient, step, curvature matrix, fitted count, last chi-square). Each fit in progress
// needs its own; a context is reusable once its fit has finished. An empty context has no
// fit in progress.
class QXMrqContext {
 public:
  QXMrqContext() = default;
  // Movable, not copyable: the curvature matrix's row pointers point into its own storage.
  QXMrqContext(QXMrqContext&&) = default;
  QXMrqContext& operator=(QXMrqContext&&) = default;
  QXMrqContext(const QXMrqContext&) = delete;
  QXMrqContext& operator=(const QXMrqContext&) = delete;

  // True between the initialising step and the final (covariance) step of a fit.
  bool IsActive() const { return m_bActive; }

 private:
  friend class QXNonLinFit;

  std::vector<double> m_arrTrial;
  std::vector<double> m_arrBeta;
  std::vector<double> m_arrDa;
  std::vector<double> m_arrDyda;
  std::vector<double> m_arrAlpha;        // ma x ma, row-major
  std::vector<double*> m_arrAlphaRows;
  int m_nParams = 0;
  int m_nFit = 0;
  double m_dOldChiSq = 0.0;
  bool m_bActive = false;
};

// Matrices are arrays of row pointers (0-based, element j of row i is m[i][j]); every
// routine leaves its outputs untouched when an argument is null or a count is not positive.
class QXNonLinFit {
 public:
  QXNonLinFit() = default;
  virtual ~QXNonLinFit() = default;

  // Sum of Gaussians plus a constant: triples (amplitude, centre, width) then a baseline,
  // na = 3k+1. The width is the 1/e half-width: exp(-((x-centre)/width)^2). Writes y and
  // dyda[0..na-1].
  static void fgauss(double x, const double* a, double& y, double* dyda, int na);

  // The peak model the drivers fit: k pairs (amplitude, centre), then one common width,
  // a baseline and a slope, na = 2k+3: sum A_j*exp(-((x-c_j)/s)^2) + b + m*x. Writes *y and
  // dyda[0..na-1].
  static void GaussFitCommonSigBaseSlope(double x, double* a, double* y, double* dyda, int na);

  // One Levenberg-Marquardt step over `ndata` points with standard deviations `sig`.
  // Protocol: first call with *alamda < 0 initialises `context`; calls with *alamda > 0
  // improve `a` (parameters with ia[l] == 0 stay fixed) and adapt *alamda (halved after a
  // step that lowers *chisq, doubled otherwise; the first call takes a step too); a call
  // with *alamda == 0 writes V*diag(1/w^2)*V^T of the decomposed curvature matrix, over the
  // fitted parameters in their order, into covar[0..mfit-1][0..mfit-1] and ends the fit.
  // That is the square of the curvature matrix's inverse, not the textbook covariance.
  // covar and v are ma x ma work matrices, w has ma entries. Returns 1,
  // or 0 when the decomposition does not converge (the context stays active), an argument
  // is invalid, the context has no fit of `ma` parameters in progress, or storage runs out.
  static int SvdMrqMin(const double* x, const double* y, const double* sig, int ndata,
                       double* a, const int* ia, int ma, double** covar, double** v, double* w,
                       double* chisq, QXFitModel model, double* alamda, QXMrqContext& context);
  // The same step with a context kept per thread: threads fit independently, but one
  // thread must finish a fit before it starts another.
  static int SvdMrqMin(const double* x, const double* y, const double* sig, int ndata,
                       double* a, const int* ia, int ma, double** covar, double** v, double* w,
                       double* chisq, QXFitModel model, double* alamda);

  // Curvature matrix alpha (mfit x mfit, symmetric), gradient beta (mfit) and chi-square of
  // `model` at `a`, over the parameters with ia[l] != 0 in their order.
  static void MrqCoeff(const double* x, const double* y, const double* sig, int ndata, double* a,
                       const int* ia, int ma, double** alpha, double* beta, double* chisq,
                       QXFitModel model);

  // a = U*diag(w)*V^T for the m x n matrix `a`: U overwrites a, w gets the n singular values
  // (non-negative, unsorted), v the n x n matrix V. Returns 1, or 0 when a singular value
  // does not converge in 30 iterations (outputs then hold partial results) or an argument
  // is invalid.
  static int Svdcmp(double** a, int m, int n, double* w, double** v);

  // x = V*diag(1/w)*U^T*b for the decomposition of an m x n matrix; a zero w_j contributes
  // nothing, which gives the minimum-norm least-squares solution. `x` may alias `b`.
  static void SvdBackSub(double** u, double* w, double** v, int m, int n, double* b, double* x);

  // Covariance cvm = V*diag(1/w^2)*V^T (ma x ma); a zero w_k contributes nothing.
  static void SVDVariance(double** v, int ma, double* w, double** cvm);

  // sqrt(a^2 + b^2) without overflow or destructive underflow of the squares.
  static double dpythag(double a, double b);

  // Bounded fit of GaussFitCommonSigBaseSlope to n points, unweighted: starts at each
  // parameter's value, clamps every parameter into [minimum, maximum] after each step and
  // stops when chi-square falls by a fraction below `tol` (> 0) after iteration 5. Writes
  // each parameter's fitted value and standard error, the square root of the final step's
  // covar diagonal (read in fitted-parameter order: with fixed parameters they do not line
  // up). Returns the iterations performed (maxIter when nothing stopped the loop); 0 with
  // `params` untouched when x or y is null, n is 0 or above kQXMaxPoints, or params is empty.
  static std::uint32_t DeconvoluteSimilarGaussPeaks(const double* x, const double* y,
                                                    std::uint32_t n,
                                                    std::vector<QXNonLinFitParam>& params,
                                                    double tol, std::uint32_t maxIter);

  // Refines the centroid x of every peak of `table` (sorted by apex x first): each peak is
  // fitted alone over its bound indices, then peaks closer than three fitted widths to a
  // neighbour are fitted again together with it, writing only their own centre. Fitted
  // centres stay within the peak's [left bound x, right bound x]. `n`, the number of points
  // in x and y, only guards the bound indices: a peak reaching past the data is left as it is.
  static void GaussFitPeakList(QXPeakTable* table, const double* x, const double* y, int n);
};

}  // namespace qxpkutil
