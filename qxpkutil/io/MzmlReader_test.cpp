#include "qxpkutil/io/MzmlReader.h"

#include <cstdint>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/io/TraceReader.h"

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

// Everything a reader gives for a document: whether it opened, the traces, the final error.
struct Result {
  bool opened = false;
  std::vector<Trace> traces;
  std::string error;
};

Result ReadText(const std::string& text, const MzmlSelection& selection = {},
                bool keepElements = false) {
  Result r;
  MzmlReader reader;
  MzmlReadOptions options;
  options.selection = selection;
  options.keep_elements = keepElements;
  r.opened = reader.OpenText(text, "test.mzML", options, r.error);
  if (!r.opened) return r;
  for (Trace t; reader.Next(t);) r.traces.push_back(t);
  r.error = reader.Error();
  // The two-step way a pipeline reads (one workspace for every element) gives the same.
  MzmlReader stepwise;
  std::string error;
  EXPECT_TRUE(stepwise.OpenText(text, "test.mzML", options, error));
  MzmlReader::Workspace workspace;
  std::size_t n = 0;
  std::string stepwiseError;
  for (MzmlReader::Element e; stepwise.NextElement(e);) {
    Trace t;
    if (!stepwise.Interpret(e, workspace, t)) {
      stepwiseError = e.broken;
      if (!e.broken.empty()) break;
      continue;
    }
    EXPECT_LT(n, r.traces.size());
    if (n >= r.traces.size()) break;
    const Trace& u = r.traces[n++];
    EXPECT_TRUE(t.x == u.x && t.y == u.y && t.id == u.id && t.index == u.index &&
                t.problem == u.problem && t.note == u.note && t.selected == u.selected &&
                t.element == u.element) << u.index << ": " << u.problem;
  }
  EXPECT_EQ(n, r.traces.size());
  EXPECT_EQ(stepwiseError.empty() ? stepwise.Error() : stepwiseError, r.error);
  return r;
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
  bool markup = false;  // comments, CDATA and an entity that mimic the list's or spectrum's end
};

class MzmlEncodings : public ::testing::TestWithParam<Encoding> {};

TEST_P(MzmlEncodings, ValuesComeBackAsWritten) {
  FixtureSpectrum s = Ramp(50, 400.0);
  s.bits = GetParam().bits;
  s.zlib = GetParam().zlib;
  std::string text = MakeMzml({s, s}, {}, GetParam().indexed);
  if (GetParam().markup) {
    text = Replace(text, "<run ", "<!-- <spectrumList> --><run ");
    text = Replace(text, "<binaryDataArrayList",
                   "<!-- </spectrum> <binary> --><userParam name=\"a>b\" value=\"</spectrum>\"/>"
                   "<userParam name=\"c\"><![CDATA[</spectrum><!--]]></userParam>"
                   "<binaryDataArrayList");
    // An escaped line break inside the first array's base64.
    text.insert(text.find("<binary>", text.find("<binaryDataArrayList")) + 12, "&#10;");
  }
  const Result r = ReadText(text);
  ASSERT_TRUE(r.opened && r.error.empty()) << r.error;
  ASSERT_EQ(r.traces.size(), 2u);
  for (const Trace& t : r.traces) {
    ASSERT_EQ(t.x.size(), 50u) << t.problem;
    for (std::size_t i = 0; i < 50; ++i) {
      const double x = s.bits == 32 ? static_cast<float>(s.x[i]) : s.x[i];
      const double y = s.bits == 32 ? static_cast<float>(s.y[i]) : s.y[i];
      EXPECT_EQ(t.x[i], x);
      EXPECT_EQ(t.y[i], y);
    }
  }
  EXPECT_EQ(r.traces[1].index, 1);
  EXPECT_EQ(r.traces[1].scan_number, 2);
}

INSTANTIATE_TEST_SUITE_P(All, MzmlEncodings,
                         ::testing::Values(Encoding{64, false, false}, Encoding{32, false, false},
                                           Encoding{64, true, false}, Encoding{32, true, true},
                                           Encoding{64, true, true},
                                           Encoding{64, false, false, true}));

