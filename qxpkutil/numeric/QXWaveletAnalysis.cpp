#include "qxpkutil/numeric/QXWaveletAnalysis.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

#include "qxpkutil/numeric/numeric_internal.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace qxpkutil {
namespace {

// Minimum-phase Daubechies scaling filters, found by spectral factorisation of the
// Daubechies polynomial in 60-digit arithmetic and rounded to the nearest double. Each set
// sums to sqrt(2) and is orthonormal to its own even shifts.
constexpr double kHaar[2] = {0.7071067811865476, 0.7071067811865476};
constexpr double kDaub4[4] = {0.48296291314453416, 0.8365163037378079, 0.2241438680420134,
                              -0.12940952255126037};
constexpr double kDaub6[6] = {0.33267055295008263,  0.8068915093110925,
                              0.45987750211849154,  -0.13501102001025458,
                              -0.08544127388202666, 0.03522629188570953};
constexpr double kDaub12[12] = {
    0.11154074335010947,   0.49462389039845306,  0.7511339080210954,
    0.31525035170919763,   -0.22626469396543983, -0.12976686756726194,
    0.09750160558732304,   0.027522865530305727, -0.03158203931748603,
    0.0005538422011614961, 0.004777257510945511, -0.0010773010853084796};
constexpr double kDaub20[20] = {
    0.026670057900555554,   0.1881768000776915,     0.5272011889317256,
    0.6884590394536035,     0.2811723436605775,     -0.24984642432731538,
    -0.19594627437737705,   0.12736934033579325,    0.09305736460357235,
    -0.07139414716639708,   -0.029457536821875813,  0.033212674059341,
    0.0036065535669561697,  -0.010733175483330575,  0.001395351747052901,
    0.001992405295185056,   -0.0006858566949597116, -0.00011646685512928545,
    9.358867032006959e-05,  -1.3264202894521244e-05};

const double* CoefficientSet(int taps) {
  switch (taps) {
    case 2: return kHaar;
    case 4: return kDaub4;
    case 6: return kDaub6;
    case 12: return kDaub12;
    case 20: return kDaub20;
    default: return nullptr;
  }
}

// Allocation failure becomes a return value here instead of an exception.
template <typename F>
bool NoThrow(F&& f) noexcept {
  try {
    f();
    return true;
  } catch (...) {
    return false;
  }
}

// Scratch arrays of doubles that every user writes before reading: growing one leaves the
// new values uninitialised instead of zeroing megabytes for nothing, and large ones come in
// large pages (AllocateLarge).
template <class T>
struct UninitialisedAllocator : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = UninitialisedAllocator<U>;
  };
  UninitialisedAllocator() = default;
  template <class U>
  UninitialisedAllocator(const UninitialisedAllocator<U>&) noexcept {}
  T* allocate(std::size_t n) {
    if (n > std::numeric_limits<std::size_t>::max() / sizeof(T)) throw std::bad_alloc();
    void* p = numeric_detail::AllocateLarge(n * sizeof(T));
    if (p == nullptr) throw std::bad_alloc();
    return static_cast<T*>(p);
  }
  void deallocate(T* p, std::size_t) noexcept { std::free(p); }
  template <class U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
  }
};
using Scratch = std::vector<double, UninitialisedAllocator<double>>;

double FiniteOrZero(double v) { return std::isfinite(v) ? v : 0.0; }


// One Haar pair, the general forward loop's arithmetic spelled out (the sums still start
// from 0.0, which turns a -0.0 into +0.0 as they do there).
inline void HaarPair(const double* coef, double v0, double v1, double& smooth, double& detail) {
  smooth = 0.0 + (coef[0] * v0 + coef[1] * v1);
  detail = 0.0 + (coef[1] * v0 - coef[0] * v1);
}

// The sums of one forward periodic level of in[0 .. n-1], n a power of two >= 4, into
// out[0 .. n-1]: the smooth half, then the detail half. Pair ii reads the source
// 2ii + 1 + k - taps/2 (k = 1 .. taps): unsigned wrap-around plus the mask keep it
// periodic. Rotating the input left by one sample (`shift`) is the same +1 on that index.
// The detail filter is g[k] = (-1)^k coef[taps-1-k], the alternating-sign reverse, taken
// two taps at a time.
template <typename T>
void ForwardSums(const double* coef, std::size_t taps, const T* in, std::size_t n, bool shift,
                 double* out) {
  const std::size_t mask = n - 1;
  const std::size_t half = n / 2;
  const std::size_t origin = 2 + (shift ? 1 : 0) - taps / 2;
  if (taps == 2) {
    // The pairs before the wrap-around read the source without the mask, which lets the
    // compiler vectorise them.
    const auto pair = [&](std::size_t ii, double v0, double v1) {
      HaarPair(coef, v0, v1, out[ii], out[ii + half]);
    };
    const std::size_t unwrapped = (n - origin) / 2;
    const T* from = in + origin;
    for (std::size_t ii = 0; ii < unwrapped; ++ii) pair(ii, from[2 * ii], from[2 * ii + 1]);
    for (std::size_t ii = unwrapped; ii < half; ++ii) {
      const std::size_t first = 2 * ii + origin;
      pair(ii, in[first & mask], in[(first + 1) & mask]);
    }
    return;
  }
  for (std::size_t ii = 0; ii < half; ++ii) {
    const std::size_t first = 2 * ii + origin;
    double smooth = 0.0;
    double detail = 0.0;
    for (std::size_t k = 0; k < taps; k += 2) {
      const double v0 = in[(first + k) & mask];
      const double v1 = in[(first + k + 1) & mask];
      smooth += coef[k] * v0 + coef[k + 1] * v1;
      detail += coef[taps - 1 - k] * v0 - coef[taps - 2 - k] * v1;
    }
    out[ii] = smooth;
    out[ii + half] = detail;
  }
}

