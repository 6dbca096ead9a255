#include "tools/qxpeak/run/batch.h"

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "testing/QXTestFiles.h"

namespace qxpkutil::qxpeak {
namespace {

TEST(Batch, OutputsAreNamedAfterTheInput) {
  EXPECT_EQ(OutputPath("data/run.mzML", "tsv", "", ""), "run.peaks.tsv");
  EXPECT_EQ(OutputPath("data/run.mzML", "mzml", "", "out/"), "out/run.centroided.mzML");
  EXPECT_EQ(OutputPath("-", "svg", "", "o"), "o/stdin.svg");
  EXPECT_EQ(OutputPath("a.txt", "dump", "x.txt", "ignored"), "x.txt");
  std::vector<Job> jobs;
  std::string error;
  ASSERT_TRUE(PlanJobs({"a.txt", "b.mzML"}, {"tsv", "json"}, "", "out", {}, jobs, error));
  ASSERT_EQ(jobs.size(), 2u);
  EXPECT_EQ(jobs[1].outputs[1], (std::pair<std::string, std::string>{"json", "out/b.peaks.json"}));
  EXPECT_FALSE(PlanJobs({"x/a.txt", "y/a.mzML"}, {"tsv"}, "", "", {}, jobs, error));
  EXPECT_NE(error.find("a.peaks.tsv"), std::string::npos) << error;
  EXPECT_FALSE(PlanJobs({"a.txt"}, {"tsv"}, "a.txt", "", {}, jobs, error)) << "onto the input";
  // Nor onto the settings or label file the run reads, however the path is spelled.
  EXPECT_FALSE(PlanJobs({"a.txt"}, {"tsv"}, "./my.ini", "", {"my.ini"}, jobs, error));
  EXPECT_NE(error.find("would overwrite my.ini"), std::string::npos) << error;
  EXPECT_FALSE(PlanJobs({"a.txt"}, {"tsv"}, "", "", {"a.peaks.tsv"}, jobs, error));
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

// The pipeline writes in input order whatever the number of workers: every format comes out
// byte for byte as the single-threaded run writes it. (Failing inputs, skipped traces and a
// batch against single runs are checked on the built tool.)
TEST(Batch, WorkersChangeNothingInTheOutputs) {
  std::vector<testing::FixtureSpectrum> spectra;
  for (int k = 0; k < 24; ++k) {
    spectra.push_back(testing::ThreePeaks(500.0 + k, 20.0, 0.01, 0.03));
    for (double& y : spectra.back().y) y *= 1.0 + 0.05 * k;
  }
  qxpkutil::testing::ScratchDir dir;
  const std::string run = dir.PathOf("run.mzML");
  qxpkutil::testing::WriteText(run, testing::MakeMzml(spectra));
  BatchContext context;
  std::vector<std::string> texts[2];
  for (const unsigned workers : {1u, 3u}) {
    const std::string folder = dir.PathOf("w" + std::to_string(workers));
    std::vector<Job> jobs;
    std::string error;
    ASSERT_TRUE(
        PlanJobs({run}, {"dump", "json", "mzml", "svg", "tsv"}, "", folder, {}, jobs, error));
    std::filesystem::create_directories(folder);
    std::vector<std::string> messages;
    const InputResult r = RunInput(jobs[0], context, workers,
                                   [&](const std::string& m) { messages.push_back(m); });
    ASSERT_TRUE(r.ok) << r.error;
    EXPECT_EQ(r.traces, 24u);
    EXPECT_TRUE(messages.empty());
    for (const auto& output : jobs[0].outputs) {
      texts[workers == 1 ? 0 : 1].push_back(qxpkutil::testing::ReadText(output.second));
    }
  }
  EXPECT_EQ(texts[0], texts[1]);
  EXPECT_FALSE(texts[0][4].empty());
}

}  // namespace
}  // namespace qxpkutil::qxpeak
