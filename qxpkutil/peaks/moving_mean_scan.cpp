// Peak finding by a moving-mean scan: QXPeakTable::FindPeaks (both array families).
//
// A window slides over one x range; a rise of its mean followed by a fall marks a peak,
// whose apex is the highest point of the rise and whose bounds are found by walking
// window means away from the apex. The scan's decisions hang on exact comparisons of
// window means, so every mean is summed in one fixed order and every step is kept as it is:
// a last-bit difference would move an apex or a bound, and peak tables, label matches and
// settings that users saved would then no longer give the peaks they gave before.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <vector>

#include "qxpkutil/fitting/QXNonLinFit.h"
#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/numeric_internal.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/scan_internal.h"
#include "qxpkutil/platform/QXTypes.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace qxpkutil {
namespace {

enum class Direction { kLeftward, kRightward };

// Window means of one filter kind (0 Gaussian, 1 plain) and width over starts lo..hi-1,
// computed exactly as WindowMean would compute them one by one.
struct MeanBlock {
  int kind = 0;
  int width = 0;
  std::int64_t lo = 0;
  std::int64_t hi = 0;
  // means[i - lo], filled as the block widens
  std::unique_ptr<double[], numeric_detail::FreeLarge> means;
};

template <class YValue>
void ComputeMeans(const YValue* y, int kind, int width, std::int64_t lo, std::int64_t hi,
                  double* out) {
  const auto count = static_cast<std::size_t>(hi - lo);
  if (kind == 0) {
    numeric_detail::GaussMeans(y + lo, width, count, out);
  } else {
    for (std::size_t k = 0; k < count; ++k) out[k] = QXDataExpUtils::Mean(y + lo + k, width);
  }
}

// Widens `block` to cover lo..hi-1 (its old range included), computing only what it lacks.
// False when memory is short; the block is then left as it was.
template <class YValue>
bool CoverRange(MeanBlock& block, const YValue* y, std::int64_t lo, std::int64_t hi) {
  if (block.hi > block.lo && block.lo <= lo && hi <= block.hi) return true;
  const std::int64_t newLo = block.hi > block.lo ? std::min(lo, block.lo) : lo;
  const std::int64_t newHi = block.hi > block.lo ? std::max(hi, block.hi) : hi;
  // Left uninitialised: every slot is written below, and zeroing megabytes costs time.
  const auto count = static_cast<std::size_t>(newHi - newLo);
  std::unique_ptr<double[], numeric_detail::FreeLarge> means(
      static_cast<double*>(numeric_detail::AllocateLarge(count * sizeof(double))));
  if (!means) return false;
  if (block.hi > block.lo) {
    std::copy(block.means.get(), block.means.get() + (block.hi - block.lo),
              means.get() + (block.lo - newLo));
    ComputeMeans(y, block.kind, block.width, newLo, block.lo, means.get());
    ComputeMeans(y, block.kind, block.width, block.hi, newHi, means.get() + (block.hi - newLo));
  } else {
    ComputeMeans(y, block.kind, block.width, newLo, newHi, means.get());
  }
  block.lo = newLo;
  block.hi = newHi;
  block.means = std::move(means);
  return true;
}

// Sets bit k % 64 of `le` when means[k] <= means[k - 1] and of `gt` when means[k] >
// means[k - 1]; a NaN on either side sets neither, as in the scan's comparisons.
void MarkStep(const double* means, std::int64_t k, std::uint64_t& le, std::uint64_t& gt) {
  le |= static_cast<std::uint64_t>(means[k] <= means[k - 1]) << (k & 63);
  gt |= static_cast<std::uint64_t>(means[k] > means[k - 1]) << (k & 63);
}

#if defined(__x86_64__) && defined(__GNUC__)
// MarkStep for the 64 steps k..k+63, four at a time.
[[gnu::target("avx")]] void MarkWord(const double* means, std::int64_t k, std::uint64_t& le,
                                     std::uint64_t& gt) {
#pragma GCC unroll 16
  for (int j = 0; j < 64; j += 4) {
    const __m256d m = _mm256_loadu_pd(means + k + j);
    const __m256d before = _mm256_loadu_pd(means + k + j - 1);
    le |= static_cast<std::uint64_t>(_mm256_movemask_pd(_mm256_cmp_pd(m, before, _CMP_LE_OQ)))
          << j;
    gt |= static_cast<std::uint64_t>(_mm256_movemask_pd(_mm256_cmp_pd(m, before, _CMP_GT_OQ)))
          << j;
  }
}
#endif

// Fills the words of bits for the steps k = from..to-1 (from a multiple of 64): `whole(k)`
// the word of steps k..k+63 with AVX where the processor has it, `part(k, end)` any other
// word from its step max(k, 1) on. Bit 0, which has no step, stays clear.
template <class Whole, class Part>
void MarkWords(std::int64_t from, std::int64_t to, Whole&& whole, Part&& part) {
#if defined(__x86_64__) && defined(__GNUC__)
  static const bool hasAvx = __builtin_cpu_supports("avx") != 0;
#else
  constexpr bool hasAvx = false;
#endif
  for (std::int64_t k = from; k < to; k += 64) {
    const std::int64_t end = std::min(k + 64, to);
    if (hasAvx && k > 0 && end == k + 64) {
      whole(k);
    } else {
      part(k, end);
    }
  }
}

// The directions of the steps between neighbouring means, 64 to a word (MarkStep) for
// k = from..to-1. The walks of a scan with step 1 find where a run of rising or falling
// means ends by counting zeros instead of testing step by step, which on noise mispredicts
// about once a run.
void MarkSteps(const double* means, std::int64_t from, std::int64_t to, std::uint64_t* le,
               std::uint64_t* gt) {
  MarkWords(
      from, to,
      [&]([[maybe_unused]] std::int64_t k) {
#if defined(__x86_64__) && defined(__GNUC__)
        le[k / 64] = 0;
        gt[k / 64] = 0;
        MarkWord(means, k, le[k / 64], gt[k / 64]);
#endif
      },
      [&](std::int64_t k, std::int64_t end) {
        std::uint64_t l = 0;
        std::uint64_t g = 0;
        for (std::int64_t j = std::max<std::int64_t>(k, 1); j < end; ++j) MarkStep(means, j, l, g);
        le[k / 64] = l;
        gt[k / 64] = g;
      });
}

#if defined(__x86_64__) && defined(__GNUC__)
// The moved bits (MarkMoves) of the 64 steps k..k+63, four at a time.
[[gnu::target("avx")]] std::uint64_t MoveWord(const double* means, std::int64_t k, double t) {
  const __m256d bar = _mm256_set1_pd(t);
  const __m256d sign = _mm256_set1_pd(-0.0);
  std::uint64_t moved = 0;
#pragma GCC unroll 16
  for (int j = 0; j < 64; j += 4) {
    const __m256d change =
        _mm256_sub_pd(_mm256_loadu_pd(means + k + j - 1), _mm256_loadu_pd(means + k + j));
    moved |= static_cast<std::uint64_t>(_mm256_movemask_pd(
                 _mm256_cmp_pd(_mm256_andnot_pd(sign, change), bar, _CMP_GE_OQ)))
             << j;
  }
  return moved;
}
#endif

// Sets bit k % 64 of moved[k / 64] when means[k] moved by at least t from means[k - 1], as
// the bound finder with noise threshold t tests it, for k = from..to-1. For t > 0 such a
// move is never between equal means, and a NaN threshold moves nothing, so the test needs
// no second comparison. The noise-threshold walks of a scan with step 1 then find the
// first move by counting zeros.
void MarkMoves(const double* means, std::int64_t from, std::int64_t to, double t,
               std::uint64_t* moved) {
  MarkWords(
      from, to,
      [&]([[maybe_unused]] std::int64_t k) {
#if defined(__x86_64__) && defined(__GNUC__)
        moved[k / 64] = MoveWord(means, k, t);
#endif
      },
      [&](std::int64_t k, std::int64_t end) {
        std::uint64_t bits = 0;
        for (std::int64_t j = std::max<std::int64_t>(k, 1); j < end; ++j) {
          bits |= static_cast<std::uint64_t>(std::fabs(means[j - 1] - means[j]) >= t) << (j & 63);
        }
        moved[k / 64] = bits;
      });
}

#if defined(__x86_64__) && defined(__GNUC__)
// AboveWord four at a time.
[[gnu::target("avx")]] std::uint64_t AboveWordAvx(const double* y, const double* means, double t) {
  const __m256d bar = _mm256_set1_pd(t);
  std::uint64_t above = 0;
#pragma GCC unroll 16
  for (int j = 0; j < 64; j += 4) {
    const __m256d point = _mm256_cmp_pd(bar, _mm256_loadu_pd(y + j), _CMP_LE_OQ);
    const __m256d mean = _mm256_cmp_pd(bar, _mm256_loadu_pd(means + j), _CMP_LE_OQ);
    above |= static_cast<std::uint64_t>(_mm256_movemask_pd(_mm256_or_pd(point, mean))) << j;
  }
  return above;
}
#endif

// Bit j set when t <= y[j] or t <= means[j], for j = 0..63: the scan's threshold test of a
// step, with y the points at the windows' middles (a NaN sets nothing, as in the test).
template <class YValue>
std::uint64_t AboveWord(const YValue* y, const double* means, double t) {
#if defined(__x86_64__) && defined(__GNUC__)
  if constexpr (std::is_same_v<YValue, double>) {
    static const bool hasAvx = __builtin_cpu_supports("avx") != 0;
    if (hasAvx) return AboveWordAvx(y, means, t);
  }
#endif
  std::uint64_t above = 0;
  for (int j = 0; j < 64; ++j) {
    above |= static_cast<std::uint64_t>((t <= static_cast<double>(y[j])) | (t <= means[j])) << j;
  }
  return above;
}

// The first k in from..to (offsets into a bit array) whose bit is set, or to + 1.
std::int64_t NextSet(const std::uint64_t* bits, std::int64_t from, std::int64_t to) {
  for (std::int64_t k = from; k <= to; k = (k | 63) + 1) {
    const std::uint64_t word = bits[k >> 6] >> (k & 63);
    if (word != 0) return std::min(k + std::countr_zero(word), to + 1);
  }
  return to + 1;
}

// The last k in from..to whose bit is set, or from - 1.
std::int64_t PrevSet(const std::uint64_t* bits, std::int64_t from, std::int64_t to) {
  for (std::int64_t k = to; k >= from; k = (k & ~std::int64_t{63}) - 1) {
    const std::uint64_t word = bits[k >> 6] << (63 - (k & 63));
    if (word != 0) return std::max(k - std::countl_zero(word), from - 1);
  }
  return from - 1;
}

// What a scan met over first..last before its minimum-area test, kept for a replay.
struct KeptScan {
  struct Peak {
    std::int64_t apex;
    std::int64_t left;
    std::int64_t right;
    double area;
  };
  const double* x;
  peaks_detail::ScanRequest request;  // its minimum area and x range are not read
  std::int64_t first;
  std::int64_t last;
  std::vector<Peak> peaks;
};

// Two doubles compared bit for bit (a NaN equals itself, 0.0 differs from -0.0).
bool SameBits(double u, double v) {
  return std::bit_cast<std::uint64_t>(u) == std::bit_cast<std::uint64_t>(v);
}

// True when scans with these arguments over the same arrays meet the same peaks before
// their minimum-area tests. Values compare bit for bit: the sign of a zero scale reaches
// the areas.
bool SameScan(const peaks_detail::ScanRequest& a, const peaks_detail::ScanRequest& b) {
  return SameBits(a.areaScale, b.areaScale) && SameBits(a.threshold, b.threshold) &&
         a.filterType == b.filterType && a.filterWidth == b.filterWidth &&
         a.filterInc == b.filterInc && a.maxPeakWidth == b.maxPeakWidth &&
         SameBits(a.noiseThreshold, b.noiseThreshold) && a.integrationMethod == b.integrationMethod;
}

}  // namespace