TEST(MzmlReader, ReadsMetadataAndEmptyAndUnsortedSpectra) {
  FixtureSpectrum s = Ramp(10, 100.0);
  s.ms_level = 2;
  s.centroided = true;
  s.rt_minutes = 1.5;
  s.id = "controllerType=0 controllerNumber=1 scan=4711";
  FixtureSpectrum empty;  // a trace without points, and without a problem
  empty.zlib = true;
  FixtureSpectrum unsorted = Ramp(6, 100.0);  // sorted stably, with a note
  unsorted.x = {100.3, 100.1, 100.2, 100.2, 100.0, 100.5};
  unsorted.y = {1, 2, 3, 4, 5, 6};
  const Result r = ReadText(MakeMzml({s, empty, unsorted}));
  ASSERT_EQ(r.traces.size(), 3u) << r.error;
  EXPECT_TRUE(r.traces[1].x.empty());
  EXPECT_TRUE(r.traces[1].problem.empty()) << r.traces[1].problem;
  EXPECT_EQ(r.traces[2].x, (std::vector<double>{100.0, 100.1, 100.2, 100.2, 100.3, 100.5}));
  EXPECT_EQ(r.traces[2].y, (std::vector<double>{5, 2, 3, 4, 1, 6}));
  EXPECT_NE(r.traces[2].note.find("m/z values were out of order (100.1 after 100.3)"),
            std::string::npos) << r.traces[2].note;
  const Trace& t = r.traces[0];
  EXPECT_EQ(std::tie(t.kind, t.ms_level, t.centroided, t.rt, t.scan_number, t.id),
            std::make_tuple(Trace::Kind::kSpectrum, 2, true, 90.0, 4711, s.id));
}

TEST(MzmlReader, FallsBackToChromatogramsOnlyWhenThereAreNoSpectraAndGivesSeconds) {
  FixtureSpectrum c = Ramp(20, 0.0);
  c.time_in_minutes = true;
  Result r = ReadText(MakeMzml({}, {c}));
  ASSERT_EQ(r.traces.size(), 1u) << r.error;
  EXPECT_EQ(r.traces[0].kind, Trace::Kind::kChromatogram);
  EXPECT_EQ(r.traces[0].id, "TIC");
  for (std::size_t i = 0; i < c.x.size(); ++i) EXPECT_DOUBLE_EQ(r.traces[0].x[i], c.x[i] * 60.0);

  const std::string both = MakeMzml({Ramp(5, 100.0)}, {Ramp(20, 0.0)});
  r = ReadText(both);
  ASSERT_EQ(r.traces.size(), 1u);
  EXPECT_EQ(r.traces[0].kind, Trace::Kind::kSpectrum);
  MzmlSelection chromatograms;
  chromatograms.list = MzmlSelection::List::kChromatograms;
  r = ReadText(both, chromatograms);
  ASSERT_EQ(r.traces.size(), 1u);
  EXPECT_EQ(r.traces[0].kind, Trace::Kind::kChromatogram);
  EXPECT_EQ(r.traces[0].x, Ramp(20, 0.0).x) << "seconds stay seconds";
  // Kept elements: both lists in file order, the one not read marked unselected.
  r = ReadText(both, {}, /*keepElements=*/true);
  ASSERT_EQ(r.traces.size(), 2u);
  EXPECT_TRUE(r.traces[0].selected);
  EXPECT_FALSE(r.traces[1].selected);
  EXPECT_TRUE(r.traces[1].x.empty());
  EXPECT_EQ(r.traces[1].element.rfind("<chromatogram ", 0), 0u);
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
    std::vector<std::int32_t> got;
    for (const Trace& t : ReadText(text, c.selection).traces) got.push_back(t.index);
    EXPECT_EQ(got, c.indices);
  }
}

