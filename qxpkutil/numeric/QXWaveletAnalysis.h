// Daubechies wavelet transforms (Haar, 4, 6, 12 and 20 taps), noise levels estimated from
// wavelet coefficients, and wavelet filters that remove noise, a band of scales, or
// everything but a slow baseline. Builds on the standard library only; the peak table
// list calls CalcWhiteNoiseLevel to set automatic thresholds.
//
//   double noise = QXWaveletAnalysis::CalcWhiteNoiseLevel(y.data(), n);   // 0 when n < 4
//   QXWaveletAnalysis::SubtractNoise(y.data(), n, 1.5);    // thresholds from 1.5 x noise
//   QXWaveletAnalysis::DaubTransform(4, data, 1024, 1, 0);  // one forward level, in place
#pragma once

#include <cstdint>
#include <vector>

namespace qxpkutil {

// Every routine is a static member and keeps its scratch memory to itself, so any of them
// may run on several threads at once. Routines that cannot get their scratch memory, or
// meet a NaN or infinite sample, fail as documented and leave the caller's data alone.
//
// Padding. The estimators, SubtractNoise, SubtractColoredNoise and NotchFilter work on a
// copy of y padded to N, the smallest power of two >= n: positions n .. N-1 hold the start
// of the signal backwards (N-1 takes y[0], N-2 takes y[1], ...), so the periodic buffer
// joins smoothly where it wraps. SmoothBaseline mirrors both ends instead (see there).
//
// Filtering scheme of SubtractNoise, SubtractColoredNoise, NotchFilter and SmoothBaseline:
// a two-phase (translation-invariant) decomposition. At depth 1 the padded signal is
// transformed twice, as it stands (shift 0) and rotated by one sample (shift 1); at each
// further depth every smooth band of the depth above is transformed the same two ways, so a
// depth always holds 2N coefficients, half smooth and half detail. Only smooth bands are
// carried deeper; the detail bands of a depth share that depth's threshold and are soft
// thresholded (|c| < t becomes 0, otherwise c moves toward 0 by t); the coarsest smooth
// bands are never changed. The inverse rebuilds each band from both of its phases and
// averages the two (factor 0.5), from the coarsest depth up, and writes y[0 .. n-1] back;
// n is kept. Depth 1 is the finest (scales of 2 points, the upper half of the frequency
// range); depth j covers frequencies between 1/2^(j+1) and 1/2^j of the sampling rate;
// there are log2(N) - 1 depths. The filters work in single precision (on y scaled by a
// power of two, so any finite data fit), which bounds their accuracy to about 1e-7 of the
// largest |y|.
class QXWaveletAnalysis {
 public:
  QXWaveletAnalysis() = default;
  virtual ~QXWaveletAnalysis() = default;

  // One level of a periodic wavelet transform of data[0 .. n-1] in place with `taps`
  // caller-given scaling coefficients (the detail filter is their alternating-sign
  // reverse); `direction` >= 0 forward (smooth half then detail half), < 0 inverse.
  // `shift` != 0 rotates the input left by one sample before a forward step and the output
  // right by one after an inverse step. The filter is centred on each output pair: pair ii
  // reads data[2ii + 1 + k - taps/2] for k = 1 .. taps, modulo n. Nothing happens unless
  // `coef` and `data` are non-null, `taps` is even and non-zero, and n is a power of two
  // >= 4. The float form sums in double and stores floats.
  static void UserTransform(const double* coef, unsigned int taps, double* data,
                            std::uint32_t n, int direction, int shift);
  static void UserTransform(const double* coef, unsigned int taps, float* data,
                            std::uint32_t n, int direction, int shift);

  // UserTransform with the Haar (taps 2) or Daubechies 4, 6, 12 or 20 set. Returns 1 for
  // those tap counts (the transform still does nothing where UserTransform refuses), 0 for
  // any other count, leaving the data alone. A full transform is the caller's loop:
  // length N, then N/2, ... while the length is > 3, each time over data[0 .. length-1].
  static int DaubTransform(int taps, double* data, std::uint32_t n, int direction, int shift);
  static int DaubTransform(int taps, float* data, std::uint32_t n, int direction, int shift);

  // Robust standard deviation of all Haar detail coefficients of the padded signal:
  // 1.25 x their mean absolute value, refined by up to five passes of 3-sigma clipping;
  // about 0.99 x the standard deviation of white Gaussian noise at any length. Returns 0
  // for n < 2, a null `y`, or when a sample (or a coefficient) is not finite;
  // n = 2 gives the spread sqrt(y0^2 + y1^2 - (y0 + y1)^2 / 2).
  static double CalcNoiseLevel(const double* y, std::uint32_t n);

