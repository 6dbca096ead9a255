// Finds the peaks of a small built-in spectrum with the automatic mode and prints them.
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include <qxpkutil/qxpkutil.h>

int main() {
  std::mt19937 noise(42);
  std::vector<double> mz, intensity;
  for (int i = 0; i < 4000; ++i) {  // two isotopes of a 2+ ion at m/z 500, a baseline, noise
    mz.push_back(499.0 + 0.001 * i);
    const double a = (mz.back() - 500.0) / 0.004, b = (mz.back() - 500.50168) / 0.004;
    intensity.push_back(10.0 + 1000.0 * std::exp(-0.5 * a * a) + 600.0 * std::exp(-0.5 * b * b) +
                        noise() % 1000 / 250.0);
  }
  const qxpkutil::PeakList found = qxpkutil::DetectPeaks(mz, intensity);  // default options
  if (!found.ok()) return std::fprintf(stderr, "%s\n", found.message.c_str()), 1;
  for (const qxpkutil::Peak& p : found.peaks) {
    std::printf("m/z %.5f  height %.0f  S/N %.0f  FWHM %.4f  z=%d\n", p.centroid_x, p.height, p.snr,
                p.fwhm, p.charge);
  }
  return found.peaks.size() == 2 ? 0 : 1;
}
