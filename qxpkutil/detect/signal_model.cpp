#include "qxpkutil/detect/signal_model.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#define QXPKUTIL_AVX2 1
#endif

namespace qxpkutil {

namespace {

constexpr std::int32_t kSpacingBlock = 64;
// A step this many times the usual spacing is a gap: one missing point is not.
constexpr double kGapFactor = 2.5;
// Points of a block read for its baseline and noise: enough for steady figures.
constexpr std::int32_t kFullSamples = 128;
// Robust sigma from the median absolute deviation of a normal distribution.
constexpr double kMadToSigma = 1.4826;

// Two doubles in one register (SSE2 on x86-64), for the passes over every point.
using Lanes2 = double __attribute__((vector_size(16)));
using Masks2 = std::int64_t __attribute__((vector_size(16)));
Lanes2 LoadLanes(const double* p) {
  Lanes2 v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
Lanes2 MaxLanes(Lanes2 a, Lanes2 b) { return a < b ? b : a; }

// Puts a and b in ascending order, with no branch on which is smaller.
void Order(double& a, double& b) {
  const double lower = std::min(a, b);
  b = std::max(a, b);
  a = lower;
}

// Moves the values of a[0, n) below the bound (or equal to it, with kOrEqual) to the front,
// without a branch on them; returns how many there are.
template <bool kOrEqual>
std::size_t PartitionScalar(double* a, std::size_t n, double bound) {
  std::size_t store = 0;
  for (std::size_t i = 0; i < n; ++i) {
    const double e = a[i];
    a[i] = a[store];
    a[store] = e;
    store += (kOrEqual ? e <= bound : e < bound) ? 1 : 0;
  }
  return store;
}

#ifdef QXPKUTIL_AVX2
// Whether the processor runs AVX2 and POPCNT, which the vector passes use (asked once).
bool HasAvx2AndPopcnt() {
  static const bool avx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt");
  return avx2;
}

// Parts of this many values are partitioned four at a time, the values that go right kept on
// the stack meanwhile; on shorter parts the groups' tail and the copy cost more than they save.
constexpr std::size_t kVectorFewest = 32, kVectorValues = 256;

// For each mask of four comparisons, the 32-bit lanes that bring the chosen doubles first.
constexpr auto kCompress = [] {
  std::array<std::array<std::int32_t, 8>, 16> lanes{};
  for (int mask = 0; mask < 16; ++mask) {
    int to = 0;
    for (int from = 0; from < 4; ++from) {
      if ((mask >> from & 1) == 0) continue;
      lanes[mask][2 * to] = 2 * from;
      lanes[mask][2 * to + 1] = 2 * from + 1;
      ++to;
    }
  }
  return lanes;
}();

// As PartitionScalar (the same two parts, in another order), four values at a time: each
// group's values below the bound are packed to the front store, the others to a buffer that
// follows them at the end. n <= kVectorValues.
template <bool kOrEqual>
__attribute__((target("avx2,popcnt"))) std::size_t PartitionAvx2(double* a, std::size_t n,
                                                                  double bound) {
  double rest[kVectorValues];
  std::size_t left = 0, right = 0, i = 0;
  const __m256d limit = _mm256_set1_pd(bound);
  for (; i + 4 <= n; i += 4) {
    const __m256d v = _mm256_loadu_pd(a + i);
    const auto mask = static_cast<unsigned>(
        _mm256_movemask_pd(_mm256_cmp_pd(v, limit, kOrEqual ? _CMP_LE_OQ : _CMP_LT_OQ)));
    const __m256 bits = _mm256_castpd_ps(v);
    const auto* chosen = reinterpret_cast<const __m256i*>(kCompress[mask].data());
    const auto* others = reinterpret_cast<const __m256i*>(kCompress[15 - mask].data());
    // The front store never passes the group just read.
    _mm256_storeu_pd(a + left, _mm256_castps_pd(_mm256_permutevar8x32_ps(
                                   bits, _mm256_loadu_si256(chosen))));
    _mm256_storeu_pd(rest + right, _mm256_castps_pd(_mm256_permutevar8x32_ps(
                                       bits, _mm256_loadu_si256(others))));
    const auto count = static_cast<std::size_t>(_mm_popcnt_u32(mask));
    left += count;
    right += 4 - count;
  }
  for (; i < n; ++i) {
    const double e = a[i];
    const bool goesLeft = kOrEqual ? e <= bound : e < bound;
    a[left] = e;
    rest[right] = e;
    left += goesLeft ? 1 : 0;
    right += goesLeft ? 0 : 1;
  }
  std::memcpy(a + left, rest, right * sizeof(double));
  return left;
}
#endif

#ifdef QXPKUTIL_AVX2
[[gnu::target("avx2"), gnu::always_inline]] inline void OrderLanes(__m256d& lo, __m256d& hi) {
  const __m256d low = _mm256_min_pd(lo, hi);
  hi = _mm256_max_pd(lo, hi);
  lo = low;
}
// The half-cleaners of a bitonic merge on registers r[0, n): pairs d registers apart, then
// d / 2, ... 1.
template <int n, int d>
[[gnu::target("avx2"), gnu::always_inline]] inline void CleanHalves(__m256d* r) {
  if constexpr (d >= 1) {
#pragma GCC unroll 16
    for (int b = 0; b < n; b += 2 * d) {
#pragma GCC unroll 16
      for (int i = 0; i < d; ++i) OrderLanes(r[b + i], r[b + i + d]);
    }
    CleanHalves<n, d / 2>(r);
  }
}
// Sorts each lane across the registers r[0, 16) (a bitonic sort whose pairs all ascend: the
// first step of each merge pairs a run with the next one reversed).
template <int k>
[[gnu::target("avx2"), gnu::always_inline]] inline void SortLanes(__m256d* r) {
  if constexpr (k <= 16) {
#pragma GCC unroll 16
    for (int b = 0; b < 16; b += k) {
#pragma GCC unroll 16
      for (int i = 0; i < k / 2; ++i) OrderLanes(r[b + i], r[b + k - 1 - i]);
    }
    CleanHalves<16, k / 4>(r);
    SortLanes<2 * k>(r);
  }
}
// Merges the ascending runs s[0, m) and s[m, 2m) of registers of four values.
template <int m>
[[gnu::target("avx2"), gnu::always_inline]] inline void MergeRuns(__m256d* s) {
  // The second run reversed makes the two one bitonic sequence.
#pragma GCC unroll 16
  for (int i = 0; i < m / 2; ++i) std::swap(s[m + i], s[2 * m - 1 - i]);
#pragma GCC unroll 16
  for (int i = 0; i < m; ++i) s[m + i] = _mm256_permute4x64_pd(s[m + i], 0x1B);
  CleanHalves<2 * m, m>(s);
  // Inside each register: pairs two apart, then neighbours.
#pragma GCC unroll 16
  for (int i = 0; i < 2 * m; ++i) {
    __m256d v = s[i], p = _mm256_permute2f128_pd(v, v, 0x01);
    v = _mm256_blend_pd(_mm256_min_pd(v, p), _mm256_max_pd(v, p), 0b1100);
    p = _mm256_permute_pd(v, 0b0101);
    s[i] = _mm256_blend_pd(_mm256_min_pd(v, p), _mm256_max_pd(v, p), 0b1010);
  }
}
// Sorts a[0, 64) ascending by a fixed network, with no branch on the values: each of the
// four lanes of 16 registers is sorted across them, the four sorted columns are turned into
// runs of four registers, and the runs are merged pairwise.
[[gnu::target("avx2")]] void Sort64Avx2(double* a) {
  __m256d r[16], s[16];
#pragma GCC unroll 16
  for (int i = 0; i < 16; ++i) r[i] = _mm256_loadu_pd(a + 4 * i);
  SortLanes<2>(r);
  // Column c, in order, to s[4c, 4c + 4).
#pragma GCC unroll 4
  for (int q = 0; q < 4; ++q) {
    const __m256d t0 = _mm256_unpacklo_pd(r[4 * q], r[4 * q + 1]);
    const __m256d t1 = _mm256_unpackhi_pd(r[4 * q], r[4 * q + 1]);
    const __m256d t2 = _mm256_unpacklo_pd(r[4 * q + 2], r[4 * q + 3]);
    const __m256d t3 = _mm256_unpackhi_pd(r[4 * q + 2], r[4 * q + 3]);
    s[q] = _mm256_permute2f128_pd(t0, t2, 0x20);
    s[4 + q] = _mm256_permute2f128_pd(t1, t3, 0x20);
    s[8 + q] = _mm256_permute2f128_pd(t0, t2, 0x31);
    s[12 + q] = _mm256_permute2f128_pd(t1, t3, 0x31);
  }
  MergeRuns<4>(s);
  MergeRuns<4>(s + 8);
  MergeRuns<8>(s);
#pragma GCC unroll 16
  for (int i = 0; i < 16; ++i) _mm256_storeu_pd(a + 4 * i, s[i]);
}
// Sorts a[0, 128) ascending: each half by the network above, then one merge.
[[gnu::target("avx2")]] void Sort128Avx2(double* a) {
  Sort64Avx2(a);
  Sort64Avx2(a + 64);
  __m256d s[32];
#pragma GCC unroll 32
  for (int i = 0; i < 32; ++i) s[i] = _mm256_loadu_pd(a + 4 * i);
  MergeRuns<16>(s);
#pragma GCC unroll 32
  for (int i = 0; i < 32; ++i) _mm256_storeu_pd(a + 4 * i, s[i]);
}
#endif

// Moves the values of a[from, to) below the bound (or equal, with kOrEqual) to its front;
// returns where the rest begin. Four at a time where the processor can.
template <bool kOrEqual>
std::size_t Partition(double* a, std::size_t from, std::size_t to, double bound) {
#ifdef QXPKUTIL_AVX2
  if (HasAvx2AndPopcnt() && to - from >= kVectorFewest && to - from <= kVectorValues) {
    return from + PartitionAvx2<kOrEqual>(a + from, to - from, bound);
  }
#endif
  return from + PartitionScalar<kOrEqual>(a + from, to - from, bound);
}

// Two values that probably bracket the answer of a selection, from a neighbouring block's
// answer (NaN: no guess). They only save work: the answer does not depend on them.
struct Guess {
  double low = std::nan("");
  double high = std::nan("");
};

// The k-th smallest of the finite values v (reordered), as std::nth_element finds it. On
// noise every comparison is a coin flip, so nothing here branches on the values: the
// partition moves each element without a branch, the pivot's median of three and the sort
// of the last few values order pairs by minima and maxima. The block levels take thousands
// of these medians per trace, each close to its neighbour's: with a guess, the values are
// first split at its two ends, and a good guess leaves a few values to select among.
double SelectNth(std::span<double> v, std::size_t k, Guess guess = {}) {
  double* a = v.data();
  std::size_t lo = 0, hi = v.size();
  if (guess.low <= guess.high && hi - lo > 8) {
    // Below the guess, inside it, above it: the answer's part is kept (a wrong guess costs
    // a pass).
    const std::size_t below = Partition<false>(a, lo, hi, guess.low);
    (k < below ? hi : lo) = below;
    if (k >= below) {
      const std::size_t inside = Partition<true>(a, lo, hi, guess.high);
      (k < inside ? hi : lo) = inside;
    }
  }
  while (hi - lo > 8) {
    // The median of three goes last, and after one pass to its place in the order.
    std::size_t mid = lo + (hi - lo) / 2, last = hi - 1;
    Order(a[lo], a[mid]), Order(a[lo], a[last]), Order(a[last], a[mid]);
    const double pivot = a[last];
    const std::size_t place = Partition<false>(a, lo, last, pivot);
    std::swap(a[place], a[last]);
    if (k == place) return pivot;
    if (k < place) {
      hi = place;
      continue;
    }
    // Values equal to the pivot (counts, zeros) would leave a part that never shrinks:
    // when the split was lopsided they are gathered and passed over at once.
    const bool lopsided = (place - lo) * 8 < hi - lo;
    lo = place + 1;
    if (lopsided) {
      const std::size_t equal = Partition<true>(a, lo, hi, pivot);
      if (k < equal) return pivot;
      lo = equal;
    }
  }
  // Sorted by insertion with a fixed pattern of pairs (a sorting network of 28 pairs at most).
  for (std::size_t i = lo + 1; i < hi; ++i) {
    for (std::size_t j = i; j > lo; --j) Order(a[j - 1], a[j]);
  }
  return a[k];
}

double Median(std::span<double> v, Guess guess = {}) {
  return v.empty() ? std::nan("") : SelectNth(v, v.size() / 2, guess);
}

// The median of the entries that were measured (blocks too sparse to measure hold NaN).
double FiniteMedian(const std::vector<double>& v) {
  std::vector<double> finite;
  for (double e : v) {
    if (!std::isnan(e)) finite.push_back(e);
  }
  return Median(finite);
}

// The typical step: a low quantile, so that in data with many gaps the steps inside the
// stored runs count, not the jumps between them.
double TypicalStep(std::vector<double>& steps) {
  if (steps.empty()) return std::nan("");
  const std::size_t k = steps.size() / 5;
  constexpr std::size_t kFew = 8;
  if (k >= kFew) return SelectNth(steps, k);
  // A handful of steps per block: keep the k + 1 smallest, in order, in one pass.
  double smallest[kFew];
  std::size_t count = 0;
  for (double step : steps) {
    if (count == k + 1 && !(step < smallest[k])) continue;
    std::size_t at = count == k + 1 ? k : count++;
    for (; at > 0 && step < smallest[at - 1]; --at) smallest[at] = smallest[at - 1];
    smallest[at] = step;
  }
  return smallest[k];
}

double MedianAbsDeviation(std::span<const double> v, double centre,
                          std::vector<double>& scratch, Guess guess = {}) {
  if (scratch.size() < v.size()) scratch.resize(v.size());
  for (std::size_t i = 0; i < v.size(); ++i) scratch[i] = std::fabs(v[i] - centre);
  return Median(std::span<double>(scratch).first(v.size()), guess);
}

// Most blocks sample at most this many values; sorted by a fixed network, they give every
// order statistic a block needs without the selections' branches on the data (on noise,
// these mispredict about a dozen times a selection).
constexpr std::size_t kSorted = 128;

// Copies v to `sorted` and sorts it there (past v, +inf) where the processor has AVX2 and v
// holds at most kSorted values; false otherwise (the caller selects instead).
bool SortFew([[maybe_unused]] std::span<const double> v,
             [[maybe_unused]] std::array<double, kSorted>& sorted) {
#ifdef QXPKUTIL_AVX2
  if (HasAvx2AndPopcnt() && v.size() <= kSorted) {
    const std::size_t places = v.size() <= kSorted / 2 ? kSorted / 2 : kSorted;
    std::fill(std::copy(v.begin(), v.end(), sorted.begin()), sorted.begin() + places, INFINITY);
    (places == kSorted ? Sort128Avx2 : Sort64Avx2)(sorted.data());
    return true;
  }
#endif
  return false;
}

// As MedianAbsDeviation around s[n / 2], of the ascending s[0, n): the distances below the
// median (s[half - 1], s[half - 2], ...) and above it (s[half], s[half + 1], ...) each ascend,
// so the wanted one, the (half + 1)-th smallest of both, is found by bisecting how many of it
// come from below (a few steps, with no pass over the values). A distance is the difference
// itself: |a - b| and b - a are the same double.
double SortedMedianDeviation(const double* s, std::size_t n) {
  const std::size_t half = n / 2, taken = half + 1;
  const double centre = s[half];
  auto below = [&](std::size_t j) { return centre - s[half - 1 - j]; };
  auto above = [&](std::size_t j) { return s[half + j] - centre; };
  // The fewest taken from below such that the next one below is no nearer than the last one
  // taken from above.
  std::size_t lo = taken > n - half ? taken - (n - half) : 0, hi = half;
  while (lo < hi) {
    const std::size_t mid = (lo + hi) / 2;
    const bool more = below(mid) < above(taken - mid - 1);
    lo = more ? mid + 1 : lo;
    hi = more ? hi : mid;
  }
  const std::size_t fromAbove = taken - lo;
  return std::max(lo > 0 ? below(lo - 1) : 0.0, fromAbove > 0 ? above(fromAbove - 1) : 0.0);
}

// The median of 5 or 9 values (reordered), by the fixed networks of minima and maxima that
// leave the middle value in place (Paeth's): the running medians below take thousands of
// them, and sorting by insertion mispredicts its branches on noise.
double MedianOfFive(double* p) {
  Order(p[0], p[1]), Order(p[3], p[4]), Order(p[0], p[3]), Order(p[1], p[4]);
  Order(p[1], p[2]), Order(p[2], p[3]), Order(p[1], p[2]);
  return p[2];
}
double MedianOfNine(double* p) {
  Order(p[1], p[2]), Order(p[4], p[5]), Order(p[7], p[8]), Order(p[0], p[1]);
  Order(p[3], p[4]), Order(p[6], p[7]), Order(p[1], p[2]), Order(p[4], p[5]);
  Order(p[7], p[8]), Order(p[0], p[3]), Order(p[5], p[8]), Order(p[4], p[7]);
  Order(p[3], p[6]), Order(p[1], p[4]), Order(p[2], p[5]), Order(p[4], p[7]);
  Order(p[4], p[2]), Order(p[6], p[4]), Order(p[4], p[2]);
  return p[4];
}

// Replaces NaN entries by their nearest finite neighbour, then takes a running median of
// five so that one block swamped by a wide peak does not move the curve.
void FillAndSmooth(std::vector<double>& v, double fallback, std::size_t width = 5) {
  const std::size_t n = v.size();
  std::size_t firstFinite = n;
  for (std::size_t i = 0; i < n; ++i) {
    if (std::isfinite(v[i])) { firstFinite = i; break; }
  }
  if (firstFinite == n) {
    std::fill(v.begin(), v.end(), fallback);
    return;
  }
  double last = v[firstFinite];
  for (std::size_t i = 0; i < n; ++i) {
    if (std::isfinite(v[i])) last = v[i]; else v[i] = last;
  }
  width = std::min(width, n % 2 ? n : n - 1);
  if (width < 3) return;
  // Near the ends the window shrinks symmetrically, so a trend is followed to the edge.
  // Windows are a few entries wide: a window of 5 or 9 goes through its network, any other
  // is sorted by insertion.
  std::vector<double> out(v), w(width);
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t half = std::min({width / 2, i, n - 1 - i});
    if (half == 2 || half == 4) {
      std::copy(v.begin() + static_cast<std::ptrdiff_t>(i - half),
                v.begin() + static_cast<std::ptrdiff_t>(i + half + 1), w.begin());
      out[i] = half == 2 ? MedianOfFive(w.data()) : MedianOfNine(w.data());
      continue;
    }
    for (std::size_t j = 0; j <= 2 * half; ++j) {
      const double e = v[i - half + j];
      std::size_t at = j;
      for (; at > 0 && e < w[at - 1]; --at) w[at] = w[at - 1];
      w[at] = e;
    }
    out[i] = w[half];
  }
  v.swap(out);
}

// What the pass over every point sees in a block of kSpacingBlock points: the smallest and
// the largest |y|, the highest y, the widest step (with the one to the next block's first
// point) and the lowest rising step of every fourth from the block's first (those its typical
// spacing is taken from; +inf: none).
struct Look {
  double smallest, largest, highest, widest, lowest;
};

// Four doubles in a vector: one AVX2 register, or two SSE2 registers without AVX2.
using Lanes4 = double __attribute__((vector_size(32)));
using Masks4 = std::int64_t __attribute__((vector_size(32)));

// Looks at every block of x and y (n points) and checks the trace on the way: false when a
// value is not finite or x falls, as ValidateTrace finds (v - v is NaN exactly when v is not
// finite, and a step between finite values is negative exactly when x falls). Four points at
// a time with no branch on the data; minima and maxima are the same in any order, so both
// instruction sets give the same figures.
[[gnu::always_inline]] inline bool LookAtBlocksIn(const double* x, const double* y, std::size_t n,
                                                  Look* looks) {
  // (A cast between vectors of one size keeps the bits.)
  const Masks4 sign = (Masks4)(Lanes4{} - 0.0);
  const Lanes4 infinite = Lanes4{} + INFINITY;
  // Summed and lowest over the whole trace: NaN stays in a sum.
  Lanes4 flaws{}, fall{};
  for (std::size_t lo = 0; lo < n; lo += kSpacingBlock, ++looks) {
    // Steps from the points before stepEnd (the last point has none).
    const std::size_t hi = std::min(n, lo + kSpacingBlock), stepEnd = std::min(hi, n - 1);
    Lanes4 smallest = infinite, largest{}, highest = -infinite, widest{}, low = infinite;
    std::size_t i = lo;
    for (; i + 4 <= stepEnd; i += 4) {
      Lanes4 here, next, e;
      std::memcpy(&here, x + i, sizeof here);
      std::memcpy(&next, x + i + 1, sizeof next);
      std::memcpy(&e, y + i, sizeof e);
      const Lanes4 step = next - here, a = (Lanes4)((Masks4)e & ~sign);
      flaws += (here - here) + (e - e);
      fall = step < fall ? step : fall;
      widest = widest < step ? step : widest;
      const Lanes4 rising = step > 0.0 ? step : infinite;
      low = rising < low ? rising : low;
      smallest = a < smallest ? a : smallest;
      largest = largest < a ? a : largest;
      highest = highest < e ? e : highest;
    }
    // (Lanes 1 to 3 of `low` held the steps between the sampled ones.)
    Look look{smallest[0], largest[0], highest[0], widest[0], low[0]};
    for (int k = 1; k < 4; ++k) {
      look.smallest = std::min(look.smallest, smallest[k]);
      look.largest = std::max(look.largest, largest[k]);
      look.highest = std::max(look.highest, highest[k]);
      look.widest = std::max(look.widest, widest[k]);
    }
    for (; i < hi; ++i) {
      const double a = std::fabs(y[i]);
      look.smallest = std::min(look.smallest, a);
      look.largest = std::max(look.largest, a);
      look.highest = std::max(look.highest, y[i]);
      flaws[0] += (x[i] - x[i]) + (y[i] - y[i]);
      if (i == stepEnd) continue;
      const double step = x[i + 1] - x[i];
      look.widest = std::max(look.widest, step);
      fall[0] = std::min(fall[0], step);
      if ((i - lo) % 4 == 0 && step > 0.0) look.lowest = std::min(look.lowest, step);
    }
    *looks = look;
  }
  bool sound = true;
  for (int k = 0; k < 4; ++k) sound = sound && flaws[k] == 0.0 && !(fall[k] < 0.0);
  return sound;
}
#ifdef QXPKUTIL_AVX2
[[gnu::target("avx2")]] bool LookAtBlocksAvx2(const double* x, const double* y, std::size_t n,
                                              Look* looks) {
  return LookAtBlocksIn(x, y, n, looks);
}
#endif
bool LookAtBlocks(std::span<const double> x, std::span<const double> y, std::vector<Look>& looks) {
  looks.resize((x.size() + kSpacingBlock - 1) / kSpacingBlock);
#ifdef QXPKUTIL_AVX2
  if (HasAvx2AndPopcnt()) return LookAtBlocksAvx2(x.data(), y.data(), x.size(), looks.data());
#endif
  return LookAtBlocksIn(x.data(), y.data(), x.size(), looks.data());
}

// Finds the regions, the missing points and whether the data is thresholded, from the trace
// and its looks.
void FindRegions(std::span<const double> x, std::span<const double> y,
                 std::span<const Look> looks, SignalModel& m) {
  const auto n = static_cast<std::int32_t>(x.size());
  m.largest = 0.0;
  for (const Look& look : looks) m.largest = std::max(m.largest, look.largest);
  // Typical spacing per block of steps, ignoring repeated x (a last block of one point has
  // no step): a median of neighbouring blocks' low quantiles of their sampled steps, so no
  // lower than the lowest of those blocks' sampled steps when each has one. A trace whose
  // every block lies within the gap factor of that bound and has no zero (as most do) has
  // no gap and no missing point, and needs no typical spacing.
  const std::int32_t blocks =
      std::max<std::int32_t>(1, (n - 1 + kSpacingBlock - 1) / kSpacingBlock);
  bool plain = true;
  for (std::int32_t b = 0; b < static_cast<std::int32_t>(looks.size()) && plain; ++b) {
    // The lowest sampled step of the block and its neighbours; 0 where one has none (a
    // block of one point has no step at all).
    double bound = b < blocks ? INFINITY : 0.0;
    for (std::int32_t k = std::max(0, b - 2); k <= std::min(blocks - 1, b + 2); ++k) {
      const double lowest = looks[static_cast<std::size_t>(k)].lowest;
      bound = std::min(bound, lowest < INFINITY ? lowest : 0.0);
    }
    const Look& look = looks[static_cast<std::size_t>(b)];
    plain = look.smallest != 0.0 && look.widest <= kGapFactor * bound;
  }
  std::vector<std::int32_t> gaps;  // i with a gap between points i and i + 1
  m.missing.assign(static_cast<std::size_t>(n), 0);
  std::int32_t missingCount = 0;
  double absent = 0.0;
  if (!plain) {
    std::vector<double> spacing(static_cast<std::size_t>(blocks), std::nan(""));
    std::vector<double> steps;
    for (std::int32_t b = 0; b < blocks; ++b) {
      steps.clear();
      // Every fourth step is plenty for a typical figure.
      for (std::int32_t i = b * kSpacingBlock; i < std::min(n - 1, (b + 1) * kSpacingBlock);
           i += 4) {
        if (x[i + 1] > x[i]) steps.push_back(x[i + 1] - x[i]);
      }
      spacing[static_cast<std::size_t>(b)] = TypicalStep(steps);
    }
    FillAndSmooth(spacing, 1.0);
    // Block by block: the x gaps (a handful), the missing points (zeros next to another zero
    // or to a gap, which carry no signal) and how much of the grid is absent. A block without
    // a zero or a gap, as most are, is settled by one look.
    auto typical = [&](std::int32_t i) {
      return spacing[static_cast<std::size_t>(i / kSpacingBlock)];
    };
    bool gapBefore = false;
    for (std::int32_t lo = 0; lo < n; lo += kSpacingBlock) {
      const std::int32_t hi = std::min(n, lo + kSpacingBlock);
      const double gap = lo + 1 < n ? kGapFactor * typical(lo) : 0.0;
      const Look& look = looks[static_cast<std::size_t>(lo / kSpacingBlock)];
      if (!gapBefore && look.smallest != 0.0 && !(look.widest > gap)) continue;
      for (std::int32_t i = lo; i < hi; ++i) {
        const bool gapAfter = i + 1 < n && x[i + 1] - x[i] > gap;
        if (y[i] == 0.0) {
          const bool zeroLeft = i > 0 && y[i - 1] == 0.0 && !gapBefore;
          const bool zeroRight = i + 1 < n && y[i + 1] == 0.0 && !gapAfter;
          m.missing[i] = zeroLeft || zeroRight || gapBefore || gapAfter;
          missingCount += m.missing[i];
          if (m.missing[i] && i + 1 < n) absent += 1.0;
        }
        if (gapAfter) {
          gaps.push_back(i);
          absent += (x[i + 1] - x[i]) / typical(i) - 1.0;
        }
        gapBefore = gapAfter;
      }
    }
  }
  m.thresholded = absent > n;
  // Regions end at gaps and inside runs of missing points, and hold some signal.
  m.regions.clear();
  std::int32_t begin = 0;
  auto close = [&](std::int32_t end) {
    bool carriesSignal = missingCount == 0;
    for (std::int32_t j = begin; j < end && !carriesSignal; ++j) carriesSignal = !m.missing[j];
    if (carriesSignal) m.regions.push_back({begin, end});
    begin = end;
  };
  if (missingCount == 0) {
    for (std::int32_t g : gaps) close(g + 1);
    close(n);
    return;
  }
  auto gap = gaps.begin();
  for (std::int32_t i = 0; i < n; ++i) {
    const bool atGap = gap != gaps.end() && *gap == i;
    if (atGap) ++gap;
    if (i + 1 == n || atGap || (m.missing[i] && m.missing[i + 1])) close(i + 1);
  }
}

// The z above which a standard normal value lies with probability p.
double UpperQuantile(double p) {
  double lo = 0.0, hi = 40.0;
  for (int k = 0; k < 60; ++k) {
    const double mid = 0.5 * (lo + hi);
    (0.5 * std::erfc(mid / std::sqrt(2.0)) > p ? lo : hi) = mid;
  }
  return 0.5 * (lo + hi);
}

// Noise of thresholded data: the threshold T is about the lowest stored value, and noise
// alone crosses it as often as the short runs of stored points show, so T = sigma *
// z(p) where p is that rate over the whole sampling grid of the block.
double ThresholdNoise(std::span<const double> x, std::span<const double> y, const SignalModel& m,
                      std::int32_t lo, std::int32_t hi, double spacing,
                      std::span<double> values) {
  const auto fifth = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 20);
  std::nth_element(values.begin(), fifth, values.end());
  const double threshold = *fifth;
  double crossings = 0.0;
  std::int32_t run = 0;
  for (std::int32_t i = lo; i <= hi; ++i) {
    const bool stored = i < hi && !m.missing[i] && y[i] > 0.0;
    const bool joined = stored && run > 0 && x[i] - x[i - 1] < kGapFactor * spacing;
    if (stored && (run == 0 || joined)) {
      ++run;
      continue;
    }
    if (run > 0 && run <= 2) crossings += run;
    run = stored ? 1 : 0;
  }
  const double grid = spacing > 0.0 ? (x[hi - 1] - x[lo]) / spacing + 1.0 : hi - lo;
  const double rate = crossings / std::max(grid, 1.0);
  if (!(threshold > 0.0) || rate <= 1e-5 || rate >= 0.3)
    return threshold > 0.0 ? threshold / 2.0 : std::nan("");
  return threshold / UpperQuantile(rate);
}

// The typical x step of every block (of the model's current size), filled and smoothed.
void EstimateSpacing(std::span<const double> x, SignalModel& m) {
  const auto n = static_cast<std::int32_t>(x.size());
  const std::int32_t blocks = (n + m.block() - 1) / m.block();
  m.spacing_.assign(static_cast<std::size_t>(blocks), std::nan(""));
  std::vector<double> steps;
  for (std::int32_t b = 0; b < blocks; ++b) {
    const std::int32_t lo = b * m.block(), hi = std::min(n, lo + m.block());
    steps.clear();
    for (std::int32_t i = lo; i + 1 < hi; i += std::max<std::int32_t>(1, (hi - lo) / 32)) {
      if (x[i + 1] > x[i]) steps.push_back(x[i + 1] - x[i]);
    }
    m.spacing_[static_cast<std::size_t>(b)] = TypicalStep(steps);
  }
  FillAndSmooth(m.spacing_, 1.0);
}

// Baseline (a clipped median) and noise (second differences of the clipped points) per
// block of `block` points, from about `samples` evenly spaced points of each block.
// `skipped` is non-zero at the points left out (missing, or near peaks).
void EstimateLevels(std::span<const double> x, std::span<const double> y, SignalModel& m,
                    std::int32_t samples, std::span<const std::uint8_t> skipped) {
  // The gathers below store every sampled value and advance past the ones that count, with
  // no branch on the data: which points are left out follows the peaks, unpredictably.
  auto skip = [&](std::int32_t i) { return static_cast<unsigned>(skipped[i]); };
  const auto n = static_cast<std::int32_t>(y.size());
  const std::int32_t blocks = (n + m.block() - 1) / m.block();
  // Second differences at lags 1, 2, 4, ... up to half a peak width (1 before it is known).
  const double halfWidth =
      m.fwhm_ref > 0.0 ? 0.5 * m.PointsPerFwhm(n / 2, x[static_cast<std::size_t>(n / 2)]) : 1.0;
  std::vector<std::int32_t> lags{m.noise_lag > 0 ? m.noise_lag : 1};
  while (m.noise_lag == 0 && lags.size() < 6 && 2.0 * lags.back() <= halfWidth) {
    lags.push_back(2 * lags.back());
  }
  m.baseline_.assign(static_cast<std::size_t>(blocks), std::nan(""));
  m.noise_.assign(static_cast<std::size_t>(blocks), std::nan(""));
  // Per block: the level above which points count as signal (NaN: too few points to
  // measure) and the spread of the points, the noise when curvature cannot be had.
  std::vector<double> ceiling(static_cast<std::size_t>(blocks), std::nan(""));
  std::vector<double> spreads(static_cast<std::size_t>(blocks), std::nan(""));
  // Each holds at most a block's points, and only its first values count: no block
  // clears or fills them.
  const auto most = static_cast<std::size_t>(m.block());
  std::vector<double> values(most), kept(most), scratch(most), curvature(most);
  std::array<double, kSorted> sorted;
  // The last block's medians (of the values, their distances from it, the curvature): the
  // next block's lie close, and the selections start from a bracket around them.
  double lastCentre = std::nan(""), lastDistance = std::nan(""), lastCurvature = std::nan("");
  auto around = [](double guess, double halfWidth) {
    return Guess{guess - halfWidth, guess + halfWidth};
  };
  auto strideOf = [samples](std::int32_t lo, std::int32_t hi) {
    return std::max<std::int32_t>(1, (hi - lo) / samples);
  };
  // The noise of block b from the second differences at one lag.
  auto blockNoise = [&](std::int32_t b, std::int32_t lag) {
    const double top = ceiling[static_cast<std::size_t>(b)];
    if (std::isnan(top)) return std::nan("");
    const std::int32_t lo = b * m.block(), hi = std::min(n, lo + m.block());
    const std::int32_t stride = strideOf(lo, hi);
    std::size_t count = 0;
    const std::int32_t end = std::min(hi, n - lag);
    for (std::int32_t i = std::max(lo, lag); i < end; i += stride) {
      const double before = y[i - lag], here = y[i], after = y[i + lag];
      const bool clear = (skip(i - lag) | skip(i) | skip(i + lag)) == 0 &&
                         std::max({before, here, after}) <= top;
      curvature[count] = std::fabs(before - 2.0 * here + after);
      count += clear ? 1 : 0;
    }
    if (count < 8) return spreads[static_cast<std::size_t>(b)];
    const std::span<double> sample = std::span<double>(curvature).first(count);
    lastCurvature = SortFew(sample, sorted)
                        ? sorted[count / 2]
                        : Median(sample, around(lastCurvature, 0.25 * lastCurvature));
    return kMadToSigma * lastCurvature / std::sqrt(6.0);
  };
  // The baseline, ceiling and spread of block b (thresholded data: its noise too).
  auto blockLevels = [&](std::int32_t b) {
    const std::int32_t lo = b * m.block(), hi = std::min(n, lo + m.block());
    const std::int32_t stride = strideOf(lo, hi);
    std::size_t count = 0;
    for (std::int32_t i = lo; i < hi; i += stride) {
      values[count] = y[i];
      count += skip(i) != 0 ? 0 : 1;
    }
    if (count < 8) return;
    const std::span<double> sample = std::span<double>(values).first(count);
    if (m.thresholded) {
      m.baseline_[static_cast<std::size_t>(b)] = 0.0;
      m.noise_[static_cast<std::size_t>(b)] =
          ThresholdNoise(x, y, m, lo, hi, m.spacing_[static_cast<std::size_t>(b)], sample);
      return;
    }
    // One clipping round: the points more than three spreads above the median (peaks)
    // leave; the median of the rest is the block's baseline, and the curvature of the rest
    // its noise (second differences ignore a slope of the baseline).
    // Sorted where they can be (the common case), else selected from.
    const bool few = SortFew(sample, sorted);
    const std::span<double> order = std::span<double>(kept).first(count);
    const std::size_t half = count / 2;
    double centre = 0.0;
    if (few) {
      centre = sorted[half];
      lastDistance = SortedMedianDeviation(sorted.data(), count);
    } else {
      std::copy(sample.begin(), sample.end(), order.begin());
      centre = SelectNth(order, half, around(lastCentre, 0.4 * lastDistance));
      lastDistance =
          MedianAbsDeviation(sample, centre, scratch, around(lastDistance, 0.25 * lastDistance));
    }
    lastCentre = centre;
    const double spread = kMadToSigma * lastDistance;
    if (spread > 0.0) {
      // Only values above the median leave, so the median of the rest is an order
      // statistic of the lower half, which the selection left in front: half - rest / 2
      // ranks under the median, where noise values lie about 2.5 spreads / n apart (the
      // bracket reaches three ranks further).
      const double bound = centre + 3.0 * spread;
      const std::span<const double> upper =
          few ? std::span<const double>(sorted).subspan(half, count - half) : order.subspan(half);
      const auto rest = half + static_cast<std::size_t>(std::count_if(
                                   upper.begin(), upper.end(),
                                   [bound](double v) { return v <= bound; }));
      if (rest / 2 < half) {
        const auto below = static_cast<double>(half - rest / 2 + 3);
        const double step = 2.5 * spread / static_cast<double>(count);
        centre = few ? sorted[rest / 2]
                     : SelectNth(order.first(half), rest / 2, Guess{centre - below * step, centre});
      }
    }
    m.baseline_[static_cast<std::size_t>(b)] = centre;
    ceiling[static_cast<std::size_t>(b)] = centre + 3.0 * spread;
    spreads[static_cast<std::size_t>(b)] = spread;
  };
  // White noise has the same second difference at every lag. Noise correlated over a few
  // points (apodised or filtered profiles) shows less of itself at short lags, so the lag
  // doubles while the figure still grows clearly, up to half a peak width.
  // The choice reads medians over blocks, which a few hundred blocks settle as well as all,
  // so it is made first, on those blocks alone.
  // The blocks it reads (every `every`-th; 0: none) keep their levels and their noise at the
  // chosen lag.
  std::int32_t lag = lags[0], every = 0;
  std::vector<double> chosen;
  if (!m.thresholded && lags.size() > 1) {
    every = std::max<std::int32_t>(1, blocks / 256);
    for (std::int32_t b = 0; b < blocks; b += every) blockLevels(b);
    auto noiseAtLag = [&](std::int32_t at) {
      std::vector<double> noise;
      for (std::int32_t b = 0; b < blocks; b += every) noise.push_back(blockNoise(b, at));
      return noise;
    };
    chosen = noiseAtLag(lags[0]);
    for (std::size_t k = 0; k + 1 < lags.size(); ++k) {
      std::vector<double> longer = noiseAtLag(lags[k + 1]);
      if (!(FiniteMedian(longer) > 1.2 * FiniteMedian(chosen))) break;
      chosen.swap(longer);
      lag = lags[k + 1];
    }
  }
  if (m.fwhm_ref > 0.0) m.noise_lag = lag;
  // The other blocks' levels, and each one's noise while the block is in cache.
  for (std::int32_t b = 0; b < blocks; ++b) {
    if (every > 0 && b % every == 0) {
      m.noise_[static_cast<std::size_t>(b)] = chosen[static_cast<std::size_t>(b / every)];
      continue;
    }
    blockLevels(b);
    if (!m.thresholded) m.noise_[static_cast<std::size_t>(b)] = blockNoise(b, lag);
  }
  const double largest = m.largest;
  FillAndSmooth(m.baseline_, 0.0);
  // The noise varies slowly along x; a wide running median steadies it.
  FillAndSmooth(m.noise_, largest * 1e-3, 9);
  // A noise-free signal still has rounding: keep the noise above it.
  for (double& s : m.noise_) s = std::max(s, largest * 1e-9 + 1e-300);
}

struct WidthSample {
  double x;
  double fwhm;
  double height;
};

// Bit k set where y[k] (k < 8) is a local top at or above the bar (y[-1] and y[8] are
// read); 0 at once when no point reaches it, as most do not. No branch on which are tops:
// that is noise.
unsigned TopsAtOrAbove(const double* y, double bar) {
  const Lanes2 largest = MaxLanes(MaxLanes(LoadLanes(y), LoadLanes(y + 2)),
                                  MaxLanes(LoadLanes(y + 4), LoadLanes(y + 6)));
  if (!(std::max(largest[0], largest[1]) >= bar)) return 0;
  unsigned bits = 0;
  for (int k = 0; k < 8; k += 2) {
    const Lanes2 here = LoadLanes(y + k);
    const Masks2 top =
        (here >= bar) & (here > LoadLanes(y + k - 1)) & (here >= LoadLanes(y + k + 1));
    bits |= static_cast<unsigned>((top[0] & 1) | (top[1] & 2)) << k;
  }
  return bits;
}

// FWHMs of the tallest clean peaks (at most kMostSamples): local tops at least 10 noise above
// the baseline that fall to half height on both sides inside their region before anything
// higher appears. `looks`: those of every kSpacingBlock points.
std::vector<WidthSample> MeasureStrongPeaks(std::span<const double> x, std::span<const double> y,
                                            const SignalModel& m,
                                            std::span<const Look> looks) {
  constexpr std::size_t kMostSamples = 400;
  const auto n = static_cast<std::int32_t>(y.size());
  // A clean peak: its top i and the points l < i < h just outside its half height.
  struct Clean {
    std::int32_t l, i, h;
    double half, height;
  };
  // x is read at the clean peaks alone, a few peaks behind the scan (which reads only y):
  // x around each was prefetched when it was found, and has arrived by then.
  constexpr std::size_t kBehind = 8;
  std::vector<Clean> clean;
  std::vector<WidthSample> samples;
  std::size_t measured = 0;
  auto measureUpTo = [&](std::size_t end) {
    for (; measured < end; ++measured) {
      const auto [l, i, h, half, height] = clean[measured];
      const double xl = x[l] + (half - y[l]) * (x[l + 1] - x[l]) / (y[l + 1] - y[l]);
      const double xh = x[h - 1] + (y[h - 1] - half) * (x[h] - x[h - 1]) / (y[h - 1] - y[h]);
      const double fwhm = xh - xl;
      if (fwhm > 1.5 * m.SpacingAt(i)) samples.push_back({x[i], fwhm, height});
    }
  };
  auto consider = [&](const Region& r, std::int32_t i) {
    const double base = m.BaselineAt(i), height = y[i] - base;
    if (height < 10.0 * m.NoiseAt(i)) return;
    const double half = base + 0.5 * height;
    std::int32_t l = i - 1, h = i + 1;
    bool below = true;
    while (l > r.begin && y[l] > half && below) below = y[l--] <= y[i];
    while (h + 1 < r.end && y[h] > half && below) below = y[h++] <= y[i];
    if (!below || y[l] > half || y[h] > half) return;
    // A clean peak has fallen to a quarter of its height one half-width past each crossing;
    // a neighbour overlapping it would widen the measurement.
    const std::int32_t farLeft = 2 * l - i, farRight = 2 * h - i;
    if (farLeft < r.begin || farRight >= r.end) return;
    if (y[farLeft] - base > 0.25 * height || y[farRight] - base > 0.25 * height) return;
    clean.push_back({l, i, h, half, height});
    __builtin_prefetch(&x[l]);
    __builtin_prefetch(&x[h]);
    if (clean.size() > kBehind) measureUpTo(clean.size() - kBehind);
  };
  // Per level block: the bar of a strong top, and the lowest baseline of any of its points
  // (the levels run linearly between block centres).
  std::vector<double> bars, lowest;
  for (std::int32_t b = 0; b < static_cast<std::int32_t>(m.baseline_.size()); ++b) {
    bars.push_back(m.LevelBounds(b, 10.0).first);
    lowest.push_back(m.LevelBounds(b, 0.0).first);
  }
  // The tops of [from, to) inside r. Most points are noise far below the bar: eight at a
  // time are tested for tops without a branch.
  auto scan = [&](const Region& r, std::int32_t from, std::int32_t to) {
    std::int32_t blockEnd = from;
    double bar = 0.0;
    for (std::int32_t i = from; i < to; ++i) {
      if (i >= blockEnd) {
        const std::int32_t block = i / m.block();
        blockEnd = (block + 1) * m.block();
        bar = bars[static_cast<std::size_t>(block)];
      }
      if (i + 8 <= std::min(blockEnd, to)) {
        for (unsigned tops = TopsAtOrAbove(&y[i], bar); tops != 0; tops &= tops - 1)
          consider(r, i + std::countr_zero(tops));
        i += 7;
      } else if (y[i] >= bar && y[i] > y[i - 1] && y[i] >= y[i + 1]) {
        consider(r, i);
      }
    }
  };
  // Only the tallest peaks count, and a top of block j stands at most reach[j] above the
  // baseline (the margin covers the rounding of the interpolated baseline). The blocks that
  // reach a bar are scanned first; the others only when fewer than kMostSamples clean peaks
  // stand at or above the bar, since theirs could not be among the tallest otherwise.
  std::vector<double> reach(looks.size());
  for (std::size_t j = 0, b = 0; j < reach.size(); ++j) {
    const auto first = static_cast<std::int32_t>(j) * kSpacingBlock;
    const std::int32_t last = std::min(n, first + kSpacingBlock) - 1;
    while ((static_cast<std::int32_t>(b) + 1) * m.block() <= first) ++b;
    const double base = std::min(lowest[b], lowest[static_cast<std::size_t>(last / m.block())]);
    const double highest = looks[j].highest;
    reach[j] = highest - base + 1e-9 * (std::fabs(highest) + std::fabs(base));
  }
  // The bar about kScanFirst blocks reach, from a sample of about kBarSample blocks.
  constexpr std::size_t kScanFirst = 4 * kMostSamples, kBarSample = 1024;
  double bar = -INFINITY;
  if (reach.size() > 4 * kScanFirst) {
    std::vector<double> sample;
    const std::size_t every = reach.size() / kBarSample;
    for (std::size_t j = 0; j < reach.size(); j += every) sample.push_back(reach[j]);
    const std::size_t above = sample.size() * kScanFirst / reach.size();
    bar = SelectNth(sample, sample.size() - 1 - above);
  }
  // The blocks chosen lie far apart: each one's points are fetched while the one kAhead
  // chosen blocks before it is scanned.
  constexpr std::size_t kAhead = 4;
  std::vector<std::int32_t> picked;
  auto scanBlocks = [&](auto chosen) {
    for (const Region& r : m.regions) {
      picked.clear();
      for (std::int32_t j = (r.begin + 1) / kSpacingBlock; j * kSpacingBlock < r.end - 1; ++j) {
        if (chosen(reach[static_cast<std::size_t>(j)])) picked.push_back(j);
      }
      for (std::size_t k = 0; k < picked.size(); ++k) {
        if (k + kAhead < picked.size()) {
          const std::int32_t from = picked[k + kAhead] * kSpacingBlock;
          for (std::int32_t i = from; i < std::min(r.end, from + kSpacingBlock); i += 8)
            __builtin_prefetch(&y[static_cast<std::size_t>(i)]);
        }
        const std::int32_t j = picked[k];
        scan(r, std::max(r.begin + 1, j * kSpacingBlock),
             std::min(r.end - 1, (j + 1) * kSpacingBlock));
      }
    }
    measureUpTo(clean.size());
  };
  scanBlocks([bar](double top) { return top >= bar; });
  const auto tall = std::count_if(samples.begin(), samples.end(),
                                  [bar](const WidthSample& s) { return s.height >= bar; });
  if (bar > -INFINITY && static_cast<std::size_t>(tall) < kMostSamples)
    scanBlocks([bar](double top) { return top < bar; });
  if (samples.size() > kMostSamples) {
    // Equal heights are told apart by x, so the peaks kept do not depend on the scan's order.
    std::nth_element(samples.begin(), samples.begin() + kMostSamples, samples.end(),
                     [](const WidthSample& a, const WidthSample& b) {
                       return a.height > b.height || (a.height == b.height && a.x < b.x);
                     });
    samples.resize(kMostSamples);
  }
  return samples;
}

// Chooses the law (exponent) that makes log FWHM - exponent * log x the most constant.
void FitWidthLaw(const std::vector<WidthSample>& samples, bool chromatogram, SignalModel& m) {
  static constexpr WidthLaw kLaws[] = {WidthLaw::kConstant, WidthLaw::kTof, WidthLaw::kOrbitrap,
                                       WidthLaw::kFtIcr};
  std::vector<double> residual, scratch;
  double bestCost = INFINITY;
  for (WidthLaw law : kLaws) {
    if (chromatogram && law != WidthLaw::kConstant) break;
    const double p = WidthExponent(law);
    residual.clear();
    for (const WidthSample& s : samples) {
      residual.push_back(std::log(s.fwhm) - p * std::log(std::max(s.x, 1e-300)));
    }
    std::vector<double> copy(residual);
    const double centre = Median(copy);
    const double cost = MedianAbsDeviation(residual, centre, scratch);
    // A more complex law must fit clearly better than a simpler one.
    if (cost < bestCost * 0.9) {
      bestCost = cost;
      m.law = law;
      m.exponent = p;
      m.x_ref = 1.0;
      m.fwhm_ref = std::exp(centre);
    }
  }
}

void ChooseWidth(std::span<const double> x, std::span<const double> y, const DetectOptions& o,
                 std::span<const Look> looks, SignalModel& m) {
  const bool chromatogram = o.kind == SignalKind::kChromatogram;
  WidthLaw law = chromatogram ? WidthLaw::kConstant : o.width_law;
  if (o.fwhm > 0.0 || o.resolution > 0.0) {
    if (law == WidthLaw::kAuto) {
      law = o.fwhm > 0.0 && o.fwhm_at <= 0.0 ? WidthLaw::kConstant : WidthLaw::kTof;
    }
    m.law = law;
    m.exponent = WidthExponent(law);
    if (o.fwhm > 0.0) {
      m.fwhm_ref = o.fwhm;
      m.x_ref = o.fwhm_at > 0.0 ? o.fwhm_at : 1.0;
    } else {
      m.fwhm_ref = o.resolution_at / o.resolution;
      m.x_ref = o.resolution_at;
    }
    return;
  }
  const std::vector<WidthSample> samples = MeasureStrongPeaks(x, y, m, looks);
  if (samples.size() >= 3) {
    if (law == WidthLaw::kAuto) {
      FitWidthLaw(samples, chromatogram, m);
    } else {
      std::vector<double> ref;
      for (const WidthSample& s : samples)
        ref.push_back(s.fwhm / std::pow(s.x, WidthExponent(law)));
      m.law = law;
      m.exponent = WidthExponent(law);
      m.x_ref = 1.0;
      m.fwhm_ref = Median(ref);
    }
    return;
  }
  // Nothing to learn from: assume peaks a few points wide, constant in x.
  std::vector<double> spacing(m.spacing_);
  m.law = WidthLaw::kConstant;
  m.exponent = 0.0;
  m.x_ref = 1.0;
  m.fwhm_ref = 5.0 * Median(spacing);
}

}  // namespace

