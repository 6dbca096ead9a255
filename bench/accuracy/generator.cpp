#include "bench/accuracy/generator.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <numeric>

namespace qxpkutil::accuracy {

namespace {

constexpr double kIsotopeSpacing = 1.00336;  // Da between isotope peaks, 13C - 12C on average
constexpr double kProton = 1.007276;
const double kFwhmPerSigma = 2.0 * std::sqrt(2.0 * std::numbers::ln2);

// ---------------------------------------------------------------------------------------
// Peak shapes. Each has unit area; `scale` turns it into the planned height.

struct Shape {
  double mu = 0.0;
  double sigma = 1.0;
  double tau = 0.0;  // exponential tail time constant; 0 for a Gaussian
};

// exp(z^2) erfc(z) without overflow; the asymptotic series is good to 1e-7 beyond z = 5.
double Erfcx(double z) {
  if (z < 5.0) return std::exp(z * z) * std::erfc(z);
  const double r = 1.0 / (z * z);
  return (1.0 - 0.5 * r + 0.75 * r * r - 1.875 * r * r * r) / (z * std::sqrt(std::numbers::pi));
}

double Profile(const Shape& s, double x) {
  const double d = x - s.mu;
  if (s.tau <= 0.0) {
    const double z = d / s.sigma;
    return std::exp(-0.5 * z * z) / (s.sigma * std::sqrt(2.0 * std::numbers::pi));
  }
  // Exponentially modified Gaussian in the form that neither overflows nor underflows early:
  // exp(s^2/2t^2 - d/t) erfc(z) / 2t, with exp(...) erfc(z) = exp(-d^2/2s^2) erfcx(z).
  const double z = (s.sigma / s.tau - d / s.sigma) / std::numbers::sqrt2;
  if (z >= 0.0) return std::exp(-0.5 * d * d / (s.sigma * s.sigma)) * Erfcx(z) / (2.0 * s.tau);
  const double e = 0.5 * s.sigma * s.sigma / (s.tau * s.tau) - d / s.tau;
  return std::exp(e) * std::erfc(z) / (2.0 * s.tau);
}

// Where the profile reaches its maximum: the mean for a Gaussian, found by golden-section
// search between the mean and mean + tau + sigma for a tailing peak (the shape is unimodal).
double Apex(const Shape& s) {
  if (s.tau <= 0.0) return s.mu;
  double a = s.mu, b = s.mu + s.tau + s.sigma;
  const double g = 0.5 * (std::sqrt(5.0) - 1.0);
  double c = b - g * (b - a), d = a + g * (b - a);
  double fc = Profile(s, c), fd = Profile(s, d);
  for (int i = 0; i < 200 && b - a > 1e-12 * s.sigma; ++i) {
    if (fc > fd) {
      b = d, d = c, fd = fc;
      c = b - g * (b - a), fc = Profile(s, c);
    } else {
      a = c, c = d, fc = fd;
      d = a + g * (b - a), fd = Profile(s, d);
    }
  }
  return 0.5 * (a + b);
}

// x between `inside` (profile above `level`) and `outside` (below) where it equals `level`.
double Crossing(const Shape& s, double inside, double outside, double level) {
  for (int i = 0; i < 200 && std::fabs(outside - inside) > 1e-12 * s.sigma; ++i) {
    const double m = 0.5 * (inside + outside);
    (Profile(s, m) > level ? inside : outside) = m;
  }
  return 0.5 * (inside + outside);
}

double Fwhm(const Shape& s, double apex) {
  if (s.tau <= 0.0) return kFwhmPerSigma * s.sigma;
  const double half = 0.5 * Profile(s, apex);
  return Crossing(s, apex, apex + 10.0 * s.sigma + 40.0 * s.tau, half) -
         Crossing(s, apex, apex - 10.0 * s.sigma, half);
}

// ---------------------------------------------------------------------------------------
// A trace: its sampling grid, baseline and noise model, and the peaks planned on it.

struct Model {
  std::function<double(double)> baseline = [](double) { return 0.0; };
  std::function<double(double)> white = [](double) { return 1.0; };  // white noise SD
  double gain = 0.0;  // shot noise: counts of `gain` each, Poisson-distributed
  // Noise SD where only the baseline is: what a peak's S/N is measured against.
  double BaselineNoise(double x) const {
    const double w = white(x);
    return std::sqrt(w * w + gain * std::max(0.0, baseline(x)));
  }
};

struct Planned {
  Shape shape;
  double height = 0.0;
  int charge = 0;
  int envelope = -1;
  int isotope = 0;
};

// Renders the planned peaks onto `x` and records their truth, then adds the baseline and
// the noise. Each peak is evaluated only where it is not negligible.
Trace Render(std::string name, std::vector<double> x, const std::vector<Planned>& plan,
             const Model& model, Random& random) {
  Trace t;
  t.name = std::move(name);
  std::vector<double> signal(x.size(), 0.0);
  std::vector<int> envelope, isotope;
  for (const Planned& p : plan) {
    const Shape& s = p.shape;
    const double apex = Apex(s);
    const double scale = p.height / Profile(s, apex);  // the integral, as the shape has unit area
    const double from = s.mu - 10.0 * s.sigma;
    const double to = s.mu + 10.0 * s.sigma + 40.0 * s.tau;
    auto i = static_cast<std::size_t>(std::lower_bound(x.begin(), x.end(), from) - x.begin());
    double area = 0.0;
    for (; i < x.size() && x[i] <= to; ++i) {
      const double v = scale * Profile(s, x[i]);
      signal[i] += v;
      area += v;
    }
    TruthPeak truth;
    truth.x = apex;
    truth.height = p.height;
    truth.area = area;
    truth.integral = scale;
    truth.fwhm = Fwhm(s, apex);
    truth.charge = p.charge;
    truth.snr = p.height / model.BaselineNoise(apex);
    t.truth.push_back(truth);
    envelope.push_back(p.envelope);
    isotope.push_back(p.isotope);
  }
  t.y.resize(x.size());
  for (std::size_t i = 0; i < x.size(); ++i) {
    const double clean = model.baseline(x[i]) + signal[i];
    double shot = 0.0;
    if (model.gain > 0.0 && clean > 0.0) {
      shot = model.gain * random.Poisson(clean / model.gain) - clean;
    }
    t.y[i] = clean + shot + model.white(x[i]) * random.Normal();
  }
  t.x = std::move(x);
  FlagTruth(t.truth, envelope, isotope);
  return t;
}

std::vector<double> UniformGrid(double lo, double hi, double step) {
  std::vector<double> x;
  const auto n = static_cast<std::size_t>(std::floor((hi - lo) / step)) + 1;
  x.reserve(n);
  for (std::size_t i = 0; i < n; ++i) x.push_back(lo + static_cast<double>(i) * step);
  return x;
}

// A TOF samples evenly in flight time, which goes as sqrt(m/z).
std::vector<double> TofGrid(double lo, double hi, double step) {
  std::vector<double> x = UniformGrid(std::sqrt(lo), std::sqrt(hi), step);
  for (double& v : x) v *= v;
  return x;
}

// An Orbitrap samples evenly in frequency, which goes as 1/sqrt(m/z).
std::vector<double> OrbitrapGrid(double lo, double hi, double step) {
  std::vector<double> x = UniformGrid(1.0 / std::sqrt(hi), 1.0 / std::sqrt(lo), step);
  for (double& v : x) v = 1.0 / (v * v);
  std::reverse(x.begin(), x.end());
  return x;
}

// Isotope envelopes with averagine abundances: the isotope distribution of a peptide of
// monoisotopic mass M is close to Poisson with mean 0.000594 M. The most abundant isotope
// gets an S/N drawn log-uniformly from [snrLo, snrHi]; the others scale with abundance.
void PlanEnvelopes(Random& random, int count, double lo, double hi,
                   const std::function<double(double)>& fwhmAt, const Model& model,
                   double snrLo, double snrHi, std::vector<Planned>& plan) {
  for (int e = 0; e < count; ++e) {
    const int z = random.Integer(1, 4);
    const double mono = random.Uniform(lo + 1.0, hi - 6.0);
    const double lambda = 0.000594 * z * (mono - kProton);
    std::vector<double> abundance;
    double a = std::exp(-lambda), most = 0.0;
    for (int k = 0; k < 20; ++k) {
      abundance.push_back(a);
      most = std::max(most, a);
      if (k >= lambda && a < 1e-3 * most) break;
      a *= lambda / (k + 1);
    }
    const auto top = std::max_element(abundance.begin(), abundance.end()) - abundance.begin();
    const double topX = mono + static_cast<double>(top) * kIsotopeSpacing / z;
    const double topHeight = random.LogUniform(snrLo, snrHi) * model.BaselineNoise(topX);
    for (std::size_t k = 0; k < abundance.size(); ++k) {
      const double xk = mono + static_cast<double>(k) * kIsotopeSpacing / z;
      if (xk > hi) break;
      Planned p;
      p.shape.mu = xk;
      p.shape.sigma = fwhmAt(xk) / kFwhmPerSigma;
      p.height = topHeight * abundance[k] / abundance[static_cast<std::size_t>(top)];
      p.charge = z;
      p.envelope = e;
      p.isotope = static_cast<int>(k);
      plan.push_back(p);
    }
  }
}

// Isolated Gaussian peaks of one FWHM, about `spacing` FWHM apart, starting at `x0`, with
// S/N from `snr` (called once per peak).
std::vector<Planned> PlanIsolated(Random& random, int count, double x0, double fwhm,
                                  double spacing, const Model& model,
                                  const std::function<double()>& snr) {
  std::vector<Planned> plan;
  for (int i = 0; i < count; ++i) {
    Planned p;
    p.shape.mu = x0 + (static_cast<double>(i + 1) + random.Uniform(-0.2, 0.2)) * spacing * fwhm;
    p.shape.sigma = fwhm / kFwhmPerSigma;
    p.height = snr() * model.BaselineNoise(p.shape.mu);
    plan.push_back(p);
  }
  return plan;
}

// A position in [lo, hi] at least `separation` x the larger width away from every planned
// peak (widths taken as FWHM + tail), so that drawn peaks are resolved; the last draw after
// 100 tries otherwise.
double FreePosition(Random& random, double lo, double hi, double width, double separation,
                    const std::vector<Planned>& plan) {
  double x = lo;
  for (int attempt = 0; attempt < 100; ++attempt) {
    x = random.Uniform(lo, hi);
    bool free = true;
    for (const Planned& p : plan) {
      const double other = kFwhmPerSigma * p.shape.sigma + p.shape.tau;
      free = free && std::fabs(x - p.shape.mu) >= separation * std::max(width, other);
    }
    if (free) break;
  }
  return x;
}

// A smooth curve of a few cosines over [0, length], its range scaled to `amplitude`.
std::function<double(double)> SmoothDrift(Random& random, double length, double level,
                                          double amplitude) {
  double a[3], phase[3];
  for (int k = 0; k < 3; ++k) {
    a[k] = random.Uniform(0.2, 1.0) / (k + 1);
    phase[k] = random.Uniform(0.0, 2.0 * std::numbers::pi);
  }
  const double norm = a[0] + a[1] + a[2];
  return [=](double x) {
    double v = 0.0;
    for (int k = 0; k < 3; ++k) {
      v += a[k] * std::cos((k + 1) * std::numbers::pi * x / length + phase[k]);
    }
    return level + 0.5 * amplitude * v / norm;
  };
}

std::string Numbered(const char* stem, int i) { return stem + std::to_string(i + 1); }

// ---------------------------------------------------------------------------------------
// The sets.

TraceSet Tof(Random& random) {
  TraceSet set{"tof", false,
               "isotope envelopes (z 1-4), m/z 200-2000, resolving power 15000, even in "
               "sqrt(m/z) (5 points per FWHM at m/z 200, 16 at 2000), white + shot noise",
               {}};
  const double resolution = 15000.0;
  auto fwhmAt = [=](double mz) { return mz / resolution; };
  for (int i = 0; i < 2; ++i) {
    Model model;
    model.baseline = [](double) { return 20.0; };
    model.white = [](double) { return 3.0; };
    model.gain = 1.0;
    std::vector<Planned> plan;
    PlanEnvelopes(random, 200, 200.0, 2000.0, fwhmAt, model, 3.0, 1000.0, plan);
    const double step = std::sqrt(200.0) / (2.0 * resolution) / 5.0;
    set.traces.push_back(
        Render(Numbered("tof", i), TofGrid(200.0, 2000.0, step), plan, model, random));
  }
  return set;
}

// Orbitrap width law: resolving power 60000 at m/z 200 falling as 1/sqrt(m/z).
double OrbitrapFwhm(double mz) { return mz * std::sqrt(mz / 200.0) / 60000.0; }

// Windows of an Orbitrap-like range sampled evenly in 1/sqrt(m/z), so the points per FWHM
// are the same across a window (drawn from 6-12 per window); noise grows with m/z.
// `whiteSd`, when given, receives each window's white noise SD at m/z 0.
std::vector<Trace> OrbitrapTraces(Random& random, const char* stem,
                                  const std::vector<std::pair<double, double>>& windows,
                                  std::vector<double>* whiteSd = nullptr) {
  std::vector<Trace> traces;
  for (std::size_t w = 0; w < windows.size(); ++w) {
    const auto [lo, hi] = windows[w];
    Model model;
    const double sd = random.Uniform(2.0, 5.0);
    if (whiteSd) whiteSd->push_back(sd);
    model.white = [=](double mz) { return sd * (1.0 + mz / 500.0); };
    std::vector<Planned> plan;
    PlanEnvelopes(random, static_cast<int>(0.2 * (hi - lo)), lo, hi, OrbitrapFwhm, model, 3.0,
                  1000.0, plan);
    // In 1/sqrt(m/z) the FWHM is the same everywhere: d(m^-1/2) = m^-3/2 dm / 2.
    const double fwhmU = 0.5 * OrbitrapFwhm(lo) / (lo * std::sqrt(lo));
    const double pointsPerFwhm = random.Uniform(6.0, 12.0);
    traces.push_back(Render(Numbered(stem, static_cast<int>(w)),
                            OrbitrapGrid(lo, hi, fwhmU / pointsPerFwhm), plan, model, random));
  }
  return traces;
}

TraceSet Orbitrap(Random& random) {
  TraceSet set{"orbitrap", false,
               "isotope envelopes (z 1-4), m/z 200-2000 in four windows, resolving power "
               "60000 at m/z 200 falling as 1/sqrt(m/z), 6-12 points per FWHM, noise growing "
               "with m/z",
               {}};
  set.traces = OrbitrapTraces(random, "orbitrap",
                              {{200.0, 400.0}, {400.0, 800.0}, {800.0, 1400.0}, {1400.0, 2000.0}});
  return set;
}

TraceSet Sampling(Random& random) {
  TraceSet set{"sampling", false,
               "isolated Gaussian peaks at 4, 6, 10, 20 and 30 points per FWHM, S/N 10-100", {}};
  for (const int ppf : {4, 6, 10, 20, 30}) {
    for (int i = 0; i < 2; ++i) {
      Model model;
      model.baseline = [](double) { return 10.0; };
      model.white = [](double) { return 2.0; };
      const double fwhm = random.LogUniform(0.01, 0.2);
      const double x0 = random.Uniform(200.0, 1000.0);
      auto plan = PlanIsolated(random, 50, x0, fwhm, 12.0, model,
                               [&] { return random.LogUniform(10.0, 100.0); });
      auto x = UniformGrid(x0, x0 + 52.0 * 12.0 * fwhm, fwhm / ppf);
      set.traces.push_back(Render("ppf" + std::to_string(ppf) + (i ? "b" : "a"), std::move(x),
                                  plan, model, random));
    }
  }
  return set;
}

TraceSet SnrLadder(Random& random) {
  TraceSet set{"snr_ladder", false,
               "isolated Gaussian peaks at S/N 3, 4, 5, 7, 10, 20, 50, 100, 300 and 1000 "
               "(40 of each), about 10 points per FWHM",
               {}};
  const double levels[] = {3, 4, 5, 7, 10, 20, 50, 100, 300, 1000};
  for (int i = 0; i < 4; ++i) {
    std::vector<double> snr;
    for (const double level : levels) snr.insert(snr.end(), 10, level);
    // A seeded Fisher-Yates shuffle, so the order is the same everywhere.
    for (std::size_t k = snr.size() - 1; k > 0; --k) {
      std::swap(snr[k], snr[static_cast<std::size_t>(random.Integer(0, static_cast<int>(k)))]);
    }
    Model model;
    model.baseline = [](double) { return 10.0; };
    model.white = [](double) { return 2.0; };
    const double fwhm = random.LogUniform(0.01, 0.2);
    const double x0 = random.Uniform(200.0, 1000.0);
    std::size_t next = 0;
    auto plan = PlanIsolated(random, static_cast<int>(snr.size()), x0, fwhm, 12.0, model,
                             [&] { return snr[next++]; });
    auto x = UniformGrid(x0, x0 + (snr.size() + 2.0) * 12.0 * fwhm,
                         fwhm / random.Uniform(9.0, 11.0));
    set.traces.push_back(Render(Numbered("ladder", i), std::move(x), plan, model, random));
  }
  return set;
}

TraceSet Chromatogram(Random& random) {
  TraceSet set{"chromatogram", true,
               "20-minute LC traces, FWHM 3-15 s, 2-5 Hz, Gaussian and tailing peaks (tail up "
               "to 1 FWHM) at least 1.2 widths apart, drifting baseline, white + shot noise, "
               "S/N 3-1000",
               {}};
  const double length = 1200.0;
  for (int i = 0; i < 12; ++i) {
    Model model;
    model.white = [](double) { return 5.0; };
    model.gain = 0.5;
    const double noise = std::sqrt(25.0 + 0.5 * 100.0);
    model.baseline = SmoothDrift(random, length, 100.0, random.Uniform(3.0, 8.0) * noise);
    const double fwhm = random.Uniform(3.0, 15.0);
    std::vector<Planned> plan;
    // As many peaks as leave room between them: 40 narrow ones, fewer wide ones.
    const int count = std::clamp(static_cast<int>(length / (4.0 * fwhm)), 15, 40);
    for (int k = 0; k < count; ++k) {
      Planned p;
      const double f = fwhm * random.Uniform(0.8, 1.25);
      p.shape.sigma = f / kFwhmPerSigma;
      if (random.Uniform() < 0.5) p.shape.tau = random.Uniform(0.1, 1.0) * f;
      p.shape.mu = FreePosition(random, 40.0, length - 80.0, f + p.shape.tau, 1.2, plan);
      p.height = random.LogUniform(3.0, 1000.0) * model.BaselineNoise(p.shape.mu);
      plan.push_back(p);
    }
    const double hz = random.Uniform(2.0, 5.0);
    set.traces.push_back(
        Render(Numbered("lc", i), UniformGrid(0.0, length, 1.0 / hz), plan, model, random));
  }
  return set;
}

TraceSet Srm(Random& random) {
  TraceSet set{"srm", true,
               "SRM chromatograms of 175 points with 3-5 peaks at least 1.2 FWHM apart (FWHM "
               "2.5-5 s, 0.3-0.6 s sampling), small baseline, white noise, S/N 3-300",
               {}};
  for (int i = 0; i < 80; ++i) {
    const double step = random.Uniform(0.3, 0.6);
    const double length = 174.0 * step;
    Model model;
    const double level = random.Uniform(0.0, 30.0), slope = random.Uniform(-0.2, 0.2);
    model.baseline = [=](double t) { return level + slope * t; };
    model.white = [](double) { return 10.0; };
    std::vector<Planned> plan;
    const int count = random.Integer(3, 5);
    for (int k = 0; k < count; ++k) {
      Planned p;
      const double f = random.Uniform(2.5, 5.0);
      p.shape.sigma = f / kFwhmPerSigma;
      p.shape.mu = FreePosition(random, 0.1 * length, 0.9 * length, f, 1.2, plan);
      p.height = random.LogUniform(3.0, 300.0) * model.BaselineNoise(p.shape.mu);
      plan.push_back(p);
    }
    set.traces.push_back(
        Render(Numbered("srm", i), UniformGrid(0.0, length, step), plan, model, random));
  }
  return set;
}

// Keeps the points above `threshold`; with `zeroFill` one point on either side of each run
// of kept points stays too, set to zero, and the rest is dropped (leaving x gaps).
void Threshold(Trace& t, const std::function<double(double)>& threshold, bool zeroFill) {
  const std::size_t n = t.x.size();
  std::vector<char> keep(n, 0);
  for (std::size_t i = 0; i < n; ++i) keep[i] = t.y[i] > threshold(t.x[i]);
  std::vector<double> x, y;
  for (std::size_t i = 0; i < n; ++i) {
    const bool edge =
        zeroFill && !keep[i] && ((i > 0 && keep[i - 1]) || (i + 1 < n && keep[i + 1]));
    if (keep[i] || edge) {
      x.push_back(t.x[i]);
      y.push_back(keep[i] ? t.y[i] : 0.0);
    }
  }
  t.x = std::move(x);
  t.y = std::move(y);
}

TraceSet ZeroFilled(Random& random) {
  TraceSet set{"zero_filled", false,
               "Orbitrap-like windows stored only above a threshold of 2 noise SD: traces 1 "
               "and 3 zero-filled (one zero on either side of each stored run), 2 and 4 with "
               "x gaps",
               {}};
  std::vector<double> whiteSd;
  set.traces = OrbitrapTraces(random, "stored",
                              {{300.0, 500.0}, {500.0, 800.0}, {800.0, 1200.0}, {1200.0, 1800.0}},
                              &whiteSd);
  for (std::size_t i = 0; i < set.traces.size(); ++i) {
    Trace& t = set.traces[i];
    const bool zeroFill = i % 2 == 0;
    t.name = (zeroFill ? "zerofill" : "gaps") + std::to_string(i + 1);
    const double sd = whiteSd[i];
    Threshold(t, [=](double mz) { return 2.0 * sd * (1.0 + mz / 500.0); }, zeroFill);
  }
  return set;
}

TraceSet BaselineDrift(Random& random) {
  TraceSet set{"baseline_drift", false,
               "isotope envelopes (z 1-4), m/z 400-1400, resolving power 10000, on a baseline "
               "falling by 100-300 noise SD with a broad hump, white + shot noise",
               {}};
  const double resolution = 10000.0;
  auto fwhmAt = [=](double mz) { return mz / resolution; };
  for (int i = 0; i < 3; ++i) {
    Model model;
    const double fall = random.Uniform(100.0, 300.0) * 3.0;
    const double hump = random.Uniform(30.0, 100.0) * 3.0, centre = random.Uniform(600.0, 1200.0);
    model.baseline = [=](double mz) {
      const double u = (1400.0 - mz) / 1000.0, h = (mz - centre) / 100.0;
      return 20.0 + fall * u * u + hump * std::exp(-0.5 * h * h);
    };
    model.white = [](double) { return 3.0; };
    model.gain = 0.2;
    std::vector<Planned> plan;
    PlanEnvelopes(random, 60, 400.0, 1400.0, fwhmAt, model, 3.0, 1000.0, plan);
    set.traces.push_back(Render(Numbered("drift", i), UniformGrid(400.0, 1400.0, 0.01), plan,
                                model, random));
  }
  return set;
}

}  // namespace

// ---------------------------------------------------------------------------------------

double Random::Uniform() {
  return static_cast<double>(engine_() >> 11) * 0x1.0p-53;
}

double Random::Uniform(double lo, double hi) { return lo + (hi - lo) * Uniform(); }

double Random::LogUniform(double lo, double hi) {
  return std::exp(Uniform(std::log(lo), std::log(hi)));
}

int Random::Integer(int lo, int hi) {
  const auto span = static_cast<std::uint64_t>(hi - lo) + 1;
  return lo + static_cast<int>(engine_() % span);
}

// Box-Muller, both values used.
double Random::Normal() {
  if (hasSpare_) {
    hasSpare_ = false;
    return spare_;
  }
  double u = 0.0;
  while (u <= 0.0) u = Uniform();
  const double r = std::sqrt(-2.0 * std::log(u));
  const double a = 2.0 * std::numbers::pi * Uniform();
  spare_ = r * std::sin(a);
  hasSpare_ = true;
  return r * std::cos(a);
}

// Knuth's product of uniforms for small means; above 30 the normal approximation, which is
// what shot noise at such counts looks like anyway.
double Random::Poisson(double mean) {
  if (mean <= 0.0) return 0.0;
  if (mean > 30.0) return std::max(0.0, std::round(mean + std::sqrt(mean) * Normal()));
  const double limit = std::exp(-mean);
  double product = Uniform();
  int k = 0;
  while (product > limit) {
    product *= Uniform();
    ++k;
  }
  return k;
}

void FlagTruth(std::vector<TruthPeak>& truth, const std::vector<int>& envelope,
               const std::vector<int>& isotope) {
  const std::size_t n = truth.size();
  const bool envelopes = envelope.size() == n && isotope.size() == n;
  std::vector<std::size_t> order(n);
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t a, std::size_t b) { return truth[a].x < truth[b].x; });
  std::vector<TruthPeak> sorted;
  std::vector<int> env, iso;
  for (const std::size_t i : order) {
    sorted.push_back(truth[i]);
    env.push_back(envelopes ? envelope[i] : -1);
    iso.push_back(envelopes ? isotope[i] : 0);
  }
  double widest = 0.0;
  for (const TruthPeak& p : sorted) widest = std::max(widest, p.fwhm);
  // A neighbour under 5 % of a peak's height hardly moves it: it does not make it unresolved.
  for (std::size_t i = 0; i < n; ++i) {
    TruthPeak& p = sorted[i];
    p.resolved = true;
    for (std::size_t j = i; j-- > 0 && p.x - sorted[j].x <= widest;) {
      const TruthPeak& q = sorted[j];
      if (p.x - q.x <= std::max(p.fwhm, q.fwhm) && q.height >= 0.05 * p.height) p.resolved = false;
    }
    for (std::size_t j = i + 1; j < n && sorted[j].x - p.x <= widest; ++j) {
      const TruthPeak& q = sorted[j];
      if (q.x - p.x <= std::max(p.fwhm, q.fwhm) && q.height >= 0.05 * p.height) p.resolved = false;
    }
    p.optional = p.snr < 3.0 || !p.resolved;
  }
  // A charge can be read only where a neighbouring isotope of the same envelope shows too.
  for (std::size_t i = 0; i < n; ++i) {
    TruthPeak& p = sorted[i];
    p.charge_scored = false;
    if (p.charge <= 0 || p.optional) continue;
    // Isotopes of one envelope lie within kIsotopeSpacing of each other.
    std::size_t j = i;
    while (j > 0 && p.x - sorted[j - 1].x <= kIsotopeSpacing) --j;
    for (; j < n && sorted[j].x - p.x <= kIsotopeSpacing; ++j) {
      if (j != i && env[j] == env[i] && std::abs(iso[j] - iso[i]) == 1 && !sorted[j].optional) {
        p.charge_scored = true;
      }
    }
  }
  truth = std::move(sorted);
}

std::vector<std::string> SetNames() {
  return {"tof", "orbitrap", "sampling", "snr_ladder", "chromatogram", "srm", "zero_filled",
          "baseline_drift"};
}

std::vector<TraceSet> MakeSets(std::uint64_t seed, const std::string& only) {
  using Maker = TraceSet (*)(Random&);
  const std::pair<const char*, Maker> makers[] = {
      {"tof", Tof},          {"orbitrap", Orbitrap}, {"sampling", Sampling},
      {"snr_ladder", SnrLadder}, {"chromatogram", Chromatogram}, {"srm", Srm},
      {"zero_filled", ZeroFilled}, {"baseline_drift", BaselineDrift}};
  std::vector<TraceSet> sets;
  for (std::size_t i = 0; i < std::size(makers); ++i) {
    if (!only.empty() && only != makers[i].first) continue;
    // Each set has its own stream, so one set alone is the same as within the full run.
    Random random(seed * 1000003u + i);
    sets.push_back(makers[i].second(random));
  }
  return sets;
}

}  // namespace qxpkutil::accuracy