// One periodic level over data[0 .. n-1], n a power of two >= 4, forward (ForwardSums) or
// inverse; rotating the output right by one sample (`shift`) undoes the forward rotation.
// Sums are formed in `scratch` (n doubles) for both element types.
template <typename T>
void TransformStep(const double* coef, std::size_t taps, T* data, std::size_t n, bool forward,
                   bool shift, double* scratch) {
  if (forward) {
    ForwardSums(coef, taps, data, n, shift, scratch);
  } else {
    const std::size_t mask = n - 1;
    const std::size_t half = n / 2;
    const std::size_t origin = 2 + (shift ? 1 : 0) - taps / 2;
    std::fill(scratch, scratch + n, 0.0);
    for (std::size_t ii = 0; ii < half; ++ii) {
      const std::size_t first = 2 * ii + origin;
      const double smooth = data[ii];
      const double detail = data[ii + half];
      for (std::size_t k = 0; k < taps; k += 2) {
        scratch[(first + k) & mask] += coef[k] * smooth + coef[taps - 1 - k] * detail;
        scratch[(first + k + 1) & mask] += coef[k + 1] * smooth - coef[taps - 2 - k] * detail;
      }
    }
  }
  std::transform(scratch, scratch + n, data, [](double v) { return static_cast<T>(v); });
}

template <typename T>
void UserTransformT(const double* coef, unsigned int taps, T* data, std::uint32_t n,
                    int direction, int shift) {
  if (coef == nullptr || data == nullptr || taps == 0 || taps % 2 != 0 || n < 4 ||
      !std::has_single_bit(n))
    return;
  std::vector<double> scratch;
  if (!NoThrow([&] { scratch.resize(n); })) return;
  TransformStep(coef, taps, data, n, direction >= 0, shift != 0, scratch.data());
}

template <typename T>
int DaubTransformT(int taps, T* data, std::uint32_t n, int direction, int shift) {
  const double* coef = CoefficientSet(taps);
  if (coef == nullptr) return 0;
  UserTransformT(coef, static_cast<unsigned int>(taps), data, n, direction, shift);
  return 1;
}

// Full forward transform of the n values in `signal`, a power of two, into `data`: lengths
// N, N/2, ... down to 4, `signal` serving as scratch once read. The levels alternate
// between the two arrays rather than copying each one back: a detail half formed outside
// data is copied to its place there, and so is the last smooth half. The first and largest
// level goes straight into data.
void ForwardAllLevels(const double* coef, std::size_t taps, double* signal, std::size_t n,
                      double* data) {
  double* in = signal;
  double* out = data;
  std::size_t len = n;
  for (; len > 3; len /= 2) {
    ForwardSums(coef, taps, in, len, false, out);
    if (out != data) std::copy(out + len / 2, out + len, data + len / 2);
    std::swap(in, out);
  }
  if (in != data) std::copy(in, in + len, data);
}

// Copies y (times `scale`) into buf[0 .. n-1] and fills buf[n .. N-1] with mirror images:
// the first `endMirror` pad samples take the end of the signal backwards (y[n-1], y[n-2],
// ...), the rest take its start backwards, so that buf[N-1] = y[0] and the buffer joins
// smoothly where it wraps. Needs N - n - endMirror <= n and endMirror <= n.
template <typename In, typename Out>
void Pad(const In* y, std::size_t n, Out* buf, std::size_t paddedN, std::size_t endMirror,
         double scale) {
  const auto put = [scale](In v) { return static_cast<Out>(static_cast<double>(v) * scale); };
  std::transform(y, y + n, buf, put);
  for (std::size_t a = 0; a < endMirror; ++a) buf[n + a] = put(y[n - 1 - a]);
  for (std::size_t b = 0; n + endMirror + b < paddedN; ++b) buf[paddedN - 1 - b] = put(y[b]);
}

// Gives an array m values; throws when memory is short.
void Size(Scratch& a, std::size_t m) {
  a.clear();  // so that growing an array kept from an earlier call copies nothing
  a.resize(m);
}

// One aligned Haar level: the pair in[2i], in[2i + 1] gives smooth[i] and detail[i], i < half;
// `ahead`, if not null, is prefetched as far as `in` is read. The vector forms split a few
// pairs at a time into their first and second values (the pairs left over come one by one);
// every lane does HaarPair's arithmetic (a multiply, then an add, never fused), so all forms
// give the same bits.
using HaarLevelFn = void (*)(const double*, std::size_t, double*, double*, const double*);

#if defined(__x86_64__) && defined(__GNUC__)
// HaarPair on each lane of the pairs' first and second values.
template <class V>
[[gnu::always_inline]] inline void HaarLanes(const V& first, const V& second, double* smooth,
                                             double* detail) {
  const V s = 0.0 + (kHaar[0] * first + kHaar[1] * second);
  const V d = 0.0 + (kHaar[1] * first - kHaar[0] * second);
  std::memcpy(smooth, &s, sizeof s);
  std::memcpy(detail, &d, sizeof d);
}

void HaarLevelSse2(const double* in, std::size_t half, double* smooth, double* detail,
                   const double* ahead) {
  std::size_t i = 0;
  for (; i + 2 <= half; i += 2) {
    if (ahead != nullptr && i % 4 == 0) __builtin_prefetch(ahead + 2 * i, 0, 1);
    const __m128d lo = _mm_loadu_pd(in + 2 * i);
    const __m128d hi = _mm_loadu_pd(in + 2 * i + 2);
    HaarLanes(_mm_unpacklo_pd(lo, hi), _mm_unpackhi_pd(lo, hi), smooth + i, detail + i);
  }
  for (; i < half; ++i) HaarPair(kHaar, in[2 * i], in[2 * i + 1], smooth[i], detail[i]);
}

[[gnu::target("avx")]] void HaarLevelAvx(const double* in, std::size_t half, double* smooth,
                                         double* detail, const double* ahead) {
  std::size_t i = 0;
  for (; i + 4 <= half; i += 4) {
    if (ahead != nullptr) __builtin_prefetch(ahead + 2 * i, 0, 1);
    const __m256d lo = _mm256_loadu_pd(in + 2 * i);
    const __m256d hi = _mm256_loadu_pd(in + 2 * i + 4);
    const __m256d front = _mm256_permute2f128_pd(lo, hi, 0x20);  // pairs 0 and 2
    const __m256d back = _mm256_permute2f128_pd(lo, hi, 0x31);   // pairs 1 and 3
    HaarLanes(_mm256_unpacklo_pd(front, back), _mm256_unpackhi_pd(front, back), smooth + i,
              detail + i);
  }
  for (; i < half; ++i) HaarPair(kHaar, in[2 * i], in[2 * i + 1], smooth[i], detail[i]);
}

