#include "qxpkutil/settings/QXPersistUtils.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/persist_internal.h"

namespace qxpkutil {
namespace {

using Lines = std::vector<std::string>;

TEST(QXPersistUtils, WriteFormsExactLinesAndTouchesTheProfileOnlyWhenAsked) {
  QXMemoryProfile profile;
  Lines lines;
  QXPersistUtils::WriteParamSetting(&profile, "App\\Peaks", "MaxCharge", -12, &lines, 0);
  QXPersistUtils::WriteParamSetting(&profile, "App\\Peaks", "Name", "a b=c", &lines, 1);
  QXPersistUtils::WriteParamSetting(nullptr, "S", "Empty", nullptr, &lines, 1);
  QXPersistUtils::WriteParamSetting(&profile, "S", "NoList", 7, nullptr, 1);
  QXPersistUtils::WriteParamSetting(&profile, nullptr, "Key", 1, &lines, 1);
  EXPECT_EQ(lines, (Lines{"App\\Peaks\\MaxCharge=-12\r\n", "App\\Peaks\\Name=a b=c\r\n",
                          "S\\Empty=\r\n"}));
  EXPECT_EQ(profile.GetProfileString("App\\Peaks", "MaxCharge", "unset"), "unset");
  EXPECT_EQ(profile.GetProfileString("App\\Peaks", "Name", ""), "a b=c");
  EXPECT_EQ(profile.GetProfileInt("S", "NoList", 0), 7);
}

struct EntryCase {
  const char* name;
  const char* text;
  const char* key;
  int found;
  const char* value;  // what `out` holds afterwards; "untouched" when not found
};

class GetEntryCases : public ::testing::TestWithParam<EntryCase> {};

TEST_P(GetEntryCases, ReadsTheRestOfTheLineAfterTheFirstMatch) {
  const EntryCase& c = GetParam();
  std::string out = "untouched";
  EXPECT_EQ(QXPersistUtils::GetEntry(c.text, c.key, out), c.found);
  EXPECT_EQ(out, c.value);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, GetEntryCases,
    ::testing::Values(
        EntryCase{"crlf", "S\\A=1\r\n\r\nS\\K=5.5\r\n\r\n", "S\\K", 1, "5.5"},
        EntryCase{"lf", "S\\K=a b\nS\\L=2", "S\\K", 1, "a b"},
        EntryCase{"at_end", "S\\K=abc", "S\\K", 1, "abc"},
        EntryCase{"empty_value", "S\\K=\r\nS\\L=2\r\n", "S\\K", 1, ""},
        EntryCase{"first_wins", "S\\K=1\r\nS\\K=2\r\n", "S\\K", 1, "1"},
        // A plain substring search: section B's key matches inside section AB's line.
        EntryCase{"longer_section_first", "AB\\K=1\r\nB\\K=2\r\n", "B\\K", 1, "1"},
        EntryCase{"key_tail", "S\\MaxK=1\r\nS\\K=2\r\n", "K", 1, "1"},
        // The value starts after the first "=" from the match on, here inside the key.
        EntryCase{"equals_in_key", "a=b\\K=v\r\n", "a=b\\K", 1, "b\\K=v"},
        EntryCase{"missing", "S\\K=1\r\n", "S\\L", 0, "untouched"},
        EntryCase{"key_without_equals", "S\\K 1\r\n", "S\\K", 0, "untouched"},
        EntryCase{"null_text", nullptr, "S\\K", 0, "untouched"},
        EntryCase{"null_key", "S\\K=1", nullptr, 0, "untouched"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(QXPersistUtils, LongKeysAndValuesAreReadWhole) {
  const std::string key = "Section\\" + std::string(300, 'k');
  const std::string value(5000, 'v');
  const std::string text = "x=1\r\n" + key + "=" + value + "\r\n";
  std::string out;
  ASSERT_EQ(QXPersistUtils::GetEntry(text.c_str(), key.c_str(), out), 1);
  EXPECT_EQ(out, value);
  std::map<std::string, std::string> map{{key, value}};
  EXPECT_EQ(QXPersistUtils::GetParamSetting(nullptr, "Section", key.c_str() + 8, "", map,
                                            kQXPersistFromText),
            value);
}

TEST(QXPersistUtils, TypedEntriesConvertAsAtoiAndAtof) {
  const char* text =
      "I=  -42abc\r\nJ=abc\r\nBig=99999999999\r\nNeg=-99999999999\r\nU=-1\r\nD=1.5e3x\r\n";
  int i = 5;
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "I", i), 1);
  EXPECT_EQ(i, -42);
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "J", i), 1);
  EXPECT_EQ(i, 0);
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "Big", i), 1);
  EXPECT_EQ(i, INT_MAX);
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "Neg", i), 1);
  EXPECT_EQ(i, INT_MIN);
  std::uint32_t u = 0;
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "U", u), 1);
  EXPECT_EQ(u, 0xFFFFFFFFu);
  double d = 0.0;
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "D", d), 1);
  EXPECT_EQ(d, 1500.0);
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "Missing", d), 0);
  EXPECT_EQ(QXPersistUtils::GetEntry(text, "Missing", u), 0);
  EXPECT_EQ(d, 1500.0);
  EXPECT_EQ(u, 0xFFFFFFFFu);
}

struct SourceCase {
  unsigned flags;
  bool withApp;
  int expected;  // 1 from the text or map, 2 from the profile, 3 the default
};

class SourcePriority : public ::testing::TestWithParam<SourceCase> {};

