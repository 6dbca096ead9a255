// Singular value decomposition by Householder bidiagonalisation and implicit-shift QR, with
// its back-substitution, covariance and overflow-safe hypotenuse.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <cmath>
#include <memory>
#include <new>
#include <utility>

namespace qxpkutil {
namespace {

// Scratch of n doubles: on the stack for the small systems that fits produce, on the heap
// otherwise, so that a fitting step allocates nothing. Get() is null when the heap is out.
class Scratch {
 public:
  explicit Scratch(int n) {
    if (n <= kLocal) {
      m_p = m_local;
    } else {
      m_heap.reset(new (std::nothrow) double[static_cast<std::size_t>(n)]);
      m_p = m_heap.get();
    }
  }
  double* Get() const { return m_p; }

 private:
  static constexpr int kLocal = 16;
  double m_local[kLocal];
  std::unique_ptr<double[]> m_heap;
  double* m_p = nullptr;
};

// |a| with the sign of b, where b = -0.0 counts as positive.
double Sign(double a, double b) { return b >= 0.0 ? std::fabs(a) : -std::fabs(a); }

// A Householder reflector: the scale its vector was divided by (0 when the vector is
// zero and nothing was done), g = -+|x| and h = f*g - |x|^2 for the leading entry f.
struct Reflector {
  double scale = 0.0;
  double g = 0.0;
  double h = 0.0;
};

// Builds the reflector of the entries e(from) .. e(to - 1) in place: divides them by the sum
// of their magnitudes and subtracts g from the leading one.
template <class Entry>
Reflector MakeReflector(Entry e, int from, int to) {
  Reflector r;
  for (int k = from; k < to; ++k) r.scale += std::fabs(e(k));
  if (r.scale == 0.0) return r;
  double s = 0.0;
  for (int k = from; k < to; ++k) {
    e(k) /= r.scale;
    s += e(k) * e(k);
  }
  const double f = e(from);
  r.g = -Sign(std::sqrt(s), f);
  r.h = f * r.g - s;
  e(from) = f - r.g;
  return r;
}

// Plane rotation of columns j and i of the rows x rows-long matrix m.
void Rotate(double** m, int rows, int j, int i, double c, double s) {
  for (int r = 0; r < rows; ++r) {
    const double p = m[r][j];
    const double q = m[r][i];
    m[r][j] = p * c + q * s;
    m[r][i] = q * c - p * s;
  }
}

}  // namespace

double QXNonLinFit::dpythag(double a, double b) {
  const double absa = std::fabs(a);
  const double absb = std::fabs(b);
  if (absa > absb) {
    const double r = absb / absa;
    return absa * std::sqrt(1.0 + r * r);
  }
  if (absb == 0.0) return 0.0;
  const double r = absa / absb;
  return absb * std::sqrt(1.0 + r * r);
}

int QXNonLinFit::Svdcmp(double** a, int m, int n, double* w, double** v) {
  if (!a || !w || !v || m <= 0 || n <= 0) return 0;
  Scratch scratch(n);
  double* rv1 = scratch.Get();  // superdiagonal of the bidiagonal form
  if (!rv1) return 0;

  // Householder reduction to bidiagonal form: column reflectors give the diagonal w,
  // row reflectors the superdiagonal rv1.
  double g = 0.0;
  double scale = 0.0;
  double anorm = 0.0;
  int l = 0;
  for (int i = 0; i < n; ++i) {
    l = i + 1;
    rv1[i] = scale * g;
    Reflector r;
    if (i < m) {
      r = MakeReflector([&](int k) -> double& { return a[k][i]; }, i, m);
      if (r.scale != 0.0) {
        for (int j = l; j < n; ++j) {
          double sum = 0.0;
          for (int k = i; k < m; ++k) sum += a[k][i] * a[k][j];
          const double f = sum / r.h;
          for (int k = i; k < m; ++k) a[k][j] += f * a[k][i];
        }
        for (int k = i; k < m; ++k) a[k][i] *= r.scale;
      }
    }
    w[i] = r.scale * r.g;
    r = Reflector{};
    if (i < m && i != n - 1) {
      r = MakeReflector([&](int k) -> double& { return a[i][k]; }, l, n);
      if (r.scale != 0.0) {
        for (int k = l; k < n; ++k) rv1[k] = a[i][k] / r.h;
        for (int j = l; j < m; ++j) {
          double sum = 0.0;
          for (int k = l; k < n; ++k) sum += a[j][k] * a[i][k];
          for (int k = l; k < n; ++k) a[j][k] += sum * rv1[k];
        }
        for (int k = l; k < n; ++k) a[i][k] *= r.scale;
      }
    }
    g = r.g;
    scale = r.scale;
    // Written as a comparison, not std::max, so that a NaN reaches anorm and the
    // convergence tests below fail instead of passing on garbage.
    const double t = std::fabs(w[i]) + std::fabs(rv1[i]);
    anorm = anorm > t ? anorm : t;
  }

  // Accumulation of the right-hand transformations into V.
  for (int i = n - 1; i >= 0; --i) {
    if (i < n - 1) {
      if (g != 0.0) {
        // Double division avoids a possible underflow.
        for (int j = l; j < n; ++j) v[j][i] = (a[i][j] / a[i][l]) / g;
        for (int j = l; j < n; ++j) {
          double s = 0.0;
          for (int k = l; k < n; ++k) s += a[i][k] * v[k][j];
          for (int k = l; k < n; ++k) v[k][j] += s * v[k][i];
        }
      }
      for (int j = l; j < n; ++j) v[i][j] = v[j][i] = 0.0;
    }
    v[i][i] = 1.0;
    g = rv1[i];
    l = i;
  }

  // Accumulation of the left-hand transformations into U, in place of a.
  for (int i = (m < n ? m : n) - 1; i >= 0; --i) {
    l = i + 1;
    g = w[i];
    for (int j = l; j < n; ++j) a[i][j] = 0.0;
    if (g != 0.0) {
      g = 1.0 / g;
      for (int j = l; j < n; ++j) {
        double s = 0.0;
        for (int k = l; k < m; ++k) s += a[k][i] * a[k][j];
        const double f = (s / a[i][i]) * g;
        for (int k = i; k < m; ++k) a[k][j] += f * a[k][i];
      }
      for (int j = i; j < m; ++j) a[j][i] *= g;
    } else {
      for (int j = i; j < m; ++j) a[j][i] = 0.0;
    }
    ++a[i][i];
  }

  // Diagonalisation of the bidiagonal form by implicit-shift QR sweeps, one singular value
  // at a time from the bottom.
  for (int k = n - 1; k >= 0; --k) {
    for (int its = 1; its <= 30; ++its) {
      bool cancel = true;
      int nm = 0;
      for (l = k; l >= 0; --l) {
        nm = l - 1;
        // rv1[0] is always zero; testing l == 0 as well keeps a NaN from reading w[-1].
        if (l == 0 || std::fabs(rv1[l]) + anorm == anorm) {
          cancel = false;
          break;
        }
        if (std::fabs(w[nm]) + anorm == anorm) break;
      }
      if (cancel) {
        // w[nm] is negligible: rotate rv1[l] away.
        double c = 0.0;
        double s = 1.0;
        for (int i = l; i <= k; ++i) {
          const double f = s * rv1[i];
          rv1[i] = c * rv1[i];
          if (std::fabs(f) + anorm == anorm) break;
          g = w[i];
          double h = dpythag(f, g);
          w[i] = h;
          h = 1.0 / h;
          c = g * h;
          s = -f * h;
          Rotate(a, m, nm, i, c, s);
        }
      }
      double z = w[k];
      if (l == k) {
        if (z < 0.0) {  // converged: make the singular value non-negative
          w[k] = -z;
          for (int j = 0; j < n; ++j) v[j][k] = -v[j][k];
        }
        break;
      }
      if (its == 30) return 0;

      // Shift from the bottom 2x2 minor.
      double x = w[l];
      nm = k - 1;
      double y = w[nm];
      g = rv1[nm];
      double h = rv1[k];
      double f = ((y - z) * (y + z) + (g - h) * (g + h)) / (2.0 * h * y);
      g = dpythag(f, 1.0);
      f = ((x - z) * (x + z) + h * ((y / (f + Sign(g, f))) - h)) / x;

      // Next QR transformation.
      double c = 1.0;
      double s = 1.0;
      for (int j = l; j <= nm; ++j) {
        const int i = j + 1;
        g = rv1[i];
        y = w[i];
        h = s * g;
        g = c * g;
        z = dpythag(f, h);
        rv1[j] = z;
        c = f / z;
        s = h / z;
        f = x * c + g * s;
        g = g * c - x * s;
        h = y * s;
        y *= c;
        Rotate(v, n, j, i, c, s);
        z = dpythag(f, h);
        w[j] = z;
        if (z != 0.0) {  // the rotation is arbitrary when z is zero
          z = 1.0 / z;
          c = f * z;
          s = h * z;
        }
        f = c * g + s * y;
        x = c * y - s * g;
        Rotate(a, m, j, i, c, s);
      }
      rv1[l] = 0.0;
      rv1[k] = f;
      w[k] = x;
    }
  }
  return 1;
}

void QXNonLinFit::SvdBackSub(double** u, double* w, double** v, int m, int n, double* b,
                             double* x) {
  if (!u || !w || !v || !b || !x || m <= 0 || n <= 0) return;
  Scratch scratch(n);
  double* tmp = scratch.Get();  // U^T*b / w, complete before x is written, so x may be b
  if (!tmp) return;
  for (int j = 0; j < n; ++j) {
    double s = 0.0;
    if (w[j] != 0.0) {
      for (int i = 0; i < m; ++i) s += u[i][j] * b[i];
      s /= w[j];
    }
    tmp[j] = s;
  }
  for (int j = 0; j < n; ++j) {
    double s = 0.0;
    for (int jj = 0; jj < n; ++jj) s += v[j][jj] * tmp[jj];
    x[j] = s;
  }
}

void QXNonLinFit::SVDVariance(double** v, int ma, double* w, double** cvm) {
  if (!v || !w || !cvm || ma <= 0) return;
  Scratch scratch(ma);
  double* wti = scratch.Get();
  if (!wti) return;
  for (int i = 0; i < ma; ++i) wti[i] = w[i] != 0.0 ? 1.0 / (w[i] * w[i]) : 0.0;
  for (int i = 0; i < ma; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = 0.0;
      for (int k = 0; k < ma; ++k) sum += v[i][k] * v[j][k] * wti[k];
      cvm[j][i] = cvm[i][j] = sum;
    }
  }
}

}  // namespace qxpkutil
