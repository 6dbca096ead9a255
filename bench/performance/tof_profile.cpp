#include "bench/performance/tof_profile.h"

#include <algorithm>
#include <cmath>
#include <random>

namespace qxpkutil::bench {
namespace {

constexpr std::uint32_t kTilePoints = 1'000'000;
constexpr double kFirstRoot = 10.0;                        // sqrt of m/z 100
constexpr double kRootStep = (45.83 - kFirstRoot) / kTilePoints;  // up to m/z 2100
constexpr double kResolvingPower = 20000.0;
constexpr int kClusters = 3000;
constexpr int kIsotopes = 4;
constexpr double kIsotopeSpacing = 1.00335;

// One tile: m/z 100 to 2100, clusters at random places, heights spread over three decades.
void FillTile(std::vector<double>& x, std::vector<double>& y) {
  x.resize(kTilePoints);
  y.resize(kTilePoints);
  std::mt19937_64 rng(2026);
  std::normal_distribution<double> noise(0.0, 4.0);
  for (std::uint32_t i = 0; i < kTilePoints; ++i) {
    const double root = kFirstRoot + kRootStep * i;
    x[i] = root * root;
    y[i] = 20.0 + noise(rng);
  }
  std::uniform_real_distribution<double> where(x.front() + 1.0, x.back() - 5.0);
  std::uniform_real_distribution<double> decades(0.0, 3.0);
  std::uniform_int_distribution<int> charge(1, 3);
  for (int c = 0; c < kClusters; ++c) {
    const double mono = where(rng);
    const double top = 30.0 * std::pow(10.0, decades(rng));
    const int z = charge(rng);
    for (int k = 0; k < kIsotopes; ++k) {
      const double centre = mono + k * kIsotopeSpacing / z;
      const double height = top * std::pow(0.55, k);
      const double sigma = centre / kResolvingPower / 2.3548;
      const auto lo = std::lower_bound(x.begin(), x.end(), centre - 8.0 * sigma) - x.begin();
      const auto hi = std::upper_bound(x.begin(), x.end(), centre + 8.0 * sigma) - x.begin();
      for (auto i = lo; i < hi; ++i) {
        const double u = (x[i] - centre) / sigma;
        y[i] += height * std::exp(-0.5 * u * u);
      }
    }
  }
}

}  // namespace

Spectrum MakeTofSpectrum(std::uint32_t points) {
  std::vector<double> tx;
  std::vector<double> ty;
  FillTile(tx, ty);
  const std::uint32_t tiles = std::max<std::uint32_t>(1, (points + kTilePoints / 2) / kTilePoints);
  Spectrum s;
  s.x.reserve(static_cast<std::size_t>(tiles) * kTilePoints);
  s.y.reserve(s.x.capacity());
  const double shift = tx.back() - tx.front() + 1.0;
  for (std::uint32_t t = 0; t < tiles; ++t) {
    for (std::uint32_t i = 0; i < kTilePoints; ++i) s.x.push_back(tx[i] + t * shift);
    s.y.insert(s.y.end(), ty.begin(), ty.end());
  }
  s.yMax = *std::max_element(s.y.begin(), s.y.end());
  return s;
}

}  // namespace qxpkutil::bench
