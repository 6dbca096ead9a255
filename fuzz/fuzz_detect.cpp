// Peak detection on decoded signals with decoded settings, through every entry point: the
// moving-mean scan (both array families), the divisor search, the centroided-input
// builder, the segment driver, and DetectPeaks with classic segments and in its automatic
// mode (both families). The first byte picks the path. Whatever the settings, every peak's
// bounds hold its apex inside the data, its area is finite, and where the entry point
// promises it the peaks come in apex-x order with no two at the same x, so that removing
// duplicates changes nothing.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "fuzz_common.h"
#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/settings/QXPeakDetectSetting.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace {

using qxpkutil::QXPeakDetectSetting;
using qxpkutil::QXPeakTable;
using qxpkutil::QXPeakTableElement;
using qxpkutil::QXPeakTableList;
using qxpkutil::fuzz::Bytes;
using qxpkutil::fuzz::Signal;

// The values one segment needs, decoded over ranges that include the unusual ones
// (zero and even filter widths, negative thresholds, increments above 1).
struct Settings {
  double relThreshold, absThreshold, minPeakArea, pctPeakArea, noiseThreshold, pctCentroid;
  double relMin, relMax, divisor, rangeX1, rangeX2;
  int filterType, filterWidth, filterInc, minPeakWidth, maxPeakWidth, autoPeakWidth;
  int integratedMethod, maxCharge, maxIsotope;
  bool massProcessing, gaussFit, finish;
};

Settings DecodeSettings(Bytes& in, const Signal& s) {
  Settings k{};
  k.relThreshold = in.Double(-5.0, 100.0);
  k.absThreshold = in.Double(-10.0, 2000.0);
  k.minPeakArea = in.Double(0.0, 1e4);
  k.pctPeakArea = in.Double(0.0, 100.0);
  k.noiseThreshold = in.Double(0.0, 500.0);
  k.pctCentroid = in.Double(-10.0, 110.0);
  k.relMin = in.Double(0.0, 1.0);
  k.relMax = in.Double(0.0, 1.5);
  k.divisor = in.Double(0.0, 50.0);
  const double lo = s.x.empty() ? 0.0 : s.x.front();
  const double hi = s.x.empty() ? 1.0 : s.x.back();
  k.rangeX1 = in.Bool() ? 0.0 : in.Double(lo - 10.0, hi + 10.0);
  k.rangeX2 = in.Bool() ? 0.0 : in.Double(lo - 10.0, hi + 10.0);
  k.filterType = in.Int(-1, 4);
  k.filterWidth = in.Int(-1, 41);
  k.filterInc = in.Int(-1, 5);
  k.minPeakWidth = in.Int(-1, 20);
  k.maxPeakWidth = in.Int(-1, 400);
  k.autoPeakWidth = in.Int(0, 1);
  k.integratedMethod = in.Int(-1, 3);
  k.maxCharge = in.Int(-1, 8);
  k.maxIsotope = in.Int(-1, 50);
  k.massProcessing = in.Bool();
  k.gaussFit = (in.Byte() & 7) == 0;  // fits are slow; one input in eight
  k.finish = in.Bool();
  return k;
}

// Bounds hold the apex and lie in the data; areas are finite. x values are the table's
// own, compared through the indices the peak names.
template <class X>
void CheckPeak(const QXPeakTableElement& p, const X* x, std::size_t n) {
  QXFUZZ_CHECK(p.m_nLeftIndex <= p.m_nApexIndex);
  QXFUZZ_CHECK(p.m_nApexIndex <= p.m_nRightIndex);
  QXFUZZ_CHECK(p.m_nRightIndex < n);
  QXFUZZ_CHECK(p.m_dLeftX <= p.m_dApexX && p.m_dApexX <= p.m_dRightX);
  QXFUZZ_CHECK(static_cast<double>(x[p.m_nApexIndex]) == p.m_dApexX);
  QXFUZZ_CHECK(std::isfinite(p.m_dArea));
}

template <class X>
void CheckTable(const QXPeakTable& t, const X* x, std::size_t n) {
  for (decltype(t.GetNumPeaks()) i = 0; i < t.GetNumPeaks(); ++i) CheckPeak(*t.GetPeak(i), x, n);
}

