#include "qxpkutil/settings/QXPeakTableList.h"

#include <algorithm>
#include <cmath>
#include <tuple>
#include <utility>

#include "qxpkutil/platform/QXArchive.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil {

namespace {

// Widths far beyond any real filter saturate here, so that converting a width computed
// from hostile times never overflows an int, and width arithmetic stays in range.
constexpr double kWidthSaturation = 1 << 28;
// The widest smoothing filter, in points.
constexpr int kMaxFilterWidth = 2001;
// The filter, before it is made odd, for peaks broader than any filter.
constexpr double kBroadPeakFilter = 2000.0;
// MaxPeakWidth of the segment that closes a walk at the top of the range.
constexpr int kClosingMaxPeakWidth = 10000;

// A width in points, truncated and made odd as (w / 2) * 2 + 1.
int OddWidth(double points) {
  if (!(points < kWidthSaturation)) points = kWidthSaturation;  // NaN saturates too
  if (points < -kWidthSaturation) points = -kWidthSaturation;
  const int w = static_cast<int>(points);
  return (w / 2) * 2 + 1;
}

// The width step of a walk from `wStart` to `wEnd`: a sixteenth of the way, even, >= 2.
int WidthStep(int wStart, int wEnd) {
  const int step = (wEnd - wStart) / 16;
  return std::max((step / 2) * 2, 2);
}

// Where a walk of widths stands: segments added so far, the start of the next segment and
// the current width.
struct WalkState {
  int k;
  double low;
  int w;
};

// Walks the widths w, w + step, ... while w <= wLimit. Each width ends a segment where
// peaks are w points wide: at `widthToX(w)` on the walk's own axis, `xToAxis` of that on the
// segments' axis. A segment is added only past `floor`; the next one starts `overlapPct`
// percent of this one's span below its end. The walk closes with the segment
// [low, axisTop] once the end reaches `xTop`, and returns whether it did.
template <class WidthToX, class XToAxis, class AddSegment>
bool WalkWidths(WalkState& s, int step, int wLimit, double xTop, double axisTop, double floor,
                double overlapPct, WidthToX widthToX, XToAxis xToAxis, AddSegment add) {
  do {
    const double x = widthToX(s.w);
    if (x >= xTop) {
      add(s.k++, s.low, axisTop, s.w, true);
      return true;
    }
    const double m = xToAxis(x);
    if (m > floor) {
      add(s.k++, s.low, m, s.w, false);
      s.low = m - (m - s.low) * overlapPct * 0.01;
    }
    s.w += step;
  } while (s.w <= wLimit);
  return false;
}

// Stores `value` and marks the settings changed, unless it equals the stored value.
template <class T>
void SetIfChanged(T& field, T value, int& changed) {
  if (field == value) return;
  field = value;
  changed = 1;
}

}  // namespace

// The list is not archived as an object of its own; its tables are.
const QXRuntimeClass QXPeakTableList::classQXPeakTableList{"QXPeakTableList", kQXNoSchema,
                                                           &QXObject::classQXObject};

QXPeakTableList::QXPeakTableList() {
  m_DefaultSetting.SetAbsThreshold(0.0);
  m_DefaultSetting.SetMinPeakArea(0.0);
  m_DefaultSetting.SetNoiseThreshold(0.0);
  m_DefaultSetting.m_bAutoPeakWidth = 1;
  // Restored settings fall back on 1 %, unlike a fresh setting's 50 %: intended.
  m_DefaultSetting.SetPctCentroid(1.0);
}

QXPeakTableList::QXPeakTableList(const QXPeakTableList& src) : QXPeakTableList() { *this = src; }

QXPeakTableList::~QXPeakTableList() = default;

