#include "tools/qxpeak/batch.h"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"

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

// One input failing leaves the others searched and written; the summary counts them all.
// (That a batch writes what single runs write is checked on the built tool.)
TEST(Batch, AFailingInputStopsNoOther) {
  const testing::FixtureSpectrum s = testing::ThreePeaks(500.0, 20.0, 0.01, 0.03);
  const std::string run = testing::WriteTempFile("run.mzML", testing::MakeMzml({s, s, s}));
  std::string text;
  for (std::size_t i = 0; i < s.x.size(); ++i) {
    text += std::to_string(s.x[i]) + "\t" + std::to_string(s.y[i]) + "\n";
  }
  const std::string scan = testing::WriteTempFile("scan.txt", text);
  const std::string folder = std::filesystem::path(run).parent_path() / "batch";
  std::filesystem::create_directories(folder);
  BatchContext context;
  context.config.list.AddDetectionSetting(-1);
  std::vector<Job> jobs;
  std::string error;
  ASSERT_TRUE(PlanJobs({run, "/nonexistent/missing.txt", scan}, {"tsv"}, "", folder, jobs, error));
  std::ostringstream err;
  const BatchSummary summary = RunBatch(jobs, context, 3, err, true);
  EXPECT_EQ(summary.inputs, 3u);
  EXPECT_EQ(summary.failed, 1u);
  EXPECT_EQ(summary.traces, 4u);
  EXPECT_EQ(summary.peaks, 12u);
  EXPECT_EQ(err.str(),
            "qxpeak: /nonexistent/missing.txt: cannot open: No such file or directory\n");
  EXPECT_FALSE(ReadFile(folder + "/run.peaks.tsv").empty());
  EXPECT_FALSE(ReadFile(folder + "/scan.peaks.tsv").empty());
}

}  // namespace
}  // namespace qxpkutil::qxpeak
