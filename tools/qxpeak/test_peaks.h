// Test-only peak lists for the tool's writers: Peak values at given apexes,
// each three points wide, centroid at the apex, area twice the height. The mzML builders
// of the library's test fixture are reachable through the same namespace.
//
//   TracePeaks peaks = testing::PeaksAt({500.0, 700.0}, {10.0, 20.0});
#pragma once

#include <cstdint>
#include <vector>

#include "qxpkutil/io/MzmlFixture.h"
#include "tools/qxpeak/run/detection.h"

namespace qxpkutil::qxpeak::testing {

using namespace qxpkutil::testing;

inline TracePeaks PeaksAt(const std::vector<double>& apexX, const std::vector<double>& apexY) {
  TracePeaks peaks;
  for (std::size_t i = 0; i < apexX.size(); ++i) {
    const auto index = static_cast<std::int32_t>(10 * i + 5);
    Peak p;
    p.apex_x = apexX[i];
    p.apex_y = apexY[i];
    p.apex_index = index;
    p.left_x = apexX[i] - 0.1;
    p.left_index = index - 1;
    p.right_x = apexX[i] + 0.1;
    p.right_index = index + 1;
    p.centroid_x = apexX[i];
    p.area = 2.0 * apexY[i];
    p.marks = 0x100;
    peaks.peaks.push_back(p);
  }
  return peaks;
}

}  // namespace qxpkutil::qxpeak::testing
