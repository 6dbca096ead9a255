#include "qxpkutil/detect/PeakDetection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "qxpkutil/detect/signal_model.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

using testing::GaussPeak;
using testing::MakeSignal;
using testing::Signal;

constexpr double kFwhmPerSigma = 2.354820045030949;

// Peaks of FWHM `fwhm` every 20 widths, sampled at `ppf` points per FWHM, on a baseline of
// 100 with white noise of `sigma`; heights cycle through `heights`.
Signal Ladder(double ppf, double fwhm, double sigma, const std::vector<double>& heights,
              unsigned seed = 7) {
  const double dx = fwhm / ppf;
  std::vector<GaussPeak> peaks;
  for (int k = 0; k < 60; ++k) {
    peaks.push_back({400.0 + (20.0 * k + 10.3) * fwhm, heights[k % heights.size()],
                     fwhm / kFwhmPerSigma});
  }
  const auto n = static_cast<std::size_t>(1220.0 * fwhm / dx);
  return MakeSignal(n, 400.0, dx, peaks, {.baseline = 100.0, .noiseSigma = sigma, .seed = seed});
}

TEST(DetectPeaks, RefusesBadTracesAndOptions) {
  const std::vector<double> x{1.0, 3.0, 2.0}, y{1.0, 2.0, 1.0}, ok{1.0, 2.0, 3.0};
  EXPECT_EQ(DetectPeaks(x, y).status, DetectStatus::kNotAscending);
  EXPECT_EQ(DetectPeaks(ok, std::vector<double>{1.0, NAN, 1.0}).status, DetectStatus::kNotFinite);
  EXPECT_EQ(DetectPeaks(std::vector<double>{1, 2}, y).status, DetectStatus::kBadInput);
  EXPECT_TRUE(DetectPeaks(std::vector<double>{}, std::vector<double>{}).ok());
  for (auto bad : {+[](DetectOptions& o) { o.snr = 0.0; }, +[](DetectOptions& o) { o.snr = NAN; },
                   +[](DetectOptions& o) { o.fwhm = -1.0; },
                   +[](DetectOptions& o) { o.resolution = INFINITY; },
                   +[](DetectOptions& o) { o.max_charge = -1; }}) {
    DetectOptions options;
    bad(options);
    const PeakList found = DetectPeaks(ok, y, options);
    EXPECT_EQ(found.status, DetectStatus::kBadOption);
    EXPECT_FALSE(found.message.empty());
  }
}

// The automatic mode checks the values on its model's first pass, four points at a time,
// the classic mode before it searches: a flaw anywhere (at block ends, in the last point, two
// at once) is refused by both with the same status and message, and before a bad option.
TEST(DetectPeaks, RefusesEveryFlawAsTheClassicModeDoes) {
  std::mt19937_64 rng(5);
  DetectOptions classic, centroided, badOption;
  classic.classic = QXPeakTableList{};
  centroided.centroided = true;
  badOption.snr = 0.0;
  for (const std::size_t n : {1, 2, 5, 63, 64, 65, 66, 127, 128, 129, 1000}) {
    for (int t = 0; t < 40; ++t) {
      std::vector<double> x(n), y(n);
      for (std::size_t i = 0; i < n; ++i) {
        x[i] = 100.0 + 0.01 * static_cast<double>(i);
        y[i] = 5.0 + static_cast<double>(rng() % 7);
      }
      for (int flaw = 0; flaw <= t % 2; ++flaw) {
        const std::size_t at = rng() % n;
        switch (rng() % (at > 0 ? 5 : 4)) {
          case 0: y[at] = NAN; break;
          case 1: y[at] = -INFINITY; break;
          case 2: x[at] = NAN; break;
          case 3: x[at] = INFINITY; break;
          default: x[at] = x[at - 1] - 1e-9; break;
        }
      }
      const PeakList expected = DetectPeaks(x, y, classic);
      ASSERT_FALSE(expected.ok());
      for (const DetectOptions& options : {DetectOptions{}, centroided, badOption}) {
        const PeakList found = DetectPeaks(x, y, options);
        EXPECT_EQ(found.status, expected.status) << n << " points, trace " << t;
        EXPECT_EQ(found.message, expected.message) << n << " points, trace " << t;
      }
    }
  }
}

