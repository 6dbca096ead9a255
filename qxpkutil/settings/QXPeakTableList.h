// The peak tables of one data view (one per trace or spectrum) and the segments that steer
// their detection: an ordered list of QXPeakDetectSetting, each applied to its own x range,
// plus the global switches (mass processing, centroided input, Gaussian fit, automatic
// noise threshold, resolution) and the defaults that restored settings fall back on.
//
//   QXPeakTableList list;
//   list.AddDetectionSetting(-1);                 // one segment with the default values
//   list.SetDetectionRange(0, 100.0, 2000.0);
//   list.AddPeakTableToList();                    // detection fills table 0
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXObject.h"
#include "qxpkutil/settings/QXPeakDetectSetting.h"

namespace qxpkutil {

class QXArchive;

// A new list has no tables, no segments, every switch off, resolution 2000.0 and
// settingsChanged set. Its default setting is a default-constructed QXPeakDetectSetting
// with PctCentroid 1.0 (not 50.0: the two differ on purpose).
//
// Index rules. Segment operations take an index from 0 and fail (0, nothing changed) for
// any index outside 0..count-1; -1 has a meaning only where a contract says so. Table
// operations accept -1 for the last table.
//
// settingsChanged tells the detection driver that segments or switches changed since the
// last search: the value setters of segments and the resolution-related switches set it,
// as each contract says; the driver clears it.
class QXPeakTableList : public QXObject {
 public:
  static const QXRuntimeClass classQXPeakTableList;
  // The most segments a list holds; an add that would pass it does nothing.
  static constexpr std::int32_t kMaxDetectionSettings = 65536;

  QXPeakTableList();
  // A deep copy: the tables and segments are copied, never shared.
  QXPeakTableList(const QXPeakTableList& src);
  // Replaces this list's tables, segments, switches, default block and default setting with
  // deep copies of `src`'s, then takes its settingsChanged. Self-assignment changes nothing.
  QXPeakTableList& operator=(const QXPeakTableList& src);
  QXPeakTableList(QXPeakTableList&&) noexcept = default;
  QXPeakTableList& operator=(QXPeakTableList&&) noexcept = default;
  ~QXPeakTableList() override;

  const QXRuntimeClass* GetRuntimeClass() const override { return &classQXPeakTableList; }

  // ---- Segments ----
  std::int32_t GetNumDetectionSettings() const {
    return static_cast<std::int32_t>(m_arrDetectSettings.size());
  }
  // Inserts a default-constructed segment at `index` (0..count-1; later segments move up)
  // or appends it (-1, or any index >= count). An index >= 1 past the end first grows the
  // list with default segments to index + 1 entries. A segment added at an index >= 1
  // starts as a copy of its predecessor, range included. Sets settingsChanged. An index
  // below -1, or one that would grow the list past kMaxDetectionSettings, does nothing.
  void AddDetectionSetting(std::int32_t index);
  // Deletes segment `index` (-1: the last); 1 on success, 0 otherwise. With no segments
  // nothing changes; otherwise settingsChanged is set even when the index is out of range.
  int DeleteDetectionSetting(std::int32_t index);
  // Deletes every segment; settingsChanged is left as it was.
  void DeleteAllDetectionSettings();

