#include "tools/qxpeak/output/peak_writers.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "tools/qxpeak/test_peaks.h"

namespace qxpkutil::qxpeak {
namespace {

using testing::PeaksAt;

std::vector<std::vector<std::string>> Rows(const std::string& tsv) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(tsv);
  for (std::string line; std::getline(lines, line);) {
    std::vector<std::string> cells;
    std::size_t start = 0;
    for (std::size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1) {
      cells.push_back(line.substr(start, tab - start));
    }
    cells.push_back(line.substr(start));
    rows.push_back(cells);
  }
  return rows;
}

// Two traces: a spectrum with two peaks (odd values, a label with a tab, no centroid and no
// S/N measured), and a chromatogram without peaks.
struct Sample {
  std::vector<Trace> traces;
  std::vector<TracePeaks> peaks;
  Sample() {
    traces.resize(2);
    traces[0].id = "scan=7";
    traces[0].scan_number = 7;
    traces[0].rt = 61.25;
    traces[0].x = {1.0};
    traces[0].y = {1.0};
    traces[1].kind = Trace::Kind::kChromatogram;
    traces[1].index = 1;
    peaks.push_back(PeaksAt({500.1234567891, 700.0}, {1.0 / 3.0, 2500.0}));
    peaks.push_back(PeaksAt({}, {}));
    peaks[0].peaks[0].snr = 12.5;
    Peak& second = peaks[0].peaks[1];
    second.label = "Glu\tfib";
    second.charge = 2;
    second.marks |= kQXPeakChargeAssigned | kQXPeakSeriesMostIntense;
    second.centroid_x = kNotMeasured;
  }
};

TEST(PeakWriters, TsvHasOneCellPerColumnAndExactNumbers) {
  Sample s;
  EXPECT_THAT(FormatTsv(s.traces, s.peaks).substr(0, 400),
              ::testing::Not(::testing::HasSubstr("resolution")))
      << "no column for a measurement nobody asked for";
  s.peaks[0].resolution = {-1, 15000};
  const auto rows = Rows(FormatTsv(s.traces, s.peaks));
  ASSERT_EQ(rows.size(), 3u);
  const std::vector<std::string>& header = rows[0];
  for (const auto& row : rows) EXPECT_EQ(row.size(), header.size());
  const auto cell = [&](std::size_t r, const std::string& column) {
    const auto it = std::find(header.begin(), header.end(), column);
    EXPECT_NE(it, header.end()) << column;
    return rows[r][static_cast<std::size_t>(it - header.begin())];
  };
  EXPECT_EQ(std::strtod(cell(1, "apex_x").c_str(), nullptr), 500.1234567891);
  EXPECT_EQ(std::strtod(cell(1, "apex_y").c_str(), nullptr), 1.0 / 3.0);
  EXPECT_EQ(cell(1, "apex_index"), "5");
  EXPECT_EQ(cell(1, "scan"), "7");
  EXPECT_EQ(cell(1, "rt_s"), "61.25");
  EXPECT_EQ(cell(1, "x_unit"), "m/z");
  EXPECT_EQ(cell(1, "snr"), "12.5");
  EXPECT_EQ(cell(1, "charge"), "") << "no charge assigned is blank, not 0";
  EXPECT_EQ(cell(1, "resolution"), "");
  for (const char* unmeasured : {"snr", "noise", "height", "fwhm", "baseline"}) {
    EXPECT_EQ(cell(2, unmeasured), "") << unmeasured;
  }
  EXPECT_EQ(cell(2, "resolution"), "15000");
  EXPECT_EQ(cell(2, "centroid_x"), "");
  EXPECT_EQ(cell(2, "charge"), "2");
  EXPECT_EQ(cell(2, "flags"), "0x1000500");
  EXPECT_EQ(cell(2, "marks"), "normal,series_top,charged");
  EXPECT_EQ(cell(2, "label"), "Glu fib");
}

TEST(PeakWriters, JsonCarriesTheSameValues) {
  Sample s;
  s.peaks[0].peaks[0].label = "bad \xFF byte";
  s.peaks[1].skipped = "x is not ascending";
  const auto root = nlohmann::json::parse(FormatJson("in.mzML", s.traces, s.peaks));
  EXPECT_EQ(root["input"], "in.mzML");
  ASSERT_EQ(root["traces"].size(), 2u);
  const auto& first = root["traces"][0];
  EXPECT_EQ(first["scan"], 7);
  EXPECT_TRUE(root["traces"][1]["scan"].is_null());
  EXPECT_EQ(root["traces"][1]["kind"], "chromatogram");
  EXPECT_EQ(first["peaks"][0]["apex_x"].get<double>(), 500.1234567891);
  EXPECT_EQ(first["peaks"][0]["apex_index"], 5);
  EXPECT_TRUE(first["peaks"][1]["centroid_x"].is_null());
  EXPECT_TRUE(first["peaks"][1]["snr"].is_null());
  EXPECT_TRUE(first["peaks"][0]["charge"].is_null());
  EXPECT_EQ(first["peaks"][0]["snr"], 12.5);
  EXPECT_EQ(first["rt_s"], 61.25);
  EXPECT_EQ(first["x_unit"], "m/z");
  EXPECT_EQ(root["traces"][1]["x_unit"], "s");
  EXPECT_TRUE(first["skipped"].is_null());
  EXPECT_EQ(root["traces"][1]["skipped"], "x is not ascending");
  EXPECT_EQ(first["peaks"][1]["label"], "Glu\tfib");
  EXPECT_EQ(first["peaks"][0]["label"], "bad \xEF\xBF\xBD byte");
  EXPECT_FALSE(first["peaks"][0].contains("resolution"));
}

TEST(PeakWriters, DumpIsTheLibraryFormatOncePerTrace) {
  Sample s;
  const std::string dump = FormatDump(s.traces, s.peaks);
  const auto rows = Rows(dump);
  ASSERT_EQ(rows.size(), 6u);  // count, header, two peaks; count, header
  EXPECT_EQ(rows[0], (std::vector<std::string>{"# Peaks", "2"}));
  EXPECT_EQ(rows[1][6], " Area");
  EXPECT_EQ(rows[2][0], "500.123457");
  EXPECT_EQ(rows[4], (std::vector<std::string>{"# Peaks", "0"}));
}

}  // namespace
}  // namespace qxpkutil::qxpeak