// Short traces of every kind the model tells apart (even and uneven steps, x gaps, repeated
// x, zero-filled runs, counts, spikes), with peaks and with options from the defaults to any
// finite width: the search succeeds and every peak's bounds hold its apex inside the data.
// The sanitizer build checks that nothing reads past a region or overflows on the way.
TEST(DetectPeaks, KeepsBoundsInsideAnyShortTrace) {
  std::mt19937_64 rng(42);
  std::uniform_real_distribution<double> u(0.0, 1.0);
  for (int t = 0; t < 4000; ++t) {
    const int n = 1 + static_cast<int>(rng() % (t % 10 == 0 ? 5000 : 300));
    const auto kind = rng() % 5;
    std::vector<double> x(static_cast<std::size_t>(n)), y(x.size());
    double at = 1000.0 * u(rng);
    for (std::size_t i = 0; i < x.size(); ++i) {
      const double r = u(rng);
      at += kind == 1 ? (r < 0.05 ? 5.0 : 0.01) : kind == 2 ? (r < 0.2 ? 0.0 : 0.01 * r) : 0.01;
      x[i] = at;
      y[i] = 7.0 + 6.0 * u(rng);
      if (kind == 3 && r < 0.6) y[i] = 0.0;
      if (kind == 4) y[i] = std::floor(3.0 * u(rng));
      if (u(rng) < 0.02) y[i] += 1000.0 * u(rng);
    }
    for (int k = 0; k < 5; ++k) {
      const int c = static_cast<int>(rng() % static_cast<unsigned>(n));
      for (int i = std::max(0, c - 20); i < std::min(n, c + 20); ++i) {
        y[static_cast<std::size_t>(i)] += 200.0 * std::exp(-0.5 * (i - c) * (i - c) / 16.0);
      }
    }
    DetectOptions options;
    switch (rng() % 6) {
      case 1: options.fwhm = 0.1 * u(rng); break;
      case 2: options.kind = SignalKind::kChromatogram; break;
      case 3: options.snr = 0.1 + 10.0 * u(rng); break;
      case 4: options.resolution = 1.0 + 1e5 * u(rng); break;
      case 5: options.fwhm = std::pow(10.0, -300.0 + 600.0 * u(rng)); break;
      default: break;
    }
    const PeakList found = DetectPeaks(x, y, options);
    ASSERT_TRUE(found.ok()) << "trace " << t;
    for (const Peak& p : found.peaks) {
      ASSERT_TRUE(0 <= p.left_index && p.left_index <= p.apex_index &&
                  p.apex_index <= p.right_index && p.right_index < n)
          << "trace " << t;
    }
  }
}

// The estimators recover the noise and the width they were given, at any sampling.
TEST(SignalModel, RecoversNoiseAndWidth) {
  for (const double ppf : {4.0, 10.0, 30.0}) {
    SCOPED_TRACE(ppf);
    const Signal s = Ladder(ppf, 0.02, 5.0, {50.0, 500.0, 5000.0});
    const SignalModel m = *EstimateSignalModel(s.x, s.y, {});
    const auto mid = static_cast<std::int32_t>(s.x.size() / 2);
    // The noise of a few blocks wanders by a tenth either way: its median along the trace.
    std::vector<double> noise;
    for (std::size_t i = 0; i < s.x.size(); i += s.x.size() / 9)
      noise.push_back(m.NoiseAt(static_cast<std::int32_t>(i)));
    std::nth_element(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(noise.size() / 2),
                     noise.end());
    EXPECT_NEAR(noise[noise.size() / 2], 5.0, 0.5);
    EXPECT_NEAR(m.BaselineAt(mid), 100.0, 1.0);
    EXPECT_NEAR(m.FwhmAt(s.x[mid]), 0.02, 0.002);
    EXPECT_NEAR(m.PointsPerFwhm(mid), ppf, 0.1 * ppf);
  }
}

// The baseline summed piece by piece is the sum of its values, for odd and even blocks
// and ranges that start, end or stay before the first block centre or past the last.
TEST(SignalModel, SumsTheBaselineOverAnyRange) {
  SignalModel m;
  std::mt19937 rng(7);
  for (const std::int32_t block : {1, 2, 7, 16, 33}) {
    m.SetBlock(block);
    m.baseline_.resize(5);
    for (double& b : m.baseline_) b = static_cast<double>(rng() % 1000);
    for (int t = 0; t < 200; ++t) {
      const auto lo = static_cast<std::int32_t>(rng() % (6u * static_cast<unsigned>(block)));
      const auto hi =
          lo + static_cast<std::int32_t>(rng() % (3u * static_cast<unsigned>(block) + 1));
      double sum = 0.0;
      for (std::int32_t i = lo; i <= hi; ++i) sum += m.BaselineAt(i);
      ASSERT_NEAR(m.BaselineSum(lo, hi), sum, 1e-9 * (1.0 + std::fabs(sum)))
          << block << " " << lo << " " << hi;
    }
  }
}

