// Scores found peaks against the true ones: one-to-one matching within half the true FWHM,
// then recall per S/N band, precision, F1, centroid, area, height and FWHM errors and charge
// accuracy, gathered per set and printed as a Markdown table with the targets.
//
//   SetScore score("tof");
//   score.Add(trace.truth, found, MatchPeaks(trace.truth, found));
//   std::cout << FormatTable({score});
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "bench/accuracy/generator.h"

namespace qxpkutil::accuracy {

inline constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

// A found peak as the scorer sees it; NaN where the finder did not say.
struct Detection {
  double x = 0.0;  // the centroid when there is one, else the apex
  double area = kUnknown;
  double height = kUnknown;
  double fwhm = kUnknown;
  double snr = kUnknown;
  double left = kUnknown;   // integration bounds
  double right = kUnknown;
  int charge = 0;
};

// For each true peak the found peak matched to it, and the reverse; -1 for none.
struct Matching {
  std::vector<std::int64_t> truthToFound;
  std::vector<std::int64_t> foundToTruth;
};

// Pairs a found and a true peak when they are at most 0.5 x the true FWHM apart, closest
// pairs first, each peak in at most one pair. Neither list needs to be sorted.
Matching MatchPeaks(const std::vector<TruthPeak>& truth, const std::vector<Detection>& found);

// The S/N bands recall is reported in: [3, 5), [5, 10), [10, 100), [100, inf).
inline constexpr std::array<double, 4> kBandFloor{3.0, 5.0, 10.0, 100.0};

// Counts over the traces of one set. A true peak that is optional counts neither as a
// miss when nothing matches it nor as a hit when something does, and the found peak
// matched to it is not a false positive.
struct SetScore {
  explicit SetScore(std::string setName = "") : name(std::move(setName)) {}
  void Add(const std::vector<TruthPeak>& truth, const std::vector<Detection>& found,
           const Matching& matching);
  void Merge(const SetScore& other);

  double Recall() const;
  double Precision() const;
  double F1() const;
  double BandRecall(std::size_t band) const;  // NaN when the band holds no peak
  double RecallFrom(std::size_t band) const;  // over this band and those above it

  std::string name;
  int traces = 0;
  std::int64_t required = 0;        // true peaks that are not optional
  std::int64_t detections = 0;      // every found peak
  std::int64_t hits = 0;            // required peaks matched
  std::int64_t falsePositives = 0;  // found peaks matched to no true peak
  std::array<std::int64_t, 4> bandRequired{}, bandHits{};
  std::vector<double> centroidErrors;  // |x found - x true| / FWHM, over the hits
  std::vector<double> areaErrors;      // |area found / area true - 1|, where found says
  std::vector<double> heightErrors;    // |height found / height true - 1|, where found says
  std::vector<double> fwhmErrors;      // |FWHM found / FWHM true - 1|, where found says
  std::int64_t chargeScored = 0, chargeRight = 0;
  // Hits whose bounds are known, and those whose bounds also hold another required peak.
  std::int64_t boundsKnown = 0, boundsOverTwo = 0;
};

double Median(std::vector<double> values);  // NaN for none

// The Markdown table, one row per set and one for all together, then mean and lowest F1
// and one PASS/FAIL line per target.
std::string FormatTable(const std::vector<SetScore>& sets);

// One line per missed required peak and per false positive, with the nearest counterpart.
std::string ListMistakes(const std::string& trace, const std::vector<TruthPeak>& truth,
                         const std::vector<Detection>& found, const Matching& matching);

}  // namespace qxpkutil::accuracy
