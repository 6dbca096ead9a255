// Test-only peak tables for the tool's writers: a QXPeakTable with peaks at given apexes,
// each three points wide, centroid at the apex, area twice the height. The mzML builders
// of the library's test fixture are reachable through the same namespace.
//
//   TracePeaks peaks = testing::PeaksAt({500.0, 700.0}, {10.0, 20.0});
#pragma once

#include <cstdint>
#include <vector>

#include "qxpkutil/io/MzmlFixture.h"
#include "tools/qxpeak/detection.h"

namespace qxpkutil::qxpeak::testing {

using namespace qxpkutil::testing;

inline TracePeaks PeaksAt(const std::vector<double>& apexX, const std::vector<double>& apexY) {
  TracePeaks peaks;
  for (std::size_t i = 0; i < apexX.size(); ++i) {
    const auto index = static_cast<std::uint32_t>(10 * i + 5);
    peaks.table.AddPeak(apexX[i], apexY[i], index, apexX[i] - 0.1, 1.0, index - 1, apexX[i] + 0.1,
                        1.0, index + 1, apexX[i], 2.0 * apexY[i], apexX[i] - 0.05, apexY[i] / 2,
                        apexX[i] + 0.05, apexY[i] / 2, 0);
  }
  peaks.centroids = true;
  return peaks;
}

}  // namespace qxpkutil::qxpeak::testing