// Noise averaged over five points (as filtered profiles have) is not mistaken for a
// quieter signal: the second differences at longer lags show its full size.
TEST(SignalModel, SeesNoiseCorrelatedOverAFewPoints) {
  for (const double ppf : {10.0, 30.0}) {
    SCOPED_TRACE(ppf);
    Signal s = Ladder(ppf, 0.02, 0.0, {500.0});
    const std::vector<double> white = testing::MakeNoise(s.y.size() + 4, 10.0, 3);
    for (std::size_t i = 0; i < s.y.size(); ++i) {
      s.y[i] +=
          (white[i] + white[i + 1] + white[i + 2] + white[i + 3] + white[i + 4]) / std::sqrt(5.0);
    }
    const SignalModel m = *EstimateSignalModel(s.x, s.y, {});
    EXPECT_NEAR(m.NoiseAt(static_cast<std::int32_t>(s.x.size() / 2)), 10.0, 2.0);
    EXPECT_LT(DetectPeaks(s.x, s.y).peaks.size(), 70u);
  }
}

// A width that grows in proportion to x is recognised as a constant resolving power.
TEST(SignalModel, RecognisesTheWidthLaw) {
  std::vector<GaussPeak> peaks;
  for (double c = 210.0; c < 1990.0; c += 7.3)
    peaks.push_back({c, 1000.0, c / 20000.0 / kFwhmPerSigma});
  const Signal s = MakeSignal(400000, 200.0, 0.0045, peaks, {.baseline = 10.0, .noiseSigma = 2.0});
  const SignalModel m = *EstimateSignalModel(s.x, s.y, {});
  EXPECT_EQ(m.law, WidthLaw::kTof);
  EXPECT_NEAR(m.FwhmAt(1000.0), 0.05, 0.005);
}

// Only the tallest clean peaks teach the width, and a long trace scans first the blocks that
// could hold them: when the tallest peaks there all overlap a neighbour, the clean peaks
// below them still count.
TEST(SignalModel, LearnsTheWidthFromCleanPeaksBelowTallerPairs) {
  std::vector<GaussPeak> peaks;
  for (int k = 0; k < 2000; ++k) {
    const double at = 100.5 + 0.3 * k;
    if (k % 4 == 0) {
      peaks.push_back({at, 500.0, 0.02 / kFwhmPerSigma});
      continue;
    }
    // 1.5 FWHM apart: neither falls to a quarter of its height a half-width past its half.
    peaks.push_back({at, 5000.0, 0.01 / kFwhmPerSigma});
    peaks.push_back({at + 0.015, 5000.0, 0.01 / kFwhmPerSigma});
  }
  const Signal s = MakeSignal(620000, 100.0, 0.001, peaks, {.baseline = 100.0, .noiseSigma = 5.0});
  EXPECT_NEAR(EstimateSignalModel(s.x, s.y, {})->FwhmAt(400.0), 0.02, 0.002);
}

// A gap is a step 2.5 times the typical one where it occurs, also where the steps grow
// tenfold along the trace; a step twice the typical one is not.
TEST(SignalModel, SplitsRegionsAtGapsOfTheLocalSpacing) {
  std::mt19937 rng(3);
  std::vector<double> x, y;
  double at = 100.0;
  for (int i = 0; i < 200000; ++i) {
    const double step = 0.001 * (1.0 + 9.0 * i / 200000.0);
    at += (i == 50000 || i == 150000 ? 3.0 : i == 100000 ? 2.0 : 1.0) * step;
    x.push_back(at);
    y.push_back(100.0 + rng() % 10);
  }
  const SignalModel m = *EstimateSignalModel(x, y, {});
  ASSERT_EQ(m.regions.size(), 3u);
  EXPECT_EQ(m.regions[1].begin, 50000);
  EXPECT_EQ(m.regions[2].begin, 150000);
}

