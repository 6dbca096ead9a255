// An owned pair of parallel double arrays (x and y) with a size in use. The arrays only
// grow and lose their contents when they do; shrinking just changes the size. An empty
// object holds no arrays; one cleared to size 0 keeps its arrays and is not empty.
//
//   QXXYData data;
//   double *x, *y;
//   if (data.AllocateData(n)) { data.GetXYRefs(x, y); x[0] = 1.0; y[0] = 5.0; }
#pragma once

#include <cstdint>
#include <memory>

namespace qxpkutil {

class QXXYData {
 public:
  QXXYData() = default;
  QXXYData(const QXXYData&) = delete;
  QXXYData& operator=(const QXXYData&) = delete;
  virtual ~QXXYData();

  // Makes room for n points and sets the size to n. Arrays smaller than n are replaced by
  // new, uninitialised ones; otherwise nothing is reallocated. True when arrays are held
  // afterwards. False, with nothing changed, for n < 0, and for n = 0 on an object that
  // holds nothing; a failed allocation returns false with no arrays held.
  [[nodiscard]] bool AllocateData(std::int32_t n);
  // Within the allocation only the size changes (size 0 also zeroes the arrays, keeping
  // them); beyond it this is AllocateData(n). False for n < 0.
  [[nodiscard]] bool SetDataSize(std::int32_t n);
  // Writes 0.0 into every allocated element and sets the size to 0; keeps the arrays.
  void ClearData();
  // Releases both arrays.
  void Empty();
  // True when no arrays are held; deliberately says nothing about the size in use.
  bool IsEmpty() const { return m_nAllocated == 0; }
  std::int32_t GetDataSize() const { return m_nSize; }
  // Hands out the owned arrays (null when none are held) without giving up ownership.
  void GetXYRefs(double*& x, double*& y) {
    x = m_pXData.get();
    y = m_pYData.get();
  }

 protected:
  std::int32_t m_nAllocated = 0;  // doubles in each array; 0 when none are held
  std::int32_t m_nSize = 0;       // points in use, 0..m_nAllocated
  std::unique_ptr<double[]> m_pXData;
  std::unique_ptr<double[]> m_pYData;
};

}  // namespace qxpkutil
