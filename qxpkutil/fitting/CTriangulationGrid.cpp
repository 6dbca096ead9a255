#include "qxpkutil/fitting/CTriangulationGrid.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <exception>
#include <limits>
#include <utility>

#include "qxpkutil/fitting/QXNonLinFit.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {
namespace {

struct Neighbour {
  const C3DPoint* point;
  double distance;
};
using Nearest = std::array<Neighbour, 4>;

// Ascending distance by selection sort; the farthest of the four ends up last.
void SortByDistance(Nearest& near) {
  for (std::size_t i = 0; i + 1 < near.size(); ++i) {
    std::size_t best = i;
    for (std::size_t j = i + 1; j < near.size(); ++j) {
      if (near[j].distance < near[best].distance) best = j;
    }
    if (best != i) std::swap(near[i], near[best]);
  }
}

}  // namespace

int CTriangulationGrid::AddPoint(const C3DPoint& p) {
  for (const C3DPoint& q : m_arrPoints) {
    if (q == p) return 0;
  }
  if (m_arrPoints.size() >= kQXMaxPoints) return 0;
  try {
    m_arrPoints.push_back(p);
  } catch (const std::exception&) {
    return 0;
  }
  return 1;
}

double CTriangulationGrid::Dist2D(double x1, double y1, double x2, double y2) {
  return std::sqrt((x1 - x2) * (x1 - x2) + (y1 - y2) * (y1 - y2));
}

int CTriangulationGrid::ExtrapolateZ(double x, double y, double* z) const {
  if (!z) return 0;
  if (m_arrPoints.size() < 4) {
    *z = 0.0;
    return 0;
  }

  // The four nearest points; a later point replaces the farthest only when strictly
  // nearer, so among equal distances the point met first stays.
  Nearest near{};
  for (std::size_t i = 0; i < near.size(); ++i) {
    const C3DPoint& p = m_arrPoints[i];
    near[i] = {&p, Dist2D(p.m_dX, p.m_dY, x, y)};
  }
  SortByDistance(near);
  for (std::size_t i = near.size(); i < m_arrPoints.size(); ++i) {
    const C3DPoint& p = m_arrPoints[i];
    const double d = Dist2D(p.m_dX, p.m_dY, x, y);
    if (d < near.back().distance) {
      near.back() = {&p, d};
      SortByDistance(near);
    }
  }

  // Normal equations of the plane z = k0 + k1*x + k2*y through the four points.
  double a[3][3] = {};
  double r[3] = {};
  for (const Neighbour& n : near) {
    const double basis[3] = {1.0, n.point->m_dX, n.point->m_dY};
    for (int i = 0; i < 3; ++i) {
      for (int j = 0; j < 3; ++j) a[i][j] += basis[i] * basis[j];
      r[i] += n.point->m_dZ * basis[i];
    }
  }

  // Solved by decomposition so that a degenerate neighbourhood (collinear points) has its
  // singular direction zeroed and yields the minimum-norm plane. A decomposition that does
  // not converge still leaves usable values, so its status is not consulted.
  double v[3][3] = {};
  double w[3] = {};
  double k[3] = {};
  double* aRows[3] = {a[0], a[1], a[2]};
  double* vRows[3] = {v[0], v[1], v[2]};
  QXNonLinFit::Svdcmp(aRows, 3, 3, w, vRows);
  double wmax = 0.0;
  for (double wj : w) wmax = std::fabs(wj) > wmax ? std::fabs(wj) : wmax;
  if (wmax != 0.0) {
    for (double& wj : w) {
      if (std::fabs(wj / wmax) < 1.0e-12) wj = 0.0;
    }
  }
  QXNonLinFit::SvdBackSub(aRows, w, vRows, 3, 3, r, k);
  *z = k[0] + k[1] * x + k[2] * y;
  return 1;
}

}  // namespace qxpkutil
