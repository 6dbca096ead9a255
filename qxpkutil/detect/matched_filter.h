// The filters of the automatic mode: the least-squares height of a Gaussian of the local
// peak width (or a fraction of it) at any point of a trace, computed for runs of
// neighbouring points at once and kept in a small direct-mapped cache. Internal to the
// detect folder; not installed.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "qxpkutil/detect/signal_model.h"

namespace qxpkutil {

inline constexpr double kFwhmPerSigma = 2.354820045030949;
// Points computed together: kRun where a filter is read along whole flanks, kShortRun where
// it is read at a few points near each other.
inline constexpr std::int32_t kRun = 32, kShortRun = 8;

// Whether the processor runs AVX2 (asked once; false off x86-64).
bool HasAvx2();

// What the filters read: the trace, its model, and how many missing points come before
// each point (empty when none is missing), so that a window free of them is found in one
// subtraction.
struct FilterInput {
  FilterInput(std::span<const double> values, const SignalModel& m);
  bool MissingIn(std::int32_t lo, std::int32_t hi) const {
    return !missingBefore.empty() && missingBefore[static_cast<std::size_t>(hi)] !=
                                         missingBefore[static_cast<std::size_t>(lo)];
  }
  // The height of point i above the baseline.
  double Above(std::int32_t i) const { return y[i] - model.BaselineAt(i); }

  std::span<const double> y;
  const SignalModel& model;
  std::vector<std::int32_t> missingBefore;
};

// Least-squares height of a Gaussian of `scale` times the local width centred on point i,
// fitted to the heights above the baseline inside the point's region. At scale 1 it is the
// matched filter that decides S/N; at a smaller scale it keeps close peaks apart.
// A window whole inside its region sums y, and the baseline enters as b(i) times the
// kernel's sum: the baseline runs straight across a window (it bends only at block centres,
// and gently). A value depends on its point alone, so values are kept in a small
// direct-mapped cache, each place with the point it holds: the search works along x and
// neighbouring seeds ask for the same points, while a point asked for long after is computed
// anew.
class MatchedFilter {
 public:
  // `run`: kRun or kShortRun points computed together. The values are held for at least
  // `keepWidths` widths of the widest peak (and at least 16384 points).
  MatchedFilter(const FilterInput& input, double scale, std::int32_t run, double keepWidths);

  double At(std::int32_t i, const Region& r) {
    const std::size_t place = Place(i);
    return point_[place] == i ? value_[place] : Compute(i, r);
  }
  // The standard deviation of At(i) for white noise of `sigma`.
  double Spread(std::int32_t i, double sigma);

 private:
  struct Kernel {
    std::vector<double> weights;
    double sumOfSquares = 0.0;
    double baselineShare = 0.0;  // sum / sumOfSquares: what a baseline of 1 adds to a value
  };
  // Kept out of line, so that At, on every step of every walk, stays a load and a compare.
  [[gnu::noinline]] double Compute(std::int32_t i, const Region& r);
  void ComputeRun(std::int32_t i, std::int32_t b, const Region& r, const Kernel& g);
  std::size_t Place(std::int32_t i) const { return static_cast<std::size_t>(i) & mask_; }
  void Store(std::int32_t i, double value) {
    point_[Place(i)] = i;
    value_[Place(i)] = value;
  }
  // One kernel per block b of the model, chosen on first use.
  const Kernel& BlockKernel(std::int32_t b);
  const Kernel& MakeKernel(double ppf);
  static std::size_t Places(const FilterInput& in, double keepWidths);

  const FilterInput& in_;
  const SignalModel& m_;
  double scale_;
  std::int32_t run_;
  std::size_t mask_;  // places - 1
  std::vector<std::int32_t> point_;  // the point whose value a place holds; -1: none yet
  std::unique_ptr<double[]> value_;
  std::unordered_map<int, Kernel> kernels_;  // node-based: references stay valid
  std::vector<const Kernel*> blockKernel_;
};

}  // namespace qxpkutil
