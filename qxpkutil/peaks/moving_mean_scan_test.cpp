// What the scan finds, and how each setting moves it, is pinned bit for bit by the
// reference comparison in settings/detection_reference_test.cpp; here, the input it refuses,
// and the trial search's leaps, which that comparison meets too rarely.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/scan_internal.h"
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

// Intensities of the kinds the trial's leaps must get right: small integers full of ties,
// plateaus, zero runs under noise, noise on a level, sparse ones among zeros. Levels change
// now and then, so that long runs of falling and flat means appear.
enum class Floor { kTies, kPlateaus, kZeroRuns, kNoise, kSparse };
std::vector<double> LeapFloor(std::mt19937_64& rng, std::uint32_t n, Floor floor) {
  const auto pick = [&](int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); };
  std::vector<double> y(n);
  double level = 0.0;
  for (double& v : y) {
    if (pick(0, 50) == 0) level = pick(0, 3) * 3.0;
    switch (floor) {
      case Floor::kTies: v = pick(0, 3); break;
      case Floor::kPlateaus: v = level + pick(0, 2); break;
      case Floor::kZeroRuns: v = pick(0, 4) == 0 ? 0.0 : level + pick(0, 999) * 0.01; break;
      case Floor::kNoise: v = 20.0 + pick(-400, 400) * 0.01; break;
      case Floor::kSparse: v = pick(0, 2) == 0 ? pick(0, 1) : 0.0; break;
    }
  }
  return y;
}

// A trial search run beside the real one leaps over stretches whose peaks cannot beat its
// largest area so far; alone, it scans every step. Both must find the same largest area, on
// signals made to trip a wrong leap: long falls and flat or zero runs (where the scan's state
// is taken to be known), small integers full of ties, and peaks, narrow and wide, whose areas
// come close to the largest found before them, so that the bound only just lets a stretch go.
TEST(MovingMeanScan, TrialLeapsFindTheLargestArea) {
  std::mt19937_64 rng(16);
  int leapable = 0;
  for (int round = 0; round < 400; ++round) {
    const auto pick = [&](int lo, int hi) {
      return std::uniform_int_distribution<int>(lo, hi)(rng);
    };
    // Every tenth signal spans several blocks of the side-by-side pass's means.
    const auto n = static_cast<std::uint32_t>(round % 10 == 9 ? pick(70000, 140000)
                                                               : pick(2000, 24000));
    std::vector<double> x(n);
    double at = 100.0;
    const bool descending = round % 23 == 22;  // no leap: the line baseline needs ascending x
    for (std::uint32_t i = 0; i < n; ++i) {
      at += descending ? -0.01 : 0.005 + 0.01 * (pick(0, 3) == 0);
      x[i] = at;
    }
    const auto floor = static_cast<Floor>(round % 4);
    std::vector<double> y = LeapFloor(rng, n, floor);
    // Peaks of slowly growing heights: the largest area so far keeps rising, and each new
    // peak's stretch sums close to it.
    double height = pick(20, 200);
    for (int p = pick(2, 40); p > 0; --p) {
      const std::int64_t centre = pick(0, static_cast<int>(n) - 1);
      // Some wide: their candidates span many 64-point chunks, with cuts in the noise.
      const double width = pick(0, 4) == 0 ? pick(30, 150) : pick(2, 25);
      height *= 0.9 + pick(0, 40) * 0.01;
      for (std::int64_t k = std::max<std::int64_t>(0, centre - 5 * width);
           k < std::min<std::int64_t>(n, centre + 5 * width); ++k) {
        const double u = static_cast<double>(k - centre) / width;
        y[static_cast<std::size_t>(k)] += std::floor(height * std::exp(-0.5 * u * u));
      }
    }
    if (round % 29 == 28) y[static_cast<std::size_t>(pick(0, static_cast<int>(n) - 1))] = -1.0;
    const int width = pick(2, 22);
    // About half the rounds walk the bounds with a noise threshold, from far below the steps
    // between neighbouring means to far above them.
    const double noise = pick(0, 1) == 0 ? 0.0 : 0.002 * std::pow(10.0, pick(0, 8) * 0.5);
    const peaks_detail::ScanRequest trial{
        pick(0, 9) == 0 ? 0.25 : 1.0, round % 31 == 30 ? 0.5 : 0.0, pick(0, 1), width, 1, 0.0,
        pick(0, 3) == 0 ? pick(width, 80) : 10000, noise, pick(0, 3) == 0 ? 0 : 1, 0.0, 0.0};
    peaks_detail::ScanRequest beside = trial;
    beside.threshold = 30.0;
    beside.filterInc = pick(1, 2);
    leapable += floor == Floor::kNoise && !descending;

    const peaks_detail::SharedWindowMeans shared(y.data(), n);
    const peaks_detail::ScanSummary alone =
        peaks_detail::SummariseScan(x.data(), y.data(), n, trial, nullptr);
    const peaks_detail::ScanSummary leaping =
        peaks_detail::SummariseScan(x.data(), y.data(), n, trial, &beside);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(alone.largestArea),
              std::bit_cast<std::uint64_t>(leaping.largestArea))
        << "round " << round << ": " << alone.largestArea << " against " << leaping.largestArea;
    ASSERT_EQ(alone.found > 0, leaping.found > 0) << "round " << round;
  }
  EXPECT_GT(leapable, 50);
}