double SignalModel::FwhmAt(double x) const {
  if (exponent == 0.0) return fwhm_ref;
  const double ratio = std::max(x, 1e-300) / x_ref;
  // The time-of-flight law (a power of 1, as pow gives it: exactly) is read once per peak.
  return fwhm_ref * (exponent == 1.0 ? ratio : std::pow(ratio, exponent));
}

double SignalModel::PointsPerFwhm(std::int32_t i, double x) const {
  // A width given far beyond the trace (options allow any finite FWHM) is searched as a
  // million points, so that spans of a few widths still count in 32-bit indices.
  constexpr double kWidest = 1e6;
  const double spacing = SpacingAt(i);
  return spacing > 0.0 ? std::min(std::max(1.0, FwhmAt(x) / spacing), kWidest) : 1.0;
}

void RefineLevels(std::span<const double> x, std::span<const double> y,
                  std::vector<std::uint8_t>& exclude, SignalModel& model) {
  // One table of the points left out, read once per point.
  std::uint8_t* left = exclude.data();
  const std::uint8_t* missing = model.missing.data();
  const std::size_t n = exclude.size();
  for (std::size_t i = 0; i < n; ++i) left[i] |= missing[i];
  EstimateLevels(x, y, model, kFullSamples, exclude);
}

double WidthExponent(WidthLaw law) {
  switch (law) {
    case WidthLaw::kTof: return 1.0;
    case WidthLaw::kOrbitrap: return 1.5;
    case WidthLaw::kFtIcr: return 2.0;
    default: return 0.0;
  }
}