HaarLevelFn ChooseHaarLevel() {
  static const bool hasAvx = __builtin_cpu_supports("avx") != 0;
  return hasAvx ? HaarLevelAvx : HaarLevelSse2;
}
#else
void HaarLevelScalar(const double* in, std::size_t half, double* smooth, double* detail,
                     const double*) {
  for (std::size_t i = 0; i < half; ++i)
    HaarPair(kHaar, in[2 * i], in[2 * i + 1], smooth[i], detail[i]);
}

HaarLevelFn ChooseHaarLevel() { return HaarLevelScalar; }
#endif

// All Haar coefficients of y padded to N = bit_ceil(n), the very values PaddedTransform
// leaves in `buf`, handed in another order to emit(values, count), a block at a time. Pair
// ii of a first level reads padded samples 2ii + 1 and 2ii + 2, so the levels work on
// aligned blocks of the padded signal rotated right by one sample (w[t] = x[t - 1], w[0] =
// x[N - 1]): levels 1 .. k of w[mB .. mB + B - 1], B = 2^k, depend on that block alone.
// Each block is taken down to one smooth value in cache, reading y where the block lies
// inside it, and the blocks' smooth values then go through the coarser levels. No padded
// copy, and no array of N coefficients. `work` holds HaarBlockWork(N) values.
std::size_t HaarBlock(std::size_t paddedN) { return std::min<std::size_t>(1024, paddedN / 2); }

// A block's samples, its smooth halves (two by turns) and its details; then the blocks'
// smooth values and, from the coarser levels, their smooth halves.
std::size_t HaarBlockWork(std::size_t paddedN) {
  const std::size_t block = HaarBlock(paddedN);
  const std::size_t blocks = paddedN / block;
  return 2 * block + std::max(block, blocks) + 2 * blocks;
}

template <typename T, class Emit>
void HaarByBlocks(const T* y, std::size_t n, double* work, Emit emit) {
  const std::size_t paddedN = std::bit_ceil(n);
  const std::size_t block = HaarBlock(paddedN);
  const std::size_t blocks = paddedN / block;
  double* samples = work;
  double* smooth = samples + block;
  double* details = smooth + block;
  double* coarse = details + std::max(block, blocks);
  double* coarseHalf = coarse + blocks;
  const HaarLevelFn level = ChooseHaarLevel();
  // The levels of in[0 .. len-1] down to `keep` smooth values, the details to `out` one
  // level after the other; returns the last smooth values (in `a` or `b`).
  const auto levels = [level](const double* in, std::size_t len, std::size_t keep, double* a,
                              double* b, double* out, const double* ahead) {
    for (; len > keep; out += len / 2, len /= 2) {
      level(in, len / 2, a, out, ahead);
      ahead = nullptr;
      in = a;
      std::swap(a, b);
    }
    return in;
  };
  for (std::size_t m = 0; m < blocks; ++m) {
    const std::size_t first = m * block;  // w[first] is x[first - 1]
    const double* in = samples;
    if (first >= 1 && first + block <= n + 1) {
      if constexpr (std::is_same_v<T, double>) {
        in = y + (first - 1);
      } else {
        std::copy(y + first - 1, y + first - 1 + block, samples);
      }
    } else {
      // w[t] is y[t - 1] up to t = n, then the pad: x[i] = y[N - 1 - i] gives w[t] = y[N - t]
      // there, and w[0] = x[N - 1] is the last pad sample (y[0]), or y[N - 1] when n = N.
      double* out = samples;
      std::size_t t = first;
      if (t == 0) {
        *out++ = static_cast<double>(y[n == paddedN ? n - 1 : 0]);
        t = 1;
      }
      for (; t < std::min(first + block, n + 1); ++t) *out++ = static_cast<double>(y[t - 1]);
      for (; t < first + block; ++t) *out++ = static_cast<double>(y[paddedN - t]);
    }
    // The first level fetches the next block of y ahead: the levels after it leave the
    // memory idle long enough for the processor to stop streaming it on its own.
    const double* ahead = nullptr;
    if constexpr (std::is_same_v<T, double>) {
      if (first + 2 * block <= n + 1) ahead = y + (first + block - 1);
    }
    coarse[m] = levels(in, block, 1, smooth, smooth + block / 2, details, ahead)[0];
    emit(details, block - 1);
  }
  const double* last = coarse;
  if (blocks > 2) {
    last = levels(coarse, blocks, 2, coarseHalf, coarseHalf + blocks / 2, details, nullptr);
    emit(details, blocks - 2);
  }
  emit(last, 2);
}

// The full transform of the padded signal into `buf`, with `scratch` of the same size left
// free for the caller. False when memory is short. The caller tests that the coefficients
// are finite (a sample that is not, or a sum that overflowed, makes one of them not).
bool PaddedTransform(const double* y, std::size_t n, const double* coef, std::size_t taps,
                     Scratch& buf, Scratch& scratch) {
  const std::size_t paddedN = std::bit_ceil(n);
  if (!NoThrow([&] {
        Size(buf, paddedN);
        Size(scratch, paddedN);
      }))
    return false;
  Pad(y, n, scratch.data(), paddedN, 0, 1.0);
  ForwardAllLevels(coef, taps, scratch.data(), paddedN, buf.data());
  return true;
}

// The transform and sort arrays of a noise estimate. Each thread keeps its pair between
// calls while an array holds at most 2^21 values (16 MiB): blocks this large otherwise come
// fresh from the system on every call, and the kernel's clearing of their pages took about
// 1.4 ms of the million-point estimate. Larger pairs are freed on return.
struct NoiseArrays {
  Scratch buf;
  Scratch scratch;
};

NoiseArrays& ArraysFor(std::size_t n, NoiseArrays& fresh) {
  constexpr std::size_t kKeptValues = std::size_t{1} << 21;
  thread_local NoiseArrays kept;
  return std::bit_ceil(n) <= kKeptValues ? kept : fresh;
}

