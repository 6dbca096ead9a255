#include "tools/qxpeak/output/peak_writers.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <nlohmann/json.hpp>

#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "qxpkutil/platform/QXTypes.h"

namespace qxpkutil::qxpeak {

namespace {

using Json = nlohmann::ordered_json;

bool Known(double v) { return std::isfinite(v) && v != kQXUnsetValue; }

void AppendNumber(std::string& out, double v) {
  if (!Known(v)) return;
  char buffer[32];
  const auto r = std::to_chars(buffer, buffer + sizeof buffer, v);
  out.append(buffer, r.ptr);
}

template <class Int>
void AppendInt(std::string& out, Int v) {
  char buffer[24];
  const auto r = std::to_chars(buffer, buffer + sizeof buffer, v);
  out.append(buffer, r.ptr);
}

void AppendText(std::string& out, const std::string& text) {
  for (const char c : text) out += (c == '\t' || c == '\n' || c == '\r') ? ' ' : c;
}

Json JsonNumber(double v) { return Known(v) ? Json(v) : Json(nullptr); }

const char* KindName(Trace::Kind kind) {
  return kind == Trace::Kind::kChromatogram ? "chromatogram" : "spectrum";
}

// A peak's values in output order, with their TSV column names; the JSON keys are the
// same names, and so are the fields of the library's Peak.
struct Field {
  const char* name;
  double (*get)(const Peak&);
  bool integer = false;  // an index or the charge: a whole number in JSON
};
constexpr Field kFields[] = {
    {"apex_x", [](const Peak& p) { return p.apex_x; }},
    {"apex_y", [](const Peak& p) { return p.apex_y; }},
    {"apex_index", [](const Peak& p) { return static_cast<double>(p.apex_index); }, true},
    {"left_x", [](const Peak& p) { return p.left_x; }},
    {"left_index", [](const Peak& p) { return static_cast<double>(p.left_index); }, true},
    {"right_x", [](const Peak& p) { return p.right_x; }},
    {"right_index", [](const Peak& p) { return static_cast<double>(p.right_index); }, true},
    {"centroid_x", [](const Peak& p) { return p.centroid_x; }},
    {"area", [](const Peak& p) { return p.area; }},
    {"height", [](const Peak& p) { return p.height; }},
    {"baseline", [](const Peak& p) { return p.baseline; }},
    {"fwhm", [](const Peak& p) { return p.fwhm; }},
    {"noise", [](const Peak& p) { return p.noise; }},
    {"snr", [](const Peak& p) { return p.snr; }},
    {"charge", [](const Peak& p) { return static_cast<double>(p.charge); }, true},
};

const char* XUnit(const Trace& t) { return t.kind == Trace::Kind::kChromatogram ? "s" : "m/z"; }

std::string FlagsHex(std::uint32_t flags) {
  char buffer[16];
  std::snprintf(buffer, sizeof buffer, "0x%X", flags);
  return buffer;
}

}  // namespace

std::string MarkNames(std::uint32_t flags) {
  static constexpr std::pair<std::uint32_t, const char*> kMarks[] = {
      {kQXPeakNormal, "normal"},
      {kQXPeakSeriesLow, "series_low"},
      {kQXPeakSeriesMostIntense, "series_top"},
      {kQXPeakLabelled, "labelled"},
      {kQXPeakChargeAssigned, "charged"}};
  std::string names;
  for (const auto& [bit, name] : kMarks) {
    if ((flags & bit) == 0) continue;
    if (!names.empty()) names += ',';
    names += name;
  }
  return names;
}

std::string TsvHeader(bool withResolution) {
  std::string out = "trace\tid\tscan\trt_s\tx_unit";
  for (const Field& f : kFields) (out += '\t') += f.name;
  out += "\tflags\tmarks";
  if (withResolution) out += "\tresolution";
  out += "\tlabel\n";
  return out;
}

void AppendTsvRows(std::string& out, const Trace& trace, const TracePeaks& found,
                   bool withResolution) {
  const std::vector<Peak>& list = found.peaks;
  for (std::size_t i = 0; i < list.size(); ++i) {
    const Peak& p = list[i];
    AppendInt(out, trace.index);
    out += '\t';
    AppendText(out, trace.id);
    out += '\t';
    if (trace.scan_number >= 0) AppendInt(out, trace.scan_number);
    out += '\t';
    AppendNumber(out, trace.rt);
    out += '\t';
    out += XUnit(trace);
    for (const Field& f : kFields) {
      out += '\t';
      // A charge of 0 means none was assigned: blank like every value not measured.
      if (!(std::string_view(f.name) == "charge" && p.charge == 0)) AppendNumber(out, f.get(p));
    }
    out += '\t';
    out += FlagsHex(p.marks);
    out += '\t';
    out += MarkNames(p.marks);
    if (withResolution) {
      out += '\t';
      if (i < found.resolution.size() && found.resolution[i] >= 0) {
        AppendInt(out, found.resolution[i]);
      }
    }
    out += '\t';
    AppendText(out, p.label);
    out += '\n';
  }
}

std::string FormatTsv(const std::vector<Trace>& traces, const std::vector<TracePeaks>& peaks) {
  bool withRes = false;
  for (const TracePeaks& p : peaks) withRes = withRes || !p.resolution.empty();
  std::string out = TsvHeader(withRes);
  for (std::size_t t = 0; t < traces.size() && t < peaks.size(); ++t) {
    AppendTsvRows(out, traces[t], peaks[t], withRes);
  }
  return out;
}

std::string JsonHead(const std::string& inputName) {
  Json name = inputName;
  return "{\"input\": " + name.dump(-1, ' ', false, Json::error_handler_t::replace) +
         ",\n \"traces\": [";
}

std::string JsonTrace(const Trace& trace, const TracePeaks& result) {
  Json j;
  j["index"] = trace.index;
  j["kind"] = KindName(trace.kind);
  j["id"] = trace.id;
  j["scan"] = trace.scan_number >= 0 ? Json(trace.scan_number) : Json(nullptr);
  j["ms_level"] = trace.ms_level > 0 ? Json(trace.ms_level) : Json(nullptr);
  j["rt_s"] = JsonNumber(trace.rt);
  j["x_unit"] = XUnit(trace);
  j["centroided_input"] = trace.centroided;
  j["points"] = trace.x.size();
  j["skipped"] = result.skipped.empty() ? Json(nullptr) : Json(result.skipped);
  Json& array = j["peaks"] = Json::array();
  for (std::size_t i = 0; i < result.peaks.size(); ++i) {
    const Peak& p = result.peaks[i];
    Json peak;
    for (const Field& f : kFields) {
      peak[f.name] = f.integer ? Json(static_cast<std::int64_t>(f.get(p))) : JsonNumber(f.get(p));
    }
    if (p.charge == 0) peak["charge"] = nullptr;
    peak["flags"] = p.marks;
    peak["marks"] = MarkNames(p.marks);
    if (!result.resolution.empty()) {
      const std::int32_t r = i < result.resolution.size() ? result.resolution[i] : -1;
      peak["resolution"] = r >= 0 ? Json(r) : Json(nullptr);
    }
    peak["label"] = p.label;
    array.push_back(std::move(peak));
  }
  return j.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string FormatJson(const std::string& inputName, const std::vector<Trace>& traces,
                       const std::vector<TracePeaks>& peaks) {
  std::string out = JsonHead(inputName);
  for (std::size_t t = 0; t < traces.size() && t < peaks.size(); ++t) {
    out += t == 0 ? "\n" : ",\n";
    out += JsonTrace(traces[t], peaks[t]);
  }
  return out + kJsonTail;
}

std::string FormatDump(const std::vector<Trace>& traces, const std::vector<TracePeaks>& peaks) {
  std::string out;
  for (std::size_t t = 0; t < traces.size() && t < peaks.size(); ++t) {
    AppendDump(out, traces[t], peaks[t]);
  }
  return out;
}

void AppendDump(std::string& out, const Trace& trace, const TracePeaks& found) {
  const auto yAt = [&trace](std::int32_t i) {
    return i >= 0 && static_cast<std::size_t>(i) < trace.y.size()
               ? trace.y[static_cast<std::size_t>(i)]
               : 0.0;
  };
  // The library's table, rebuilt from the values; what the Peak does not carry (the
  // centroid region) is written as 0, and an unmeasured centroid as 0 as the table has it.
  QXPeakTable table;
  for (const Peak& p : found.peaks) {
    auto e = std::make_unique<QXPeakTableElement>();
    e->m_dApexX = p.apex_x;
    e->m_dApexY = p.apex_y;
    e->m_nApexIndex = static_cast<std::uint32_t>(p.apex_index);
    e->m_dLeftX = p.left_x;
    e->m_dLeftY = yAt(p.left_index);
    e->m_nLeftIndex = static_cast<std::uint32_t>(p.left_index);
    e->m_dRightX = p.right_x;
    e->m_dRightY = yAt(p.right_index);
    e->m_nRightIndex = static_cast<std::uint32_t>(p.right_index);
    e->m_dCentroidX = std::isfinite(p.centroid_x) ? p.centroid_x : 0.0;
    e->m_dArea = p.area;
    e->m_nCharge = p.charge;
    e->m_dwFlags = p.marks;
    e->m_strLabel = p.label;
    table.AddPeak(e.release());
  }
  out += table.DumpToText();
}

}  // namespace qxpkutil::qxpeak
