#include "tools/qxpeak/view/view_api.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/platform/QXTypes.h"
#include "qxpkutil/ui/CChroPkDetectSetupDlg.h"
#include "qxpkutil/ui/QXDataExchange.h"
#include "qxpkutil/ui/QXSegmentedPeakSetupDlg.h"
#include "qxpkutil/io/TraceReader.h"
#include "tools/qxpeak/cli/settings_file.h"
#include "tools/qxpeak/input/file_io.h"
#include "tools/qxpeak/output/output_files.h"

namespace qxpkutil::qxpeak::view {

namespace {

using json = nlohmann::json;

// A request the library refused, with the message to show.
struct Refusal {
  std::string message;
};

ApiReply Json(const json& value, int status = 200) {
  return {status, "application/json", value.dump(-1, ' ', false, json::error_handler_t::replace)};
}
ApiReply Error(const std::string& message, int status = 400) {
  return Json(json{{"error", message}}, status);
}

json Number(double v) { return std::isfinite(v) ? json(v) : json(nullptr); }

// Collects what the library shows and asks while one rule runs, answering its questions from
// the answers the page sent; a question beyond them is recorded and answered No, which the
// rules take as "change nothing". The sink is process-wide, so handlers run one at a time.
class ReplaySink : public QXMessageSink {
 public:
  explicit ReplaySink(std::vector<bool> answers)
      : m_answers(std::move(answers)), m_previous(QXGetMessageSink()) {
    QXSetMessageSink(this);
  }
  ~ReplaySink() override { QXSetMessageSink(m_previous); }
  ReplaySink(const ReplaySink&) = delete;
  ReplaySink& operator=(const ReplaySink&) = delete;

  void ShowMessage(int id, const std::string& text) override {
    if (messages.empty()) messageId = id;
    messages.push_back(text);
  }
  bool AskYesNo(int id, const std::string& text) override {
    if (m_next < m_answers.size()) return m_answers[m_next++];
    if (!pending) pending = std::make_pair(id, text);
    return false;
  }

  std::vector<std::string> messages;
  int messageId = 0;
  std::optional<std::pair<int, std::string>> pending;