// The order-preserving bit pattern of a double: ascending keys are ascending values, -0.0
// just before +0.0.
std::uint64_t SortKey(double d) {
  const auto b = std::bit_cast<std::uint64_t>(d);
  return (b >> 63) != 0 ? ~b : b | (std::uint64_t{1} << 63);
}

// The bit pattern whose SortKey is `key`.
std::uint64_t PatternOf(std::uint64_t key) {
  return (key >> 63) != 0 ? key ^ (std::uint64_t{1} << 63) : ~key;
}

// Moves each of from[0..n-1] to to[next[g]++], g = group(value): a group's values go to
// consecutive places from next[g] on, in the order they come; next[g] ends past the last.
// Each write asks for the line four lines further on in its group's stream: the processor
// does not follow that many write streams on its own, and in the classic driver the target
// has left the cache between calls.
template <class Group>
void Scatter(const double* from, double* to, std::size_t n, std::size_t* next, Group group) {
  constexpr std::size_t kAhead = 32;  // values
  for (std::size_t i = 0; i < n; ++i) {
    const std::size_t at = next[group(from[i])]++;
    __builtin_prefetch(to + at + kAhead, 1);
    to[at] = from[i];
  }
}

// Finite values in ascending order, as far as anyone reads them. Long arrays are counted
// and then grouped by sign and exponent (the top 12 key bits) as their producer hands them
// over, so they need not be stored anywhere first; a signal's values have few exponents, so
// the grouping writes to few places. The first read that lands in a part counts its values
// by the next 11 key bits, which places each of these leaves in the sorted order, and notes
// each value's leaf bits; a read that lands in a leaf gathers the leaf's values from its
// part into that place (finding them by those bits) and sorts them there. The fit reads only some order statistics and searches, so
// most leaves are never gathered and no part is rearranged. A search counts the values
// below the one sought: those in lower leaves come from the counts, the rest from the one
// leaf that holds the value (that of -0.0 for the values below a zero, of +0.0 for those
// up to it). Every value read and every search answer is that of a full sort by the
// pattern.
class LazySorted {
 public:
  // Sorts the n values that produce(sink) hands, in any order and in pieces, to
  // sink(values, count); long arrays call it twice, to count and then to group the values.
  // `sorted` and `grouped` have room for n values each and must outlive this. Nothing is
  // read or searched unless every value is finite().
  template <class Produce>
  LazySorted(double* sorted, double* grouped, std::size_t n, Produce produce)
      : m_sorted(sorted), m_grouped(grouped), m_n(n) {
    constexpr std::size_t kRadixFrom = 4096;  // below this the histograms cost more than they save
    std::vector<std::size_t> next;  // by top 12 pattern bits: a count, then the next place
    if (n < kRadixFrom || !NoThrow([&] {
          m_start.assign(kParts + 1, 0);
          m_leaves.resize(kParts);
          m_whole.assign(kParts, false);
          next.assign(kParts, 0);
        })) {
      m_start.clear();
      double* to = sorted;
      produce([&](const double* v, std::size_t count) { to = std::copy(v, v + count, to); });
      m_finite = numeric_detail::AllFinite(sorted, n);
      if (m_finite) std::sort(sorted, sorted + n);
      return;
    }
    // The values are counted and moved by the top bits of their pattern, which saves forming
    // each one's key; the parts take them in key order.
    produce([&](const double* v, std::size_t count) {
      for (std::size_t i = 0; i < count; ++i) ++next[TopBits(v[i])];
    });
    for (std::size_t t = 0; t < kParts; ++t) m_start[PartOfTop(t) + 1] = next[t];
    for (std::size_t b = 0; b < kParts; ++b) m_start[b + 1] += m_start[b];
    // Infinities and NaNs, and they alone, fill the first part (negative) and the last.
    m_finite = m_start[1] == 0 && m_start[kParts - 1] == n;
    if (!m_finite) return;
    for (std::size_t t = 0; t < kParts; ++t) next[t] = m_start[PartOfTop(t)];
    produce([&](const double* v, std::size_t count) {
      Scatter(v, grouped, count, next.data(), [](double d) { return TopBits(d); });
    });
  }

  bool finite() const { return m_finite; }
  std::size_t size() const { return m_n; }

  // The i-th smallest value.
  double operator[](std::size_t i) {
    if (!m_start.empty()) {
      const std::size_t b = Containing(m_start, i);
      if (Leaves* leaves = Split(b)) Gather(b, *leaves, Containing(leaves->start, i));
    }
    return m_sorted[i];
  }

  // lower_bound and upper_bound of `value` (not a NaN) over lo..hi-1.
  std::size_t LowerBound(std::size_t lo, std::size_t hi, double value) {
    return std::clamp(Below(value == 0.0 ? -0.0 : value, false), lo, hi);
  }
  std::size_t UpperBound(std::size_t lo, std::size_t hi, double value) {
    return std::clamp(Below(value == 0.0 ? 0.0 : value, true), lo, hi);
  }

  // The values lo..hi-1, all in order.
  const double* Range(std::size_t lo, std::size_t hi) {
    for (std::size_t b = 0; !m_start.empty() && b < kParts; ++b) {
      if (!(m_start[b] < hi && lo < m_start[b + 1])) continue;
      if (Leaves* leaves = Split(b)) {
        std::size_t* next = leaves->start.data();  // the leaves' starts, used up here
        const std::size_t first = next[0];
        Scatter(m_grouped + first, m_sorted, next[kLeaves] - first, next,
                [](double d) { return Leaf(d); });
        for (std::size_t l = 0, from = first; l < kLeaves; from = next[l++])
          std::sort(m_sorted + from, m_sorted + next[l]);
        m_leaves[b].reset();
        m_whole[b] = true;
      }
    }
    return m_sorted;
  }

