// The automatic mode: physical description -> segments -> classic driver -> measured peaks.
#include <algorithm>

#include "qxpkutil/detect/detect_internal.h"

namespace qxpkutil {

QXPeakTableList BuildAutomaticSegments(std::span<const double> x, std::span<const double> y,
                                       const DetectOptions& options) {
  (void)options;
  QXPeakTableList list;
  if (!ValidateTrace(x, y).ok() || x.empty()) return list;
  list.AddPeakTableToList();
  list.AddDetectionSetting(-1);
  list.SetDetectionSetting(0, 0.0, 0.0, 0.0, 0.0, 0, 5, 1, 0.0, 0.0, 2, 10000, 0, 0.0, 1, 50.0,
                           4, 40, 0.05, 0.99);
  return list;
}

PeakList DetectAutomatic(std::span<const double> x, std::span<const double> y,
                         const DetectOptions& options) {
  DetectOptions classic = options;
  classic.classic = BuildAutomaticSegments(x, y, options);
  if (classic.classic->GetNumDetectionSettings() == 0) return {};
  return DetectPeaks(x, y, classic);
}

}  // namespace qxpkutil