// Stored only above a threshold: zero baseline, noise from the threshold crossings, and no
// peak bound reaches across a gap.
TEST(SignalModel, ThresholdedDataKeepsPeaksInsideTheirRuns) {
  Signal s = Ladder(8.0, 0.02, 5.0, {100.0, 400.0});
  for (double& v : s.y) v -= 100.0;
  Signal stored;
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    if (s.y[i] > 10.0) {
      stored.x.push_back(s.x[i]);
      stored.y.push_back(s.y[i]);
    }
  }
  const SignalModel m = *EstimateSignalModel(stored.x, stored.y, {});
  EXPECT_TRUE(m.thresholded);
  EXPECT_NEAR(m.NoiseAt(static_cast<std::int32_t>(stored.x.size() / 2)), 5.0, 1.5);
  const PeakList found = DetectPeaks(stored.x, stored.y);
  ASSERT_TRUE(found.ok());
  EXPECT_EQ(found.peaks.size(), 60u);
  for (const Peak& p : found.peaks) {
    for (std::int32_t i = p.left_index; i < p.right_index; ++i) {
      EXPECT_LT(stored.x[i + 1] - stored.x[i], 0.01) << "a bound crosses a gap at " << p.apex_x;
    }
  }
}

// Every peak at S/N 8 is found and measured; a higher S/N option keeps a subset.
TEST(DetectPeaks, FindsAndMeasuresPeaksAboveTheNoise) {
  const Signal s = Ladder(10.0, 0.02, 5.0, {40.0, 400.0});
  const PeakList found = DetectPeaks(s.x, s.y);
  ASSERT_TRUE(found.ok()) << found.message;
  ASSERT_EQ(found.peaks.size(), 60u);
  for (std::size_t k = 0; k < found.peaks.size(); ++k) {
    const Peak& p = found.peaks[k];
    const double truth = 400.0 + (20.0 * static_cast<double>(k) + 10.3) * 0.02;
    const double height = k % 2 ? 400.0 : 40.0;
    EXPECT_NEAR(p.centroid_x, truth, 0.1 * 0.02);
    EXPECT_NEAR(p.height, height, 0.15 * height);
    EXPECT_NEAR(p.fwhm, 0.02, 0.3 * 0.02);
    EXPECT_NEAR(p.snr, height / 5.0, 0.25 * height / 5.0);
    EXPECT_LE(p.left_x, p.apex_x);
    EXPECT_GE(p.right_x, p.apex_x);
    EXPECT_TRUE(p.marks & kQXPeakNormal);
  }
  DetectOptions strict;
  strict.snr = 20.0;
  EXPECT_EQ(DetectPeaks(s.x, s.y, strict).peaks.size(), 30u);
}

// Peaks are measured from all their points, even where the noise makes the flanks wiggle,
// as it does at 40 points a FWHM: strong peaks placed by the matched filter, which weighs
// every point, and fitted over all the points above 40 %; weak ones given the width
// between half-height crossings met from the top and from the bounds.
TEST(DetectPeaks, MeasuresPeaksFromAllTheirPoints) {
  const Signal strong = Ladder(40.0, 0.02, 5.0, {125.0});  // S/N 25
  PeakList found = DetectPeaks(strong.x, strong.y);
  ASSERT_EQ(found.peaks.size(), 60u);
  double centroids = 0.0, widths = 0.0;  // sums of squared errors, in FWHM and in parts
  for (std::size_t k = 0; k < found.peaks.size(); ++k) {
    const double truth = 400.0 + (20.0 * static_cast<double>(k) + 10.3) * 0.02;
    centroids += std::pow((found.peaks[k].centroid_x - truth) / 0.02, 2);
    widths += std::pow(found.peaks[k].fwhm / 0.02 - 1.0, 2);
  }
  // RMS errors here: 0.004 and 0.02; from the few points near the top, 0.05 and 0.7.
  EXPECT_LT(std::sqrt(centroids / 60.0), 0.01);
  EXPECT_LT(std::sqrt(widths / 60.0), 0.1);

  const Signal weak = Ladder(40.0, 0.02, 5.0, {40.0, 1000.0});  // S/N 8 between S/N 200
  found = DetectPeaks(weak.x, weak.y);
  ASSERT_EQ(found.peaks.size(), 60u);
  double bias = 0.0;
  for (std::size_t k = 0; k < found.peaks.size(); k += 2) bias += found.peaks[k].fwhm / 0.02 - 1;
  EXPECT_NEAR(bias / 30.0, 0.0, 0.05);  // the first crossings from the top alone: -0.13
}