QXPeakTableList& QXPeakTableList::operator=(const QXPeakTableList& src) {
  if (this == &src) return *this;
  DeleteAllPeakTables();
  DeleteAllDetectionSettings();
  m_bMassProcessing = src.m_bMassProcessing;
  m_bCentroidSpecData = src.m_bCentroidSpecData;
  m_bUseResolutionFlag = src.m_bUseResolutionFlag;
  m_bAutoSNCalc = src.m_bAutoSNCalc;
  m_bGaussFit = src.m_bGaussFit;
  m_dResolution = src.m_dResolution;
  m_bDefaultMassProcessing = src.m_bDefaultMassProcessing;
  m_bDefaultUseResolutionFlag = src.m_bDefaultUseResolutionFlag;
  m_bDefaultGaussFit = src.m_bDefaultGaussFit;
  m_bDefaultAutoSNCalc = src.m_bDefaultAutoSNCalc;
  m_dDefaultResolution = src.m_dDefaultResolution;
  m_DefaultSetting = src.m_DefaultSetting;
  m_arrPeakTables.reserve(src.m_arrPeakTables.size());
  for (const auto& table : src.m_arrPeakTables) {
    m_arrPeakTables.push_back(std::make_unique<QXPeakTable>(*table));
  }
  m_arrDetectSettings = src.m_arrDetectSettings;
  // Last, so that the copying above does not leave the flag set.
  m_bSettingsChanged = src.m_bSettingsChanged;
  return *this;
}

// ---- Segments ----

const QXPeakDetectSetting* QXPeakTableList::Segment(std::int32_t index) const {
  if (index < 0 || index >= GetNumDetectionSettings()) return nullptr;
  return &m_arrDetectSettings[static_cast<std::size_t>(index)];
}

QXPeakDetectSetting* QXPeakTableList::Segment(std::int32_t index) {
  return const_cast<QXPeakDetectSetting*>(std::as_const(*this).Segment(index));
}

void QXPeakTableList::AddDetectionSetting(std::int32_t index) {
  const std::int32_t count = GetNumDetectionSettings();
  const std::int64_t newCount = std::max<std::int64_t>(std::int64_t{index} + 1, count + 1);
  if (index < -1 || newCount > kMaxDetectionSettings) return;
  if (index != -1 && index < count) {
    m_arrDetectSettings.insert(m_arrDetectSettings.begin() + index, QXPeakDetectSetting());
  } else {
    m_arrDetectSettings.emplace_back();
  }
  m_bSettingsChanged = 1;
  if (index >= 1) {
    if (index >= GetNumDetectionSettings()) {
      m_arrDetectSettings.resize(static_cast<std::size_t>(index) + 1);
    }
    m_arrDetectSettings[static_cast<std::size_t>(index)] =
        m_arrDetectSettings[static_cast<std::size_t>(index) - 1];
  }
  // Under mass processing a segment added at 0 would be rewritten from segment 0 with
  // PctCentroid 50 and Divisor unset; segment 0 is the new default segment itself, which
  // already holds both, and for -1 that rewrite fails on the index. Nothing to do.
}

int QXPeakTableList::DeleteDetectionSetting(std::int32_t index) {
  if (m_arrDetectSettings.empty()) return 0;
  if (index == -1) index = GetNumDetectionSettings() - 1;
  m_bSettingsChanged = 1;
  if (Segment(index) == nullptr) return 0;
  m_arrDetectSettings.erase(m_arrDetectSettings.begin() + index);
  return 1;
}

void QXPeakTableList::DeleteAllDetectionSettings() { m_arrDetectSettings.clear(); }

int QXPeakTableList::GetDetectionSetting(std::int32_t index, QXPeakDetectSetting& setting) const {
  const QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  setting = *s;
  return 1;
}

int QXPeakTableList::SetDetectionSetting(std::int32_t index, const QXPeakDetectSetting& setting) {
  QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  *s = setting;
  return 1;
}

