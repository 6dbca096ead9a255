// The two-pass Gaussian refinement of a peak table's centroids. QXNonLinFit declares it,
// as the fitting class's interface has it, but it works on the table, so it is defined here
// where peaks/ calls down into fitting/ and not the other way round.
#include "qxpkutil/fitting/QXNonLinFit.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"

namespace qxpkutil {
namespace {

constexpr double kMax = std::numeric_limits<double>::max();
constexpr double kMinWidth = std::numeric_limits<double>::min();  // smallest normalised
constexpr double kTolerance = 0.001;
constexpr std::uint32_t kMaxIterations = 30;
// Neighbours closer than this many first-pass widths are fitted together.
constexpr double kMergeWidths = 3.0;

// The peak's baseline level: the lower bound y, the left one when both are equal.
double BaseOf(const QXPeakTableElement& p) {
  return p.m_dRightY < p.m_dLeftY ? p.m_dRightY : p.m_dLeftY;
}

// True when the peak's bound indices lie within the n data points.
bool InData(const QXPeakTableElement* p, std::uint32_t n) {
  return p && p->m_nLeftIndex <= p->m_nRightIndex && p->m_nRightIndex < n;
}

// Appends the amplitude (against `base`) and the bounded centre of one peak.
void AddPeakParams(std::vector<QXNonLinFitParam>& params, const QXPeakTableElement& p,
                   double base) {
  params.emplace_back(p.m_dApexY - base, 0.0, kMax);
  params.emplace_back(p.m_dCentroidX, p.m_dLeftX, p.m_dRightX);
}

// Appends the common width, the baseline and the slope.
void AddShapeParams(std::vector<QXNonLinFitParam>& params, double width, double base) {
  params.emplace_back(width, kMinWidth, kMax);
  params.emplace_back(base, -kMax, kMax);
  params.emplace_back(0.0, -kMax, kMax);
}

}  // namespace

void QXNonLinFit::GaussFitPeakList(QXPeakTable* table, const double* x, const double* y,
                                   int n) {
  if (!table || !x || !y || n <= 0) return;
  table->SortPeakTable(0);
  const std::int32_t count = table->GetNumPeaks();
  const auto points = static_cast<std::uint32_t>(n);

  std::vector<double> width;
  std::vector<double> fx;
  std::vector<double> fy;
  std::vector<QXNonLinFitParam> params;
  try {
    std::size_t widest = 0;
    for (std::int32_t i = 0; i < count; ++i) {
      const QXPeakTableElement* p = table->GetPeak(i);
      if (InData(p, points)) {
        const std::size_t span = p->m_nRightIndex - p->m_nLeftIndex + std::size_t{1};
        if (span > widest) widest = span;
      }
    }
    width.assign(static_cast<std::size_t>(count), 0.0);
    fx.reserve(3 * widest);
    fy.reserve(3 * widest);
    params.reserve(9);
  } catch (const std::exception&) {
    return;
  }

  // First pass: each peak alone over its bound indices, both ends included.
  for (std::int32_t i = 0; i < count; ++i) {
    QXPeakTableElement* p = table->GetPeak(i);
    if (!InData(p, points)) continue;
    const double base = BaseOf(*p);
    params.clear();
    AddPeakParams(params, *p, base);
    AddShapeParams(params, 0.1, base);
    const std::uint32_t left = p->m_nLeftIndex;
    if (DeconvoluteSimilarGaussPeaks(x + left, y + left, p->m_nRightIndex - left + 1, params,
                                     kTolerance, kMaxIterations) == 0)
      continue;
    p->m_dCentroidX = params[1].m_dFittedValue;
    width[static_cast<std::size_t>(i)] = params[2].m_dFittedValue;
  }

  // Second pass: a peak close to a neighbour is fitted again together with it, with the
  // centroids as updated so far. Only the peak's own centre is written; each neighbour is
  // refined in its own turn.
  for (std::int32_t i = 0; i < count; ++i) {
    QXPeakTableElement* p = table->GetPeak(i);
    const double wi = width[static_cast<std::size_t>(i)];
    if (!InData(p, points) || !(wi > 0.0)) continue;
    const QXPeakTableElement* prev = i > 0 ? table->GetPeak(i - 1) : nullptr;
    const QXPeakTableElement* next = i + 1 < count ? table->GetPeak(i + 1) : nullptr;
    // Both tests divide by this peak's own first-pass width.
    const bool mergeLeft =
        InData(prev, points) && (p->m_dCentroidX - prev->m_dCentroidX) / wi < kMergeWidths;
    const bool mergeRight =
        InData(next, points) && (next->m_dCentroidX - p->m_dCentroidX) / wi < kMergeWidths;
    if (!mergeLeft && !mergeRight) continue;

    const double base = BaseOf(*p);
    params.clear();
    fx.clear();
    fy.clear();
    // Unlike the single-peak pass, the right bound point of each peak is left out.
    const auto add = [&](const QXPeakTableElement& q) {
      AddPeakParams(params, q, base);
      fx.insert(fx.end(), x + q.m_nLeftIndex, x + q.m_nRightIndex);
      fy.insert(fy.end(), y + q.m_nLeftIndex, y + q.m_nRightIndex);
    };
    if (mergeLeft) add(*prev);
    add(*p);
    if (mergeRight) add(*next);
    AddShapeParams(params, wi, base);
    if (DeconvoluteSimilarGaussPeaks(fx.data(), fy.data(), static_cast<std::uint32_t>(fx.size()),
                                     params, kTolerance, kMaxIterations) == 0)
      continue;
    p->m_dCentroidX = params[mergeLeft ? 3 : 1].m_dFittedValue;
  }
}

}  // namespace qxpkutil
