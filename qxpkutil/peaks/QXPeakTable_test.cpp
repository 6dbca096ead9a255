#include "qxpkutil/peaks/QXPeakTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <tuple>
#include <type_traits>
#include <vector>

#include "qxpkutil/platform/QXTypes.h"
#include "testing/QXTestArchive.h"
#include "testing/QXTestFiles.h"
#include "testing/QXTestPeaks.h"

namespace qxpkutil {
namespace {

// A table whose peaks have the given apex x values; apex y defaults to 10 * (index + 1).
QXPeakTable MakeTable(const std::vector<double>& xs, std::vector<double> ys = {}) {
  QXPeakTable t;
  for (std::size_t i = 0; i < xs.size(); ++i) {
    const double y = i < ys.size() ? ys[i] : 10.0 * static_cast<double>(i + 1);
    t.AddPeak(QXPeakTableElement(xs[i], y, static_cast<std::uint32_t>(i)));
  }
  return t;
}

std::vector<std::uint32_t> ApexIndices(const QXPeakTable& t) {
  return testing::EachPeak(t, [](const QXPeakTableElement& p) { return p.m_nApexIndex; });
}

// Indices, counts and flag words are 32 bits wide on every platform, as in every other
// class; a member pointer converts to the exact type only when the signature matches.
struct SurfaceWidths : QXPeakTable {
  using T = QXPeakTable;
  using I = std::int32_t;
  using U = std::uint32_t;
  using E = QXPeakTableElement;
  using F = const tagQXPeakFilterStruct*;
  static constexpr std::tuple kSignatures{
      static_cast<I (T::*)() const>(&T::GetNumPeaks), static_cast<E* (T::*)(I) const>(&T::GetPeak),
      static_cast<std::unique_ptr<E> (T::*)(I)>(&T::RemovePeak),
      static_cast<int (T::*)(I)>(&T::DeletePeak),
      static_cast<int (T::*)(double*, double*, I) const>(&T::GetPeakApex),
      static_cast<I (T::*)(double, int)>(&T::GetPeakNearest),
      static_cast<E* (T::*)(U, F)>(&T::GetNextFilteredPeak),
      static_cast<E* (T::*)(double, double, U, F, int)>(&T::GetPeakInRange),
      static_cast<void (T::*)(I, I)>(&SurfaceWidths::QuickSort),
      static_cast<int (T::*)(const double*, U, U, U, I, I&, double) const>(
          &SurfaceWidths::FindMaxIndex),
      static_cast<I (T::*)(const double*, const double*, U, double, int, int, double, double, int,
                           double, double)>(&T::BuildCentroidPeakTable),
      static_cast<I (T::*)(const double*, const double*, U, double, double, int, int, int, double,
                           int, int, double, double, int, int, int, int, double, double, int,
                           double, double, int)>(&T::FindPeaks),
      static_cast<I (T::*)(const float*, const U*, U, double, double, int, int, int, double, int,
                           int, double, double, int)>(&T::FindPeaks),
      static_cast<I (T::*)(const double*, const double*, U, double, double, double, int, int, int,
                           int, double, double, int, double, double, int)>(&T::FindPeaks),
      static_cast<int (E::*)(U, F) const>(&E::DoesPeakMatchCriteria)};
};

TEST(QXPeakTable, IndexConventionAndOwnership) {
  QXPeakTable t;
  double x = 7, y = 7;
  EXPECT_EQ(t.RemovePeak(-1), nullptr);
  EXPECT_EQ(std::make_tuple(t.GetPeak(-1), t.DeletePeak(0), t.GetPeakApex(&x, &y, 0)),
            std::make_tuple(nullptr, 0, 0));
  EXPECT_EQ(x, 7);
  t = MakeTable({1, 2, 3});
  EXPECT_EQ(std::make_tuple(t.GetSortMethod(), t.GetPeak(-1)->m_dApexX, t.DeletePeak(3)),
            std::make_tuple(-1, 3.0, 0));
  EXPECT_EQ(t.GetPeakApex(&x, &y, 1), 1);
  EXPECT_EQ(std::make_pair(x, y), std::make_pair(2.0, 20.0));
  const std::unique_ptr<QXPeakTableElement> removed = t.RemovePeak(0);
  ASSERT_NE(removed, nullptr);
  EXPECT_EQ(removed->m_dApexX, 1);
  EXPECT_EQ(t.DeletePeak(-1), 1);
  t.SetPeak(9, 90, 4, 0, 0, 0, 0, 0, 0, 9.5, 1, 0, 0, 0, 0, 2, -1);
  t.AddPeak(static_cast<QXPeakTableElement*>(nullptr));
  EXPECT_EQ(ApexIndices(t), std::vector<std::uint32_t>{4});
  EXPECT_EQ(std::make_pair(t.GetPeak(0)->m_dCentroidX, t.GetPeak(0)->m_nCharge),
            std::make_pair(9.5, 2));
}

// The three-key primitive never exchanges equal keys: every triple of keys 1..3 comes out
// as a stable sort puts it, e.g. (2,2,1) -> (1,2a,2b) and (2,1,1) -> (1b,1c,2a).
TEST(QXPeakTable, Sort3PeaksKeepsEqualKeysInTheirOrder) {
  for (int k = 0; k < 27; ++k) {
    const std::vector<double> keys{k / 9 + 1.0, k / 3 % 3 + 1.0, k % 3 + 1.0};
    std::vector<std::uint32_t> order{0, 1, 2};
    std::stable_sort(order.begin(), order.end(),
                     [&](std::uint32_t a, std::uint32_t b) { return keys[a] < keys[b]; });
    QXPeakTable t = MakeTable(keys);
    t.SortPeakTable(0);
    EXPECT_EQ(ApexIndices(t), order) << keys[0] << keys[1] << keys[2];
  }
}

TEST(QXPeakTable, QuickSortOrdersLargeRandomTablesLikeStdSort) {
  std::mt19937 rng(7);
  for (int size : {0, 1, 2, 3, 4, 5, 17, 250, 10007}) {
    for (int distinct : {3, 1000000}) {  // many ties, then almost none
      std::uniform_int_distribution<int> pick(0, distinct);
      std::vector<double> xs(size), ys(size);
      for (int i = 0; i < size; ++i) {
        xs[i] = pick(rng);
        ys[i] = pick(rng);
      }
      for (int method : {0, 1}) {
        QXPeakTable t = MakeTable(xs, ys);
        t.SortPeakTable(method);
        std::vector<double> keys = method == 0 ? xs : ys;
        std::sort(keys.begin(), keys.end());
        for (int i = 0; i < size; ++i) {
          const QXPeakTableElement* p = t.GetPeak(i);
          ASSERT_EQ(method == 0 ? p->m_dApexX : p->m_dApexY, keys[i]) << size << " at " << i;
        }
        EXPECT_EQ(t.GetSortMethod(), method);
      }
    }
  }
}

TEST(QXPeakTable, SortTrustsTheStoredMethodAndSurvivesNaNKeys) {
  QXPeakTable t = MakeTable({1, 2, 3}, {30, 20, 10});
  t.SortPeakTable(1);
  EXPECT_EQ(t.GetPeak(0)->m_dApexY, 10);
  t.GetPeak(0)->m_dApexY = 99;  // out of order now, but still marked as sorted by intensity
  t.SortPeakTable(1);
  EXPECT_EQ(t.GetPeak(0)->m_dApexY, 99);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  t = MakeTable({5, nan, 1, nan, 3, 2, nan, 4});
  t.SortPeakTable(0);
  EXPECT_EQ(t.GetNumPeaks(), 8);
  EXPECT_GE(t.GetPeakNearest(2.2, 0), 0);
}

// Random tables of distinct whole apexes (added shuffled; apex y with ties; centroids up to
// 3/4 past their apexes) against plain models on the x-sorted peaks.
TEST(QXPeakTable, LookupsAgreeWithPlainModels) {
  std::mt19937 rng(3);
  const auto apexX = [](const QXPeakTableElement* p) { return p ? p->m_dApexX : -1.0; };
  for (int round = 0; round < 3000; ++round) {
    std::vector<double> xs, ys, cs, all;
    std::vector<std::int32_t> order, passing, seen;
    for (unsigned x = 0, every = 1 + rng() % 40; x <= 30; ++x) {
      if (rng() % every) continue;
      order.push_back(static_cast<std::int32_t>(xs.size()));
      xs.push_back(x), ys.push_back(1 + rng() % 4), cs.push_back(x + 0.25 * (rng() % 4));
    }
    std::shuffle(order.begin(), order.end(), rng);
    QXPeakTable t;
    for (std::int32_t i : order) {
      t.AddPeak(xs[i], ys[i], i, 0, 0, 0, 0, 0, 0, cs[i], 0, 0, 0, 0, 0, 0);
    }
    t.SortPeakTable(static_cast<int>(rng() % 2));
    const int c = static_cast<int>(rng() % 2);
    const double a = (rng() % 70) / 2.0 - 2.0, b = (rng() % 70) / 2.0 - 2.0;
    tagQXPeakFilterStruct filter{};
    filter.dMinIntensity = 1.0 + rng() % 4;
    const std::uint32_t flags = rng() % 2 ? kQXFilterMinIntensity : 0;
    // The nearest key (ties to the lower), and the most intense (ties to the lower) of all
    // passing peaks in [a, b].
    std::int32_t nearest = -1, best = -1;
    const auto key = [&](std::int32_t k) { return c ? cs[k] : xs[k]; };
    for (std::int32_t i = 0; i < std::ssize(xs); ++i) {
      if (nearest < 0 || std::fabs(key(i) - a) < std::fabs(key(nearest) - a)) nearest = i;
      if (flags && ys[i] < filter.dMinIntensity) continue;
      passing.push_back(i);
      if (key(i) < std::min(a, b) || key(i) > std::max(a, b)) continue;
      all.push_back(xs[i]);
      if (best < 0 || ys[i] > ys[best]) best = i;
    }
    SCOPED_TRACE(::testing::Message() << xs.size() << " peaks, " << a << ".." << b << " c " << c);
    EXPECT_EQ(t.IsPeakInRegion(a, b),  // half-open
              std::any_of(xs.begin(), xs.end(), [&](double x) { return x >= a && x < b; }));
    EXPECT_EQ(t.GetPeakNearest(a, c), nearest);
    EXPECT_TRUE(xs.empty() || t.GetSortMethod() == 0);
    EXPECT_EQ(apexX(t.GetPeakInRange(a, kQXUnsetValue, flags, &filter, c)),  // unfiltered
              nearest < 0 ? -1.0 : xs[nearest]);
    EXPECT_EQ(apexX(t.GetPeakInRange(b, a, flags, &filter, c)), best < 0 ? -1.0 : xs[best]);
    // The cursor goes on after the peak found (else the nearest); a restart goes back to 0.
    for (const QXPeakTableElement* p; (p = t.GetNextFilteredPeak(flags, &filter)) != nullptr;)
      seen.push_back(static_cast<std::int32_t>(p->m_nApexIndex));
    const std::int32_t from = (best >= 0 ? best : nearest) + 1;
    EXPECT_EQ(seen, std::vector<std::int32_t>(
                        std::lower_bound(passing.begin(), passing.end(), from), passing.end()));
    EXPECT_EQ(t.GetNextFilteredPeak(flags, &filter), nullptr);  // and stays at the end
    t.RestartFilteredPeak();
    EXPECT_EQ(apexX(t.GetNextFilteredPeak(flags, &filter)), passing.empty() ? -1 : xs[passing[0]]);
    std::vector<QXPeakTableElement*> out{nullptr};
    t.GetAllPeaksInRange(out, b, a, flags, &filter, c);
    std::vector<double> got(out.size());
    std::transform(out.begin(), out.end(), got.begin(), apexX);
    EXPECT_EQ(got, all);
    t.GetAllPeaksInRange(out, a, kQXUnsetValue, 0, nullptr, c);
    EXPECT_TRUE(out.empty());
  }
}

TEST(QXPeakTable, RemoveDuplicatedPeaksKeepsTheLastOfEachRun) {
  QXPeakTable t = MakeTable({1, 2, 2, 2, 3, 3});
  t.RemoveDuplicatedPeaks();
  EXPECT_EQ(ApexIndices(t), (std::vector<std::uint32_t>{0, 3, 5}));
}

TEST(QXPeakTable, AssignmentIsDeepAndKeepsTheTargetCursor) {
  QXPeakTable src = MakeTable({1, 2});
  src.GetPeak(0)->m_strLabel = "y3";
  src.GetPeak(0)->m_dwFlags |= kQXPeakLabelled;
  src.GetPeak(1)->m_dExtra2 = 4.5;
  src.SortPeakTable(1);

  QXPeakTable dst = MakeTable({7, 8, 9});
  dst.GetNextFilteredPeak(0, nullptr);
  dst.CopyPeakTable(&src);
  EXPECT_EQ(std::make_tuple(dst.GetNumPeaks(), dst.GetSortMethod(), dst.GetPeak(0)->m_strLabel,
                            dst.GetPeak(0)->m_dwFlags, dst.GetPeak(1)->m_dExtra2),
            std::make_tuple(2, 1, "y3", kQXPeakNormal | kQXPeakLabelled, 4.5));
  EXPECT_NE(dst.GetPeak(0), src.GetPeak(0));
  EXPECT_EQ(dst.GetNextFilteredPeak(0, nullptr)->m_dApexX, 2);  // cursor stayed at 1
  dst.GetPeak(0)->m_dApexX = -5;
  EXPECT_EQ(src.GetPeak(0)->m_dApexX, 1);
  dst.CopyPeakTable(&dst);
  dst.CopyPeakTable(nullptr);
  EXPECT_EQ(dst.GetNumPeaks(), 2);
}

TEST(QXPeakTable, DumpWritesTheCountHeaderAndOneLinePerPeak) {
  const testing::ScratchDir scratch;
  const std::filesystem::path dir = scratch.PathOf("");
  const std::string header =
      "Apex Mass\tIntensity\tLeftBound X\tLeftBound Y\tRightBound X\tRightBound Y\t Area\t"
      "Centroid Mass\tCentroidLeft X\tCentroid Left Y\tCentroid Right X\tCentroid Right Y\n";
  QXPeakTable t;
  t.DumpToFile((dir / "empty.txt").c_str());
  EXPECT_EQ(testing::ReadText(scratch.PathOf("empty.txt")), "# Peaks\t0\n" + header);

  t.AddPeak(QXPeakTableElement(500.25, 1e3, 1, 499.5, 2, 0, 501, 3, 2, 500.125, 42.5, 499.75,
                               4, 500.75, 5));
  t.DumpToFile((dir / "one.txt").c_str());
  EXPECT_EQ(testing::ReadText(scratch.PathOf("one.txt")),
            "# Peaks\t1\n" + header +
                "500.250000\t1000.000000\t499.500000\t2.000000\t501.000000\t3.000000\t"
                "42.500000\t500.125000\t499.750000\t4.000000\t500.750000\t5.000000\n");
  t.DumpToFile((dir / "missing" / "x.txt").c_str());  // silently nothing
  EXPECT_FALSE(std::filesystem::exists(dir / "missing"));
}

TEST(QXPeakTable, ArchiveRoundTripAndTruncation) {
  QXPeakTable t = MakeTable({3, 1, 2});
  t.GetPeak(1)->m_dArea = 12.5;
  const std::string bytes = testing::Stored(t);
  // count, first element: new-class tag, schema, name; later ones: a class back-reference.
  ASSERT_EQ(bytes.size(), 2u + (2 + 2 + 2 + 18) + 96 + 2 * (2 + 96));
  // Stored again, the loaded peaks give the same bytes: every archived value came back.
  QXPeakTable loaded = MakeTable({9});
  EXPECT_TRUE(testing::Loaded(loaded, bytes));
  EXPECT_EQ(testing::Stored(loaded), bytes);
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    QXPeakTable partial = MakeTable({9});
    EXPECT_FALSE(testing::Loaded(partial, bytes.substr(0, cut))) << cut;
    EXPECT_EQ(partial.GetNumPeaks(), 0) << cut;
  }
}

}  // namespace
}  // namespace qxpkutil
