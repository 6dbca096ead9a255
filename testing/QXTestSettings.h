// Detection settings for tests: every field of a QXPeakDetectSetting as one tuple that
// gtest compares and prints, so a test can say "equal to a default setting" in one line;
// a fixture that gives persistence tests an empty in-memory application profile; saved
// "section\key=value\r\n" lines turned into the host's map of full key to value; and
// signal-to-noise or resolution calculators with given targets.
//
//   EXPECT_EQ(qxpkutil::testing::SettingFields(a), qxpkutil::testing::SettingFields(b));
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "qxpkutil/platform/QXProfile.h"
#include "qxpkutil/settings/PeakCalc.h"
#include "qxpkutil/settings/QXPeakDetectSetting.h"
#include "qxpkutil/settings/QXPeakTableList.h"

namespace qxpkutil::testing {

// The fields in the order of QXPeakTableList::GetAllDetectionSettings.
inline auto SettingFields(const QXPeakDetectSetting& s) {
  return std::make_tuple(
      s.GetRangeX1(), s.GetRangeX2(), s.GetRelThreshold(), s.GetAbsThreshold(), s.GetFilterType(),
      s.GetFilterWidth(), s.GetFilterInc(), s.GetMinPeakArea(), s.GetPctPeakArea(),
      s.GetMinPeakWidth(), s.GetMaxPeakWidth(), s.GetAutoPeakWidth(), s.GetNoiseThreshold(),
      s.GetIntegratedMethod(), s.GetPctCentroid(), s.GetDivisor(), s.GetMaxCharge(),
      s.GetMaxIsotope(), s.GetRelMasMinIntensity(), s.GetRelMassMaxIntensity());
}

using SettingFieldsTuple = decltype(SettingFields(QXPeakDetectSetting()));

// Tag 0 is a default setting; other tags give settings whose every field differs from the
// default's and from other tags', so a slot shows where it came from; the values survive
// the settings text's "%f" (six decimals) and "%e" (seven digits) exactly.
inline QXPeakDetectSetting Tagged(int tag) {
  if (tag == 0) return QXPeakDetectSetting();
  const double d = tag;
  return QXPeakDetectSetting(d, d + 0.5, d + 0.25, d * 2, tag, tag + 20, tag + 10, d * 3, d * 4,
                             tag + 30, tag + 100, 0, d * 5, tag + 40, d * 6, tag + 50, tag + 60,
                             0.015625 * d, 0.5 + 0.0625 * d);
}

// A list whose segments are `segments`, in order.
inline QXPeakTableList ListOf(const std::vector<QXPeakDetectSetting>& segments) {
  QXPeakTableList list;
  for (const QXPeakDetectSetting& s : segments) {
    list.AddDetectionSetting(-1);
    list.SetDetectionSetting(list.GetNumDetectionSettings() - 1, s);
  }
  return list;
}

// The segments of `list`, in order; and the fields of each.
inline std::vector<QXPeakDetectSetting> Segments(const QXPeakTableList& list) {
  std::vector<QXPeakDetectSetting> out;
  for (QXPeakDetectSetting s; list.GetDetectionSetting(static_cast<std::int32_t>(out.size()), s);)
    out.push_back(s);
  return out;
}
inline std::vector<SettingFieldsTuple> SegmentFields(const QXPeakTableList& list) {
  std::vector<SettingFieldsTuple> out;
  for (const QXPeakDetectSetting& s : Segments(list)) out.push_back(SettingFields(s));
  return out;
}

// Saved lines, each "section\key=value\r\n", as the map a host passes to a restore.
inline std::map<std::string, std::string> LinesToMap(const std::vector<std::string>& lines) {
  std::map<std::string, std::string> map;
  for (const std::string& line : lines) {
    const std::size_t eq = line.find('=');
    map.emplace(line.substr(0, eq), line.substr(eq + 1, line.size() - eq - 3));
  }
  return map;
}

// A calculator with a target at each of `targets` +- `delta`, every one holding a stale
// result (123) and found x (456) that a calculation must replace.
template <class Calc>
Calc WithTargets(std::initializer_list<double> targets, double delta) {
  Calc calc;
  for (double target : targets) {
    calc.AddSetting(-1);
    PeakCalcBase* setting = calc.GetSetting(calc.GetNumSettings() - 1);
    setting->SetPeakCalcSetting(target, delta);
    setting->SetResult(123.0);
    setting->SetFoundX(456.0);
  }
  return calc;
}

// A test fixture whose application profile is an empty QXMemoryProfile, unset afterwards.
class AppProfileTest : public ::testing::Test {
 protected:
  void SetUp() override { QXSetAppProfile(&profile_); }
  void TearDown() override { QXSetAppProfile(nullptr); }
  QXMemoryProfile profile_;
};

}  // namespace qxpkutil::testing
