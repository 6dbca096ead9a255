#include "tools/qxpeak/batch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/qxpeak/mzml_fixture.h"

namespace qxpkutil::qxpeak {
namespace {

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(Batch, OutputsAreNamedAfterTheInput) {
  EXPECT_EQ(OutputPath("data/run.mzML", "tsv", "", ""), "run.peaks.tsv");
  EXPECT_EQ(OutputPath("data/run.mzML", "mzml", "", "out/"), "out/run.centroided.mzML");
  EXPECT_EQ(OutputPath("-", "svg", "", "o"), "o/stdin.svg");
  EXPECT_EQ(OutputPath("a.txt", "dump", "x.txt", "ignored"), "x.txt");
  std::vector<Job> jobs;
  std::string error;
  ASSERT_TRUE(PlanJobs({"a.txt", "b.mzML"}, {"tsv", "json"}, "", "out", jobs, error));
  ASSERT_EQ(jobs.size(), 2u);
  EXPECT_EQ(jobs[1].outputs[1], (std::pair<std::string, std::string>{"json", "out/b.peaks.json"}));
  EXPECT_FALSE(PlanJobs({"x/a.txt", "y/a.mzML"}, {"tsv"}, "", "", jobs, error));
  EXPECT_NE(error.find("a.peaks.tsv"), std::string::npos) << error;
  EXPECT_FALSE(PlanJobs({"a.txt"}, {"tsv"}, "a.txt", "", jobs, error)) << "output onto the input";
}

TEST(Batch, ParallelForVisitsEveryIndexOnce) {
  for (const unsigned threads : {1u, 3u, 16u}) {
    for (const std::size_t count : {std::size_t{0}, std::size_t{1}, std::size_t{257}}) {
      std::vector<std::atomic<int>> visits(count);
      ParallelFor(count, threads, [&](std::size_t i) { ++visits[i]; });
      for (std::size_t i = 0; i < count; ++i) EXPECT_EQ(visits[i], 1) << threads << " " << i;
    }
  }
  EXPECT_THROW(ParallelFor(100, 4,
                           [](std::size_t i) {
                             if (i == 50) throw std::runtime_error("x");
                           }),
               std::runtime_error);
}

// Inputs of both kinds with peaks, written to a fresh folder.
std::vector<std::string> WriteInputs(const std::string& folder) {
  std::vector<std::string> paths;
  std::vector<testing::FixtureSpectrum> spectra(6);
  for (std::size_t k = 0; k < spectra.size(); ++k) {
    for (int i = 0; i < 2000; ++i) {
      const double x = 300.0 + 0.01 * i;
      spectra[k].x.push_back(x);
      spectra[k].y.push_back(20.0 + (k + 1) * 500.0 *
                                        std::exp(-0.5 * std::pow((x - 305.0 - k) / 0.03, 2)));
    }
    spectra[k].zlib = k % 2 == 1;
  }
  std::filesystem::create_directories(folder);
  paths.push_back(folder + "/run.mzML");
  std::ofstream(paths.back()) << testing::MakeMzml(spectra);
  std::string text;
  for (std::size_t i = 0; i < spectra[2].x.size(); ++i) {
    text += std::to_string(spectra[2].x[i]) + "\t" + std::to_string(spectra[2].y[i]) + "\n";
  }
  paths.push_back(folder + "/scan.txt");
  std::ofstream(paths.back()) << text;
  return paths;
}

TEST(Batch, BatchOfInputsMatchesOneByOneRuns) {
  const std::string folder = testing::WriteTempFile("batch_marker", "") + "_dir";
  std::vector<std::string> inputs = WriteInputs(folder);
  inputs.push_back(folder + "/missing.txt");
  BatchContext context;
  context.config.list.AddDetectionSetting(-1);
  context.config.list.SetMassProcessing(1);
  std::vector<Job> batch;
  std::string error;
  ASSERT_TRUE(PlanJobs(inputs, {"tsv", "json"}, "", folder + "/batch", batch, error)) << error;
  std::filesystem::create_directories(folder + "/batch");
  std::ostringstream err;
  const BatchSummary summary = RunBatch(batch, context, 4, err, true);
  EXPECT_EQ(summary.inputs, 3u);
  EXPECT_EQ(summary.failed, 1u);
  EXPECT_EQ(summary.traces, 7u);
  EXPECT_GE(summary.peaks, 7u);
  EXPECT_NE(err.str().find("missing.txt: cannot open"), std::string::npos) << err.str();
  EXPECT_FALSE(std::filesystem::exists(folder + "/batch/missing.peaks.tsv"));

  for (std::size_t i = 0; i < 2; ++i) {
    std::vector<Job> one;
    ASSERT_TRUE(PlanJobs({inputs[i]}, {"tsv", "json"}, "", folder + "/single", one, error));
    std::filesystem::create_directories(folder + "/single");
    std::ostringstream quiet;
    EXPECT_EQ(RunBatch(one, context, 1, quiet, true).failed, 0u) << quiet.str();
    for (std::size_t k = 0; k < 2; ++k) {
      const std::string name = std::filesystem::path(one[0].outputs[k].second).filename();
      const std::string single = ReadFile(one[0].outputs[k].second);
      EXPECT_FALSE(single.empty());
      EXPECT_EQ(ReadFile(folder + "/batch/" + name), single) << name;
    }
  }
}

}  // namespace
}  // namespace qxpkutil::qxpeak
