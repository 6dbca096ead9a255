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
  const std::pair<const char*, const char*> cases[] = {{"", ""},
                                                       {"f", "Zg=="},
                                                       {"fo", "Zm8="},
                                                       {"foo", "Zm9v"},
                                                       {"foob", "Zm9vYg=="},
                                                       {"fooba", "Zm9vYmE="},
                                                       {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : cases) {
    EXPECT_EQ(EncodeBase64(plain, std::char_traits<char>::length(plain)), encoded);
    EXPECT_EQ(Decoded(encoded), plain) << encoded;
  }
}

TEST(Base64, RandomBytesRoundTrip) {
  std::mt19937 rng(7);
  for (std::size_t n = 0; n < 70; ++n) {
    std::vector<std::uint8_t> bytes(n);
    for (auto& b : bytes) b = static_cast<std::uint8_t>(rng());
    std::vector<std::uint8_t> back;
    ASSERT_TRUE(DecodeBase64(EncodeBase64(bytes.data(), n), n, back)) << n;
    EXPECT_EQ(back, bytes);
  }
}

TEST(Base64, SkipsXmlWhitespace) { EXPECT_EQ(Decoded(" Zm9v\r\n\tYmE=\n "), "fooba"); }

TEST(Base64, RejectsMalformedText) {
  for (const char* bad :
       {"Zg=", "Z===", "Zm9v=", "Zg==Zg==", "Zg==x", "Zm9@", "Zg", "Zm9vY", "=Zm9", "Zm=v"}) {
    EXPECT_EQ(Decoded(bad), "<fail>") << bad;
  }
}

TEST(Base64, RefusesMoreThanTheCap) {
  EXPECT_EQ(Decoded("Zm9vYmFy", 6), "foobar");
  EXPECT_EQ(Decoded("Zm9vYmFy", 5), "<fail>");
  EXPECT_EQ(Decoded("Zm9vYmE=", 4), "<fail>");
}

}  // namespace
}  // namespace qxpkutil
