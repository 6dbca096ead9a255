#include "testing/QXTestSignals.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace qxpkutil::testing {

std::vector<double> MakeNoise(std::size_t n, double sigma, unsigned seed) {
  std::mt19937_64 rng(seed);
  std::normal_distribution<double> normal(0.0, sigma);
  std::vector<double> noise(n);
  for (double& v : noise) v = sigma > 0.0 ? normal(rng) : 0.0;
  return noise;
}

Signal MakeSignal(std::size_t n, double x0, double dx, const std::vector<GaussPeak>& peaks,
                  const SignalOptions& options) {
  Signal s;
  s.x.resize(n);
  s.y.resize(n);
  const std::vector<double> noise = MakeNoise(n, options.noiseSigma, options.seed);
  for (std::size_t i = 0; i < n; ++i) {
    const double x = x0 + static_cast<double>(i) * dx;
    double y = options.baseline + options.slope * (x - x0) + noise[i];
    for (const GaussPeak& p : peaks) {
      const double z = (x - p.centre) / p.sigma;
      if (std::fabs(z) < 40.0) y += p.height * std::exp(-0.5 * z * z);
    }
    s.x[i] = x;
    s.y[i] = y;
  }
  return s;
}

CountSignal ToCountFamily(const Signal& s) {
  CountSignal c;
  c.x.reserve(s.x.size());
  c.y.reserve(s.y.size());
  for (double x : s.x) c.x.push_back(static_cast<float>(x));
  for (double y : s.y) {
    const double r = std::clamp(std::round(y), 0.0, 4294967295.0);
    c.y.push_back(static_cast<std::uint32_t>(r));
  }
  return c;
}

Signal FromCountFamily(const CountSignal& c) {
  Signal s;
  s.x.assign(c.x.begin(), c.x.end());
  s.y.assign(c.y.begin(), c.y.end());
  return s;
}

}  // namespace qxpkutil::testing
