// The built-in input of 'qxpeak demo': a generated profile mass spectrum that looks like
// a real one (isotope series of charges 1 to 4 with their natural isotope patterns, a few
// lone peaks, a drifting baseline with white noise), so the tool can be seen at work without
// a file. Deterministic: the same spectrum on every machine.
//
//   Trace demo = MakeDemoSpectrum();           // about 200 000 points, m/z 400 to 1400
//   for (const DemoSeries& s : kDemoSeries) { ... }   // what a search should find
#pragma once

#include "qxpkutil/io/Trace.h"

namespace qxpkutil::qxpeak {

// One isotope series of the demo spectrum: its monoisotopic m/z, charge and the height of
// its most intense isotope.
struct DemoSeries {
  double monoisotopicMz;
  int charge;
  double height;
};

inline constexpr DemoSeries kDemoSeries[] = {
    {524.2649, 1, 9000.0},  {786.3466, 2, 16000.0},  {949.4715, 3, 7000.0},
    {1054.2812, 4, 5000.0}, {1106.5613, 2, 11000.0}, {1250.6020, 1, 4000.0},
};

Trace MakeDemoSpectrum();

}  // namespace qxpkutil::qxpeak
