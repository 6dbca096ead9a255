#include "qxpkutil/io/TextReader.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/io/MzmlFixture.h"

namespace qxpkutil {
namespace {

TEST(TextReader, AcceptsEveryLayout) {
  const char* layouts[] = {
      "1\t10\n2\t20\n3\t30\n",
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
  }
}

TEST(TextReader, RejectsWhatItCannotRead) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "no data lines"},
      {"x\ty\n", "no data lines"},
      {"x\ty\n1\t2\nfoo\tbar\n", "line 3:"},
      {"1\t2\t3\n4\t5\t6\n", "line 2:"},
      {"1 2\n3\n", "line 2:"},
      {"1 2\n3 nan\n", "line 2:"},
      {"1 2\n3 1e999\n", "line 2:"},
      {"1 2\n3;4\n", "line 2:"},
      {"1 2\n3 4\n2 5\n", "line 3: x is smaller"},
      {"header\nheader again\n1 2\n", "line 2:"},
  };
  for (const auto& [text, expected] : cases) {
    Trace t;
    t.x = {42.0};
    std::string error;
    EXPECT_FALSE(ParseTextSignal(text, "t.txt", t, error)) << text;
    EXPECT_NE(error.find(expected), std::string::npos) << text << " -> " << error;
    EXPECT_EQ(t.x, std::vector<double>{42.0}) << "untouched on failure";
  }
}

TEST(TextReader, ReadsAFile) {
  const std::string path = testing::WriteTempFile("signal.csv", "x,y\n5,1\n6,2\n");
  Trace t;
  std::string error;
  ASSERT_TRUE(ReadTextSignal(path, t, error)) << error;
  EXPECT_EQ(t.x, (std::vector<double>{5, 6}));
}

}  // namespace
}  // namespace qxpkutil