namespace peaks_detail {

struct SharedWindowMeans::Store {
  const double* y;
  std::uint32_t n;
  std::vector<MeanBlock> blocks;
  std::vector<KeptScan> kept;
};

namespace {
thread_local SharedWindowMeans* tSharedMeans = nullptr;
thread_local SharedWindowMeans::Store* tSharedStore = nullptr;
}  // namespace

SharedWindowMeans::SharedWindowMeans(const double* y, std::uint32_t n)
    : m_store(new (std::nothrow) Store{y, n, {}, {}}), m_outer(tSharedMeans) {
  tSharedMeans = this;
  tSharedStore = m_store.get();
}

SharedWindowMeans::~SharedWindowMeans() {
  tSharedMeans = m_outer;
  tSharedStore = m_outer != nullptr ? m_outer->m_store.get() : nullptr;
}

}  // namespace peaks_detail

namespace {

// The thread's store when it holds the array y of n values, else null.
peaks_detail::SharedWindowMeans::Store* StoreFor(const double* y, std::uint32_t n) {
  peaks_detail::SharedWindowMeans::Store* store = peaks_detail::tSharedStore;
  return store != nullptr && store->y == y && store->n == n ? store : nullptr;
}

// The means a scan over y reads for starts lo..hi-1: from the thread's shared store when it
// holds this array, else from `local`. Null when memory is short (the scan then computes
// each mean where it needs it). `fill` false only looks: a scan that would visit few of the
// windows does not pay for all of them.
template <class YValue>
const MeanBlock* CoveredMeans(const YValue* y, std::uint32_t n, int kind, int width,
                              std::int64_t lo, std::int64_t hi, bool fill, MeanBlock& local) {
  MeanBlock* block = nullptr;
  if constexpr (std::is_same_v<YValue, double>) {
    if (peaks_detail::SharedWindowMeans::Store* store = StoreFor(y, n)) {
      for (MeanBlock& b : store->blocks) {
        if (b.kind == kind && b.width == width) block = &b;
      }
      if (block == nullptr && fill) {
        try {
          store->blocks.push_back({kind, width, 0, 0, nullptr});
        } catch (const std::bad_alloc&) {
          return nullptr;
        }
        block = &store->blocks.back();
      }
    }
  }
  if (block == nullptr) {
    if (!fill) return nullptr;
    local.kind = kind;
    local.width = width;
    block = &local;
  }
  if (fill) return CoverRange(*block, y, lo, hi) ? block : nullptr;
  return block->lo <= lo && hi <= block->hi ? block : nullptr;
}

// One scan over one array family. Indices are 64-bit so that i + width never overflows.
template <class XValue, class YValue>
class MovingMeanScan {
 public:
  MovingMeanScan(const XValue* x, const YValue* y, std::uint32_t n,
                 const peaks_detail::ScanRequest& s)
      : m_x(x), m_y(y), m_n(n), m_s(s) {}

  // Where a scan stands between two calls of Continue: the step it takes next and what it
  // carries over from the steps before.
  struct Cursor {
    std::int64_t i;
    double prevMean = kQXUnsetValue;
    double mean = 0.0;  // what a filter type without a mean compares
    bool rising = false;
    std::int64_t riseStart = 0;
    std::int64_t valley = -1;
    // Where the last peak sent the scan back to, with the mean it carried: meeting both
    // again means the scan would repeat itself forever, so it goes on forward instead.
    std::int64_t lastResume = -1;
    double lastResumeMean = 0.0;
  };

  // Hands every accepted peak of first..last to `accept(apex, left, right, area)`. A
  // candidate that passes the width and height tests is integrated only when
  // `worth(left, right)` says its area can still matter.
  template <class Worth, class Accept>
  void Run(std::int64_t first, std::int64_t last, Worth&& worth, Accept&& accept) {
    TakeMeans(first, last);
    Cursor cursor{first};
    Continue(first, last, last + 1, cursor, worth, accept);
  }

  // Run's steps of first..last from the cursor's step on, stopping before the first step at
  // or past `pause`: a scan split over several calls meets the peaks that one call meets.
  // Between calls the means may be replaced (UseMeans) by others of the same array.
  template <class Worth, class Accept>
  void Continue(std::int64_t first, std::int64_t last, std::int64_t pause, Cursor& cursor,
                Worth&& worth, Accept&& accept);

  // Takes the means of starts lo..hi-1 from means[0..hi-lo-1]; others are computed. With
  // `le` and `gt`, the bits of MarkSteps over means[0..hi-lo-1], and `moved`, those of
  // MarkMoves at this scan's noise threshold, a scan with step 1 walks by them.
  void UseMeans(const double* means, std::int64_t lo, std::int64_t hi,
                const std::uint64_t* le = nullptr, const std::uint64_t* gt = nullptr,
                const std::uint64_t* moved = nullptr) {
    m_means = means;
    m_meansLo = lo;
    m_meansHi = hi;
    m_le = m_s.filterInc == 1 ? le : nullptr;
    m_gt = m_s.filterInc == 1 ? gt : nullptr;
    m_moved = m_s.filterInc == 1 ? moved : nullptr;
  }

  // True when the bound finder walks with a noise threshold, which MarkMoves's bits answer.
  bool WalksByNoise() const { return !(m_s.noiseThreshold <= 0.0); }
  double NoiseThreshold() const { return m_s.noiseThreshold; }

 private:
  double Y(std::int64_t i) const { return static_cast<double>(m_y[i]); }

  // Mean of the `filterWidth` intensities starting at i: Gaussian-weighted for filter type
  // 0, plain for any other type (the bound finder's rule; the scan itself computes no mean
  // for types other than 0 and 1).
  double WindowMean(std::int64_t i) const {
    if (m_means != nullptr && i >= m_meansLo && i < m_meansHi) return m_means[i - m_meansLo];
    return m_s.filterType == 0 ? QXDataExpUtils::NormGaussMean(m_y + i, m_s.filterWidth)
                               : QXDataExpUtils::Mean(m_y + i, m_s.filterWidth);
  }

  // Index of the lowest intensity in lo..hi: rightward the first of equal minima (lowest
  // index), leftward scanning down from hi and keeping the first found (highest index).
  std::int64_t LowestPoint(std::int64_t lo, std::int64_t hi, Direction dir) const;

  // Bound finder with the noise threshold `t`. `mean` is the scan's running mean, which the
  // finder overwrites: the scan carries that value on as its previous mean, on purpose.
  std::int64_t FindBound(Direction dir, std::int64_t start, std::int64_t apex,
                         std::int64_t limit, double t, double& mean) const;

  // Takes the means of a run over first..last from the shared store or m_localMeans.
  void TakeMeans(std::int64_t first, std::int64_t last);

  // With the step bits, the first k in from..stop (from past the flat loop's entry, stop
  // within the means) whose point or mean reaches the threshold and whose mean rises, or
  // stop + 1: the flat loop's stop, found a word of 64 steps at a time.
  std::int64_t NextRiseAbove(std::int64_t from, std::int64_t stop);

