#include "qxpkutil/io/TextReader.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <zlib.h>

#include "qxpkutil/io/MzmlFixture.h"
#include "qxpkutil/io/TraceReader.h"

namespace qxpkutil {
namespace {

// Every layout gives the same trace; points out of x order are sorted (y going along) with a note.
TEST(TextReader, AcceptsEveryLayout) {
  const char* layouts[] = {
      "1\t10\n2\t20\n3\t30\n",
      "1 10\n3 30\n2 20\n",
      "mz,intensity\r\n1,10\r\n2,20\r\n3,30\r\n",
      "# comment\n\n  1   10  \n2 20\n+3e0 3.0e1",
      "\xEF\xBB\xBFx y\n1 , 10\n2\t,20\n3, 30,\n",
      "m/z\tIntensity\n# exported\n1\t10\n\n2\t20\n3\t30\n",
  };
  for (const char* text : layouts) {
    Trace t;
    std::string error;
    ASSERT_TRUE(ParseTextSignal(text, "t.txt", t, error)) << text << ": " << error;
    EXPECT_EQ(t.x, (std::vector<double>{1, 2, 3})) << text;
    EXPECT_EQ(t.y, (std::vector<double>{10, 20, 30})) << text;
    EXPECT_EQ(t.note.find("out of order") != std::string::npos, text == layouts[1]) << t.note;
  }
}

TEST(TextReader, RejectsWhatItCannotRead) {
  const std::pair<std::string, const char*> cases[] = {
      {"", "no data lines"}, {"x\ty\n", "no data lines"}, {"\xFF\xFE" "1\0 \0" "2\0", "UTF-16"},
      {"x\ty\n1\t2\nfoo\tbar\n", "line 3:"}, {"1\t2\t3\n4\t5\t6\n", "line 1:"},
      {"100\t9OO\n101\t5\n", "line 1: '100\\t9OO'"}, {"x\ty\n100\tnan\n", "line 2: '100\\tnan'"},
      {"# a comment\n100\tnan\n101\t1\n", "line 2:"}, {"1 2\n\n3 4\nmz intensity\n", "line 4:"},
      {"1 2\n" + std::string(kMaxTextLineBytes + 1, '\0'), "line 2 is longer than"},
      {"1 2\n3\n", "line 2:"}, {"1 2\n3 1e999\n", "line 2:"}, {"1 2\n+-3 4\n", "line 2:"},
      {"1 2\n3;4\n", "line 2:"}, {"header\nheader again\n1 2\n", "line 2:"},
  };
  for (const auto& [text, expected] : cases) {
    Trace t;
    t.x = {42.0};
    std::string error;
    EXPECT_FALSE(ParseTextSignal(text, "t.txt", t, error)) << text.substr(0, 40);
    EXPECT_NE(error.find(expected), std::string::npos) << text.substr(0, 40) << " -> " << error;
    EXPECT_EQ(t.x, std::vector<double>{42.0}) << "untouched on failure";
  }
}

TEST(TextReader, ReadsPlainAndGzipFiles) {
  const std::string text = "x,y\n5,1\n6,2\n";
  const std::string plain = testing::WriteTempFile("signal.csv", text);
  const std::string packed = testing::WriteTempFile("signal.csv.gz", "");
  gzFile gz = gzopen(packed.c_str(), "wb");
  gzwrite(gz, text.data(), static_cast<unsigned>(text.size()));
  gzclose(gz);
  for (const std::string& path : {plain, packed}) {
    Trace t;
    std::string error;
    ASSERT_TRUE(ReadTextSignal(path, t, error)) << error;
    EXPECT_EQ(t.x, (std::vector<double>{5, 6}));
    TraceReader any;
    ASSERT_TRUE(any.Open(path, {}, error)) << error;
    EXPECT_FALSE(any.IsMzml());
    ASSERT_TRUE(any.Next(t));
    EXPECT_EQ(t.y, (std::vector<double>{1, 2}));
  }
}

}  // namespace
}  // namespace qxpkutil
