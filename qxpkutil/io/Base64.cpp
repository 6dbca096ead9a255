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

// The fast path: each table holds a character's six bits already shifted into place for
// its position in a 4-character group, and a bit above the 24 data bits for anything that is
// not a base64 digit, so that one OR of four lookups decodes a group and one comparison
// tells whether the group needs the careful path (whitespace, padding, bad characters).
constexpr std::uint32_t kNotDigit = 1u << 24;
constexpr std::array<std::uint32_t, 256> MakeShiftedTable(int shift) {
  std::array<std::uint32_t, 256> table{};
  for (std::size_t c = 0; c < 256; ++c) {
    table[c] = kDecode[c] < 64 ? std::uint32_t{kDecode[c]} << shift : kNotDigit;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> kShift18 = MakeShiftedTable(18);
constexpr std::array<std::uint32_t, 256> kShift12 = MakeShiftedTable(12);
constexpr std::array<std::uint32_t, 256> kShift6 = MakeShiftedTable(6);
constexpr std::array<std::uint32_t, 256> kShift0 = MakeShiftedTable(0);

}  // namespace

bool DecodeBase64(std::string_view text, std::size_t maxBytes, std::vector<std::uint8_t>& out) {
  // Sized once from the text's length; whitespace and padding only make the result shorter.
  const std::size_t bound = (text.size() + 3) / 4 * 3;
  out.resize(bound < maxBytes ? bound : maxBytes);
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  std::uint8_t* dst = out.data();
  const std::size_t capacity = out.size();
  std::size_t written = 0;
  std::size_t i = 0;
  std::uint32_t group = 0;
  int filled = 0;     // sextets in `group`
  int padsLeft = -1;  // '=' still expected once padding has begun; -1 before
  while (i < n) {
    // Whole groups of four digits, two groups (six bytes) a step where the text allows.
    if (filled == 0 && padsLeft < 0) {
      while (i + 8 <= n && written + 6 <= capacity) {
        const std::uint32_t a = kShift18[in[i]] | kShift12[in[i + 1]] | kShift6[in[i + 2]] |
                                kShift0[in[i + 3]];
        const std::uint32_t b = kShift18[in[i + 4]] | kShift12[in[i + 5]] |
                                kShift6[in[i + 6]] | kShift0[in[i + 7]];
        if ((a | b) >= kNotDigit) break;
        dst[written] = static_cast<std::uint8_t>(a >> 16);
        dst[written + 1] = static_cast<std::uint8_t>(a >> 8);
        dst[written + 2] = static_cast<std::uint8_t>(a);
        dst[written + 3] = static_cast<std::uint8_t>(b >> 16);
        dst[written + 4] = static_cast<std::uint8_t>(b >> 8);
        dst[written + 5] = static_cast<std::uint8_t>(b);
        written += 6;
        i += 8;
      }
      if (i + 4 <= n && written + 3 <= capacity) {
        const std::uint32_t a = kShift18[in[i]] | kShift12[in[i + 1]] | kShift6[in[i + 2]] |
                                kShift0[in[i + 3]];
        if (a < kNotDigit) {
          dst[written] = static_cast<std::uint8_t>(a >> 16);
          dst[written + 1] = static_cast<std::uint8_t>(a >> 8);
          dst[written + 2] = static_cast<std::uint8_t>(a);
          written += 3;
          i += 4;
          continue;
        }
      }
      if (i >= n) break;
    }
    // The careful path, one character at a time.
    const std::uint8_t v = kDecode[in[i++]];
    if (v == kSpace) continue;
    if (v == kInvalid || padsLeft == 0) return false;
    if (v == kPad) {
      if (padsLeft < 0) {
        // "xx==" closes with one byte, "xxx=" with two; nothing else may be padded.
        if (filled < 2) return false;
        const std::size_t bytes = static_cast<std::size_t>(filled - 1);
        if (written + bytes > capacity) return false;
        group <<= 6 * (4 - filled);
        dst[written++] = static_cast<std::uint8_t>(group >> 16);
        if (bytes == 2) dst[written++] = static_cast<std::uint8_t>(group >> 8);
        padsLeft = 3 - filled;
      } else {
        --padsLeft;
      }
      continue;
    }
    if (padsLeft > 0) return false;
    group = (group << 6) | v;
    if (++filled == 4) {
      if (written + 3 > capacity) return false;
      dst[written++] = static_cast<std::uint8_t>(group >> 16);
      dst[written++] = static_cast<std::uint8_t>(group >> 8);
      dst[written++] = static_cast<std::uint8_t>(group);
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