  const XValue* m_x;
  const YValue* m_y;
  std::uint32_t m_n;
  peaks_detail::ScanRequest m_s;
  // Precomputed means for starts m_meansLo .. m_meansHi - 1, when there are any.
  const double* m_means = nullptr;
  std::int64_t m_meansLo = 0;
  std::int64_t m_meansHi = 0;
  // Their step bits (MarkSteps), offsets from m_meansLo, when the scan walks by them.
  const std::uint64_t* m_le = nullptr;
  const std::uint64_t* m_gt = nullptr;
  const std::uint64_t* m_moved = nullptr;
  MeanBlock m_localMeans;
  // The threshold bits (AboveWord) of the steps m_aboveFrom .. m_aboveFrom + 63, kept for
  // the next visits of the flat loop: they depend only on the data, whichever buffer holds
  // the means.
  std::int64_t m_aboveFrom = -1;
  std::uint64_t m_above = 0;
};

template <class XValue, class YValue>
std::int64_t MovingMeanScan<XValue, YValue>::NextRiseAbove(std::int64_t from, std::int64_t stop) {
  const double* means = m_means - m_meansLo;
  const double threshold = m_s.threshold;
  const std::int64_t half = m_s.filterWidth / 2;
  for (std::int64_t k = from; k <= stop;) {
    const std::int64_t word = (k - m_meansLo) >> 6;
    const std::int64_t base = m_meansLo + 64 * word;
    if (base + 63 > stop) {
      // The last, partial word: step by step.
      for (; k <= stop; ++k) {
        if (((threshold <= Y(k + half)) | (threshold <= means[k])) && !(means[k] <= means[k - 1])) {
          return k;
        }
      }
      break;
    }
    if (base != m_aboveFrom) {
      m_above = AboveWord(m_y + base + half, means + base, threshold);
      m_aboveFrom = base;
    }
    const std::uint64_t rises = (m_above & ~m_le[word]) >> (k - base);
    if (rises != 0) return k + std::countr_zero(rises);
    k = base + 64;
  }
  return stop + 1;
}

template <class XValue, class YValue>
std::int64_t MovingMeanScan<XValue, YValue>::LowestPoint(std::int64_t lo, std::int64_t hi,
                                               Direction dir) const {
  hi = std::min<std::int64_t>(hi, m_n - 1);
  if (lo > hi) return hi;  // nothing to search: stay inside the array
  if (dir == Direction::kRightward) {
    std::int64_t best = lo;
    for (std::int64_t k = lo + 1; k <= hi; ++k) {
      if (Y(k) < Y(best)) best = k;
    }
    return best;
  }
  std::int64_t best = hi;
  for (std::int64_t k = hi - 1; k >= lo; --k) {
    if (Y(k) < Y(best)) best = k;
  }
  return best;
}

template <class XValue, class YValue>
std::int64_t MovingMeanScan<XValue, YValue>::FindBound(Direction dir, std::int64_t start,
                                             std::int64_t apex, std::int64_t limit, double t,
                                             double& mean) const {
  const std::int64_t w = m_s.filterWidth;
  const std::int64_t inc = m_s.filterInc;
  double prev = start + w <= limit ? WindowMean(start) : 0.0;

  if (t <= 0.0) {
    // Walk until the window mean rises again: i stops at the first rise, or one step past
    // the end.
    std::int64_t i = start + inc;
    const std::int64_t marked = std::min(limit - w, m_meansHi - 1);
    if (m_gt != nullptr && i > m_meansLo && i <= marked) {
      // prev is the mean before step i here, so the jump needs no test (whether the walk
      // goes anywhere is a coin toss).
      i = NextSet(m_gt, i - m_meansLo, marked - m_meansLo) + m_meansLo;
      prev = m_means[i - 1 - m_meansLo];
    }
    for (; i <= limit - w; i += inc) {
      const double m = WindowMean(i);
      if (m > prev) break;
      prev = m;
    }
    const std::int64_t stopIndex = i;
    std::int64_t base = i - inc;
    if (dir == Direction::kRightward && (stopIndex < apex || base < apex)) base = apex;
    mean = prev;
    return LowestPoint(base, std::min(base + w, limit), dir);
  }

  if (dir == Direction::kLeftward) {
    // The middle of the first window whose mean moves by at least the noise threshold. The
    // moved bits skip the steps before that move (or before the last step).
    std::int64_t i = start + inc;
    const std::int64_t marked = std::min(limit - w, m_meansHi - 1);
    if (m_moved != nullptr && i > m_meansLo && i <= marked) {
      // As above, prev is the mean before step i.
      i = std::min(NextSet(m_moved, i - m_meansLo, marked - m_meansLo) + m_meansLo, marked);
      prev = m_means[i - 1 - m_meansLo];
    }
    for (; i + w <= limit; i += inc) {
      const double m = WindowMean(i);
      mean = m;
      const std::int64_t candidate = i + w / 2;
      if (std::fabs(prev - m) >= t && prev != m) return candidate;
      prev = m;
      if (i + inc + w > limit) return candidate;
    }
    return start;
  }

  // Rightward: from the plain bound, walk back towards the apex while the mean stays flat.
  const std::int64_t r = FindBound(Direction::kRightward, start, apex, limit, 0.0, mean);
  prev = mean;
  for (std::int64_t i = r - 1; i >= apex && i <= limit - w; i -= inc) {
    const double m = WindowMean(i);
    mean = m;
    const std::int64_t candidate = i + w / 2;
    if (std::fabs(prev - m) >= t && prev != m) return candidate;
    if (candidate < apex) return apex;
    prev = m;
    if (i - inc < apex) return candidate;
    // Each step from here on compares neighbours (step k means k and k + 1, bit k + 1 of
    // the moved bits): the bits skip down to the next move, or to the apex, the last step.
    const std::int64_t lowest = std::max(apex, m_meansLo) + 1;
    if (m_moved != nullptr && i >= lowest && i < m_meansHi) {
      const std::int64_t move =
          std::max(PrevSet(m_moved, lowest - m_meansLo, i - m_meansLo) + m_meansLo, lowest) - 1;
      prev = m_means[move + 1 - m_meansLo];
      i = move + inc;  // the loop steps down to it
    }
  }
  return r;
}

template <class XValue, class YValue>
void MovingMeanScan<XValue, YValue>::TakeMeans(std::int64_t first, std::int64_t last) {
  // Every window mean the scan and its bound finder read starts in first .. last - width.
  // With a step of 1 the scan reads nearly all of them, most two or three times: compute
  // each once up front. With a longer step only means already shared are taken.
  const int kind = m_s.filterType == 0 ? 0 : 1;
  const MeanBlock* block =
      CoveredMeans(m_y, m_n, kind, m_s.filterWidth, first, last - m_s.filterWidth + 1,
                   m_s.filterInc == 1, m_localMeans);
  if (block != nullptr) {
    UseMeans(block->means.get(), block->lo, block->hi);
  } else {
    UseMeans(nullptr, 0, 0);
  }
}

template <class XValue, class YValue>
template <class Worth, class Accept>
void MovingMeanScan<XValue, YValue>::Continue(std::int64_t first, std::int64_t last,
                                              std::int64_t pause, Cursor& cursor, Worth&& worth,
                                              Accept&& accept) {
  const std::int64_t width = m_s.filterWidth;
  const std::int64_t inc = m_s.filterInc;
  std::int64_t i = cursor.i;
  double prevMean = cursor.prevMean;
  double mean = cursor.mean;
  bool rising = cursor.rising;
  std::int64_t riseStart = cursor.riseStart;
  std::int64_t valley = cursor.valley;
  std::int64_t lastResume = cursor.lastResume;
  double lastResumeMean = cursor.lastResumeMean;

  // Outside a rise, a step only moves the valley until a window rises above the threshold.
  // Most steps of a spectrum are such steps, and whether a noisy mean goes up or down is a
  // coin toss, so they run in a loop of their own that looks at the direction only where
  // the point or the mean reaches the threshold, and finds the valley afterwards.
  const bool fastFlat = m_means != nullptr && (m_s.filterType == 0 || m_s.filterType == 1);
  const std::int64_t fastStop = fastFlat ? std::min({last - width, m_meansHi - 1, pause - 1}) : -1;
  const double threshold = m_s.threshold;
  for (; i <= last && i < pause; i += inc) {
    if (!rising && i <= fastStop && i >= m_meansLo) {
      const double* means = m_means - m_meansLo;
      const std::int64_t entry = i;
      const double entryMean = prevMean;
      const auto before = [&](std::int64_t k) { return k == entry ? entryMean : means[k - inc]; };
      bool rose = false;
      if (m_le != nullptr) {
        // Step 1: the entry by itself, then the steps after it by words of bits.
        rose = ((threshold <= Y(i + width / 2)) | (threshold <= means[i])) &&
               !(means[i] <= entryMean);
        if (!rose) {
          i = NextRiseAbove(i + 1, fastStop);
          rose = i <= fastStop;
        }
      } else {
        for (; i <= fastStop; i += inc) {
          if (((threshold <= Y(i + width / 2)) | (threshold <= means[i])) &&
              !(means[i] <= before(i))) {
            rose = true;
            break;
          }
        }
      }
      // The valley is the last step before the stop whose mean did not rise.
      std::int64_t k = i - inc;
      if (m_le != nullptr && k > entry) {
        k = PrevSet(m_le, entry + 1 - m_meansLo, k - m_meansLo) + m_meansLo;
      }
      for (; k >= entry; k -= inc) {
        if (means[k] <= before(k)) {
          valley = k;
          break;
        }
      }
      prevMean = means[rose ? i : i - inc];
      if (rose) {
        rising = true;
        riseStart = i;
        // While the mean keeps rising, the rise start follows the latest window above the
        // threshold; the first step that does not rise goes on below.
        i += inc;
        if (m_le != nullptr && i <= fastStop) {
          const std::int64_t fall = NextSet(m_le, i - m_meansLo, fastStop - m_meansLo) + m_meansLo;
          // The threshold test first: it usually holds at once, while whether the rise went
          // on past its first step is a coin toss.
          std::int64_t k = fall - 1;
          while (!(threshold <= Y(k + width / 2) || threshold <= means[k]) && k > riseStart) --k;
          riseStart = k;
          prevMean = means[fall - 1];
          i = fall;
        }
        for (; i <= fastStop; i += inc) {
          const double m = means[i];
          if (m <= prevMean) break;
          if (threshold <= Y(i + width / 2) || threshold <= m) riseStart = i;
          prevMean = m;
        }
      }
      mean = prevMean;
      if (i > last) break;
    }
    const std::int64_t w = i + width;
    if (w > last) {
      if (rising) mean = prevMean - 1.0;  // forces the open rise to close
    } else if (m_s.filterType == 0 || m_s.filterType == 1) {
      mean = WindowMean(i);
    }

    if (mean <= prevMean) {
      if (!rising) valley = i;
      // A rise that starts at index 0 never becomes a peak; kept as it is.
      if (rising && riseStart > 0) {
        std::int64_t apex = riseStart;
        const std::int64_t apexEnd = std::min<std::int64_t>(w - 1, m_n - 1);
        for (std::int64_t k = riseStart + 1; k <= apexEnd; ++k) {
          if (Y(k) > Y(apex)) apex = k;
        }
        if (valley < 0) valley = first;
        // The scan reads x only at the bounds of candidates, and it has long left the cache
        // by then: the lines near both bounds are fetched while the bound finders run.
        __builtin_prefetch(m_x + valley);
        __builtin_prefetch(m_x + std::min<std::int64_t>(apex + width, m_n - 1));
        const std::int64_t left =
            FindBound(Direction::kLeftward, valley, apex, apex, m_s.noiseThreshold, mean);
        riseStart = std::max(riseStart, left);
        const std::int64_t right =
            FindBound(Direction::kRightward, riseStart + 1, apex, last, m_s.noiseThreshold, mean);
        // The cheap tests first: most candidates fail one, and then need no area.
        const std::int64_t peakWidth = right - left - 1;
        if (right > apex && peakWidth >= width / 2 && peakWidth <= m_s.maxPeakWidth &&
            Y(apex) >= m_s.threshold && worth(left, right)) {
          const double area = QXDataExpUtils::IntegrateSummedRegion(
                                  m_x, m_y, static_cast<std::int32_t>(left),
                                  static_cast<std::int32_t>(right), m_s.integrationMethod) *
                              m_s.areaScale;
          if (area >= m_s.minArea) accept(apex, left, right, area);
        }
        valley = right;
        if (right != lastResume || mean != lastResumeMean) {
          lastResume = right;
          lastResumeMean = mean;
          i = right - inc;
        }
      }
      rising = false;
    } else if (m_s.threshold <= Y(std::min<std::int64_t>(i + width / 2, m_n - 1)) ||
               m_s.threshold <= mean) {
      // The rise start follows the latest rising window above the threshold.
      rising = true;
      riseStart = i;
    }
    prevMean = mean;
  }
  cursor = {i, prevMean, mean, rising, riseStart, valley, lastResume, lastResumeMean};
}

// Checks the scan's preconditions on top of the range rule: a window of at least one
// point, a positive step, and indices that fit the 32-bit records.
bool ScanCanRun(std::int64_t first, std::int64_t last, std::uint32_t n,
                const peaks_detail::ScanRequest& s) {
  return first >= 0 && first < last && last < static_cast<std::int64_t>(n) &&
         s.filterWidth >= 1 && s.filterInc >= 1 && s.filterWidth < last - first &&
         n <= kQXMaxPoints;
}

constexpr auto kAlwaysWorth = [](std::int64_t, std::int64_t) { return true; };

// Appends each accepted peak to a table, with its apex, bounds and area and nothing else.
template <class XValue, class YValue>
auto TableAppender(QXPeakTable& table, const XValue* x, const YValue* y) {
  return [&table, x, y](std::int64_t apex, std::int64_t left, std::int64_t right, double area) {
    const auto at = [y](std::int64_t i) { return static_cast<double>(y[i]); };
    table.AddPeak(static_cast<double>(x[apex]), at(apex), static_cast<std::uint32_t>(apex),
                  static_cast<double>(x[left]), at(left), static_cast<std::uint32_t>(left),
                  static_cast<double>(x[right]), at(right), static_cast<std::uint32_t>(right),
                  0.0, area, 0.0, 0.0, 0.0, 0.0, 0);
  };
}

// True when IntegrateSummedRegion(x, y, left, right, method) * scale is certainly below
// `limit`, judged from a plain double sum of the intensities, several times cheaper than
// the integral's extended-precision sums. It holds only where the integral cannot exceed
// that sum: intensities not negative and a baseline that stays at or above zero, as the
// line between two non-negative bounds does (its rounding kept far inside the margin).
// The margins cover every rounding of both sums many times over; anything less certain
// answers false, and the caller integrates.
bool AreaStaysBelow(const double* x, const double* y, std::int64_t left, std::int64_t right,
                    int method, double scale, double limit) {
  if (!(scale > 0.0) || left > right) return false;
  const double yl = y[left];
  const double yr = y[right];
  if (method == 1 && x[left] != x[right]) {
    const double reach = std::fabs(yl - yr) / std::fabs(x[left] - x[right]) *
                             std::max(std::fabs(x[left]), std::fabs(x[right])) +
                         std::fabs(yl) + std::fabs(yr);
    if (!(std::min(yl, yr) > 1e-12 * reach)) return false;
  }
  double sum[4] = {0.0, 0.0, 0.0, 0.0};
  double lowest[4] = {yl, yl, yl, yl};
  std::int64_t i = left;
  for (; i + 4 <= right + 1; i += 4) {
    for (int k = 0; k < 4; ++k) {
      sum[k] += y[i + k];
      lowest[k] = y[i + k] < lowest[k] ? y[i + k] : lowest[k];
    }
  }
  for (; i <= right; ++i) {
    sum[0] += y[i];
    lowest[0] = y[i] < lowest[0] ? y[i] : lowest[0];
  }
  const double low = std::min(std::min(lowest[0], lowest[1]), std::min(lowest[2], lowest[3]));
  if (!(low >= 0.0)) return false;
  const auto points = static_cast<double>(right - left + 1);
  const double bound =
      ((sum[0] + sum[1]) + (sum[2] + sum[3])) * (1.0 + 1e-12 + points * 1e-15) * scale;
  return bound * (1.0 + 1e-12) < limit;
}

// The range rule of the double family: both ends 0 for the whole array, an end of 0 for the
// last point, else the points nearest the two x values.
void ScanRange(const double* x, std::uint32_t n, double startX, double endX, std::int64_t& first,
               std::int64_t& last) {
  first = 0;
  last = static_cast<std::int64_t>(n) - 1;
  if (startX != 0.0 || endX != 0.0) {
    first = QXDataExpUtils::FindNearestIndex(x, n, startX);
    if (endX != 0.0) last = QXDataExpUtils::FindNearestIndex(x, n, endX);
  }
}

using Pair = double __attribute__((vector_size(16)));

// What TrialLeap reads of the 64 points from k: the sum, highest and lowest of y, and with
// `steps` the smallest and the sum of the x steps from x[j - 1] for j from `from` on (the
// sum is NaN when a step is; `from` is k or k + 4, the steps between skipped one at a time).
// V holds 2 or 4 doubles; lane l of the four-point groups takes points j with j % 4 = l in
// either, and the lanes are summed in one order, so both give the same bits.
struct ChunkLook {
  double sum, top, bottom, smallestStep, stepSum;
};

template <class V>
[[gnu::always_inline]] inline ChunkLook LookAtChunk(const double* y, const double* x,
                                                    std::int64_t k, std::int64_t from,
                                                    bool steps) {
  constexpr int kLanes = sizeof(V) / sizeof(double);
  constexpr int kVectors = 4 / kLanes;
  constexpr double kNone = std::numeric_limits<double>::infinity();
  // The four lanes as two pairs, lanes 0 and 1 then 2 and 3.
  const auto halves = [](const V* v, int h) -> Pair {
    if constexpr (kVectors == 2) {
      return Pair{v[h][0], v[h][1]};
    } else {
      return Pair{v[0][2 * h], v[0][2 * h + 1]};
    }
  };
  V sum[kVectors] = {};
  V high[kVectors] = {};
  V low[kVectors] = {};
  for (std::int64_t j = 0; j < 64; j += 4) {
    for (int l = 0; l < kVectors; ++l) {
      V v;
      std::memcpy(&v, y + k + j + kLanes * l, sizeof v);
      sum[l] += v;
      high[l] = v > high[l] ? v : high[l];
      low[l] = v < low[l] ? v : low[l];
    }
  }
  const Pair total = halves(sum, 0) + halves(sum, 1);
  const Pair top = halves(high, 0) > halves(high, 1) ? halves(high, 0) : halves(high, 1);
  const Pair bottom = halves(low, 0) < halves(low, 1) ? halves(low, 0) : halves(low, 1);
  ChunkLook look{total[0] + total[1], std::max(top[0], top[1]), std::min(bottom[0], bottom[1]),
                 kNone, 0.0};
  if (steps) {
    V step[kVectors];
    V stepSum[kVectors] = {};
    for (V& v : step) v = V{} + kNone;
    for (std::int64_t j = from; j < k + 64; j += 4) {
      for (int l = 0; l < kVectors; ++l) {
        V at;
        V before;
        std::memcpy(&at, x + j + kLanes * l, sizeof at);
        std::memcpy(&before, x + j + kLanes * l - 1, sizeof before);
        const V gap = at - before;
        step[l] = gap < step[l] ? gap : step[l];
        stepSum[l] += gap;
      }
    }
    for (std::int64_t j = k + 1; j < from; ++j) {
      const double gap = x[j] - x[j - 1];
      step[0][0] = gap < step[0][0] ? gap : step[0][0];
      stepSum[0][0] += gap;
    }
    const Pair least = halves(step, 0) < halves(step, 1) ? halves(step, 0) : halves(step, 1);
    const Pair all = halves(stepSum, 0) + halves(stepSum, 1);
    look.smallestStep = std::min(least[0], least[1]);
    look.stepSum = all[0] + all[1];
  }
  return look;
}

#if defined(__x86_64__) && defined(__GNUC__)
// LookAtChunk four lanes at a time.
[[gnu::target("avx")]] ChunkLook LookAtChunkAvx(const double* y, const double* x, std::int64_t k,
                                                std::int64_t from, bool steps) {
  using Quad = double __attribute__((vector_size(32)));
  return LookAtChunk<Quad>(y, x, k, from, steps);
}
#endif

// Lets a trial scan (one that only needs its largest area) leap over stretches whose peaks
// cannot beat the largest area found so far, landing in the very state a full scan reaches.
//
// Where it holds. The scan steps by 1, its intensity threshold is at most 0 and no intensity
// so far is negative, so every rising mean starts a rise: a rise open at step i started at
// i - 1, and a candidate closing at step c has its apex between c - 1 and c + W - 1. W is the
// filter width, m[k] the mean of the window starting at k; a step "rises" when its mean
// exceeds the one before. Each resume point lies at or after its candidate's apex, so the
// scan never goes back behind the last one.
//
// The lemma without a noise threshold (t <= 0: the bounds walk to the next rise of the mean;
// the scan never moves back). Let the steps a..z not rise (a run of at least 3W such steps,
// a - 1 and z + 1 rising, z + W + 1 <= last) and r the lowest of y[z .. z + W] (the first of
// equals). The scan then leaves the run in one of two states: A, it takes step z as a fall
// outside a rise (at step z + 1: previous mean m[z], no rise, valley z); B, it resumes at r
// after a candidate (at step r: previous mean m[z], no rise, valley r). Proof: a candidate
// closing at step i <= a - 1 has its apex at most i + W - 1 and its right walk starting at
// most a + W - 1; if that start is before a - 1 the walk stops at the rise a - 1 or earlier
// and the scan resumes at most a + 2W - 2 (< z), otherwise it walks down the whole run, stops
// at the rise z + 1 with mean m[z], takes base z (past the apex) and resumes at r: state B.
// Entering the run outside a rise (at a, or resumed at most a + 2W - 2) the scan either falls
// through it to state A, or rises once and closes a candidate at some step up to a + 2W - 1,
// whose walk starts between a and its apex + 1 <= a + 3W - 1 <= z and so again ends in B;
// entering it inside a rise closes a candidate at a, the same. Such a candidate's resume
// point r was never resumed at before (the scan would be past the run), so it jumps.
//
// The lemma with a noise threshold t > 0 and W >= 2. The right walk then goes on to the next
// rise and takes r as above, but walks back from r - 1 towards the apex and stops at the
// first step j whose mean moved by at least t from the one after it (m[r - 1] is compared
// with the walk's last mean), or at the apex; the scan resumes at j + W/2 with mean m[j]
// (rounding W/2 down), so it can move back. Let the steps a..z not rise (at least 4W of them,
// a - 1 and z + 1 rising, z + 2W <= last), r as above, and J the first step where the walk
// back from r - 1 stops among r - 1 down to z - W/2 + 1, if any. The scan leaves the run (its
// first state past z) in A, or, when J exists, in B': at step J + W/2, previous mean m[J], no
// rise, valley and last resume point J + W/2 with mean m[J]. Proof: call a step the scan takes
// with a previous mean other than its neighbour's an entry (a resume point, or the step after
// a candidate that did not jump). In the run a step rises only at an entry, and the rise
// closes at the next step. (i) A candidate whose walk stops before the run starts it at most
// a - 2, so it closed at c <= a - 2 with apex <= a + W - 3; its r <= a + 2W - 3, its entry at
// most a + 2W - 3 + W/2. (ii) A candidate whose walk reaches the run walks to the rise z + 1
// and takes base z and r, provided its apex is at most z - W/2. Then if J exists the walk
// back stops at J, past the apex, and the scan jumps to J + W/2 > z: B' (it was never there
// before, so it jumps). Otherwise it stops at some j between the apex and z - W/2 and resumes
// at j + W/2 <= z: when j >= a - 1 the means from j to z do not rise, so the scan falls from
// there through z to A; when j < a - 1 that entry is below a + W/2 - 1. A candidate that does
// not jump has its right bound at the last resume point, which lies before its closing step
// c, and at or after its apex >= c - 1, so it rose at that point and its right bound is c - 1;
// in case (ii) the right bound is at least apex + W/2 >= c, so only candidates of (i), closing
// before a - 1, fail to jump. So every entry in the run before the fall to A lies at most
// a + 2W - 3 + W/2, every candidate closing in the run closes at most a + 2W - 2 + W/2 with
// apex <= a + 3W - 3 + W/2 <= z - W/2, and the proviso of (ii) always holds. Past z the scan
// never comes back: its rises start past z. A carries some last resume point at most z,
// behind every right bound to come, so it never matters.
//
// In both cases which of the two states happens depends on the past, but both are known from
// the data: scans started in both merge within a few steps where the data allow (when r = z,
// or without J, they are one state at once). From the merged state on the scan is the full
// scan's: the two may still carry different last resume points, so they count as met only
// once both lie behind every right bound to come (SameState).
//
// The bound. A candidate met between a cursor and the merged state lies within [valley, merge
// step], since the valley only moves forward and every right bound is a step the scan goes
// on from. Its area is at most the plain sum of the intensities within its own bounds
// [left, right] when none is negative (the baseline between two non-negative bounds stays at
// or above 0), plus, for the line baseline, the line's rounding: at most
// 1e-14 * Ymax * (1 + X / g) a point for x strictly ascending with smallest step g and
// magnitudes up to X (the slope is below Ymax / g). The margins cover the sums' rounding as
// AreaStaysBelow's do.
//
// Which sums. Call q a cut when m[q] <= m[q - 1] and m[q + 1] > m[q]. Every cut within the
// bounds of a candidate lies at most 2 steps after its left bound or at most
// D = 2W + W/2 - 2 steps before its right bound. Proof, for a candidate closing at c whose
// rise started at e (the steps e + 1 .. c - 1 rise, so none of them is a cut): left is at or
// after the valley, which is e - 1 (the step before the rise), or e (a resume point where the
// rise starts), or, after a candidate closing at c' = e - 1 that did not jump, its right
// bound c' - 1 (see above). The right walk starts at s0 = max(c - 1, left) + 1, which is c,
// or lies within one step after left; its means do not rise until its stop s, so no step of
// s0 .. s - 2 is a cut, and every cut past the left ones lies at or after both c and s - 1.
// The walk's bound r is at most max(s - 1, apex) + W, where apex <= c + W - 1, and the walk
// back with a noise threshold returns at most r + W/2 - 1. So the right bound lies within
// W + W/2 - 1 steps after s - 1, or, when the apex lies further, within D steps after c. Over
// the 64-point chunks A .. B that hold the bounds, none of A + 2 .. B - 2 then holds a cut
// (D < 64: W <= 21 here), and the candidate's sum is at most that of the widest such run of
// chunks within the stretch: one ending at B starts at the chunk before the last chunk with a
// cut among the stretch's third .. B - 2, or at the stretch's first chunk. A chunk whose step
// bits are not at hand counts as one without a cut, which only widens the runs.
class TrialLeap {
 public:
  using Scan = MovingMeanScan<double, double>;
  friend std::int64_t peaks_detail::WrongRunExits(const double*, const double*,
                                                      std::uint32_t,
                                                      const peaks_detail::ScanRequest&,
                                                      std::int64_t&);

