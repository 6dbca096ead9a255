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
    s.x[i] = x0 + static_cast<double>(i) * dx;
    s.y[i] = options.baseline + options.slope * (s.x[i] - x0) + noise[i];
  }
  // Each peak is added only where it is not negligible (within 40 sigma).
  for (const GaussPeak& p : peaks) {
    const double reach = 40.0 * std::fabs(p.sigma);
    const double from = std::max(0.0, std::floor((p.centre - reach - x0) / dx));
    const double to = std::min(static_cast<double>(n), std::ceil((p.centre + reach - x0) / dx) + 1);
    for (std::size_t i = static_cast<std::size_t>(from); i < static_cast<std::size_t>(to); ++i) {
      const double z = (s.x[i] - p.centre) / p.sigma;
      if (std::fabs(z) < 40.0) s.y[i] += p.height * std::exp(-0.5 * z * z);
    }
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
