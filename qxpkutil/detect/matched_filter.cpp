// The filters' values: window sums in vector registers, finished and cached by run.
#include "qxpkutil/detect/matched_filter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace qxpkutil {

namespace {

// The sums of a full run of matched-filter windows: sums[o] = the sum of w[k] * window[o + k],
// kept in registers of `Lanes` sums each. The kernel is symmetric, so the two points at
// the same distance from the centre are added first and multiplied once. Every sum adds its
// terms in the same order whatever the register width and in AddWindowsScalar (no fused
// multiply-add), so all give the same values.
template <std::int32_t Run, typename Lanes>
[[gnu::always_inline]] inline void AddWindowsBody(const std::vector<double>& weights,
                                                  const double* window, double* sums) {
  constexpr std::size_t kWidth = sizeof(Lanes) / sizeof(double);
  const std::size_t last = weights.size() - 1, half = last / 2;
  Lanes acc[Run / kWidth], a, b;
  const Lanes centre = Lanes{} + weights[half];
  for (std::size_t q = 0; q < Run / kWidth; ++q) {
    std::memcpy(&a, window + half + kWidth * q, sizeof a);
    acc[q] = centre * a;
  }
  for (std::size_t k = 0; k < half; ++k) {
    const Lanes w = Lanes{} + weights[k];
    for (std::size_t q = 0; q < Run / kWidth; ++q) {
      std::memcpy(&a, window + k + kWidth * q, sizeof a);
      std::memcpy(&b, window + last - k + kWidth * q, sizeof b);
      acc[q] += w * (a + b);
    }
  }
  std::memcpy(sums, acc, sizeof acc);
}
// The same sums, one at a time, for the `count` windows of a run cut short.
void AddWindowsScalar(const std::vector<double>& weights, const double* window, double* sums,
                      std::size_t count) {
  const std::size_t last = weights.size() - 1, half = last / 2;
  for (std::size_t o = 0; o < count; ++o) {
    double sum = weights[half] * window[o + half];
    for (std::size_t k = 0; k < half; ++k)
      sum += weights[k] * (window[o + k] + window[o + last - k]);
    sums[o] = sum;
  }
}
// What turns a run's sums into values: the kernel's sum of squares and the baseline's
// share, and the baseline drawn straight from `first` at the run's first point by `step`.
struct Finish {
  double sumOfSquares, baselineShare, first, step;
};
// values[o] for the `count` sums of a run's points from `from` on. The loop counts in int32,
// whose conversion to double has a vector instruction, so the divisions go two or four at a
// time.
[[gnu::always_inline]] inline void FinishRun(const double* sums, std::int32_t from,
                                             std::int32_t count, const Finish& f,
                                             double* values) {
  for (std::int32_t o = 0; o < count; ++o)
    values[o] = sums[o] / f.sumOfSquares - f.baselineShare * (f.first + (from + o) * f.step);
}
template <std::int32_t Run, typename Lanes>
[[gnu::always_inline]] inline void FillRunBody(const std::vector<double>& weights,
                                               const double* window, const Finish& f,
                                               std::int32_t from, double* values) {
  double sums[Run];
  AddWindowsBody<Run, Lanes>(weights, window, sums);
  FinishRun(sums, from, Run, f, values);
}
using Lanes2 = double __attribute__((vector_size(16)));
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
using Lanes4 = double __attribute__((vector_size(32)));
template <std::int32_t Run>
[[gnu::target("avx2")]] void FillRunAvx2(const std::vector<double>& weights,
                                         const double* window, const Finish& f,
                                         std::int32_t from, double* values) {
  FillRunBody<Run, Lanes4>(weights, window, f, from, values);
}
#endif
// The values of Run points of a run, from its point `from` on.
template <std::int32_t Run>
void FillRun(const std::vector<double>& weights, const double* window, const Finish& f,
             std::int32_t from, double* values) {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  if (HasAvx2()) return FillRunAvx2<Run>(weights, window, f, from, values);
#endif
  FillRunBody<Run, Lanes2>(weights, window, f, from, values);
}

}  // namespace

bool HasAvx2() {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  static const bool avx2 = __builtin_cpu_supports("avx2") != 0;
  return avx2;
#else
  return false;
#endif
}

FilterInput::FilterInput(std::span<const double> values, const SignalModel& m)
    : y(values), model(m) {
  // memchr: a find of an int among bytes goes byte by byte.
  if (m.missing.empty() || std::memchr(m.missing.data(), 1, m.missing.size()) == nullptr) return;
  missingBefore.assign(m.missing.size() + 1, 0);
  for (std::size_t i = 0; i < m.missing.size(); ++i)
    missingBefore[i + 1] = missingBefore[i] + m.missing[i];
}

MatchedFilter::MatchedFilter(const FilterInput& input, double scale, std::int32_t run,
                             double keepWidths)
    : in_(input), m_(input.model), scale_(scale), run_(run),
      mask_(Places(input, keepWidths) - 1), point_(mask_ + 1, -1),
      value_(new double[mask_ + 1]) {}

double MatchedFilter::Spread(std::int32_t i, double sigma) {
  return sigma / std::sqrt(BlockKernel(i / m_.block()).sumOfSquares);
}

