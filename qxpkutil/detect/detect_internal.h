// Pieces of the modern entry point shared by its sources and tests; not installed.
#pragma once

#include <span>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"

namespace qxpkutil {

// kOk, or the first rule the trace breaks with a message naming the point.
PeakList ValidateSizes(std::size_t nx, std::size_t ny);
PeakList ValidateTrace(std::span<const double> x, std::span<const double> y);

// The record's fields as a Peak; the centroid only when the search computed one.
Peak PeakFromRecord(const QXPeakTableElement& record, bool centroid);
// Matches the options' labels (a copy) onto the table's peaks.
void MatchLabels(const DetectOptions& options, QXPeakTable& table, bool centroids);
// Height above the straight line between the bounds and FWHM from the half-height
// crossings, for peaks that do not have them yet.
void MeasurePeakShapes(std::span<const double> x, std::span<const double> y,
                       std::vector<Peak>& peaks);

// Labels and the calculator's S/N for peaks that did not come from a table: builds one
// with the peaks' values (centroids as centroids), matches and measures, copies back.
void FinishPeaks(std::span<const double> x, std::span<const double> y,
                 const DetectOptions& options, std::vector<Peak>& peaks);

// The automatic mode on a trace whose sizes passed ValidateSizes; it checks the values itself
// (as ValidateTrace), on the signal model's first pass over them.
PeakList DetectAutomatic(std::span<const double> x, std::span<const double> y,
                         const DetectOptions& options);

}  // namespace qxpkutil
