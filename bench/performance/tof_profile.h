// The benchmark's TOF-like profile spectrum: points evenly spaced in flight time, so the m/z
// spacing grows with sqrt(m/z); isotope clusters of charge 1 to 3 whose width follows a
// resolving power of 20000; a baseline with white noise. Larger spectra repeat the
// one-million-point tile further up the m/z axis, so that every size has the same peaks per
// point and per-point costs compare.
//
//   const Spectrum s = MakeTofSpectrum(1'000'000);
//   list.FindPeaks(s.x.data(), s.y.data(), s.size(), s.yMax, 1.0, 0);
#pragma once

#include <cstdint>
#include <vector>

namespace qxpkutil::bench {

struct Spectrum {
  std::vector<double> x;
  std::vector<double> y;
  double yMax = 0.0;
  std::uint32_t size() const { return static_cast<std::uint32_t>(x.size()); }
};

// `points` is rounded to a whole number of one-million-point tiles (at least one); the
// same `points` always gives the same spectrum.
Spectrum MakeTofSpectrum(std::uint32_t points);

}  // namespace qxpkutil::bench