 private:
  static constexpr std::size_t kParts = 4096;   // sign and exponent: the top 12 key bits
  static constexpr std::size_t kLeaves = 2048;  // the next 11 key bits
  static std::size_t Part(double d) { return static_cast<std::size_t>(SortKey(d) >> 52); }
  static std::size_t TopBits(double d) { return std::bit_cast<std::uint64_t>(d) >> 52; }
  static std::size_t PartOfTop(std::size_t top) {
    return Part(std::bit_cast<double>(std::uint64_t{top} << 52));
  }
  static std::size_t LeafBits(double d) {
    return static_cast<std::size_t>(std::bit_cast<std::uint64_t>(d) >> 41) & (kLeaves - 1);
  }
  static std::size_t Leaf(double d) {
    return static_cast<std::size_t>(SortKey(d) >> 41) & (kLeaves - 1);
  }
  // The group (of first indices `start`, the last one past the end) that holds index i.
  static std::size_t Containing(const std::vector<std::size_t>& start, std::size_t i) {
    return static_cast<std::size_t>(std::upper_bound(start.begin(), start.end(), i) -
                                    start.begin() - 1);
  }

  struct Leaves {
    std::vector<std::size_t> start;  // leaf l is start[l] .. start[l + 1] - 1
    std::vector<bool> gathered;
    // The leaf bits of the part's values in their grouped order (the pattern's 11 bits
    // under the part's): a gather scans these, a quarter of the bytes of the values.
    std::unique_ptr<std::uint16_t[]> bits;
  };

  // The leaves of part b, counted on first use; null once the part is sorted whole (a short
  // part, one that Range sorted, or no memory for the counts).
  Leaves* Split(std::size_t b) {
    if (m_leaves[b] || m_whole[b]) return m_leaves[b].get();
    constexpr std::size_t kSplitFrom = 1024;  // a shorter part is sorted at once
    const std::size_t lo = m_start[b];
    const std::size_t m = m_start[b + 1] - lo;
    std::unique_ptr<Leaves> leaves;
    if (m < kSplitFrom || !NoThrow([&] {
          leaves = std::make_unique<Leaves>();
          leaves->start.assign(kLeaves + 1, 0);
          leaves->gathered.assign(kLeaves, false);
          leaves->bits = std::make_unique_for_overwrite<std::uint16_t[]>(m);
        })) {
      std::copy(m_grouped + lo, m_grouped + lo + m, m_sorted + lo);
      std::sort(m_sorted + lo, m_sorted + lo + m);
      m_whole[b] = true;
      return nullptr;
    }
    std::vector<std::size_t>& start = leaves->start;
    start[0] = lo;
    // Counted by the pattern's bits under the part's, in the opposite order to the keys'
    // for a negative part.
    std::uint16_t* bits = leaves->bits.get();
    for (std::size_t i = 0; i < m; ++i) {
      bits[i] = static_cast<std::uint16_t>(LeafBits(m_grouped[lo + i]));
      ++start[bits[i] + 1];
    }
    if (b < kParts / 2) std::reverse(start.begin() + 1, start.end());
    for (std::size_t l = 0; l < kLeaves; ++l) start[l + 1] += start[l];
    m_leaves[b] = std::move(leaves);
    return m_leaves[b].get();
  }

  // Copies the values of leaf l out of part b to the leaf's place in m_sorted, in order.
  // A leaf holds a small share of its part: blocks without one of its values are passed
  // over by a count of matching leaf bits that the compiler vectorises.
  void Gather(std::size_t b, Leaves& leaves, std::size_t l) {
    if (leaves.gathered[l]) return;
    leaves.gathered[l] = true;
    const auto want = static_cast<std::uint16_t>(
        LeafBits(std::bit_cast<double>(PatternOf(std::uint64_t{b << 11 | l} << 41))));
    const std::uint16_t* bits = leaves.bits.get();
    const double* values = m_grouped + m_start[b];
    const std::size_t m = m_start[b + 1] - m_start[b];
    double* out = m_sorted + leaves.start[l];
    constexpr std::size_t kBlock = 64;  // long enough for the count to be vectorised
    std::size_t i = 0;
    for (; i + kBlock <= m; i += kBlock) {
      std::uint32_t hits = 0;
      for (std::size_t k = 0; k < kBlock; ++k) hits += static_cast<std::uint32_t>(bits[i + k] == want);
      if (hits == 0) continue;
      for (std::size_t k = i; k < i + kBlock; ++k) {
        if (bits[k] == want) *out++ = values[k];
      }
    }
    for (; i < m; ++i) {
      if (bits[i] == want) *out++ = values[i];
    }
    std::sort(m_sorted + leaves.start[l], out);
  }

  // The number of values below `value` (`orEqual`: up to and including it), found in the
  // part, or the leaf, that holds its bit pattern.
  std::size_t Below(double value, bool orEqual) {
    std::size_t first = 0;
    std::size_t last = m_n;
    if (!m_start.empty()) {
      const std::size_t b = Part(value);
      first = m_start[b];
      last = m_start[b + 1];
      if (Leaves* leaves = Split(b)) {
        const std::size_t l = Leaf(value);
        Gather(b, *leaves, l);
        first = leaves->start[l];
        last = leaves->start[l + 1];
      }
    }
    const double* found = orEqual ? std::upper_bound(m_sorted + first, m_sorted + last, value)
                                  : std::lower_bound(m_sorted + first, m_sorted + last, value);
    return static_cast<std::size_t>(found - m_sorted);
  }

  double* m_sorted;   // sorted where a read landed
  double* m_grouped;  // the values grouped by part
  std::size_t m_n;
  bool m_finite = false;
  // Part b is m_start[b] .. m_start[b + 1] - 1; empty: all sorted.
  std::vector<std::size_t> m_start;
  std::vector<std::unique_ptr<Leaves>> m_leaves;
  std::vector<bool> m_whole;  // parts sorted whole
};

// sqrt(a^2 + b^2 - (a + b)^2 / 2); a rounding residue below zero counts as no spread.
double PairSpread(double a, double b) {
  return std::sqrt(std::max(0.0, a * a + b * b - (a + b) * (a + b) * 0.5));
}

// Index one past the run that starts at u: the values <= sorted[u] + tol before `limit`.
// The values are ascending, so a binary search finds the end the linear walk would.
std::size_t RunEnd(LazySorted& sorted, std::size_t u, std::size_t limit, double tol) {
  if (u >= limit) return u;
  return sorted.UpperBound(u, limit, sorted[u] + tol);
}