// A chromatogram's peak is placed where it culminates, even when it tails; a spectrum's
// symmetric peaks are placed by the matched filter, which leans towards a tail.
TEST(DetectPeaks, PlacesTailingChromatographicPeaksAtTheirTops) {
  const double fwhm = 4.0, sigma = fwhm / kFwhmPerSigma, tau = sigma, dx = fwhm / 10.0;
  const auto n = static_cast<std::size_t>(1200.0 / dx);
  Signal s = MakeSignal(n, 0.0, dx, {}, {.baseline = 100.0, .noiseSigma = 5.0});
  const auto tailing = [&](double u) {  // a Gaussian convolved with an exponential, at u sigma
    return std::exp(0.5 * sigma * sigma / (tau * tau) - u * sigma / tau) *
           std::erfc((sigma / tau - u) / std::sqrt(2.0)) / 2.0;
  };
  double top = 0.0;  // where the shape culminates, in sigma from its Gaussian's centre
  for (double u = 0.0; u < 2.0; u += 1e-4) top = tailing(u) > tailing(top) ? u : top;
  const double height = 300.0 / tailing(top);  // S/N 60
  std::vector<double> tops;
  for (double centre = 20.0; centre < 1180.0; centre += 40.0) {
    tops.push_back(centre + top * sigma);
    for (std::size_t i = 0; i < n; ++i) s.y[i] += height * tailing((s.x[i] - centre) / sigma);
  }
  DetectOptions chromatogram;
  chromatogram.kind = SignalKind::kChromatogram;
  const PeakList found = DetectPeaks(s.x, s.y, chromatogram);
  ASSERT_EQ(found.peaks.size(), tops.size());
  double lean = 0.0;
  for (std::size_t k = 0; k < tops.size(); ++k) lean += found.peaks[k].centroid_x - tops[k];
  EXPECT_NEAR(lean / static_cast<double>(tops.size()) / fwhm, 0.0, 0.035);  // 0.025; filter: 0.047
}

// A peak on the exponential tail of a larger one (a chromatographic shoulder) has no
// maximum of its own; it is still found, and found once.
TEST(DetectPeaks, FindsShouldersOnTheTailOfALargerPeak) {
  for (const double ppf : {8.0, 20.0}) {
    SCOPED_TRACE(ppf);
    const double fwhm = 4.0, sigma = fwhm / kFwhmPerSigma, tau = 2.0 * sigma, dx = fwhm / ppf;
    const auto n = static_cast<std::size_t>(400.0 / dx);
    Signal s = MakeSignal(n, 0.0, dx, {}, {.baseline = 100.0, .noiseSigma = 5.0});
    std::vector<double> shoulders;
    for (double host = 20.0; host < 380.0; host += 40.0) {
      const double at = host + 2.2 * fwhm;
      shoulders.push_back(at);
      for (std::size_t i = 0; i < n; ++i) {
        const double u = (s.x[i] - host) / sigma;  // Gaussian convolved with an exponential
        s.y[i] += 3000.0 * std::exp(0.5 * sigma * sigma / (tau * tau) - u * sigma / tau) *
                  std::erfc((sigma / tau - u) / std::sqrt(2.0)) / 2.0;
        s.y[i] += 200.0 * std::exp(-0.5 * std::pow((s.x[i] - at) / sigma, 2));
      }
    }
    DetectOptions chromatogram;
    chromatogram.kind = SignalKind::kChromatogram;
    chromatogram.fwhm = fwhm;  // nine hosts, all with shoulders: too few clean peaks to learn it
    const PeakList found = DetectPeaks(s.x, s.y, chromatogram);
    ASSERT_EQ(found.peaks.size(), 2 * shoulders.size());
    for (std::size_t k = 0; k < shoulders.size(); ++k) {
      EXPECT_NEAR(found.peaks[2 * k + 1].centroid_x, shoulders[k], 0.5 * fwhm);
    }
  }
}

TEST(DetectPeaks, CountFamilyMatchesTheWidenedDoubles) {
  const Signal s = Ladder(6.0, 0.05, 3.0, {30.0, 300.0});
  const testing::CountSignal counts = testing::ToCountFamily(s);
  const Signal widened = testing::FromCountFamily(counts);
  const PeakList a = DetectPeaks(counts.x, counts.y), b = DetectPeaks(widened.x, widened.y);
  ASSERT_EQ(a.peaks.size(), b.peaks.size());
  for (std::size_t i = 0; i < a.peaks.size(); ++i) {
    EXPECT_EQ(a.peaks[i].centroid_x, b.peaks[i].centroid_x);
    EXPECT_EQ(a.peaks[i].area, b.peaks[i].area);
  }
}