TEST_P(SourcePriority, TextWinsOverProfileAndNeitherGivesTheDefault) {
  const SourceCase& c = GetParam();
  QXMemoryProfile profile;
  ASSERT_TRUE(profile.WriteProfileInt("S", "K", 2));
  QXProfile* app = c.withApp ? &profile : nullptr;
  const char* text = "S\\K=1\r\n";
  const std::map<std::string, std::string> map{{"S\\K", "1"}};
  const std::string expected = std::to_string(c.expected);

  EXPECT_EQ(static_cast<int>(QXPersistUtils::GetParamSetting(app, "S", "K", 3, text, c.flags)),
            c.expected);
  EXPECT_EQ(QXPersistUtils::GetParamSetting(app, "S", "K", "3", text, c.flags), expected);
  EXPECT_EQ(static_cast<int>(QXPersistUtils::GetParamSetting(app, "S", "K", 3, map, c.flags)),
            c.expected);
  EXPECT_EQ(QXPersistUtils::GetParamSetting(app, "S", "K", "3", map, c.flags), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Flags, SourcePriority,
    ::testing::Values(SourceCase{kQXPersistFromText | kQXPersistFromProfile, true, 1},
                      SourceCase{kQXPersistFromText, true, 1},
                      SourceCase{kQXPersistFromProfile, true, 2},
                      SourceCase{kQXPersistFromProfile, false, 3}, SourceCase{0, true, 3},
                      SourceCase{0x400 | 0x80, true, 3}));

TEST(QXPersistUtils, MissingKeysGiveTheDefaultWithoutFallingBackOnTheProfile) {
  QXMemoryProfile profile;
  ASSERT_TRUE(profile.WriteProfileString("S", "K", "from profile"));
  const unsigned both = kQXPersistFromText | kQXPersistFromProfile;
  const std::map<std::string, std::string> map{{"AB\\K", "7"}, {"s\\k", "8"}};
  // The map is looked up by the exact full key: no substring match, no case folding.
  EXPECT_EQ(static_cast<int>(QXPersistUtils::GetParamSetting(&profile, "B", "K", -4, map, both)),
            -4);
  EXPECT_EQ(QXPersistUtils::GetParamSetting(&profile, "S", "K", "def", map, both), "def");
  EXPECT_EQ(QXPersistUtils::GetParamSetting(&profile, "S", "K", nullptr, "", both), "");
  EXPECT_EQ(QXPersistUtils::GetParamSetting(&profile, "S", "K", "def", nullptr, both), "def");
  EXPECT_EQ(QXPersistUtils::GetParamSetting(&profile, nullptr, "K", "def", "", both), "def");
  EXPECT_EQ(QXPersistUtils::GetParamSetting(&profile, "S", nullptr, 9, "", both), 9u);
}

TEST(QXPersistUtils, FormedTextDoublesTheLineEndsAndParsesBackToTheLines) {
  Lines lines;
  QXPersistUtils::WriteParamSetting(nullptr, "S", "A", 1, &lines, 0);
  QXPersistUtils::WriteParamSetting(nullptr, "S", "B", "two", &lines, 0);
  std::string text = "stale";
  QXPersistUtils::FormStringFromList(text, lines);
  EXPECT_EQ(text, "S\\A=1\r\n\r\nS\\B=two\r\n\r\n");
  int a = 0;
  EXPECT_EQ(QXPersistUtils::GetEntry(text.c_str(), "S\\A", a), 1);
  EXPECT_EQ(a, 1);

  Lines parsed{"kept"};
  QXPersistUtils::ParseStringToList(text, parsed, "\r\n");
  EXPECT_EQ(parsed, (Lines{"kept", "S\\A=1", "S\\B=two"}));
}

// The one-pass index that restores use must find what GetEntry finds, quirks included:
// substring matches across sections, "=" inside sections and keys, empty keys and values.
TEST(SectionEntries, AgreesWithGetEntryOnRandomTexts) {
  std::mt19937 rng(2024);
  const std::string alphabet = "SK=a1\\\r\n-";
  const char* sections[] = {"S", "SS", "S=", "", "S\\K"};
  auto random = [&](std::size_t maxLength) {
    std::string out(rng() % (maxLength + 1), ' ');
    for (char& c : out) c = alphabet[rng() % alphabet.size()];
    return out;
  };
  for (int round = 0; round < 20000; ++round) {
    const std::string text = random(40);
    const char* section = sections[rng() % std::size(sections)];
    const persist_detail::SectionEntries entries(text.c_str(), section, rng() % 4);
    for (int probe = 0; probe < 4; ++probe) {
      const std::string key = random(4);
      std::string indexed = "unset";
      std::string searched = "unset";
      const bool found = entries.Find(key.c_str(), indexed);
      const std::string fullKey = std::string(section) + "\\" + key;
      ASSERT_EQ(found, QXPersistUtils::GetEntry(text.c_str(), fullKey.c_str(), searched) == 1)
          << "text \"" << text << "\" key \"" << fullKey << '"';
      ASSERT_EQ(indexed, searched);
    }
  }
}

struct SplitCase {
  const char* text;
  const char* separators;
  Lines pieces;
};

class ParseStringCases : public ::testing::TestWithParam<SplitCase> {};

TEST_P(ParseStringCases, SplitsAtAnySeparatorAndDropsEmptyPieces) {
  Lines pieces;
  QXPersistUtils::ParseStringToList(GetParam().text, pieces, GetParam().separators);
  EXPECT_EQ(pieces, GetParam().pieces);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, ParseStringCases,
    ::testing::Values(SplitCase{"a,,b;c", ",;", {"a", "b", "c"}}, SplitCase{",,a,,", ",", {"a"}},
                      SplitCase{",,,", ",", {}}, SplitCase{"", ",", {}},
                      SplitCase{"a b", nullptr, {"a b"}}, SplitCase{"a b", "", {"a b"}},
                      SplitCase{"", nullptr, {}}));

}  // namespace
}  // namespace qxpkutil