std::pair<double, double> SignalModel::LevelBounds(std::int32_t b, double noises) const {
  const auto last = static_cast<std::int32_t>(baseline_.size()) - 1;
  double lowest = INFINITY, highest = -INFINITY;
  for (std::int32_t k = std::max(0, b - 1); k <= std::min(last, b + 1); ++k) {
    lowest = std::min(lowest, baseline_[k] + noises * noise_[k]);
    highest = std::max(highest, baseline_[k] + noises * noise_[k]);
  }
  return {lowest, highest};
}

double SignalModel::BaselineSum(std::int32_t lo, std::int32_t hi) const {
  // Each straight piece adds its length times the mean of its ends.
  double sum = 0.0;
  for (std::int32_t from = lo; from <= hi;) {
    const std::int32_t last = std::min(hi, StraightPiece(from).second - 1);
    sum += 0.5 * (last - from + 1) * (BaselineAt(from) + BaselineAt(last));
    from = last + 1;
  }
  return sum;
}

void SignalModel::TabulateWidths(std::span<const double> x) {
  const auto n = static_cast<std::int32_t>(x.size());
  ppf_.resize(spacing_.size());
  for (std::size_t b = 0; b < ppf_.size(); ++b) {
    const std::int32_t mid = std::min(n - 1, static_cast<std::int32_t>(b) * block_ + block_ / 2);
    ppf_[b] = PointsPerFwhm(mid, x[mid]);
  }
}

