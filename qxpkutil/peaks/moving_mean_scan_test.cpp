// What the scan finds, and how each setting moves it, is pinned bit for bit by the
// reference comparison in settings/detection_reference_test.cpp; here, the input it refuses.
#include <gtest/gtest.h>

#include <limits>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::MakeSignal;
using testing::Signal;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The values the cases vary; the rest are fixed.
struct ScanArgs {
  int filterType = 0, filterWidth = 7, filterInc = 1, massProcessing = 0;
  double startX = 0.0;
};

std::int32_t Scan(QXPeakTable& t, const double* x, const double* y, std::uint32_t n,
                  const ScanArgs& a = {}) {
  return t.FindPeaks(x, y, n, 1.0, 50.0, a.filterType, a.filterWidth, a.filterInc, 0.0, 0, 1000,
                     0.0, 50.0, 1, a.massProcessing, 3, 4, 0.05, 2.0, 1, a.startX, 0.0, 0);
}

std::int32_t Scan(QXPeakTable& t, const Signal& s, const ScanArgs& a = {}) {
  return Scan(t, s.x.data(), s.y.data(), static_cast<std::uint32_t>(s.x.size()), a);
}

// Three separated peaks (x = 0..99.9, dx = 0.1) on a flat baseline of 10.
Signal ThreePeaks() {
  return MakeSignal(1000, 0.0, 0.1, {{20.0, 1000.0, 0.4}, {50.0, 600.0, 0.5}, {80.0, 300.0, 0.3}},
                    {.baseline = 10.0});
}

TEST(MovingMeanScan, HostileInputFailsCleanly) {
  QXPeakTable t;
  const Signal s = ThreePeaks();
  EXPECT_EQ(Scan(t, nullptr, s.y.data(), 10), -1);
  EXPECT_EQ(Scan(t, s.x.data(), s.y.data(), 0), -1);
  // Steps that would never advance, a window wider than the data, a NaN range: nothing found.
  for (const ScanArgs& a : {ScanArgs{.filterInc = 0}, ScanArgs{.filterInc = -3},
                            ScanArgs{.filterWidth = 5000}, ScanArgs{.startX = kNaN}}) {
    EXPECT_EQ(Scan(t, s, a), 0);
  }

  Signal bad = ThreePeaks();
  for (std::size_t i = 0; i < bad.y.size(); i += 37) bad.y[i] = kNaN;
  bad.y[500] = std::numeric_limits<double>::infinity();
  for (int filterType : {0, 1, 2}) {
    QXPeakTable u;
    EXPECT_GE(Scan(u, bad, {.filterType = filterType, .massProcessing = 1}), 0);
  }
}

}  // namespace
}  // namespace qxpkutil
