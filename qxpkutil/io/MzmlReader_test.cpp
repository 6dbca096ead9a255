#include "qxpkutil/io/MzmlReader.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"

namespace qxpkutil {
namespace {

using testing::FixtureSpectrum;
using testing::MakeMzml;

FixtureSpectrum Ramp(std::size_t n, double x0) {
  FixtureSpectrum s;
  for (std::size_t i = 0; i < n; ++i) {
    s.x.push_back(x0 + 0.1 * static_cast<double>(i));
    s.y.push_back(1000.0 / 3.0 * static_cast<double>(i % 7));
  }
  return s;
}

bool ParseText(MzmlRun& run, const std::string& text, std::string& error,
               const MzmlSelection& selection = {}) {
  return run.Parse(std::vector<char>(text.begin(), text.end()), "test.mzML", selection, error);
}

std::string Replace(std::string text, const std::string& from, const std::string& to) {
  const std::size_t pos = text.find(from);
  EXPECT_NE(pos, std::string::npos) << from;
  if (pos != std::string::npos) text.replace(pos, from.size(), to);
  return text;
}

struct Encoding {
  int bits;
  bool zlib;
  bool indexed;
};

class MzmlEncodings : public ::testing::TestWithParam<Encoding> {};

TEST_P(MzmlEncodings, ValuesComeBackAsWritten) {
  FixtureSpectrum s = Ramp(50, 400.0);
  s.bits = GetParam().bits;
  s.zlib = GetParam().zlib;
  MzmlRun run;
  std::string error;
  ASSERT_TRUE(ParseText(run, MakeMzml({s, s}, {}, GetParam().indexed), error)) << error;
  ASSERT_EQ(run.Traces().size(), 2u);
  const Trace& t = run.Traces()[1];
  ASSERT_EQ(t.x.size(), 50u);
  for (std::size_t i = 0; i < 50; ++i) {
    const double x = s.bits == 32 ? static_cast<float>(s.x[i]) : s.x[i];
    const double y = s.bits == 32 ? static_cast<float>(s.y[i]) : s.y[i];
    EXPECT_EQ(t.x[i], x);
    EXPECT_EQ(t.y[i], y);
  }
  EXPECT_EQ(t.index, 1);
  EXPECT_EQ(t.scan_number, 2);
  EXPECT_EQ(run.Nodes().size(), 2u);
  EXPECT_STREQ(run.MzmlElement().name(), "mzML");
}

INSTANTIATE_TEST_SUITE_P(All, MzmlEncodings,
                         ::testing::Values(Encoding{64, false, false}, Encoding{32, false, false},
                                           Encoding{64, true, false}, Encoding{32, true, true},
                                           Encoding{64, true, true}));

TEST(MzmlReader, ReadsSpectrumMetadata) {
  FixtureSpectrum s = Ramp(10, 100.0);
  s.ms_level = 2;
  s.centroided = true;
  s.rt_minutes = 1.5;
  s.id = "controllerType=0 controllerNumber=1 scan=4711";
  MzmlRun run;
  std::string error;
  ASSERT_TRUE(ParseText(run, MakeMzml({s}), error)) << error;
  const Trace& t = run.Traces().at(0);
  EXPECT_EQ(t.kind, Trace::Kind::kSpectrum);
  EXPECT_EQ(t.ms_level, 2);
  EXPECT_TRUE(t.centroided);
  EXPECT_DOUBLE_EQ(t.rt, 90.0);
  EXPECT_EQ(t.scan_number, 4711);
  EXPECT_EQ(t.id, s.id);
}

TEST(MzmlReader, FallsBackToChromatogramsOnlyWhenThereAreNoSpectra) {
  const FixtureSpectrum c = Ramp(20, 0.0);
  MzmlRun run;
  std::string error;
  ASSERT_TRUE(ParseText(run, MakeMzml({}, {c}), error)) << error;
  ASSERT_EQ(run.Traces().size(), 1u);
  EXPECT_EQ(run.Traces()[0].kind, Trace::Kind::kChromatogram);
  EXPECT_EQ(run.Traces()[0].id, "TIC");
  EXPECT_EQ(run.Traces()[0].x, c.x);

  const std::string both = MakeMzml({Ramp(5, 100.0)}, {c});
  ASSERT_TRUE(ParseText(run, both, error)) << error;
  EXPECT_EQ(run.Traces().at(0).kind, Trace::Kind::kSpectrum);
  MzmlSelection chromatograms;
  chromatograms.list = MzmlSelection::List::kChromatograms;
  ASSERT_TRUE(ParseText(run, both, error, chromatograms)) << error;
  EXPECT_EQ(run.Traces().at(0).kind, Trace::Kind::kChromatogram);
}

TEST(MzmlReader, SelectionFiltersCombine) {
  std::vector<FixtureSpectrum> spectra;
  for (int i = 0; i < 6; ++i) {
    FixtureSpectrum s = Ramp(8, 100.0);
    s.ms_level = i % 2 + 1;  // 1, 2, 1, 2, 1, 2
    s.rt_minutes = i;        // 0 .. 5 minutes
    spectra.push_back(s);
  }
  const std::string text = MakeMzml(spectra);
  struct Case {
    MzmlSelection selection;
    std::vector<std::int32_t> indices;
  };
  MzmlSelection byIndex, byScan, byRt, byLevel, combined;
  byIndex.indices = {{0, 1}, {4, 4}};
  byScan.scans = {{3, 5}};  // scan numbers are positions + 1
  byRt.rt_min = 60.0;
  byRt.rt_max = 180.0;  // minutes 1 to 3, in seconds
  byLevel.ms_level = 2;
  combined.ms_level = 1;
  combined.rt_min = 60.0;
  const Case cases[] = {{{}, {0, 1, 2, 3, 4, 5}}, {byIndex, {0, 1, 4}}, {byScan, {2, 3, 4}},
                        {byRt, {1, 2, 3}},        {byLevel, {1, 3, 5}}, {combined, {2, 4}}};
  for (const Case& c : cases) {
    MzmlRun run;
    std::string error;
    ASSERT_TRUE(ParseText(run, text, error, c.selection)) << error;
    std::vector<std::int32_t> got;
    for (const Trace& t : run.Traces()) got.push_back(t.index);
    EXPECT_EQ(got, c.indices);
  }
}

TEST(MzmlReader, EmptySpectrumIsATraceWithoutPoints) {
  FixtureSpectrum empty;
  empty.zlib = true;
  MzmlRun run;
  std::string error;
  ASSERT_TRUE(ParseText(run, MakeMzml({empty}), error)) << error;
  EXPECT_TRUE(run.Traces().at(0).x.empty());
}

TEST(MzmlReader, EveryTruncatedPrefixFailsCleanly) {
  FixtureSpectrum s = Ramp(6, 100.0);
  s.zlib = true;
  const std::string text = MakeMzml({s});
  const std::size_t end = text.rfind("</mzML>");
  for (std::size_t cut = 0; cut < end; cut += 1) {
    MzmlRun run;
    std::string error;
    EXPECT_FALSE(ParseText(run, text.substr(0, cut), error)) << cut;
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(run.Traces().empty());
  }
}

TEST(MzmlReader, HostileDocumentsGiveAClearError) {
  const FixtureSpectrum plain = Ramp(10, 100.0);
  FixtureSpectrum packed = plain;
  packed.zlib = true;
  const std::string good = MakeMzml({plain});
  const std::string goodZlib = MakeMzml({packed});
  const std::string firstBinary = testing::EncodeArray(plain.x, 64, false);
  const std::string zlibX = testing::EncodeArray(plain.x, 64, true);

  FixtureSpectrum bomb = plain;  // a zlib stream far longer than the declared length
  bomb.x.assign(100000, 1.0);
  bomb.y.assign(100000, 1.0);
  bomb.zlib = true;
  bomb.declared_length = 10;
  FixtureSpectrum tooShort = plain;
  tooShort.declared_length = 11;
  FixtureSpectrum tooShortZlib = packed;
  tooShortZlib.declared_length = 11;
  FixtureSpectrum huge = packed;
  huge.declared_length = 4000000000ull;
  FixtureSpectrum notFinite = plain;
  notFinite.y[3] = std::numeric_limits<double>::quiet_NaN();
  FixtureSpectrum descending = plain;
  std::swap(descending.x[2], descending.x[3]);
  FixtureSpectrum tooLong = plain;
  tooLong.declared_length = 9;
  FixtureSpectrum oneShort = plain;  // the intensity array one value short of the m/z array
  oneShort.y.pop_back();
  std::string mismatched = MakeMzml({oneShort});
  mismatched.insert(mismatched.rfind("<binaryDataArray ") + 17, "arrayLength=\"9\" ");

  const std::pair<std::string, const char*> cases[] = {
      {"", "malformed"},
      {"plain text\n", "malformed"},
      {"<?xml version=\"1.0\"?><html><body/></html>", "not an mzML"},
      {Replace(good, firstBinary, firstBinary.substr(1)), "base64"},
      {Replace(good, firstBinary, "@@@@"), "base64"},
      {MakeMzml({bomb}), "more data than declared"},
      {MakeMzml({tooShort}), "declared"},
      {MakeMzml({tooShortZlib}), "values need"},
      {Replace(goodZlib, zlibX, zlibX.substr(0, zlibX.size() / 8 * 4)), "zlib data ends early"},
      {MakeMzml({huge}), "more than the encoded data can hold"},
      {MakeMzml({notFinite}), "not a finite number"},
      {MakeMzml({descending}), "must ascend"},
      {MakeMzml({tooLong}), "values need"},
      {MakeMzml({oneShort}), "declared 10 values need 80"},
      {mismatched, "m/z array has 10 values, intensity array 9"},
      {Replace(goodZlib, zlibX, "AAAAAAAAAAAA"), "zlib"},
      {Replace(good, "MS:1000576", "MS:1002312\" name=\"MS-Numpress linear prediction compression"),
       "unsupported compression"},
      {Replace(good, "MS:1000523", "MS:1000000"), "no 32- or 64-bit"},
      {Replace(good, "MS:1000515", "MS:1000516"), "no intensity array"},
      {Replace(good, "defaultArrayLength=\"10\"", "defaultArrayLength=\"-1\""),
       "defaultArrayLength"},
  };
  for (const auto& [text, expected] : cases) {
    MzmlRun run;
    std::string error;
    EXPECT_FALSE(ParseText(run, text, error)) << expected;
    EXPECT_NE(error.find(expected), std::string::npos) << error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(MzmlReader, ErrorsNameTheFileAndTheSpectrum) {
  FixtureSpectrum s = Ramp(4, 100.0);
  s.declared_length = 5;
  MzmlRun run;
  std::string error;
  ASSERT_FALSE(ParseText(run, MakeMzml({Ramp(4, 100.0), s}), error));
  EXPECT_EQ(error.rfind("test.mzML: spectrum 1 (scan=2): m/z array:", 0), 0u) << error;
}

TEST(MzmlReader, ReadsFromAFileAndReportsAMissingOne) {
  const std::string path = testing::WriteTempFile("reader.mzML", MakeMzml({Ramp(5, 10.0)}));
  MzmlRun run;
  std::string error;
  ASSERT_TRUE(run.Read(path, {}, error)) << error;
  EXPECT_EQ(run.Traces().size(), 1u);
  EXPECT_FALSE(run.Read(path + ".missing", {}, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

}  // namespace
}  // namespace qxpkutil
