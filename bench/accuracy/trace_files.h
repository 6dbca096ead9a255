// Files that let other programs run on the benchmark's traces and be scored the same way:
// each trace as two-column text (x<TAB>y) beside a TSV of its true peaks, and the reading
// of a found-peaks TSV (qxpeak's, or a peer's) for the scorer.
//
//   WriteTrace("out", set, trace, error);   // out/tof/tof1.txt and out/tof/tof1.truth.tsv
//   ReadTruth("out/tof/tof1.truth.tsv", truth, error);
//   ReadFound("tof1.found.tsv", found, error);
#pragma once

#include <string>
#include <vector>

#include "bench/accuracy/generator.h"
#include "bench/accuracy/scorer.h"

namespace qxpkutil::accuracy {

// Writes `dir`/<set>/<trace>.txt and `dir`/<set>/<trace>.truth.tsv, creating the folders.
// False with `error` set when a file cannot be written.
[[nodiscard]] bool WriteTrace(const std::string& dir, const TraceSet& set, const Trace& trace,
                              std::string& error);

// Writes `dir`/sets.tsv: each set's name, kind (spectrum or chromatogram) and description.
[[nodiscard]] bool WriteSetList(const std::string& dir, const std::vector<TraceSet>& sets,
                                std::string& error);

// Reads a truth TSV written by WriteTrace. False with `error` naming the file and line.
[[nodiscard]] bool ReadTruth(const std::string& path, std::vector<TruthPeak>& truth,
                             std::string& error);

// Reads found peaks from a TSV with a header line. The position is `centroid_x` where that
// column has a number, else `apex_x`; a centroid of exactly 0 beside a non-zero apex is
// the classic record's "not computed" and counts as none. `area`, `height`, `snr` (or
// `signal_to_noise`), `left_x`, `right_x` and `charge` are read when present. False when neither
// position column exists or a line is short.
[[nodiscard]] bool ReadFound(const std::string& path, std::vector<Detection>& found,
                             std::string& error);

}  // namespace qxpkutil::accuracy
