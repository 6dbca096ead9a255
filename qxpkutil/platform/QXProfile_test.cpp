#include "qxpkutil/platform/QXProfile.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

#include "testing/QXTestFiles.h"

namespace qxpkutil {
namespace {

using testing::ReadText;
using testing::WriteText;

TEST(QXMemoryProfile, IntegersReadLikeAtoiButNoDigitsGiveTheDefault) {
  // The atoi reading itself (signs, clamping) is QXParseLeadingInt's, tested with it.
  const std::pair<const char*, int> cases[] = {{"  -7 apples", -7}, {"abc", 99}, {"- 5", 99}};
  QXMemoryProfile profile;
  for (const auto& [stored, expected] : cases) {
    ASSERT_TRUE(profile.WriteProfileString("Sec", "Key", stored));
    EXPECT_EQ(profile.GetProfileInt("Sec", "Key", 99), expected) << '"' << stored << '"';
  }
  EXPECT_EQ(profile.GetProfileInt("Sec", "Missing", 99), 99);
}

TEST(QXMemoryProfile, SectionsAndKeysIgnoreAsciiCase) {
  QXMemoryProfile profile;
  ASSERT_TRUE(profile.WriteProfileInt("PeakDetect\\Trace-1", "MaxCharge", 6));
  ASSERT_TRUE(profile.WriteProfileInt("PEAKDETECT\\trace-1", "maxcharge", 8));
  EXPECT_EQ(profile.GetProfileInt("peakdetect\\TRACE-1", "MAXCHARGE", 0), 8);
  EXPECT_EQ(profile.GetProfileString("PeakDetect\\Trace-1", "MaxChargeX", "none"), "none");
}

TEST(QXMemoryProfile, NullArgumentsAndRemoval) {
  QXMemoryProfile profile;
  EXPECT_FALSE(profile.WriteProfileString(nullptr, "Key", "v"));
  EXPECT_FALSE(profile.WriteProfileInt("Sec", nullptr, 1));
  ASSERT_TRUE(profile.WriteProfileString("Sec", "A", "1"));
  ASSERT_TRUE(profile.WriteProfileString("Sec", "B", "2"));
  EXPECT_EQ(profile.GetProfileString(nullptr, "A", "d"), "d");
  EXPECT_EQ(profile.GetProfileString("Sec", nullptr, nullptr), "");
  EXPECT_EQ(profile.GetProfileInt("Sec", nullptr, 5), 5);

  EXPECT_TRUE(profile.WriteProfileString("Sec", "A", nullptr));
  EXPECT_EQ(profile.GetProfileString("Sec", "A", "gone"), "gone");
  EXPECT_EQ(profile.GetProfileString("Sec", "B", ""), "2");
  EXPECT_TRUE(profile.WriteProfileString("sec", nullptr, nullptr));
  EXPECT_EQ(profile.GetProfileString("Sec", "B", "gone"), "gone");
}

class QXIniProfileTest : public ::testing::Test {
 protected:
  testing::ScratchDir m_dir;
  const std::string m_path = m_dir.PathOf("settings.ini");
  const std::string m_original = "[Sec]\nKey=old\n";
};

struct IniVariant {
  const char* name;
  const char* text;
  const char* expected;  // of Sec/Key, "<missing>" when absent
};

class QXIniProfileParse : public QXIniProfileTest,
                          public ::testing::WithParamInterface<IniVariant> {};

TEST_P(QXIniProfileParse, ReadsHandEditedFiles) {
  WriteText(m_path, GetParam().text);
  QXIniProfile profile(m_path);
  EXPECT_EQ(profile.GetProfileString("Sec", "Key", "<missing>"), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Variants, QXIniProfileParse,
    ::testing::Values(
        IniVariant{"Utf8BomAndCrlf", "\xEF\xBB\xBF[Sec]\r\nKey=value\r\n", "value"},
        IniVariant{"BlanksAroundEquals", "[Sec]\n  Key \t=  value \n", "value"},
        IniVariant{"BlanksAroundSectionName", "  [ Sec ]  \nKey=value\n", "value"},
        IniVariant{"CommentsAndBlankLines", "; top\n\n[Sec]\n# Key=hash\n; Key=semi\n\nKey=value\n",
                   "value"},
        IniVariant{"KeyBeforeFirstSectionIgnored", "Key=orphan\n[Sec2]\nKey=other\n", "<missing>"},
        IniVariant{"LineWithoutEqualsIgnored", "[Sec]\nKey\nKey=value\n", "value"},
        IniVariant{"ValueVerbatimInside", "[Sec]\nKey= a = b ; kept \n", "a = b ; kept"},
        IniVariant{"EmptyValue", "[Sec]\nKey=\n", ""},
        IniVariant{"NoFinalLineEnd", "[Sec]\nKey=value", "value"},
        IniVariant{"FirstOfDuplicatesWins", "[Sec]\nKey=first\n[Other]\nKey=x\n[SEC]\nkey=second\n",
                   "first"},
        IniVariant{"TextAfterBracketIgnored", "[Sec] ; note\nKey=value\n", "value"},
        IniVariant{"MissingBracketForgiven", "[Sec\nKey=value\n", "value"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(QXIniProfileTest, WritesThroughInFirstWrittenOrderAndReloads) {
  QXIniProfile profile(m_path);
  ASSERT_TRUE(profile.WriteProfileString("B", "k2", "v2"));
  ASSERT_TRUE(profile.WriteProfileInt("A", "x", -5));
  ASSERT_TRUE(profile.WriteProfileString("B", "k1", " padded "));
  ASSERT_TRUE(profile.WriteProfileString("b", "K2", "v2b"));  // keeps spelling and place
  ASSERT_TRUE(profile.WriteProfileString("C", "gone", "1"));
  ASSERT_TRUE(profile.WriteProfileString("C", "gone", nullptr));
  EXPECT_EQ(ReadText(m_path), "[B]\nk2=v2b\nk1= padded \n\n[A]\nx=-5\n");

  QXIniProfile reloaded(m_path);
  EXPECT_EQ(reloaded.GetProfileString("B", "K2", ""), "v2b");
  EXPECT_EQ(reloaded.GetProfileString("B", "k1", ""), "padded");
  EXPECT_EQ(reloaded.GetProfileInt("a", "X", 0), -5);
  EXPECT_EQ(m_dir.FileCount(), 1u);
}

TEST_F(QXIniProfileTest, RejectsTextAnIniLineCannotHoldAndKeepsTheFile) {
  WriteText(m_path, m_original);
  QXIniProfile profile(m_path);
  const std::tuple<const char*, const char*, const char*> bad[] = {
      {"Sec", "Key", "two\nlines"}, {"Sec", "Key", "cr\r"}, {"Sec", "a=b", "v"},
      {"Sec", "; note", "v"},       {"Sec", "[x", "v"},     {"Sec", "  ", "v"},
      {"S]ec", "Key", "v"},         {"Se\nc", "Key", "v"}, {"Se\nc", nullptr, nullptr}};
  for (const auto& [section, key, value] : bad) {
    EXPECT_FALSE(profile.WriteProfileString(section, key, value))
        << section << '/' << (key ? key : "null");
  }
  EXPECT_EQ(profile.GetProfileString("Sec", "Key", ""), "old");
  EXPECT_EQ(ReadText(m_path), m_original);
}

// The temporary file's name is longer than the file system allows, so the save fails
// with the old file present, whoever runs the test.
TEST_F(QXIniProfileTest, FailedSaveLeavesFileAndProfileAsTheyWere) {
  const std::string path = m_dir.PathOf(std::string(250, 'p') + ".ini");
  WriteText(path, m_original);
  QXIniProfile profile(path);
  ASSERT_EQ(profile.GetProfileString("Sec", "Key", ""), "old");
  EXPECT_FALSE(profile.WriteProfileString("Sec", "Key", "new"));
  EXPECT_FALSE(profile.WriteProfileInt("Sec", "Other", 1));
  EXPECT_EQ(profile.GetProfileString("Sec", "Key", ""), "old");
  EXPECT_EQ(profile.GetProfileString("Sec", "Other", "none"), "none");
  EXPECT_EQ(ReadText(path), m_original);
  EXPECT_EQ(m_dir.FileCount(), 1u);
}

}  // namespace
}  // namespace qxpkutil
