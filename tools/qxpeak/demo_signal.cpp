#include "tools/qxpeak/demo_signal.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <utility>

namespace qxpkutil::qxpeak {

namespace {

constexpr double kFirstMz = 400.0;
constexpr double kLastMz = 1400.0;
constexpr double kStep = 0.005;               // m/z per point
constexpr double kResolvingPower = 20000.0;   // m / FWHM
constexpr double kIsotopeSpacing = 1.003355;  // 13C - 12C
constexpr double kProton = 1.007276;
constexpr int kIsotopes = 8;
constexpr double kNoiseSigma = 6.0;

// Relative isotope abundances of a peptide-like molecule of this mass: a Poisson law with
// one extra heavy isotope per 1800 Da or so ("averagine"), normalised to its largest term.
void IsotopePattern(double mass, double (&pattern)[kIsotopes]) {
  const double lambda = mass / 1800.0;
  double term = std::exp(-lambda), largest = 0.0;
  for (int k = 0; k < kIsotopes; ++k) {
    pattern[k] = term;
    largest = std::max(largest, term);
    term *= lambda / (k + 1);
  }
  for (double& p : pattern) p /= largest;
}

void AddGaussian(Trace& t, double centre, double height) {
  const double sigma = centre / kResolvingPower / (2.0 * std::sqrt(2.0 * std::numbers::ln2));
  const auto first =
      static_cast<std::int64_t>(std::floor((centre - 6.0 * sigma - kFirstMz) / kStep));
  const auto last = static_cast<std::int64_t>(std::ceil((centre + 6.0 * sigma - kFirstMz) / kStep));
  for (std::int64_t i = std::max<std::int64_t>(first, 0);
       i <= last && i < static_cast<std::int64_t>(t.x.size()); ++i) {
    const double z = (t.x[static_cast<std::size_t>(i)] - centre) / sigma;
    t.y[static_cast<std::size_t>(i)] += height * std::exp(-0.5 * z * z);
  }
}

}  // namespace

Trace MakeDemoSpectrum() {
  Trace t;
  t.id = "demo";
  t.ms_level = 1;
  t.rt = 754.2;
  const auto n = static_cast<std::size_t>(std::llround((kLastMz - kFirstMz) / kStep)) + 1;
  t.x.resize(n);
  t.y.resize(n);
  // The engine's output is fixed by the standard; the normal deviates are made here (Box-
  // Muller) because std::normal_distribution may differ between standard libraries.
  std::mt19937_64 engine(20240611);
  const auto uniform = [&engine] {
    return (static_cast<double>(engine() >> 11) + 0.5) * (1.0 / 9007199254740992.0);
  };
  for (std::size_t i = 0; i < n; ++i) {
    t.x[i] = kFirstMz + kStep * static_cast<double>(i);
    const double drift = 40.0 + 60.0 * std::exp(-(t.x[i] - kFirstMz) / 250.0);
    const double noise = kNoiseSigma * std::sqrt(-2.0 * std::log(uniform())) *
                         std::cos(2.0 * std::numbers::pi * uniform());
    t.y[i] = std::max(0.0, drift + noise);
  }
  for (const DemoSeries& s : kDemoSeries) {
    double pattern[kIsotopes];
    IsotopePattern((s.monoisotopicMz - kProton) * s.charge, pattern);
    for (int k = 0; k < kIsotopes; ++k) {
      if (pattern[k] < 0.02) continue;
      AddGaussian(t, s.monoisotopicMz + k * kIsotopeSpacing / s.charge, s.height * pattern[k]);
    }
  }
  // Lone peaks without isotopes, as contaminants or fragments would show.
  for (const auto& [mz, height] :
       {std::pair{445.1200, 2500.0}, std::pair{684.2040, 1800.0}, std::pair{1321.9000, 1200.0}}) {
    AddGaussian(t, mz, height);
  }
  return t;
}

}  // namespace qxpkutil::qxpeak