int QXPeakTableList::GetDetectionSetting(
    std::int32_t index, double& rangeX1, double& rangeX2, double& relThreshold,
    double& absThreshold, int& filterType, int& filterWidth, int& filterInc, double& minPeakArea,
    double& pctPeakArea, int& minPeakWidth, int& maxPeakWidth, int& autoPeakWidth,
    double& noiseThreshold, int& integratedMethod, double& pctCentroid, int& maxCharge,
    int& maxIsotope, double& relMasMinIntensity, double& relMassMaxIntensity) const {
  const QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  std::tie(rangeX1, rangeX2, relThreshold, absThreshold, filterType, filterWidth, filterInc,
           minPeakArea, pctPeakArea, minPeakWidth, maxPeakWidth, autoPeakWidth, noiseThreshold,
           integratedMethod, pctCentroid, maxCharge, maxIsotope, relMasMinIntensity,
           relMassMaxIntensity) = QXPeakDetectSetting::ValueFields(*s);
  return 1;
}

int QXPeakTableList::SetDetectionSetting(std::int32_t index, double rangeX1, double rangeX2,
                                         double relThreshold, double absThreshold, int filterType,
                                         int filterWidth, int filterInc, double minPeakArea,
                                         double pctPeakArea, int minPeakWidth, int maxPeakWidth,
                                         int autoPeakWidth, double noiseThreshold,
                                         int integratedMethod, double pctCentroid, int maxCharge,
                                         int maxIsotope, double relMasMinIntensity,
                                         double relMassMaxIntensity) {
  QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  const auto values = std::tie(
      rangeX1, rangeX2, relThreshold, absThreshold, filterType, filterWidth, filterInc, minPeakArea,
      pctPeakArea, minPeakWidth, maxPeakWidth, autoPeakWidth, noiseThreshold, integratedMethod,
      pctCentroid, maxCharge, maxIsotope, relMasMinIntensity, relMassMaxIntensity);
  auto fields = QXPeakDetectSetting::ValueFields(*s);
  if (fields != values) m_bSettingsChanged = 1;
  fields = values;
  s->m_dDivisor = kQXUnsetValue;
  return 1;
}

int QXPeakTableList::GetDetectionSetting(std::int32_t index, double& rangeX1, double& rangeX2,
                                         double& relThreshold, double& pctCentroid, double& divisor,
                                         int& integratedMethod, int& maxCharge, int& maxIsotope,
                                         double& relMasMinIntensity,
                                         double& relMassMaxIntensity) const {
  const QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  std::tie(rangeX1, rangeX2, relThreshold, pctCentroid, divisor, integratedMethod, maxCharge,
           maxIsotope, relMasMinIntensity, relMassMaxIntensity) =
      QXPeakDetectSetting::MassFields(*s);
  return 1;
}

int QXPeakTableList::SetDetectionSetting(std::int32_t index, double rangeX1, double rangeX2,
                                         double relThreshold, double pctCentroid, double divisor,
                                         int integratedMethod, int maxCharge, int maxIsotope,
                                         double relMasMinIntensity, double relMassMaxIntensity) {
  QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  const auto values =
      std::tie(rangeX1, rangeX2, relThreshold, pctCentroid, divisor, integratedMethod, maxCharge,
               maxIsotope, relMasMinIntensity, relMassMaxIntensity);
  auto fields = QXPeakDetectSetting::MassFields(*s);
  if (fields != values) m_bSettingsChanged = 1;
  fields = values;
  // Deliberate: a segment set through the mass-processing values has no filter and no
  // width limits.
  s->m_nFilterType = 0;
  s->m_nFilterWidth = 0;
  s->m_nFilterInc = 0;
  s->m_nMinPeakWidth = 0;
  s->m_nMaxPeakWidth = 0;
  s->m_dAbsThreshold = 0.0;
  return 1;
}

int QXPeakTableList::GetAllDetectionSettings(
    std::int32_t index, double& rangeX1, double& rangeX2, double& relThreshold,
    double& absThreshold, int& filterType, int& filterWidth, int& filterInc, double& minPeakArea,
    double& pctPeakArea, int& minPeakWidth, int& maxPeakWidth, int& autoPeakWidth,
    double& noiseThreshold, int& integratedMethod, double& pctCentroid, double& divisor,
    int& maxCharge, int& maxIsotope, double& relMasMinIntensity,
    double& relMassMaxIntensity) const {
  const QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  std::tie(rangeX1, rangeX2, relThreshold, absThreshold, filterType, filterWidth, filterInc,
           minPeakArea, pctPeakArea, minPeakWidth, maxPeakWidth, autoPeakWidth, noiseThreshold,
           integratedMethod, pctCentroid, divisor, maxCharge, maxIsotope, relMasMinIntensity,
           relMassMaxIntensity) = QXPeakDetectSetting::AllFields(*s);
  return 1;
}

