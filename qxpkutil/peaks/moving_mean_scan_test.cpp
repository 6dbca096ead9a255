// What the scan finds, and how each setting moves it, is pinned bit for bit by the
// reference comparison in settings/detection_reference_test.cpp; here, the input it refuses.
#include <gtest/gtest.h>

#include <limits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::MakeSignal;
using testing::Signal;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

struct ScanArgs {
  double threshold = 50.0;
  int filterType = 0;
  int filterWidth = 7;
  int filterInc = 1;
  double minArea = 0.0;
  int maxPeakWidth = 1000;
  double noiseThreshold = 0.0;
  double centroidPct = 50.0;
  int integration = 1;
  int massProcessing = 0;
  int finish = 1;
  double startX = 0.0;
  double endX = 0.0;
};

std::int32_t Scan(QXPeakTable& t, const double* x, const double* y, std::uint32_t n,
                  const ScanArgs& a = {}) {
  return t.FindPeaks(x, y, n, 1.0, a.threshold, a.filterType, a.filterWidth, a.filterInc,
                     a.minArea, 0, a.maxPeakWidth, a.noiseThreshold, a.centroidPct, a.integration,
                     a.massProcessing, 3, 4, 0.05, 2.0, a.finish, a.startX, a.endX, 0);
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
