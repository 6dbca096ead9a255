#include "tools/qxpeak/peak_writers.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <nlohmann/json.hpp>

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

// The record's values in output order, with their TSV column names; the JSON keys are the
// same names.
struct Field {
  const char* name;
  double (*get)(const QXPeakTableElement&);
  bool integer = false;  // an index or the charge: a whole number in JSON
};
constexpr Field kFields[] = {
    {"apex_x", [](const QXPeakTableElement& p) { return p.m_dApexX; }},
    {"apex_y", [](const QXPeakTableElement& p) { return p.m_dApexY; }},
    {"apex_index", [](const QXPeakTableElement& p) { return static_cast<double>(p.m_nApexIndex); },
     true},
    {"left_x", [](const QXPeakTableElement& p) { return p.m_dLeftX; }},
    {"left_y", [](const QXPeakTableElement& p) { return p.m_dLeftY; }},
    {"left_index", [](const QXPeakTableElement& p) { return static_cast<double>(p.m_nLeftIndex); },
     true},
    {"right_x", [](const QXPeakTableElement& p) { return p.m_dRightX; }},
    {"right_y", [](const QXPeakTableElement& p) { return p.m_dRightY; }},
    {"right_index",
     [](const QXPeakTableElement& p) { return static_cast<double>(p.m_nRightIndex); }, true},
    {"centroid_x", [](const QXPeakTableElement& p) { return p.m_dCentroidX; }},
    {"area", [](const QXPeakTableElement& p) { return p.m_dArea; }},
    {"centroid_left_x", [](const QXPeakTableElement& p) { return p.m_dCentroidLeftX; }},
    {"centroid_left_y", [](const QXPeakTableElement& p) { return p.m_dCentroidLeftY; }},
    {"centroid_right_x", [](const QXPeakTableElement& p) { return p.m_dCentroidRightX; }},
    {"centroid_right_y", [](const QXPeakTableElement& p) { return p.m_dCentroidRightY; }},
    {"charge", [](const QXPeakTableElement& p) { return static_cast<double>(p.m_nCharge); }, true},
};

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

std::string FormatTsv(const std::vector<Trace>& traces, const std::vector<TracePeaks>& peaks) {
  bool withSn = false, withRes = false;
  for (const TracePeaks& p : peaks) {
    withSn = withSn || !p.signalToNoise.empty();
    withRes = withRes || !p.resolution.empty();
  }
  std::string out = "trace\tid\tscan\trt";
  for (const Field& f : kFields) (out += '\t') += f.name;
  out += "\tflags\tmarks";
  if (withSn) out += "\tsignal_to_noise";
  if (withRes) out += "\tresolution";
  out += "\tlabel\n";
  for (std::size_t t = 0; t < traces.size() && t < peaks.size(); ++t) {
    const Trace& trace = traces[t];
    const QXPeakTable& table = peaks[t].table;
    for (long i = 0; i < table.GetNumPeaks(); ++i) {
      const QXPeakTableElement& p = *table.GetPeak(i);
      AppendInt(out, trace.index);
      out += '\t';
      AppendText(out, trace.id);
      out += '\t';
      if (trace.scan_number >= 0) AppendInt(out, trace.scan_number);
      out += '\t';
      AppendNumber(out, trace.rt);
      for (const Field& f : kFields) {
        out += '\t';
        AppendNumber(out, f.get(p));
      }
      out += '\t';
      out += FlagsHex(p.m_dwFlags);
      out += '\t';
      out += MarkNames(p.m_dwFlags);
      const auto index = static_cast<std::size_t>(i);
      if (withSn) {
        out += '\t';
        if (index < peaks[t].signalToNoise.size()) AppendNumber(out, peaks[t].signalToNoise[index]);
      }
      if (withRes) {
        out += '\t';
        if (index < peaks[t].resolution.size() && peaks[t].resolution[index] >= 0) {
          AppendInt(out, peaks[t].resolution[index]);
        }
      }
      out += '\t';
      AppendText(out, p.m_strLabel);
      out += '\n';
    }
  }
  return out;
}

std::string FormatJson(const std::string& inputName, const std::vector<Trace>& traces,
                       const std::vector<TracePeaks>& peaks) {
  Json root;
  root["input"] = inputName;
  Json& list = root["traces"] = Json::array();
  for (std::size_t t = 0; t < traces.size() && t < peaks.size(); ++t) {
    const Trace& trace = traces[t];
    const TracePeaks& result = peaks[t];
    Json j;
    j["index"] = trace.index;
    j["kind"] = KindName(trace.kind);
    j["id"] = trace.id;
    j["scan"] = trace.scan_number >= 0 ? Json(trace.scan_number) : Json(nullptr);
    j["ms_level"] = trace.ms_level > 0 ? Json(trace.ms_level) : Json(nullptr);
    j["rt_seconds"] = JsonNumber(trace.rt);
    j["centroided_input"] = trace.centroided;
    j["points"] = trace.x.size();
    Json& array = j["peaks"] = Json::array();
    for (long i = 0; i < result.table.GetNumPeaks(); ++i) {
      const QXPeakTableElement& p = *result.table.GetPeak(i);
      const auto index = static_cast<std::size_t>(i);
      Json peak;
      for (const Field& f : kFields) {
        peak[f.name] = f.integer ? Json(static_cast<std::int64_t>(f.get(p))) : JsonNumber(f.get(p));
      }
      peak["flags"] = p.m_dwFlags;
      peak["marks"] = MarkNames(p.m_dwFlags);
      if (!result.signalToNoise.empty()) {
        peak["signal_to_noise"] =
            JsonNumber(index < result.signalToNoise.size() ? result.signalToNoise[index] : NAN);
      }
      if (!result.resolution.empty()) {
        const std::int32_t r = index < result.resolution.size() ? result.resolution[index] : -1;
        peak["resolution"] = r >= 0 ? Json(r) : Json(nullptr);
      }
      peak["label"] = p.m_strLabel;
      array.push_back(std::move(peak));
    }
    list.push_back(std::move(j));
  }
  return root.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::string FormatDump(const std::vector<TracePeaks>& peaks) {
  std::string out;
  for (const TracePeaks& p : peaks) out += p.table.DumpToText();
  return out;
}

}  // namespace qxpkutil::qxpeak