int QXPeakTableList::GetDetectionRange(std::int32_t index, double& x1, double& x2) const {
  const QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  s->GetDetectionRange(x1, x2);
  return 1;
}

int QXPeakTableList::SetDetectionRange(std::int32_t index, double x1, double x2) {
  QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  if (s->GetRangeX1() != x1 || s->GetRangeX2() != x2) m_bSettingsChanged = 1;
  s->SetDetectionRange(x1, x2);
  return 1;
}

int QXPeakTableList::SetNoiseThreshold(double value, std::int32_t index) {
  if (index == -1) {
    for (QXPeakDetectSetting& s : m_arrDetectSettings) s.SetNoiseThreshold(value);
    return 1;
  }
  QXPeakDetectSetting* s = Segment(index);
  if (s == nullptr) return 0;
  s->SetNoiseThreshold(value);
  return 1;
}

void QXPeakTableList::AddOneSegment(int index, double x1, double x2, int width, double relThreshold,
                                    double absThreshold, double minPeakArea, double pctPeakArea,
                                    int maxPeakWidth, double noiseThreshold, int integratedMethod,
                                    double pctCentroid, int maxCharge, int maxIsotope,
                                    double relMassMin, double relMassMax) {
  AddDetectionSetting(index);
  SetDetectionSetting(index, x1, x2, relThreshold, absThreshold, 0, width, 1, minPeakArea,
                      pctPeakArea, width, maxPeakWidth, 1, noiseThreshold, integratedMethod,
                      pctCentroid, maxCharge, maxIsotope, relMassMin, relMassMax);
}

int QXPeakTableList::CreateDefaultSegment(double dt, double t1, double t2, double m1, double m2,
                                          double R, double relThreshold, double absThreshold,
                                          double minPeakArea, double pctPeakArea, int maxPeakWidth,
                                          double noiseThreshold, int integratedMethod,
                                          double pctCentroid, int maxCharge, int maxIsotope,
                                          double relMasMinIntensity, double relMassMaxIntensity) {
  if (t2 <= 0.0) return 0;
  const double D = 2.0 * dt * R;
  const double q = std::max(3200.0 / dt, 5.0);
  const bool finite = std::isfinite(t1) && std::isfinite(t2) && std::isfinite(m1) &&
                      std::isfinite(m2) && std::isfinite(D) && std::isfinite(q);
  if (!finite || !(dt > 0.0) || !(R > 0.0) || !(D > 0.0) || t1 < 0.0) return 0;
  DeleteAllDetectionSettings();

  // A peak is w points wide at time 2 w dt R; the first width is not raised to 3, only the
  // start of the step computation is (kept as the walk has always done).
  WalkState s{0, m1, OddWidth(t1 / D)};
  const int wStart = std::max(s.w, 3);
  const int wEnd = std::max(OddWidth(t2 / D), 3);
  const auto add = [&](int k, double lo, double hi, int w, bool closing) {
    AddOneSegment(k, lo, hi, w, relThreshold, absThreshold, minPeakArea, pctPeakArea,
                  closing ? kClosingMaxPeakWidth : maxPeakWidth, noiseThreshold, integratedMethod,
                  pctCentroid, maxCharge, maxIsotope, relMasMinIntensity, relMassMaxIntensity);
  };
  const bool closed = WalkWidths(
      s, WidthStep(wStart, wEnd), wEnd + 2, t2, m2, m1, q, [&](int w) { return 2.0 * w * dt * R; },
      [&](double x) { return TimeToMass(x, t1, t2, m1, m2); }, add);
  // A walk that steps past t2 adds no closing segment yet counts one: intended.
  return closed ? s.k : s.k + 1;
}

