// GaussFitPeakList: the Gaussian refinement of a peak table's centroids, alone and jointly
// for overlapping peaks.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "testing/QXTestPeaks.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

// A table peak with the given apex and bound indices, its centroid started `offset` off
// the apex x.
void AddPeak(QXPeakTable& t, const testing::Signal& s, std::uint32_t apex, std::uint32_t left,
             std::uint32_t right, double offset) {
  t.AddPeak(s.x[apex], s.y[apex], apex, s.x[left], s.y[left], left, s.x[right], s.y[right], right,
            s.x[apex] + offset, 0.0, 0.0, 0.0, 0.0, 0.0, 0);
}

TEST(GaussFitPeakList, RefinesSeparatePeaksAndKeepsCentresInBounds) {
  // Centres between grid points; sigma 0.07 gives a fitted width near the 0.1 start.
  const std::vector<testing::GaussPeak> truth = {{100.013, 900.0, 0.07}, {103.047, 400.0, 0.07}};
  testing::SignalOptions o;
  o.baseline = 10.0;
  o.noiseSigma = 3.0;
  const auto s = testing::MakeSignal(600, 99.0, 0.01, truth, o);
  QXPeakTable t;
  AddPeak(t, s, 405, 370, 440, 0.02);  // second peak added first: the fit sorts
  AddPeak(t, s, 101, 70, 130, -0.02);
  AddPeak(t, s, 250, 245, 255, 0.0);   // flat noise: its centre may only move within bounds
  AddPeak(t, s, 590, 580, 599, 0.01);
  t.GetPeak(-1)->m_nRightIndex = 600;   // reaches past the data: left alone
  QXNonLinFit::GaussFitPeakList(&t, s.x.data(), s.y.data(), 600);
  QXNonLinFit::GaussFitPeakList(&t, nullptr, s.y.data(), 600);  // no effect
  QXNonLinFit::GaussFitPeakList(nullptr, s.x.data(), s.y.data(), 600);
  ASSERT_EQ(t.GetNumPeaks(), 4);
  EXPECT_EQ(t.GetPeak(3)->m_dCentroidX, s.x[590] + 0.01);
  EXPECT_NEAR(t.GetPeak(0)->m_dCentroidX, truth[0].centre, 0.003);
  EXPECT_NEAR(t.GetPeak(2)->m_dCentroidX, truth[1].centre, 0.003);
  for (std::int32_t i = 0; i < t.GetNumPeaks(); ++i) {
    const QXPeakTableElement* p = t.GetPeak(i);
    EXPECT_TRUE(p->m_dCentroidX >= p->m_dLeftX && p->m_dCentroidX <= p->m_dRightX) << i;
  }
}

TEST(GaussFitPeakList, JointPassBeatsSinglePassOnOverlappingPeaks) {
  const std::vector<testing::GaussPeak> truth = {{50.0, 1000.0, 0.07}, {50.2, 700.0, 0.07}};
  const auto s = testing::MakeSignal(200, 49.0, 0.01, truth);
  // Bounds meet in the valley at index 111 (x = 50.11).
  const auto fitted = [&](std::vector<int> which) {
    QXPeakTable t;
    if (which[0]) AddPeak(t, s, 100, 75, 111, 0.0);
    if (which[1]) AddPeak(t, s, 120, 111, 145, 0.0);
    QXNonLinFit::GaussFitPeakList(&t, s.x.data(), s.y.data(), 200);
    return testing::EachPeak(t, [](const QXPeakTableElement& p) { return p.m_dCentroidX; });
  };
  const double aloneLeft = fitted({1, 0})[0], aloneRight = fitted({0, 1})[0];
  const std::vector<double> joint = fitted({1, 1});
  EXPECT_LT(std::fabs(joint[0] - truth[0].centre), std::fabs(aloneLeft - truth[0].centre));
  EXPECT_LT(std::fabs(joint[1] - truth[1].centre), std::fabs(aloneRight - truth[1].centre));
}

}  // namespace
}  // namespace qxpkutil
