// Synthetic signals for tests and benchmarks: Gaussian peaks on a baseline with seeded
// noise, in both array families (double x / double y, float x / unsigned 32-bit y).
//
//   auto s = qxpkutil::testing::MakeSignal(1000, 0.0, 0.1,
//                                          {{50.0, 1000.0, 0.3}}, {.baseline = 10.0});
//   auto f = qxpkutil::testing::ToCountFamily(s);
#pragma once

#include <cstdint>
#include <vector>

namespace qxpkutil::testing {

struct GaussPeak {
  double centre;
  double height;
  double sigma;
};

struct SignalOptions {
  double baseline = 0.0;       // constant offset
  double slope = 0.0;          // baseline drift per unit of x
  double noiseSigma = 0.0;     // white Gaussian noise
  unsigned seed = 12345;       // noise seed
};

struct Signal {
  std::vector<double> x;
  std::vector<double> y;
};

struct CountSignal {
  std::vector<float> x;
  std::vector<std::uint32_t> y;
};

// n points at x = x0 + i*dx (dx > 0) carrying the given peaks, baseline and noise.
Signal MakeSignal(std::size_t n, double x0, double dx, const std::vector<GaussPeak>& peaks,
                  const SignalOptions& options = {});
// Seeded white Gaussian noise of standard deviation `sigma`.
std::vector<double> MakeNoise(std::size_t n, double sigma, unsigned seed);
// The float/unsigned family: x narrowed to float, y rounded and clamped to [0, 2^32-1].
CountSignal ToCountFamily(const Signal& s);
// The same values widened back to the double family (what the count family computes on).
Signal FromCountFamily(const CountSignal& s);

}  // namespace qxpkutil::testing