int QXPeakTableList::CreateDefaultSegment(double resolution, double dx, double x1, double x2,
                                          double relThreshold, double minRelThreshold,
                                          double absThreshold, double minPeakArea,
                                          double pctPeakArea, int maxPeakWidth,
                                          double noiseThreshold, int integratedMethod,
                                          double pctCentroid, int maxCharge, int maxIsotope,
                                          double relMasMinIntensity, double relMassMaxIntensity) {
  if (x2 <= 0.0) return 0;
  // Low resolving powers mean a low-resolution instrument: one m/z unit at the top.
  const double R = resolution > 1000.0 ? resolution : x2;
  // Peaks at m are m / D points wide.
  const double D = R * dx;
  if (!std::isfinite(x1) || !std::isfinite(x2) || !std::isfinite(D) || !(dx > 0.0) || !(D > 0.0) ||
      x1 < 0.0 || x1 >= x2) {
    return 0;
  }
  DeleteAllDetectionSettings();

  const auto clampWidth = [](double points) {
    return std::clamp(OddWidth(points), 3, kMaxFilterWidth);
  };
  double threshold = relThreshold;
  const auto add = [&](int k, double lo, double hi, int w, bool closing) {
    AddOneSegment(k, lo, hi, w, threshold, absThreshold, minPeakArea, pctPeakArea,
                  closing ? kClosingMaxPeakWidth : maxPeakWidth, noiseThreshold, integratedMethod,
                  pctCentroid, maxCharge, maxIsotope, relMasMinIntensity, relMassMaxIntensity);
  };
  constexpr double kOverlapPct = 5.0;
  WalkState s{0, x1, clampWidth(x1 / D)};
  if (WalkWidths(
          s, WidthStep(s.w, clampWidth(x2 / D)), kMaxFilterWidth, x2, x2, x1, kOverlapPct,
          [&](int w) { return w * D; }, [](double x) { return x; }, add)) {
    return s.k;
  }
  // The walk stopped short of x2: its last step passed the cap. If peaks at x2 still fit a
  // filter, the rest gets their width; if they are broader than any filter, the rest is
  // searched with the widest one and, as broad peaks stand lower, a lowered threshold.
  const bool broad = x2 / D > kMaxFilterWidth;
  if (broad) threshold = relThreshold - (relThreshold - minRelThreshold) * 0.05;
  add(s.k++, s.low, x2, broad ? OddWidth(kBroadPeakFilter) : clampWidth(x2 / D), true);
  return s.k;
}

double QXPeakTableList::TimeToMass(double t, double t1, double t2, double m1, double m2) {
  if (!(t2 > 0.01 && m2 > 0.01 && m1 >= 0.0)) return 0.0;
  const double sqrtSpan = std::sqrt(m2) - std::sqrt(m1);
  if (sqrtSpan == 0.0 || t2 == t1) return 0.0;  // one point twice: no calibration
  const double k = (t2 - t1) / sqrtSpan;
  const double t0 = t2 - k * std::sqrt(m2);
  const double r = (t - t0) / k;
  return r * r;
}

