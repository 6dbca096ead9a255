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

#include "qxpkutil/numeric/numeric_internal.h"

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

// ApplyGaussKernel's loop for a kernel of W >= 3 weights known when compiling, whose
// weight W - 2 (the centre of its table row) is 1: the same sums in the same order, so the
// same bits, with less work for the x87 unit, which bounds this loop (14 operations a mean
// of width 7 instead of 18). The product with the weight 1 is the value itself, exactly.
// Each partial sum starts at its first product instead of at 0 + that product, which
// differs only in the sign of a zero; adding one 0 to the total gives the kernel's zero.
template <int W, class T>
void FixedWidthMeans(const GaussKernel& kernel, const T* v, std::size_t count, double* out) {
  const double* weights = kernel.weights;
  for (std::size_t i = 0; i < count; ++i) {
    const T* u = v + i;
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
    out[i] = static_cast<double>((((s0 + s1) + (s2 + s3)) + Wide{0}) / kernel.divisor);
  }
}

// Widths Lo..Hi get a loop of their own; false for any other width (or a kernel without
// its unit weight, which a table row always has).
template <int Lo, int Hi, class T>
bool MeansOfSmallWidth(const GaussKernel& kernel, const T* v, std::size_t count, double* out) {
  if constexpr (Lo > Hi) {
    return false;
  } else {
    if (kernel.count != Lo) return MeansOfSmallWidth<Lo + 1, Hi>(kernel, v, count, out);
    if (kernel.weights[Lo - 2] != 1.0) return false;
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
