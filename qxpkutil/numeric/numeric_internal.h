// Internal to the library (not part of the public API): the accumulator type and the
// Gaussian kernel that NormGaussMean and SmoothData share, the run of window means that
// peak finding reads, and the finiteness test of whole arrays.
#pragma once

#include <cfloat>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <type_traits>

#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#endif

namespace qxpkutil::numeric_detail {

// Sums are accumulated in the widest floating type the hardware computes in: the 64-bit
// mantissa long double of x86, but plain double where long double is a software type
// (as on 64-bit ARM), which would slow the smoothing loops by an order of magnitude.
using Wide = std::conditional_t<(LDBL_MANT_DIG <= 64), long double, double>;

// True when every one of v[0..n-1] is finite, tested without a branch per value: x - x is
// 0 for a finite x and NaN otherwise, so the sum of such differences is 0 exactly when
// every value is finite. Two values to a vector register: inlined into some callers, the
// same loop on plain arrays stayed scalar.
inline bool AllFinite(const double* v, std::size_t n) {
  using Pair = double __attribute__((vector_size(16)));
  Pair sum[2] = {};
  std::size_t i = 0;
  for (; i + 4 <= n; i += 4) {
    for (std::size_t k = 0; k < 2; ++k) {
      Pair u;
      std::memcpy(&u, v + i + 2 * k, sizeof u);
      sum[k] += u - u;
    }
  }
  for (; i < n; ++i) sum[0][0] += v[i] - v[i];
  return (sum[0][0] + sum[0][1]) + (sum[1][0] + sum[1][1]) == 0.0;
}

// The lowest and the highest of n >= 1 values, or nothing when one is not finite (which of
// two equal zeros comes out is left open). Defined in statistics.cpp.
struct ValueRange {
  double lowest;
  double highest;
};
std::optional<ValueRange> RangeIfFinite(const double* v, std::size_t n);

// out[i] = ln v[i] for i < n, for positive, normal, finite v: within a few units in the last
// place of std::log, four lanes at a time, the same bits whether the processor has AVX or
// not (plain IEEE operations in a fixed order). Other values give unspecified numbers.
// Defined in statistics.cpp.
void LogsOfPositive(const double* v, std::size_t n, double* out);

// The weights to apply to a window and the divisor of their weighted sum.
struct GaussKernel {
  const double* weights = nullptr;
  int count = 0;
  double divisor = 1.0;
};

// The kernel for window width `w`, following NormGaussMean's selection rule. False when no
// kernel exists for `w` or memory for it cannot be had. The weights stay valid until the
// next selection on this thread or DeleteGaussTable.
bool SelectGaussKernel(int w, GaussKernel& kernel);

// Σ weights[k]·v[k] over the kernel, divided by its divisor; the innermost loop of peak
// finding. Four partial sums keep the adds from waiting on one another.
template <class T>
double ApplyGaussKernel(const GaussKernel& kernel, const T* v) {
  const double* weights = kernel.weights;
  Wide s0 = 0, s1 = 0, s2 = 0, s3 = 0;
  int k = 0;
  for (; k + 4 <= kernel.count; k += 4) {
    s0 += static_cast<Wide>(weights[k]) * static_cast<double>(v[k]);
    s1 += static_cast<Wide>(weights[k + 1]) * static_cast<double>(v[k + 1]);
    s2 += static_cast<Wide>(weights[k + 2]) * static_cast<double>(v[k + 2]);
    s3 += static_cast<Wide>(weights[k + 3]) * static_cast<double>(v[k + 3]);
  }
  for (; k < kernel.count; ++k) s0 += static_cast<Wide>(weights[k]) * static_cast<double>(v[k]);
  return static_cast<double>(((s0 + s1) + (s2 + s3)) / kernel.divisor);
}

// Where GaussMeans may compute means of doubles, narrowest first: the x87 loop anywhere,
// four windows a vector with AVX2 and FMA, eight with AVX-512.
enum class MeansUnit { kX87, kAvx2, kAvx512 };

// out[i] = NormGaussMean(v + i, w) for i = 0 .. count - 1, the kernel chosen once: the
// same bits at a fraction of the cost, on the widest unit up to `widest` that the
// processor has (tests name each unit in turn). Defined for double and std::uint32_t in
// gauss_table.cpp.
template <class T>
void GaussMeans(const T* v, int w, std::size_t count, double* out,
                MeansUnit widest = MeansUnit::kAvx512);

// Asks for every cache line of *from .. *to (from <= to, one array) ahead of a read, into
// the second-level cache: a span of peaks ahead is more lines than the first level tracks
// at once, and asking into the first level left the loop waiting on its prefetches (ten
// million points: a driver call 68.5 -> 65.4 ms; a million, where the lines come from L3,
// unchanged).
template <class T>
inline void PrefetchSpan(const T* from, const T* to) {
  constexpr std::ptrdiff_t kLine = 64 / sizeof(T);
  for (std::ptrdiff_t i = 0; i < to - from; i += kLine) __builtin_prefetch(from + i, 0, 1);
  __builtin_prefetch(to, 0, 1);
}

// Uninitialised room for `bytes`, or null; release it with std::free. Blocks from 8 MiB
// are aligned to and advised into 2 MiB pages where the system offers them: such blocks
// are mostly mapped fresh from the system on every call, and the kernel's first touches of
// them in 4 KiB pages cost more than the work done on them. Measured: the automatic noise
// estimate of a million points (two 8 MiB arrays) 40 -> 31 ms of the detection, the
// detection of ten million points (80 MB of window means) 230 -> 198 ms. Below, malloc's
// reuse of freed blocks wins: the 8 MB of means of a million points ran 0.8 ms slower so.
inline void* AllocateLarge(std::size_t bytes) {
#ifdef MADV_HUGEPAGE
  constexpr std::size_t kHugePage = std::size_t{2} << 20;
  if (bytes >= 4 * kHugePage) {
    const std::size_t rounded = (bytes + kHugePage - 1) / kHugePage * kHugePage;
    void* p = std::aligned_alloc(kHugePage, rounded);
    if (p != nullptr) madvise(p, rounded, MADV_HUGEPAGE);
    return p;
  }
#endif
  return std::malloc(bytes);
}

struct FreeLarge {
  void operator()(void* p) const { std::free(p); }
};

}  // namespace qxpkutil::numeric_detail
