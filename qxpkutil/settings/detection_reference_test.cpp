// The classic detection path against a plain reference kept here: the moving-mean scan and
// the detection driver as first written, one window mean at a time, a full trial table and
// the padded, fully sorted noise estimate. The library's faster forms must give the same
// tables bit for bit (every field of every peak) on random and spectrum-like signals,
// both array families, every filter type and a spread of settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "qxpkutil/numeric/QXDataExpUtils.h"
#include "qxpkutil/numeric/QXWaveletAnalysis.h"
#include "qxpkutil/peaks/QXPeakTable.h"
#include "qxpkutil/platform/QXTypes.h"
#include "qxpkutil/settings/QXPeakTableList.h"
#include "testing/QXTestPeaks.h"
#include "testing/QXTestSettings.h"
#include "testing/QXTestSignals.h"

namespace qxpkutil {
namespace {

// ---------------------------------------------------------------------------------------
// Reference scan: a window mean computed afresh wherever one is needed.

struct ScanSettings {
  double areaScale;
  double threshold;
  int filterType;
  int filterWidth;
  int filterInc;
  double minArea;
  int maxPeakWidth;
  double noiseThreshold;
  int integrationMethod;
};

enum class Direction { kLeftward, kRightward };

template <class XValue, class YValue>
class ReferenceScan {
 public:
  ReferenceScan(const XValue* x, const YValue* y, std::uint32_t n, const ScanSettings& s)
      : m_x(x), m_y(y), m_n(n), m_s(s) {}

  void Run(QXPeakTable& table, std::int64_t first, std::int64_t last) const {
    const std::int64_t width = m_s.filterWidth;
    const std::int64_t inc = m_s.filterInc;
    double prevMean = kQXUnsetValue;
    double mean = 0.0;
    bool rising = false;
    std::int64_t riseStart = 0;
    std::int64_t valley = -1;
    std::int64_t lastResume = -1;
    double lastResumeMean = 0.0;
    for (std::int64_t i = first; i <= last; i += inc) {
      const std::int64_t w = i + width;
      if (w > last) {
        if (rising) mean = prevMean - 1.0;
      } else if (m_s.filterType == 0 || m_s.filterType == 1) {
        mean = WindowMean(i);
      }
      if (mean <= prevMean) {
        if (!rising) valley = i;
        if (rising && riseStart > 0) {
          std::int64_t apex = riseStart;
          const std::int64_t apexEnd = std::min<std::int64_t>(w - 1, m_n - 1);
          for (std::int64_t k = riseStart + 1; k <= apexEnd; ++k) {
            if (Y(k) > Y(apex)) apex = k;
          }
          if (valley < 0) valley = first;
          const std::int64_t left =
              FindBound(Direction::kLeftward, valley, apex, apex, m_s.noiseThreshold, mean);
          riseStart = std::max(riseStart, left);
          const std::int64_t right = FindBound(Direction::kRightward, riseStart + 1, apex, last,
                                               m_s.noiseThreshold, mean);
          const double area = QXDataExpUtils::IntegrateSummedRegion(
                                  m_x, m_y, static_cast<std::int32_t>(left),
                                  static_cast<std::int32_t>(right), m_s.integrationMethod) *
                              m_s.areaScale;
          const std::int64_t peakWidth = right - left - 1;
          if (right > apex && peakWidth >= width / 2 && peakWidth <= m_s.maxPeakWidth &&
              area >= m_s.minArea && Y(apex) >= m_s.threshold) {
            table.AddPeak(static_cast<double>(m_x[apex]), Y(apex),
                          static_cast<std::uint32_t>(apex), static_cast<double>(m_x[left]),
                          Y(left), static_cast<std::uint32_t>(left),
                          static_cast<double>(m_x[right]), Y(right),
                          static_cast<std::uint32_t>(right), 0.0, area, 0.0, 0.0, 0.0, 0.0, 0);
          }
          valley = right;
          if (right != lastResume || mean != lastResumeMean) {
            lastResume = right;
            lastResumeMean = mean;
            i = right - inc;
          }
        }
        rising = false;
      } else if (m_s.threshold <= Y(std::min<std::int64_t>(i + width / 2, m_n - 1)) ||
                 m_s.threshold <= mean) {
        rising = true;
        riseStart = i;
      }
      prevMean = mean;
    }
  }

