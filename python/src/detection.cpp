// Detection bindings: the options struct, label lists, the classic settings read from an
// INI file, the call into DetectPeaks with the GIL released, and the peak table that holds
// the result as columns and runs the library's S/N and resolution calculators on it.
#include <cmath>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/stl.h>

#include "bindings.h"
#include "qxpkutil/detect/PeakDetection.h"
#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/platform/QXMessages.h"
#include "qxpkutil/settings/PeakCalc.h"
#include "qxpkutil/settings/SettingsFile.h"

namespace qxpkutil::python {

namespace {

// A detection result as Python sees it: always a successful one (failures raise).
struct PeakTable {
  std::vector<Peak> peaks;
  DetectReport report;
};

const char* WidthLawName(WidthLaw law) {
  switch (law) {
    case WidthLaw::kConstant: return "constant";
    case WidthLaw::kTof: return "tof";
    case WidthLaw::kOrbitrap: return "orbitrap";
    case WidthLaw::kFtIcr: return "ft-icr";
    case WidthLaw::kAuto: break;
  }
  return "auto";
}

// Collects what the library shows while a call runs, so that its own message becomes the
// Python exception's. The sink is process-wide: install it only while holding the GIL.
class CollectMessages : public QXMessageSink {
 public:
  CollectMessages() : m_previous(QXGetMessageSink()) { QXSetMessageSink(this); }
  ~CollectMessages() override { QXSetMessageSink(m_previous); }
  CollectMessages(const CollectMessages&) = delete;
  CollectMessages& operator=(const CollectMessages&) = delete;

  void ShowMessage(int, const std::string& text) override { m_text = text; }
  bool AskYesNo(int, const std::string&) override { return false; }
  const std::string& Text() const { return m_text; }