// Apex-x order without repeats, so that duplicate removal has nothing to remove.
void CheckOrdered(QXPeakTable& t) {
  const auto n = t.GetNumPeaks();
  for (decltype(t.GetNumPeaks()) i = 1; i < n; ++i) {
    QXFUZZ_CHECK(t.GetPeak(i - 1)->m_dApexX < t.GetPeak(i)->m_dApexX);
  }
  t.RemoveDuplicatedPeaks();
  QXFUZZ_CHECK(t.GetNumPeaks() == n);
}

void MovingMean(const Signal& s, const Settings& k, bool counts) {
  QXPeakTable t;
  const auto n = static_cast<std::uint32_t>(s.x.size());
  if (counts) {
    t.FindPeaks(s.xf.data(), s.yc.data(), n, 1.0, k.absThreshold, k.filterType, k.filterWidth,
                k.filterInc, k.minPeakArea, 0, k.maxPeakWidth, k.noiseThreshold, k.pctCentroid,
                k.integratedMethod);
    CheckTable(t, s.xf.data(), s.x.size());
  } else {
    t.FindPeaks(s.x.data(), s.y.data(), n, 1.0, k.absThreshold, k.filterType, k.filterWidth,
                k.filterInc, k.minPeakArea, 0, k.maxPeakWidth, k.noiseThreshold, k.pctCentroid,
                k.integratedMethod, k.massProcessing, k.maxCharge, k.maxIsotope, k.relMin,
                k.relMax, k.finish, k.rangeX1, k.rangeX2, k.gaussFit);
    CheckTable(t, s.x.data(), s.x.size());
  }
}

void Divisor(const Signal& s, const Settings& k) {
  QXPeakTable t;
  const auto n = static_cast<std::uint32_t>(s.x.size());
  const auto found = t.FindPeaks(s.x.data(), s.y.data(), n, k.absThreshold, k.divisor,
                                 k.pctCentroid, k.integratedMethod, k.massProcessing, k.maxCharge,
                                 k.maxIsotope, k.relMin, k.relMax, k.finish, k.rangeX1, k.rangeX2,
                                 k.gaussFit);
  if (found < 0) {
    QXFUZZ_CHECK(t.GetNumPeaks() == 0);
    return;
  }
  CheckTable(t, s.x.data(), s.x.size());
  for (decltype(t.GetNumPeaks()) i = 1; i < t.GetNumPeaks(); ++i) {
    QXFUZZ_CHECK(t.GetPeak(i - 1)->m_dApexX <= t.GetPeak(i)->m_dApexX);
  }
}

void Centroided(const Signal& s, const Settings& k) {
  QXPeakTable t;
  const auto n = static_cast<std::uint32_t>(s.x.size());
  t.BuildCentroidPeakTable(s.x.data(), s.y.data(), n, k.absThreshold, k.maxCharge, k.maxIsotope,
                           k.relMin, k.relMax, k.finish, k.rangeX1, k.rangeX2);
  CheckTable(t, s.x.data(), s.x.size());
  for (decltype(t.GetNumPeaks()) i = 0; i < t.GetNumPeaks(); ++i) {
    const QXPeakTableElement& p = *t.GetPeak(i);
    QXFUZZ_CHECK(p.m_nLeftIndex == p.m_nApexIndex && p.m_nApexIndex == p.m_nRightIndex);
    QXFUZZ_CHECK(p.m_dApexY >= k.absThreshold);
  }
}

// Up to four segments, each with settings of its own; the switches from the first.
QXPeakTableList DecodeList(Bytes& in, const Signal& s, Settings& first) {
  QXPeakTableList list;
  const int segments = 1 + in.Int(0, 3);
  for (int i = 0; i < segments; ++i) {
    const Settings k = DecodeSettings(in, s);
    if (i == 0) first = k;
    list.AddDetectionSetting(-1);
    QXPeakDetectSetting seg(k.rangeX1, k.rangeX2, k.relThreshold, k.absThreshold, k.filterType,
                            k.filterWidth, k.filterInc, k.minPeakArea, k.pctPeakArea,
                            k.minPeakWidth, k.maxPeakWidth, k.autoPeakWidth, k.noiseThreshold,
                            k.integratedMethod, k.pctCentroid, k.maxCharge, k.maxIsotope, k.relMin,
                            k.relMax);
    list.SetDetectionSetting(i, seg);
    if (in.Bool()) {  // the divisor search for this segment
      list.SetDetectionSetting(i, k.rangeX1, k.rangeX2, k.relThreshold, k.pctCentroid, k.divisor,
                               k.integratedMethod, k.maxCharge, k.maxIsotope, k.relMin, k.relMax);
    }
  }
  list.SetMassProcessing(first.massProcessing);
  list.SetCentroidSpecData(in.Bool());
  list.SetGaussFit(first.gaussFit);
  list.SetAutoSNCalcOn(in.Bool());
  list.SetResolution(in.Double(1.0, 1e5));
  list.AddPeakTableToList();
  return list;
}

