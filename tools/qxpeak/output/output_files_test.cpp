#include "tools/qxpeak/output/output_files.h"

#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>

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
