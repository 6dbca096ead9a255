#include "qxpkutil/io/MzmlWriter.h"

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <pugixml.hpp>
#include <sys/stat.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/io/io_internal.h"
#include "testing/QXTestFiles.h"

namespace qxpkutil {
namespace {

using testing::FixtureSpectrum;
using testing::MakeMzml;
using testing::PeaksAt;

FixtureSpectrum Profile(int msLevel) {
  FixtureSpectrum s;
  s.x = {100.0, 100.1, 100.2, 100.3};
  s.y = {1.0, 5.0, 2.0, 1.0};
  s.ms_level = msLevel;
  s.zlib = true;
  s.bits = 32;
  return s;
}

// Copies the document `input` through reader and writer into `path`; each searched trace
// gets one peak at its second point (centroid not measured on chromatograms).
bool Copy(const std::string& input, const std::string& path, const MzmlSelection& selection = {},
          const MzmlWriteOptions& options = {}) {
  MzmlReadOptions read;
  read.selection = selection;
  read.keep_elements = true;
  MzmlReader reader;
  MzmlWriter writer;
  std::string error;
  EXPECT_TRUE(reader.OpenText(input, "in.mzML", read, error)) << error;
  EXPECT_TRUE(writer.Open(path, reader, options, error)) << error;
  for (Trace t; reader.Next(t);) {
    std::vector<Peak> peaks;
    if (t.selected && t.x.size() > 1) {
      peaks = PeaksAt({t.x[1]}, {t.y[1]});
      if (t.kind == Trace::Kind::kChromatogram) peaks[0].centroid_x = kNotMeasured;
    }
    EXPECT_TRUE(writer.Add(t, peaks, error)) << error;
  }
  EXPECT_TRUE(reader.Error().empty()) << reader.Error();
  const bool ok = writer.Finish(error);
  EXPECT_TRUE(ok) << error;
  return ok;
}

std::vector<Trace> ReadBack(const std::string& path, const MzmlSelection& selection = {}) {
  std::vector<Trace> traces;
  std::string error;
  EXPECT_TRUE(ReadMzml(path, selection, traces, error)) << error;
  return traces;
}

int CountOf(const std::string& text, const std::string& what) {
  int n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The index points at each element, and the checksum covers the file up to its own tag.
void ExpectIndexAndChecksumHold(const std::string& text) {
  pugi::xml_document doc;
  ASSERT_TRUE(doc.load_string(text.c_str()));
  const pugi::xml_node wrapper = doc.child("indexedmzML");
  int offsets = 0;
  for (pugi::xml_node index : wrapper.child("indexList").children("index")) {
    for (pugi::xml_node o : index.children("offset")) {
      const std::size_t at = std::stoull(o.text().get());
      const std::string tag = "<" + std::string(index.attribute("name").value()) + " ";
      ASSERT_EQ(text.compare(at, tag.size(), tag), 0) << at;
      const std::string close = "</" + std::string(index.attribute("name").value()) + ">";
      pugi::xml_document element;
      ASSERT_TRUE(element.load_buffer(text.data() + at, text.find(close, at) + close.size() - at));
      EXPECT_STREQ(element.first_child().attribute("id").value(), o.attribute("idRef").value());
      ++offsets;
    }
  }
  EXPECT_GT(offsets, 0);
  const std::size_t list = std::stoull(wrapper.child("indexListOffset").text().get());
  EXPECT_EQ(text.compare(list, 10, "<indexList"), 0);
  const std::string tag = "<fileChecksum>";
  io_internal::Sha1 sha;
  sha.Update(text.data(), text.find(tag) + tag.size());
  EXPECT_EQ(sha.HexDigest(), wrapper.child("fileChecksum").text().get());
}

TEST(MzmlWriter, Sha1KnownAnswers) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"}};
  for (const auto& [text, digest] : cases) {
    io_internal::Sha1 sha;
    // In uneven slices, so that the block buffering is exercised too.
    for (std::size_t at = 0; at < text.size(); at += 77) {
      sha.Update(text.data() + at, std::min<std::size_t>(77, text.size() - at));
    }
    EXPECT_EQ(sha.HexDigest(), digest);
  }
}

TEST(MzmlWriter, CopyCentroidsTheSelectedSpectraAndIndexesThem) {
  qxpkutil::testing::ScratchDir dir;
  const std::string out = dir.PathOf("out.mzML");
  MzmlSelection ms1;
  ms1.ms_level = 1;
  MzmlWriteOptions options;
  options.software_version = "9.9";
  options.settings = "PeakThresholdPct-0=1";
  ASSERT_TRUE(Copy(MakeMzml({Profile(1), Profile(2), Profile(1)}, {}, true), out, ms1, options));
  const std::string text = qxpkutil::testing::ReadText(out);
  ExpectIndexAndChecksumHold(text);
  const std::vector<Trace> back = ReadBack(out);
  ASSERT_EQ(back.size(), 3u);
  // The MS2 spectrum stays as it was.
  EXPECT_EQ(std::tie(back[0].x, back[0].centroided, back[1].centroided, back[2].ms_level),
            std::make_tuple(std::vector<double>{static_cast<float>(100.1)}, true, false, 1));
  EXPECT_EQ(back[1].x.size(), 4u);
  // One representation term per spectrum (profile replaced, never both), the settings, the
  // software and its processing.
  for (const auto& [what, count] : {std::pair{"MS:1000127", 2}, {"MS:1000128", 1},
                                    {"value=\"PeakThresholdPct-0=1\"", 1},
                                    {"<software id=\"qxpeak\" version=\"9.9\">", 1},
                                    {"dataProcessingRef=\"qxpeak_peak_picking\"", 2}}) {
    EXPECT_EQ(CountOf(text, what), count) << what;
  }
}

TEST(MzmlWriter, CopiesASharedProfileGroupAndDeepNesting) {
  std::string text = MakeMzml({Profile(1), Profile(1)});
  // Both spectra take "profile spectrum" from one referenced group.
  const std::string profile =
      "<cvParam cvRef=\"MS\" accession=\"MS:1000128\" name=\"profile spectrum\" value=\"\"/>";
  for (std::size_t at; (at = text.find(profile)) != std::string::npos;) {
    text.replace(at, profile.size(), "<referenceableParamGroupRef ref=\"g\"/>");
  }
  text.insert(text.find("<softwareList"),
              "<referenceableParamGroupList count=\"1\"><referenceableParamGroup id=\"g\">"
              "<cvParam cvRef=\"MS\" accession=\"MS:1000128\" name=\"profile spectrum\"/>"
              "<userParam name=\"kept\"/></referenceableParamGroup></referenceableParamGroupList>");
  // The spectrum left alone nests 100 000 levels deep: copied, without indentation.
  std::string nest;
  for (int i = 0; i < 100000; ++i) nest += "<a>";
  for (int i = 0; i < 100000; ++i) nest += "</a>";
  text.insert(text.find("<binaryDataArrayList", text.find("<spectrum index=\"1\"")),
              "<userParam name=\"x\"/>" + nest);
  qxpkutil::testing::ScratchDir dir;
  MzmlSelection first;
  first.indices = {{0, 0}};
  ASSERT_TRUE(Copy(text, dir.PathOf("out.mzML"), first));
  EXPECT_LT(std::filesystem::file_size(dir.PathOf("out.mzML")), text.size() + 4096);
  const std::vector<Trace> back = ReadBack(dir.PathOf("out.mzML"));
  EXPECT_TRUE(back.at(0).centroided);
  EXPECT_FALSE(back.at(1).centroided);
  const std::string out = qxpkutil::testing::ReadText(dir.PathOf("out.mzML"));
  EXPECT_EQ(CountOf(out, "<userParam name=\"kept\"/>"), 2) << "moved along, and kept in the group";
  EXPECT_EQ(CountOf(out, "<referenceableParamGroupRef"), 1);
}

TEST(MzmlWriter, BuiltDocumentIsWellFormedWhateverTheIds) {
  qxpkutil::testing::ScratchDir dir;
  const std::string path = dir.PathOf("built.mzML");
  Trace spectrum;
  spectrum.id = "scan=1 \x01\x1B[31m bad\xFF\xC0";
  spectrum.rt = 61.5;
  Trace chromatogram;
  chromatogram.kind = Trace::Kind::kChromatogram;
  chromatogram.id = "TIC <1> & \"2\"";
  MzmlWriteOptions options;
  options.settings = "a=\x02<b>";
  options.source_name = "dir/a&b.txt";
  options.zlib = true;
  options.float32 = true;
  MzmlWriter writer;
  std::string error;
  ASSERT_TRUE(writer.Open(path, 1, 1, options, error)) << error;
  std::vector<Peak> peaks = PeaksAt({400.123456789, 401.0}, {7.0, 8.0});
  peaks[1].centroid_x = kNotMeasured;  // the apex goes out
  peaks[1].apex_x = 401.5;
  ASSERT_TRUE(writer.Add(spectrum, peaks, error)) << error;
  ASSERT_TRUE(writer.Add(chromatogram, PeaksAt({1.5}, {10.0}), error)) << error;
  EXPECT_FALSE(writer.Add(spectrum, {}, error)) << "spectra come before chromatograms";
  ASSERT_TRUE(writer.Finish(error)) << error;

  const std::string text = qxpkutil::testing::ReadText(path);
  EXPECT_EQ(io_internal::XmlSafe(text), text) << "valid UTF-8 without control characters";
  ExpectIndexAndChecksumHold(text);
  const std::vector<Trace> back = ReadBack(path);
  ASSERT_EQ(back.size(), 1u);
  EXPECT_EQ(back[0].x, (std::vector<double>{static_cast<float>(400.123456789), 401.5}));
  EXPECT_DOUBLE_EQ(back[0].rt, 61.5);
  MzmlSelection chromatograms;
  chromatograms.list = MzmlSelection::List::kChromatograms;
  const std::vector<Trace> chrom = ReadBack(path, chromatograms);
  ASSERT_EQ(chrom.size(), 1u);
  EXPECT_EQ(chrom[0].id, "TIC <1> & \"2\"");
}

TEST(MzmlWriter, ReplacesAFileKeepingItsModeAndLeavesNoTemporary) {
  qxpkutil::testing::ScratchDir dir;
  const std::string path = dir.PathOf("out.mzML");
  qxpkutil::testing::WriteText(path, "old");
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  {
    MzmlWriter abandoned;  // never finished: the old file stays
    std::string error;
    ASSERT_TRUE(abandoned.Open(path, 1, 0, {}, error));
  }
  EXPECT_EQ(qxpkutil::testing::ReadText(path), "old");
  ASSERT_TRUE(Copy(MakeMzml({Profile(1)}), path));
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  EXPECT_EQ(dir.FileCount(), 1u);
}

// A temporary of several MiB is written out while it grows; what replaces the target is
// still every byte in order.
TEST(OutputFile, WrittenBehindItReplacesTheTargetWhole) {
  qxpkutil::testing::ScratchDir dir;
  const std::string path = dir.PathOf("big.mzML");
  qxpkutil::testing::WriteText(path, "old");
  io_internal::OutputFile file;
  std::string error;
  ASSERT_TRUE(file.Open(path, error)) << error;
  std::string expected;
  for (int i = 0; i < 3000; ++i) {  // about 6 MiB in pieces of uneven length
    const std::string piece =
        std::to_string(i) + std::string(static_cast<std::size_t>(i) * 7 % 4099, 'x') + "\n";
    ASSERT_TRUE(file.Write(piece));
    expected += piece;
  }
  ASSERT_TRUE(file.Commit(error)) << error;
  EXPECT_EQ(qxpkutil::testing::ReadText(path), expected);
  EXPECT_EQ(dir.FileCount(), 1u);
}

// The written file passes OpenMS FileInfo's schema and semantic validation, for inputs of
// every kind the reader handles. Needs FileInfo (Debian package topp, which scripts/setup.sh
// installs).
TEST(MzmlWriter, OutputPassesFileInfoValidation) {
  if (std::system("command -v FileInfo > /dev/null 2>&1") != 0) {
    GTEST_SKIP() << "FileInfo (Debian package topp) is not installed; validation not run";
  }
  FixtureSpectrum zeroFilled = testing::ThreePeaks(500.0, 1.0, 0.01, 0.02);
  for (std::size_t i = 0; i < zeroFilled.y.size(); ++i) {
    if (i % 40 > 30) zeroFilled.y[i] = 0.0;
  }
  FixtureSpectrum noTerm = testing::ThreePeaks(300.0, 2.0, 0.01, 0.03);
  noTerm.representation = false;
  noTerm.rt_minutes = 2.5;
  FixtureSpectrum minutes = testing::ThreePeaks(10.0, 5.0, 0.05, 0.3);
  minutes.time_in_minutes = true;
  FixtureSpectrum xic = minutes;
  xic.id = "XIC";
  FixtureSpectrum ms2 = Profile(2);
  MzmlWriteOptions packed;
  packed.zlib = true;
  packed.float32 = true;
  // Every kind of spectrum in one indexed document; chromatograms (in minutes) in another.
  const std::string spectra = MakeMzml(
      {testing::ThreePeaks(400.0, 1.0, 0.01, 0.02), ms2, zeroFilled, noTerm}, {}, true);
  const std::tuple<std::string, std::string, MzmlWriteOptions> cases[] = {
      {"spectra", spectra, {}},
      {"spectra packed", spectra, packed},
      {"chromatograms", MakeMzml({}, {minutes, xic}), packed}};
  qxpkutil::testing::ScratchDir dir;
  std::vector<std::string> written;
  for (const auto& [name, input, options] : cases) {
    written.push_back(dir.PathOf(name + ".mzML"));
    ASSERT_TRUE(Copy(input, written.back(), {}, options)) << name;
  }
  // A document built around a trace from text.
  Trace text;
  text.id = "not a native id";
  MzmlWriter writer;
  std::string error;
  written.push_back(dir.PathOf("built.mzML"));
  ASSERT_TRUE(writer.Open(written.back(), 1, 0, {}, error)) << error;
  ASSERT_TRUE(writer.Add(text, PeaksAt({400.0, 401.0}, {5.0, 6.0}), error)) << error;
  ASSERT_TRUE(writer.Finish(error)) << error;
  for (const std::string& path : written) {
    const std::string log = path + ".log";
    const int status = std::system(("FileInfo -v -in '" + path + "' > '" + log + "' 2>&1").c_str());
    const std::string report = qxpkutil::testing::ReadText(log);
    EXPECT_EQ(status, 0) << path << "\n" << report;
    EXPECT_NE(report.find("the file is semantically valid"), std::string::npos)
        << path << "\n" << report;
  }
}

}  // namespace
}  // namespace qxpkutil