  // Copies segment `index` into `setting`; 1 on success, 0 (`setting` untouched) otherwise.
  int GetDetectionSetting(std::int32_t index, QXPeakDetectSetting& setting) const;
  // Overwrites segment `index` with all twenty fields of `setting`; settingsChanged is not
  // touched. 1 on success, 0 for a bad index.
  int SetDetectionSetting(std::int32_t index, const QXPeakDetectSetting& setting);
  // The nineteen values of the value constructor's order; outputs untouched on failure.
  int GetDetectionSetting(std::int32_t index, double& rangeX1, double& rangeX2,
                          double& relThreshold, double& absThreshold, int& filterType,
                          int& filterWidth, int& filterInc, double& minPeakArea,
                          double& pctPeakArea, int& minPeakWidth, int& maxPeakWidth,
                          int& autoPeakWidth, double& noiseThreshold, int& integratedMethod,
                          double& pctCentroid, int& maxCharge, int& maxIsotope,
                          double& relMasMinIntensity, double& relMassMaxIntensity) const;
  // Writes the nineteen values and resets Divisor to unset; sets settingsChanged when any
  // of the nineteen differs from the stored value (exact comparison). 0 for a bad index.
  int SetDetectionSetting(std::int32_t index, double rangeX1, double rangeX2, double relThreshold,
                          double absThreshold, int filterType, int filterWidth, int filterInc,
                          double minPeakArea, double pctPeakArea, int minPeakWidth,
                          int maxPeakWidth, int autoPeakWidth, double noiseThreshold,
                          int integratedMethod, double pctCentroid, int maxCharge, int maxIsotope,
                          double relMasMinIntensity, double relMassMaxIntensity);
  // The mass-processing subset; outputs untouched on failure.
  int GetDetectionSetting(std::int32_t index, double& rangeX1, double& rangeX2,
                          double& relThreshold, double& pctCentroid, double& divisor,
                          int& integratedMethod, int& maxCharge, int& maxIsotope,
                          double& relMasMinIntensity, double& relMassMaxIntensity) const;
  // Writes the mass-processing subset (Divisor included), then zeroes FilterType,
  // FilterWidth, FilterInc, MinPeakWidth, MaxPeakWidth and AbsThreshold: a segment set
  // this way carries no filter and no width limits. Sets settingsChanged when any of the
  // ten values differs. 0 for a bad index.
  int SetDetectionSetting(std::int32_t index, double rangeX1, double rangeX2, double relThreshold,
                          double pctCentroid, double divisor, int integratedMethod, int maxCharge,
                          int maxIsotope, double relMasMinIntensity, double relMassMaxIntensity);
  // Every field: the value constructor's order with `divisor` right after `pctCentroid`.
  int GetAllDetectionSettings(std::int32_t index, double& rangeX1, double& rangeX2,
                              double& relThreshold, double& absThreshold, int& filterType,
                              int& filterWidth, int& filterInc, double& minPeakArea,
                              double& pctPeakArea, int& minPeakWidth, int& maxPeakWidth,
                              int& autoPeakWidth, double& noiseThreshold, int& integratedMethod,
                              double& pctCentroid, double& divisor, int& maxCharge, int& maxIsotope,
                              double& relMasMinIntensity, double& relMassMaxIntensity) const;
  int GetDetectionRange(std::int32_t index, double& x1, double& x2) const;
  // Sets the range; settingsChanged is set when either bound differs.
  int SetDetectionRange(std::int32_t index, double x1, double x2);
  // Sets NoiseThreshold of segment `index`, or of every segment for -1 (1 even with no
  // segments); settingsChanged is not touched. 0 for another bad index.
  int SetNoiseThreshold(double value, std::int32_t index);