 private:
  double Y(std::int64_t i) const { return static_cast<double>(m_y[i]); }

  double WindowMean(std::int64_t i) const {
    return m_s.filterType == 0 ? QXDataExpUtils::NormGaussMean(m_y + i, m_s.filterWidth)
                               : QXDataExpUtils::Mean(m_y + i, m_s.filterWidth);
  }

  // The lowest point in [lo, hi]: of equals, the first going right, the last going left.
  std::int64_t LowestPoint(std::int64_t lo, std::int64_t hi, Direction dir) const {
    hi = std::min<std::int64_t>(hi, m_n - 1);
    std::int64_t best = dir == Direction::kRightward ? lo : hi;
    for (std::int64_t k = lo; k <= hi; ++k) {
      if (dir == Direction::kRightward ? Y(k) < Y(best) : Y(k) <= Y(best)) best = k;
    }
    return lo > hi ? hi : best;
  }

  std::int64_t FindBound(Direction dir, std::int64_t start, std::int64_t apex, std::int64_t limit,
                         double t, double& mean) const {
    const std::int64_t w = m_s.filterWidth;
    const std::int64_t inc = m_s.filterInc;
    double prev = start + w <= limit ? WindowMean(start) : 0.0;
    if (t <= 0.0) {
      std::int64_t base = start;
      std::int64_t stopIndex = -1;
      for (std::int64_t i = start + inc; i <= limit - w; i += inc) {
        const double m = WindowMean(i);
        mean = m;
        if (m > prev) {
          stopIndex = i;
          base = i - inc;
          break;
        }
        prev = m;
        base = i;
      }
      if (stopIndex < 0) stopIndex = base + inc;
      if (dir == Direction::kRightward && (stopIndex < apex || base < apex)) base = apex;
      mean = prev;
      return LowestPoint(base, std::min(base + w, limit), dir);
    }
    if (dir == Direction::kLeftward) {
      for (std::int64_t i = start + inc; i + w <= limit; i += inc) {
        const double m = WindowMean(i);
        mean = m;
        const std::int64_t candidate = i + w / 2;
        if (std::fabs(prev - m) >= t && prev != m) return candidate;
        prev = m;
        if (i + inc + w > limit) return candidate;
      }
      return start;
    }
    const std::int64_t r = FindBound(Direction::kRightward, start, apex, limit, 0.0, mean);
    prev = mean;
    for (std::int64_t i = r - 1; i >= apex && i <= limit - w; i -= inc) {
      const double m = WindowMean(i);
      mean = m;
      const std::int64_t candidate = i + w / 2;
      if (std::fabs(prev - m) >= t && prev != m) return candidate;
      if (candidate < apex) return apex;
      prev = m;
      if (i - inc < apex) return candidate;
    }
    return r;
  }