  TrialLeap(const double* x, const double* y, std::int64_t first, std::int64_t last,
            const peaks_detail::ScanRequest& s)
      : m_x(x), m_y(y), m_first(first), m_last(last), m_w(s.filterWidth),
        m_kind(s.filterType == 0 ? 0 : 1), m_method(s.integrationMethod), m_scale(s.areaScale),
        m_noise(s.noiseThreshold),
        m_run((s.noiseThreshold > 0.0 ? 4 : 3) * static_cast<std::int64_t>(s.filterWidth)),
        m_on(s.filterInc == 1 && (s.filterType == 0 || s.filterType == 1) &&
             (s.noiseThreshold <= 0.0 || (s.noiseThreshold > 0.0 && s.filterWidth >= 2)) &&
             s.threshold <= 0.0 && s.areaScale > 0.0 && m_run <= 64) {}

  // Whether the leaps can run for these settings (a fault found later may still stop them).
  bool on() const { return m_on; }

  // Moves `c` (the trial's cursor, over the means[k - lo] for starts lo..hi-1 and their step
  // bits le and gt, as MarkSteps left them) to a later state of the full scan when every
  // peak in between stays below `largest`; the cursor stays before `end`.
  // Kept out of line: inlined, it cost the real scan's loop beside it registers.
  [[gnu::noinline]] bool Leap(Scan& scan, Scan::Cursor& c, std::int64_t end, double largest,
                              const double* means, const std::uint64_t* le,
                              const std::uint64_t* gt, std::int64_t lo, std::int64_t hi) {
    if (!m_on || !(largest > 0.0)) return m_on;
    const std::int64_t w = m_w;
    const std::int64_t room = 4 * w + 64;  // for the merge, beyond the run's end
    const std::int64_t stop = std::min({end, hi, m_last - w - 1}) - 1;
    const std::int64_t from = std::max(c.valley, m_first);
    if (stop - c.i < room + m_run || stop == m_spentStop) return true;
    const std::int64_t reach = Reach(from, stop, largest, le, gt, lo, hi);
    if (reach < 0) return m_on;
    // The last run end at least `room` before the reach, and the merge. A stretch searched in
    // vain before is not searched again.
    const std::int64_t lowest = std::max({c.i, lo + m_run + 1, m_first + m_run + 2});
    const std::int64_t top = reach - room;
    const bool known = lowest >= m_noRunEndFrom && lowest <= m_noRunEndTo + 1;
    const std::int64_t z = LastRunEnd(le, gt, lo, known ? m_noRunEndTo + 1 : lowest, top);
    if (z < 0 && known) {
      m_noRunEndTo = std::max(m_noRunEndTo, top);
    } else if (z < 0 && top >= lowest) {
      m_noRunEndFrom = lowest;
      m_noRunEndTo = top;
    }
    // Reaching the last chunk before the stop without a run end, a later try against the same
    // stop finds the same: its valley and cursor only move on, and its largest area only grows.
    if (z < 0 && reach == m_first + kChunk * ((stop - m_first + 1) / kChunk) - 1) {
      m_spentStop = stop;
    }
    Scan::Cursor merged{};
    if (z >= 0 && Merge(scan, c, z, reach, means - lo, merged)) c = merged;
    return true;
  }