// The white-noise level of N >= 4 sorted coefficients: their centre, a trimmed fall-back
// and up to twenty run-count fits.
double WhiteNoiseFromSorted(LazySorted& sorted) {
  const std::size_t n = sorted.size();
  // Centre between the first value >= 0 and the last value <= 0.
  std::size_t f = sorted.LowerBound(0, n, 0.0);
  if (f == n) f = 0;
  const std::size_t pastZero = sorted.UpperBound(0, n, 0.0);
  const std::size_t z = pastZero == 0 ? n - 1 : pastZero - 1;
  const std::size_t mid = (z + f) / 2;

  // Five runs outwards-in on the left of the centre, five inwards-out on the right, at
  // positions 5 .. 1 and 1 .. 5; ln(count) = a + b k^2 is a Gaussian when b < 0.
  constexpr std::array<double, 10> kPosition = {5, 4, 3, 2, 1, 1, 2, 3, 4, 5};
  double best = 0.0;
  double level = 1.0;
  for (int offset = 0; offset <= 95; offset += 5) {
    const auto s = static_cast<std::size_t>(static_cast<double>(offset) *
                                            static_cast<double>(n - 1) * 0.5 * 0.01);
    const double tol = 0.2 * std::max(std::fabs(sorted[s]), std::fabs(sorted[n - s - 1]));
    std::array<std::size_t, 10> count{};
    std::size_t u = s;
    for (int r = 0; r < 5; ++r) {
      const std::size_t v = RunEnd(sorted, u, mid, tol);
      count[r] = v - u + 1;
      u = v;
    }
    u = mid + 1;
    for (int r = 5; r < 10; ++r) {
      const std::size_t v = RunEnd(sorted, u, n - s, tol);
      if (v == n) {  // the run reached the end, so it has no closing value to count
        count[r] = v - u;
        break;
      }
      count[r] = v - u + 1;
      u = v;
    }
    for (std::size_t& c : count) c = std::max<std::size_t>(c, 1);
    // Ten equal counts carry no shape: R^2 is 0/0 there, and its rounding residue must not
    // pass for a fit. (The fixed positions keep the determinant away from zero.)
    if (std::all_of(count.begin(), count.end(), [&](std::size_t c) { return c == count[0]; }))
      continue;
    double sx = 0.0, sxx = 0.0, sy = 0.0, syy = 0.0, sxy = 0.0;
    for (std::size_t i = 0; i < count.size(); ++i) {
      const double x = kPosition[i] * kPosition[i];
      const double lnCount = std::log(static_cast<double>(count[i]));
      sx += x;
      sxx += x * x;
      sy += lnCount;
      syy += lnCount * lnCount;
      sxy += lnCount * x;
    }
    const double det = 10.0 * sxx - sx * sx;
    const double b = (10.0 * sxy - sx * sy) / det;
    const double a = (sxx * sy - sx * sxy) / det;
    const double r2 = 1.0 - (syy - a * sy - b * sxy) / (syy - sy * sy * 0.1);
    if (r2 > best && b < 0.0) {
      level = std::sqrt(-1.0 / b) * tol * 0.625;
      best = r2;
    }
    if (r2 > 0.985) break;
  }
  if (best >= 0.8) return FiniteOrZero(level);
  // Fall-back: spread of the central 80 %. The divisors m + 1 and m are the historical
  // ones and stay. N >= 4 always leaves lo below hi.
  const auto lo = static_cast<std::size_t>(std::floor(0.1 * static_cast<double>(n)));
  const auto hi = static_cast<std::size_t>(std::ceil(0.9 * static_cast<double>(n)));
  const auto m = static_cast<double>(hi - lo);
  const double* central = sorted.Range(lo, hi);
  double sum = 0.0;
  double sumSq = 0.0;
  for (std::size_t i = lo; i < hi; ++i) {
    sum += central[i];
    sumSq += central[i] * central[i];
  }
  return FiniteOrZero(std::sqrt((sumSq - sum * sum / (m + 1.0)) / m));
}

template <typename T>
double WhiteNoiseLevelT(const T* y, std::uint32_t n) {
  if (y == nullptr || n < 4) return 0.0;
  NoiseArrays fresh;
  NoiseArrays& arrays = ArraysFor(n, fresh);
  const std::size_t paddedN = std::bit_ceil(std::size_t{n});
  // The sorted array receives only the leaves the fit reads. A fresh one comes from plain
  // new, in small pages, so that the kernel clears only the pages they land in.
  std::unique_ptr<double[]> sparse;
  std::vector<double> work;
  if (!NoThrow([&] {
        Size(arrays.scratch, paddedN);
        if (&arrays == &fresh) {
          sparse = std::make_unique_for_overwrite<double[]>(paddedN);
        } else {
          Size(arrays.buf, paddedN);
        }
        work.resize(HaarBlockWork(paddedN));
      }))
    return 0.0;
  double* sortedValues = sparse ? sparse.get() : arrays.buf.data();
  LazySorted sorted(sortedValues, arrays.scratch.data(), paddedN,
                    [&](auto sink) { HaarByBlocks(y, n, work.data(), sink); });
  return sorted.finite() ? WhiteNoiseFromSorted(sorted) : 0.0;
}

// ---- Two-phase filtering (the scheme is described in the header) ----

constexpr std::size_t kMaxDepths = 32;

// Soft threshold of each depth's detail bands, finest first: 0 keeps a band as it is,
// infinity drops it. Depths at or past `depths` are not decomposed at all.
struct DepthThresholds {
  std::array<double, kMaxDepths> value{};
  std::size_t depths = 0;
};

std::size_t DepthCount(std::size_t paddedN) {
  return static_cast<std::size_t>(std::bit_width(paddedN)) - 2;  // log2(N) - 1
}

// Trims trailing zero thresholds: the depths below them would be rebuilt unchanged.
void TrimDepths(DepthThresholds& t) {
  while (t.depths > 0 && !(t.value[t.depths - 1] > 0.0)) --t.depths;
}

void SoftThreshold(float* c, std::size_t m, double t) {
  if (!(t > 0.0)) return;
  for (std::size_t i = 0; i < m; ++i) {
    const double v = c[i];
    c[i] = std::fabs(v) < t ? 0.0f : static_cast<float>(v < 0.0 ? v + t : v - t);
  }
}