  const XValue* m_x;
  const YValue* m_y;
  std::uint32_t m_n;
  ScanSettings m_s;
};

bool ScanCanRun(std::int64_t first, std::int64_t last, std::uint32_t n, const ScanSettings& s) {
  return first >= 0 && first < last && last < static_cast<std::int64_t>(n) &&
         s.filterWidth >= 1 && s.filterInc >= 1 && s.filterWidth < last - first &&
         n <= static_cast<std::uint32_t>(INT32_MAX);
}

// The scan entry points with the library's own finishing steps.
class ReferenceTable : public QXPeakTable {
 public:
  // A scan of `d` with the filter, bounds and finishing values of `s` and the rest as given.
  std::int32_t Find(const testing::Signal& d, double areaScale, double threshold,
                    const QXPeakDetectSetting& s, int filterInc, double minArea, int maxPeakWidth,
                    int massProcessing, int finish, double startX, double endX) {
    const double* x = d.x.data();
    const auto n = static_cast<std::uint32_t>(d.x.size());
    std::int64_t first = 0;
    std::int64_t last = static_cast<std::int64_t>(n) - 1;
    if (startX != 0.0 || endX != 0.0) {
      first = QXDataExpUtils::FindNearestIndex(x, n, startX);
      if (endX != 0.0) last = QXDataExpUtils::FindNearestIndex(x, n, endX);
    }
    const ScanSettings scan{areaScale,      threshold,        s.GetFilterType(),
                            s.GetFilterWidth(), filterInc,    minArea,
                            maxPeakWidth,   s.GetNoiseThreshold(), s.GetIntegratedMethod()};
    if (ScanCanRun(first, last, n, scan))
      ReferenceScan<double, double>(x, d.y.data(), n, scan).Run(*this, first, last);
    m_nSortMethod = 0;
    if (finish && massProcessing) {
      CentroidPeaks(x, d.y.data(), n, s.GetPctCentroid());
      ProcessMassPeak(s.GetMaxCharge(), s.GetMaxIsotope(), s.GetRelMasMinIntensity(),
                      s.GetRelMassMaxIntensity());
    }
    return GetNumPeaks();
  }