  // True when no peak within left..right can reach `largest`, judged on the chunks that hold
  // it when they are filled already: a candidate's plain intensity sum (AreaStaysBelow)
  // without reading its points.
  bool ChunksStayBelow(std::int64_t left, std::int64_t right, double largest) const {
    const std::int64_t c0 = (left - m_first) / kChunk;
    const std::int64_t c1 = (right - m_first) / kChunk;
    if (left < m_first || c1 >= static_cast<std::int64_t>(m_chunks.size())) return false;
    double sum = 0.0;
    double top = 0.0;
    double inverseStep = 0.0;
    for (std::int64_t c = c0; c <= c1; ++c) {
      const Chunk& chunk = m_chunks[static_cast<std::size_t>(c)];
      sum += chunk.sum;
      top = std::max(top, chunk.top);
      inverseStep = std::max(inverseStep, chunk.inverseStep);
    }
    return StaysBelow(sum, top, inverseStep, m_first + kChunk * c0,
                      m_first + kChunk * (c1 + 1) - 1, largest);
  }

  // Before the pass: runs the scan over a stretch around the highest intensity of the first
  // 2^20 points, from a state that the lemma names, and hands its peaks to `accept`, so that
  // the pass can leap with a large area from its first steps on. It fills their chunks first
  // (a negative or NaN value among them keeps the leaps off): while y and x of that many
  // points stay in the cache for the pass, this costs little; a pass over more would read
  // them from memory twice.
  template <class Accept>
  void Seed(Scan& scan, Accept&& accept) {
    constexpr std::int64_t kChunks = (std::int64_t{1} << 20) / kChunk;
    const std::int64_t chunks = std::min((m_last - m_first + 1) / kChunk, kChunks);
    if (!m_on || chunks == 0 || !Fill(chunks - 1)) return;
    std::size_t highest = 0;
    for (std::size_t c = 1; c < m_chunks.size(); ++c) {
      if (m_chunks[c].top > m_chunks[highest].top) highest = c;
    }
    const std::int64_t from = m_first + kChunk * static_cast<std::int64_t>(highest);
    std::int64_t peak = from;
    for (std::int64_t k = from + 1; k < from + kChunk; ++k) {
      if (m_y[k] > m_y[peak]) peak = k;
    }
    // The means of the stretch, starts lo..hi-1, and their step bits.
    constexpr std::int64_t kSpan = 2048;
    const std::int64_t lo = std::max(m_first, peak - kSpan);
    const std::int64_t hi = std::min(m_last - m_w + 1, peak + kSpan);
    if (hi - lo < kSpan) return;
    std::vector<double> means(static_cast<std::size_t>(hi - lo));
    ComputeMeans(m_y, m_kind, static_cast<int>(m_w), lo, hi, means.data());
    std::vector<std::uint64_t> le(means.size() / 64 + 2);
    std::vector<std::uint64_t> gt(le.size());
    MarkSteps(means.data(), 0, hi - lo, le.data(), gt.data());
    // The last run end before the peak whose states meet before it. The scan reads these
    // means only here.
    scan.UseMeans(means.data(), lo, hi);
    const double* m = means.data() - lo;
    const std::int64_t lowest = std::max(lo + m_run + 1, m_first + m_run + 2);
    for (std::int64_t z = peak - 2 * m_w;
         (z = LastRunEnd(le.data(), gt.data(), lo, lowest, z)) >= 0; --z) {
      Scan::Cursor start{};
      if (Merge(scan, Scan::Cursor{m_first}, z, peak - m_w, m, start)) {
        scan.Continue(m_first, m_last, peak + kSpan / 2, start, kAlwaysWorth, accept);
        break;
      }
    }
    scan.UseMeans(nullptr, 0, 0);
  }

