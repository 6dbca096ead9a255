#include "qxpkutil/io/MzmlWriter.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"

namespace qxpkutil {
namespace {

using testing::FixtureSpectrum;
using testing::PeaksAt;

MzmlRun& Parse(MzmlRun& run, const std::string& text, const MzmlSelection& selection = {}) {
  std::string error;
  EXPECT_TRUE(run.Parse(std::vector<char>(text.begin(), text.end()), "t", selection, error))
      << error;
  return run;
}

FixtureSpectrum Profile(int ms_level) {
  FixtureSpectrum s;
  s.x = {100.0, 100.1, 100.2, 100.3};
  s.y = {1.0, 5.0, 2.0, 1.0};
  s.ms_level = ms_level;
  s.zlib = true;
  s.bits = 32;
  return s;
}

TEST(MzmlWriter, ReplacesSelectedSpectraAndRecordsTheStep) {
  MzmlRun run;
  MzmlSelection ms1;
  ms1.ms_level = 1;
  Parse(run, testing::MakeMzml({Profile(1), Profile(2), Profile(1)}, {}, /*indexed=*/true), ms1);
  ASSERT_EQ(run.Traces().size(), 2u);
  std::vector<std::vector<Peak>> peaks = {PeaksAt({100.1}, {5.0}),
                                          PeaksAt({100.1, 999.0}, {5.0, 3.0})};
  peaks[1][1].centroid_x = kNotMeasured;  // apex x goes out
  peaks[1][1].apex_x = 100.25;
  std::string text, error;
  ASSERT_TRUE(FormatCentroidedMzml(run, peaks, {"9.9", "PeakThresholdPct-0=1"}, text, error));
  EXPECT_EQ(text.find("indexedmzML"), std::string::npos);

  MzmlRun back;
  Parse(back, text);
  ASSERT_EQ(back.Traces().size(), 3u);
  EXPECT_EQ(back.Traces()[0].x, std::vector<double>{100.1});
  EXPECT_TRUE(back.Traces()[0].centroided);
  EXPECT_EQ(back.Traces()[1].x.size(), 4u) << "the MS2 spectrum stays as it was";
  EXPECT_FALSE(back.Traces()[1].centroided);
  EXPECT_EQ(back.Traces()[2].x, (std::vector<double>{100.1, 100.25}));
  EXPECT_EQ(back.Traces()[2].y, (std::vector<double>{5.0, 3.0}));
  EXPECT_EQ(back.Traces()[2].ms_level, 1);
  const pugi::xml_node mzml = back.MzmlElement();
  EXPECT_STREQ(mzml.attribute("xmlns").value(), "http://psi.hupo.org/ms/mzml");
  const pugi::xml_node dp =
      mzml.child("dataProcessingList")
          .find_child_by_attribute("dataProcessing", "id", "qxpeak_peak_picking");
  ASSERT_TRUE(dp);
  EXPECT_STREQ(mzml.child("dataProcessingList").attribute("count").value(), "2");
  EXPECT_STREQ(dp.child("processingMethod").child("userParam").attribute("value").value(),
               "PeakThresholdPct-0=1");
  EXPECT_STREQ(back.Nodes()[0].attribute("dataProcessingRef").value(), "qxpeak_peak_picking");
  EXPECT_STREQ(mzml.child("softwareList")
                   .find_child_by_attribute("software", "id", "qxpeak")
                   .attribute("version")
                   .value(),
               "9.9");
}

TEST(MzmlWriter, CopiesASharedProfileGroupInsteadOfChangingIt) {
  std::string text = testing::MakeMzml({Profile(1), Profile(1)});
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
  MzmlRun run;
  MzmlSelection first;
  first.indices = {{0, 0}};
  Parse(run, text, first);
  std::string out, error;
  ASSERT_TRUE(FormatCentroidedMzml(run, {PeaksAt({100.1}, {5.0})}, {"1", ""}, out, error));
  MzmlRun back;
  Parse(back, out);
  EXPECT_TRUE(back.Traces()[0].centroided);
  EXPECT_FALSE(back.Traces()[1].centroided);
  EXPECT_TRUE(back.Nodes()[0].child("userParam")) << "the group's other parameters move along";
  EXPECT_TRUE(back.Nodes()[1].child("referenceableParamGroupRef"));
}

TEST(MzmlWriter, BuildsADocumentForTextInput) {
  Trace spectrum;
  spectrum.ms_level = 1;
  Trace chromatogram;
  chromatogram.kind = Trace::Kind::kChromatogram;
  chromatogram.id = "TIC <1>";
  std::string text, error;
  ASSERT_TRUE(FormatCentroidedMzml("dir/a&b.txt", {chromatogram, spectrum},
                                   {PeaksAt({1.5}, {10.0}), PeaksAt({400.0, 401.0}, {7.0, 8.0})},
                                   {"1", "x"}, text, error))
      << error;
  MzmlRun back;
  Parse(back, text);
  ASSERT_EQ(back.Traces().size(), 1u);
  EXPECT_EQ(back.Traces()[0].x, (std::vector<double>{400.0, 401.0}));
  EXPECT_TRUE(back.Traces()[0].centroided);
  MzmlSelection chromatograms;
  chromatograms.list = MzmlSelection::List::kChromatograms;
  Parse(back, text, chromatograms);
  ASSERT_EQ(back.Traces().size(), 1u);
  EXPECT_EQ(back.Traces()[0].id, "TIC <1>");
  EXPECT_EQ(back.Traces()[0].y, std::vector<double>{10.0});
  EXPECT_STREQ(back.MzmlElement()
                   .child("fileDescription")
                   .child("sourceFileList")
                   .child("sourceFile")
                   .attribute("name")
                   .value(),
               "dir/a&b.txt");
}

}  // namespace
}  // namespace qxpkutil
