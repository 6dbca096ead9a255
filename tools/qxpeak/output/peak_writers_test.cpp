#include "tools/qxpeak/output/peak_writers.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "qxpkutil/peaks/QXPeakTableElement.h"
#include "testing/QXTestFiles.h"
#include "tools/qxpeak/test_peaks.h"

namespace qxpkutil::qxpeak {
namespace {

using testing::PeaksAt;
using testing::TsvRows;

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
  const auto rows = TsvRows(FormatTsv(s.traces, s.peaks));
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
  // No charge assigned is blank, not 0; so is every value not measured.
  const std::tuple<std::size_t, const char*, const char*> cells[] = {
      {1, "apex_index", "5"}, {1, "scan", "7"},      {1, "rt_s", "61.25"},   {1, "x_unit", "m/z"},
      {1, "snr", "12.5"},     {1, "charge", ""},     {1, "resolution", ""},  {2, "snr", ""},
      {2, "noise", ""},       {2, "height", ""},     {2, "fwhm", ""},        {2, "baseline", ""},
      {2, "resolution", "15000"}, {2, "centroid_x", ""}, {2, "charge", "2"},
      {2, "flags", "0x1000500"},  {2, "marks", "normal,series_top,charged"},
      {2, "label", "Glu fib"}};
  for (const auto& [r, column, value] : cells) EXPECT_EQ(cell(r, column), value) << r << column;
}

TEST(PeakWriters, JsonCarriesTheSameValues) {
  Sample s;
  s.peaks[0].peaks[0].label = "bad \xFF byte";
  s.peaks[1].skipped = "x is not ascending";
  const auto root = nlohmann::json::parse(FormatJson("in.mzML", s.traces, s.peaks));
  ASSERT_EQ(root["traces"].size(), 2u);
  const nlohmann::json null;
  const std::pair<const char*, nlohmann::json> values[] = {
      {"/input", "in.mzML"},
      {"/traces/0/scan", 7},
      {"/traces/1/scan", null},
      {"/traces/1/kind", "chromatogram"},
      {"/traces/0/peaks/0/apex_x", 500.1234567891},
      {"/traces/0/peaks/0/apex_index", 5},
      {"/traces/0/peaks/1/centroid_x", null},
      {"/traces/0/peaks/1/snr", null},
      {"/traces/0/peaks/0/charge", null},
      {"/traces/0/peaks/0/snr", 12.5},
      {"/traces/0/rt_s", 61.25},
      {"/traces/0/x_unit", "m/z"},
      {"/traces/1/x_unit", "s"},
      {"/traces/0/skipped", null},
      {"/traces/1/skipped", "x is not ascending"},
      {"/traces/0/peaks/1/label", "Glu\tfib"},
      {"/traces/0/peaks/0/label", "bad \xEF\xBF\xBD byte"}};
  for (const auto& [pointer, value] : values) {
    EXPECT_EQ(root.value(nlohmann::json::json_pointer(pointer), nlohmann::json(0)), value)
        << pointer;
  }
  EXPECT_FALSE(root["traces"][0]["peaks"][0].contains("resolution"));
}

TEST(PeakWriters, DumpIsTheLibraryFormatOncePerTrace) {
  Sample s;
  const std::string dump = FormatDump(s.traces, s.peaks);
  const auto rows = TsvRows(dump);
  ASSERT_EQ(rows.size(), 6u);  // count, header, two peaks; count, header
  EXPECT_EQ(rows[0], (std::vector<std::string>{"# Peaks", "2"}));
  EXPECT_EQ(rows[1][6], " Area");
  EXPECT_EQ(rows[2][0], "500.123457");
  EXPECT_EQ(rows[4], (std::vector<std::string>{"# Peaks", "0"}));
}

}  // namespace
}  // namespace qxpkutil::qxpeak