 private:
  // The last z in from..to (from - lo > m_run) that ends a run of m_run steps that do not
  // rise, with z + 1 rising, from the step bits le and gt of the means from lo on; -1 when
  // none.
  std::int64_t LastRunEnd(const std::uint64_t* le, const std::uint64_t* gt, std::int64_t lo,
                          std::int64_t from, std::int64_t to) const {
    if (to < from) return -1;
    const std::int64_t run = m_run;
    for (std::int64_t word = (to - lo) >> 6; word >= (from - lo) >> 6; --word) {
      // Bit p of `ends` starts as the le bit of offset 64 * (word - 1) + p and ends set where
      // it and the run - 1 bits below it are all set.
      __extension__ typedef unsigned __int128 Wide;
      Wide ends = (static_cast<Wide>(le[word]) << 64) | (word > 0 ? le[word - 1] : 0);
      for (std::int64_t have = 1; have < run;) {
        const std::int64_t more = std::min(have, run - have);
        ends &= ends << more;
        have += more;
      }
      const std::int64_t base = lo + 64 * word;
      const std::uint64_t rises = gt[word] >> 1 | (base + 63 <= to ? gt[word + 1] << 63 : 0);
      std::uint64_t found = static_cast<std::uint64_t>(ends >> 64) & rises;
      if (to - base < 63) found &= (std::uint64_t{2} << (to - base)) - 1;
      if (from > base) found &= ~std::uint64_t{0} << (from - base);
      if (found != 0) return base + 63 - std::countl_zero(found);
    }
    return -1;
  }

  // Sum and highest value of the intensities first + 64c .. first + 64c + 63, and the inverse
  // of the smallest x step into and within them (+inf where x does not strictly ascend).
  struct Chunk {
    double sum;
    double top;
    double inverseStep;
  };
  static constexpr std::int64_t kChunk = 64;

  // Fills the chunks up to c in order; false (and the leap stays off) when a value so far is
  // negative or NaN, or memory is short.
  bool Fill(std::int64_t c) {
#if defined(__x86_64__) && defined(__GNUC__)
    static const bool hasAvx = __builtin_cpu_supports("avx") != 0;
#endif
    constexpr double kNone = std::numeric_limits<double>::infinity();
    while (static_cast<std::int64_t>(m_chunks.size()) <= c) {
      const std::int64_t k = m_first + kChunk * static_cast<std::int64_t>(m_chunks.size());
      const std::int64_t from = k > m_first ? k : k + 4;  // no step into the first point
      const bool steps = m_method == 1;
#if defined(__x86_64__) && defined(__GNUC__)
      const ChunkLook look = hasAvx ? LookAtChunkAvx(m_y, m_x, k, from, steps)
                                    : LookAtChunk<Pair>(m_y, m_x, k, from, steps);
#else
      const ChunkLook look = LookAtChunk<Pair>(m_y, m_x, k, from, steps);
#endif
      if (!(look.bottom >= 0.0) || std::isnan(look.sum)) {
        m_on = false;
        return false;
      }
      Chunk chunk{look.sum, look.top, kNone};
      if (steps && look.smallestStep > 0.0 && !std::isnan(look.stepSum)) {
        chunk.inverseStep = 1.0 / look.smallestStep;
      }
      try {
        // Room for every chunk of the range at once (24 bytes for 64 points): growing by
        // doubling copied them over and over.
        if (m_chunks.empty()) {
          m_chunks.reserve(static_cast<std::size_t>((m_last - m_first) / kChunk + 1));
        }
        m_chunks.push_back(chunk);
      } catch (const std::bad_alloc&) {
        m_on = false;
        return false;
      }
    }
    return true;
  }

  // The last k up to stop such that no peak within [from, k] can reach `largest` (judged on
  // whole chunks, a wider range, and the runs of chunks of the class comment), or -1. le and
  // gt are the step bits of the means from lo on, valid below hi.
  std::int64_t Reach(std::int64_t from, std::int64_t stop, double largest, const std::uint64_t* le,
                     const std::uint64_t* gt, std::int64_t lo, std::int64_t hi) {
    const std::int64_t c0 = (from - m_first) / kChunk;
    const std::int64_t start = m_first + kChunk * c0;
    double total = 0.0;      // the sum of the chunks c0 .. c
    double before[4] = {};   // before[(j - c0) % 4]: of the chunks c0 .. j - 1, the last four j
    double runStart = 0.0;   // the same before the chunk ahead of the last chunk with a cut
    double top = 0.0;
    double inverseStep = 0.0;
    std::int64_t reach = -1;
    for (std::int64_t c = c0; m_first + kChunk * (c + 1) - 1 <= stop; ++c) {
      if (!Fill(c)) return -1;
      const Chunk& chunk = m_chunks[static_cast<std::size_t>(c)];
      const std::int64_t end = m_first + kChunk * (c + 1) - 1;
      before[(c - c0) % 4] = total;
      total += chunk.sum;
      top = std::max(top, chunk.top);
      // The first chunk's step into it lies outside the range: a smaller step, a wider bound.
      inverseStep = std::max(inverseStep, chunk.inverseStep);
      // Chunk c - 2 joins the inner chunks of the runs ending at c.
      const std::int64_t k = c - 2;
      if (k >= c0 + 2 && HasCut(m_first + kChunk * k, le, gt, lo, hi)) {
        runStart = before[(k - 1 - c0) % 4];
      }
      // The widest run ending at c, and the rounding of the difference of two running sums.
      const double run = total - runStart;
      const auto points = static_cast<double>(end - start + 1);
      const double sum = run + total * (1e-12 + points * 1e-15);
      if (!StaysBelow(sum, top, inverseStep, start, end, largest)) return reach;
      reach = end;
    }
    return reach;
  }

  // True when a cut (class comment) lies among the 64 steps from p, by the step bits le and gt
  // of the means from lo on (valid below hi); false also when those bits are not at hand.
  static bool HasCut(std::int64_t p, const std::uint64_t* le, const std::uint64_t* gt,
                     std::int64_t lo, std::int64_t hi) {
    if (p < lo || p + 64 >= hi) return false;
    // The 64 bits from offset `at`.
    const auto bits = [](const std::uint64_t* words, std::int64_t at) {
      const std::int64_t shift = at & 63;
      const std::uint64_t low = words[at >> 6] >> shift;
      return shift == 0 ? low : low | words[(at >> 6) + 1] << (64 - shift);
    };
    return (bits(le, p - lo) & bits(gt, p - lo + 1)) != 0;
  }

  // True when no peak within start..end (the points of whole chunks, with the sum, highest
  // value and largest inverse step of those chunks) can reach `largest`.
  bool StaysBelow(double sum, double top, double inverseStep, std::int64_t start,
                  std::int64_t end, double largest) const {
    double rounding = 0.0;
    if (m_method == 1) {
      const double magnitude = std::max(std::fabs(m_x[start]), std::fabs(m_x[end]));
      rounding = 1e-14 * top * (1.0 + magnitude * inverseStep);
    }
    const auto points = static_cast<double>(end - start + 1);
    const double bound = (sum + points * rounding) * (1.0 + 1e-12 + points * 1e-15) * m_scale;
    return bound * (1.0 + 1e-12) < largest;
  }

  // Two cursors in the same state. Their last resume points may differ only where no later
  // candidate can meet them: every right bound to come lies at or after the open rise's start
  // (or the next step, outside a rise), and the next candidate overwrites both alike.
  static bool SameState(const Scan::Cursor& a, const Scan::Cursor& b) {
    const std::int64_t nextRight = a.rising ? a.riseStart : a.i;
    return a.i == b.i && SameBits(a.prevMean, b.prevMean) && SameBits(a.mean, b.mean) &&
           a.rising == b.rising && (!a.rising || a.riseStart == b.riseStart) &&
           a.valley == b.valley && std::max(a.lastResume, b.lastResume) < nextRight;
  }

  // The first step of the walk back from r - 1 (towards z - W/2 + 1) at which the right bound
  // finder with the noise threshold stops, as in the lemma with t > 0; -1 when it walks on.
  std::int64_t WalkBackStop(const double* m, std::int64_t z, std::int64_t r) const {
    double after = m[z];
    for (std::int64_t j = r - 1; j >= z - m_w / 2 + 1; --j) {
      if (std::fabs(after - m[j]) >= m_noise && after != m[j]) return j;
      after = m[j];
    }
    return -1;
  }

  // The states the scan may leave the run ending at z in (A, and B or with a noise threshold
  // B' above), A taking its last resume point from `c`; false when A is the only one. m[k] is
  // the mean of the window starting at k.
  bool Exits(const Scan::Cursor& c, std::int64_t z, const double* m, Scan::Cursor& a,
             Scan::Cursor& b) const {
    std::int64_t r = z;
    for (std::int64_t k = z + 1; k <= std::min(z + m_w, m_last); ++k) {
      if (m_y[k] < m_y[r]) r = k;
    }
    a = {z + 1, m[z], m[z], false, 0, z, c.lastResume, c.lastResumeMean};
    // Where B (B') resumes, and the mean it carries; z when there is no such state.
    std::int64_t resume = r;
    double carried = m[z];
    if (m_noise > 0.0) {
      const std::int64_t j = WalkBackStop(m, z, r);
      resume = j < 0 ? z : j + m_w / 2;
      if (j >= 0) carried = m[j];
    }
    b = {resume, carried, carried, false, 0, resume, resume, carried};
    return resume != z;
  }

