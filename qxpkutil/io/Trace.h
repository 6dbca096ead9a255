// One signal: a spectrum or chromatogram read from a file (or generated
// by the demo), with what the file says about it. Readers fill it, the detection step and
// every writer read it.
//
//   Trace t;  t.x = {400.0, 400.01};  t.y = {10.0, 12.0};   // x ascending, all finite
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace qxpkutil {

struct Trace {
  enum class Kind { kSpectrum, kChromatogram };
  Kind kind = Kind::kSpectrum;
  std::int32_t index = 0;        // position in the file's spectrum or chromatogram list
  std::string id;                // the file's id ("scan=12", "TIC"); empty for text input
  std::int64_t scan_number = -1;  // N of a "scan=N" id; -1 when there is none
  int ms_level = 0;               // 0 when the file does not say
  double rt = std::numeric_limits<double>::quiet_NaN();  // seconds; NaN: unknown
  bool centroided = false;  // the file declares the spectrum centroided
  std::vector<double> x;    // m/z or time, non-decreasing, finite
  std::vector<double> y;    // intensities, finite, as many as x
};

}  // namespace qxpkutil
