// Test-only mzML text builder: writes the variants a reader must handle (32/64-bit floats,
// zlib or not, spectra and chromatograms, an indexedmzML wrapper, wrong declared lengths)
// independently of the library's writer, so reader tests do not trust the code they test;
// and small peak lists for the writer's tests.
//
//   FixtureSpectrum s;  s.x = {100.0, 100.1};  s.y = {5.0, 7.0};  s.zlib = true;
//   std::string text = MakeMzml({s}, {}, /*indexed=*/true);
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qxpkutil/detect/PeakDetection.h"

namespace qxpkutil::testing {

struct FixtureSpectrum {
  std::vector<double> x;  // m/z, or time for a chromatogram
  std::vector<double> y;
  std::string id;   // empty: "scan=<position + 1>" ("TIC" for chromatograms)
  int ms_level = 1;  // 0: no MS level parameter
  bool centroided = false;
  double rt_minutes = -1.0;  // negative: no scan start time
  int bits = 64;            // 32 or 64-bit floats for both arrays
  bool zlib = false;
  std::optional<std::uint64_t> declared_length;  // defaultArrayLength; default x.size()
};

// A profile signal with peaks of heights 1000, 3000 and 2000 at `first`, `first + spacing`
// and `first + 2 spacing` (Gaussians of width `sigma`) on a baseline of 20 with white noise
// of sigma 1, sampled every `step` from `first - spacing / 2` to `first + 2.5 spacing`.
FixtureSpectrum ThreePeaks(double first, double spacing, double step, double sigma);

// An mzML 1.1 document holding `spectra` and `chromatograms`; `indexed` wraps it in
// <indexedmzML> with an index whose offsets are not meant to be right.
std::string MakeMzml(const std::vector<FixtureSpectrum>& spectra,
                     const std::vector<FixtureSpectrum>& chromatograms = {}, bool indexed = false);

// The base64 text of `values` as the fixture encodes them (for hand-made documents).
std::string EncodeArray(const std::vector<double>& values, int bits, bool zlib);

// Peaks at the given apexes, each three points wide (bounds at apex index -+ 1), centroid at
// the apex, area twice the height.
std::vector<Peak> PeaksAt(const std::vector<double>& apexX, const std::vector<double>& apexY);

// Writes `text` to a file under a temporary folder of this process (removed when it ends);
// returns its path.
std::string WriteTempFile(const std::string& name, const std::string& text);

}  // namespace qxpkutil::testing
