// Shared by the fuzz targets: a reader that turns the fuzzer's bytes into values, a check
// that stops the run with a message when an invariant breaks, and decoders that make a
// signal (ascending x, both array families) out of bytes.
//
//   qxpkutil::fuzz::Bytes in(data, size);
//   const auto signal = qxpkutil::fuzz::DecodeSignal(in);
//   QXFUZZ_CHECK(signal.x.size() == signal.y.size());
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

// Every target defines this; libFuzzer calls it, and so does the corpus replay of CTest.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// Unlike assert, stays on in release builds: a broken invariant is the finding.
#define QXFUZZ_CHECK(cond)                                                                \
  do {                                                                                    \
    if (!(cond)) {                                                                        \
      std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                       \
    }                                                                                     \
  } while (0)

namespace qxpkutil::fuzz {

// Takes values from the front of the input; past its end every value is zero, so any
// input decodes to something.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

  bool Empty() const { return m_pos >= m_size; }
  std::size_t Left() const { return m_size - m_pos; }

  std::uint8_t Byte() { return m_pos < m_size ? m_data[m_pos++] : 0; }
  std::uint16_t U16() { return static_cast<std::uint16_t>(Byte() | (Byte() << 8)); }
  std::uint32_t U32() { return static_cast<std::uint32_t>(U16()) | (std::uint32_t{U16()} << 16); }
  bool Bool() { return (Byte() & 1) != 0; }
  // A value in lo..hi, both included.
  int Int(int lo, int hi) {
    const auto span = static_cast<std::uint32_t>(static_cast<std::int64_t>(hi) - lo + 1);
    return static_cast<int>(lo + static_cast<std::int64_t>(U32() % span));
  }
  // A double of any bit pattern: NaN, infinities and subnormals included.
  double AnyDouble() {
    std::uint64_t bits = U32();
    bits |= std::uint64_t{U32()} << 32;
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  // A tame double in lo..hi, now and then one of the edge values a caller might pass.
  double Double(double lo, double hi) {
    const std::uint8_t pick = Byte();
    if (pick == 255) return AnyDouble();
    if (pick == 254) return 0.0;
    if (pick == 253) return -1.0;
    return lo + (hi - lo) * (U16() / 65535.0);
  }
  // The rest of the input as text.
  std::string_view Rest() {
    const std::size_t at = m_pos < m_size ? m_pos : m_size;
    m_pos = m_size;
    return {reinterpret_cast<const char*>(m_data) + at, m_size - at};
  }

 private:
  const std::uint8_t* m_data;
  std::size_t m_size;
  std::size_t m_pos = 0;
};

// A signal of both families: (x, y) doubles and the same points as float x and count y.
struct Signal {
  std::vector<double> x;
  std::vector<double> y;
  std::vector<float> xf;
  std::vector<std::uint32_t> yc;
};

// Up to `maxPoints` points: x starts anywhere in 0..2000 and steps up by a decoded amount
// (zero steps, so equal neighbours, included); y takes each point's next byte pair as a
// count, scaled, with a peak shape added so that detection has something to find.
inline Signal DecodeSignal(Bytes& in, std::size_t maxPoints = 4096) {
  Signal s;
  const std::size_t n = std::min<std::size_t>(maxPoints, in.U16());
  const double x0 = in.Double(0.0, 2000.0);
  const double step = 1e-3 + in.U16() / 1000.0;
  const double scale = 1.0 + in.Byte();
  const int jitter = in.Byte();
  const bool negative = in.Bool();
  double x = std::isfinite(x0) ? x0 : 0.0;
  s.x.reserve(n);
  s.y.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    const std::uint8_t b = in.Byte();
    // Steps vary with the data; one in 64 is zero.
    x += (b & 63) == 0 ? 0.0 : step * (1.0 + ((b >> 6) * jitter) / 512.0);
    const double bump =
        1000.0 * std::exp(-0.5 * std::pow((static_cast<double>(i % 97) - 48.0) / 4.0, 2));
    double y = in.Byte() * scale + bump;
    if (negative && (b & 1)) y = -y / 16.0;
    s.x.push_back(x);
    s.y.push_back(y);
  }
  constexpr double kFloatMax = std::numeric_limits<float>::max();
  s.xf.reserve(n);
  s.yc.reserve(n);
  for (std::size_t i = 0; i < n; ++i) {
    // Clamped to float's range: a huge double x would otherwise become an infinite float x.
    s.xf.push_back(static_cast<float>(std::clamp(s.x[i], -kFloatMax, kFloatMax)));
    s.yc.push_back(static_cast<std::uint32_t>(std::max(0.0, s.y[i])));
  }
  // float rounding may make x fall; the float family gets an ascending copy of its own.
  for (std::size_t i = 1; i < n; ++i) {
    if (s.xf[i] < s.xf[i - 1]) s.xf[i] = s.xf[i - 1];
  }
  return s;
}

}  // namespace qxpkutil::fuzz