std::optional<SignalModel> EstimateSignalModel(std::span<const double> x,
                                               std::span<const double> y,
                                               const DetectOptions& options) {
  SignalModel m;
  const auto n = static_cast<std::int32_t>(x.size());
  std::vector<Look> looks;
  if (!LookAtBlocks(x, y, looks)) return std::nullopt;
  FindRegions(x, y, looks, m);
  // First pass with blocks of a fixed size, to find strong peaks and learn the width.
  m.SetBlock(std::clamp<std::int32_t>(n / 8, 16, 4096));
  EstimateSpacing(x, m);
  EstimateLevels(x, y, m, kFullSamples, m.missing);
  ChooseWidth(x, y, options, looks, m);
  // Second pass with blocks of about fifteen peak widths.
  std::vector<double> ppf;
  for (std::int32_t i = 0; i < n; i += std::max<std::int32_t>(1, n / 64)) {
    ppf.push_back(m.PointsPerFwhm(i, x[i]));
  }
  const double typical = Median(ppf);
  // Enough points per block for a steady noise figure, but short traces still get several.
  // A multiple of 32, so that the levels' straight pieces begin and end on the matched
  // filter's runs of 16 points.
  const auto wanted =
      static_cast<std::int32_t>(std::ceil(std::max(15.0 * typical, 256.0) / 32.0)) * 32;
  m.SetBlock(std::clamp<std::int32_t>(std::min(wanted, n / 4), 32, 4096));
  EstimateSpacing(x, m);
  // These levels only choose the points that the refined levels (which the search reads)
  // leave out, and the seeds of thresholded data, so half the points do.
  EstimateLevels(x, y, m, kFullSamples / 2, m.missing);
  m.TabulateWidths(x);
  return m;
}

}  // namespace qxpkutil