  std::int32_t Find(const testing::CountSignal& c, double areaScale, const QXPeakDetectSetting& s) {
    const auto n = static_cast<std::uint32_t>(c.x.size());
    const ScanSettings scan{areaScale,          s.GetAbsThreshold(), s.GetFilterType(),
                            s.GetFilterWidth(), s.GetFilterInc(),    s.GetMinPeakArea(),
                            s.GetMaxPeakWidth(), s.GetNoiseThreshold(), s.GetIntegratedMethod()};
    if (ScanCanRun(0, n - 1, n, scan))
      ReferenceScan<float, std::uint32_t>(c.x.data(), c.y.data(), n, scan).Run(*this, 0, n - 1);
    m_nSortMethod = 0;
    CentroidPeaks(c.x.data(), c.y.data(), n, s.GetPctCentroid());
    return GetNumPeaks();
  }
};

// ---------------------------------------------------------------------------------------
// Reference driver over scan segments: a full trial table per segment for the largest area.

// Areas unscaled; `noise`, when set, becomes every segment's noise threshold.
void ReferenceDriver(std::vector<QXPeakDetectSetting>& segments, int massProcessing,
                     std::optional<double> noise, const testing::Signal& d, double yMax,
                     ReferenceTable& target) {
  const double areaScale = 1.0;
  const double minY = std::min(0.0, *std::min_element(d.y.begin(), d.y.end()));
  double maxArea = 0.0;
  ReferenceTable trial;
  for (QXPeakDetectSetting& s : segments) {
    trial.DeleteAllPeaks();
    if (noise) s.SetNoiseThreshold(*noise);
    const auto search = [&](int maxPeakWidth) {
      return trial.Find(d, areaScale, s.GetAbsThreshold(), s, 1, s.GetMinPeakArea(), maxPeakWidth,
                        massProcessing, 0, s.GetRangeX1(), s.GetRangeX2());
    };
    std::int32_t found = search(s.GetMaxPeakWidth());
    if (found == 0) found = search(10000);
    for (std::int32_t i = 0; i < found; ++i) maxArea = std::max(maxArea, trial.GetPeak(i)->m_dArea);
  }
  const auto count = static_cast<std::int32_t>(segments.size());
  for (std::int32_t i = 0; i < count; ++i) {
    QXPeakDetectSetting& s = segments[static_cast<std::size_t>(i)];
    const double threshold =
        std::max(s.GetRelThreshold() * 0.01 * (yMax - minY) + minY, s.GetAbsThreshold());
    const double minArea = std::max(maxArea * s.GetPctPeakArea() * 0.01, s.GetMinPeakArea());
    if (noise) s.SetNoiseThreshold(*noise);
    double startX = s.GetRangeX1();
    double endX = s.GetRangeX2();
    if (i == 0) {
      target.DeleteAllPeaks();
      if (startX == endX) startX = endX = 0.0;
    }
    target.Find(d, areaScale, threshold, s, s.GetFilterInc(), minArea, s.GetMaxPeakWidth(),
                massProcessing, i == count - 1 ? 1 : 0, startX, endX);
  }
  // Overlapping segments: a stable sort by apex x, then duplicate removal.
  std::vector<std::unique_ptr<QXPeakTableElement>> peaks;
  while (target.GetNumPeaks() > 0) peaks.push_back(target.RemovePeak(-1));
  std::reverse(peaks.begin(), peaks.end());
  std::stable_sort(peaks.begin(), peaks.end(),
                   [](const auto& a, const auto& b) { return a->m_dApexX < b->m_dApexX; });
  for (auto& p : peaks) target.AddPeak(p.release());
  target.RemoveDuplicatedPeaks();
  target.SortPeakTable(0);
}

// ---------------------------------------------------------------------------------------
// Comparison and random inputs.

bool Same(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Empty when the tables agree bit for bit, else what differs first. The filtered-iteration
// cursors must agree too (read by moving them: the next peak they give).
std::string Difference(QXPeakTable& a, QXPeakTable& b) {
  if (a.GetNumPeaks() != b.GetNumPeaks()) {
    return "peak counts " + std::to_string(a.GetNumPeaks()) + " and " +
           std::to_string(b.GetNumPeaks());
  }
  if (a.GetSortMethod() != b.GetSortMethod()) return "sort methods differ";
  for (std::int32_t i = 0; i < a.GetNumPeaks(); ++i) {
    const QXPeakTableElement& p = *a.GetPeak(i);
    const QXPeakTableElement& q = *b.GetPeak(i);
    const std::vector<double> pv = testing::RecordValues(p);
    const std::vector<double> qv = testing::RecordValues(q);
    const bool same = std::memcmp(pv.data(), qv.data(), pv.size() * sizeof(double)) == 0 &&
                      p.m_dwFlags == q.m_dwFlags && p.m_strLabel == q.m_strLabel;
    if (!same) return "peak " + std::to_string(i) + " at apex " + std::to_string(p.m_nApexIndex);
  }
  const QXPeakTableElement* nextA = a.GetNextFilteredPeak(kQXFilterAll, nullptr);
  const QXPeakTableElement* nextB = b.GetNextFilteredPeak(kQXFilterAll, nullptr);
  if ((nextA == nullptr) != (nextB == nullptr) ||
      (nextA != nullptr && nextA->m_nApexIndex != nextB->m_nApexIndex)) {
    return "cursors differ";
  }
  return {};
}

// A signal of one of three kinds: isolated and crowded Gaussian peaks on noise, the same
// rounded to whole numbers (ties everywhere), or a spectrum whose peaks widen with x.
struct Draw {
  std::mt19937& rng;
  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }
  double Real(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
};

testing::Signal RandomSignal(std::mt19937& rng, int shortest = 300, int longest = 3000) {
  Draw draw{rng};
  const int kind = draw.Int(0, 2);
  const auto n = static_cast<std::size_t>(draw.Int(shortest, longest));
  const double dx = kind == 2 ? 0.002 : 0.05;
  const double x0 = kind == 2 ? 400.0 : 0.0;
  std::vector<testing::GaussPeak> peaks;
  const int count = draw.Int(1, longest / 75);  // up to 40 for the usual lengths
  for (int k = 0; k < count; ++k) {
    const double centre = x0 + draw.Real(0.0, dx * static_cast<double>(n));
    const double sigma = kind == 2 ? centre / 40000.0 : draw.Real(0.5, 6.0) * dx;
    peaks.push_back({centre, draw.Real(20.0, 5000.0), sigma});
  }
  testing::Signal s = testing::MakeSignal(n, x0, dx, peaks,
                                          {.baseline = draw.Real(0.0, 50.0),
                                           .noiseSigma = draw.Real(0.0, 10.0),
                                           .seed = static_cast<unsigned>(rng())});
  if (kind == 1) {
    for (double& v : s.y) v = std::round(std::max(v, 0.0));
  }
  return s;
}

QXPeakDetectSetting RandomSegment(std::mt19937& rng, const testing::Signal& d) {
  Draw draw{rng};
  const double x0 = d.x.front();
  const double span = d.x.back() - x0;
  double x1 = 0.0;
  double x2 = 0.0;
  if (draw.Int(0, 2) != 0) {
    x1 = x0 + draw.Real(0.0, 0.6) * span;
    x2 = x1 + draw.Real(0.2, 0.6) * span;
  }
  // Braces draw the values left to right. Widths are mostly those of table kernels; now and
  // then the large-width kernel of the per-thread cache.
  return QXPeakDetectSetting{x1, x2, draw.Int(0, 1) ? draw.Real(0.0, 10.0) : 0.0,
                             draw.Real(0.0, 60.0), draw.Int(0, 2),
                             draw.Int(0, 12) == 0 ? draw.Int(202, 260) : draw.Int(1, 25),
                             draw.Int(1, 4), draw.Int(0, 1) ? draw.Real(0.0, 500.0) : 0.0,
                             draw.Int(0, 1) ? draw.Real(0.0, 5.0) : 0.0, 1, draw.Int(3, 300), 0,
                             draw.Int(0, 1) ? draw.Real(0.0, 20.0) : 0.0, draw.Int(0, 2),
                             draw.Real(10.0, 90.0), 4, 6, 0.05, 2.0};
}

// Every setting of the scan over random signals, both array families, against the reference.
TEST(ClassicDetection, ScanMatchesReferenceBitForBit) {
  std::mt19937 rng(20261125);
  for (int round = 0; round < 300; ++round) {
    const testing::Signal d = RandomSignal(rng);
    const QXPeakDetectSetting s = RandomSegment(rng, d);
    const int mass = static_cast<int>(rng() % 2);
    const int finish = static_cast<int>(rng() % 3 != 0);
    const double scale = (rng() % 2) ? 1.0 : 0.37;
    const auto n = static_cast<std::uint32_t>(d.x.size());
    QXPeakTable fast;
    ReferenceTable slow;
    const std::int32_t a = fast.FindPeaks(
        d.x.data(), d.y.data(), n, scale, s.GetAbsThreshold(), s.GetFilterType(),
        s.GetFilterWidth(), s.GetFilterInc(), s.GetMinPeakArea(), 0, s.GetMaxPeakWidth(),
        s.GetNoiseThreshold(), s.GetPctCentroid(), s.GetIntegratedMethod(), mass, 4, 6, 0.05,
        2.0, finish, s.GetRangeX1(), s.GetRangeX2(), 0);
    const std::int32_t b = slow.Find(d, scale, s.GetAbsThreshold(), s, s.GetFilterInc(),
                                     s.GetMinPeakArea(), s.GetMaxPeakWidth(), mass, finish,
                                     s.GetRangeX1(), s.GetRangeX2());
    ASSERT_EQ(a, b) << "round " << round;
    ASSERT_EQ(Difference(fast, slow), "") << "round " << round;

    const testing::CountSignal c = testing::ToCountFamily(d);
    QXPeakTable fastCounts;
    ReferenceTable slowCounts;
    fastCounts.FindPeaks(c.x.data(), c.y.data(), n, scale, s.GetAbsThreshold(), s.GetFilterType(),
                         s.GetFilterWidth(), s.GetFilterInc(), s.GetMinPeakArea(), 0,
                         s.GetMaxPeakWidth(), s.GetNoiseThreshold(), s.GetPctCentroid(),
                         s.GetIntegratedMethod());
    slowCounts.Find(c, scale, s);
    ASSERT_EQ(Difference(fastCounts, slowCounts), "") << "round " << round << " (counts)";
  }
}

// The driver with one to three segments, mass processing and the automatic noise threshold
// on or off, against the reference driver; the noise thresholds it leaves behind too. The
// long signals make the trial and the search beside it pause and resume many times.
TEST(ClassicDetection, DriverMatchesReferenceBitForBit) {
  std::mt19937 rng(7);
  for (int round = 0; round < 130; ++round) {
    const testing::Signal d = round < 120 ? RandomSignal(rng) : RandomSignal(rng, 30000, 90000);
    std::vector<QXPeakDetectSetting> segments(1 + rng() % 3);
    for (QXPeakDetectSetting& s : segments) s = RandomSegment(rng, d);
    const int mass = static_cast<int>(rng() % 2);
    const int autoSN = static_cast<int>(rng() % 2);
    QXPeakTableList list = testing::ListOf(segments);
    list.SetMassProcessing(mass);
    list.SetAutoSNCalcOn(autoSN);
    list.AddPeakTableToList();
    const auto n = static_cast<std::uint32_t>(d.x.size());
    const double yMax = *std::max_element(d.y.begin(), d.y.end());
    std::optional<double> noise;
    if (autoSN) noise = 0.75 * QXWaveletAnalysis::CalcWhiteNoiseLevel(d.y.data(), n);

    list.FindPeaks(d.x.data(), d.y.data(), n, yMax, 1.0, 0);
    ReferenceTable slow;
    ReferenceDriver(segments, mass, noise, d, yMax, slow);
    ASSERT_EQ(Difference(*list.GetPeakTableFromList(0), slow), "") << "round " << round;
    const auto after = testing::Segments(list);
    ASSERT_EQ(after.size(), segments.size());
    for (std::size_t k = 0; k < after.size(); ++k)
      ASSERT_TRUE(Same(after[k].GetNoiseThreshold(), segments[k].GetNoiseThreshold()));
  }
}

// Two threads search different signals with different large windows (the per-thread kernel
// cache) at once, each through the driver and its shared window means: each gets the table
// a lone search gives.
TEST(ClassicDetection, ThreadsKeepTheirOwnMeansAndKernels) {
  std::mt19937 rng(99);
  struct Job {
    testing::Signal signal;
    QXPeakTableList list;
    std::unique_ptr<QXPeakTable> alone;
    std::string difference;
  };
  Job jobs[2];
  for (int k = 0; k < 2; ++k) {
    Job& job = jobs[k];
    job.signal = testing::MakeSignal(6000, 0.0, 0.05, {{60.0, 900.0, 2.0}, {200.0, 500.0, 3.0}},
                                     {.baseline = 10.0, .noiseSigma = 3.0, .seed = 5u + k});
    QXPeakDetectSetting s(0.0, 0.0, 1.0, 0.0, 0, 230 + 20 * k, 1, 0.0, 1.0, 1, 3000, 0, 0.0, 1,
                          50.0, 4, 6, 0.05, 2.0);
    job.list = testing::ListOf({s});
    job.list.SetMassProcessing(1);
    job.list.AddPeakTableToList();
    const auto n = static_cast<std::uint32_t>(job.signal.x.size());
    job.list.FindPeaks(job.signal.x.data(), job.signal.y.data(), n, 1000.0, 1.0, 0);
    job.alone = std::make_unique<QXPeakTable>(*job.list.GetPeakTableFromList(0));
    ASSERT_GT(job.alone->GetNumPeaks(), 0);
  }
  const auto work = [](Job& job) {
    const auto n = static_cast<std::uint32_t>(job.signal.x.size());
    for (int round = 0; round < 10 && job.difference.empty(); ++round) {
      job.list.FindPeaks(job.signal.x.data(), job.signal.y.data(), n, 1000.0, 1.0, 0);
      // Copies start their cursors afresh, so only the peaks are compared here.
      QXPeakTable got(*job.list.GetPeakTableFromList(0));
      QXPeakTable want(*job.alone);
      job.difference = Difference(got, want);
    }
  };
  std::thread other(work, std::ref(jobs[1]));
  work(jobs[0]);
  other.join();
  EXPECT_EQ(jobs[0].difference, "");
  EXPECT_EQ(jobs[1].difference, "");
}

}  // namespace
}  // namespace qxpkutil