TEST(MzmlReader, EveryTruncatedPrefixEndsWithAnError) {
  FixtureSpectrum s = Ramp(6, 100.0);
  s.zlib = true;
  const std::string text = MakeMzml({s, s});
  const std::size_t end = text.rfind("</run>");
  for (std::size_t cut = 0; cut < end; cut += 7) {
    const Result r = ReadText(text.substr(0, cut));
    EXPECT_FALSE(r.error.empty()) << cut;
    EXPECT_EQ(r.error.find('\n'), std::string::npos) << r.error;
    for (const Trace& t : r.traces) EXPECT_EQ(t.y, s.y) << "only whole spectra come out";
  }
}

// One bad spectrum between two good ones: the bad one is reported by id with what is wrong,
// the good ones are read.
TEST(MzmlReader, ABadSpectrumIsReportedAndTheRestIsRead) {
  const FixtureSpectrum plain = Ramp(10, 100.0);
  FixtureSpectrum packed = plain;
  packed.zlib = true;
  const std::string firstBinary = testing::EncodeArray(plain.x, 64, false);
  const std::string zlibX = testing::EncodeArray(plain.x, 64, true);
  // Spectrum `bad` of a document between two good ones, with `edit` applied to its text.
  const auto between = [&](FixtureSpectrum bad, const std::string& from = "",
                           const std::string& to = "") {
    bad.id = "scan=99";
    std::string text = MakeMzml({plain, bad, plain});
    if (!from.empty()) {
      const std::size_t at = text.find(from, text.find("id=\"scan=99\""));
      EXPECT_NE(at, std::string::npos) << from;
      if (at != std::string::npos) text.replace(at, from.size(), to);
    }
    return text;
  };
  const auto declaring = [](FixtureSpectrum s, std::uint64_t length) {
    s.declared_length = length;
    return s;
  };
  FixtureSpectrum bomb = packed;  // a zlib stream far longer than the declared length
  bomb.x.assign(100000, 1.0);
  bomb.y.assign(100000, 1.0);
  FixtureSpectrum nanY = plain, infX = plain, oneShort = plain;
  nanY.y[3] = std::numeric_limits<double>::quiet_NaN();
  infX.x[9] = std::numeric_limits<double>::infinity();
  oneShort.y.pop_back();

  const std::pair<std::string, const char*> cases[] = {
      {between(plain, firstBinary, firstBinary.substr(1)), "m/z array: invalid base64"},
      {between(declaring(bomb, 10)), "more data than declared"},
      {between(declaring(plain, 11)), "the declared 11 values need 88"},
      {between(declaring(packed, 11)), "values need"},
      {between(packed, zlibX, zlibX.substr(0, zlibX.size() / 8 * 4)), "zlib data ends early"},
      {between(packed, zlibX, "AAAAAAAAAAAA"), "invalid zlib data"},
      {between(declaring(packed, 20000000)), "more than the encoded data can hold"},
      {between(declaring(plain, kMaxArrayValues + 1)), "values a trace may hold"},
      {between(nanY), "intensity nan at m/z 100.3"},
      {between(infX), "m/z value inf (point 10 of 10)"},
      {between(declaring(plain, 9)), "values need"},
      {between(oneShort), "the declared 10 values need 80"},
      {between(plain, "MS:1000576", "MS:1002312\" name=\"MS-Numpress linear prediction"),
       "numpress compression is not supported yet"},
      {between(plain, "MS:1000576", "MS:1000999\" name=\"other compression"),
       "unsupported compression"},
      {between(plain, "MS:1000523", "MS:1000000"), "no 32- or 64-bit"},
      {between(plain, "MS:1000515", "MS:1000516"), "no intensity array"},
      {between(plain, "defaultArrayLength=\"10\"", "defaultArrayLength=\"-1\""),
       "defaultArrayLength"},
      {between(plain, "<binaryDataArray ", "<binaryDataArray arrayLength=\"9\" "),
       "the declared 9 values need 72"},
  };
  for (const auto& [text, expected] : cases) {
    const Result r = ReadText(text);
    ASSERT_EQ(r.traces.size(), 3u) << expected << ": " << r.error;
    EXPECT_TRUE(r.error.empty()) << r.error;
    EXPECT_EQ(r.traces[0].y, plain.y);
    EXPECT_EQ(r.traces[2].y, plain.y);
    const Trace& bad = r.traces[1];
    EXPECT_EQ(bad.problem.rfind("spectrum 1 (scan=99): ", 0), 0u) << bad.problem;
    EXPECT_NE(bad.problem.find(expected), std::string::npos) << bad.problem;
    EXPECT_TRUE(bad.x.empty() && bad.y.empty());
  }
}