  // Noise level from the shape of the sorted Haar coefficients of the padded signal: run
  // counts around the centre of the distribution fitted as a Gaussian, with a trimmed
  // standard deviation as the fall-back when no fit is good enough. From about 500 points
  // on it gives 0.95 to 1.0 x the standard deviation of white Gaussian noise; shorter
  // signals mostly get the fall-back (0.7 to 0.8 x), and at 16 points or fewer the two
  // smooth coefficients of a signal on an offset can dominate. Returns 0 for n < 4, a null
  // `y`, or when a sample (or a coefficient) is not finite. The float form widens each
  // sample first.
  static double CalcWhiteNoiseLevel(const double* y, std::uint32_t n);
  static double CalcWhiteNoiseLevel(const float* y, std::uint32_t n);

  // Noise level of each detail depth of the full Daubechies 6 transform of the padded
  // signal, finest first: each depth's coefficients are sorted and measured as
  // CalcWhiteNoiseLevel measures the Haar coefficients, so peaks in the tails of the
  // distribution barely count. Only depths with at least 1024 coefficients get a level
  // (fewer make the estimate drift low). Replaces `levels` with them and returns their
  // count; returns 0 with `levels` untouched for n <= 1024, a null `y`, a sample or
  // coefficient that is not finite, or no memory. `y` is only read.
  static std::int32_t CalcWhiteNoiseLevels(double* y, std::uint32_t n,
                                           std::vector<double>& levels);

  // Removes the detail bands of depths `lower` .. `upper` (1 = finest; see the scheme
  // above) with the Daubechies 4 two-phase decomposition, keeping every other band; depths
  // beyond the deepest are ignored. Returns 1 when done, 0 with `y` untouched when `y` is
  // null, n < 4, a bound is 0, `lower` > `upper`, a sample is not finite, or no memory.
  static int NotchFilter(double* y, std::uint32_t n, std::uint32_t lower, std::uint32_t upper);

  // Soft-threshold denoising with the Daubechies 6 two-phase decomposition. The base
  // threshold is CalcWhiteNoiseLevel(y, n) x `factor` (1 to 3 is the usual range: the
  // smaller keeps peak heights, the larger clears more noise between peaks); depth 1 uses
  // twice the base, depth 2 one and a half times, deeper depths the base. Nothing happens
  // for a null `y`, n < 4, a `factor` that is not positive and finite, a zero noise level
  // (a clean or unusable signal), or no memory.
  static void SubtractNoise(double* y, std::uint32_t n, double factor);

  // Soft-threshold denoising for noise whose strength depends on the scale. Depth j is
  // thresholded at `level` x its own noise level from CalcWhiteNoiseLevels (`level` plays
  // the part of SubtractNoise's factor; 1 to 3 is the usual range). Depths without a level
  // of their own, and depths whose own level exceeds 4 x CalcWhiteNoiseLevel(y, n) (there
  // the peaks, not the noise, fill the coefficients, as at the coarse depths of a dense
  // spectrum), use `level` x CalcWhiteNoiseLevel(y, n) instead. Daubechies 6 two-phase
  // decomposition. Nothing happens for a null `y`, n < 4, a `level` that is not positive
  // and finite, a signal without measurable noise, or no memory.
  static void SubtractColoredNoise(double* y, std::uint32_t n, double level);

  // Replaces y with a smooth baseline running under its peaks (peaks point upwards).
  // `level` is the width in points of the narrowest structure that still counts as
  // baseline: the detail bands of depths 1 .. floor(log2(level)) (at most all depths) are
  // dropped, so a few times the base width of the widest peak is a good choice. Peaks are
  // then clipped away: samples more than twice CalcWhiteNoiseLevel(y, n) above the current
  // baseline are lowered to it and the baseline recomputed, for at most 20 passes, until no
  // sample is lowered.
  // Daubechies 6 two-phase decomposition of y padded to a power of two >= 1.5 n with both
  // ends mirrored, so that neither end of a sloping baseline is pulled toward the other.
  // Nothing happens for a null `y`, n < 4, `level` < 2 or NaN, a sample that is not
  // finite, or no memory.
  static void SmoothBaseline(double* y, std::uint32_t n, double level);
};

}  // namespace qxpkutil