  // Runs the states the run ending at z may leave (Exits) until they meet, before step
  // `reach`; true with the state they meet in.
  bool Merge(Scan& scan, const Scan::Cursor& c, std::int64_t z, std::int64_t reach,
             const double* m, Scan::Cursor& merged) const {
    Scan::Cursor a{};
    Scan::Cursor b{};
    if (!Exits(c, z, m, a, b)) {
      merged = a;
      return true;
    }
    constexpr auto never = [](std::int64_t, std::int64_t) { return false; };
    constexpr auto none = [](std::int64_t, std::int64_t, std::int64_t, double) {};
    while (a.i <= reach && b.i <= reach) {
      if (SameState(a, b)) {
        merged = a;
        return true;
      }
      Scan::Cursor& behind = b.i < a.i ? b : a;
      const std::int64_t until = a.i == b.i ? a.i + 1 : std::max(a.i, b.i);
      scan.Continue(m_first, m_last, until, behind, never, none);
    }
    return false;
  }

  const double* m_x;
  const double* m_y;
  std::int64_t m_first;
  std::int64_t m_last;
  std::int64_t m_w;
  int m_kind;  // of the window means, as ComputeMeans takes it
  int m_method;
  double m_scale;
  double m_noise;
  std::int64_t m_run;  // the run of steps that do not rise that the lemma needs
  // y and x summed by chunks in order from `first`; the leap stays off from the first chunk
  // with a negative or NaN intensity on, since the lemma reads the whole past.
  std::vector<Chunk> m_chunks;
  bool m_on;
  // No run end lies in m_noRunEndFrom .. m_noRunEndTo: the bits there say so, whatever the
  // buffer that held them.
  std::int64_t m_noRunEndFrom = 0;
  std::int64_t m_noRunEndTo = -1;
  std::int64_t m_spentStop = -1;  // see Leap
};

// What a pass learns of the points it meets beside its window means: whether every x is
// finite, and the lowest and the highest y (nothing once one is not finite).
struct DataTally {
  bool xFinite = true;
  std::optional<numeric_detail::ValueRange> yRange;

  void Add(const double* x, const double* y, std::int64_t from, std::int64_t to) {
    if (from >= to) return;
    const auto count = static_cast<std::size_t>(to - from);
    xFinite = numeric_detail::AllFinite(x + from, count) && xFinite;
    if (!yRange) return;
    const std::optional<numeric_detail::ValueRange> block =
        numeric_detail::RangeIfFinite(y + from, count);
    if (block) {
      yRange->lowest = std::min(yRange->lowest, block->lowest);
      yRange->highest = std::max(yRange->highest, block->highest);
    } else {
      yRange.reset();
    }
  }
};

// Runs `a` and `b`, two scans of the same filter over first..last, step by step together
// over means computed a block at a time into a buffer that stays in cache, instead of over
// an array of all means: that array is 8 bytes a point, written once and read from memory
// by both scans. A scan pauses a little before the block's end, so that the walks of its
// last candidates find their means; a mean outside the buffer is computed where it is read,
// with the same bits. With `tally`, x and y of first..last are tested block by block along
// the way, where the tests cost next to nothing beside the means (at ten million points a
// pass of their own read 80 MB from memory). False when the buffer cannot be had (nothing
// ran then).
template <class WorthA, class AcceptA, class AcceptB, class LeapA>
bool RunTogether(MovingMeanScan<double, double>& a, MovingMeanScan<double, double>& b,
                 const double* x, const double* y, int kind, int width, std::int64_t first,
                 std::int64_t last, WorthA&& worthA, AcceptA&& acceptA, AcceptB&& acceptB,
                 LeapA&& leapA, DataTally* tally) {
  const auto testX = [&](std::int64_t from, std::int64_t to) {
    if (tally != nullptr) tally->Add(x, y, from, to);
  };
  constexpr std::int64_t kCapacity = 65536;  // 512 KiB
  // Means computed at a time. A leap lands before the block's end, where the means stop, so
  // longer blocks let the trial leap further (32768 in a buffer of 65536 against 4096 in one
  // of 32768: 80.4 -> 71.2 M instructions a million-point driver call). The block's means, x
  // and y (768 KiB) still fit a core's second-level cache here (1 MiB).
  constexpr std::int64_t kBlock = 32768;
  constexpr std::int64_t kKept = 4096;       // older means kept when the buffer is full
  constexpr std::int64_t kLead = 512;        // how far before a block's end the scans pause
  constexpr std::int64_t kStride = 512;      // steps the trial scans between tries to leap
  static_assert(kBlock % 64 == 0 && kKept % 64 == 0, "the step bits move a word at a time");
  constexpr std::int64_t kWords = kCapacity / 64;
  const std::unique_ptr<double[]> buffer(new (std::nothrow) double[kCapacity]);
  // The bits of the buffer's means: le and gt (MarkSteps), then the moves of a and of b
  // (MarkMoves at each one's noise threshold; b shares a's at the same threshold).
  const std::unique_ptr<std::uint64_t[]> bits(new (std::nothrow) std::uint64_t[4 * kWords]);
  if (!buffer || !bits) return false;
  std::uint64_t* const le = bits.get();
  std::uint64_t* const gt = le + kWords;
  std::uint64_t* const movedA = a.WalksByNoise() ? gt + kWords : nullptr;
  std::uint64_t* movedB = b.WalksByNoise() ? gt + 2 * kWords : nullptr;
  if (movedA != nullptr && movedB != nullptr && SameBits(a.NoiseThreshold(), b.NoiseThreshold())) {
    movedB = movedA;
  }
  const std::int64_t end = last - width + 1;  // the means read start at first .. end - 1
  std::int64_t lo = first;                    // buffer[k] is the mean starting at lo + k
  std::int64_t hi = first;
  MovingMeanScan<double, double>::Cursor cursorA{first};
  MovingMeanScan<double, double>::Cursor cursorB{first};
  while (cursorA.i <= last || cursorB.i <= last) {
    if (hi < end) {
      if (hi - lo + kBlock > kCapacity) {
        std::copy(buffer.get() + (hi - lo - kKept), buffer.get() + (hi - lo), buffer.get());
        for (std::uint64_t* words : {le, gt, movedA, movedB == movedA ? nullptr : movedB}) {
          if (words != nullptr) {
            std::copy(words + (hi - lo - kKept) / 64, words + (hi - lo) / 64, words);
          }
        }
        lo = hi - kKept;
      }
      const std::int64_t to = std::min(hi + kBlock, end);
      ComputeMeans(y, kind, width, hi, to, buffer.get() + (hi - lo));
      testX(hi, to);
      MarkSteps(buffer.get(), hi - lo, to - lo, le, gt);
      if (movedA != nullptr) MarkMoves(buffer.get(), hi - lo, to - lo, a.NoiseThreshold(), movedA);
      if (movedB != nullptr && movedB != movedA) {
        MarkMoves(buffer.get(), hi - lo, to - lo, b.NoiseThreshold(), movedB);
      }
      hi = to;
    }
    const std::int64_t pause = hi < end ? hi - kLead : last + 1;
    a.UseMeans(buffer.get(), lo, hi, le, gt, movedA);
    b.UseMeans(buffer.get(), lo, hi, le, gt, movedB);
    // The trial may leap ahead (TrialLeap); it tries again every kStride steps it scans.
    while (cursorA.i < pause && cursorA.i <= last) {
      const bool leaps = leapA(cursorA, pause, buffer.get(), le, gt, lo, hi);
      a.Continue(first, last, leaps ? std::min(pause, cursorA.i + kStride) : pause, cursorA,
                 worthA, acceptA);
    }
    b.Continue(first, last, pause, cursorB, kAlwaysWorth, acceptB);
  }
  testX(hi, last + 1);
  return true;
}

}  // namespace

peaks_detail::ScanSummary peaks_detail::SummariseScan(const double* x, const double* y,
                                                      std::uint32_t n, const ScanRequest& trial,
                                                      const ScanRequest* beside, bool testData) {
  ScanSummary summary;
  if (x == nullptr || y == nullptr || n == 0) {
    summary.found = -1;
    return summary;
  }
  std::int64_t first = 0;
  std::int64_t last = 0;
  ScanRange(x, n, trial.startX, trial.endX, first, last);
  if (!ScanCanRun(first, last, n, trial)) return summary;
  // Once a peak is in, only a candidate whose area could beat the largest matters: judged
  // first on the leaps' chunks where they are filled, then on its points.
  TrialLeap leap(x, y, first, last, trial);
  const auto worth = [&](std::int64_t left, std::int64_t right) {
    return summary.found == 0 ||
           !(leap.ChunksStayBelow(left, right, summary.largestArea) ||
             AreaStaysBelow(x, y, left, right, trial.integrationMethod, trial.areaScale,
                            summary.largestArea));
  };
  const auto accept = [&summary](std::int64_t, std::int64_t, std::int64_t, double area) {
    ++summary.found;
    // In table order from 0.0, as a search of the stored table would take it.
    summary.largestArea = std::max(summary.largestArea, area);
  };
  MovingMeanScan<double, double> scan(x, y, n, trial);

  // The scan beside runs along when it reads the same means over the same points and its
  // peaks can be kept; it then takes every peak, and FindPeaks applies the minimum area.
  std::int64_t besideFirst = 0;
  std::int64_t besideLast = 0;
  if (beside != nullptr) ScanRange(x, n, beside->startX, beside->endX, besideFirst, besideLast);
  const int kind = trial.filterType == 0 ? 0 : 1;
  SharedWindowMeans::Store* store = StoreFor(y, n);
  if (beside == nullptr || store == nullptr || (beside->filterType == 0 ? 0 : 1) != kind ||
      beside->filterWidth != trial.filterWidth || besideFirst != first || besideLast != last ||
      !ScanCanRun(first, last, n, *beside)) {
    scan.Run(first, last, worth, accept);
    return summary;
  }
  ScanRequest open = *beside;
  open.minArea = -std::numeric_limits<double>::infinity();
  MovingMeanScan<double, double> other(x, y, n, open);
  bool recorded = false;
  bool ran = false;
  try {
    leap.Seed(scan, accept);
    store->kept.push_back({x, *beside, first, last, {}});
    recorded = true;
    std::vector<KeptScan::Peak>& peaks = store->kept.back().peaks;
    std::optional<DataTally> tally;
    if (testData) tally = DataTally{true, numeric_detail::ValueRange{y[first], y[first]}};
    ran = RunTogether(
        scan, other, x, y, kind, trial.filterWidth, first, last, worth, accept,
        [&peaks](std::int64_t apex, std::int64_t left, std::int64_t right, double area) {
          peaks.push_back({apex, left, right, area});
        },
        [&](MovingMeanScan<double, double>::Cursor& cursor, std::int64_t end, const double* means,
            const std::uint64_t* le, const std::uint64_t* gt, std::int64_t lo, std::int64_t hi) {
          return summary.found > 0 &&
                 leap.Leap(scan, cursor, end, summary.largestArea, means, le, gt, lo, hi);
        },
        tally ? &*tally : nullptr);
    summary.dataTested =
        ran && tally && first == 0 && last == static_cast<std::int64_t>(n) - 1;
    if (summary.dataTested) {
      summary.xFinite = tally->xFinite;
      summary.yRange = tally->yRange;
    }
  } catch (const std::bad_alloc&) {
    summary = ScanSummary{};
  }
  if (!ran) {
    // Nothing of the pass is used: the trial runs alone and the search scans for itself.
    if (recorded) store->kept.pop_back();
    scan.Run(first, last, worth, accept);
  }
  return summary;
}