// Isotope envelopes get the charge their spacing says, and series marks.
TEST(DetectPeaks, AssignsChargesFromIsotopeSpacing) {
  std::vector<GaussPeak> peaks;
  const double abundance[] = {1.0, 0.8, 0.4, 0.15};
  for (int z = 1; z <= 4; ++z) {
    const double mono = 300.0 + 150.0 * z;
    for (int k = 0; k < 4; ++k) {
      peaks.push_back(
          {mono + k * 1.00336 / z, 2000.0 * abundance[k], mono / 40000.0 / kFwhmPerSigma});
    }
  }
  const Signal s = MakeSignal(200000, 400.0, 0.003, peaks, {.baseline = 5.0, .noiseSigma = 2.0});
  const PeakList found = DetectPeaks(s.x, s.y);
  ASSERT_EQ(found.peaks.size(), 16u);
  for (std::size_t i = 0; i < found.peaks.size(); ++i) {
    const Peak& p = found.peaks[i];
    EXPECT_EQ(p.charge, static_cast<int>(i / 4) + 1) << p.centroid_x;
    EXPECT_TRUE(p.marks & kQXPeakChargeAssigned);
    EXPECT_EQ((p.marks & kQXPeakSeriesLow) != 0, i % 4 == 0);
  }
  // The same centroids as a centroided spectrum get the same charges.
  std::vector<double> cx, cy;
  for (const Peak& p : found.peaks) {
    cx.push_back(p.centroid_x);
    cy.push_back(p.height);
  }
  DetectOptions centroided;
  centroided.centroided = true;
  const PeakList sticks = DetectPeaks(cx, cy, centroided);
  ASSERT_EQ(sticks.peaks.size(), found.peaks.size());
  for (std::size_t i = 0; i < cx.size(); ++i)
    EXPECT_EQ(sticks.peaks[i].charge, found.peaks[i].charge);
  DetectOptions chromatogram;
  chromatogram.kind = SignalKind::kChromatogram;
  for (const Peak& p : DetectPeaks(s.x, s.y, chromatogram).peaks) EXPECT_EQ(p.charge, 0);
}

// The classic mode runs the list's segments as they are: the same table as the driver.
TEST(DetectPeaks, ClassicModeIsTheDriversTable) {
  const Signal s = Ladder(6.0, 0.05, 3.0, {30.0, 300.0});
  QXPeakTableList list;
  list.AddDetectionSetting(-1);
  list.SetMassProcessing(1);
  DetectOptions options;
  options.classic = list;
  const PeakList found = DetectPeaks(s.x, s.y, options);
  list.AddPeakTableToList();
  const double yMax = *std::max_element(s.y.begin(), s.y.end());
  list.FindPeaks(s.x.data(), s.y.data(), static_cast<std::uint32_t>(s.x.size()), yMax, 1.0, 0);
  const QXPeakTable& table = *list.GetPeakTableFromList(0);
  ASSERT_EQ(found.peaks.size(), static_cast<std::size_t>(table.GetNumPeaks()));
  for (std::size_t i = 0; i < found.peaks.size(); ++i) {
    const QXPeakTableElement& e = *table.GetPeak(static_cast<std::int32_t>(i));
    EXPECT_EQ(found.peaks[i].apex_x, e.m_dApexX);
    EXPECT_EQ(found.peaks[i].centroid_x, e.m_dCentroidX);
    EXPECT_EQ(found.peaks[i].area, e.m_dArea);
    EXPECT_EQ(found.peaks[i].marks, e.m_dwFlags);
  }
}

TEST(ParseFwhm, ReadsWidthsWithUnitsAndReference) {
  struct Case {
    const char* text;
    bool ok;
    double fwhm, at;
  };
  for (const Case& c :
       {Case{"0.01@400", true, 0.01, 400.0}, Case{"4s", true, 4.0, 0.0},
        Case{"0.1min", true, 6.0, 0.0}, Case{"20ppm@500", true, 0.01, 500.0},
        Case{"0.5", true, 0.5, 0.0}, Case{"-1", false, 0, 0}, Case{"nan", false, 0, 0},
        Case{"0.01@", false, 0, 0}, Case{"abc", false, 0, 0}, Case{"", false, 0, 0}}) {
    DetectOptions options;
    std::string error;
    EXPECT_EQ(ParseFwhm(c.text, options, error), c.ok) << c.text;
    if (!c.ok) {
      EXPECT_FALSE(error.empty());
      continue;
    }
    EXPECT_NEAR(options.fwhm, c.fwhm, 1e-12) << c.text;
    EXPECT_EQ(options.fwhm_at, c.at) << c.text;
  }
}

}  // namespace
}  // namespace qxpkutil
