#include "qxpkutil/numeric/QXXYData.h"

#include <algorithm>
#include <new>

namespace qxpkutil {

QXXYData::~QXXYData() = default;

bool QXXYData::AllocateData(std::int32_t n) {
  if (n < 0) return false;
  if (m_nAllocated < n) {
    // Growing loses the contents: release first so old and new never coexist.
    Empty();
    m_pXData.reset(new (std::nothrow) double[n]);
    if (m_pXData) m_pYData.reset(new (std::nothrow) double[n]);
    if (!m_pXData || !m_pYData) {
      Empty();
      return false;
    }
    m_nAllocated = n;
  }
  if (m_nAllocated != 0) m_nSize = n;
  return m_nAllocated != 0;
}

bool QXXYData::SetDataSize(std::int32_t n) {
  if (n < 0) return false;
  if (m_nAllocated != 0 && n <= m_nAllocated) {
    m_nSize = n;
    if (n == 0) ClearData();
    return true;
  }
  return AllocateData(n);
}

void QXXYData::ClearData() {
  if (m_pXData) std::fill_n(m_pXData.get(), m_nAllocated, 0.0);
  if (m_pYData) std::fill_n(m_pYData.get(), m_nAllocated, 0.0);
  m_nSize = 0;
}

void QXXYData::Empty() {
  m_pXData.reset();
  m_pYData.reset();
  m_nAllocated = 0;
  m_nSize = 0;
}

}  // namespace qxpkutil