namespace {

// A trial's range and every window mean of it at once (step k's at means[k - first]), for
// the two test entries below; no means when the scan cannot run or its leaps are off.
struct TrialMeans {
  std::int64_t first = 0;
  std::int64_t last = 0;
  std::vector<double> means;
};

TrialMeans AllTrialMeans(const double* x, const double* y, std::uint32_t n,
                         const peaks_detail::ScanRequest& trial) {
  TrialMeans t;
  ScanRange(x, n, trial.startX, trial.endX, t.first, t.last);
  if (!ScanCanRun(t.first, t.last, n, trial) || !TrialLeap(x, y, t.first, t.last, trial).on())
    return t;
  const std::int64_t end = t.last - trial.filterWidth + 1;
  t.means.resize(static_cast<std::size_t>(end - t.first));
  ComputeMeans(y, trial.filterType == 0 ? 0 : 1, trial.filterWidth, t.first, end,
               t.means.data());
  return t;
}

}  // namespace

std::int64_t peaks_detail::WrongRunExits(const double* x, const double* y, std::uint32_t n,
                                             const ScanRequest& trial, std::int64_t& checked) {
  checked = 0;
  // All means and their step bits at once, the bit of step k at offset k - first.
  const TrialMeans whole = AllTrialMeans(x, y, n, trial);
  if (whole.means.empty()) return 0;
  const std::int64_t first = whole.first;
  const std::int64_t last = whole.last;
  const std::vector<double>& means = whole.means;
  TrialLeap leap(x, y, first, last, trial);
  using Scan = MovingMeanScan<double, double>;
  std::vector<std::uint64_t> le(means.size() / 64 + 2);
  std::vector<std::uint64_t> gt(le.size());
  MarkSteps(means.data(), 0, static_cast<std::int64_t>(means.size()), le.data(), gt.data());
  // Without means of its own the scan takes one step at a time and stops exactly at each
  // pause (its loop over flat steps may take the step at a pause).
  Scan scan(x, y, n, trial);
  constexpr auto none = [](std::int64_t, std::int64_t, std::int64_t, double) {};
  // The same state, with the same last resume point or one that can no longer matter.
  const auto same = [](const Scan::Cursor& u, const Scan::Cursor& v) {
    Scan::Cursor core[2] = {u, v};
    for (Scan::Cursor& k : core) k.lastResume = -1;
    return TrialLeap::SameState(core[0], core[1]) &&
           (TrialLeap::SameState(u, v) ||
            (u.lastResume == v.lastResume && SameBits(u.lastResumeMean, v.lastResumeMean)));
  };
  // The run ends, in order; at each, the full scan's first state past it is one of Exits.
  std::vector<std::int64_t> ends;
  const std::int64_t lowest = first + leap.m_run + 2;
  for (std::int64_t z = last - 2 * trial.filterWidth;
       (z = leap.LastRunEnd(le.data(), gt.data(), first, lowest, z)) >= 0; --z) {
    ends.push_back(z);
  }
  std::int64_t wrong = 0;
  const double* m = means.data() - first;
  Scan::Cursor full{first};
  for (auto z = ends.rbegin(); z != ends.rend(); ++z) {
    scan.Continue(first, last, *z + 1, full, kAlwaysWorth, none);
    Scan::Cursor a{};
    Scan::Cursor b{};
    const bool two = leap.Exits(Scan::Cursor{first}, *z, m, a, b);
    wrong += !same(a, full) && !(two && same(b, full));
  }
  checked = static_cast<std::int64_t>(ends.size());
  return wrong;
}

std::int64_t peaks_detail::CutsInsidePeaks(const double* x, const double* y, std::uint32_t n,
                                           const ScanRequest& trial, std::int64_t& checked) {
  checked = 0;
  const TrialMeans whole = AllTrialMeans(x, y, n, trial);
  const std::int64_t first = whole.first;
  const std::int64_t last = whole.last;
  if (whole.means.empty() ||
      std::any_of(y + first, y + last + 1, [](double v) { return !(v >= 0.0); })) {
    return 0;
  }
  const auto end = first + static_cast<std::int64_t>(whole.means.size());
  const double* m = whole.means.data() - first;
  const auto cut = [&](std::int64_t q) {
    return q > first && q + 1 < end && m[q] <= m[q - 1] && m[q + 1] > m[q];
  };
  std::int64_t wrong = 0;
  peaks_detail::ScanRequest all = trial;
  all.minArea = -std::numeric_limits<double>::infinity();
  MovingMeanScan<double, double>(x, y, n, all).Run(
      first, last, kAlwaysWorth, [&](std::int64_t, std::int64_t left, std::int64_t right, double) {
        ++checked;
        const std::int64_t reach = 2 * trial.filterWidth + trial.filterWidth / 2 - 2;
        for (std::int64_t q = left + 3; q < right - reach; ++q) {
          if (cut(q)) {
            ++wrong;
            break;
          }
        }
      });
  return wrong;
}

std::int32_t QXPeakTable::FindPeaks(const double* x, const double* y, std::uint32_t n,
                                    double dAreaScale, double dThreshold, int nFilterType,
                                    int nFilterWidth, int nFilterInc, double dMinArea,
                                    int /*nReserved*/, int nMaxPeakWidth, double dNoiseThreshold,
                                    double dCentroidPct, int nIntegrationMethod,
                                    int bMassProcessing, int nMaxCharge, int nMaxIsotopes,
                                    double dMinRatio, double dMaxRatio, int bFinish, double dStartX,
                                    double dEndX, int bGaussFit) {
  if (x == nullptr || y == nullptr || n == 0) return -1;
  std::int64_t first = 0;
  std::int64_t last = 0;
  ScanRange(x, n, dStartX, dEndX, first, last);
  const peaks_detail::ScanRequest settings{
      dAreaScale,    dThreshold,      nFilterType,        nFilterWidth, nFilterInc, dMinArea,
      nMaxPeakWidth, dNoiseThreshold, nIntegrationMethod, dStartX,      dEndX};
  // With mass processing the finishing step centroids every peak of the table. A call that
  // fills an empty table centroids each peak as it appends it instead, while the peak's
  // points are in the cache (the same calls on the same records, so the same bits).
  const bool centroidEach = bFinish && bMassProcessing && m_arrPeaks.empty();
  if (ScanCanRun(first, last, n, settings)) {
    const auto add = TableAppender(*this, x, y);
    const auto append = [&](std::int64_t apex, std::int64_t left, std::int64_t right,
                            double area) {
      add(apex, left, right, area);
      if (centroidEach) peaks_detail::CentroidPeak(*m_arrPeaks.back(), x, y, n, dCentroidPct);
    };
    const KeptScan* kept = nullptr;
    if (peaks_detail::SharedWindowMeans::Store* store = StoreFor(y, n)) {
      for (const KeptScan& k : store->kept) {
        if (k.x == x && k.first == first && k.last == last && SameScan(k.request, settings)) {
          kept = &k;
          break;
        }
      }
    }
    if (kept != nullptr) {
      // x and y at the kept peaks have left the cache since the scan met them: the lines
      // of a peak a few places ahead are fetched while one is appended.
      constexpr std::size_t kAhead = 8;
      const std::vector<KeptScan::Peak>& peaks = kept->peaks;
      for (std::size_t k = 0; k < peaks.size(); ++k) {
        if (k + kAhead < peaks.size() && peaks[k + kAhead].area >= dMinArea) {
          const KeptScan::Peak& ahead = peaks[k + kAhead];
          numeric_detail::PrefetchSpan(x + ahead.left, x + ahead.right);
          numeric_detail::PrefetchSpan(y + ahead.left, y + ahead.right);
        }
        const KeptScan::Peak& p = peaks[k];
        if (p.area >= dMinArea) append(p.apex, p.left, p.right, p.area);
      }
    } else {
      MovingMeanScan<double, double>(x, y, n, settings).Run(first, last, kAlwaysWorth, append);
    }
  }
  m_nSortMethod = 0;  // peaks were appended in increasing x

  if (bFinish) {
    if (bMassProcessing) {
      if (!centroidEach) CentroidPeaks(x, y, n, dCentroidPct);
      ProcessMassPeak(nMaxCharge, nMaxIsotopes, dMinRatio, dMaxRatio);
    }
    if (bGaussFit) QXNonLinFit::GaussFitPeakList(this, x, y, n);
  }
  return GetNumPeaks();
}

std::int32_t QXPeakTable::FindPeaks(const float* x, const std::uint32_t* y, std::uint32_t n,
                                    double dAreaScale, double dThreshold, int nFilterType,
                                    int nFilterWidth, int nFilterInc, double dMinArea,
                                    int /*nReserved*/, int nMaxPeakWidth, double dNoiseThreshold,
                                    double dCentroidPct, int nIntegrationMethod) {
  if (x == nullptr || y == nullptr || n == 0) return -1;
  const peaks_detail::ScanRequest settings{
      dAreaScale,    dThreshold,      nFilterType,        nFilterWidth, nFilterInc, dMinArea,
      nMaxPeakWidth, dNoiseThreshold, nIntegrationMethod, 0.0,          0.0};
  const std::int64_t last = static_cast<std::int64_t>(n) - 1;
  if (ScanCanRun(0, last, n, settings)) {
    MovingMeanScan<float, std::uint32_t>(x, y, n, settings)
        .Run(0, last, kAlwaysWorth, TableAppender(*this, x, y));
  }
  m_nSortMethod = 0;
  // This family always centroids, and never runs mass processing or Gaussian fits.
  if (dCentroidPct >= 0.0) CentroidPeaks(x, y, n, dCentroidPct);
  return GetNumPeaks();
}

}  // namespace qxpkutil