  // Rebuilds the segments for a time-of-flight axis whose peak width in time grows with
  // the flight time, so the segments' filter width and MinPeakWidth (in points, odd) grow
  // along the axis while their ranges are in mass. `dt` is the time per point, (t1, m1)
  // and (t2, m2) the calibration (see TimeToMass) and `R` the resolution: a peak at time t
  // is t / (2 dt R) points wide. Segments overlap by max(3200 / dt, 5) percent of their
  // span; the last one, reaching m2, gets MaxPeakWidth 10000. Returns the number of
  // segments added, except that a walk whose last width step overshoots t2 adds no closing
  // segment and still returns one more than it added (a count kept on purpose).
  // Returns 0 with nothing changed when t2 <= 0, or when dt, R, t1, t2, m1, m2 are not
  // finite, dt or R is not positive, or t1 is negative.
  int CreateDefaultSegment(double dt, double t1, double t2, double m1, double m2, double R,
                           double relThreshold, double absThreshold, double minPeakArea,
                           double pctPeakArea, int maxPeakWidth, double noiseThreshold,
                           int integratedMethod, double pctCentroid, int maxCharge, int maxIsotope,
                           double relMasMinIntensity, double relMassMaxIntensity);
  // Rebuilds the segments for an m/z axis sampled every `dx` from `x1` to `x2` with a
  // constant resolving power, where a peak at m is m / R wide, i.e. m / (R dx) points.
  // R is `resolution` when that exceeds 1000.0; a lower figure means a low-resolution
  // instrument, taken as R = x2 (a peak at the upper bound one m/z unit wide).
  // Widths walk from the width at x1 towards the width at x2 in even steps of about a
  // sixteenth of the way; each segment reaches up to where peaks are as wide as its filter,
  // overlaps its successor by 5 % of its span and uses `relThreshold`. Widths are capped at
  // 2001 points, the widest smoothing filter. When peaks at x2 are wider than that, the
  // walk stops at the cap and the rest of the range is a second run of one segment with the
  // filter of 2000 points made odd (2001) and the threshold lowered towards
  // `minRelThreshold`: relThreshold - (relThreshold - minRelThreshold) * 0.05. The last
  // segment always ends at x2, with MaxPeakWidth 10000. Returns the number of segments
  // added, or 0 with nothing changed when x2 <= 0, when an axis value is not finite, dx is
  // not positive, x1 is negative or x1 >= x2.
  int CreateDefaultSegment(double resolution, double dx, double x1, double x2, double relThreshold,
                           double minRelThreshold, double absThreshold, double minPeakArea,
                           double pctPeakArea, int maxPeakWidth, double noiseThreshold,
                           int integratedMethod, double pctCentroid, int maxCharge, int maxIsotope,
                           double relMasMinIntensity, double relMassMaxIntensity);
  // Mass at flight time `t` from two calibration points, under t = t0 + k sqrt(m). 0.0
  // unless t2 > 0.01 and m2 > 0.01 and the points define a calibration (m1 >= 0, distinct
  // times and masses).
  static double TimeToMass(double t, double t1, double t2, double m1, double m2);

  // Fills the default setting (range and Divisor untouched) and the default block that
  // restored settings fall back on; the live switches and the segments stay as they are.
  void SetDefaults(double relThreshold, double absThreshold, int filterType, int filterWidth,
                   int filterInc, double minPeakArea, double pctPeakArea, int minPeakWidth,
                   int maxPeakWidth, int autoPeakWidth, double noiseThreshold, int integratedMethod,
                   int defaultAutoSNCalc, double pctCentroid, int defaultMassProcessing,
                   int maxCharge, int maxIsotope, double relMasMinIntensity,
                   double relMassMaxIntensity, double defaultResolution,
                   int defaultUseResolutionFlag, int defaultGaussFit);

  // ---- Global switches ----
  int MassProcessingOn() const { return m_bMassProcessing; }
  // Turning mass processing off also turns centroided input off. settingsChanged is not
  // touched.
  void SetMassProcessing(int on);
  int CentroidSpecData() const { return m_bCentroidSpecData; }
  // settingsChanged is not touched.
  void SetCentroidSpecData(int on) { m_bCentroidSpecData = on; }
  // The next four setters set settingsChanged when the value differs; an equal value
  // changes nothing.
  int GetUseResolutionFlag() const { return m_bUseResolutionFlag; }
  void SetUseResolutionFlag(int on);
  int IsGaussFitOn() const { return m_bGaussFit; }
  void SetGaussFit(int on);
  int IsAutoSNCalcOn() const { return m_bAutoSNCalc; }
  void SetAutoSNCalcOn(int on);
  double GetResolution() const { return m_dResolution; }
  void SetResolution(double resolution);
  int SettingsChanged() const { return m_bSettingsChanged; }
  void ForceSettingChange(int changed) { m_bSettingsChanged = changed; }