void QXPeakTableList::SetDefaults(double relThreshold, double absThreshold, int filterType,
                                  int filterWidth, int filterInc, double minPeakArea,
                                  double pctPeakArea, int minPeakWidth, int maxPeakWidth,
                                  int autoPeakWidth, double noiseThreshold, int integratedMethod,
                                  int defaultAutoSNCalc, double pctCentroid,
                                  int defaultMassProcessing, int maxCharge, int maxIsotope,
                                  double relMasMinIntensity, double relMassMaxIntensity,
                                  double defaultResolution, int defaultUseResolutionFlag,
                                  int defaultGaussFit) {
  QXPeakDetectSetting& d = m_DefaultSetting;
  std::tie(d.m_dRelThreshold, d.m_dAbsThreshold, d.m_nFilterType, d.m_nFilterWidth, d.m_nFilterInc,
           d.m_dMinPeakArea, d.m_dPctPeakArea, d.m_nMinPeakWidth, d.m_nMaxPeakWidth,
           d.m_bAutoPeakWidth, d.m_dNoiseThreshold, d.m_nIntegratedMethod, d.m_dPctCentroid,
           d.m_nMaxCharge, d.m_nMaxIsotope, d.m_dRelMasMinIntensity, d.m_dRelMassMaxIntensity) =
      std::tie(relThreshold, absThreshold, filterType, filterWidth, filterInc, minPeakArea,
               pctPeakArea, minPeakWidth, maxPeakWidth, autoPeakWidth, noiseThreshold,
               integratedMethod, pctCentroid, maxCharge, maxIsotope, relMasMinIntensity,
               relMassMaxIntensity);
  m_bDefaultAutoSNCalc = defaultAutoSNCalc;
  m_bDefaultMassProcessing = defaultMassProcessing;
  m_dDefaultResolution = defaultResolution;
  m_bDefaultUseResolutionFlag = defaultUseResolutionFlag;
  m_bDefaultGaussFit = defaultGaussFit;
}

// ---- Global switches ----

void QXPeakTableList::SetMassProcessing(int on) {
  m_bMassProcessing = on;
  if (on == 0) m_bCentroidSpecData = 0;
}

void QXPeakTableList::SetUseResolutionFlag(int on) {
  SetIfChanged(m_bUseResolutionFlag, on, m_bSettingsChanged);
}

void QXPeakTableList::SetGaussFit(int on) { SetIfChanged(m_bGaussFit, on, m_bSettingsChanged); }

void QXPeakTableList::SetAutoSNCalcOn(int on) {
  SetIfChanged(m_bAutoSNCalc, on, m_bSettingsChanged);
}

void QXPeakTableList::SetResolution(double resolution) {
  SetIfChanged(m_dResolution, resolution, m_bSettingsChanged);
}

// ---- Peak tables ----

std::int32_t QXPeakTableList::TableIndex(std::int32_t index) const {
  const std::int32_t count = GetNumPeakTablesInList();
  if (index == -1) index = count - 1;
  return index >= 0 && index < count ? index : -1;
}

void QXPeakTableList::AddPeakTableToList() {
  m_arrPeakTables.push_back(std::make_unique<QXPeakTable>());
}

QXPeakTable* QXPeakTableList::GetPeakTableFromList(std::int32_t index) const {
  const std::int32_t i = TableIndex(index);
  return i < 0 ? nullptr : m_arrPeakTables[static_cast<std::size_t>(i)].get();
}

int QXPeakTableList::DeletePeakTableFromList(std::int32_t index) {
  const std::int32_t i = TableIndex(index);
  if (i < 0) return 0;
  m_arrPeakTables.erase(m_arrPeakTables.begin() + i);
  return 1;
}

int QXPeakTableList::ClearPeakTableInList(std::int32_t index) {
  QXPeakTable* table = GetPeakTableFromList(index);
  if (table == nullptr) return 0;
  table->DeleteAllPeaks();
  return 1;
}

std::int32_t QXPeakTableList::GetNumPeaksFromList(std::int32_t index) const {
  const QXPeakTable* table = GetPeakTableFromList(index);
  return table == nullptr ? -1 : static_cast<std::int32_t>(table->GetNumPeaks());
}

QXPeakTableElement* QXPeakTableList::GetPeakFromTableList(std::int32_t table,
                                                          std::int32_t peak) const {
  const QXPeakTable* t = GetPeakTableFromList(table);
  return t == nullptr ? nullptr : t->GetPeak(peak);
}

void QXPeakTableList::DeleteAllPeakTables() { m_arrPeakTables.clear(); }

void QXPeakTableList::CopyPeakTableList(const QXPeakTableList* source) {
  if (source != nullptr && source != this) *this = *source;
}

void QXPeakTableList::Serialize(QXArchive& ar) {
  SerializeObjectArray(ar, m_arrPeakTables, &QXPeakTable::classQXPeakTable);
}

}  // namespace qxpkutil