 private:
  std::vector<bool> m_answers;
  std::size_t m_next = 0;
  QXMessageSink* m_previous;
};

// A field's value as the dialogs read it: a JSON number as it is, a string through
// DDX_TextSpace (blank is the unset value).
double ReadNumber(const json& body, const char* key) {
  const auto it = body.find(key);
  if (it == body.end()) throw Refusal{QXLoadString(kQXMsgEnterNumber)};
  if (it->is_number()) return it->get<double>();
  std::string message;
  double value = 0.0;
  if (!it->is_string() || !DDX_TextSpace(it->get<std::string>(), value, message)) {
    throw Refusal{message.empty() ? QXLoadString(kQXMsgEnterNumber) : message};
  }
  return value;
}
double ReadMin(const json& body, const char* key, double minValue) {
  const double v = ReadNumber(body, key);
  std::string message;
  if (!DDV_MinDouble(v, minValue, message)) throw Refusal{message};
  return v;
}
int ReadWhole(const json& body, const char* key, int minValue, int maxValue) {
  const double v = ReadNumber(body, key);
  if (!(v >= minValue && v <= maxValue) || v != std::floor(v)) {
    throw Refusal{QXLoadString(kQXMsgWholeNumberInRange)};
  }
  return static_cast<int>(v);
}
std::int32_t ReadIndex(const json& body, std::int32_t count) {
  const auto it = body.find("index");
  if (it == body.end() || !it->is_number_integer() || it->get<std::int64_t>() < 0 ||
      it->get<std::int64_t>() >= count) {
    throw Refusal{"no such entry"};
  }
  return static_cast<std::int32_t>(it->get<std::int64_t>());
}
bool ReadBool(const json& body, const char* key) {
  const auto it = body.find(key);
  if (it == body.end() || !it->is_boolean()) {
    throw Refusal{std::string(key) + " must be true or false"};
  }
  return it->get<bool>();
}
std::string ReadString(const json& body, const char* key) {
  const auto it = body.find(key);
  if (it == body.end() || !it->is_string()) throw Refusal{std::string(key) + " must be text"};
  return it->get<std::string>();
}

// ---- Segments ----

// The nineteen values of a segment with the validator each field's edit box has.
struct SegmentField {
  const char* name;
  bool integer;
  std::function<void(double, std::string&)> check;  // fills the message when refused
};

void MinCheck(double v, double minValue, std::string& m) { DDV_MinDouble(v, minValue, m); }
void WholeCheck(double v, int minValue, int maxValue, std::string& m) {
  if (!(v >= minValue && v <= maxValue) || v != std::floor(v)) {
    m = QXLoadString(kQXMsgWholeNumberInRange);
  }
}

const std::vector<SegmentField>& SegmentFields() {
  static const std::vector<SegmentField> fields = {
      {"RangeX1", false, nullptr},
      {"RangeX2", false, nullptr},
      {"RelThreshold", false,
       [](double v, std::string& m) {
         if (!(v >= 0.0 && v <= 100.0)) m = QXLoadString(kQXMsgThresholdPercent);
       }},
      {"AbsThreshold", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
      {"FilterType", true, [](double v, std::string& m) { WholeCheck(v, 0, 16, m); }},
      {"FilterWidth", true,
       [](double v, std::string& m) {
         WholeCheck(v, 0, 9999, m);
         if (m.empty()) DDV_ZeroOddMinMaxInt(static_cast<int>(v), 1, 9999, m);
       }},
      {"FilterInc", true, [](double v, std::string& m) { WholeCheck(v, 1, 9999, m); }},
      {"MinPeakArea", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
      {"PctPeakArea", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
      {"MinPeakWidth", true,
       [](double v, std::string& m) {
         WholeCheck(v, 1, 100001, m);
         if (m.empty()) DDV_OddMinMaxInt(static_cast<int>(v), 1, 100001, m);
       }},
      {"MaxPeakWidth", true, [](double v, std::string& m) { WholeCheck(v, 1, 100001, m); }},
      {"AutoPeakWidth", true, [](double v, std::string& m) { WholeCheck(v, 0, 1, m); }},
      {"NoiseThreshold", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
      {"IntegratedMethod", true, [](double v, std::string& m) { WholeCheck(v, 0, 16, m); }},
      {"PctCentroid", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
      {"MaxCharge", true, [](double v, std::string& m) { WholeCheck(v, 0, 1000, m); }},
      {"MaxIsotope", true, [](double v, std::string& m) { WholeCheck(v, 0, 100000, m); }},
      {"RelMasMinIntensity", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
      {"RelMassMaxIntensity", false, [](double v, std::string& m) { MinCheck(v, 0.0, m); }},
  };
  return fields;
}

// Segment `i` as nineteen doubles in the value constructor's order.
std::vector<double> SegmentValues(const QXPeakTableList& list, std::int32_t i) {
  double d[19] = {};
  int n[19] = {};
  list.GetDetectionSetting(i, d[0], d[1], d[2], d[3], n[4], n[5], n[6], d[7], d[8], n[9], n[10],
                           n[11], d[12], n[13], d[14], n[15], n[16], d[17], d[18]);
  std::vector<double> v(19);
  for (std::size_t k = 0; k < 19; ++k) v[k] = SegmentFields()[k].integer ? n[k] : d[k];
  return v;
}
void SetSegmentValues(QXPeakTableList& list, std::int32_t i, const std::vector<double>& v) {
  const auto n = [&](int k) { return static_cast<int>(v[static_cast<std::size_t>(k)]); };
  list.SetDetectionSetting(i, v[0], v[1], v[2], v[3], n(4), n(5), n(6), v[7], v[8], n(9), n(10),
                           n(11), v[12], n(13), v[14], n(15), n(16), v[17], v[18]);
}

const Trace* CurrentTrace(ViewState& s) {
  auto& traces = s.input.Traces();
  if (s.current < 0 || static_cast<std::size_t>(s.current) >= traces.size()) return nullptr;
  return &traces[static_cast<std::size_t>(s.current)];
}
bool IsChromatogram(ViewState& s) {
  const Trace* t = CurrentTrace(s);
  return t != nullptr && t->kind == Trace::Kind::kChromatogram;
}

// Applies one typed bound to segment `index` through the dialog the trace kind has:
// the spectrum dialog edits the list itself, the chromatogram dialog its own copy.
int ApplyRangeBound(ViewState& s, QXPeakTableList& list, std::int32_t index, bool lower,
                    double x, std::int32_t precision, std::int32_t& displayPrecision) {
  if (!IsChromatogram(s)) {
    QXSegmentedPeakSetupDlg dlg(&list);
    if (!dlg.SetCurrentSegment(index)) return 0;
    // The dialog starts at 2 decimals; replay the precision it remembered before.
    const std::int32_t p = precision > 0 ? precision : displayPrecision;
    const int applied = lower ? dlg.SetSegmentX1(x, p) : dlg.SetSegmentX2(x, p);
    displayPrecision = dlg.GetDisplayPrecision();
    return applied;
  }
  CChroPkDetectSetupDlg dlg;
  std::vector<QXPeakDetectSetting> segments(
      static_cast<std::size_t>(list.GetNumDetectionSettings()));
  for (std::int32_t i = 0; i < list.GetNumDetectionSettings(); ++i) {
    list.GetDetectionSetting(i, segments[static_cast<std::size_t>(i)]);
  }
  dlg.AddTrace(std::move(segments));
  if (!dlg.SetCurrentSegment(index)) return 0;
  const std::int32_t p = precision > 0 ? precision : displayPrecision;
  const int applied = lower ? dlg.SetLBound(x, p) : dlg.SetRBound(x, p);
  displayPrecision = dlg.GetDisplayPrecision();
  if (applied) {
    const std::vector<QXPeakDetectSetting>& edited = *dlg.GetTraceSegments(0);
    list.DeleteAllDetectionSettings();
    for (std::size_t i = 0; i < edited.size(); ++i) {
      list.AddDetectionSetting(-1);
      list.SetDetectionSetting(static_cast<std::int32_t>(i), edited[i]);
    }
    list.ForceSettingChange(1);
  }
  return applied;
}

// Decimals typed after the point, as an edit field's text gives its precision.
std::int32_t TypedPrecision(const std::string& text) {
  const std::size_t dot = text.find('.');
  if (dot == std::string::npos) return 0;
  std::int32_t digits = 0;
  for (std::size_t i = dot + 1; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) ++digits;
  return digits;
}

// ---- Detection ----

void Invalidate(ViewState& s) { s.fresh = false; }

// The trace shown, binned by the library when binning is on; bins whose intensities sum to
// zero have no weighted x and are left out.
void LoadSignal(ViewState& s) {
  s.x.clear();
  s.y.clear();
  const Trace* t = CurrentTrace(s);
  if (t == nullptr) return;
  if (!s.binning || t->x.empty()) {
    s.x = t->x;
    s.y = t->y;
    return;
  }
  const auto n = static_cast<std::uint32_t>(t->x.size());
  // BinData does not say how many bins it wrote: unwritten slots keep this mark.
  const double unwritten = std::numeric_limits<double>::infinity();
  std::vector<double> bx(n, unwritten), by(n, 0.0);
  if (!QXDataExpUtils::BinData(t->x.data(), t->y.data(), bx.data(), by.data(), n, s.binWidth)) {
    return;
  }
  for (std::uint32_t i = 0; i < n && bx[i] != unwritten; ++i) {
    if (std::isnan(bx[i])) continue;
    s.x.push_back(bx[i]);
    s.y.push_back(by[i]);
  }
}

// The peaks as a library table, so that the calculators work on them as on any table.
QXPeakTable PeakTable(const std::vector<Peak>& peaks) {
  QXPeakTable table;
  for (const Peak& p : peaks) {
    QXPeakTableElement e(p.apex_x, p.apex_y, static_cast<std::uint32_t>(p.apex_index), p.left_x,
                         0.0, static_cast<std::uint32_t>(p.left_index), p.right_x, 0.0,
                         static_cast<std::uint32_t>(p.right_index),
                         std::isfinite(p.centroid_x) ? p.centroid_x : p.apex_x, p.area);
    e.m_nCharge = p.charge;
    e.m_dwFlags = p.marks;
    table.AddPeak(e);
  }
  return table;
}

void Detect(ViewState& s) {
  if (s.fresh) return;
  LoadSignal(s);
  const Trace* t = CurrentTrace(s);
  DetectOptions options = s.physical;
  options.kind = t != nullptr && t->kind == Trace::Kind::kChromatogram ? SignalKind::kChromatogram
                                                                       : SignalKind::kSpectrum;
  if (!s.automatic) {
    options.classic.emplace(s.list);
    options.classic->DeleteAllPeakTables();
    // The settings file has no key for centroided input: the tool takes it from the file's
    // declaration unless told otherwise (--centroided yes), and so does the page.
    const bool declared = t != nullptr && t->centroided;
    options.classic->SetCentroidSpecData(declared || s.list.CentroidSpecData() != 0 ? 1 : 0);
  }
  if (s.matchLabels && s.labels.GetNumUserLabels() > 0) {
    options.labels = std::make_shared<const QXUserPkLabels>(s.labels);
  }
  s.peaks = DetectPeaks(std::span<const double>(s.x), std::span<const double>(s.y), options);
  // The calculators run on every new detection, as the live dialogs do.
  QXPeakTable table = PeakTable(s.peaks.peaks);
  const auto n = static_cast<std::uint32_t>(s.x.size());
  for (std::int32_t i = 0; i < s.sn.GetNumSettings(); ++i) {
    s.sn.GetSetting(i)->SetResult(-1.0);
    s.sn.GetSetting(i)->SetFoundX(0.0);
  }
  for (std::int32_t i = 0; i < s.res.GetNumSettings(); ++i) {
    s.res.GetSetting(i)->SetResult(-1.0);
    s.res.GetSetting(i)->SetFoundX(0.0);
  }
  if (n > 0) {
    table.DoSignalToNoiseOnList(s.x.data(), s.y.data(), n, &s.sn);
    table.DoResCalcOnList(s.x.data(), s.y.data(), &s.res);
  }
  s.fresh = true;
}

// ---- Replies ----

const char* LawName(WidthLaw law) {
  switch (law) {
    case WidthLaw::kConstant: return "constant";
    case WidthLaw::kTof: return "tof";
    case WidthLaw::kOrbitrap: return "orbitrap";
    case WidthLaw::kFtIcr: return "fticr";
    case WidthLaw::kAuto: break;
  }
  return "auto";
}

json PeaksJson(const ViewState& s) {
  json peaks = json::array();
  for (const Peak& p : s.peaks.peaks) {
    peaks.push_back({{"apex_x", p.apex_x},         {"apex_y", p.apex_y},
                     {"centroid_x", Number(p.centroid_x)},
                     {"left_x", p.left_x},         {"right_x", p.right_x},
                     {"apex_index", p.apex_index}, {"left_index", p.left_index},
                     {"right_index", p.right_index}, {"area", Number(p.area)},
                     {"height", Number(p.height)}, {"baseline", Number(p.baseline)},
                     {"fwhm", Number(p.fwhm)},     {"noise", Number(p.noise)},
                     {"snr", Number(p.snr)},       {"charge", p.charge},
                     {"marks", p.marks},           {"label", p.label}});
  }
  const DetectReport& r = s.peaks.report;
  return {{"peaks", peaks},
          {"message", s.peaks.message},
          {"report",
           {{"noise", Number(r.noise)},
            {"fwhm_at_median_x", Number(r.fwhm_at_median_x)},
            {"points_per_fwhm", Number(r.points_per_fwhm)},
            {"width_law", LawName(r.width_law)},
            {"segments", r.segments}}}};
}

json SettingsJson(ViewState& s) {
  json segments = json::array();
  for (std::int32_t i = 0; i < s.list.GetNumDetectionSettings(); ++i) {
    const std::vector<double> v = SegmentValues(s.list, i);
    json seg;
    for (std::size_t k = 0; k < v.size(); ++k) seg[SegmentFields()[k].name] = v[k];
    // The bounds as the range editor shows them.
    seg["RangeX1Text"] = DDX_TextSpace(v[0], s.displayPrecision);
    seg["RangeX2Text"] = DDX_TextSpace(v[1], s.displayPrecision);
    segments.push_back(seg);
  }
  const DetectOptions& p = s.physical;
  return {{"mode", s.automatic ? "automatic" : "classic"},
          {"segments", segments},
          {"display_precision", s.displayPrecision},
          {"switches",
           {{"mass_processing", s.list.MassProcessingOn() != 0},
            {"centroided", s.list.CentroidSpecData() != 0},
            {"gauss_fit", s.list.IsGaussFitOn() != 0},
            {"auto_noise", s.list.IsAutoSNCalcOn() != 0},
            {"use_resolution", s.list.GetUseResolutionFlag() != 0},
            {"resolution", s.list.GetResolution()}}},
          {"automatic",
           {{"snr", p.snr},
            {"fwhm", s.fwhmText},
            {"resolution", p.resolution},
            {"resolution_at", p.resolution_at},
            {"width_law", LawName(p.width_law)},
            {"max_charge", p.max_charge}}}};
}

json CalcJson(const PeakCalcBaseList& calc) {
  json targets = json::array();
  for (std::int32_t i = 0; i < calc.GetNumSettings(); ++i) {
    const PeakCalcBase* c = calc.GetSetting(i);
    double target = 0.0, delta = 0.0;
    c->GetPeakCalcSetting(target, delta);
    targets.push_back({{"target", target},
                       {"delta", delta},
                       {"found_x", c->GetFoundX()},
                       {"result", c->GetResult()}});
  }
  return targets;
}

json LabelsJson(const ViewState& s) {
  json items = json::array();
  for (std::int32_t i = 0; i < s.labels.GetNumUserLabels(); ++i) {
    std::string label;
    double x = 0.0, dx = 0.0;
    int charge = 0;
    s.labels.GetUserLabel(i, label, x, dx, charge);
    items.push_back({{"label", label}, {"x", x}, {"delta", dx}, {"charge", charge}});
  }
  return {{"items", items},
          {"type", s.labels.GetUserLabelType() == 1 ? 1 : 0},
          {"use_charge", s.labels.GetUseChargeState() != 0},
          {"match", s.matchLabels}};
}

// The qxpeak command line that searches the file as the page does; `settings.ini` stands for
// the file the classic settings are saved to.
std::string CommandLine(ViewState& s) {
  std::string line = "qxpeak " + s.path;
  char number[64];
  const auto add = [&](const char* option, double v) {
    std::snprintf(number, sizeof number, " %s %.10g", option, v);
    line += number;
  };
  if (!s.automatic) {
    line += " --settings settings.ini";
    const Trace* t = CurrentTrace(s);
    if (s.list.CentroidSpecData() != 0 && !(t != nullptr && t->centroided)) {
      line += " --centroided yes";
    }
    return line;
  }
  const DetectOptions& p = s.physical;
  if (p.snr != DetectOptions{}.snr) add("--snr", p.snr);
  if (!s.fwhmText.empty()) line += " --fwhm " + s.fwhmText;
  if (p.resolution > 0.0) {
    add("--resolution", p.resolution);
    add("--resolution-at", p.resolution_at);
  }
  if (p.width_law != WidthLaw::kAuto) line += std::string(" --analyzer ") + LawName(p.width_law);
  if (p.max_charge != DetectOptions{}.max_charge) add("--max-charge", p.max_charge);
  return line;
}

json StateJson(ViewState& s) {
  Detect(s);
  json traces = json::array();
  for (const Trace& t : s.input.Traces()) {
    traces.push_back({{"index", t.index},
                      {"id", t.id},
                      {"kind", t.kind == Trace::Kind::kChromatogram ? "chromatogram" : "spectrum"},
                      {"ms_level", t.ms_level},
                      {"rt", Number(t.rt)},
                      {"points", t.x.size()}});
  }
  json out = PeaksJson(s);
  out["file"] = s.path;
  out["traces"] = traces;
  out["current"] = s.current;
  out["settings"] = SettingsJson(s);
  out["labels"] = LabelsJson(s);
  out["sn"] = {{"baseline_x1", s.sn.GetBaselineX1()},
               {"baseline_x2", s.sn.GetBaselineX2()},
               {"baseline", s.sn.GetBaseline()},
               {"noise", s.sn.GetNoise()},
               {"targets", CalcJson(s.sn)}};
  out["res"] = {{"percent", s.res.GetPercent()},
                {"min_intensity", s.res.GetMinIntensity()},
                {"targets", CalcJson(s.res)}};
  out["binning"] = {{"enabled", s.binning}, {"width", s.binWidth}};
  out["command"] = CommandLine(s);
  return out;
}

// ---- Handlers: each works on `s` and throws Refusal before changing it ----

using Handler = std::function<ApiReply(ViewState&, const json&)>;

ApiReply State(ViewState& s) { return Json(StateJson(s)); }

ApiReply SelectTrace(ViewState& s, const json& b) {
  s.current = ReadIndex(b, static_cast<std::int32_t>(s.input.Traces().size()));
  Invalidate(s);
  return State(s);
}

ApiReply SetMode(ViewState& s, const json& b) {
  const std::string mode = ReadString(b, "mode");
  if (mode != "automatic" && mode != "classic") throw Refusal{"mode is automatic or classic"};
  s.automatic = mode == "automatic";
  Invalidate(s);
  return State(s);
}

// The automatic mode's segments, handed to the segment editor.
ApiReply UseAutomaticSegments(ViewState& s, const json&) {
  LoadSignal(s);
  DetectOptions options = s.physical;
  options.kind = IsChromatogram(s) ? SignalKind::kChromatogram : SignalKind::kSpectrum;
  QXPeakTableList built = BuildAutomaticSegments(s.x, s.y, options);
  if (built.GetNumDetectionSettings() == 0) throw Refusal{QXLoadString(kQXMsgRangeListEmpty)};
  built.DeleteAllPeakTables();
  s.list = std::move(built);
  s.automatic = false;
  Invalidate(s);
  return State(s);
}

ApiReply SetSwitches(ViewState& s, const json& b) {
  QXPeakTableList list(s.list);
  if (b.contains("resolution")) {
    const double r = ReadNumber(b, "resolution");
    if (!(r > 0.0)) throw Refusal{QXLoadString(kQXMsgResolutionNotPositive)};
    list.SetResolution(r);
  }
  if (b.contains("mass_processing")) list.SetMassProcessing(ReadBool(b, "mass_processing"));
  if (b.contains("centroided")) list.SetCentroidSpecData(ReadBool(b, "centroided"));
  if (b.contains("gauss_fit")) list.SetGaussFit(ReadBool(b, "gauss_fit"));
  if (b.contains("auto_noise")) list.SetAutoSNCalcOn(ReadBool(b, "auto_noise"));
  if (b.contains("use_resolution")) list.SetUseResolutionFlag(ReadBool(b, "use_resolution"));
  s.list = std::move(list);
  Invalidate(s);
  return State(s);
}

ApiReply SetAutomatic(ViewState& s, const json& b) {
  DetectOptions p = s.physical;
  std::string fwhmText = s.fwhmText;
  if (b.contains("snr")) p.snr = ReadMin(b, "snr", 0.0);
  if (b.contains("fwhm")) {
    fwhmText = ReadString(b, "fwhm");
    p.fwhm = 0.0;
    p.fwhm_at = 0.0;
    std::string error;
    if (!fwhmText.empty() && !ParseFwhm(fwhmText, p, error)) throw Refusal{error};
  }
  // 0 means "not given": the width then comes from the trace.
  if (b.contains("resolution")) p.resolution = ReadMin(b, "resolution", 0.0);
  if (b.contains("resolution_at")) p.resolution_at = ReadMin(b, "resolution_at", 0.0);
  if (b.contains("max_charge")) p.max_charge = ReadWhole(b, "max_charge", 0, 1000);
  if (b.contains("width_law")) {
    static const std::map<std::string, WidthLaw> laws = {
        {"auto", WidthLaw::kAuto}, {"constant", WidthLaw::kConstant}, {"tof", WidthLaw::kTof},
        {"orbitrap", WidthLaw::kOrbitrap}, {"fticr", WidthLaw::kFtIcr}};
    const auto it = laws.find(ReadString(b, "width_law"));
    if (it == laws.end()) throw Refusal{"width_law is auto, constant, tof, orbitrap or fticr"};
    p.width_law = it->second;
  }
  s.physical = p;
  s.fwhmText = fwhmText;
  Invalidate(s);
  return State(s);
}

ApiReply AddSegment(ViewState& s, const json& b) {
  const std::int32_t count = s.list.GetNumDetectionSettings();
  std::int32_t index = -1;
  if (b.contains("index")) index = ReadIndex(b, count + 1);
  if (count >= QXPeakTableList::kMaxDetectionSettings) {
    throw Refusal{QXLoadString(kQXMsgNoMoreRanges)};
  }
  s.list.AddDetectionSetting(index);
  Invalidate(s);
  return State(s);
}

ApiReply DeleteSegment(ViewState& s, const json& b) {
  const std::int32_t index = ReadIndex(b, s.list.GetNumDetectionSettings());
  if (s.list.GetNumDetectionSettings() <= 1) throw Refusal{QXLoadString(kQXMsgRangeRequired)};
  s.list.DeleteDetectionSetting(index);
  Invalidate(s);
  return State(s);
}

ApiReply SetSegmentField(ViewState& s, const json& b) {
  const std::int32_t index = ReadIndex(b, s.list.GetNumDetectionSettings());
  const std::string name = ReadString(b, "field");
  const auto& fields = SegmentFields();
  const auto field = std::find_if(fields.begin(), fields.end(),
                                  [&](const SegmentField& f) { return name == f.name; });
  if (field == fields.end() || field->check == nullptr) {
    throw Refusal{"no segment field " + name + " (ranges change through /api/segments/range)"};
  }
  const double v = ReadNumber(b, "text");
  std::string message;
  field->check(v, message);
  std::vector<double> values = SegmentValues(s.list, index);
  values[static_cast<std::size_t>(field - fields.begin())] = v;
  if (message.empty() && values[9] > values[10]) message = QXLoadString(kQXMsgMinWidthAboveMax);
  if (!message.empty()) throw Refusal{message};
  SetSegmentValues(s.list, index, values);
  Invalidate(s);
  return State(s);
}

ApiReply SetSegmentRange(ViewState& s, const json& b) {
  const std::int32_t index = ReadIndex(b, s.list.GetNumDetectionSettings());
  const std::string bound = ReadString(b, "bound");
  if (bound != "x1" && bound != "x2") throw Refusal{"bound is x1 or x2"};
  const std::string text = ReadString(b, "text");
  double x = 0.0;
  std::string message;
  if (!DDX_TextSpace(text, x, message)) throw Refusal{message};
  std::vector<bool> answers;
  if (const auto it = b.find("answers"); it != b.end()) {
    if (!it->is_array()) throw Refusal{"answers must be a list of true or false"};
    for (const json& a : *it) {
      if (!a.is_boolean()) throw Refusal{"answers must be a list of true or false"};
      answers.push_back(a.get<bool>());
    }
  }
  // The rule runs on a copy; the state takes it only when the rule applied the bounds.
  QXPeakTableList list(s.list);
  std::int32_t precision = s.displayPrecision;
  int applied = 0;
  ReplaySink sink(answers);
  applied = ApplyRangeBound(s, list, index, bound == "x1", x, TypedPrecision(text), precision);
  if (sink.pending) {
    return Json({{"question", {{"id", sink.pending->first}, {"text", sink.pending->second}}}});
  }
  if (!sink.messages.empty()) {
    return Json({{"error", sink.messages.front()}, {"id", sink.messageId}}, 400);
  }
  s.displayPrecision = precision;
  if (applied) {
    s.list = std::move(list);
    Invalidate(s);
  }
  json out = StateJson(s);
  out["applied"] = applied != 0;
  return Json(out);
}

void ReadTargets(const json& b, PeakCalcBaseList& calc) {
  const auto it = b.find("targets");
  if (it == b.end()) return;
  if (!it->is_array()) throw Refusal{"targets must be a list"};
  while (calc.GetNumSettings() > 0) calc.DeleteSetting(0);
  for (const json& t : *it) {
    if (!t.is_object()) throw Refusal{"a target is {target, delta}"};
    const double target = ReadMin(t, "target", 0.0);
    const double delta = ReadNumber(t, "delta");
    if (!(delta > 0.0)) throw Refusal{QXLoadString(kQXMsgDeltaXNotPositive)};
    if (!calc.AddSetting(-1)) throw Refusal{QXLoadString(kQXMsgNoMoreRanges)};
    calc.GetSetting(calc.GetNumSettings() - 1)->SetPeakCalcSetting(target, delta);
  }
}

ApiReply SetSignalToNoise(ViewState& s, const json& b) {
  SNPeakCalc sn(s.sn);
  if (b.contains("baseline_x1")) sn.SetBaselineX1(ReadMin(b, "baseline_x1", 0.0));
  if (b.contains("baseline_x2")) sn.SetBaselineX2(ReadMin(b, "baseline_x2", 0.0));
  if (sn.GetBaselineX1() > sn.GetBaselineX2()) throw Refusal{QXLoadString(kQXMsgRangeReversed)};
  ReadTargets(b, sn);
  s.sn = std::move(sn);
  Invalidate(s);
  return State(s);
}

ApiReply SetResolutionCalc(ViewState& s, const json& b) {
  ResCalcPeakCalc res(s.res);
  if (b.contains("percent")) {
    const double p = ReadNumber(b, "percent");
    if (!(p >= 1.0 && p <= 99.0) || p != std::floor(p)) {
      throw Refusal{QXLoadString(kQXMsgHeightPercent)};
    }
    res.SetPercent(static_cast<std::int32_t>(p));
  }
  if (b.contains("min_intensity")) {
    res.SetMinIntensity(ReadWhole(b, "min_intensity", 0, std::numeric_limits<std::int32_t>::max()));
  }
  ReadTargets(b, res);
  s.res = std::move(res);
  Invalidate(s);
  return State(s);
}

// A label item from the request, checked as the label list dialog checks it.
QXUserPeakLabelItem ReadLabel(const ViewState& s, const json& b, std::int32_t replacing) {
  const std::string name = ReadString(b, "label");
  if (name.empty()) throw Refusal{QXLoadString(kQXMsgLabelNameEmpty)};
  const std::int32_t same = s.labels.FindLabelName(name);
  if (same >= 0 && same != replacing) throw Refusal{QXLoadString(kQXMsgLabelNameTaken)};
  const double x = ReadNumber(b, "x");
  if (!std::isfinite(x) || x == kQXUnsetValue) throw Refusal{QXLoadString(kQXMsgEnterNumber)};
  const double delta = ReadNumber(b, "delta");
  if (!(delta > 0.0)) throw Refusal{QXLoadString(kQXMsgDeltaXNotPositive)};
  int charge = 0;
  if (b.contains("charge")) {
    const double c = ReadNumber(b, "charge");
    if (!(c >= -1000 && c <= 1000) || c != std::floor(c)) {
      throw Refusal{QXLoadString(kQXMsgChargeOutOfRange)};
    }
    charge = static_cast<int>(c);
  }
  return QXUserPeakLabelItem(x, delta, name.c_str(), charge);
}

ApiReply AddLabel(ViewState& s, const json& b) {
  const QXUserPeakLabelItem item = ReadLabel(s, b, -1);
  std::int32_t index = -1;
  if (b.contains("index")) index = ReadIndex(b, s.labels.GetNumUserLabels() + 1);
  s.labels.AddUserLabel(item, index);
  Invalidate(s);
  return State(s);
}

ApiReply SetLabel(ViewState& s, const json& b) {
  const std::int32_t index = ReadIndex(b, s.labels.GetNumUserLabels());
  const QXUserPeakLabelItem item = ReadLabel(s, b, index);
  double x = 0.0, dx = 0.0;
  std::string name;
  int charge = 0;
  item.GetUserLabel(x, dx, name, charge);
  s.labels.SetUserLabel(index, name.c_str(), x, dx, charge);
  Invalidate(s);
  return State(s);
}

ApiReply DeleteLabel(ViewState& s, const json& b) {
  s.labels.DeleteUserLabel(ReadIndex(b, s.labels.GetNumUserLabels()));
  s.labels.SetLabelsChanged(1);
  Invalidate(s);
  return State(s);
}

ApiReply SetLabelOptions(ViewState& s, const json& b) {
  QXUserPkLabels labels(s.labels);
  bool match = s.matchLabels;
  if (b.contains("type")) labels.SetUserLabelType(ReadWhole(b, "type", 0, 1));
  if (b.contains("use_charge")) labels.SetUseChargeState(ReadBool(b, "use_charge") ? 1 : 0);
  if (b.contains("match")) match = ReadBool(b, "match");
  s.labels = std::move(labels);
  s.matchLabels = match;
  Invalidate(s);
  return State(s);
}

// A label file from a path on this machine, or its text sent by the page.
ApiReply LoadLabels(ViewState& s, const json& b) {
  const std::string path = b.contains("path") ? ReadString(b, "path") : std::string();
  // A file's lines become the ";"-terminated lines the library reads from text.
  std::string text;
  if (b.contains("text")) {
    for (char c : ReadString(b, "text")) {
      if (c != '\r') text += c == '\n' ? ';' : c;
    }
  }
  QXUserPkLabels labels;
  ReplaySink sink({});
  const int read = labels.LoadLabelsFromFile(path.c_str(), 1, text);
  if (!sink.messages.empty()) throw Refusal{sink.messages.front()};
  if (!read) throw Refusal{QXLoadString(kQXMsgLabelFileEmpty)};
  s.labels = std::move(labels);
  s.matchLabels = true;
  Invalidate(s);
  return State(s);
}

// Saves to a path on this machine, or gives the file's text for the page to download: the
// library writes it to a scratch file, so the download is byte for byte a label file.
ApiReply SaveLabels(ViewState& s, const json& b) {
  std::string path = b.contains("path") ? ReadString(b, "path") : std::string();
  const bool withCharge = b.contains("with_charge") ? ReadBool(b, "with_charge") : true;
  const bool download = path.empty();
  if (download) {
    path = (std::filesystem::temp_directory_path() /
            ("qxpeak-view-labels-" + std::to_string(std::random_device{}()) + ".lbs"))
               .string();
  }
  std::string text;
  ReplaySink sink({});
  s.labels.SaveLabelsToFile(withCharge ? 1 : 0, path.c_str(), 1, text);
  std::string file;
  if (download) {
    std::vector<char> bytes;
    std::string ignored;
    if (ReadWholeFile(path, std::size_t{64} << 20, bytes, ignored)) {
      file.assign(bytes.begin(), bytes.end());
    }
    std::error_code ec;
    std::filesystem::remove(path, ec);
  }
  if (!sink.messages.empty()) throw Refusal{sink.messages.front()};
  if (!download) return Json({{"saved", path}});
  return Json({{"text", file}});
}

ApiReply SetBinning(ViewState& s, const json& b) {
  double width = s.binWidth;
  if (b.contains("width")) {
    width = ReadNumber(b, "width");
    if (!(width > 0.0) || width == kQXUnsetValue) {
      throw Refusal{QXLoadString(kQXMsgBinWidthNotPositive)};
    }
  }
  const bool enabled = b.contains("enabled") ? ReadBool(b, "enabled") : s.binning;
  s.binWidth = width;
  s.binning = enabled;
  Invalidate(s);
  return State(s);
}

ApiReply SaveSettings(ViewState& s, const json& b) {
  const std::string path = ReadString(b, "path");
  if (s.automatic) {
    // A settings file holds segments; the automatic mode is its command line's options.
    throw Refusal{"the automatic mode is saved as its command line (" + CommandLine(s) +
                  "); 'Edit these as segments' gives segments to save"};
  }
  std::string error;
  const std::string ini = FormatSettingsIni(s.list, s.section, s.settingsTrace);
  if (!WriteOutputsTogether({{path, ini}}, error)) {
    throw Refusal{QXLoadString(kQXMsgSettingsNotSaved) + " " + error};
  }
  return Json({{"saved", path}});
}

ApiReply LoadSettings(ViewState& s, const json& b) {
  const std::string path = ReadString(b, "path");
  QXPeakTableList list;
  std::string error;
  if (!LoadSettingsFile(path, s.section, s.settingsTrace, list, error)) throw Refusal{error};
  s.list = std::move(list);
  s.automatic = false;
  Invalidate(s);
  return State(s);
}

ApiReply Signal(ViewState& s) {
  Detect(s);
  return Json({{"x", s.x}, {"y", s.y}});
}

}  // namespace

namespace {

// Every trace of `path` that can be searched; traces the reader refuses are left out.
bool LoadViewInput(const std::string& path, ViewInput& input, std::string& error) {
  TraceReader reader;
  if (!reader.Open(path, {}, error)) return false;
  for (Trace t; reader.Next(t);) {
    if (t.problem.empty()) input.traces.push_back(std::move(t));
  }
  if (!reader.Error().empty()) {
    error = reader.Error();
    return false;
  }
  if (input.traces.empty()) {
    error = path + ": no trace that can be searched";
    return false;
  }
  return true;
}

}  // namespace

bool OpenViewFile(const std::string& path, const std::string& settingsFile, ViewState& state,
                  std::string& error) {
  ViewState fresh;
  if (!LoadViewInput(path, fresh.input, error)) return false;
  fresh.path = path;
  if (settingsFile.empty()) {
    LoadDefaultSettings(fresh.section, fresh.settingsTrace, fresh.list);
  } else {
    if (!LoadSettingsFile(settingsFile, fresh.section, fresh.settingsTrace, fresh.list, error)) {
      return false;
    }
    fresh.automatic = false;
  }
  state = std::move(fresh);
  return true;
}

ApiReply HandleApi(ViewState& state, const std::string& method, const std::string& path,
                   const std::string& body) {
  if (method == "GET") {
    if (path == "/api/state") return State(state);
    if (path == "/api/signal") return Signal(state);
    if (path == "/api/settings.ini") {
      return {200, "text/plain; charset=utf-8",
              FormatSettingsIni(state.list, state.section, state.settingsTrace)};
    }
    return Error("no such API: GET " + path, 404);
  }
  static const std::map<std::string, Handler> posts = {
      {"/api/trace", SelectTrace},
      {"/api/mode", SetMode},
      {"/api/automatic", SetAutomatic},
      {"/api/automatic/to-segments", UseAutomaticSegments},
      {"/api/switches", SetSwitches},
      {"/api/segments/add", AddSegment},
      {"/api/segments/delete", DeleteSegment},
      {"/api/segments/field", SetSegmentField},
      {"/api/segments/range", SetSegmentRange},
      {"/api/calc/sn", SetSignalToNoise},
      {"/api/calc/res", SetResolutionCalc},
      {"/api/labels/add", AddLabel},
      {"/api/labels/set", SetLabel},
      {"/api/labels/delete", DeleteLabel},
      {"/api/labels/options", SetLabelOptions},
      {"/api/labels/load", LoadLabels},
      {"/api/labels/save", SaveLabels},
      {"/api/binning", SetBinning},
      {"/api/settings/save", SaveSettings},
      {"/api/settings/load", LoadSettings},
  };
  const auto it = posts.find(path);
  if (method != "POST" || it == posts.end()) {
    return Error("no such API: " + method + " " + path, 404);
  }
  json request = json::parse(body.empty() ? std::string("{}") : body, nullptr, false);
  if (request.is_discarded() || !request.is_object()) {
    return Error("the request is not a JSON object");
  }
  try {
    return it->second(state, request);
  } catch (const Refusal& refusal) {
    return Error(refusal.message);
  } catch (const json::exception& e) {
    return Error(e.what());
  }
}

}  // namespace qxpkutil::qxpeak::view
