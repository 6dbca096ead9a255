// For tests of peak records and tables: the twenty values a record is built from, in
// constructor order, so that a whole record is compared in one assertion (the record's own
// operator== cannot serve: it assigns its fourth spare value instead of comparing it); and
// one value of every peak of a table, so that a whole table is compared in one assertion.
//
//   EXPECT_EQ(qxpkutil::testing::RecordValues(*table.GetPeak(0)),
//             qxpkutil::testing::RecordValues(QXPeakTableElement(500.0, 80.0, 12)));
//   EXPECT_EQ(qxpkutil::testing::EachPeak(table, [](auto& p) { return p.m_dApexX; }), xs);
#pragma once

#include <cstdint>
#include <type_traits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"

namespace qxpkutil::testing {

inline std::vector<double> RecordValues(const QXPeakTableElement& p) {
  return {p.m_dApexX,          p.m_dApexY,          double(p.m_nApexIndex), p.m_dLeftX,
          p.m_dLeftY,          double(p.m_nLeftIndex), p.m_dRightX,        p.m_dRightY,
          double(p.m_nRightIndex), p.m_dCentroidX,  p.m_dArea,             p.m_dCentroidLeftX,
          p.m_dCentroidLeftY,  p.m_dCentroidRightX, p.m_dCentroidRightY,   double(p.m_nCharge),
          p.m_dExtra1,         p.m_dExtra2,         p.m_dExtra3,           p.m_dExtra4};
}

// `value` of every peak of `table`, in table order.
template <class Value>
auto EachPeak(const QXPeakTable& table, Value value) {
  std::vector<std::invoke_result_t<Value, const QXPeakTableElement&>> out;
  for (std::int32_t i = 0; i < table.GetNumPeaks(); ++i) out.push_back(value(*table.GetPeak(i)));
  return out;
}

}  // namespace qxpkutil::testing
