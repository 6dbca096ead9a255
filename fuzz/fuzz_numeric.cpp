// The numeric toolkit on decoded signals: each routine checked against a property that
// holds for any input. Search agrees with a linear scan, regions give finite areas,
// smoothing keeps a constant signal's level at the ends and stays finite, binning keeps
// the total intensity, and a wavelet step followed by its inverse returns the input.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include "fuzz_common.h"
#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/QXWaveletAnalysis.h"

namespace {

using qxpkutil::QXDataExpUtils;
using qxpkutil::fuzz::Bytes;
using qxpkutil::fuzz::Signal;

template <class X>
void CheckSearch(const std::vector<X>& x, double value, std::uint32_t start) {
  const auto n = static_cast<std::uint32_t>(x.size());
  if (n == 0 || std::isnan(value)) {
    const X one[] = {X{1}};  // an empty vector may hand out a null pointer
    QXFUZZ_CHECK(QXDataExpUtils::FindNearestIndex(one, n, value) == (std::isnan(value) ? -1 : 0));
    return;
  }
  const std::int32_t nearest = QXDataExpUtils::FindNearestIndex(x.data(), n, value);
  QXFUZZ_CHECK(nearest >= 0 && static_cast<std::uint32_t>(nearest) < n);
  double best = std::numeric_limits<double>::infinity();
  for (X v : x) best = std::min(best, std::fabs(value - static_cast<double>(v)));
  QXFUZZ_CHECK(std::fabs(value - static_cast<double>(x[static_cast<std::size_t>(nearest)])) ==
               best);

  if (!(x.front() < x.back())) return;  // equal ends count as descending; x is not
  const std::int32_t j = QXDataExpUtils::HuntIndex(x.data(), n, start, value);
  std::int32_t expected = -1;
  for (std::uint32_t i = 0; i < n && static_cast<double>(x[i]) <= value; ++i) {
    expected = static_cast<std::int32_t>(i);
  }
  QXFUZZ_CHECK(j == expected);
}

void CheckRegions(Bytes& in, const Signal& s) {
  const auto n = static_cast<std::uint32_t>(s.x.size());
  if (n < 2) return;
  const auto first = static_cast<std::uint32_t>(in.U16() % n);
  const auto last = static_cast<std::uint32_t>(first + in.U16() % (n - first));
  for (int line = 0; line < 2; ++line) {
    const double sum = QXDataExpUtils::IntegrateSummedRegion(s.x.data(), s.y.data(),
                                                             static_cast<std::int32_t>(first),
                                                             static_cast<std::int32_t>(last), line);
    QXFUZZ_CHECK(std::isfinite(sum) && sum >= 0.0);
    const double counts = QXDataExpUtils::IntegrateSummedRegion(
        s.xf.data(), s.yc.data(), static_cast<std::int32_t>(first), static_cast<std::int32_t>(last),
        line);
    QXFUZZ_CHECK(std::isfinite(counts) && counts >= 0.0);
  }
  const double slope = in.Double(-10.0, 10.0);
  const double intercept = in.Double(-100.0, 100.0);
  const double area = QXDataExpUtils::IntegrateTrapezoidRegion(s.x.data(), s.y.data(), first,
                                                               last + 1, slope, intercept);
  // Line and x of any size are the caller's to choose; when both are tame the area is a number.
  if (std::fabs(slope) <= 1e6 && std::fabs(intercept) <= 1e6 && std::fabs(s.x.front()) < 1e100 &&
      std::fabs(s.x.back()) < 1e100) {
    QXFUZZ_CHECK(std::isfinite(area));
  }

  double leftX = 0, leftY = 0, rightX = 0, rightY = 0, centroid = 0;
  const auto apex = static_cast<std::uint32_t>(first + in.U16() % (last - first + 1));
  const double percent = in.Double(-10.0, 110.0);
  if (QXDataExpUtils::CentroidRegion(s.x.data(), s.y.data(), n, percent, first, last, apex, leftX,
                                     leftY, rightX, rightY, centroid) == 1 &&
      percent >= 0.0 && percent <= 100.0) {
    QXFUZZ_CHECK(!std::isnan(centroid));
  }
  (void)QXDataExpUtils::CentroidRegion(s.xf.data(), s.yc.data(), n, percent, first, last, apex,
                                       leftX, leftY, rightX, rightY, centroid);

  double baseline = 0, noise = 0;
  if (QXDataExpUtils::ComputeBaseline(s.x.data(), s.y.data(), n, in.Double(s.x.front(), s.x.back()),
                                      in.Double(s.x.front(), s.x.back()), in.Int(-1, 3), baseline,
                                      noise) == 1) {
    QXFUZZ_CHECK(std::isfinite(baseline) && std::isfinite(noise) && noise >= 0.0);
  }
}

void CheckSmoothing(Bytes& in, const Signal& s) {
  const auto n = static_cast<std::uint32_t>(s.y.size());
  const int w = in.Int(-1, 2003);
  std::vector<double> out(s.y.size(), -7.0);
  if (QXDataExpUtils::SmoothData(s.y.data(), out.data(), n, in.Int(0, 1), 0, w) == 1) {
    for (std::size_t i = 0; i < out.size(); ++i) QXFUZZ_CHECK(std::isfinite(out[i]));
    const auto half = static_cast<std::size_t>(w / 2);
    for (std::size_t i = 0; i < half && i < out.size(); ++i) QXFUZZ_CHECK(out[i] == s.y[i]);
  }
  std::vector<double> y = s.y;
  const double resolution = in.Double(0.0, 1e5);
  if (QXDataExpUtils::ResolutionSmoothData(s.x.data(), y.data(), static_cast<std::int32_t>(n),
                                           resolution, in.Double(0.0, 10.0)) == 1) {
    for (double v : y) QXFUZZ_CHECK(std::isfinite(v));
  }
}

void CheckBinning(Bytes& in, const Signal& s) {
  const auto n = static_cast<std::uint32_t>(s.x.size());
  std::vector<double> outX(s.x.size(), 0.0), outY(s.x.size(), 0.0);
  const double width = in.Double(0.0, 5.0);
  if (QXDataExpUtils::BinData(s.x.data(), s.y.data(), outX.data(), outY.data(), n, width) != 1)
    return;
  double total = 0.0, binned = 0.0, scale = 0.0;
  for (double v : s.y) {
    total += v;
    scale += std::fabs(v);
  }
  for (double v : outY) binned += v;
  QXFUZZ_CHECK(std::fabs(total - binned) <= 1e-9 * (1.0 + scale));
}

void CheckWavelet(Bytes& in, const Signal& s) {
  std::uint32_t n = 4;
  while (n * 2 <= s.y.size() && n < 4096) n *= 2;
  if (s.y.size() < n) return;
  static const int kTaps[] = {2, 4, 6, 12, 20};
  const int taps = kTaps[in.Int(0, 4)];
  const int shift = in.Int(0, 1);
  std::vector<double> data(s.y.begin(), s.y.begin() + n);
  QXFUZZ_CHECK(qxpkutil::QXWaveletAnalysis::DaubTransform(taps, data.data(), n, 1, shift) == 1);
  QXFUZZ_CHECK(qxpkutil::QXWaveletAnalysis::DaubTransform(taps, data.data(), n, -1, shift) == 1);
  double scale = 1.0;
  for (std::uint32_t i = 0; i < n; ++i) scale = std::max(scale, std::fabs(s.y[i]));
  for (std::uint32_t i = 0; i < n; ++i) QXFUZZ_CHECK(std::fabs(data[i] - s.y[i]) <= 1e-9 * scale);
  const double level = qxpkutil::QXWaveletAnalysis::CalcWhiteNoiseLevel(s.y.data(), n);
  QXFUZZ_CHECK(std::isfinite(level) && level >= 0.0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Bytes in(data, size);
  const int which = in.Byte() % 5;
  const Signal s = qxpkutil::fuzz::DecodeSignal(in, 2048);
  switch (which) {
    case 0: {
      const double value = in.Double(-10.0, 2500.0);
      const std::uint32_t start = in.Bool() ? 0xFFFFFFFFu : in.U16();
      CheckSearch(s.x, value, start);
      CheckSearch(s.xf, value, start);
      break;
    }
    case 1:
      CheckRegions(in, s);
      break;
    case 2:
      CheckSmoothing(in, s);
      break;
    case 3:
      CheckBinning(in, s);
      break;
    default:
      CheckWavelet(in, s);
      break;
  }
  return 0;
}