TEST(MzmlReader, BrokenFilesGiveOneClearLine) {
  const std::string good = MakeMzml({Ramp(4, 100.0)});
  std::string utf16 = "\xFF\xFE";
  for (const char c : good) utf16 += std::string{c, '\0'};
  std::string deep = good;  // a spectrum nested 200 000 levels deep still costs no stack
  std::string nest;
  for (int i = 0; i < 200000; ++i) nest += "<a>";
  for (int i = 0; i < 200000; ++i) nest += "</a>";
  deep.insert(deep.find("<binaryDataArrayList"), "<userParam name=\"x\"/>" + nest);
  const std::pair<std::string, const char*> cases[] = {
      {"", "not an mzML file"},
      {"plain text\n", "not an mzML file"},
      {std::string(1 << 20, '\0'), "not an mzML file"},
      {utf16, "UTF-16"},
      {"<?xml version=\"1.0\"?><html><body/></html>", "no <mzML>"},
      {Replace(good, "<cvList", "<cvList <"), "malformed mzML header"},
      {Replace(good, "</spectrum>", ""), "ends inside spectrum 0"},
  };
  for (const auto& [text, expected] : cases) {
    const Result r = ReadText(text);
    EXPECT_NE(r.error.find(expected), std::string::npos) << expected << " -> " << r.error;
    EXPECT_EQ(r.error.rfind("test.mzML: ", 0), 0u) << r.error;
  }
  const Result r = ReadText(deep);
  ASSERT_EQ(r.traces.size(), 1u) << r.error;
  EXPECT_EQ(r.traces[0].x, Ramp(4, 100.0).x);
}

