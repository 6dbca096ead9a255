#include "qxpkutil/settings/PeakCalc.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/QXPersistUtils.h"
#include "testing/QXTestSettings.h"

namespace qxpkutil {
namespace {

using Lines = std::vector<std::string>;
using testing::WithTargets;

// The targets' masses, in list order.
std::vector<double> Targets(const PeakCalcBaseList& list) {
  std::vector<double> out;
  for (std::int32_t i = 0; i < list.GetNumSettings(); ++i) {
    double target = 0.0;
    double delta = 0.0;
    list.GetSetting(i)->GetPeakCalcSetting(target, delta);
    out.push_back(target);
  }
  return out;
}

TEST(PeakCalcBaseList, AddInsertsBeforeAValidIndexElseAppends) {
  // 0 marks the new, default target.
  const std::tuple<std::int32_t, int, std::vector<double>> cases[] = {
      {-1, 1, {1, 2, 3, 0}}, {0, 1, {0, 1, 2, 3}},  {2, 1, {1, 2, 0, 3}},
      {3, 1, {1, 2, 3, 0}},  {10, 1, {1, 2, 3, 0}}, {-2, 0, {1, 2, 3}}};
  for (const auto& [index, result, targets] : cases) {
    auto list = WithTargets<PeakCalcBaseList>({1, 2, 3}, 0.5);
    EXPECT_EQ(list.AddSetting(index), result) << index;
    EXPECT_EQ(Targets(list), targets) << index;
  }
}

TEST(PeakCalcBaseList, DeleteAndMoveCheckBothIndexes) {
  auto list = WithTargets<PeakCalcBaseList>({1, 2, 3}, 0.5);
  EXPECT_EQ(list.MoveSetting(0, 0), 1);
  EXPECT_EQ(list.MoveSetting(0, 2), 1);
  EXPECT_EQ(Targets(list), (std::vector<double>{3, 2, 1}));
  EXPECT_EQ(std::make_tuple(list.MoveSetting(0, 3), list.MoveSetting(-1, 1), list.DeleteSetting(3),
                            list.DeleteSetting(-1)),
            std::make_tuple(0, 0, 0, 0));
  EXPECT_EQ(list.DeleteSetting(1), 1);
  EXPECT_EQ(Targets(list), (std::vector<double>{3, 1}));
  EXPECT_EQ(std::make_tuple(list.GetSetting(2), list.GetSetting(-1)),
            std::make_tuple(nullptr, nullptr));
}

TEST(PeakCalcBaseList, CopiesOwnTheirTargets) {
  auto list = WithTargets<SNPeakCalc>({1, 2}, 0.5);
  list.SetBaselineX1(5.0);
  SNPeakCalc copy(list);
  copy.GetSetting(0)->SetPeakCalcSetting(9.0, 1.0);
  EXPECT_EQ(Targets(list), (std::vector<double>{1, 2}));
  EXPECT_EQ(copy.GetBaselineX1(), 5.0);
  list = copy;
  EXPECT_EQ(Targets(list), (std::vector<double>{9, 2}));
  EXPECT_NE(list.GetSetting(0), copy.GetSetting(0));
}

TEST(PeakCalcBaseList, AddingStopsAtTheLimit) {
  PeakCalcBaseList list;
  for (std::int32_t i = 0; i < PeakCalcBaseList::kMaxSettings; ++i)
    ASSERT_EQ(list.AddSetting(-1), 1);
  EXPECT_EQ(list.AddSetting(-1) + list.AddSetting(0), 0);
  EXPECT_EQ(list.GetNumSettings(), PeakCalcBaseList::kMaxSettings);
}

TEST(PeakCalc, ClassRecordsNamePeakCalcBaseAsTheCalculatorsBase) {
  const SNPeakCalc sn;
  const ResCalcPeakCalc res;
  for (const auto& [calc, name] : {std::pair<const QXObject*, const char*>{&sn, "SNPeakCalc"},
                                   {&res, "ResCalcPeakCalc"}}) {
    EXPECT_STREQ(calc->GetRuntimeClass()->m_lpszClassName, name);
    EXPECT_TRUE(calc->IsKindOf(&PeakCalcBase::classPeakCalcBase));
    EXPECT_FALSE(calc->IsKindOf(&PeakCalcBaseList::classPeakCalcBaseList));
  }
}

using CalcPersist = testing::AppProfileTest;

TEST_F(CalcPersist, SignalToNoiseWritesExactLinesAndRoundTrips) {
  auto saved = WithTargets<SNPeakCalc>({1, 2}, 0.5);
  saved.SetBaselineX1(100.25);
  saved.SetBaselineX2(-3.0);
  Lines lines;
  saved.PersistSNSettings("SN", 0, &lines, 1);
  EXPECT_EQ(lines, (Lines{"SN\\SNBaselineX1=100.250000\r\n", "SN\\SNBaselineX2=-3.000000\r\n",
                          "SN\\SNTargetMass-0=1.000000\r\n", "SN\\SNDeltaAMU-0=0.500000\r\n",
                          "SN\\SNTargetMass-1=2.000000\r\n", "SN\\SNDeltaAMU-1=0.500000\r\n"}));
  std::string text;
  QXPersistUtils::FormStringFromList(text, lines);
  for (unsigned flags : {kQXPersistFromText, kQXPersistFromProfile}) {
    SNPeakCalc restored;
    restored.AddSetting(-1);
    restored.GetSetting(0)->SetFoundX(7.0);
    restored.GetSNSettings("SN", 2, 0.0, 0.0, 0.0, 0.0, text.c_str(), flags);
    EXPECT_EQ(Targets(restored), (std::vector<double>{1, 2}));
    EXPECT_EQ(std::make_tuple(restored.GetBaselineX1(), restored.GetBaselineX2(),
                              restored.GetSetting(0)->GetFoundX()),
              std::make_tuple(100.25, -3.0, 0.0));
  }
}

TEST_F(CalcPersist, CountsOutsideOneToTheTargetCountSaveEveryTarget) {
  const std::pair<std::int32_t, std::size_t> cases[] = {{0, 3}, {-1, 3}, {1, 1}, {3, 3}, {4, 3}};
  for (const auto& [count, saved] : cases) {
    Lines sn;
    WithTargets<SNPeakCalc>({1, 2, 3}, 0.5).PersistSNSettings("S", count, &sn, 0);
    EXPECT_EQ(sn.size(), 2 + 2 * saved) << count;
    Lines res;
    WithTargets<ResCalcPeakCalc>({1, 2, 3}, 0.5).PersistResCalcSettings("S", count, &res, 0);
    EXPECT_EQ(res.size(), 2 + 2 * saved) << count;
  }
}

TEST_F(CalcPersist, ResolutionRestoresDefaultsForMissingKeysAndKeepsExtraTargets) {
  auto res = WithTargets<ResCalcPeakCalc>({1, 2, 3, 4}, 0.5);
  const char* text = "R\\ResCalcPercent=10\r\nR\\ResCalcTargetMass-1=500.5\r\n";
  res.GetResCalcSettings("R", 2, 50, 1000, 250.0, 0.25, text, kQXPersistFromText);
  EXPECT_EQ(std::make_pair(res.GetPercent(), res.GetMinIntensity()), std::make_pair(10, 1000));
  EXPECT_EQ(Targets(res), (std::vector<double>{250.0, 500.5, 3, 4}));
  double target = 0.0;
  double delta = 0.0;
  res.GetSetting(1)->GetPeakCalcSetting(target, delta);
  EXPECT_EQ(delta, 0.25);

  Lines lines;
  res.PersistResCalcSettings("R", 1, &lines, 0);
  EXPECT_EQ(lines,
            (Lines{"R\\ResCalcPercent=10\r\n", "R\\ResCalcMinIntensity=1000\r\n",
                   "R\\ResCalcTargetMass-0=250.000000\r\n", "R\\ResCalcDeltaAMU-0=0.250000\r\n"}));
}

TEST(CalcPersistWithoutProfile, NothingIsWrittenOrRead) {
  QXSetAppProfile(nullptr);
  auto sn = WithTargets<SNPeakCalc>({1}, 0.5);
  auto res = WithTargets<ResCalcPeakCalc>({1}, 0.5);
  Lines lines;
  sn.PersistSNSettings("S", 0, &lines, 1);
  res.PersistResCalcSettings("S", 0, &lines, 1);
  EXPECT_TRUE(lines.empty());
  sn.GetSNSettings("S", 3, 1.0, 2.0, 3.0, 4.0, "", 0);
  res.GetResCalcSettings("S", 3, 1, 2, 3.0, 4.0, "", 0);
  EXPECT_EQ(std::make_tuple(sn.GetNumSettings(), sn.GetBaselineX1(), res.GetNumSettings(),
                            res.GetPercent()),
            std::make_tuple(1, 0.0, 1, 50));
}

}  // namespace
}  // namespace qxpkutil
