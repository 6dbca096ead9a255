// The Gaussian kernel table, its per-thread one-entry cache for large widths, and the
// kernel selection behind NormGaussMean and SmoothData. The object that builds the table
// at load and frees it at unload lives here too, so that static linking keeps it whenever
// the kernel is used.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <type_traits>

#include "qxpkutil/numeric/numeric_internal.h"

#if defined(__x86_64__) && defined(__GNUC__)
#include <immintrin.h>
#endif

namespace qxpkutil {

namespace {

using numeric_detail::GaussKernel;
using numeric_detail::Wide;

constexpr int kTableRows = 201;
constexpr int kLargestTableWidth = 201;  // width w uses row w - 2, so row 200 goes unused
constexpr int kLargestWidth = 2001;

// The table: row pointers and row sums, published together through pGaussTable. Readers
// only load the pointer; building and freeing take gTableMutex.
std::atomic<double**> pGaussTable{nullptr};
double* pGaussRowSum = nullptr;
std::mutex gTableMutex;

// The one-entry cache of the last kernel of width 202..2001, one per thread so that threads
// never free each other's kernel. Freed when its thread ends.
thread_local std::unique_ptr<double[]> pGaussCachedFilter;
thread_local int m_nCachedFilterSize = -1;
thread_local double m_dCachedFilterSum = 0.0;

void FreeTable() {
  const std::lock_guard<std::mutex> lock(gTableMutex);
  double** rows = pGaussTable.exchange(nullptr, std::memory_order_acq_rel);
  if (rows != nullptr) {
    delete[] rows[0];  // the block that holds every row
    delete[] rows;
  }
  delete[] pGaussRowSum;
  pGaussRowSum = nullptr;
}

// Builds the table when the library loads and frees it when it unloads. The unload side
// leaves the cache alone: the main thread's cache has already gone with its thread-local
// storage by then.
struct GaussTableLifetime {
  GaussTableLifetime() { QXDataExpUtils::BuildGaussTable(); }
  ~GaussTableLifetime() { FreeTable(); }
  GaussTableLifetime(const GaussTableLifetime&) = delete;
  GaussTableLifetime& operator=(const GaussTableLifetime&) = delete;
};
const GaussTableLifetime gGaussTableLifetime;

bool SelectCachedKernel(int w, GaussKernel& kernel) {
  // DeleteGaussTable frees the cache but leaves its size, so check both.
  if (w != m_nCachedFilterSize || !pGaussCachedFilter) {
    pGaussCachedFilter.reset(new (std::nothrow) double[w]);
    m_nCachedFilterSize = -1;
    if (!pGaussCachedFilter) return false;
    const double h = w / 2;
    Wide sum = 0;
    for (int k = 0; k < w; ++k) {
      pGaussCachedFilter[k] = std::exp(-(h - k) * (h - k) / (h * h));
      sum += pGaussCachedFilter[k];
    }
    m_nCachedFilterSize = w;
    m_dCachedFilterSum = static_cast<double>(sum);
  }
  kernel.weights = pGaussCachedFilter.get();
  kernel.count = w;
  kernel.divisor = m_dCachedFilterSum != 0.0 ? m_dCachedFilterSum : 1.0;
  return true;
}

template <class T>
double GaussMeanOf(const T* v, int w) {
  GaussKernel kernel;
  if (v == nullptr || !numeric_detail::SelectGaussKernel(w, kernel)) return 0.0;
  return numeric_detail::ApplyGaussKernel(kernel, v);
}

}  // namespace

void QXDataExpUtils::BuildGaussTable() {
  const std::lock_guard<std::mutex> lock(gTableMutex);
  if (pGaussTable.load(std::memory_order_acquire) != nullptr) return;
  // All rows share one block; row r starts at r^2, the weight count of rows 0..r-1.
  std::unique_ptr<double*[]> rows(new (std::nothrow) double*[kTableRows]);
  std::unique_ptr<double[]> weights(new (std::nothrow) double[kTableRows * kTableRows]);
  std::unique_ptr<double[]> sums(new (std::nothrow) double[kTableRows]);
  if (!rows || !weights || !sums) return;
  for (int r = 0; r < kTableRows; ++r) {
    double* row = weights.get() + r * r;
    row[r] = 1.0;
    Wide wings = 0;
    for (int k = 1; k <= r; ++k) {
      const double weight = std::exp(-static_cast<double>(k * k) / static_cast<double>(r * r));
      row[r - k] = weight;
      row[r + k] = weight;
      wings += weight;
    }
    rows[r] = row;
    sums[r] = static_cast<double>(1 + 2 * wings);
  }
  weights.release();
  pGaussRowSum = sums.release();
  pGaussTable.store(rows.release(), std::memory_order_release);
  // A table rebuilt after DeleteGaussTable must not trust the cache freed with the old one.
  m_nCachedFilterSize = -1;
}

void QXDataExpUtils::DeleteGaussTable() {
  FreeTable();
  pGaussCachedFilter.reset();
}

bool numeric_detail::SelectGaussKernel(int w, GaussKernel& kernel) {
  static constexpr double kUnitWeight = 1.0;
  if (w == 1) {
    kernel = {&kUnitWeight, 1, 1.0};
    return true;
  }
  if (w >= 2 && w <= kLargestTableWidth) {
    double** rows = pGaussTable.load(std::memory_order_acquire);
    if (rows == nullptr) {
      QXDataExpUtils::BuildGaussTable();
      rows = pGaussTable.load(std::memory_order_acquire);
      if (rows == nullptr) return false;
    }
    // Deliberately the first w weights of row w - 2 over the whole row's sum: a skewed,
    // under-normalised kernel. Smoothed levels, thresholds and the peaks found on them
    // must match earlier results, so it is not normalised. Row 0 has one weight;
    // width 2's missing second weight counts as 0.
    kernel = {rows[w - 2], w == 2 ? 1 : w, pGaussRowSum[w - 2]};
    return true;
  }
  if (w > kLargestTableWidth && w <= kLargestWidth) return SelectCachedKernel(w, kernel);
  return false;
}

// ApplyGaussKernel for a kernel of W >= 3 weights known when compiling, whose
// weight W - 2 (the centre of its table row) is 1: the same sums in the same order, so the
// same bits, with less work for the x87 unit, which bounds this loop (14 operations a mean
// of width 7 instead of 18). The product with the weight 1 is the value itself, exactly.
// Each partial sum starts at its first product instead of at 0 + that product, which
// differs only in the sign of a zero; adding one 0 to the total gives the kernel's zero.
template <int W, class T>
double FixedWidthMean(const GaussKernel& kernel, const T* u) {
  const double* weights = kernel.weights;
  const auto product = [&](int k) {
    if (k == W - 2) return static_cast<Wide>(static_cast<double>(u[k]));
    return k < W ? static_cast<Wide>(weights[k]) * static_cast<double>(u[k]) : Wide{0};
  };
  Wide s0 = product(0), s1 = product(1), s2 = product(2), s3 = product(3);
  int k = 4;
  for (; k + 4 <= W; k += 4) {
    s0 += product(k);
    s1 += product(k + 1);
    s2 += product(k + 2);
    s3 += product(k + 3);
  }
  for (; k < W; ++k) s0 += product(k);
  return static_cast<double>((((s0 + s1) + (s2 + s3)) + Wide{0}) / kernel.divisor);
}

template <int W, class T>
void FixedWidthMeans(const GaussKernel& kernel, const T* v, std::size_t count, double* out) {
  for (std::size_t i = 0; i < count; ++i) out[i] = FixedWidthMean<W>(kernel, v + i);
}

#if defined(__x86_64__) && defined(__GNUC__)
// The most roundings on the way from one product to FixedWidthMean<W>'s quotient: the
// product's own, the additions into its partial sum, the two that join the partial sums
// and the division. Partial sum 0 takes the most products: W / 4 from the loop and the
// W % 4 left over (below width 4 each sum holds one).
constexpr int X87Roundings(int w) {
  const int most = w < 4 ? 1 : w / 4 + w % 4;
  return 1 + (most - 1) + 2 + 1;
}

// Four doubles in an AVX2 register (Avx2Lanes) or eight in an AVX-512 one (Avx512Lanes),
// and the operations CertifiedMeans takes on them. Each operation carries its unit's
// target; the kernel that uses them carries none and is always inlined into an entry with
// the target, so it is written once for both widths. The vectors are wrapped in structs:
// compilers reject (clang) or warn about (GCC) a bare vector passed from a function
// without the unit's target, although every such call ends up inside an entry.
struct Avx2Lanes {
  struct V {
    __m256d v;
  };
  static constexpr int kCount = 4;
  [[gnu::target("avx2,fma")]] static V Load(const double* p) { return {_mm256_loadu_pd(p)}; }
  [[gnu::target("avx2,fma")]] static void Store(double* p, V a) { _mm256_storeu_pd(p, a.v); }
  [[gnu::target("avx2,fma")]] static V Set(double x) { return {_mm256_set1_pd(x)}; }
  [[gnu::target("avx2,fma")]] static V Add(V a, V b) { return {_mm256_add_pd(a.v, b.v)}; }
  [[gnu::target("avx2,fma")]] static V Sub(V a, V b) { return {_mm256_sub_pd(a.v, b.v)}; }
  [[gnu::target("avx2,fma")]] static V Mul(V a, V b) { return {_mm256_mul_pd(a.v, b.v)}; }
  // a * b + c, a * b - c and c - a * b, each rounded once.
  [[gnu::target("avx2,fma")]] static V MulAdd(V a, V b, V c) {
    return {_mm256_fmadd_pd(a.v, b.v, c.v)};
  }
  [[gnu::target("avx2,fma")]] static V MulSub(V a, V b, V c) {
    return {_mm256_fmsub_pd(a.v, b.v, c.v)};
  }
  [[gnu::target("avx2,fma")]] static V NegMulAdd(V a, V b, V c) {
    return {_mm256_fnmadd_pd(a.v, b.v, c.v)};
  }
  [[gnu::target("avx2,fma")]] static V And(V a, V b) { return {_mm256_and_pd(a.v, b.v)}; }
  [[gnu::target("avx2,fma")]] static V Min(V a, V b) { return {_mm256_min_pd(a.v, b.v)}; }
  [[gnu::target("avx2,fma")]] static V Max(V a, V b) { return {_mm256_max_pd(a.v, b.v)}; }
  [[gnu::target("avx2,fma")]] static double Largest(__m256d a) {
    const __m128d two = _mm_max_pd(_mm256_castpd256_pd128(a), _mm256_extractf128_pd(a, 1));
    return _mm_cvtsd_f64(_mm_max_sd(two, _mm_unpackhi_pd(two, two)));
  }
  [[gnu::target("avx2,fma")]] static double Largest(V a) { return Largest(a.v); }
  // Lanes where a < b, and where a == b (both false where either is NaN), both of two
  // such masks, and a mask as a bit per lane.
  struct Mask {
    __m256d m;
  };
  [[gnu::target("avx2,fma")]] static Mask Less(V a, V b) {
    return {_mm256_cmp_pd(a.v, b.v, _CMP_LT_OQ)};
  }
  [[gnu::target("avx2,fma")]] static Mask Equal(V a, V b) {
    return {_mm256_cmp_pd(a.v, b.v, _CMP_EQ_OQ)};
  }
  [[gnu::target("avx2,fma")]] static Mask Both(Mask a, Mask b) {
    return {_mm256_and_pd(a.m, b.m)};
  }
  [[gnu::target("avx2,fma")]] static unsigned Bits(Mask a) {
    return static_cast<unsigned>(_mm256_movemask_pd(a.m));
  }
};

struct Avx512Lanes {
  struct V {
    __m512d v;
  };
  static constexpr int kCount = 8;
  [[gnu::target("avx512f,fma")]] static V Load(const double* p) { return {_mm512_loadu_pd(p)}; }
  [[gnu::target("avx512f,fma")]] static void Store(double* p, V a) { _mm512_storeu_pd(p, a.v); }
  [[gnu::target("avx512f,fma")]] static V Set(double x) { return {_mm512_set1_pd(x)}; }
  [[gnu::target("avx512f,fma")]] static V Add(V a, V b) { return {_mm512_add_pd(a.v, b.v)}; }
  [[gnu::target("avx512f,fma")]] static V Sub(V a, V b) { return {_mm512_sub_pd(a.v, b.v)}; }
  [[gnu::target("avx512f,fma")]] static V Mul(V a, V b) { return {_mm512_mul_pd(a.v, b.v)}; }
  [[gnu::target("avx512f,fma")]] static V MulAdd(V a, V b, V c) {
    return {_mm512_fmadd_pd(a.v, b.v, c.v)};
  }
  [[gnu::target("avx512f,fma")]] static V MulSub(V a, V b, V c) {
    return {_mm512_fmsub_pd(a.v, b.v, c.v)};
  }
  [[gnu::target("avx512f,fma")]] static V NegMulAdd(V a, V b, V c) {
    return {_mm512_fnmadd_pd(a.v, b.v, c.v)};
  }
  [[gnu::target("avx512f,fma")]] static V And(V a, V b) {
    return {_mm512_castsi512_pd(
        _mm512_and_si512(_mm512_castpd_si512(a.v), _mm512_castpd_si512(b.v)))};
  }
  // The masked forms with every lane set: GCC 12 warns that the plain ones read an
  // undefined source.
  [[gnu::target("avx512f,fma")]] static V Min(V a, V b) {
    return {_mm512_mask_min_pd(a.v, 0xFF, a.v, b.v)};
  }
  [[gnu::target("avx512f,fma")]] static V Max(V a, V b) {
    return {_mm512_mask_max_pd(a.v, 0xFF, a.v, b.v)};
  }
  [[gnu::target("avx512f,fma")]] static double Largest(V a) {
    const __m256d none = _mm256_setzero_pd();
    return Avx2Lanes::Largest(_mm256_max_pd(_mm512_mask_extractf64x4_pd(none, 0xF, a.v, 0),
                                            _mm512_mask_extractf64x4_pd(none, 0xF, a.v, 1)));
  }
  using Mask = __mmask8;
  [[gnu::target("avx512f,fma")]] static Mask Less(V a, V b) {
    return _mm512_cmp_pd_mask(a.v, b.v, _CMP_LT_OQ);
  }
  [[gnu::target("avx512f,fma")]] static Mask Equal(V a, V b) {
    return _mm512_cmp_pd_mask(a.v, b.v, _CMP_EQ_OQ);
  }
  [[gnu::target("avx512f,fma")]] static Mask Both(Mask a, Mask b) { return a & b; }
  [[gnu::target("avx512f,fma")]] static unsigned Bits(Mask a) { return a; }
};

// v[0] = v[0] + ... + v[N - 1], or their largest, by halves.
template <class Lanes, int N, bool Max>
[[gnu::always_inline]] inline void Pairwise(typename Lanes::V* v) {
  if constexpr (N > 1) {
    Pairwise<Lanes, N / 2, Max>(v);
    Pairwise<Lanes, N - N / 2, Max>(v + N / 2);
    v[0] = Max ? Lanes::Max(v[0], v[N / 2]) : Lanes::Add(v[0], v[N / 2]);
  }
}

// FixedWidthMeans for doubles, a vector of windows at a time, with the same bits, for a
// kernel whose weights lie in (0, 1] (a table row's do). Why the bits are the x87 loop's:
//
// Let M be the largest |value| the vector's windows read, so every product p = w * y has
// |p| <= M, S the sum of a window's |p| (S <= s * M, s the sum of the weights, s >= 1),
// P the exact sum of its products and d the divisor. The x87 loop rounds every product and
// sum to 64 bits, and at most r = X87Roundings(W) roundings reach any product: its
// quotient X lies within r * 1.0001 * 2^-64 * S / d of P / d, and its result is X rounded
// to double.
//
// Here each product is split on a common grid (Rump's extraction): with g = 2^e a power
// of two, g >= 2W * M, a = fl(g + p) lies in [g/2, 2g], so q = a - g is exact, a multiple
// of 2^-53 g, with |q| <= |p| + 2^-53 g; the products' q's then sum exactly, in any order
// (every partial sum is such a multiple below g in size). The rest p - q, at most 2^-53 g
// in size, is rounded once (FMA) and the W rests are summed in doubles: Q + T misses P by
// at most 1.01 * W^2 * 2^-106 * g, and g < 8W * M, so by less than 2^-90 * M for W <= 16.
// Dividing Q + T (q = Q * 1/d, the remainder by FMA, the rests' share qLow added) adds
// less than 2^-93 * M / d: q + qLow lies within 2^-89 * M / d of P / d, and X within
// (r * 1.0001 * 2^-64 * s + 2^-89) * M / d of it, less than the reach e = (r + 1/4) *
// 2^-64 * s * M / d by far more than the roundings of qLow + e and qLow - e. Rounding to
// nearest is monotonic, so X rounds to a double between low = q + (qLow - e) and high =
// q + (qLow + e), each rounded: when those two are one double, X rounds to it (this also
// covers a power of two, whose rounding interval is lopsided). Where the sums leave the
// normal range their roundings are absolute, below 2^-1074 each, so a mean is only taken
// between 2^-900 and 2^1000 in size; NaNs, infinities and an overflowing g give a NaN
// mean, which is never taken.
// Every other window (under one in a hundred on the benchmark spectrum) takes the x87
// loop once the vectors have gone over up to 512 windows, so that the vector loop has no
// branch and no store that waits for its results.
// Only valid while both units round to nearest at full precision and SSE keeps subnormals
// (WidestMeansUnit checks).
static_assert(std::is_same_v<Wide, long double> && LDBL_MANT_DIG == 64);
template <class Lanes, int W>
[[gnu::always_inline]] inline void CertifiedMeans(const GaussKernel& kernel, double weightSum,
                                                  const double* v, std::size_t count,
                                                  double* out) {
  static_assert(W >= 3 && W <= 16);
  using V = typename Lanes::V;
  constexpr std::size_t kLanes = Lanes::kCount;
  // The values a vector's windows read, u[0 .. W + kLanes - 2], in vectors; the last one
  // ends at the last value.
  constexpr int kSpans = (W + 2 * kLanes - 2) / kLanes;
  // 2^Lift >= 2W: g is the power of two at or below M, lifted by 2^(Lift + 1).
  constexpr int kLift = W <= 4 ? 3 : W <= 8 ? 4 : 5;
  constexpr std::size_t kBatch = 512;
  constexpr unsigned kAllLanes = (1u << kLanes) - 1;
  // The weights in vectors, once: `out` might alias them, so the loop would load each again.
  V weights[W];
  for (int k = 0; k < W; ++k) weights[k] = Lanes::Set(kernel.weights[k]);
  const V divisor = Lanes::Set(kernel.divisor);
  const V reciprocal = Lanes::Set(1.0 / kernel.divisor);
  const V slack = Lanes::Set((X87Roundings(W) + 0.25) * 0x1p-64 * weightSum / kernel.divisor);
  const V lift = Lanes::Set(static_cast<double>(1 << (kLift + 1)));
  const V magnitude = Lanes::Set(std::bit_cast<double>(std::uint64_t{0x7fffffffffffffff}));
  const V exponent = Lanes::Set(std::bit_cast<double>(std::uint64_t{0x7ff0000000000000}));
  const V lowest = Lanes::Set(0x1p-900);
  const V highest = Lanes::Set(0x1p1000);
  const V infinity = Lanes::Set(std::numeric_limits<double>::infinity());
  const std::size_t whole = count - count % kLanes;
  std::size_t i = 0;
  while (i < whole) {
    // Which windows of each vector from `batch` on the vectors make certain, a bit each.
    const std::size_t batch = i;
    const std::size_t stop = std::min(whole, batch + kBatch);
    std::uint8_t certain[kBatch / kLanes];
    // M of each vector's windows; found first, in a loop of its own, so that the long
    // chain of the sums below does not wait for it.
    double largests[kBatch / kLanes];
    for (std::size_t k = batch; k < stop; k += kLanes) {
      const double* u = v + k;
      // The next batch's values, ahead of time: beyond the caches (ten million points)
      // the hardware's own prefetch left this loop waiting, 1.98 -> 1.81 ms a million
      // means in runs of 4096. Past the last batch this reaches the values the next run
      // reads; the address may lie beyond the array, so it is formed as an integer (a
      // prefetch never faults).
      __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<std::uintptr_t>(u) +
                                                       kBatch * sizeof(double)));
      V spans[kSpans];
      for (int j = 0; j + 1 < kSpans; ++j) spans[j] = Lanes::Load(u + kLanes * j);
      spans[kSpans - 1] = Lanes::Load(u + (W - 1));
      // |value|, and a NaN taken as infinite: a maximum passes a NaN over, and M must
      // bound the windows' values even beside one (the sums then give NaNs).
      for (V& span : spans) span = Lanes::Min(Lanes::And(span, magnitude), infinity);
      Pairwise<Lanes, kSpans, true>(spans);
      largests[(k - batch) / kLanes] = Lanes::Largest(spans[0]);
    }
    for (; i < stop; i += kLanes) {
      const double* u = v + i;
      const V largest = Lanes::Set(largests[(i - batch) / kLanes]);
      const V grid = Lanes::Mul(Lanes::And(largest, exponent), lift);
      // The parts on the grid and the rests, summed by halves: short chains let the sums
      // of one vector's windows overlap with those of the next.
      V parts[W];
      V rests[W];
      for (int k = 0; k < W; ++k) {
        const V y = Lanes::Load(u + k);
        if (k == W - 2) {
          // The centre weight is 1: its product is the value itself.
          parts[k] = Lanes::Sub(Lanes::Add(grid, y), grid);
          rests[k] = Lanes::Sub(y, parts[k]);
        } else {
          parts[k] = Lanes::Sub(Lanes::MulAdd(weights[k], y, grid), grid);
          rests[k] = Lanes::MulSub(weights[k], y, parts[k]);
        }
      }
      Pairwise<Lanes, W, false>(parts);
      Pairwise<Lanes, W, false>(rests);
      const V sum = parts[0];
      const V tail = rests[0];
      const V q = Lanes::Mul(sum, reciprocal);
      const V rest = Lanes::NegMulAdd(q, divisor, sum);
      const V qLow = Lanes::Mul(Lanes::Add(rest, tail), reciprocal);
      const V high = Lanes::Add(q, Lanes::MulAdd(largest, slack, qLow));
      const V low = Lanes::Add(q, Lanes::NegMulAdd(largest, slack, qLow));
      const V size = Lanes::And(high, magnitude);
      const auto sure =
          Lanes::Both(Lanes::Equal(high, low),
                      Lanes::Both(Lanes::Less(lowest, size), Lanes::Less(size, highest)));
      Lanes::Store(out + i, high);
      certain[(i - batch) / kLanes] = static_cast<std::uint8_t>(Lanes::Bits(sure));
    }
    for (std::size_t k = batch; k < stop; k += kLanes) {
      // The uncertain lanes, lowest first.
      for (unsigned lanes = ~certain[(k - batch) / kLanes] & kAllLanes; lanes != 0;
           lanes &= lanes - 1) {
        const std::size_t at = k + static_cast<unsigned>(std::countr_zero(lanes));
        out[at] = FixedWidthMean<W>(kernel, v + at);
      }
    }
  }
  for (; i < count; ++i) out[i] = FixedWidthMean<W>(kernel, v + i);
}