  // ---- Peak tables (-1 means the last table) ----
  // Appends a new empty table.
  void AddPeakTableToList();
  std::int32_t GetNumPeakTablesInList() const {
    return static_cast<std::int32_t>(m_arrPeakTables.size());
  }
  // The table (still owned by the list), or null for a bad index.
  QXPeakTable* GetPeakTableFromList(std::int32_t index) const;
  // Deletes the table and closes the gap; 1 on success, 0 for a bad index.
  int DeletePeakTableFromList(std::int32_t index);
  // Deletes the table's peaks, keeping the table; 1 on success, 0 for a bad index.
  int ClearPeakTableInList(std::int32_t index);
  // The table's peak count, or -1 for a bad index.
  std::int32_t GetNumPeaksFromList(std::int32_t index) const;
  // Peak `peak` of table `table` (QXPeakTable::GetPeak rules), or null for a bad index.
  QXPeakTableElement* GetPeakFromTableList(std::int32_t table, std::int32_t peak) const;
  void DeleteAllPeakTables();
  // Assigns `source` to this list; nothing happens for null or for this list itself.
  void CopyPeakTableList(const QXPeakTableList* source);
  // Only the tables travel: their count in the archive's count encoding, then each as a
  // tagged QXPeakTable object. Segments and switches go through the profile instead.
  // Loading replaces the tables; bad bytes leave the list without tables and the archive
  // failed.
  void Serialize(QXArchive& ar) override;

  // ---- Detection ----
  // Searches each segment's x range of (x, y), x ascending, into table `table` (-1: the
  // last), which the first segment empties, and returns the table's peak count. -2, with
  // the list untouched, without tables, for a bad table index, null arrays, n = 0, or an x,
  // y, yMax or dAreaScale that is not finite.
  // A segment's threshold is RelThreshold percent of yMax above the data's lowest point
  // (0.0 unless the data dip below it), at least AbsThreshold; its minimum area is
  // PctPeakArea percent of ComputeMaxPeakArea, at least MinPeakArea. For centroided data
  // the percentage is of yMax and the minimum area, when larger, is the threshold too.
  // A segment with a Divisor takes the divisor search, centroided data the stick builder,
  // other segments the moving-mean scan; an empty range means the whole data for segment 0
  // only. With the automatic noise threshold on, every segment's NoiseThreshold becomes
  // 0.75 x QXWaveletAnalysis::CalcWhiteNoiseLevel(y, n) first. Afterwards the table is in
  // apex-x order (peaks of overlapping or out-of-order segments are sorted back, stably)
  // and of peaks sharing an apex x only the last stays. Clears settingsChanged, except
  // that a list without segments searches nothing and leaves the flag as it is.
  std::int32_t FindPeaks(const double* x, const double* y, std::uint32_t n, double yMax,
                         double dAreaScale, std::int32_t table);
  // The largest area (times `dAreaScale`) that a trial search of each segment over its own
  // range finds at the segment's AbsThreshold and MinPeakArea, with filter increment 1; a
  // search that finds nothing is repeated with MaxPeakWidth 10000. 0.0 when no search finds
  // a peak, and 0.0 with nothing changed for data that FindPeaks refuses. Sets the automatic
  // noise thresholds as FindPeaks does.
  double ComputeMaxPeakArea(const double* x, const double* y, std::uint32_t n, double dAreaScale);
  // The area of the most intense peak that one trial search over the whole data finds:
  // with the values of the first segment whose range holds the data's lowest point (the
  // first of equal lows; segment 0 when none does), threshold 0.8 x `d1` (pass the data's
  // height: only peaks reaching 80 % of it count) and areas times `d2`, otherwise as in
  // ComputeMaxPeakArea. With the automatic noise threshold on, that segment's
  // NoiseThreshold is set first. 0.0 when nothing is found, and 0.0 with nothing changed
  // without segments or for data that FindPeaks refuses.
  double ComputeBasePeakArea(const double* x, const double* y, std::uint32_t n, double d1,
                             double d2);