// An array's declared encodedLength lets the reader step over its text when it ends right
// at </binary>. Right, or wrong in harmless ways, lengths change nothing; one that steps over
// markup stops the file at the spectrum that holds it, decoded or not, however the file is
// read: in memory (also in two steps), in chunks, gzip, mapped.
TEST(MzmlReader, DeclaredLengthsChangeNothingOrStopTheFile) {
  // Over a megabyte, so that arrays straddle the reads of a chunked reader. Every length is
  // ten digits wide, so that setting one moves no text.
  std::string text = MakeMzml({Ramp(70000, 10.0), Ramp(50, 400.0), Ramp(70000, 20.0)});
  std::vector<std::size_t> digits, starts, ends;  // of each array's length and text
  for (std::size_t at = 0; (at = text.find("encodedLength=\"0\"", at)) != std::string::npos;) {
    text.replace(at + 15, 1, "0000000000");
    digits.push_back(at + 15);
    starts.push_back(text.find("<binary>", at) + 8);
    ends.push_back(text.find("</binary>", at));
    at = starts.back();
  }
  ASSERT_EQ(starts.size(), 6u);  // two arrays a spectrum
  std::vector<std::size_t> honest;
  for (std::size_t i = 0; i < 6; ++i) honest.push_back(ends[i] - starts[i]);
  const auto declare = [&](const std::vector<std::size_t>& lengths) {
    std::string t = text;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
      const std::string n = std::to_string(lengths[i]);
      t.replace(digits[i] + 10 - n.size(), n.size(), n);
    }
    return t;
  };
  const auto reaching = [&](std::size_t from, std::size_t to) {  // array `from` to `to`'s end
    std::vector<std::size_t> lengths = honest;
    lengths[from] = ends[to] - starts[from];
    return lengths;
  };
  std::vector<std::size_t> wrong = honest;  // short, long, past the file, none
  wrong[0] -= 1;
  wrong[1] += 1;
  wrong[2] = 9999999999;
  wrong[3] = 0;
  const std::string gz = testing::WriteTempFile("lengths.bin", "");
  const auto readAll = [&](const std::string& doc, int how, const MzmlSelection& selection) {
    if (how == 0) return ReadText(doc, selection);
    const std::string path = testing::WriteTempFile("lengths.mzML", doc);
    gzFile out = gzopen(gz.c_str(), "wb");
    gzwrite(out, doc.data(), static_cast<unsigned>(doc.size()));
    gzclose(out);
    Result r;
    MzmlReader reader;
    MzmlReadOptions options;
    options.selection = selection;
    options.map_file = how == 3;
    r.opened = reader.Open(how == 2 ? gz : path, options, r.error);
    for (Trace t; r.opened && reader.Next(t);) r.traces.push_back(t);
    r.error = reader.Error();
    return r;
  };
  MzmlSelection lastOnly;
  lastOnly.indices.push_back({2, 2});
  const Result plain = ReadText(text);
  ASSERT_EQ(plain.traces.size(), 3u);
  for (int how = 0; how < 4; ++how) {
    for (const std::vector<std::size_t>& lengths : {honest, wrong}) {
      const Result r = readAll(declare(lengths), how, {});
      ASSERT_TRUE(r.error.empty()) << how << ": " << r.error;
      ASSERT_EQ(r.traces.size(), 3u) << how;
      for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(r.traces[i].y, plain.traces[i].y) << how;
    }
    // Into the next array of the spectrum, into the next spectrum; then with the spectrum
    // left out of the selection, never decoded.
    const struct {
      std::vector<std::size_t> lengths;
      MzmlSelection selection;
      std::size_t spectrum, before;  // the spectrum named, traces returned before it
    } lies[] = {{reaching(0, 1), {}, 0, 0},
                {reaching(1, 2), {}, 0, 0},
                {reaching(3, 4), {}, 1, 1},
                {reaching(3, 4), lastOnly, 1, 0}};
    for (const auto& lie : lies) {
      const Result r = readAll(declare(lie.lengths), how, lie.selection);
      EXPECT_NE(r.error.find(": spectrum " + std::to_string(lie.spectrum) +
                             ": an array's encodedLength reaches past the end of its text"),
                std::string::npos)
          << how << ": " << r.error;
      EXPECT_EQ(r.traces.size(), lie.before) << how;
    }
  }
}

TEST(MzmlReader, ReadsPlainAndGzipFilesAndNamesAMissingOne) {
  // Several megabytes, so that the reading window moves on many times.
  const FixtureSpectrum big = Ramp(150000, 10.0);
  const std::string text = MakeMzml({big, big, big});
  const std::string plain = testing::WriteTempFile("reader.mzML", text);
  const std::string packed = testing::WriteTempFile("reader.bin", "");  // gzip, named oddly
  gzFile gz = gzopen(packed.c_str(), "wb");
  gzwrite(gz, text.data(), static_cast<unsigned>(text.size()));
  gzclose(gz);
  for (const std::string& path : {plain, packed}) {
    std::vector<Trace> traces;
    std::string error;
    ASSERT_TRUE(ReadMzml(path, {}, traces, error)) << error;
    ASSERT_EQ(traces.size(), 3u);
    EXPECT_EQ(traces[2].x, big.x);
    TraceReader any;
    ASSERT_TRUE(any.Open(path, {}, error)) << error;
    EXPECT_TRUE(any.IsMzml());
  }
  std::vector<Trace> traces;
  std::string error;
  EXPECT_FALSE(ReadMzml(plain + ".missing", {}, traces, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
}

}  // namespace
}  // namespace qxpkutil
