#include "qxpkutil/io/Base64.h"

#include <array>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define QXPKUTIL_BASE64_AVX2 1
// 32 characters a step with AVX2 (the vector method of Muła and Lemire): each step checks
// that all 32 are base64 digits, maps them to their six bits and packs those into 24 bytes.
// Stops before the first step holding anything else (whitespace, padding, a bad character),
// or when fewer than 32 characters or 32 bytes of room are left. Returns the characters
// decoded, a multiple of 32; the bytes are three quarters of that.
__attribute__((target("avx2"))) std::size_t DecodeVectorSteps(const unsigned char* in,
                                                               std::size_t n, std::uint8_t* out,
                                                               std::size_t capacity) {
  const __m256i lutLo = _mm256_setr_epi8(
      0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B, 0x1B,
      0x1A, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B,
      0x1B, 0x1A);
  const __m256i lutHi = _mm256_setr_epi8(
      0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10,
      0x10, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10,
      0x10, 0x10);
  const __m256i lutRoll = _mm256_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0,
                                           0, 0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0,
                                           0, 0, 0);
  const __m256i mask2F = _mm256_set1_epi8(0x2F);
  const __m256i pack = _mm256_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1,
                                        2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  const __m256i lanes = _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7);
  std::size_t i = 0, o = 0;
  while (i + 32 <= n && o + 32 <= capacity) {
    __m256i str = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(in + i));
    const __m256i hiNibbles = _mm256_and_si256(_mm256_srli_epi32(str, 4), mask2F);
    const __m256i lo = _mm256_shuffle_epi8(lutLo, _mm256_and_si256(str, mask2F));
    const __m256i hi = _mm256_shuffle_epi8(lutHi, hiNibbles);
    if (!_mm256_testz_si256(lo, hi)) break;
    const __m256i eq2F = _mm256_cmpeq_epi8(str, mask2F);
    str = _mm256_add_epi8(str, _mm256_shuffle_epi8(lutRoll, _mm256_add_epi8(eq2F, hiNibbles)));
    const __m256i pairs = _mm256_maddubs_epi16(str, _mm256_set1_epi32(0x01400140));
    const __m256i words = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i bytes =
        _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(words, pack), lanes);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + o), bytes);
    i += 32;
    o += 24;
  }
  return i;
}

bool HasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2") != 0;
  return has;
}
#endif

}  // namespace

bool DecodeBase64(std::string_view text, std::size_t maxBytes, std::vector<std::uint8_t>& out) {
  // Sized once from the text's length; whitespace and padding only make the result shorter.
  const std::size_t bound = (text.size() + 3) / 4 * 3;
  out.resize(bound < maxBytes ? bound : maxBytes);
  std::size_t written = 0;
  const bool ok = DecodeBase64(text, out.data(), out.size(), written);
  if (ok) out.resize(written);
  return ok;
}

bool DecodeBase64(std::string_view text, std::uint8_t* dst, std::size_t capacity,
                  std::size_t& written) {
  const auto* in = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  written = 0;
  std::size_t i = 0;
  std::uint32_t group = 0;
  int filled = 0;     // sextets in `group`
  int padsLeft = -1;  // '=' still expected once padding has begun; -1 before
  while (i < n) {
    // Whole groups of four digits, two groups (six bytes) a step where the text allows.
    if (filled == 0 && padsLeft < 0) {
#ifdef QXPKUTIL_BASE64_AVX2
      if (HasAvx2()) {
        const std::size_t done =
            DecodeVectorSteps(in + i, n - i, dst + written, capacity - written);
        i += done;
        written += done / 4 * 3;
      }
#endif
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
  return !(padsLeft > 0 || (padsLeft < 0 && filled != 0));
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