  // ---- Persistence through the application profile or key=value text ----
  // All three use the application profile (QXGetAppProfile) and do nothing at all, not even
  // write `list`, when none is set or `appSection` is null. The section is
  // "<appSection>\PeakSettingsTrace-<trace>"; per-segment keys end in "-<segment>".
  //
  // Saves "NumDetectSegments", each segment's values ("DetectRangeX1-0", ...; the five mass
  // keys only while mass processing is on), then "Mass-Processing-0", "Resolution-0",
  // "UseResolutionForPkDetect", "GaussianFit" and "AutomaticNoiseThreshold": to the profile
  // when `toProfile` is non-zero, and as "section\key=value\r\n" lines appended to `list`
  // when it is not null. Doubles are written "%f", AbsoluteThreshold "%e".
  void PersistSettings(const char* appSection, std::int32_t trace, std::vector<std::string>* list,
                       int toProfile);
  // Replaces the segments and switches with the saved ones, read from `text` or the
  // profile as `flags` select (QXPersistUtils::GetParamSetting). Missing keys fall back on
  // the default setting and default block (the range on 0.0..0.0, a missing segment count
  // on 1); a default double passes through its saved text form ("%f" keeps six decimals).
  // Without mass processing the segments get MaxCharge 6, MaxIsotope 40, relative
  // intensities 0.05..0.99 and PctCentroid 50.0, whatever the store holds. A count below 1
  // restores no segment; one above kMaxDetectionSettings restores that many. The switches
  // are stored without the setters' change test.
  void RestoreSettings(const char* appSection, std::int32_t trace, const char* text,
                       unsigned flags);
  // The same, with the text block replaced by the host's map of "section\key" to value.
  void RestoreSettings(const char* appSection, const std::map<std::string, std::string>& map,
                       std::int32_t trace, unsigned flags);

 protected:
  std::vector<std::unique_ptr<QXPeakTable>> m_arrPeakTables;
  std::vector<QXPeakDetectSetting> m_arrDetectSettings;
  int m_bSettingsChanged = 1;
  int m_bMassProcessing = 0;
  int m_bCentroidSpecData = 0;
  int m_bUseResolutionFlag = 0;
  int m_bGaussFit = 0;
  int m_bAutoSNCalc = 0;
  double m_dResolution = 2000.0;
  // Fallbacks for the switches when settings are restored.
  int m_bDefaultMassProcessing = 0;
  int m_bDefaultUseResolutionFlag = 0;
  int m_bDefaultGaussFit = 0;
  int m_bDefaultAutoSNCalc = 0;
  double m_dDefaultResolution = 2000.0;
  // Fallback values of every restored segment.
  QXPeakDetectSetting m_DefaultSetting;

 private:
  // Adds segment `index` with the given range and width (filter width and minimum peak
  // width alike), FilterType 0, FilterInc 1 and AutoPeakWidth 1.
  void AddOneSegment(int index, double x1, double x2, int width, double relThreshold,
                     double absThreshold, double minPeakArea, double pctPeakArea, int maxPeakWidth,
                     double noiseThreshold, int integratedMethod, double pctCentroid, int maxCharge,
                     int maxIsotope, double relMassMin, double relMassMax);
  // Reads segment `index`, or null when the index is outside 0..count-1.
  const QXPeakDetectSetting* Segment(std::int32_t index) const;
  QXPeakDetectSetting* Segment(std::int32_t index);
  // Resolves -1 to the last table; -1 for a bad index.
  std::int32_t TableIndex(std::int32_t index) const;
  // Both RestoreSettings forms; `Source` is the text block's entries or the map.
  template <class Source>
  void RestoreSettingsFrom(const char* appSection, std::int32_t trace, const Source& source,
                           unsigned flags);
};

}  // namespace qxpkutil