// Where a leap starts from is the full scan's state, on signals with long runs of
// falling, flat and zero means and the states around them: small integers, plateaus, zero
// runs and noise under peaks, with and without a noise threshold. The test above cannot see a
// wrong state that heals before the next peak that matters; this one compares the states.
TEST(MovingMeanScan, TrialLeapsLandOnTheFullScansPath) {
  std::mt19937_64 rng(11);
  std::int64_t runEnds = 0;
  std::int64_t peaks = 0;
  for (int round = 0; round < 240; ++round) {
    const auto pick = [&](int lo, int hi) {
      return std::uniform_int_distribution<int>(lo, hi)(rng);
    };
    const auto n = static_cast<std::uint32_t>(pick(2000, 12000));
    std::vector<double> x(n);
    for (std::uint32_t i = 0; i < n; ++i) x[i] = 100.0 + 0.01 * i;
    constexpr Floor kFloors[] = {Floor::kTies, Floor::kPlateaus, Floor::kZeroRuns, Floor::kSparse};
    std::vector<double> y = LeapFloor(rng, n, kFloors[round % 4]);
    for (int p = 0; p < 20; ++p) {
      const int centre = pick(0, static_cast<int>(n) - 1);
      const double width = pick(2, 20);
      const double height = pick(10, 210);
      for (int k = std::max(0, centre - 80); k < std::min(static_cast<int>(n), centre + 80); ++k) {
        const double u = (k - centre) / width;
        y[static_cast<std::size_t>(k)] += std::floor(height * std::exp(-0.5 * u * u));
      }
    }
    const double noise = round % 3 == 0 ? 0.0 : 0.001 * std::pow(10.0, pick(0, 8) * 0.5);
    const peaks_detail::ScanRequest trial{
        1.0, 0.0, pick(0, 1), pick(2, 16), 1, 0.0, 10000, noise, 1, 0.0, 0.0};
    std::int64_t checked = 0;
    ASSERT_EQ(peaks_detail::WrongRunExits(x.data(), y.data(), n, trial, checked), 0)
        << "round " << round;
    runEnds += checked;
    // The leaps bound a peak's area by runs of chunks that only hold the cuts near its ends.
    ASSERT_EQ(peaks_detail::CutsInsidePeaks(x.data(), y.data(), n, trial, checked), 0)
        << "round " << round;
    peaks += checked;
  }
  EXPECT_GT(runEnds, 4000);
  EXPECT_GT(peaks, 4000);
}

}  // namespace
}  // namespace qxpkutil
