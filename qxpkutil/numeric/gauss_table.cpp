// The Gaussian kernel table, its per-thread one-entry cache for large widths, and the
// kernel selection behind NormGaussMean and SmoothData. The object that builds the table
// at load and frees it at unload lives here too, so that static linking keeps it whenever
// the kernel is used.
#include "qxpkutil/numeric/QXDataExpUtils.h"

#include <algorithm>
#include <atomic>
#include <cmath>
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
// FixedWidthMeans for doubles, four windows at a time in AVX2, with the same bits. The x87
// loop's result is round-to-double of a sum whose every product and addition rounds to 64
// bits, divided and rounded to 64 bits again: it lies within 7.001 * 2^-64 * S / d of the
// exact mean, S the sum of the products' magnitudes (weights are positive, at most 6
// roundings reach any product). Here error-free products (FMA) and sums (TwoSum) give the
// exact mean within 2^-95 * S / d. When everything within 2^-60 * S / d of that lies
// strictly inside the rounding interval of one double (neither a power of two nor near
// the ends of the range), the x87 loop gives that double; otherwise (by the bound, about
// one window in a hundred when the values share a sign) the window takes the x87 loop.
// Only valid while both units round to nearest at full precision and SSE keeps subnormals
// (CertifiedMeansHold).
static_assert(std::is_same_v<Wide, long double> && LDBL_MANT_DIG == 64);
template <int W>
[[gnu::target("avx2,fma")]] void CertifiedMeans(const GaussKernel& kernel, const double* v,
                                                 std::size_t count, double* out) {
  const double* weights = kernel.weights;
  const __m256d divisor = _mm256_set1_pd(kernel.divisor);
  const __m256d reciprocal = _mm256_set1_pd(1.0 / kernel.divisor);
  const __m256d slack = _mm256_set1_pd(0x1p-60 / kernel.divisor);
  const __m256d magnitude = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7fffffffffffffff));
  const __m256d exponent = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7ff0000000000000));
  const __m256d halfUlp = _mm256_set1_pd(0x1p-53);
  const __m256d lowest = _mm256_set1_pd(0x1p-1000);
  const __m256d highest = _mm256_set1_pd(0x1p1000);
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    const double* u = v + i;
    // The centre weight is 1: its product is the value itself.
    __m256d sum = _mm256_loadu_pd(u + (W - 2));
    __m256d tail = _mm256_setzero_pd();
    __m256d size = _mm256_and_pd(sum, magnitude);
    for (int k = 0; k < W; ++k) {
      if (k == W - 2) continue;
      const __m256d w = _mm256_set1_pd(weights[k]);
      const __m256d y = _mm256_loadu_pd(u + k);
      const __m256d high = _mm256_mul_pd(w, y);
      const __m256d low = _mm256_fmsub_pd(w, y, high);
      const __m256d next = _mm256_add_pd(sum, high);
      const __m256d part = _mm256_sub_pd(next, sum);
      const __m256d error = _mm256_add_pd(_mm256_sub_pd(sum, _mm256_sub_pd(next, part)),
                                          _mm256_sub_pd(high, part));
      sum = next;
      tail = _mm256_add_pd(tail, _mm256_add_pd(error, low));
      size = _mm256_add_pd(size, _mm256_and_pd(high, magnitude));
    }
    const __m256d q = _mm256_mul_pd(sum, reciprocal);
    const __m256d rest = _mm256_fnmadd_pd(q, divisor, sum);
    const __m256d qLow = _mm256_mul_pd(_mm256_add_pd(rest, tail), reciprocal);
    const __m256d mean = _mm256_add_pd(q, qLow);
    const __m256d off = _mm256_add_pd(_mm256_sub_pd(q, mean), qLow);
    const __m256d reach = _mm256_add_pd(_mm256_and_pd(off, magnitude), _mm256_mul_pd(size, slack));
    const __m256d absMean = _mm256_and_pd(mean, magnitude);
    const __m256d power = _mm256_and_pd(mean, exponent);
    const __m256d sure = _mm256_and_pd(
        _mm256_and_pd(_mm256_cmp_pd(reach, _mm256_mul_pd(power, halfUlp), _CMP_LT_OQ),
                      _mm256_cmp_pd(absMean, power, _CMP_NEQ_OQ)),
        _mm256_and_pd(_mm256_cmp_pd(absMean, lowest, _CMP_GT_OQ),
                      _mm256_cmp_pd(absMean, highest, _CMP_LT_OQ)));
    _mm256_storeu_pd(out + i, mean);
    const int certain = _mm256_movemask_pd(sure);
    if (certain != 0xF) {
      for (int lane = 0; lane < 4; ++lane) {
        if ((certain >> lane & 1) == 0) out[i + lane] = FixedWidthMean<W>(kernel, u + lane);
      }
    }
  }
  for (; i < count; ++i) out[i] = FixedWidthMean<W>(kernel, v + i);
}

// True when CertifiedMeans gives the x87 loop's bits here: the processor has AVX2 and FMA,
// the x87 unit rounds to nearest at 64 bits and SSE rounds to nearest without flushing
// subnormals (the defaults, which a program may change).
bool CertifiedMeansHold() {
  static const bool hasUnits =
      __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
  if (!hasUnits) return false;
  unsigned short x87 = 0;
  __asm__ volatile("fnstcw %0" : "=m"(x87));
  const unsigned sse = __builtin_ia32_stmxcsr();
  return (x87 & 0x0F00) == 0x0300 && (sse & 0xE040) == 0;
}
#endif

// Widths Lo..Hi get a loop of their own; false for any other width (or a kernel without
// its unit weight, which a table row always has).
template <int Lo, int Hi, class T>
bool MeansOfSmallWidth(const GaussKernel& kernel, const T* v, std::size_t count, double* out) {
  if constexpr (Lo > Hi) {
    return false;
  } else {
    if (kernel.count != Lo) return MeansOfSmallWidth<Lo + 1, Hi>(kernel, v, count, out);
    if (kernel.weights[Lo - 2] != 1.0) return false;
#if defined(__x86_64__) && defined(__GNUC__)
    if constexpr (std::is_same_v<T, double>) {
      if (CertifiedMeansHold()) {
        CertifiedMeans<Lo>(kernel, v, count, out);
        return true;
      }
    }
#endif
    FixedWidthMeans<Lo>(kernel, v, count, out);
    return true;
  }
}

template <class T>
void numeric_detail::GaussMeans(const T* v, int w, std::size_t count, double* out) {
  GaussKernel kernel;
  if (v == nullptr || !SelectGaussKernel(w, kernel)) {
    std::fill(out, out + count, 0.0);
    return;
  }
  // The widths peak finding uses most; the one-weight kernels of widths 1 and 2 and wider
  // kernels take the general loop.
  if (MeansOfSmallWidth<3, 16>(kernel, v, count, out)) return;
  for (std::size_t i = 0; i < count; ++i) out[i] = ApplyGaussKernel(kernel, v + i);
}
template void numeric_detail::GaussMeans(const double*, int, std::size_t, double*);
template void numeric_detail::GaussMeans(const std::uint32_t*, int, std::size_t, double*);

double QXDataExpUtils::NormGaussMean(const double* v, int w) { return GaussMeanOf(v, w); }
double QXDataExpUtils::NormGaussMean(const std::uint32_t* v, int w) { return GaussMeanOf(v, w); }

}  // namespace qxpkutil