void Driver(Bytes& in, const Signal& s) {
  Settings k{};
  QXPeakTableList list = DecodeList(in, s, k);
  double yMax = 0.0;
  for (double v : s.y) yMax = std::max(yMax, v);
  const auto n = static_cast<std::uint32_t>(s.x.size());
  const std::int32_t found = list.FindPeaks(s.x.data(), s.y.data(), n, yMax, 1.0, 0);
  if (found == -2) return;
  QXPeakTable& t = *list.GetPeakTableFromList(0);
  QXFUZZ_CHECK(found == t.GetNumPeaks());
  CheckTable(t, s.x.data(), s.x.size());
  CheckOrdered(t);
}

template <class X, class Y>
void CheckPeakList(const qxpkutil::PeakList& result, std::span<const X> x, std::span<const Y>) {
  QXFUZZ_CHECK(result.ok());
  for (std::size_t i = 0; i < result.peaks.size(); ++i) {
    const qxpkutil::Peak& p = result.peaks[i];
    QXFUZZ_CHECK(0 <= p.left_index && p.left_index <= p.apex_index &&
                 p.apex_index <= p.right_index);
    QXFUZZ_CHECK(static_cast<std::size_t>(p.right_index) < x.size());
    QXFUZZ_CHECK(p.left_x <= p.apex_x && p.apex_x <= p.right_x);
    QXFUZZ_CHECK(static_cast<double>(x[static_cast<std::size_t>(p.apex_index)]) == p.apex_x);
    QXFUZZ_CHECK(std::isfinite(p.area));
    if (i > 0) QXFUZZ_CHECK(result.peaks[i - 1].apex_x < p.apex_x);
  }
}

void Modern(Bytes& in, const Signal& s, bool classic) {
  qxpkutil::DetectOptions options;
  options.kind = in.Bool() ? qxpkutil::SignalKind::kChromatogram : qxpkutil::SignalKind::kSpectrum;
  options.snr = in.Double(0.0, 20.0);
  if (in.Bool()) {  // a usual width, or any width from 1e-300 to 1e300
    options.fwhm = in.Bool() ? in.Double(0.0, 5.0) : std::pow(10.0, in.Double(-300.0, 300.0));
  }
  options.max_charge = in.Int(0, 8);
  options.gauss_refine = (in.Byte() & 7) == 0;
  options.width_law = static_cast<qxpkutil::WidthLaw>(in.Int(0, 4));
  if (classic) {
    Settings k{};
    options.classic = DecodeList(in, s, k);
  }
  if (!std::isfinite(options.snr) || options.snr <= 0.0 || !std::isfinite(options.fwhm) ||
      options.fwhm < 0.0) {
    (void)qxpkutil::DetectPeaks(std::span<const double>(s.x), std::span<const double>(s.y),
                                options);  // refused or not, it must not crash
    return;
  }
  if (in.Bool()) {
    CheckPeakList(qxpkutil::DetectPeaks(std::span<const float>(s.xf),
                                        std::span<const std::uint32_t>(s.yc), options),
                  std::span<const float>(s.xf), std::span<const std::uint32_t>(s.yc));
  } else {
    CheckPeakList(qxpkutil::DetectPeaks(std::span<const double>(s.x), std::span<const double>(s.y),
                                        options),
                  std::span<const double>(s.x), std::span<const double>(s.y));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  const int path = in.Byte() % 7;
  const Signal s = qxpkutil::fuzz::DecodeSignal(in);
  switch (path) {
    case 0:
    case 1: {
      const Settings k = DecodeSettings(in, s);
      MovingMean(s, k, path == 1);
      break;
    }
    case 2:
      Divisor(s, DecodeSettings(in, s));
      break;
    case 3:
      Centroided(s, DecodeSettings(in, s));
      break;
    case 4:
      Driver(in, s);
      break;
    default:
      Modern(in, s, path == 5);
      break;
  }
  return 0;
}
