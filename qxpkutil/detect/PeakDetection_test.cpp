#include "qxpkutil/detect/PeakDetection.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace qxpkutil {
namespace {

TEST(DetectPeaks, RefusesBadTraces) {
  const std::vector<double> x{1.0, 3.0, 2.0}, y{1.0, 2.0, 1.0};
  EXPECT_EQ(DetectPeaks(x, y).status, DetectStatus::kNotAscending);
  const std::vector<double> nan{1.0, NAN, 1.0};
  EXPECT_EQ(DetectPeaks(std::vector<double>{1, 2, 3}, nan).status, DetectStatus::kNotFinite);
  EXPECT_EQ(DetectPeaks(std::vector<double>{1, 2}, y).status, DetectStatus::kBadInput);
  EXPECT_TRUE(DetectPeaks(std::vector<double>{}, std::vector<double>{}).ok());
}

}  // namespace
}  // namespace qxpkutil
