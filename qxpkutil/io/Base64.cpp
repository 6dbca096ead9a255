#include "qxpkutil/io/Base64.h"

#include <array>

namespace qxpkutil {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kInvalid = 0xFF;
constexpr std::uint8_t kSpace = 0xFE;
constexpr std::uint8_t kPad = 0xFD;

constexpr std::array<std::uint8_t, 256> MakeDecodeTable() {
  std::array<std::uint8_t, 256> table{};
  for (auto& v : table) v = kInvalid;
  for (std::uint8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(kAlphabet[i])] = i;
  for (unsigned char c : {' ', '\t', '\r', '\n'}) table[c] = kSpace;
  table['='] = kPad;
  return table;
}
constexpr std::array<std::uint8_t, 256> kDecode = MakeDecodeTable();

}  // namespace

bool DecodeBase64(std::string_view text, std::size_t maxBytes, std::vector<std::uint8_t>& out) {
  // Sized once from the text's length; whitespace and padding only make the result shorter.
  const std::size_t bound = (text.size() + 3) / 4 * 3;
  out.resize(bound < maxBytes ? bound : maxBytes);
  std::size_t written = 0;
  std::uint32_t group = 0;
  int filled = 0;     // sextets in `group`
  int padsLeft = -1;  // '=' still expected once padding has begun; -1 before
  for (const char ch : text) {
    const std::uint8_t v = kDecode[static_cast<unsigned char>(ch)];
    if (v == kSpace) continue;
    if (v == kInvalid || padsLeft == 0) return false;
    if (v == kPad) {
      if (padsLeft < 0) {
        // "xx==" closes with one byte, "xxx=" with two; nothing else may be padded.
        if (filled < 2) return false;
        const std::size_t bytes = static_cast<std::size_t>(filled - 1);
        if (written + bytes > out.size()) return false;
        group <<= 6 * (4 - filled);
        out[written++] = static_cast<std::uint8_t>(group >> 16);
        if (bytes == 2) out[written++] = static_cast<std::uint8_t>(group >> 8);
        padsLeft = 3 - filled;
      } else {
        --padsLeft;
      }
      continue;
    }
    if (padsLeft > 0) return false;
    group = (group << 6) | v;
    if (++filled == 4) {
      if (written + 3 > out.size()) return false;
      out[written++] = static_cast<std::uint8_t>(group >> 16);
      out[written++] = static_cast<std::uint8_t>(group >> 8);
      out[written++] = static_cast<std::uint8_t>(group);
      group = 0;
      filled = 0;
    }
  }
  if (padsLeft > 0 || (padsLeft < 0 && filled != 0)) return false;
  out.resize(written);
  return true;
}

void AppendBase64(const void* data, std::size_t size, std::string& out) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  std::size_t pos = out.size();
  out.resize(pos + (size + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= size; i += 3) {
    const std::uint32_t g =
        (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    out[pos++] = kAlphabet[g >> 18];
    out[pos++] = kAlphabet[(g >> 12) & 63];
    out[pos++] = kAlphabet[(g >> 6) & 63];
    out[pos++] = kAlphabet[g & 63];
  }
  if (i < size) {
    const bool two = i + 1 < size;
    const std::uint32_t g =
        (std::uint32_t{bytes[i]} << 16) | (two ? std::uint32_t{bytes[i + 1]} << 8 : 0);
    out[pos++] = kAlphabet[g >> 18];
    out[pos++] = kAlphabet[(g >> 12) & 63];
    out[pos++] = two ? kAlphabet[(g >> 6) & 63] : '=';
    out[pos++] = '=';
  }
}

std::string EncodeBase64(const void* data, std::size_t size) {
  std::string out;
  AppendBase64(data, size, out);
  return out;
}

}  // namespace qxpkutil