// CertifiedMeans compiled for each unit. The AVX-512 one also inlines the x87 loop for the
// uncertain windows (flatten): with no call in its loops it keeps its constants in its 32
// registers, 1.94 -> 1.80 ms a million means of width 7; the AVX2 one, with 16 registers,
// ran slower so (2.35 -> 2.54 ms).
template <int W>
[[gnu::target("avx2,fma")]] void Avx2Means(const GaussKernel& kernel, double weightSum,
                                           const double* v, std::size_t count, double* out) {
  CertifiedMeans<Avx2Lanes, W>(kernel, weightSum, v, count, out);
}
template <int W>
[[gnu::target("avx512f,fma"), gnu::flatten]] void Avx512Means(const GaussKernel& kernel,
                                                              double weightSum, const double* v,
                                                              std::size_t count, double* out) {
  CertifiedMeans<Avx512Lanes, W>(kernel, weightSum, v, count, out);
}

// The widest unit, up to `widest`, on which CertifiedMeans gives the x87 loop's bits here:
// the processor has it (AVX2 and FMA for either vector unit), the x87 unit rounds to
// nearest at 64 bits and SSE rounds to nearest without flushing subnormals (the defaults,
// which a program may change).
numeric_detail::MeansUnit WidestMeansUnit(numeric_detail::MeansUnit widest) {
  using numeric_detail::MeansUnit;
  static const MeansUnit present =
      __builtin_cpu_supports("avx2") == 0 || __builtin_cpu_supports("fma") == 0
          ? MeansUnit::kX87
      : __builtin_cpu_supports("avx512f") == 0 ? MeansUnit::kAvx2
                                               : MeansUnit::kAvx512;
  const MeansUnit unit = std::min(present, widest);
  if (unit == MeansUnit::kX87) return unit;
  unsigned short x87 = 0;
  __asm__ volatile("fnstcw %0" : "=m"(x87));
  const unsigned sse = __builtin_ia32_stmxcsr();
  return (x87 & 0x0F00) == 0x0300 && (sse & 0xE040) == 0 ? unit : MeansUnit::kX87;
}
#endif