double MatchedFilter::Compute(std::int32_t i, const Region& r) {
  const std::int32_t b = i / m_.block();
  const Kernel& g = BlockKernel(b);
  const auto half = static_cast<std::int32_t>(g.weights.size() / 2);
  if (i - half >= r.begin && i + half < r.end && !in_.MissingIn(i - half, i + half + 1)) {
    ComputeRun(i, b, r, g);
    return value_[Place(i)];
  }
  double num = 0.0, den = 0.0;
  const std::int32_t lo = std::max(r.begin, i - half), hi = std::min(r.end - 1, i + half);
  for (std::int32_t j = lo; j <= hi; ++j) {
    if (m_.missing[j]) continue;
    const double w = g.weights[static_cast<std::size_t>(j - i + half)];
    num += w * in_.Above(j);
    den += w * w;
  }
  // Thresholded data: the absent points were below the threshold, near the baseline, so
  // they count in the fit as baseline points.
  if (m_.thresholded) den = g.sumOfSquares;
  const double value = den > 0.0 ? num / den : 0.0;
  Store(i, value);
  return value;
}

// The run of up to run_ points around i whose windows lie whole inside the region, the
// block b of i's kernel and a straight piece of the baseline, and hold no missing point:
// neighbouring points are asked for together (climbs, valleys), so a miss fills a run.
// The baseline bends at block centres, so a straight piece meets the block in the half that
// holds i. run_ is a power of two.
void MatchedFilter::ComputeRun(std::int32_t i, std::int32_t b, const Region& r, const Kernel& g) {
  const auto half = static_cast<std::int32_t>(g.weights.size() / 2);
  const std::int32_t blockBegin = b * m_.block(), centre = blockBegin + m_.block() / 2;
  const std::int32_t aligned = i & -run_;
  std::int32_t begin = std::max({aligned, i < centre ? blockBegin : centre, r.begin + half});
  std::int32_t end = std::min(
      {aligned + run_, i < centre ? centre : blockBegin + m_.block(), r.end - half});
  if (in_.MissingIn(begin - half, end + half)) begin = i, end = i + 1;
  const std::int32_t count = end - begin;
  const double first = m_.BaselineAt(begin);
  const double step =
      count > 1 ? (m_.BaselineAt(end - 1) - first) / static_cast<double>(count - 1) : 0.0;
  const Finish finish{g.sumOfSquares, g.baselineShare, first, step};
  // A run lies inside an aligned stretch of run_ points and the places are a power of two,
  // at least 16384 or more than the trace has: a run's places follow each other.
  double* values = value_.get() + Place(begin);
  const double* window = in_.y.data() + (begin - half);
  // A full run at once, else groups of kShortRun points, the rest one at a time: every
  // value comes out the same whichever way it is computed.
  std::int32_t o = 0;
  if (count == kRun) FillRun<kRun>(g.weights, window, finish, 0, values), o = kRun;
  for (; o + kShortRun <= count; o += kShortRun)
    FillRun<kShortRun>(g.weights, window + o, finish, o, values + o);
  if (o < count) {
    double sums[kShortRun];
    AddWindowsScalar(g.weights, window + o, sums, static_cast<std::size_t>(count - o));
    FinishRun(sums, o, count - o, finish, values + o);
  }
  std::int32_t* points = point_.data() + Place(begin);
  for (std::int32_t o = 0; o < count; ++o) points[o] = begin + o;
  // A walk goes on to a neighbouring run, one way or the other: the points its windows add
  // are fetched now (y no longer fits in the cache by the time the walks run).
  // (Clamped to the trace, whose ends it then fetches again.)
  const auto last = static_cast<std::int32_t>(in_.y.size()) - 1;
  for (std::int32_t k = 0; k < run_; k += 8) {
    __builtin_prefetch(&in_.y[static_cast<std::size_t>(std::max(0, begin - half - run_ + k))]);
    __builtin_prefetch(&in_.y[static_cast<std::size_t>(std::min(last, end + half + k))]);
  }
}

const MatchedFilter::Kernel& MatchedFilter::BlockKernel(std::int32_t b) {
  const auto k = static_cast<std::size_t>(b);
  if (blockKernel_.empty()) blockKernel_.assign(m_.ppf_.size(), nullptr);
  if (blockKernel_[k] == nullptr) blockKernel_[k] = &MakeKernel(m_.ppf_[k] * scale_);
  return *blockKernel_[k];
}

const MatchedFilter::Kernel& MatchedFilter::MakeKernel(double ppf) {
  const int key = static_cast<int>(std::lround(std::min(ppf, 4000.0) * 4.0));
  auto found = kernels_.find(key);
  if (found != kernels_.end()) return found->second;
  const double sigma = std::max(0.25, key / 4.0 / kFwhmPerSigma);
  const auto half = static_cast<std::int32_t>(std::ceil(2.5 * sigma));
  Kernel g;
  g.weights.resize(static_cast<std::size_t>(2 * half + 1));
  double sum = 0.0;
  for (std::int32_t k = -half; k <= half; ++k) {
    const double w = std::exp(-0.5 * k * k / (sigma * sigma));
    g.weights[static_cast<std::size_t>(k + half)] = w;
    sum += w;
    g.sumOfSquares += w * w;
  }
  g.baselineShare = sum / g.sumOfSquares;
  return kernels_.emplace(key, std::move(g)).first->second;
}

// Points held: at least 16384 (192 KB, which stay in the processor's cache), and enough
// for `keepWidths` of the widest peak, so that a walk that settles hills some way behind the
// climbs finds the values they left; never many more than the trace has.
std::size_t MatchedFilter::Places(const FilterInput& in, double keepWidths) {
  const std::vector<double>& ppf = in.model.ppf_;
  const double widest = ppf.empty() ? 1.0 : *std::max_element(ppf.begin(), ppf.end());
  const double wanted = std::max(16384.0, keepWidths * widest);
  const double places = std::min(wanted, static_cast<double>(in.y.size()));
  return std::bit_ceil(static_cast<std::size_t>(places));
}

}  // namespace qxpkutil
