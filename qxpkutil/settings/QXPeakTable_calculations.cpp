// The calculators' work on a peak table and on one peak. QXPeakTable and QXPeakTableElement
// declare these methods, but they take the calculators of settings/, so they are defined
// here: settings/ calls down into peaks/, never the other way round.
#include <cmath>
#include <cstdint>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/settings/PeakCalc.h"

namespace qxpkutil {

namespace {

// 0.01 as a float, widened, is the level factor of the width measurement. Resolutions are
// reported as whole numbers, and exactly 0.01 moves some of them across a whole number, so
// the same peak would report a different resolution than in results users already hold.
constexpr double kPercentToFraction = static_cast<double>(0.01f);
// The baseline routine's band: points within two deviations of the mean make the level.
constexpr std::int32_t kBaselineSigma = 2;

// For each target in order: clears its result (-1) and found x, looks for the most
// intense peak within target +- delta by apex x, and when there is one hands it to
// `measure` and records its apex x. True when some target found a peak.
template <class Measure>
bool ForEachTargetPeak(QXPeakTable& table, const PeakCalcBaseList& calc, Measure measure) {
  bool found = false;
  for (std::int32_t i = 0; i < calc.GetNumSettings(); ++i) {
    PeakCalcBase& setting = *calc.GetSetting(i);
    setting.SetResult(-1.0);
    setting.SetFoundX(0.0);
    double target = 0.0;
    double delta = 0.0;
    setting.GetPeakCalcSetting(target, delta);
    const QXPeakTableElement* peak =
        table.GetPeakInRange(target - delta, target + delta, kQXFilterAll, nullptr, 0);
    if (peak == nullptr) continue;
    found = true;
    measure(setting, *peak);
    setting.SetFoundX(peak->m_dApexX);
  }
  return found;
}

// Where the line through (xa, ya) and (xb, yb) reaches `level`; `fallback` for a vertical
// or flat segment. The intercept form rounds differently from the two-point form; the
// whole-number resolution built on this crossing must match earlier results, so it stays.
double Crossing(double xa, double ya, double xb, double yb, double level, double fallback) {
  if (xa == xb) return fallback;
  const double slope = (ya - yb) / (xa - xb);
  if (slope == 0.0) return fallback;
  const double intercept = ya - xa * slope;
  return (level - intercept) / slope;
}

}  // namespace

double QXPeakTableElement::DoSigToNoiseOnPeak(double baseline, double noise) const {
  const double signal = m_dApexY - baseline;
  return noise == 0.0 ? signal : signal / noise;
}

void QXPeakTableElement::DoResCalcOnPeak(const double* x, const double* y, double percent,
                                         std::int32_t& result) const {
  result = -1;
  const std::uint32_t left = m_nLeftIndex;
  const std::uint32_t right = m_nRightIndex;
  const std::uint32_t apex = m_nApexIndex;
  if (x == nullptr || y == nullptr || apex < left || apex > right) return;
  const double level = m_dApexY - (1.0 - percent * kPercentToFraction) * m_dApexY;

  std::uint32_t l = apex;
  while (y[l] > level) {
    if (l == left) return;  // the next step would leave the peak
    --l;
  }
  std::uint32_t r = apex;
  while (y[r] > level) {
    if (r == right) return;
    ++r;
  }
  // A peak that never rose above the level leaves l = r = apex; its crossing segments must
  // still lie inside the bounds.
  if (l == right || r == left) return;

  const double leftX = Crossing(x[l], y[l], x[l + 1], y[l + 1], level, x[l]);
  const double rightX = Crossing(x[r - 1], y[r - 1], x[r], y[r], level, x[r]);
  const double resolution = m_dApexX / (rightX - leftX);
  // Truncation is defined only for quotients that fit.
  if (!(resolution > -2147483649.0 && resolution < 2147483648.0)) return;
  result = static_cast<std::int32_t>(resolution);
}

int QXPeakTable::DoSignalToNoiseOnList(const double* x, const double* y, std::uint32_t n,
                                       SNPeakCalc* calc) {
  if (calc == nullptr) return 0;
  int measured = 1;
  if (calc->GetBaselineX1() == calc->GetBaselineX2()) {
    // No baseline range: the ratio is the raw apex intensity.
    calc->SetBaseline(0.0);
    calc->SetNoise(1.0);
  } else {
    double baseline = 0.0;
    double noise = 0.0;
    measured = QXDataExpUtils::ComputeBaseline(
        x, y, n, calc->GetBaselineX1(), calc->GetBaselineX2(), kBaselineSigma, baseline, noise);
    if (measured != 0) {
      calc->SetBaseline(baseline);
      calc->SetNoise(noise);
    }
  }
  if (GetNumPeaks() == 0 || measured == 0) return 0;
  const double baseline = calc->GetBaseline();
  const double noise = calc->GetNoise();
  ForEachTargetPeak(*this, *calc, [&](PeakCalcBase& setting, const QXPeakTableElement& peak) {
    setting.SetResult(peak.DoSigToNoiseOnPeak(baseline, noise));
  });
  return measured;
}

int QXPeakTable::DoResCalcOnList(const double* x, const double* y, ResCalcPeakCalc* calc) {
  if (calc == nullptr || GetNumPeaks() == 0 || calc->GetNumSettings() == 0) return 0;
  const double percent = calc->GetPercent();
  const double minIntensity = calc->GetMinIntensity();
  const bool found =
      ForEachTargetPeak(*this, *calc, [&](PeakCalcBase& setting, const QXPeakTableElement& peak) {
        if (!(peak.m_dApexY >= minIntensity)) return;  // a NaN apex is not measured
        std::int32_t resolution = -1;
        peak.DoResCalcOnPeak(x, y, percent, resolution);
        setting.SetResult(resolution);
      });
  return found ? 1 : 0;
}

}  // namespace qxpkutil