 private:
  QXMessageSink* m_previous;
  std::string m_text;
};

std::shared_ptr<QXUserPkLabels> LoadLabels(const std::string& path) {
  auto labels = std::make_shared<QXUserPkLabels>();
  CollectMessages messages;
  if (labels->LoadLabelsFromFile(path.c_str(), 1, std::string()) == 0) {
    std::string why = messages.Text().empty() ? "it holds no label" : messages.Text();
    throw py::value_error(path + ": cannot read labels: " + why);
  }
  return labels;
}

// Labels travel to Dask workers as their items and switches.
py::tuple LabelsState(const QXUserPkLabels& labels) {
  py::list items;
  for (std::int32_t i = 0; i < labels.GetNumUserLabels(); ++i) {
    std::string name;
    double x = 0.0, delta = 0.0;
    int charge = 0;
    labels.GetUserLabel(i, name, x, delta, charge);
    items.append(py::make_tuple(name, x, delta, charge));
  }
  return py::make_tuple(items, labels.GetUserLabelType(), labels.GetUseChargeState());
}

std::shared_ptr<QXUserPkLabels> LabelsFromState(const py::tuple& state) {
  if (state.size() != 3) throw py::value_error("not a pickled label list");
  auto labels = std::make_shared<QXUserPkLabels>();
  for (py::handle item : state[0].cast<py::list>()) {
    const auto [name, x, delta, charge] = item.cast<std::tuple<std::string, double, double, int>>();
    labels->AddUserLabel(QXUserPeakLabelItem(x, delta, name.c_str(), charge), -1);
  }
  labels->SetUserLabelType(state[1].cast<int>());
  labels->SetUseChargeState(state[2].cast<int>());
  return labels;
}

// The classic segments and switches saved in the INI layout QXPeakTableList persists
// ("[<section>\PeakSettingsTrace-<trace>]"), as `qxpeak settings` writes them, checked as
// qxpeak checks them. The library's loader lends the file to the process-wide profile; the
// GIL keeps other Python threads out meanwhile.
void LoadSettings(DetectOptions& options, const std::string& path, const std::string& section,
                  int trace) {
  constexpr std::size_t kMaxBytes = std::size_t{64} << 20;  // as qxpeak reads settings files
  std::ifstream file(path, std::ios::binary);
  std::string text;
  char chunk[1 << 16];
  while (file && text.size() <= kMaxBytes) {
    file.read(chunk, sizeof chunk);
    text.append(chunk, static_cast<std::size_t>(file.gcount()));
  }
  if (!file.eof()) {
    throw py::value_error(path + (text.size() > kMaxBytes ? ": larger than 64 MiB"
                                                          : ": cannot be read"));
  }
  QXPeakTableList list;
  std::string error;
  if (!LoadSettingsText(text, path, section, trace, list, error)) throw py::value_error(error);
  options.classic = std::move(list);
}

PeakTable Detect(py::handle x, py::handle y, const DetectOptions& options) {
  const DetectOptions local = options;  // the caller's object may change while we run
  PeakList found;
  // The count family runs on the caller's buffers when they are contiguous.
  if (py::isinstance<py::array_t<float>>(x) && py::isinstance<py::array_t<std::uint32_t>>(y)) {
    auto xs = Vector<float>(x, "x");
    auto ys = Vector<std::uint32_t>(y, "y");
    py::gil_scoped_release release;
    found = DetectPeaks(Span(xs), Span(ys), local);
  } else {
    auto xs = Vector<double>(x, "x");
    auto ys = Vector<double>(y, "y");
    py::gil_scoped_release release;
    found = DetectPeaks(Span(xs), Span(ys), local);
  }
  if (!found.ok()) throw py::value_error(found.message);
  return {std::move(found.peaks), found.report};
}

template <class T>
py::array_t<T> Column(const std::vector<Peak>& peaks, T Peak::*field) {
  py::array_t<T> column(static_cast<py::ssize_t>(peaks.size()));
  T* out = column.mutable_data();
  for (const Peak& p : peaks) *out++ = p.*field;
  return column;
}

py::dict Columns(const PeakTable& t) {
  py::dict c;
  c["apex_x"] = Column(t.peaks, &Peak::apex_x);
  c["apex_y"] = Column(t.peaks, &Peak::apex_y);
  c["centroid_x"] = Column(t.peaks, &Peak::centroid_x);
  c["left_x"] = Column(t.peaks, &Peak::left_x);
  c["right_x"] = Column(t.peaks, &Peak::right_x);
  c["apex_index"] = Column(t.peaks, &Peak::apex_index);
  c["left_index"] = Column(t.peaks, &Peak::left_index);
  c["right_index"] = Column(t.peaks, &Peak::right_index);
  c["area"] = Column(t.peaks, &Peak::area);
  c["height"] = Column(t.peaks, &Peak::height);
  c["baseline"] = Column(t.peaks, &Peak::baseline);
  c["fwhm"] = Column(t.peaks, &Peak::fwhm);
  c["noise"] = Column(t.peaks, &Peak::noise);
  c["snr"] = Column(t.peaks, &Peak::snr);
  c["charge"] = Column(t.peaks, &Peak::charge);
  c["marks"] = Column(t.peaks, &Peak::marks);
  py::list labels;
  for (const Peak& p : t.peaks) labels.append(p.label);
  c["label"] = labels;
  return c;
}

py::dict Report(const PeakTable& t) {
  py::dict r;
  r["noise"] = t.report.noise;
  r["fwhm_at_median_x"] = t.report.fwhm_at_median_x;
  r["points_per_fwhm"] = t.report.points_per_fwhm;
  r["width_law"] = WidthLawName(t.report.width_law);
  r["segments"] = t.report.segments;
  return r;
}

// The peaks as the library's own records, for the calculators; `n` points of data.
QXPeakTable Records(const PeakTable& t, const double* y, std::size_t n) {
  QXPeakTable table;
  for (const Peak& p : t.peaks) {
    const auto inside = [n](std::int32_t i) { return i >= 0 && static_cast<std::size_t>(i) < n; };
    if (!inside(p.apex_index) || !inside(p.left_index) || !inside(p.right_index)) {
      throw py::value_error("the peaks were not found on these arrays (an index is outside them)");
    }
    QXPeakTableElement e(p.apex_x, p.apex_y, static_cast<std::uint32_t>(p.apex_index));
    e.m_dCentroidX = std::isnan(p.centroid_x) ? p.apex_x : p.centroid_x;
    e.m_dArea = p.area;
    e.m_dLeftX = p.left_x;
    e.m_dLeftY = y[p.left_index];
    e.m_nLeftIndex = static_cast<std::uint32_t>(p.left_index);
    e.m_dRightX = p.right_x;
    e.m_dRightY = y[p.right_index];
    e.m_nRightIndex = static_cast<std::uint32_t>(p.right_index);
    e.m_nCharge = p.charge;
    e.m_dwFlags = p.marks;
    table.AddPeak(e);
  }
  return table;
}

using Targets = std::vector<std::pair<double, double>>;

template <class Calc>
void SetTargets(Calc& calc, const Targets& targets) {
  for (const auto& [mass, delta] : targets) {
    calc.AddSetting(-1);
    calc.GetSetting(calc.GetNumSettings() - 1)->SetPeakCalcSetting(mass, delta);
  }
}

template <class Calc>
py::list Results(const Calc& calc) {
  py::list out;
  for (std::int32_t i = 0; i < calc.GetNumSettings(); ++i) {
    const PeakCalcBase* s = calc.GetSetting(i);
    out.append(py::make_tuple(s->GetFoundX(), s->GetResult()));
  }
  return out;
}

py::list SignalToNoise(const PeakTable& t, py::handle x, py::handle y, const Targets& targets,
                       std::pair<double, double> baseline) {
  auto xs = Vector<double>(x, "x");
  auto ys = Vector<double>(y, "y");
  if (xs.size() != ys.size()) throw py::value_error("x and y differ in length");
  QXPeakTable table = Records(t, ys.data(), static_cast<std::size_t>(ys.size()));
  SNPeakCalc calc;
  SetTargets(calc, targets);
  calc.SetBaselineX1(baseline.first);
  calc.SetBaselineX2(baseline.second);
  const std::uint32_t n = Count(static_cast<std::size_t>(xs.size()), "x");
  if (table.DoSignalToNoiseOnList(xs.data(), ys.data(), n, &calc) == 0 && !targets.empty() &&
      !t.peaks.empty()) {
    throw py::value_error("the baseline range holds too few points to measure the noise");
  }
  return Results(calc);
}

py::list Resolution(const PeakTable& t, py::handle x, py::handle y, const Targets& targets,
                    int percent, int minIntensity) {
  auto xs = Vector<double>(x, "x");
  auto ys = Vector<double>(y, "y");
  if (xs.size() != ys.size()) throw py::value_error("x and y differ in length");
  QXPeakTable table = Records(t, ys.data(), static_cast<std::size_t>(ys.size()));
  ResCalcPeakCalc calc;
  SetTargets(calc, targets);
  calc.SetPercent(percent);
  calc.SetMinIntensity(minIntensity);
  table.DoResCalcOnList(xs.data(), ys.data(), &calc);
  return Results(calc);
}

}  // namespace

void BindDetection(py::module_& m) {
  py::enum_<SignalKind>(m, "SignalKind")
      .value("spectrum", SignalKind::kSpectrum)
      .value("chromatogram", SignalKind::kChromatogram);
  py::enum_<WidthLaw>(m, "WidthLaw")
      .value("auto", WidthLaw::kAuto)
      .value("constant", WidthLaw::kConstant)
      .value("tof", WidthLaw::kTof)
      .value("orbitrap", WidthLaw::kOrbitrap)
      .value("ft_icr", WidthLaw::kFtIcr);

  py::class_<QXUserPkLabels, std::shared_ptr<QXUserPkLabels>>(
      m, "Labels",
      "A list of user labels (name, x, delta x, charge), matched onto peaks by find_peaks.")
      .def(py::init<>())
      .def_static("load", &LoadLabels, py::arg("path"),
                  "Reads a label file (.lbs/.lbc); ValueError when it holds no label.")
      .def("__len__", &QXUserPkLabels::GetNumUserLabels)
      .def(py::pickle(&LabelsState, &LabelsFromState))
      .def(
          "__getitem__",
          [](const QXUserPkLabels& l, std::int32_t i) {
            if (i < 0) i += l.GetNumUserLabels();
            std::string name;
            double x = 0.0, delta = 0.0;
            int charge = 0;
            if (l.GetUserLabel(i, name, x, delta, charge) == 0) throw py::index_error();
            return py::make_tuple(name, x, delta, charge);
          },
          "(name, x, delta_x, charge) of label `i`.")
      .def(
          "add",
          [](QXUserPkLabels& l, const std::string& name, double x, double delta, int charge) {
            l.AddUserLabel(QXUserPeakLabelItem(x, delta, name.c_str(), charge), -1);
          },
          py::arg("name"), py::arg("x"), py::arg("delta_x"), py::arg("charge") = 0,
          "Appends a label matching the peak within x +- delta_x.")
      .def_property(
          "difference", [](const QXUserPkLabels& l) { return l.GetUserLabelType() == 1; },
          [](QXUserPkLabels& l, bool d) { l.SetUserLabelType(d ? 1 : 0); },
          "True: labels name spacings between consecutive peaks, not positions.")
      .def_property(
          "use_charge", [](const QXUserPkLabels& l) { return l.GetUseChargeState() != 0; },
          [](QXUserPkLabels& l, bool u) { l.SetUseChargeState(u ? 1 : 0); },
          "True: a label matches only peaks of its charge.");

  py::class_<DetectOptions>(m, "DetectOptions",
                            "The options of one search; find_peaks builds one from keywords.")
      .def(py::init<>())
      .def_readwrite("kind", &DetectOptions::kind)
      .def_readwrite("snr", &DetectOptions::snr)
      .def_readwrite("fwhm", &DetectOptions::fwhm)
      .def_readwrite("fwhm_at", &DetectOptions::fwhm_at)
      .def_readwrite("resolution", &DetectOptions::resolution)
      .def_readwrite("resolution_at", &DetectOptions::resolution_at)
      .def_readwrite("width_law", &DetectOptions::width_law)
      .def_readwrite("max_charge", &DetectOptions::max_charge)
      .def_readwrite("gauss_refine", &DetectOptions::gauss_refine)
      .def_readwrite("noise_region", &DetectOptions::noise_region)
      .def_property(
          "labels",
          [](const DetectOptions& o) -> std::shared_ptr<QXUserPkLabels> {
            if (!o.labels) return nullptr;
            return std::make_shared<QXUserPkLabels>(*o.labels);
          },
          [](DetectOptions& o, const std::shared_ptr<QXUserPkLabels>& l) {
            // A copy, so that later edits of the caller's list never race a search.
            o.labels = l ? std::make_shared<const QXUserPkLabels>(*l) : nullptr;
          })
      .def_property_readonly(
          "classic", [](const DetectOptions& o) { return o.classic.has_value(); },
          "True when classic segments were loaded (load_settings).")
      .def(
          "parse_fwhm",
          [](DetectOptions& o, const std::string& text) {
            std::string error;
            if (!ParseFwhm(text, o, error)) throw py::value_error(error);
          },
          py::arg("text"), "Sets fwhm and fwhm_at from text such as '0.01@400', '4s', '20ppm'.")
      .def("load_settings", &LoadSettings, py::arg("path"), py::arg("section") = "qxpeak",
           py::arg("trace") = 0,
           "Runs the classic segments saved in an INI file ('qxpeak settings' writes one); "
           "ValueError with qxpeak's message for a file qxpeak refuses.");

  py::class_<PeakTable>(m, "PeakTable", "The peaks of one search, in apex-x order.")
      .def("__len__", [](const PeakTable& t) { return t.peaks.size(); })
      .def("columns", &Columns, "Every peak field as a numpy array (label: a list of str).")
      .def_property_readonly("report", &Report, "What the automatic mode chose.")
      .def("signal_to_noise", &SignalToNoise, py::arg("x"), py::arg("y"), py::arg("targets"),
           py::arg("baseline"),
           "For each (x, delta) target, (found apex x, S/N) of the most intense peak within "
           "x +- delta, baseline and noise measured over the `baseline` x range; (0.0, -1.0) "
           "where there is no peak.")
      .def("resolution", &Resolution, py::arg("x"), py::arg("y"), py::arg("targets"),
           py::arg("percent") = 50, py::arg("min_intensity") = 50,
           "For each (x, delta) target, (found apex x, resolution) of the most intense peak "
           "within x +- delta: apex x over the width at `percent` of the height, -1 below "
           "`min_intensity` or where it cannot be measured.");

  m.def("detect", &Detect, py::arg("x"), py::arg("y"), py::arg("options"),
        "The peaks of one trace (DetectPeaks); float32 x with uint32 y runs the count family.");
}

}  // namespace qxpkutil::python