// Working memory of one filter call: `arena` holds the two phase copies of every depth
// (2N + N + N/2 + ... < 4N floats), `scratch` the sums of one transform step.
class TwoPhaseFilter {
 public:
  TwoPhaseFilter(const double* coef, std::size_t taps) : coef_(coef), taps_(taps) {}

  [[nodiscard]] bool Allocate(std::size_t paddedN) {
    return NoThrow([&] {
      arena_.resize(4 * paddedN);
      scratch_.resize(paddedN);
    });
  }

  // Decomposes band[0 .. N-1], thresholds and rebuilds it in place.
  void Run(float* band, std::size_t len, const DepthThresholds& t) {
    Depth(band, len, 0, t, arena_.data());
  }

 private:
  // Depth-first: each phase of the band is transformed, its details thresholded, its
  // smooth half filtered one depth further down, and transformed back; then the two
  // phases are averaged. The same work as depth by depth, with O(N) memory.
  void Depth(float* band, std::size_t len, std::size_t depth, const DepthThresholds& t,
             float* arena) {
    if (depth >= t.depths || len < 4) return;
    const std::size_t half = len / 2;
    float* phase[2] = {arena, arena + len};
    for (int p = 0; p < 2; ++p) {
      float* w = phase[p];
      std::copy(band, band + len, w);
      TransformStep(coef_, taps_, w, len, true, p == 1, scratch_.data());
      SoftThreshold(w + half, half, t.value[depth]);
      Depth(w, half, depth + 1, t, arena + 2 * len);
      TransformStep(coef_, taps_, w, len, false, p == 1, scratch_.data());
    }
    for (std::size_t i = 0; i < len; ++i) band[i] = 0.5f * (phase[0][i] + phase[1][i]);
  }

  const double* coef_;
  std::size_t taps_;
  std::vector<float> arena_;
  std::vector<double> scratch_;
};

// A power of two that brings the largest |y| into [1, 2), so the single-precision work
// neither overflows nor loses small data to underflow; 0 when a sample is not finite.
double WorkScale(const double* y, std::size_t n) {
  double maxAbs = 0.0;
  for (std::size_t i = 0; i < n; ++i) {
    if (!std::isfinite(y[i])) return 0.0;
    maxAbs = std::max(maxAbs, std::fabs(y[i]));
  }
  if (maxAbs == 0.0) return 1.0;
  return std::ldexp(1.0, std::clamp(-std::ilogb(maxAbs), -1000, 1000));
}

// Filters y[0 .. n-1], padded as the estimators pad; false (y untouched) for a sample that
// is not finite or no memory. Thresholds are in units of y.
bool FilterPadded(double* y, std::size_t n, const double* coef, std::size_t taps,
                  DepthThresholds t) {
  const double scale = WorkScale(y, n);
  if (scale == 0.0) return false;
  TrimDepths(t);
  if (t.depths == 0) return true;
  const std::size_t paddedN = std::bit_ceil(n);
  std::vector<float> buf;
  TwoPhaseFilter filter(coef, taps);
  if (!NoThrow([&] { buf.resize(paddedN); }) || !filter.Allocate(paddedN)) return false;
  for (std::size_t d = 0; d < t.depths; ++d) t.value[d] *= scale;
  Pad(y, n, buf.data(), paddedN, 0, scale);
  filter.Run(buf.data(), paddedN, t);
  for (std::size_t i = 0; i < n; ++i) y[i] = static_cast<double>(buf[i]) / scale;
  return true;
}

}  // namespace

void QXWaveletAnalysis::UserTransform(const double* coef, unsigned int taps, double* data,
                                      std::uint32_t n, int direction, int shift) {
  UserTransformT(coef, taps, data, n, direction, shift);
}

void QXWaveletAnalysis::UserTransform(const double* coef, unsigned int taps, float* data,
                                      std::uint32_t n, int direction, int shift) {
  UserTransformT(coef, taps, data, n, direction, shift);
}

int QXWaveletAnalysis::DaubTransform(int taps, double* data, std::uint32_t n, int direction,
                                     int shift) {
  return DaubTransformT(taps, data, n, direction, shift);
}

int QXWaveletAnalysis::DaubTransform(int taps, float* data, std::uint32_t n, int direction,
                                     int shift) {
  return DaubTransformT(taps, data, n, direction, shift);
}

double QXWaveletAnalysis::CalcNoiseLevel(const double* y, std::uint32_t n) {
  if (y == nullptr || n < 2) return 0.0;
  if (n == 2) return FiniteOrZero(PairSpread(y[0], y[1]));
  NoiseArrays fresh;
  auto& [buf, scratch] = ArraysFor(n, fresh);
  if (!PaddedTransform(y, n, kHaar, 2, buf, scratch) ||
      !numeric_detail::AllFinite(buf.data(), buf.size()))
    return 0.0;
  if (buf.size() == 4) return PairSpread(buf[2], buf[3]);

  // Every detail level: positions 2 .. N-1.
  const double* d = buf.data() + 2;
  const std::size_t count = buf.size() - 2;
  double sumAbs = 0.0;
  for (std::size_t i = 0; i < count; ++i) sumAbs += std::fabs(d[i]);
  const double first = sumAbs / static_cast<double>(count) * 1.25;  // mean |d| to sigma

  double clippedAbs = 0.0;
  std::size_t passed = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (std::fabs(d[i]) < 3.0 * first) {
      clippedAbs += std::fabs(d[i]);
      ++passed;
    }
  }
  if (passed < 2) return FiniteOrZero(first);
  double s = clippedAbs / static_cast<double>(passed) * 1.25;

  // 3-sigma clipping until the estimate stops shrinking by more than 5 %.
  for (int pass = 0; pass < 5; ++pass) {
    double sum = 0.0;
    double sumSq = 0.0;
    std::size_t m = 0;
    for (std::size_t i = 0; i < count; ++i) {
      if (std::fabs(d[i]) < 3.0 * s) {
        sum += d[i];
        sumSq += d[i] * d[i];
        ++m;
      }
    }
    if (m < 2) break;
    const auto dm = static_cast<double>(m);
    const double sd = std::sqrt(std::max(0.0, (sumSq - sum * sum / dm) / (dm - 1.0)));
    const double ratio = sd / s;
    s = sd;
    if (ratio > 0.95) break;
  }
  return FiniteOrZero(s);
}

