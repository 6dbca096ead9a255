#include "bench/accuracy/scorer.h"

#include <gtest/gtest.h>

#include <vector>

#include "bench/accuracy/generator.h"

namespace qxpkutil::accuracy {
namespace {

TruthPeak At(double x, double fwhm = 1.0, double snr = 50.0) {
  TruthPeak p;
  p.x = x;
  p.fwhm = fwhm;
  p.height = p.snr = snr;
  p.area = p.integral = 1.0;
  return p;
}

Detection Found(double x) {
  Detection d;
  d.x = x;
  return d;
}

TEST(MatchPeaks, PairsEachPeakOnceClosestFirst) {
  // The farther detection comes first in the list and still loses the true peak.
  const Matching m = MatchPeaks({At(10.0)}, {Found(10.3), Found(10.1)});
  EXPECT_EQ(m.truthToFound, (std::vector<std::int64_t>{1}));
  EXPECT_EQ(m.foundToTruth, (std::vector<std::int64_t>{-1, 0}));
}

TEST(MatchPeaks, ToleranceIsHalfTheTrueFwhm) {
  struct Case {
    double fwhm, offset;
    bool matched;
  } const cases[] = {{1.0, 0.49, true}, {1.0, -0.49, true}, {1.0, 0.51, false},
                     {2.0, 0.99, true}, {2.0, -1.01, false}};
  for (const Case& c : cases) {
    const Matching m = MatchPeaks({At(100.0, c.fwhm)}, {Found(100.0 + c.offset)});
    EXPECT_EQ(m.truthToFound[0] == 0, c.matched) << c.fwhm << " " << c.offset;
  }
}

TEST(SetScore, OptionalPeaksAreNeitherHitsMissesNorFalsePositives) {
  std::vector<TruthPeak> truth{At(10.0), At(20.0), At(30.0, 1.0, 4.0), At(40.0)};
  truth[1].optional = truth[3].optional = true;
  const std::vector<Detection> found{Found(10.0), Found(20.2), Found(50.0)};
  SetScore s;
  s.Add(truth, found, MatchPeaks(truth, found));
  EXPECT_EQ(s.required, 2);
  EXPECT_EQ(s.hits, 1);
  EXPECT_EQ(s.falsePositives, 1);  // only the one at 50
  EXPECT_DOUBLE_EQ(s.Precision(), 0.5);
  EXPECT_EQ(s.bandRequired[0], 1);  // the missed S/N 4 peak
  EXPECT_EQ(s.bandHits[0], 0);
}

TEST(SetScore, CountsBoundsThatHoldAnotherRequiredPeak) {
  std::vector<TruthPeak> truth{At(10.0), At(12.0), At(14.0)};
  truth[2].optional = true;
  std::vector<Detection> found{Found(10.0), Found(12.0)};
  found[0].left = 9.0, found[0].right = 13.0;   // holds the required peak at 12
  found[1].left = 11.5, found[1].right = 15.0;  // holds only the optional one at 14
  SetScore s;
  s.Add(truth, found, MatchPeaks(truth, found));
  EXPECT_EQ(s.boundsKnown, 2);
  EXPECT_EQ(s.boundsOverTwo, 1);
}

TEST(FlagTruth, PeaksWithinOneFwhmAreUnresolvedUnlessTheNeighbourIsTiny) {
  struct Case {
    double gap, neighbourHeight;
    bool resolved;
  } const cases[] = {{0.9, 50.0, false}, {1.1, 50.0, true}, {0.9, 2.0, true}};
  for (const Case& c : cases) {
    std::vector<TruthPeak> truth{At(5.0 + c.gap), At(5.0)};
    truth[0].height = c.neighbourHeight;
    FlagTruth(truth);
    EXPECT_EQ(truth[0].x, 5.0);  // sorted by x
    EXPECT_EQ(truth[0].resolved, c.resolved) << c.gap;
    EXPECT_EQ(truth[0].optional, !c.resolved) << c.gap;
  }
}

TEST(MakeSets, SameSeedSameTracesAndAreasArePlainSums) {
  const std::vector<TraceSet> a = MakeSets(7, "sampling"), b = MakeSets(7, "sampling");
  ASSERT_EQ(a.size(), 1u);
  ASSERT_EQ(a[0].traces.size(), b[0].traces.size());
  for (std::size_t t = 0; t < a[0].traces.size(); ++t) {
    const Trace& trace = a[0].traces[t];
    EXPECT_EQ(trace.y, b[0].traces[t].y);
    // On an even grid a Gaussian's plain sum times the step is its integral.
    const double step = trace.x[1] - trace.x[0];
    for (const TruthPeak& p : trace.truth) EXPECT_NEAR(p.area * step / p.integral, 1.0, 1e-6);
  }
  EXPECT_NE(MakeSets(8, "sampling")[0].traces[0].y, a[0].traces[0].y);
}

}  // namespace
}  // namespace qxpkutil::accuracy
