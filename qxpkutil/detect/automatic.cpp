// The automatic mode: from the signal model (noise, baseline, width), one pass of a short
// moving mean proposes seeds, and a matched filter of the local width decides, bounds and
// measures every peak in physical terms (S/N, FWHM, centroid); shoulders are read from the
// flanks' curvature, then isotope charges are assigned. The model also plans classic
// segments whose point-based settings follow the local width (BuildAutomaticSegments), for
// users who want to run and edit them in classic mode.
#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <cmath>
#include <deque>
#include <functional>
#include <numeric>
#include <optional>

#include "qxpkutil/detect/detect_internal.h"
#include "qxpkutil/detect/matched_filter.h"
#include "qxpkutil/detect/signal_model.h"
#include "qxpkutil/numeric/numeric_internal.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#endif

namespace qxpkutil {

namespace {

constexpr double kIsotopeSpacing = 1.00336;
// How far, in peak widths, the climbs from a seed may run back to lower x.
constexpr double kReach = 16.0;
// The library's segment list holds at most this many segments; far fewer are ever needed.
constexpr std::size_t kMostSegments = 4096;

std::int32_t OddWidth(double points) {
  auto w = static_cast<std::int32_t>(std::lround(points));
  w = std::clamp<std::int32_t>(w, 3, 2001);
  return w % 2 == 0 ? w + 1 : w;
}

// A stretch of points searched with one filter width.
struct Piece {
  std::int32_t begin, end;  // [begin, end)
  double ppf;               // points per FWHM
};

// Splits the long regions into pieces over which the width in points stays within 25 %.
// Regions too short for a filter window come back in `shortRegions`.
std::vector<Piece> PlanPieces(std::span<const double> x, const SignalModel& m,
                              std::vector<Region>& shortRegions) {
  std::vector<Piece> pieces;
  for (const Region& r : m.regions) {
    const double ppf0 = m.PointsPerFwhm(r.begin, x[r.begin]);
    if (r.end - r.begin < std::max(3 * OddWidth(ppf0) + 2, 12)) {
      shortRegions.push_back(r);
      continue;
    }
    Piece piece{r.begin, r.end, ppf0};
    const std::int32_t step = std::max<std::int32_t>(1, m.block() / 2);
    for (std::int32_t i = r.begin + step; i < r.end; i += step) {
      const double ppf = m.PointsPerFwhm(i, x[i]);
      if (ppf > 1.25 * piece.ppf || ppf < 0.8 * piece.ppf) {
        piece.end = i;
        pieces.push_back(piece);
        piece = {i, r.end, ppf};
      }
    }
    pieces.push_back(piece);
  }
  if (pieces.size() > kMostSegments) {
    // Too many islands: search them all with one width per stretch, gaps and all; the
    // measurement still keeps every peak inside its own region.
    shortRegions.clear();
    const auto n = static_cast<std::int32_t>(x.size());
    pieces.assign(1, Piece{0, n, m.PointsPerFwhm(0, x[0])});
  }
  return pieces;
}

QXPeakTableList SegmentsFromPlan(std::span<const double> x, const SignalModel& m,
                                 const std::vector<Piece>& pieces, const DetectOptions& options) {
  QXPeakTableList list;
  list.AddPeakTableToList();
  const auto n = static_cast<std::int32_t>(x.size());
  for (const Piece& p : pieces) {
    // Neighbouring pieces overlap by two peak widths so that no peak falls between them.
    const auto margin = static_cast<std::int32_t>(std::ceil(2.0 * p.ppf));
    const std::int32_t lo = std::max(0, p.begin - margin), hi = std::min(n - 1, p.end - 1 + margin);
    if (!(x[lo] < x[hi])) continue;
    double floor = INFINITY;
    for (std::int32_t i = p.begin; i < p.end; i += std::max<std::int32_t>(1, m.block() / 2)) {
      floor = std::min(floor, m.BaselineAt(i) + m.NoiseAt(i));
    }
    // The scan only proposes seeds (the matched filter decides), and a nine-point window
    // finds the tops of wider peaks as well as a window their width, at a fraction of the
    // cost of the wide window's sums.
    const std::int32_t w = OddWidth(std::min(p.ppf, 9.0));
    const std::int32_t minWidth = OddWidth(p.ppf) / 2;
    const std::int32_t maxWidth =
        std::max<std::int32_t>(50, static_cast<std::int32_t>(25.0 * p.ppf));
    const std::int32_t index = list.GetNumDetectionSettings();
    list.AddDetectionSetting(-1);
    // Thresholds in intensity units sit just above the baseline; the S/N decision is made
    // on the measured peaks, not by the scan.
    list.SetDetectionSetting(index, x[lo], x[hi], 0.0, std::isfinite(floor) ? floor : 0.0, 0, w, 1,
                             0.0, 0.0, minWidth, maxWidth, 0, 0.0, 1, 50.0, options.max_charge, 40,
                             0.05, 0.99);
  }
  return list;
}

struct Found {
  std::int32_t top;      // local maximum of the narrow (shape) filter
  std::int32_t left, right;
  std::int32_t strongest;  // the matched filter's top near it
  std::size_t region;
  double strength;       // matched-filter height near the top
  double noise;
};

const Region* RegionOf(const std::vector<Region>& regions, std::int32_t i, std::size_t& index) {
  auto it = std::upper_bound(regions.begin(), regions.end(), i,
                             [](std::int32_t v, const Region& r) { return v < r.begin; });
  if (it == regions.begin()) return nullptr;
  --it;
  if (i >= it->end) return nullptr;
  index = static_cast<std::size_t>(it - regions.begin());
  return &*it;
}

// Climbs the matched filter from a seed to its local top, inside the seed's region: to the
// left while that rises, else to the right. The point a step came from is lower, so only
// the way ahead is read.
std::int32_t Climb(MatchedFilter& mf, const Region& r, std::int32_t i) {
  const std::int32_t seed = i;
  double here = mf.At(i, r);
  for (double left; i > r.begin && (left = mf.At(i - 1, r)) > here; --i) here = left;
  if (i != seed) return i;
  for (double right; i + 1 < r.end && (right = mf.At(i + 1, r)) > here; ++i) here = right;
  return i;
}

// A top of a filtered signal with the valleys either side. Wiggles smaller than
// `tolerance` do not end a flank, so noise on a broad top does not split it.
struct Hill {
  std::int32_t top, left, right;
  bool leftRises = false, rightRises = false;  // the flank ends where the signal rises again
};

// One flank of a hill: the lowest point walking away from the top (the valley), whether
// the signal rises again past it, and the highest point between the top and the valley
// (the one nearest the left end among equals).
struct Flank {
  std::int32_t valley;
  bool rises = false;
  std::int32_t highest = -1;
  double highestValue = -INFINITY;
};

// Kept out of line: inlined into the climbs, its running figures lived on the stack at every
// step; here they leave their registers only around the filter's rare call that fills a run.
// The flank is written once at the end: stores into it on the way made every step reload
// the region, the bar and the filter's tables (the compiler could not rule out that they
// overlap). The running figures move by selects, not branches: near the valley, where the
// values are mostly noise, whether a step sets a new low is a coin toss. The highest value
// at the valley is read again at the end (a value depends on its point alone).
[[gnu::noinline]] Flank WalkFlank(MatchedFilter& f, const Region& r, std::int32_t top, int step,
                                  double tolerance, std::int32_t limit) {
  double lowestValue = f.At(top, r), highestValue = -INFINITY;
  std::int32_t valley = top, highest = -1, highestAtValley = -1;
  bool rises = false;
  // top lies inside the region.
  const std::int32_t steps = std::min(limit, step < 0 ? top - r.begin : r.end - 1 - top);
  for (std::int32_t i = top + step, k = 0; k < steps; i += step, ++k) {
    const double v = f.At(i, r);
    const bool higher = step < 0 ? v >= highestValue : v > highestValue;
    highest = higher ? i : highest;
    highestValue = std::max(highestValue, v);
    // All ones at a new low (as a mask: GCC turns selects on it back into a branch).
    const std::int32_t lower = -static_cast<std::int32_t>(v < lowestValue);
    valley ^= (valley ^ i) & lower;
    highestAtValley ^= (highestAtValley ^ highest) & lower;
    lowestValue = std::min(lowestValue, v);
    if (v <= 0.0) break;
    if (v > lowestValue + tolerance) {  // the signal rises again
      rises = true;
      break;
    }
  }
  return Flank{valley, rises, highestAtValley,
               highestAtValley < 0 ? -INFINITY : f.At(highestAtValley, r)};
}

// From a top, moves to the highest point between its valleys until it stays.
Hill ClimbHill(MatchedFilter& f, const Region& r, std::int32_t top, double tolerance,
               std::int32_t limit) {
  Hill hill{top, top, top};
  for (int round = 0; round < 8; ++round) {
    const Flank left = WalkFlank(f, r, hill.top, -1, tolerance, limit);
    const Flank right = WalkFlank(f, r, hill.top, +1, tolerance, limit);
    hill.left = left.valley, hill.leftRises = left.rises;
    hill.right = right.valley, hill.rightRises = right.rises;
    const double topValue = f.At(hill.top, r);
    if (std::max(left.highestValue, right.highestValue) <= topValue) break;
    hill.top = left.highestValue >= right.highestValue ? left.highest : right.highest;
  }
  return hill;
}

// Weighted least-squares parabola through ln(y - b) of the points above 40 % of the top:
// the exact top, height and width of a sampled Gaussian; false when its vertex is not a top
// among those points. `above` is scratch: the heights above the baseline, read once as the
// walks find them, and their logarithms.
struct LogParabola {
  double top, height, fwhm;
};
std::optional<LogParabola> FitLogParabola(std::span<const double> x, const FilterInput& in,
                                          std::int32_t top, std::int32_t lo, std::int32_t hi,
                                          double noise, std::vector<double>& above) {
  const std::span<const double> y = in.y;
  const double peak = in.Above(top);
  if (!(peak >= 4.0 * DBL_MIN)) return {};  // every height fitted has a normal logarithm
  const auto size = static_cast<std::size_t>(hi - lo + 1);
  above.resize(2 * size);
  const auto at = [&](std::int32_t j) -> double& {
    return above[static_cast<std::size_t>(j - lo)];
  };
  at(top) = peak;
  // Each walk goes down its flank while the points stay above 40 % and do not rise more
  // than noise could above the lowest point passed, which only a neighbour's flank does. A
  // walk that stopped at the first point higher than the one before would end near the top
  // of a peak sampled finely, where the noise outweighs the fall from point to point, and
  // fit a few points: widths a third to a half too narrow at 20 to 40 points a FWHM.
  const double rise = 4.0 * noise;
  const auto walk = [&](std::int32_t from, std::int32_t step, std::int32_t end) {
    double lowest = y[from];
    while (from != end) {
      const std::int32_t j = from + step;
      if (!(y[j] <= lowest + rise)) break;
      at(j) = in.Above(j);
      if (!(at(j) >= 0.4 * peak)) break;
      lowest = std::min(lowest, y[j]);
      from = j;
    }
    return from;
  };
  const std::int32_t l = walk(top, -1, lo), h = walk(top, 1, hi);
  if (h - l < 2) return {};
  double* const logs = above.data() + size;  // logs[i - lo]: ln of the height at point i
  numeric_detail::LogsOfPositive(&at(l), static_cast<std::size_t>(h - l + 1), logs + (l - lo));
  double s[5] = {0, 0, 0, 0, 0}, t[3] = {0, 0, 0};
  for (std::int32_t i = l; i <= h; ++i) {
    const double v = at(i);
    const double w = v * v, u = x[i] - x[top], ln = logs[i - lo];
    double p = 1.0;
    for (int k = 0; k < 5; ++k, p *= u) {
      s[k] += w * p;
      if (k < 3) t[k] += w * p * ln;
    }
  }
  // Normal equations of c0 + c1 u + c2 u^2, solved by Cramer's rule.
  const double a[3][3] = {{s[0], s[1], s[2]}, {s[1], s[2], s[3]}, {s[2], s[3], s[4]}};
  auto det3 = [](const double q[3][3]) {
    return q[0][0] * (q[1][1] * q[2][2] - q[1][2] * q[2][1]) -
           q[0][1] * (q[1][0] * q[2][2] - q[1][2] * q[2][0]) +
           q[0][2] * (q[1][0] * q[2][1] - q[1][1] * q[2][0]);
  };
  const double d = det3(a);
  if (!(std::fabs(d) > 0.0)) return {};
  double c[3];
  for (int col = 0; col < 3; ++col) {
    double q[3][3];
    for (int r = 0; r < 3; ++r) {
      for (int k = 0; k < 3; ++k) q[r][k] = k == col ? t[r] : a[r][k];
    }
    c[col] = det3(q) / d;
  }
  if (!(c[2] < 0.0)) return {};
  const double shift = -c[1] / (2.0 * c[2]);
  if (!(x[top] + shift >= x[l] && x[top] + shift <= x[h])) return {};
  const LogParabola fit{x[top] + shift, std::exp(c[0] - c[1] * c[1] / (4.0 * c[2])),
                        kFwhmPerSigma * std::sqrt(-1.0 / (2.0 * c[2]))};
  if (!std::isfinite(fit.top) || !std::isfinite(fit.height) || !std::isfinite(fit.fwhm)) return {};
  return fit;
}

// x at the fractional index i + d, linear between neighbours.
double XAt(std::span<const double> x, std::int32_t i, double d) {
  const auto n = static_cast<std::int32_t>(x.size());
  if (d >= 0.0) return i + 1 < n ? x[i] + d * (x[i + 1] - x[i]) : x[i];
  return i > 0 ? x[i] + d * (x[i] - x[i - 1]) : x[i];
}

// The width at half `height` of the heights above the baseline around `top`.
double HalfHeightWidth(std::span<const double> x, const FilterInput& in, std::int32_t top,
                       std::int32_t lo, std::int32_t hi, double height) {
  const auto above = [&in](std::int32_t i) { return in.Above(i); };
  const double level = 0.5 * height;
  std::int32_t l = top, h = top;
  while (l > lo && above(l) > level) --l;
  while (h < hi && above(h) > level) ++h;
  if (above(l) > level || above(h) > level || l == top || h == top) return kNotMeasured;
  auto cross = [&](std::int32_t i, std::int32_t j) {
    const double vi = above(i), vj = above(j);
    return vj == vi ? x[j] : x[i] + (level - vi) * (x[j] - x[i]) / (vj - vi);
  };
  // Noise ends a walk from the top early, at the first dip below the level, and one from
  // the bound inwards late, by about as much: where the bound lies below the level, each
  // crossing is the mean of the two.
  double left = cross(l + 1, l), right = cross(h - 1, h);
  if (!(above(lo) > level)) {
    std::int32_t k = lo;
    while (!(above(k + 1) > level)) ++k;
    left = 0.5 * (left + cross(k + 1, k));
  }
  if (!(above(hi) > level)) {
    std::int32_t k = hi;
    while (!(above(k - 1) > level)) --k;
    right = 0.5 * (right + cross(k - 1, k));
  }
  return right - left;
}

// Links peaks whose centroids lie 1.00336 / z apart (within `tolerance(x)`), highest z
// first, and marks each linked series.
template <typename Tolerance>
void AssignCharges(std::vector<Peak>& peaks, const Tolerance& tolerance, int maxCharge) {
  const std::size_t count = peaks.size();
  std::vector<std::size_t> parent(count);
  std::iota(parent.begin(), parent.end(), 0);
  auto root = [&](std::size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
  };
  // The tolerance of each peak, once for every charge.
  std::vector<double> slacks(count);
  for (std::size_t i = 0; i < count; ++i) slacks[i] = tolerance(peaks[i].centroid_x);
  for (int z = maxCharge; z >= 1; --z) {
    const double spacing = kIsotopeSpacing / z;
    for (std::size_t i = 0; i < count; ++i) {
      if (peaks[i].charge != 0 && peaks[i].charge != z) continue;
      const double c = peaks[i].centroid_x;
      const double slack = slacks[i];
      // Peaks are in x order: find the first at or past the expected neighbour.
      auto it = std::lower_bound(peaks.begin() + static_cast<std::ptrdiff_t>(i + 1), peaks.end(),
                                 c + spacing - slack,
                                 [](const Peak& p, double v) { return p.centroid_x < v; });
      std::size_t best = count;
      for (; it != peaks.end() && it->centroid_x <= c + spacing + slack; ++it) {
        const auto j = static_cast<std::size_t>(it - peaks.begin());
        if (it->charge != 0 && it->charge != z) continue;
        if (best == count || std::fabs(it->centroid_x - c - spacing) <
                                 std::fabs(peaks[best].centroid_x - c - spacing)) {
          best = j;
        }
      }
      if (best == count) continue;
      peaks[i].charge = peaks[best].charge = z;
      parent[root(best)] = root(i);
    }
  }
  // Series marks: the lowest member and the most intense member of each linked series.
  std::vector<std::size_t> lowest(count, count), strongest(count, count);
  for (std::size_t i = 0; i < count; ++i) {
    if (peaks[i].charge == 0) continue;
    peaks[i].marks |= kQXPeakChargeAssigned;
    const std::size_t r = root(i);
    if (lowest[r] == count) lowest[r] = i;
    if (strongest[r] == count || peaks[i].height > peaks[strongest[r]].height) strongest[r] = i;
  }
  for (std::size_t r = 0; r < count; ++r) {
    if (lowest[r] != count) peaks[lowest[r]].marks |= kQXPeakSeriesLow;
    if (strongest[r] != count) peaks[strongest[r]].marks |= kQXPeakSeriesMostIntense;
  }
}

PeakList BadOption(const char* what) {
  PeakList list;
  list.status = DetectStatus::kBadOption;
  list.message = what;
  return list;
}

PeakList CheckOptions(const DetectOptions& o) {
  if (!(std::isfinite(o.snr) && o.snr > 0.0)) return BadOption("snr must be a positive number");
  if (!(std::isfinite(o.fwhm) && o.fwhm >= 0.0)) return BadOption("fwhm must be a positive number");
  if (!(std::isfinite(o.fwhm_at) && o.fwhm_at >= 0.0)) {
    return BadOption("the x of the fwhm must be a positive number");
  }
  if (!(std::isfinite(o.resolution) && o.resolution >= 0.0)) {
    return BadOption("resolution must be a positive number");
  }
  if (!(std::isfinite(o.resolution_at) && o.resolution_at > 0.0)) {
    return BadOption("the x of the resolution must be a positive number");
  }
  if (o.max_charge < 0 || o.max_charge > 100) return BadOption("max_charge must be 0 to 100");
  return {};
}

}  // namespace

QXPeakTableList BuildAutomaticSegments(std::span<const double> x, std::span<const double> y,
                                       const DetectOptions& options) {
  if (!ValidateSizes(x.size(), y.size()).ok() || x.empty() || !CheckOptions(options).ok())
    return {};
  const std::optional<SignalModel> model = EstimateSignalModel(x, y, options);
  if (!model) return {};
  std::vector<Region> shortRegions;
  return SegmentsFromPlan(x, *model, PlanPieces(x, *model, shortRegions), options);
}

namespace {

// Centroided input: every point above zero is a peak; charges from the spacings, within a
// few ppm or a quarter of the FWHM the options give.
void DetectCentroided(std::span<const double> x, std::span<const double> y,
                      const DetectOptions& options, PeakList& result) {
  for (std::size_t i = 0; i < x.size(); ++i) {
    if (!(y[i] > 0.0)) continue;
    Peak p;
    p.apex_x = p.centroid_x = p.left_x = p.right_x = x[i];
    p.apex_y = p.area = p.height = y[i];
    p.apex_index = p.left_index = p.right_index = static_cast<std::int32_t>(i);
    p.baseline = 0.0;
    p.marks = kQXPeakNormal;
    result.peaks.push_back(std::move(p));
  }
  if (options.kind == SignalKind::kSpectrum && options.max_charge > 0) {
    // The width law of the options (constant resolving power when unnamed), if any width.
    SignalModel law;
    law.exponent = options.width_law == WidthLaw::kAuto ? 1.0 : WidthExponent(options.width_law);
    if (options.fwhm > 0.0) {
      law.fwhm_ref = options.fwhm;
      law.x_ref = options.fwhm_at > 0.0 ? options.fwhm_at : 1.0;
      if (options.fwhm_at <= 0.0) law.exponent = 0.0;
    } else if (options.resolution > 0.0) {
      law.fwhm_ref = options.resolution_at / options.resolution;
      law.x_ref = options.resolution_at;
    }
    AssignCharges(result.peaks, [&](double c) { return 0.25 * law.FwhmAt(c) + 5e-6 * c; },
                  options.max_charge);
  }
  FinishPeaks(x, y, options, result.peaks);
}

}  // namespace

namespace {

// The highest point of region r under the window of 2 half + 1 points around i: i itself
// unless a point is higher, else the first of the highest.
std::int32_t TopUnder(std::span<const double> y, const Region& r, std::int32_t i,
                      std::int32_t half) {
  std::int32_t top = i;
  for (std::int32_t k = std::max(r.begin, i - half); k <= std::min(r.end - 1, i + half); ++k)
    if (y[k] > y[top]) top = k;
  return top;
}

// The seeds of block [from, to) of region r: the local tops of the window sums (2 half + 1
// points) above `bar`, each moved to the highest point under its window. The sums are made at
// the block's points and a neighbour either side, in order; a point is settled once its right
// neighbour's sum is known, and the ends have no neighbour outside (their sums are -inf).
// Where the whole window lies inside the region, a sum is the one before plus the point
// entering less the one leaving (one addition per point on its chain); elsewhere it is added
// up and scaled to full width. Kept out of line, so that the running figures stay in
// registers.
[[gnu::noinline]] void ScanBlock(std::span<const double> y, const Region& r, std::int32_t from,
                                 std::int32_t to, std::int32_t half, double bar,
                                 std::vector<std::int32_t>& seeds) {
  const std::int32_t width = 2 * half + 1;
  const std::int32_t lo = std::max(r.begin, from - 1), hi = std::min(r.end, to + 1);
  const auto direct = [&](std::int32_t i) {
    const std::int32_t a = std::max(r.begin, i - half), e = std::min(r.end, i + half + 1);
    double sum = 0.0;
    for (std::int32_t j = a; j < e; ++j) sum += y[j];
    return e - a == width ? sum : sum * width / (e - a);
  };
  const auto settle = [&](std::int32_t i, double before, double here, double next) {
    if (!(here > bar) || i < from || i >= to || before >= here || next > here) return;
    seeds.push_back(TopUnder(y, r, i, half));
  };
  const std::int32_t first = std::max(lo, r.begin + half), last = std::min(hi, r.end - half);
  double before = -INFINITY, here = direct(lo), next = 0.0;
  std::int32_t j = lo + 1;
  for (; j < hi && j <= first; ++j, before = here, here = next)
    settle(j - 1, before, here, next = direct(j));
  for (; j < last; ++j, before = here, here = next)
    settle(j - 1, before, here, next = here + (y[j + half] - y[j - half - 1]));
  for (; j < hi; ++j, before = here, here = next) settle(j - 1, before, here, next = direct(j));
  settle(hi - 1, before, here, -INFINITY);
}

// A block of the seed scan whose windows, and those of a neighbour either side, lie whole
// inside its region: its first point, its windows' half width and its bar.
struct ScanLane {
  std::int32_t from, half;
  double bar;
};

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// Moves four lanes of running sums on by one step and says in which lanes the point before
// is a seed: its sum above the bar, above the one before and not below the next (ScanBlock's
// tests, so that NaN sums get its answers).
[[gnu::target("avx2"), gnu::always_inline]] inline __m256d Step(__m256d& before, __m256d& here,
                                                                 __m256d move, __m256d bar) {
  const __m256d next = _mm256_add_pd(here, move);
  const __m256d beaten = _mm256_or_pd(_mm256_cmp_pd(before, here, _CMP_GE_OQ),
                                      _mm256_cmp_pd(next, here, _CMP_GT_OQ));
  const __m256d found = _mm256_andnot_pd(beaten, _mm256_cmp_pd(here, bar, _CMP_GT_OQ));
  before = here;
  here = next;
  return found;
}

// ScanBlock for four such blocks of `length` points at once, each block's running sum in an
// AVX2 lane of its own: one chain waits on each addition, four overlap. A lane adds the same
// terms in the same order as ScanBlock and a point is a seed under the same tests, so the
// seeds are the same (found in another order). The points entering and leaving the windows
// are loaded four steps at a time along each block and turned into one vector a step.
[[gnu::noinline, gnu::target("avx2")]] void ScanFourBlocksAvx2(
    std::span<const double> y, const Region& r, const std::array<ScanLane, 4>& lanes,
    std::int32_t length, std::vector<std::int32_t>& seeds) {
  const double *in[4], *out[4];  // the points entering and leaving at step t: in[k][t], out[k][t]
  double sums[4], bars[4];
  for (int k = 0; k < 4; ++k) {
    const ScanLane& l = lanes[k];
    double sum = 0.0;  // the window around from - 1, added up as ScanBlock does
    for (std::int32_t j = l.from - 1 - l.half; j <= l.from - 1 + l.half; ++j) sum += y[j];
    sums[k] = sum;
    bars[k] = l.bar;
    in[k] = y.data() + l.from + l.half;
    out[k] = y.data() + l.from - l.half - 1;
  }
  __m256d here = _mm256_loadu_pd(sums), before = _mm256_set1_pd(INFINITY);  // from - 1: no seed
  const __m256d bar = _mm256_loadu_pd(bars);
  // The seeds of the lanes set in `found` (rare), at point `point` of their blocks.
  auto take = [&](int found, std::int32_t point) {
    for (; found != 0; found &= found - 1) {
      const auto k = static_cast<std::size_t>(std::countr_zero(static_cast<unsigned>(found)));
      const ScanLane& l = lanes[k];
      seeds.push_back(TopUnder(y, r, l.from + point, l.half));
    }
  };
  // Step t makes the sums around from + t and settles from + t - 1; there are length + 1,
  // taken four at a time with one test whether any of the sixteen points settled is a seed.
  std::int32_t t = 0;
  for (; t + 4 <= length + 1; t += 4) {
    __m256d m[4];
    for (int k = 0; k < 4; ++k)
      m[k] = _mm256_sub_pd(_mm256_loadu_pd(in[k] + t), _mm256_loadu_pd(out[k] + t));
    // Transposed: step q of every lane.
    const __m256d lo01 = _mm256_unpacklo_pd(m[0], m[1]), hi01 = _mm256_unpackhi_pd(m[0], m[1]);
    const __m256d lo23 = _mm256_unpacklo_pd(m[2], m[3]), hi23 = _mm256_unpackhi_pd(m[2], m[3]);
    const __m256d f0 = Step(before, here, _mm256_permute2f128_pd(lo01, lo23, 0x20), bar);
    const __m256d f1 = Step(before, here, _mm256_permute2f128_pd(hi01, hi23, 0x20), bar);
    const __m256d f2 = Step(before, here, _mm256_permute2f128_pd(lo01, lo23, 0x31), bar);
    const __m256d f3 = Step(before, here, _mm256_permute2f128_pd(hi01, hi23, 0x31), bar);
    if (_mm256_movemask_pd(_mm256_or_pd(_mm256_or_pd(f0, f1), _mm256_or_pd(f2, f3))) != 0) {
      take(_mm256_movemask_pd(f0), t - 1), take(_mm256_movemask_pd(f1), t);
      take(_mm256_movemask_pd(f2), t + 1), take(_mm256_movemask_pd(f3), t + 2);
    }
  }
  for (; t <= length; ++t) {
    for (int k = 0; k < 4; ++k) sums[k] = in[k][t] - out[k][t];
    take(_mm256_movemask_pd(Step(before, here, _mm256_loadu_pd(sums), bar)), t - 1);
  }
}
#endif

// ScanBlock for four such blocks of `length` points: side by side where the processor runs
// AVX2, else one after another.
void ScanFourBlocks(std::span<const double> y, const Region& r,
                    const std::array<ScanLane, 4>& lanes, std::int32_t length,
                    std::vector<std::int32_t>& seeds) {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  if (HasAvx2()) return ScanFourBlocksAvx2(y, r, lanes, length, seeds);
#endif
  for (const ScanLane& l : lanes) ScanBlock(y, r, l.from, l.from + length, l.half, l.bar, seeds);
}

// Seeds: the local tops of a short moving mean (as wide as a peak, at most nine points:
// it only proposes, the matched filter decides) that stand above the baseline plus the
// noise, each at the highest point under its window; in regions too short for a peak
// width, every local top. One pass over the points, with no table.
std::vector<std::int32_t> ScanForSeeds(std::span<const double> y, const SignalModel& model) {
  std::vector<std::int32_t> seeds;
  for (const Region& r : model.regions) {
    const std::int32_t w0 = OddWidth(std::min(model.PointsPerFwhm(r.begin), 9.0));
    if (r.end - r.begin < std::max(3 * w0 + 2, 12)) {
      for (std::int32_t i = r.begin; i < r.end; ++i) {
        if (!model.missing[i] && (i == r.begin || y[i] > y[i - 1]) &&
            (i + 1 == r.end || y[i] >= y[i + 1])) {
          seeds.push_back(i);
        }
      }
      continue;
    }
    // Whole blocks inside the region go four at a time, the others (and any left over) alone.
    const std::int32_t length = model.block();
    std::array<ScanLane, 4> group;
    std::size_t grouped = 0;
    for (std::int32_t from = r.begin, to = 0; from < r.end; from = to) {
      const std::int32_t b = from / length;
      to = std::min(r.end, (b + 1) * length);
      const std::int32_t half = OddWidth(std::min(model.ppf_[b], 9.0)) / 2;
      const double bar = model.LevelBounds(b, 1.0).first * (2 * half + 1);
      if (to - from < length || from - 1 - half < r.begin || to + half >= r.end) {
        ScanBlock(y, r, from, to, half, bar, seeds);
        continue;
      }
      group[grouped++] = {from, half, bar};
      if (grouped == group.size()) {
        ScanFourBlocks(y, r, group, length, seeds);
        grouped = 0;
      }
    }
    for (std::size_t k = 0; k < grouped; ++k) {
      const ScanLane& l = group[k];
      ScanBlock(y, r, l.from, l.from + length, l.half, l.bar, seeds);
    }
  }
  return seeds;
}

// Bit k of `lowest` and `highest`: whether point k of `count` (at most 64) lies above the bar.
struct Above {
  std::uint64_t lowest = 0, highest = 0;
};
void CompareWithBarsFrom(const double* y, int from, int count, double lowest, double highest,
                         Above& above) {
  for (int k = from; k < count; ++k) {
    above.lowest |= static_cast<std::uint64_t>(y[k] > lowest) << k;
    above.highest |= static_cast<std::uint64_t>(y[k] > highest) << k;
  }
}
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
// Four points a comparison; the rest as above.
[[gnu::target("avx2")]] Above CompareWithBarsAvx2(const double* y, int count, double lowest,
                                                  double highest) {
  Above above;
  const __m256d low = _mm256_set1_pd(lowest), high = _mm256_set1_pd(highest);
  int k = 0;
  for (; k + 4 <= count; k += 4) {
    const __m256d v = _mm256_loadu_pd(y + k);
    above.lowest |= static_cast<std::uint64_t>(
                        _mm256_movemask_pd(_mm256_cmp_pd(v, low, _CMP_GT_OQ)))
                    << k;
    above.highest |= static_cast<std::uint64_t>(
                         _mm256_movemask_pd(_mm256_cmp_pd(v, high, _CMP_GT_OQ)))
                     << k;
  }
  CompareWithBarsFrom(y, k, count, lowest, highest, above);
  return above;
}
#endif
Above CompareWithBars(const double* y, int count, double lowest, double highest) {
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
  if (HasAvx2()) return CompareWithBarsAvx2(y, count, lowest, highest);
#endif
  Above above;
  CompareWithBarsFrom(y, 0, count, lowest, highest, above);
  return above;
}

// Measures the baseline and noise again, on every sampled point of a block, without the
// points clearly above the baseline (widened by a peak width), so that dense peaks do not
// lift them; then keeps the seeds whose own point stands clearly above the new baseline (no
// peak of the wanted S/N has its highest point that low).
// Thresholded data is screened first, against the noise that the threshold crossings
// show, which the refined levels (without the stored peaks) no longer see: a seed's
// matched-filter top must reach half the wanted S/N. Its baseline is 0 before and after,
// so the filter's values stay good for the search.
std::vector<std::int32_t> RefineAndScreen(std::span<const double> x, std::span<const double> y,
                                          const DetectOptions& options,
                                          std::vector<std::int32_t> seeds, SignalModel& model,
                                          const FilterInput& input, MatchedFilter& mf) {
  const auto n = static_cast<std::int32_t>(y.size());
  auto clearlyAbove = [&](std::int32_t seed) {
    return input.Above(seed) >= 0.75 * options.snr * model.NoiseAt(seed);
  };
  if (model.thresholded) {
    std::erase_if(seeds, [&](std::int32_t seed) {
      std::size_t region = 0;
      const Region* r = RegionOf(model.regions, seed, region);
      if (r == nullptr || !clearlyAbove(seed)) return true;
      const std::int32_t top = Climb(mf, *r, seed);
      return mf.At(top, *r) < 0.5 * options.snr * model.NoiseAt(top);
    });
  }
  // Points clearly above the baseline, in runs, widened by a peak width. Most lie below the
  // lowest bar of their block or above its highest, which settles them without reading the
  // levels at the point; 64 points at a time are compared with both bars into bit masks, and
  // only the points between the bars, and the ends of runs, are visited one by one.
  std::vector<std::uint8_t> exclude(static_cast<std::size_t>(n), 0);
  std::int32_t runStart = -1;
  auto close = [&](std::int32_t end) {
    const auto reach = static_cast<std::int32_t>(std::ceil(1.5 * model.PointsPerFwhm(runStart)));
    std::fill(exclude.begin() + std::max(0, runStart - reach),
              exclude.begin() + std::min(n - 1, end - 1 + reach) + 1, std::uint8_t{1});
    runStart = -1;
  };
  for (std::int32_t lo = 0; lo < n; lo += model.block()) {
    const std::int32_t hi = std::min(n, lo + model.block());
    const auto [lowest, highest] = model.LevelBounds(lo / model.block(), 3.0);
    for (std::int32_t from = lo; from < hi; from += 64) {
      const int count = std::min(64, hi - from);
      const Above bars = CompareWithBars(&y[from], count, lowest, highest);
      std::uint64_t clear = bars.highest;
      for (std::uint64_t between = bars.lowest & ~bars.highest; between != 0;
           between &= between - 1) {
        const int k = std::countr_zero(between);
        if (input.Above(from + k) > 3.0 * model.NoiseAt(from + k)) clear |= std::uint64_t{1} << k;
      }
      // Where a point's clearness differs from the point's before, a run starts or ends.
      std::uint64_t changes = clear ^ ((clear << 1) | (runStart >= 0 ? 1u : 0u));
      if (count < 64) changes &= (std::uint64_t{1} << count) - 1;
      for (; changes != 0; changes &= changes - 1) {
        const std::int32_t i = from + std::countr_zero(changes);
        if (runStart < 0) {
          runStart = i;
        } else {
          close(i);
        }
      }
    }
  }
  if (runStart >= 0) close(n);
  RefineLevels(x, y, exclude, model);
  if (!model.thresholded) {
    // The seeds lie far apart in a trace that no longer fits in the cache: each one's point
    // is fetched a few seeds ahead.
    std::size_t kept = 0;
    for (std::size_t k = 0; k < seeds.size(); ++k) {
      if (k + 8 < seeds.size()) __builtin_prefetch(&y[seeds[k + 8]]);
      if (clearlyAbove(seeds[k])) seeds[kept++] = seeds[k];
    }
    seeds.resize(kept);
  }
  return seeds;
}

// Climbs the shape filter from every seed to a hill and keeps the hills whose matched
// filter stands the wanted S/N above the lower valley: a peak on the tail of a larger one
// counts by its own height. Every hill kept also sends seeds over its valleys, so a
// neighbour the scan did not report (a shoulder, a peak on a tail) is still climbed.
// Seeds are climbed from the lowest x up, and each hill is handed to `take` (in x order,
// one per top) once the seeds left lie a reach beyond it, so that what follows reads the
// filters while they are still in cache. A hill found behind one already handed on (a
// climb that ran back further than the reach) is dropped.
template <typename Take>
void ClimbHills(std::vector<std::int32_t> seeds, const SignalModel& model,
                const DetectOptions& options, MatchedFilter& mf, MatchedFilter& shape,
                Take take) {
  // The scan's seeds in ascending order, and a heap (smallest first) of the few sent over
  // valleys: the next seed is the smaller of their fronts. One heap of all seeds took about
  // fourteen unpredictable comparisons for each.
  std::sort(seeds.begin(), seeds.end());
  std::size_t scanned = 0;  // the scan's seeds taken so far
  std::vector<std::int32_t> sent;
  const std::greater<> later;
  std::deque<Found> ahead;  // found and not handed on, by top
  std::int32_t handed = -1;  // the top of the last hill handed on
  auto handOn = [&](std::int64_t below) {
    for (; !ahead.empty() && ahead.front().top < below; ahead.pop_front()) {
      handed = ahead.front().top;
      take(ahead.front());
    }
  };
  // The points between the valleys of every hill settled so far. A climb cannot leave a hill
  // (its valleys are the lowest points of its flanks), and a top inside it other than the
  // hill's own is a wiggle smaller than the tolerance, which the merge would fold into the
  // hill: a seed or a climb's end there would only settle the hill again.
  std::vector<std::uint8_t> settled(model.missing.size(), 0);
  while (scanned < seeds.size() || !sent.empty()) {
    std::int32_t seed = 0;
    if (!sent.empty() && (scanned == seeds.size() || sent.front() < seeds[scanned])) {
      seed = sent.front();
      std::pop_heap(sent.begin(), sent.end(), later);
      sent.pop_back();
    } else {
      seed = seeds[scanned++];
    }
    handOn(seed - static_cast<std::int64_t>(std::ceil(kReach * model.PointsPerFwhm(seed))));
    std::size_t region = 0;
    const Region* r = RegionOf(model.regions, seed, region);
    if (r == nullptr || settled[seed]) continue;
    // What follows reads the model at the top, so a hill does not depend on which seed
    // reached it first.
    const std::int32_t top = Climb(shape, *r, seed);
    if (settled[top]) continue;
    const double noise = model.NoiseAt(top);
    const double ppf = model.PointsPerFwhm(top);
    const Hill hill = ClimbHill(shape, *r, top, 3.0 * shape.Spread(top, noise),
                                static_cast<std::int32_t>(std::ceil(6.0 * ppf)));
    if (settled[hill.top]) continue;
    std::fill(settled.begin() + hill.left, settled.begin() + hill.right + 1, std::uint8_t{1});
    std::int32_t strongest = Climb(mf, *r, hill.top);
    if (std::abs(strongest - hill.top) > ppf / 2.0) strongest = hill.top;
    auto side = [&](std::int32_t valley, bool rises) {
      if (!rises) return 0.0;
      const double v = mf.At(valley, *r);
      return v > 2.0 * mf.Spread(valley, noise) ? v : 0.0;
    };
    const double floor =
        std::min(side(hill.left, hill.leftRises), side(hill.right, hill.rightRises));
    const double strength = mf.At(strongest, *r) - floor;
    if (strength < options.snr * noise || hill.top <= handed) continue;
    const Found f{hill.top, hill.left, hill.right, strongest, region, strength, noise};
    ahead.insert(std::upper_bound(ahead.begin(), ahead.end(), f,
                                  [](const Found& a, const Found& b) { return a.top < b.top; }),
                 f);
    const std::int32_t left = hill.leftRises && hill.left > r->begin ? hill.left - 1 : -1;
    const std::int32_t right = hill.rightRises && hill.right + 1 < r->end ? hill.right + 1 : -1;
    for (const std::int32_t next : {left, right}) {
      if (next < 0) continue;
      sent.push_back(next);
      std::push_heap(sent.begin(), sent.end(), later);
    }
  }
  handOn(INT64_MAX);
}

// Neighbouring tops without a real valley between them in the shape filter are one peak:
// MergeInto folds f into prev (the stronger top stays) and says whether it did.
bool MergeInto(Found& prev, const Found& f, const SignalModel& model, MatchedFilter& shape) {
  if (prev.region != f.region) return false;
  const Region& r = model.regions[f.region];
  const double lower = std::min(shape.At(prev.top, r), shape.At(f.top, r));
  const double deepEnough = 3.0 * shape.Spread(f.top, f.noise) + 0.05 * lower;
  // The walk stops once the valley is deep enough: far-apart tops are settled at once.
  double valley = INFINITY;
  for (std::int32_t i = prev.top; i <= f.top && !(lower - valley >= deepEnough); ++i) {
    valley = std::min(valley, shape.At(i, r));
  }
  if (lower - valley >= deepEnough) return false;
  const std::int32_t left = std::min(prev.left, f.left), right = std::max(prev.right, f.right);
  if (f.strength > prev.strength) prev = f;
  prev.left = left;
  prev.right = right;
  return true;
}

// The bounds of neighbours that overlap meet at the lowest point between their tops. When
// both valleys lie between the tops, the flank walks that found them covered the stretch,
// so that point is the lower valley (a's among equals); otherwise the stretch is walked.
void SplitBounds(Found& a, Found& b, const SignalModel& model, MatchedFilter& shape) {
  if (a.region != b.region || a.right < b.left) return;
  const Region& r = model.regions[b.region];
  std::int32_t valley = a.right;
  if (a.right <= b.top && b.left >= a.top) {
    if (shape.At(b.left, r) < shape.At(a.right, r)) valley = b.left;
  } else {
    valley = a.top;
    double lowest = shape.At(valley, r);
    for (std::int32_t i = a.top + 1; i <= b.top; ++i) {
      const double v = shape.At(i, r);
      if (v < lowest) valley = i, lowest = v;
    }
  }
  a.right = std::min(a.right, valley);
  b.left = std::max(b.left, valley);
}

// Shoulders: a peak without a maximum of its own on the flank of a larger one still bends
// the flank the other way. The curvature of the shape filter, C = 2 S(i) - S(i-L) - S(i+L)
// at a lag L of the filter's sigma, is negative all along a single peak's flank past its
// top lobe; a positive top there that noise does not explain is a peak of its own, kept
// when the height it implies passes the S/N rule.
// Returns f and its shoulders in x order, in `found`; `values` is scratch.
void AddShoulders(const Found& f, const SignalModel& model, const DetectOptions& options,
                  MatchedFilter& shape, std::vector<Found>& found, std::vector<double>& values) {
  const Region& r = model.regions[f.region];
  const double ppf = model.PointsPerFwhm(f.top);
  const double sigma = std::max(1.0, 0.5 * ppf / kFwhmPerSigma);
  const auto lag = static_cast<std::int32_t>(std::lround(sigma));
  const double lag2 = static_cast<double>(lag) * lag;
  // White noise through the filter is correlated as exp(-d^2 / 4 sigma^2) at a lag of d
  // points, which sets the spread of C against that of S.
  const double rho1 = std::exp(-lag2 / (4.0 * sigma * sigma));
  const double rho2 = std::exp(-4.0 * lag2 / (4.0 * sigma * sigma));
  const double spreadFactor = std::sqrt(std::max(0.0, 6.0 - 8.0 * rho1 + 2.0 * rho2));
  // A Gaussian peak of height h and the model's width gives C = h * perHeight at its top:
  // the filter's least-squares height of it is h * sqrt(2) sp / se, its profile has the
  // width se = sqrt(sp^2 + sigma^2), and C takes the fall over L either side twice.
  const double sp = ppf / kFwhmPerSigma, se2 = sp * sp + sigma * sigma;
  const double perHeight =
      2.0 * std::sqrt(2.0) * sp / std::sqrt(se2) * (1.0 - std::exp(-lag2 / (2.0 * se2)));
  auto curvature = [&](std::int32_t i) {
    return 2.0 * shape.At(i, r) - shape.At(i - lag, r) - shape.At(i + lag, r);
  };
  const auto clear = static_cast<std::int32_t>(std::ceil(0.75 * ppf));
  found.assign(1, f);
  const double halfTop = 0.5 * shape.At(f.top, r);
  for (int side : {-1, +1}) {
    // The host's own top lobe reaches past its half height, wherever the width model puts it.
    std::int32_t from = f.top + side * clear;
    while ((side < 0 ? from > f.left : from < f.right) && shape.At(from, r) > halfTop) from += side;
    const std::int32_t to = side < 0 ? f.left : f.right;
    // The scan runs from `from` to the bound, but not where the curvature's filter windows
    // would be cut by the region's ends. It reads every value three times (at i and a lag
    // either side), so the values are read once, into `values`.
    const std::int32_t first = side < 0 ? std::max(to, r.begin + 4 * lag) : from;
    const std::int32_t last = side < 0 ? from : std::min(to, r.end - 1 - 4 * lag);
    std::int32_t best = -1;
    double bestValue = 0.0;
    if (first <= last && from - 4 * lag >= r.begin && from + 4 * lag < r.end) {
      values.clear();
      for (std::int32_t j = first - lag; j <= last + lag; ++j) values.push_back(shape.At(j, r));
      const double* at = values.data() - (first - lag);  // at[j]: the value at point j
      for (std::int32_t i = from; side < 0 ? i >= first : i <= last; i += side) {
        const double c = 2.0 * at[i] - at[i - lag] - at[i + lag];
        if (c > bestValue) best = i, bestValue = c;
      }
    }
    if (best < 0 || best == from || best == to) continue;
    const double noise = model.NoiseAt(best);
    const double spread = shape.Spread(best, noise) * spreadFactor;
    const double height = bestValue / perHeight;
    // The flank itself must stand clear of the noise there, or the top is the noise's.
    if (bestValue < 3.0 * spread || height < options.snr * noise ||
        shape.At(best, r) < options.snr * noise) {
      continue;
    }
    Found s = f;
    s.top = s.strongest = best;
    s.strength = height;
    s.noise = noise;
    // The bound between them: the least curved point between the two tops (where the
    // curvature's reach stays inside the region; the host's top may lie near its end).
    std::int32_t cut = best;
    double least = INFINITY;
    const std::int32_t cutEnd = std::min(std::max(best, f.top), r.end - lag);
    for (std::int32_t i = std::max(std::min(best, f.top) + 1, r.begin + lag); i < cutEnd; ++i) {
      const double c = curvature(i);
      if (c < least) cut = i, least = c;
    }
    Found& host = found.front();
    if (side < 0) {
      s.left = f.left, s.right = cut;
      host.left = std::max(host.left, cut);
    } else {
      s.left = cut, s.right = f.right;
      host.right = std::min(host.right, cut);
    }
    found.push_back(s);
  }
  std::sort(found.begin(), found.end(),
            [](const Found& a, const Found& b) { return a.top < b.top; });
}

// The sum of y[lo..hi], in four running sums: one would wait on each addition.
double SumOf(std::span<const double> y, std::int32_t lo, std::int32_t hi) {
  double sums[4] = {0.0, 0.0, 0.0, 0.0};
  std::int32_t i = lo;
  for (; i + 3 <= hi; i += 4) {
    for (std::int32_t k = 0; k < 4; ++k) sums[k] += y[i + k];
  }
  for (; i <= hi; ++i) sums[0] += y[i];
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

// The matched filter's top near a peak, placed between points by a Gaussian through its
// three highest values.
double FilterTop(std::span<const double> x, const SignalModel& model, MatchedFilter& mf,
                 const Found& f) {
  const Region& r = model.regions[f.region];
  const std::int32_t t = f.strongest;
  if (t > r.begin && t + 1 < r.end) {
    const double a = mf.At(t - 1, r), b = mf.At(t, r), c = mf.At(t + 1, r);
    if (a > 0.0 && b > 0.0 && c > 0.0) {
      const double la = std::log(a), lb = std::log(b), lc = std::log(c);
      const double den = la - 2.0 * lb + lc;
      if (den < 0.0) return XAt(x, t, std::clamp(0.5 * (la - lc) / den, -0.5, 0.5));
    }
  }
  return x[t];
}

// Apex, bounds, baseline, centroid, height, FWHM, S/N and area of one peak. Height and FWHM
// come from a log-parabola fit for strong peaks, from the matched filter and the half-height
// crossings otherwise. `scratch` is the fit's.
Peak Measure(std::span<const double> x, std::span<const double> y, const FilterInput& input,
             const SignalModel& model, MatchedFilter& mf, const Found& f, SignalKind kind,
             std::vector<double>& scratch) {
  Peak p;
  // The raw top near the filter's top: the highest point within a third of a width.
  const auto near = static_cast<std::int32_t>(std::ceil(model.PointsPerFwhm(f.top) / 3.0));
  std::int32_t top = f.top;
  double highest = y[top];  // y[top], kept in a register rather than loaded at every step
  for (std::int32_t i = std::max(f.left, f.top - near); i <= std::min(f.right, f.top + near); ++i) {
    if (y[i] > highest) top = i, highest = y[i];
  }
  p.apex_index = top;
  p.apex_x = x[top];
  p.apex_y = y[top];
  p.left_index = f.left;
  p.right_index = f.right;
  p.left_x = x[f.left];
  p.right_x = x[f.right];
  p.baseline = model.BaselineAt(top);
  p.noise = f.noise;
  const std::optional<LogParabola> fit =
      f.strength >= 20.0 * f.noise
          ? FitLogParabola(x, input, top, f.left, f.right, f.noise, scratch)
          : std::nullopt;
  // The position. A spectrum's peaks are symmetric, and the matched filter's top weighs
  // every point of one as a least-squares fit of the model's shape would: at S/N 10-100 it
  // halves the 90th percentile error of the fit, which sees only the points above 40 %. A
  // chromatogram's peak is read where it culminates (its retention time), and its peaks
  // tail: the fit's vertex stays nearer the top (on peaks whose tail's time constant is
  // their Gaussian's sigma, it leans 0.025 FWHM towards the tail, the filter 0.047). Weak
  // peaks take the filter's top in both.
  p.centroid_x = fit && kind == SignalKind::kChromatogram ? fit->top : FilterTop(x, model, mf, f);
  if (fit) {
    p.height = fit->height;
    p.fwhm = fit->fwhm;
  } else {
    p.height = f.strength;
    const double measured = HalfHeightWidth(x, input, top, f.left, f.right, p.height);
    p.fwhm = std::isnan(measured) ? model.FwhmAt(p.centroid_x) : measured;
  }
  p.snr = p.height / p.noise;
  // Missing points hold 0 and add nothing to the sum of y, nor their baseline to the other.
  double area = SumOf(y, f.left, f.right) - model.BaselineSum(f.left, f.right);
  if (input.MissingIn(f.left, f.right + 1)) {
    for (std::int32_t i = f.left; i <= f.right; ++i) {
      if (model.missing[i]) area += model.BaselineAt(i);
    }
  }
  p.area = std::max(0.0, area);
  p.marks = kQXPeakNormal;
  return p;
}

// What the search learnt about the trace: median noise, the width at the middle x.
DetectReport Report(std::span<const double> x, const SignalModel& model, std::int32_t segments) {
  const auto n = static_cast<std::int32_t>(x.size());
  std::vector<double> noise;
  for (std::int32_t i = 0; i < n; i += std::max<std::int32_t>(1, model.block()))
    noise.push_back(model.NoiseAt(i));
  std::nth_element(noise.begin(), noise.begin() + static_cast<std::ptrdiff_t>(noise.size() / 2),
                   noise.end());
  DetectReport report;
  report.noise = noise[noise.size() / 2];
  const double midX = x[static_cast<std::size_t>(n / 2)];
  report.fwhm_at_median_x = model.FwhmAt(midX);
  report.points_per_fwhm = model.PointsPerFwhm(n / 2, midX);
  report.width_law = model.law;
  report.segments = segments;
  return report;
}

}  // namespace

PeakList DetectAutomatic(std::span<const double> x, std::span<const double> y,
                         const DetectOptions& options) {
  PeakList result = CheckOptions(options);
  // The model checks the trace on its first pass over it; the ways out before it, here.
  if (!result.ok() || options.centroided) {
    PeakList checked = ValidateTrace(x, y);
    if (!checked.ok()) return checked;
  }
  if (!result.ok() || x.empty()) return result;
  if (options.centroided) {
    DetectCentroided(x, y, options, result);
    return result;
  }
  std::optional<SignalModel> estimated = EstimateSignalModel(x, y, options);
  if (!estimated) return ValidateTrace(x, y);
  SignalModel& model = *estimated;
  std::vector<Region> shortRegions;
  const auto segments = static_cast<std::int32_t>(PlanPieces(x, model, shortRegions).size());
  std::vector<std::int32_t> seeds = ScanForSeeds(y, model);

  const FilterInput input(y, model);
  // The matched filter is read at a few points around each top, the shape filter all along
  // the flanks. Both keep their values over the stretch between the climbs and the walk
  // that settles the hills behind them: twice the climbs' reach.
  MatchedFilter mf(input, 1.0, kShortRun, 2.0 * kReach);
  const std::vector<std::int32_t> promising =
      RefineAndScreen(x, y, options, std::move(seeds), model, input, mf);
  MatchedFilter shape(input, 0.5, kRun, 2.0 * kReach);
  // One walk along x merges the hills, splits their bounds, adds shoulders and measures, so
  // each stretch of the filters and the trace is read again while it is still in cache. A
  // peak is settled once its right neighbour (the next that does not merge into it) is known.
  std::optional<Found> settling, last, measured;  // measured: the part of the last peak
  std::vector<Found> parts;
  std::vector<double> scratch;
  auto settle = [&](const Found& f) {
    AddShoulders(f, model, options, shape, parts, scratch);
    for (Found part : parts) {
      Peak peak = Measure(x, y, input, model, mf, part, options.kind, scratch);
      // Points that share one x are one place: a second top in a run of equal x joins the
      // peak already there (the stronger top kept, over both bounds).
      if (measured && peak.apex_x == result.peaks.back().apex_x) {
        const std::int32_t left = std::min(measured->left, part.left);
        const std::int32_t right = std::max(measured->right, part.right);
        if (measured->strength > part.strength) part = *measured;
        part.left = left;
        part.right = right;
        result.peaks.pop_back();
        peak = Measure(x, y, input, model, mf, part, options.kind, scratch);
      }
      result.peaks.push_back(peak);
      measured = part;
    }
  };
  ClimbHills(promising, model, options, mf, shape, [&](const Found& f) {
    // The search has read y around the hill, not x, which the measurement reads between the
    // bounds (the fit around the top, the half-height crossings, the bounds): two peaks later.
    for (std::int32_t i = f.left; i < f.right; i += 8) __builtin_prefetch(&x[i]);
    __builtin_prefetch(&x[f.right]);
    if (last && MergeInto(*last, f, model, shape)) return;
    if (settling) {
      SplitBounds(*settling, *last, model, shape);
      settle(*settling);
    }
    settling = last;
    last = f;
  });
  if (settling) {
    SplitBounds(*settling, *last, model, shape);
    settle(*settling);
  }
  if (last) settle(*last);
  if (options.kind == SignalKind::kSpectrum && options.max_charge > 0) {
    AssignCharges(result.peaks, [&](double c) { return 0.25 * model.FwhmAt(c) + 2e-6 * c; },
                  options.max_charge);
  }
  FinishPeaks(x, y, options, result.peaks);
  result.report = Report(x, model, segments);
  return result;
}

}  // namespace qxpkutil
