#include "qxpkutil/io/Base64.h"

#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace qxpkutil {
namespace {

std::string Decoded(std::string_view text, std::size_t maxBytes = 1 << 20) {
  std::vector<std::uint8_t> out;
  if (!DecodeBase64(text, maxBytes, out)) return "<fail>";
  return std::string(out.begin(), out.end());
}

TEST(Base64, KnownVectorsBothWays) {
  const std::pair<const char*, const char*> cases[] = {
      {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : cases) {
    EXPECT_EQ(EncodeBase64(plain, std::char_traits<char>::length(plain)), encoded);
    EXPECT_EQ(Decoded(encoded), plain) << encoded;
  }
}

// The plain definition, one character at a time: what the table-driven decoder must match.
bool ReferenceDecode(std::string_view text, std::size_t maxBytes, std::string& out) {
  static const std::string alphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string digits;
  for (const char c : text) {
    if (c != ' ' && c != '\t' && c != '\r' && c != '\n') digits += c;
  }
  if (digits.size() % 4 != 0) return false;
  out.clear();
  for (std::size_t g = 0; g < digits.size(); g += 4) {
    const bool last = g + 4 == digits.size();
    std::uint32_t bits = 0;
    int pads = 0;
    for (int k = 0; k < 4; ++k) {
      const char c = digits[g + k];
      if (c == '=' && last && k >= 2) {
        ++pads;
        bits <<= 6;
        continue;
      }
      const std::size_t v = alphabet.find(c);
      if (v == std::string::npos || pads > 0) return false;
      bits = (bits << 6) | static_cast<std::uint32_t>(v);
    }
    for (int k = 0; k < 3 - pads; ++k) out += static_cast<char>(bits >> (16 - 8 * k));
  }
  return out.size() <= maxBytes;
}

TEST(Base64, FastDecoderMatchesTheReferenceOnRandomText) {
  std::mt19937 rng(7);
  const std::string noise = "AZaz09+/= \n@";
  for (int round = 0; round < 20000; ++round) {
    const std::size_t n = rng() % 130;  // long enough for the 32-character vector steps
    std::vector<std::uint8_t> bytes(n);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(rng());
    std::string text = EncodeBase64(bytes.data(), n);  // every padding case as n varies
    // Half the rounds stay valid apart from whitespace; the rest get a random character.
    const int edits = static_cast<int>(rng() % 4);
    for (int e = 0; e < edits && !text.empty(); ++e) {
      const std::size_t at = rng() % (text.size() + 1);
      const char c = noise[rng() % noise.size()];
      if (round % 2 == 0) {
        text.insert(at, 1, " \n\t\r"[rng() % 4]);
      } else {
        text.insert(at, 1, c);
      }
    }
    const std::size_t cap = rng() % 8 == 0 ? rng() % 130 : 1 << 20;
    std::string expected;
    const bool ok = ReferenceDecode(text, cap, expected);
    EXPECT_EQ(Decoded(text, cap), ok ? expected : "<fail>") << text;
    if (round % 2 == 0 && cap > n) {
      EXPECT_EQ(expected, std::string(bytes.begin(), bytes.end()));
    }
  }
}

TEST(Base64, RejectsMalformedText) {
  for (const char* bad :
       {"Zg=", "Z===", "Zm9v=", "Zg==Zg==", "Zg==x", "Zm9@", "Zg", "Zm9vY", "=Zm9", "Zm=v"}) {
    EXPECT_EQ(Decoded(bad), "<fail>") << bad;
  }
}

}  // namespace
}  // namespace qxpkutil
