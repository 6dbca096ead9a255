#include "qxpkutil/settings/QXPersistUtils.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <utility>
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
  QXPersistUtils::WriteParamSetting(&profile, nullptr, "Key", 1, &lines, 1);
  EXPECT_EQ(lines, (Lines{"App\\Peaks\\MaxCharge=-12\r\n", "App\\Peaks\\Name=a b=c\r\n",
                          "S\\Empty=\r\n"}));
  EXPECT_EQ(profile.GetProfileString("App\\Peaks", "MaxCharge", "unset"), "unset");
  EXPECT_EQ(profile.GetProfileString("App\\Peaks", "Name", ""), "a b=c");

  std::string text = "stale";
  QXPersistUtils::FormStringFromList(text, lines);
  EXPECT_EQ(text,
            "App\\Peaks\\MaxCharge=-12\r\n\r\nApp\\Peaks\\Name=a b=c\r\n\r\nS\\Empty=\r\n\r\n");
  Lines parsed{"kept"};
  QXPersistUtils::ParseStringToList(text, parsed, "\r\n");
  EXPECT_EQ(parsed,
            (Lines{"kept", "App\\Peaks\\MaxCharge=-12", "App\\Peaks\\Name=a b=c", "S\\Empty="}));
}

// Past the random texts below: long keys and values, and no text or key.
TEST(QXPersistUtils, GetEntryTakesLongEntriesAndNeedsTextAndKey) {
  const std::string key = "Section\\" + std::string(300, 'k'), value(5000, 'v');
  const std::string text = "x=1\r\n" + key + "=" + value + "\r\n";
  std::string out = "untouched";
  EXPECT_EQ(QXPersistUtils::GetEntry(nullptr, "S\\K", out), 0);
  EXPECT_EQ(QXPersistUtils::GetEntry("S\\K=1", nullptr, out), 0);
  EXPECT_EQ(out, "untouched");
  EXPECT_EQ(QXPersistUtils::GetEntry(text.c_str(), key.c_str(), out), 1);
  EXPECT_EQ(out, value);
}

TEST(QXPersistUtils, TypedEntriesConvertAsAtoiAndAtofAndClampIntegers) {
  const char* text = "I=  -42abc\r\nJ=abc\r\nBig=99999999999\r\nNeg=-99999999999\r\nD=1.5e3x\r\n";
  using P = std::pair<int, double>;
  const auto entry = [&](const char* key, auto value) {  // found, and the value left
    const int found = QXPersistUtils::GetEntry(text, key, value);
    return P(found, static_cast<double>(value));
  };
  EXPECT_EQ(entry("I", 5), P(1, -42));
  EXPECT_EQ(entry("J", 5), P(1, 0));
  EXPECT_EQ(entry("I", std::uint32_t{0}), P(1, static_cast<std::uint32_t>(-42)));
  EXPECT_EQ(entry("D", 0.0), P(1, 1500));
  EXPECT_EQ(entry("Missing", 7.0), P(0, 7));
}

TEST(QXPersistUtils, TextWinsOverTheProfileAndNeitherGivesTheDefault) {
  QXMemoryProfile profile;
  ASSERT_TRUE(profile.WriteProfileInt("S", "K", 2));
  const char* text = "S\\K=1\r\n";
  const std::map<std::string, std::string> map{{"S\\K", "1"}, {"AB\\L", "1"}};
  const unsigned both = kQXPersistFromText | kQXPersistFromProfile;
  struct Case {
    unsigned flags;
    QXProfile* app;
    const char* key;
    int expected;  // 1 from the text or map, 2 from the profile, 3 the default
  };
  const Case cases[] = {{both, &profile, "K", 1},
                        {kQXPersistFromProfile, &profile, "K", 2},
                        {kQXPersistFromProfile, nullptr, "K", 3},
                        {0x400 | 0x80, &profile, "K", 3},
                        // Missing from the text: the default, never the profile's value.
                        {both, &profile, "M", 3}};
  for (const Case& c : cases) {
    const std::string expected = std::to_string(c.expected);
    EXPECT_EQ(
        static_cast<int>(QXPersistUtils::GetParamSetting(c.app, "S", c.key, 3, text, c.flags)),
        c.expected);
    EXPECT_EQ(QXPersistUtils::GetParamSetting(c.app, "S", c.key, "3", text, c.flags), expected);
    EXPECT_EQ(static_cast<int>(QXPersistUtils::GetParamSetting(c.app, "S", c.key, 3, map, c.flags)),
              c.expected);
    EXPECT_EQ(QXPersistUtils::GetParamSetting(c.app, "S", c.key, "3", map, c.flags), expected);
  }
  // The map is looked up by the exact full key: no substring match.
  EXPECT_EQ(QXPersistUtils::GetParamSetting(nullptr, "B", "L", "def", map, both), "def");
}

// GetEntry as a plain rule: the first match of "key=" anywhere (inside another section's
// line too); the value runs from the first "=" on (which may lie inside the key) to the
// line end. The one-pass index that restores use must find what GetEntry finds.
TEST(SectionEntries, GetEntryAndTheIndexFollowThePlainRuleOnRandomTexts) {
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
      std::string rule = "unset";
      if (const std::size_t at = text.find(fullKey + "="); at != std::string::npos) {
        const std::size_t from = text.find('=', at) + 1;
        rule = text.substr(from, text.find_first_of("\r\n", from) - from);
      }
      ASSERT_EQ(searched, rule);
    }
  }
}

TEST(QXPersistUtils, ParseStringSplitsAtAnySeparatorAndDropsEmptyPieces) {
  const std::tuple<const char*, const char*, Lines> cases[] = {
      {"a,,b;c", ",;", {"a", "b", "c"}}, {",,a,,", ",", {"a"}}, {",,,", ",", {}}, {"", ",", {}},
      {"a b", nullptr, {"a b"}},         {"a b", "", {"a b"}},  {"", nullptr, {}}};
  for (const auto& [text, separators, expected] : cases) {
    Lines pieces;
    QXPersistUtils::ParseStringToList(text, pieces, separators);
    EXPECT_EQ(pieces, expected) << text;
  }
}

}  // namespace
}  // namespace qxpkutil
