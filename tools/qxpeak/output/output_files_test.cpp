#include "tools/qxpeak/output/output_files.h"

#include <cstdio>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "qxpkutil/platform/QXAtomicFile.h"
#include "testing/QXTestFiles.h"

namespace qxpkutil::qxpeak {
namespace {

using qxpkutil::testing::ReadText;
using qxpkutil::testing::ScratchDir;
using qxpkutil::testing::WriteText;

mode_t ModeOf(const std::string& path) {
  struct stat info {};
  ::stat(path.c_str(), &info);
  return info.st_mode & 07777;
}

// When one output cannot be written, none is replaced and no temporary stays behind: never
// new files beside old ones.
TEST(WriteOutputsTogether, AllOrNothing) {
  ScratchDir dir;
  const std::string tsv = dir.PathOf("a.peaks.tsv"), svg = dir.PathOf("a.svg");
  WriteText(tsv, "old table");
  WriteText(svg, "old plot");
  std::string error;
  EXPECT_FALSE(WriteOutputsTogether(
      {{tsv, "new table"}, {svg, "new plot"}, {dir.PathOf("missing/a.json"), "{}"}}, error));
  EXPECT_NE(error.find("missing/a.json"), std::string::npos) << error;
  EXPECT_EQ(ReadText(tsv), "old table");
  EXPECT_EQ(ReadText(svg), "old plot");
  EXPECT_EQ(dir.FileCount(), 2u) << "a temporary was left behind";
  ASSERT_TRUE(WriteOutputsTogether({{tsv, "new table"}, {svg, "new plot"}}, error)) << error;
  EXPECT_EQ(ReadText(tsv), "new table");
  EXPECT_EQ(dir.FileCount(), 2u);
}

// A replaced file keeps its mode (a private table stays private), and a target name as long
// as the file system allows still works: temporaries have short names of their own.
TEST(WriteOutputsTogether, KeepsModesAndLongNames) {
  ScratchDir dir;
  const std::string table = dir.PathOf("private.tsv");
  WriteText(table, "old");
  ::chmod(table.c_str(), 0600);
  const std::string longName = dir.PathOf(std::string(238, 'n') + ".tsv");
  std::string error;
  ASSERT_TRUE(WriteOutputsTogether({{table, "new"}, {longName, "long"}}, error)) << error;
  EXPECT_EQ(ModeOf(table), 0600u);
  EXPECT_EQ(ReadText(longName), "long");
}

// A stream that replaces a file has the system write it out while it grows; what lands in
// place is still every byte in order, and a new file is not written behind.
TEST(OutputGroup, WritesBehindOnlyWhatReplacesAFile) {
  ScratchDir dir;
  const std::string table = dir.PathOf("big.tsv");
  WriteText(table, "old");
  OutputGroup group;
  std::string error;
  std::FILE* f = group.Open(table, error);
  ASSERT_NE(f, nullptr) << error;
  EXPECT_TRUE(group.Replaces(table));
  std::FILE* fresh = group.Open(dir.PathOf("new.tsv"), error);
  ASSERT_NE(fresh, nullptr) << error;
  EXPECT_FALSE(group.Replaces(dir.PathOf("new.tsv")));
  std::fclose(fresh);
  std::string expected;
  std::size_t started = 0;
  for (int i = 0; i < 3000; ++i) {  // about 6 MiB in rows of uneven length
    const std::string row =
        std::to_string(i) + std::string(static_cast<std::size_t>(i) * 7 % 4099, 'x') + "\n";
    ASSERT_EQ(std::fwrite(row.data(), 1, row.size(), f), row.size());
    expected += row;
    ASSERT_TRUE(WriteBehind(f, expected.size(), started));
  }
  EXPECT_GT(started, 0u);
  ASSERT_EQ(std::fclose(f), 0);
  ASSERT_TRUE(group.Commit(error)) << error;
  EXPECT_EQ(ReadText(table), expected);
}

TEST(SameFile, SeesThroughSpellings) {
  ScratchDir dir;
  const std::string path = dir.PathOf("x.ini");
  WriteText(path, "");
  EXPECT_TRUE(SameFile(path, dir.PathOf("./x.ini")));
  EXPECT_TRUE(SameFile(dir.PathOf("new.tsv"), dir.PathOf("sub/../new.tsv")));
  EXPECT_FALSE(SameFile(path, dir.PathOf("y.ini")));
  EXPECT_FALSE(SameFile("-", "-"));
}

}  // namespace
}  // namespace qxpkutil::qxpeak
