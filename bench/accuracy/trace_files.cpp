#include "bench/accuracy/trace_files.h"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>

namespace qxpkutil::accuracy {

namespace {

// The shortest text that reads back to the same double.
void Append(std::string& out, double v) {
  char text[32];
  const auto r = std::to_chars(text, text + sizeof text, v);
  out.append(text, r.ptr);
}

std::vector<std::string> SplitTabs(const std::string& line) {
  std::vector<std::string> cells;
  std::size_t from = 0;
  while (true) {
    const std::size_t tab = line.find('\t', from);
    cells.push_back(line.substr(from, tab - from));
    if (tab == std::string::npos) break;
    from = tab + 1;
  }
  if (!cells.empty() && !cells.back().empty() && cells.back().back() == '\r') {
    cells.back().pop_back();
  }
  return cells;
}

// A number, or NaN for an empty or unreadable cell.
double Number(const std::string& cell) {
  double v = kUnknown;
  const auto r = std::from_chars(cell.data(), cell.data() + cell.size(), v);
  return r.ec == std::errc() ? v : kUnknown;
}

bool WriteFile(const std::filesystem::path& path, const std::string& text, std::string& error) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) error = "cannot write " + path.string();
  return static_cast<bool>(file);
}

// Reads `path` into its header's column indexes and the data lines split at tabs.
bool ReadTable(const std::string& path, std::map<std::string, std::size_t>& columns,
               std::vector<std::vector<std::string>>& rows, std::string& error) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!file || !std::getline(file, line)) {
    error = "cannot read " + path;
    return false;
  }
  const std::vector<std::string> header = SplitTabs(line);
  for (std::size_t i = 0; i < header.size(); ++i) columns.emplace(header[i], i);
  while (std::getline(file, line)) {
    if (!line.empty() && line != "\r") rows.push_back(SplitTabs(line));
  }
  return true;
}

const char* const kTruthColumns[] = {"x",   "height",   "area",     "integral", "fwhm",
                                     "charge", "snr", "resolved", "optional", "charge_scored"};

}  // namespace

bool WriteTrace(const std::string& dir, const TraceSet& set, const Trace& trace,
                std::string& error) {
  const std::filesystem::path folder = std::filesystem::path(dir) / set.name;
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  if (ec) {
    error = "cannot create " + folder.string() + ": " + ec.message();
    return false;
  }
  std::string signal;
  for (std::size_t i = 0; i < trace.x.size(); ++i) {
    Append(signal, trace.x[i]);
    signal += '\t';
    Append(signal, trace.y[i]);
    signal += '\n';
  }
  std::string truth;
  for (const char* c : kTruthColumns) (truth += truth.empty() ? "" : "\t") += c;
  truth += '\n';
  for (const TruthPeak& p : trace.truth) {
    for (const double v : {p.x, p.height, p.area, p.integral, p.fwhm}) {
      Append(truth, v);
      truth += '\t';
    }
    truth += std::to_string(p.charge) + '\t';
    Append(truth, p.snr);
    for (const bool b : {p.resolved, p.optional, p.charge_scored}) truth += b ? "\t1" : "\t0";
    truth += '\n';
  }
  return WriteFile(folder / (trace.name + ".txt"), signal, error) &&
         WriteFile(folder / (trace.name + ".truth.tsv"), truth, error);
}

bool WriteSetList(const std::string& dir, const std::vector<TraceSet>& sets, std::string& error) {
  std::string text = "set\tkind\tdescription\n";
  for (const TraceSet& s : sets) {
    text += s.name + (s.chromatogram ? "\tchromatogram\t" : "\tspectrum\t") + s.description + '\n';
  }
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  return WriteFile(std::filesystem::path(dir) / "sets.tsv", text, error);
}

bool ReadTruth(const std::string& path, std::vector<TruthPeak>& truth, std::string& error) {
  std::map<std::string, std::size_t> columns;
  std::vector<std::vector<std::string>> rows;
  if (!ReadTable(path, columns, rows, error)) return false;
  for (const char* c : kTruthColumns) {
    if (!columns.count(c)) {
      error = path + ": no column " + c;
      return false;
    }
  }
  std::vector<TruthPeak> read;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const auto& row = rows[r];
    if (row.size() < columns.size()) {
      error = path + ": line " + std::to_string(r + 2) + " is short";
      return false;
    }
    auto at = [&](const char* c) { return Number(row[columns.at(c)]); };
    TruthPeak p;
    p.x = at("x");
    p.height = at("height");
    p.area = at("area");
    p.integral = at("integral");
    p.fwhm = at("fwhm");
    p.charge = static_cast<int>(at("charge"));
    p.snr = at("snr");
    p.resolved = at("resolved") != 0.0;
    p.optional = at("optional") != 0.0;
    p.charge_scored = at("charge_scored") != 0.0;
    if (!std::isfinite(p.x) || !(p.fwhm > 0.0)) {
      error = path + ": line " + std::to_string(r + 2) + " has no position or width";
      return false;
    }
    read.push_back(p);
  }
  truth = std::move(read);
  return true;
}

bool ReadFound(const std::string& path, std::vector<Detection>& found, std::string& error) {
  std::map<std::string, std::size_t> columns;
  std::vector<std::vector<std::string>> rows;
  if (!ReadTable(path, columns, rows, error)) return false;
  if (!columns.count("apex_x") && !columns.count("centroid_x")) {
    error = path + ": neither an apex_x nor a centroid_x column";
    return false;
  }
  auto cell = [&](const std::vector<std::string>& row, const char* name) {
    const auto c = columns.find(name);
    return c == columns.end() || c->second >= row.size() ? kUnknown : Number(row[c->second]);
  };
  std::vector<Detection> read;
  for (std::size_t r = 0; r < rows.size(); ++r) {
    const auto& row = rows[r];
    const double apex = cell(row, "apex_x"), centroid = cell(row, "centroid_x");
    Detection d;
    const bool unsetCentroid = centroid == 0.0 && std::isfinite(apex) && apex != 0.0;
    d.x = std::isfinite(centroid) && !unsetCentroid ? centroid : apex;
    if (!std::isfinite(d.x)) {
      error = path + ": line " + std::to_string(r + 2) + " has no position";
      return false;
    }
    d.area = cell(row, "area");
    d.left = cell(row, "left_x");
    d.right = cell(row, "right_x");
    d.height = cell(row, "height");
    d.fwhm = cell(row, "fwhm");
    d.snr = columns.count("snr") ? cell(row, "snr") : cell(row, "signal_to_noise");
    const double charge = cell(row, "charge");
    d.charge = std::isfinite(charge) ? static_cast<int>(charge) : 0;
    read.push_back(d);
  }
  found = std::move(read);
  return true;
}

}  // namespace qxpkutil::accuracy
