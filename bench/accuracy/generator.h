// Seeded signals whose true peaks are known exactly: isotope envelopes in TOF- and
// Orbitrap-like spectra, isolated peaks at set sampling densities and S/N, LC and SRM
// chromatograms with tailing peaks and drifting baselines, thresholded profile data. The
// same seed gives the same traces on every machine: the random numbers come from
// std::mt19937_64 through our own uniform, normal and Poisson draws.
//
//   for (const TraceSet& set : MakeSets(1))
//     for (const Trace& t : set.traces) Score(t.truth, DetectPeaks(t.x, t.y, opts).peaks);
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace qxpkutil::accuracy {

// One true peak. `area` is a plain sum of the peak's own noise-free intensities over the
// trace's full sampling grid (the library's area convention); `integral` is its integral
// over x. For a tailing peak `x` is the apex, not the mean.
struct TruthPeak {
  double x = 0.0;
  double height = 0.0;
  double area = 0.0;
  double integral = 0.0;
  double fwhm = 0.0;       // x units
  int charge = 0;          // 0: none
  double snr = 0.0;        // height / noise standard deviation at the baseline there
  bool resolved = true;    // no other true peak within 1.0 x the larger FWHM
  bool optional = false;   // S/N < 3 or not resolved: neither required nor a false positive
  bool charge_scored = false;  // charged, resolved, S/N >= 3, with a neighbouring isotope
                               // that is too: its charge can be read from the spacing
};

struct Trace {
  std::string name;
  std::vector<double> x;
  std::vector<double> y;
  std::vector<TruthPeak> truth;  // in x order
};

struct TraceSet {
  std::string name;
  bool chromatogram = false;
  std::string description;
  std::vector<Trace> traces;
};

// The names of the sets MakeSets builds, in order.
std::vector<std::string> SetNames();

// Every set, or only the one named `only` (none when it names no set).
std::vector<TraceSet> MakeSets(std::uint64_t seed, const std::string& only = "");

// Marks resolved/optional/charge_scored from the positions, widths, S/N and charges, and
// sorts `truth` by x. Envelope membership for charge_scored comes from `envelope` and
// `isotope` (parallel to `truth`, empty when the peaks carry no charge).
void FlagTruth(std::vector<TruthPeak>& truth, const std::vector<int>& envelope = {},
               const std::vector<int>& isotope = {});

// Draws that do not depend on the standard library's distributions.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  double Uniform();                        // [0, 1)
  double Uniform(double lo, double hi);
  double LogUniform(double lo, double hi);
  int Integer(int lo, int hi);             // lo..hi inclusive
  double Normal();                         // standard normal
  double Poisson(double mean);

 private:
  std::mt19937_64 engine_;
  double spare_ = 0.0;
  bool hasSpare_ = false;
};

}  // namespace qxpkutil::accuracy
