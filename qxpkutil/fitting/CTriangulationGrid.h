// z estimated at any (x, y) from scattered (x, y, z) points: a least-squares plane through
// the four stored points nearest in the x-y plane, solved by QXNonLinFit's singular value
// decomposition. It builds no triangles and extrapolates outside the points as inside.
//
//   CTriangulationGrid grid;
//   for (const C3DPoint& p : samples) grid.AddPoint(p);
//   double z = 0.0;
//   if (grid.ExtrapolateZ(2.5, 7.0, &z)) { ... }
#pragma once

#include <cstdint>
#include <vector>

namespace qxpkutil {

// A point or vector in space; the default one is the origin.
class C3DPoint {
 public:
  C3DPoint() = default;
  C3DPoint(double x, double y, double z) : m_dX(x), m_dY(y), m_dZ(z) {}
  C3DPoint(const C3DPoint&) = default;
  C3DPoint& operator=(const C3DPoint&) = default;
  virtual ~C3DPoint() = default;

  // Component-wise difference.
  C3DPoint operator-(const C3DPoint& o) const {
    return {m_dX - o.m_dX, m_dY - o.m_dY, m_dZ - o.m_dZ};
  }
  // Cross product.
  C3DPoint operator^(const C3DPoint& o) const {
    return {m_dY * o.m_dZ - m_dZ * o.m_dY, m_dZ * o.m_dX - m_dX * o.m_dZ,
            m_dX * o.m_dY - m_dY * o.m_dX};
  }
  // Dot product.
  double operator*(const C3DPoint& o) const {
    return m_dX * o.m_dX + m_dY * o.m_dY + m_dZ * o.m_dZ;
  }
  // 1 when all three components are exactly equal, else 0.
  int operator==(const C3DPoint& o) const {
    return m_dX == o.m_dX && m_dY == o.m_dY && m_dZ == o.m_dZ ? 1 : 0;
  }

  double m_dX = 0.0;
  double m_dY = 0.0;
  double m_dZ = 0.0;
};

// The stored points, in insertion order, without duplicates; an empty grid estimates nothing.
class CTriangulationGrid {
 public:
  CTriangulationGrid() = default;
  CTriangulationGrid(const CTriangulationGrid&) = default;
  CTriangulationGrid& operator=(const CTriangulationGrid&) = default;
  virtual ~CTriangulationGrid() = default;

  // Appends a copy of `p` and returns 1; returns 0 and stores nothing when a point equal to
  // it in x, y and z is stored already, or when the grid is full (kQXMaxPoints points).
  int AddPoint(const C3DPoint& p);
  // Number of stored points.
  std::int32_t GetSize() const { return static_cast<std::int32_t>(m_arrPoints.size()); }
  void RemoveAll() { m_arrPoints.clear(); }

  // Writes the estimate at (x, y) into *z and returns 1. Returns 0 when z is null, and
  // writes 0.0 into *z and returns 0 when fewer than four points are stored. Four collinear
  // neighbours give the minimum-norm plane; NaN or infinite input gives a non-finite *z.
  int ExtrapolateZ(double x, double y, double* z) const;

 protected:
  // Euclidean distance in the plane.
  static double Dist2D(double x1, double y1, double x2, double y2);

  std::vector<C3DPoint> m_arrPoints;
};

}  // namespace qxpkutil
