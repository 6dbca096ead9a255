// Test-only peak lists for the tool's writers: the library fixture's peaks (each three points
// wide, centroid at the apex, area twice the height), marked as normal detected peaks. The
// mzML builders of the library's test fixture are reachable through the same namespace.
//
//   TracePeaks peaks = testing::PeaksAt({500.0, 700.0}, {10.0, 20.0});
#pragma once

#include <vector>

#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "tools/qxpeak/run/detection.h"

namespace qxpkutil::qxpeak::testing {

using namespace qxpkutil::testing;

inline TracePeaks PeaksAt(const std::vector<double>& apexX, const std::vector<double>& apexY) {
  TracePeaks peaks;
  peaks.peaks = qxpkutil::testing::PeaksAt(apexX, apexY);
  for (Peak& p : peaks.peaks) p.marks = kQXPeakNormal;
  return peaks;
}

}  // namespace qxpkutil::qxpeak::testing