double QXWaveletAnalysis::CalcWhiteNoiseLevel(const double* y, std::uint32_t n) {
  return WhiteNoiseLevelT(y, n);
}

double QXWaveletAnalysis::CalcWhiteNoiseLevel(const float* y, std::uint32_t n) {
  return WhiteNoiseLevelT(y, n);
}

std::int32_t QXWaveletAnalysis::CalcWhiteNoiseLevels(double* y, std::uint32_t n,
                                                     std::vector<double>& levels) {
  // With fewer coefficients the fit fails now and then, and its trimmed fall-back (about
  // 0.66 sigma by design) drags the level down.
  constexpr std::size_t kMinCoefficients = 1024;
  if (y == nullptr || n < 4) return 0;
  NoiseArrays fresh;
  NoiseArrays& arrays = ArraysFor(n, fresh);
  Scratch& buf = arrays.buf;  // plain references: a lambda below reads them
  Scratch& scratch = arrays.scratch;
  if (!PaddedTransform(y, n, kDaub6, 6, buf, scratch) ||
      !numeric_detail::AllFinite(buf.data(), buf.size()))
    return 0;

  std::array<double, kMaxDepths> found{};
  std::size_t depths = 0;
  for (std::size_t len = buf.size(); len / 2 >= kMinCoefficients; len /= 2) {
    // A depth's details are buf[len/2 .. len-1]; scratch takes their sort.
    const std::size_t half = len / 2;
    LazySorted sorted(scratch.data(), scratch.data() + half, half,
                      [&](auto sink) { sink(buf.data() + half, half); });
    found[depths++] = WhiteNoiseFromSorted(sorted);
  }
  if (depths == 0 || !NoThrow([&] { levels.assign(found.begin(), found.begin() + depths); }))
    return 0;
  return static_cast<std::int32_t>(depths);
}

int QXWaveletAnalysis::NotchFilter(double* y, std::uint32_t n, std::uint32_t lower,
                                   std::uint32_t upper) {
  if (y == nullptr || n < 4 || lower == 0 || upper == 0 || lower > upper) return 0;
  DepthThresholds t;
  t.depths = std::min<std::size_t>(upper, DepthCount(std::bit_ceil(std::size_t{n})));
  for (std::size_t d = lower - 1; d < t.depths; ++d)
    t.value[d] = std::numeric_limits<double>::infinity();
  return FilterPadded(y, n, kDaub4, 4, t) ? 1 : 0;
}

void QXWaveletAnalysis::SubtractNoise(double* y, std::uint32_t n, double factor) {
  if (y == nullptr || n < 4 || !(factor > 0.0) || !std::isfinite(factor)) return;
  const double base = CalcWhiteNoiseLevel(y, n) * factor;
  if (!(base > 0.0) || !std::isfinite(base)) return;
  DepthThresholds t;
  t.depths = DepthCount(std::bit_ceil(std::size_t{n}));
  for (std::size_t d = 0; d < t.depths; ++d)
    t.value[d] = base * (d == 0 ? 2.0 : d == 1 ? 1.5 : 1.0);
  FilterPadded(y, n, kDaub6, 6, t);
}

void QXWaveletAnalysis::SubtractColoredNoise(double* y, std::uint32_t n, double level) {
  if (y == nullptr || n < 4 || !(level > 0.0) || !std::isfinite(level)) return;
  const double white = CalcWhiteNoiseLevel(y, n);
  std::vector<double> own;
  const auto known = static_cast<std::size_t>(CalcWhiteNoiseLevels(y, n, own));
  DepthThresholds t;
  t.depths = DepthCount(std::bit_ceil(std::size_t{n}));
  // An own level far above the white level says more about the signal than the noise
  // (peaks fill the coarse depths of a dense spectrum); such depths use the white level.
  constexpr double kSignalRatio = 4.0;
  for (std::size_t d = 0; d < t.depths; ++d)
    t.value[d] = level * (d < known && own[d] <= kSignalRatio * white ? own[d] : white);
  FilterPadded(y, n, kDaub6, 6, t);
}

void QXWaveletAnalysis::SmoothBaseline(double* y, std::uint32_t n, double level) {
  constexpr int kMaxPasses = 20;
  constexpr double kPeakAllowance = 2.0;  // in noise levels above the baseline
  if (y == nullptr || n < 4 || !(level >= 2.0)) return;
  const double scale = WorkScale(y, n);
  if (scale == 0.0) return;
  // At least n/2 mirrored samples, half after each end, keep the wrap-around far away.
  const std::size_t paddedN = std::bit_ceil(std::size_t{n} + (std::size_t{n} + 1) / 2);
  const std::size_t endMirror = (paddedN - n + 1) / 2;
  DepthThresholds t;
  const std::size_t maxDepths = DepthCount(paddedN);
  t.depths = level >= std::ldexp(1.0, static_cast<int>(maxDepths))
                 ? maxDepths
                 : static_cast<std::size_t>(std::ilogb(level));
  std::fill(t.value.begin(), t.value.begin() + t.depths, std::numeric_limits<double>::infinity());

  std::vector<float> signal;
  std::vector<float> base;
  TwoPhaseFilter filter(kDaub6, 6);
  if (!NoThrow([&] {
        signal.resize(paddedN);
        base.resize(paddedN);
      }) ||
      !filter.Allocate(paddedN))
    return;
  const double allowance = kPeakAllowance * CalcWhiteNoiseLevel(y, n) * scale;
  Pad(y, n, signal.data(), paddedN, endMirror, scale);
  for (int pass = 0; pass < kMaxPasses; ++pass) {
    std::copy(signal.begin(), signal.end(), base.begin());
    filter.Run(base.data(), paddedN, t);
    bool lowered = false;
    for (std::size_t i = 0; i < paddedN; ++i) {
      if (signal[i] > base[i] + allowance) {
        signal[i] = base[i];
        lowered = true;
      }
    }
    if (!lowered) break;
  }
  for (std::size_t i = 0; i < n; ++i) y[i] = static_cast<double>(base[i]) / scale;
}

}  // namespace qxpkutil
