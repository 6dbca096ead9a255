#include <gtest/gtest.h>

#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"

namespace qxpkutil {
namespace {

class MassTable : public QXPeakTable {
 public:
  using QXPeakTable::ProcessMassPeak;
  // Adds a centroided peak whose apex sits at its centroid.
  void Add(double mz, double intensity) {
    AddPeak(mz, intensity, 0, 0, 0, 0, 0, 0, 0, mz, 0, 0, 0, 0, 0, 0);
  }
  const QXPeakTableElement& At(double mz) {
    return *GetPeak(GetPeakNearest(mz, 0));
  }
};

constexpr std::uint32_t kAssigned = kQXPeakChargeAssigned;
constexpr std::uint32_t kLow = kQXPeakSeriesLow;
constexpr std::uint32_t kMost = kQXPeakSeriesMostIntense;

struct Expect {
  double mz;
  int charge;
  std::uint32_t marks;  // beyond 0x100
};

void ExpectPeaks(MassTable& t, const std::vector<Expect>& expected) {
  for (const Expect& e : expected) {
    const QXPeakTableElement& p = t.At(e.mz);
    EXPECT_EQ(p.m_nCharge, e.charge) << e.mz;
    EXPECT_EQ(p.m_dwFlags, kQXPeakNormal | e.marks) << std::hex << e.mz;
  }
}

MassTable ThreePeakSeries() {
  MassTable t;
  t.Add(502.01565, 20);
  t.Add(500.0, 100);
  t.Add(501.007825, 60);
  return t;
}

TEST(ProcessMassPeak, ChargeOneSeriesTakesBothNeighbours) {
  MassTable t = ThreePeakSeries();
  t.ProcessMassPeak(2, 3, 0.1, 1.0);
  ExpectPeaks(t, {{500.0, 1, kAssigned | kLow | kMost},
                  {501.007825, 1, kAssigned},
                  {502.01565, 1, kAssigned}});
  EXPECT_EQ(t.GetSortMethod(), 0);
  EXPECT_EQ(t.GetPeak(0)->m_dApexX, 500.0);
}

TEST(ProcessMassPeak, RatioLimitSplitsTheSeries) {
  MassTable t = ThreePeakSeries();
  t.ProcessMassPeak(2, 3, 0.1, 0.5);
  ExpectPeaks(t, {{500.0, 0, kLow | kMost},
                  {501.007825, 1, kAssigned | kLow | kMost},
                  {502.01565, 1, kAssigned}});
}

TEST(ProcessMassPeak, DownwardWalkMarksTheLowestMember) {
  // The most intense peak sits in the middle of a charge-2 series.
  MassTable t;
  const double step = 1.007825 / 2;
  t.Add(800.0 - step, 50);
  t.Add(800.0, 100);
  t.Add(800.0 + step, 70);
  t.Add(800.0 + 2 * step, 30);
  t.ProcessMassPeak(3, 4, 0.2, 1.0);
  ExpectPeaks(t, {{800.0 - step, 2, kAssigned | kLow},
                  {800.0, 2, kAssigned | kMost},
                  {800.0 + step, 2, kAssigned},
                  {800.0 + 2 * step, 2, kAssigned}});
}

TEST(ProcessMassPeak, WalkEdgesAndLimits) {
  {  // One isotope: no neighbours searched; every peak marks itself.
    MassTable t = ThreePeakSeries();
    t.ProcessMassPeak(2, 1, 0.1, 1.0);
    ExpectPeaks(t, {{500.0, 0, kLow | kMost}, {501.007825, 0, kLow | kMost}});
  }
  {  // A neighbour at exactly dMinRatio times the previous intensity ends the walk.
    MassTable t;
    t.Add(500.0, 100);
    t.Add(501.007825, 25);
    t.ProcessMassPeak(1, 3, 0.25, 1.0);
    ExpectPeaks(t, {{500.0, 0, kLow | kMost}, {501.007825, 0, kLow | kMost}});
  }
  {  // Of four members, three isotopes charge only the first three appended (up, then down).
    MassTable t;
    t.Add(500.0, 100);
    t.Add(501.007825, 60);
    t.Add(502.01565, 30);
    t.Add(498.992175, 50);
    t.Add(497.98435, 20);
    t.ProcessMassPeak(1, 3, 0.1, 1.0);
    ExpectPeaks(t, {{500.0, 1, kAssigned | kMost},
                    {502.01565, 1, kAssigned},
                    {498.992175, 1, kAssigned},
                    {497.98435, 0, kLow | kMost}});
  }
  {  // Zero spacing never passes the whole-number charge check; empty tables are fine.
    MassTable t;
    t.Add(500.0, 100);
    t.AddPeak(500.5, 60, 0, 0, 0, 0, 0, 0, 0, 500.0, 0, 0, 0, 0, 0, 0);
    t.ProcessMassPeak(2, 3, 0.1, 1.0);
    EXPECT_EQ(t.At(500.0).m_nCharge, 0);
    MassTable empty;
    empty.ProcessMassPeak(3, 1000000, 0.1, 1.0);
    EXPECT_EQ(empty.GetNumPeaks(), 0);
  }
}

TEST(ProcessMassPeak, HugeIsotopeCountsAreSafe) {
  MassTable t = ThreePeakSeries();
  t.ProcessMassPeak(2, 2147483647, 0.1, 1.0);
  ExpectPeaks(t, {{500.0, 1, kAssigned | kLow | kMost}, {502.01565, 1, kAssigned}});
}

}  // namespace
}  // namespace qxpkutil
