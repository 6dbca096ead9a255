#include <gtest/gtest.h>

#include <climits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"

namespace qxpkutil {
namespace {

class MassTable : public QXPeakTable {
 public:
  using QXPeakTable::ProcessMassPeak;
};

constexpr std::uint32_t kAssigned = kQXPeakChargeAssigned;
constexpr std::uint32_t kLow = kQXPeakSeriesLow;
constexpr std::uint32_t kMost = kQXPeakSeriesMostIntense;
constexpr double kStep2 = 1.007825 / 2;  // charge-2 spacing

struct Stick {
  double apex, intensity;
  double centroid = apex;
};
struct Expect {
  double apex;
  int charge;
  std::uint32_t marks;  // beyond 0x100
};
struct MassCase {
  const char* name;
  std::vector<Stick> sticks;  // appended in this order
  int maxCharge, maxIsotopes;
  double minRatio, maxRatio;
  std::vector<Expect> expected;
};

class ProcessMassPeak : public ::testing::TestWithParam<MassCase> {};

TEST_P(ProcessMassPeak, ChargesAndMarksEachSeries) {
  const MassCase& c = GetParam();
  MassTable t;
  for (const Stick& s : c.sticks) {
    t.AddPeak(s.apex, s.intensity, 0, 0, 0, 0, 0, 0, 0, s.centroid, 0, 0, 0, 0, 0, 0);
  }
  t.ProcessMassPeak(c.maxCharge, c.maxIsotopes, c.minRatio, c.maxRatio);
  ASSERT_EQ(t.GetNumPeaks(), static_cast<std::int32_t>(c.sticks.size()));
  EXPECT_EQ(t.GetSortMethod(), 0);  // left in apex-x order
  for (std::int32_t i = 1; i < t.GetNumPeaks(); ++i) {
    EXPECT_LT(t.GetPeak(i - 1)->m_dApexX, t.GetPeak(i)->m_dApexX);
  }
  for (const Expect& e : c.expected) {
    const QXPeakTableElement& p = *t.GetPeak(t.GetPeakNearest(e.apex, 0));
    EXPECT_EQ(p.m_nCharge, e.charge) << e.apex;
    EXPECT_EQ(p.m_dwFlags, kQXPeakNormal | e.marks) << std::hex << e.apex;
  }
}

const std::vector<Stick> kSeries{{502.01565, 20}, {500.0, 100}, {501.007825, 60}};

// clang-format off
INSTANTIATE_TEST_SUITE_P(Cases, ProcessMassPeak, ::testing::Values(
    MassCase{"ChargeOneSeriesTakesBothNeighbours", kSeries, 2, 3, 0.1, 1.0,
             {{500.0, 1, kAssigned | kLow | kMost}, {501.007825, 1, kAssigned},
              {502.01565, 1, kAssigned}}},
    MassCase{"RatioLimitSplitsTheSeries", kSeries, 2, 3, 0.1, 0.5,
             {{500.0, 0, kLow | kMost}, {501.007825, 1, kAssigned | kLow | kMost},
              {502.01565, 1, kAssigned}}},
    // The most intense peak sits in the middle of a charge-2 series.
    MassCase{"DownwardWalkMarksTheLowestMember",
             {{800.0 - kStep2, 50}, {800.0, 100}, {800.0 + kStep2, 70}, {800.0 + 2 * kStep2, 30}},
             3, 4, 0.2, 1.0,
             {{800.0 - kStep2, 2, kAssigned | kLow}, {800.0, 2, kAssigned | kMost},
              {800.0 + kStep2, 2, kAssigned}, {800.0 + 2 * kStep2, 2, kAssigned}}},
    MassCase{"OneIsotopeSearchesNoNeighbours", kSeries, 2, 1, 0.1, 1.0,
             {{500.0, 0, kLow | kMost}, {501.007825, 0, kLow | kMost}}},
    MassCase{"NeighbourAtExactlyTheMinimumRatioEndsTheWalk", {{500.0, 100}, {501.007825, 25}},
             1, 3, 0.25, 1.0, {{500.0, 0, kLow | kMost}, {501.007825, 0, kLow | kMost}}},
    // Of four members, three isotopes charge only the first three appended (up, then down).
    MassCase{"OnlyTheFirstMembersAreCharged",
             {{500.0, 100}, {501.007825, 60}, {502.01565, 30}, {498.992175, 50}, {497.98435, 20}},
             1, 3, 0.1, 1.0,
             {{500.0, 1, kAssigned | kMost}, {502.01565, 1, kAssigned},
              {498.992175, 1, kAssigned}, {497.98435, 0, kLow | kMost}}},
    MassCase{"ZeroSpacingNeverPassesTheChargeCheck", {{500.0, 100}, {500.5, 60, 500.0}},
             2, 3, 0.1, 1.0, {{500.0, 0, kLow | kMost}}},
    MassCase{"EmptyTable", {}, 3, 1000000, 0.1, 1.0, {}},
    MassCase{"HugeIsotopeCountsAreSafe", kSeries, 2, INT_MAX, 0.1, 1.0,
             {{500.0, 1, kAssigned | kLow | kMost}, {502.01565, 1, kAssigned}}}),
    [](const auto& info) { return std::string(info.param.name); });
// clang-format on

}  // namespace
}  // namespace qxpkutil