// Widths Lo..Hi get a loop of their own, on the widest unit up to `widest` that gives the
// x87 loop's bits; false for any other width (or a kernel without its unit weight, which a
// table row always has).
template <int Lo, int Hi, class T>
bool MeansOfSmallWidth(const GaussKernel& kernel, const T* v, std::size_t count, double* out,
                       [[maybe_unused]] numeric_detail::MeansUnit widest) {
  if constexpr (Lo > Hi) {
    return false;
  } else {
    if (kernel.count != Lo) return MeansOfSmallWidth<Lo + 1, Hi>(kernel, v, count, out, widest);
    if (kernel.weights[Lo - 2] != 1.0) return false;
#if defined(__x86_64__) && defined(__GNUC__)
    if constexpr (std::is_same_v<T, double>) {
      // The bound of CertifiedMeans needs weights in (0, 1], which a table row has.
      double weightSum = 0.0;
      bool unitBounded = true;
      for (int k = 0; k < Lo; ++k) {
        unitBounded = unitBounded && kernel.weights[k] > 0.0 && kernel.weights[k] <= 1.0;
        weightSum += kernel.weights[k];
      }
      using numeric_detail::MeansUnit;
      const MeansUnit unit = unitBounded ? WidestMeansUnit(widest) : MeansUnit::kX87;
      if (unit == MeansUnit::kAvx512) {
        Avx512Means<Lo>(kernel, weightSum, v, count, out);
        return true;
      }
      if (unit == MeansUnit::kAvx2) {
        Avx2Means<Lo>(kernel, weightSum, v, count, out);
        return true;
      }
    }
#endif
    FixedWidthMeans<Lo>(kernel, v, count, out);
    return true;
  }
}

template <class T>
void numeric_detail::GaussMeans(const T* v, int w, std::size_t count, double* out,
                                MeansUnit widest) {
  GaussKernel kernel;
  if (v == nullptr || !SelectGaussKernel(w, kernel)) {
    std::fill(out, out + count, 0.0);
    return;
  }
  // The widths peak finding uses most; the one-weight kernels of widths 1 and 2 and wider
  // kernels take the general loop.
  if (MeansOfSmallWidth<3, 16>(kernel, v, count, out, widest)) return;
  for (std::size_t i = 0; i < count; ++i) out[i] = ApplyGaussKernel(kernel, v + i);
}
template void numeric_detail::GaussMeans(const double*, int, std::size_t, double*, MeansUnit);
template void numeric_detail::GaussMeans(const std::uint32_t*, int, std::size_t, double*,
                                         MeansUnit);

double QXDataExpUtils::NormGaussMean(const double* v, int w) { return GaussMeanOf(v, w); }
double QXDataExpUtils::NormGaussMean(const std::uint32_t* v, int w) { return GaussMeanOf(v, w); }

}  // namespace qxpkutil
