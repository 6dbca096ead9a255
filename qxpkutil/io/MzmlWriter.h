// Centroided mzML output: each searched spectrum (or chromatogram) keeps its metadata and
// gets its peaks in place of its arrays, so the result can feed tools that expect
// centroided data. The document records the step: a software entry for qxpeak and a
// data-processing entry ("peak picking") carrying the settings, referenced by every
// element that was replaced. Built on the mzML reader's document (pugixml).
//
//   std::string text;
//   if (!FormatCentroidedMzml(run, peaks, {"0.1.0", "RelThreshold=1"}, text, error)) { ... }
#pragma once

#include <string>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/io/MzmlReader.h"
#include "qxpkutil/io/Trace.h"

namespace qxpkutil {

// What the data-processing entry says about the search.
struct ProcessingRecord {
  std::string version;   // qxpeak's version
  std::string settings;  // the effective settings, one line of text
};

// Writes `run`'s document with the arrays of every trace of the run replaced by the
// trace's peaks: x is the centroid, or the apex x where no centroid was measured (NaN); y is
// the apex intensity; both 64-bit floats, uncompressed. Spectra are marked "centroid spectrum"
// (a referenced parameter group that says profile or centroid is copied into the spectrum
// first, so other spectra sharing it keep it). Elements that were not selected are left as
// they were. An indexedmzML wrapper is dropped: its offsets would no longer hold. Changes
// `run`'s document. False with a message when `peaks` does not match the run's traces.
[[nodiscard]] bool FormatCentroidedMzml(MzmlRun& run, const std::vector<std::vector<Peak>>& peaks,
                                        const ProcessingRecord& record, std::string& out,
                                        std::string& error);

// The same for traces that did not come from an mzML file: a minimal mzML 1.1 document is
// built around them, naming `sourceName` as the source file.
[[nodiscard]] bool FormatCentroidedMzml(const std::string& sourceName,
                                        const std::vector<Trace>& traces,
                                        const std::vector<std::vector<Peak>>& peaks,
                                        const ProcessingRecord& record, std::string& out,
                                        std::string& error);

}  // namespace qxpkutil
