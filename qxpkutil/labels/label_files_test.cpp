#include <filesystem>
#include <functional>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "qxpkutil/labels/QXUserPkLabels.h"
#include "qxpkutil/platform/QXMessages.h"

namespace qxpkutil {
namespace {

struct Item {
  std::string label;
  double x;
  double dx;
  int charge;
  bool operator==(const Item&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Item& item) {
  return os << '"' << item.label << "\" " << item.x << ' ' << item.dx << ' ' << item.charge;
}

std::vector<Item> Items(const QXUserPkLabels& list) {
  std::vector<Item> items(static_cast<std::size_t>(list.GetNumUserLabels()));
  for (std::size_t i = 0; i < items.size(); ++i) {
    Item& it = items[i];
    EXPECT_EQ(list.GetUserLabel(static_cast<std::int32_t>(i), it.label, it.x, it.dx, it.charge), 1);
  }
  return items;
}

QXUserPkLabels MakeList(const std::vector<Item>& items) {
  QXUserPkLabels list;
  for (const Item& it : items) {
    list.AddUserLabel(QXUserPeakLabelItem(it.x, it.dx, it.label.c_str(), it.charge), -1);
  }
  return list;
}

class RecordingSink : public QXMessageSink {
 public:
  void ShowMessage(int id, const std::string&) override { ids.push_back(id); }
  bool AskYesNo(int, const std::string&) override { return false; }
  std::vector<int> ids;
};

class LabelFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    QXSetMessageSink(&sink_);
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "_" + info->name();
    for (char& c : name) {
      if (c == '/') c = '_';
    }
    dir_ = std::filesystem::temp_directory_path() / ("qxpkutil_labels_" + name);
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override {
    QXSetMessageSink(nullptr);
    std::filesystem::remove_all(dir_);
  }
  std::string PathOf(const char* file) const { return (dir_ / file).string(); }
  static std::string ReadAll(const std::string& path) {
    std::ifstream in(path);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
  }

  RecordingSink sink_;
  std::filesystem::path dir_;
};

const std::vector<Item> kSample = {
    {"13C", 1.003355, 0.01, 1}, {"Na-H", 21.981943, 0.005, 2}, {"x y", -3.5, 0.25, 0}};

// (to a file, with a charge column, use charge state, difference list)
class LabelRoundTrip : public LabelFiles,
                       public ::testing::WithParamInterface<std::tuple<bool, bool, bool, bool>> {};

TEST_P(LabelRoundTrip, RestoresLabelsChargesAndBothSwitches) {
  const auto [toFile, withCharge, useCharge, difference] = GetParam();
  QXUserPkLabels saved = MakeList(kSample);
  saved.SetUseChargeState(useCharge ? 1 : 0);
  saved.SetUserLabelType(difference ? 1 : 0);
  const std::string path = toFile ? PathOf("list.lbs") : std::string();
  std::string text;
  ASSERT_EQ(saved.SaveLabelsToFile(withCharge ? 1 : 0, path.c_str(), 1, text), 1);
  EXPECT_EQ(text.empty(), toFile);

  QXUserPkLabels loaded = MakeList({{"old", 0.0, 1.0, 0}});
  loaded.SetUseChargeState(useCharge ? 0 : 1);
  loaded.SetUserLabelType(difference ? 0 : 1);
  loaded.SetLabelsChanged(0);
  ASSERT_EQ(loaded.LoadLabelsFromFile(path.c_str(), 1, text), 1);

  std::vector<Item> expected = kSample;
  if (!withCharge) {
    for (Item& it : expected) it.charge = 0;
  }
  EXPECT_EQ(Items(loaded), expected);
  EXPECT_EQ(loaded.GetUseChargeState(), useCharge ? 1 : 0);
  EXPECT_EQ(loaded.GetUserLabelType(), difference ? 1 : 0);
  EXPECT_EQ(loaded.LabelsChanged(), 1);
  EXPECT_TRUE(sink_.ids.empty());
}

INSTANTIATE_TEST_SUITE_P(AllForms, LabelRoundTrip,
                         ::testing::Combine(::testing::Bool(), ::testing::Bool(),
                                            ::testing::Bool(), ::testing::Bool()));

TEST_F(LabelFiles, WritesTheDocumentedTextAndFileForms) {
  QXUserPkLabels list = MakeList({{"A", 2.5, 0.125, -2}, {"B", 1e6, 1.0, 0}});
  list.SetUseChargeState(1);
  list.SetUserLabelType(1);
  std::string text = "replaced";
  ASSERT_EQ(list.SaveLabelsToFile(1, nullptr, 0, text), 1);
  const std::string header = "Label\tX Value\tDelta X\tCharge\tUseChargeState\tDifference\n";
  const std::string lines = "A\t2.500000\t0.125000\t-2\nB\t1000000.000000\t1.000000\t0\n";
  EXPECT_EQ(text, header + "\n;A\t2.500000\t0.125000\t-2\n;B\t1000000.000000\t1.000000\t0\n;");

  const std::string path = PathOf("list.lbc");
  ASSERT_EQ(list.SaveLabelsToFile(1, path.c_str(), 0, text), 1);
  EXPECT_EQ(ReadAll(path), header + lines);

  list.SetUseChargeState(0);
  list.SetUserLabelType(0);
  ASSERT_EQ(list.SaveLabelsToFile(0, path.c_str(), 0, text), 1);
  EXPECT_EQ(ReadAll(path), "Label\tX Value\tDelta X\nA\t2.500000\t0.125000\nB\t1000000.000000\t1.000000\n");
}

TEST_F(LabelFiles, EmptyListWritesHeaderAndReturnsZero) {
  QXUserPkLabels list;
  std::string text;
  EXPECT_EQ(list.SaveLabelsToFile(0, nullptr, 1, text), 0);
  EXPECT_EQ(text, "Label\tX Value\tDelta X\n\n;");
  const std::string path = PathOf("empty.lbs");
  EXPECT_EQ(list.SaveLabelsToFile(0, path.c_str(), 1, text), 0);
  EXPECT_EQ(ReadAll(path), "Label\tX Value\tDelta X\n");
  EXPECT_TRUE(sink_.ids.empty());
}

struct ParseCase {
  const char* name;
  std::string body;  // the pieces after the header, ";"-terminated
  std::vector<Item> expected;
};

class LabelLineParser : public LabelFiles, public ::testing::WithParamInterface<ParseCase> {};

TEST_P(LabelLineParser, MissingFieldsCarryOverFromThePreviousLine) {
  QXUserPkLabels list;
  const std::string text = "Label\tX Value\tDelta X\n\n;" + GetParam().body;
  EXPECT_EQ(list.LoadLabelsFromFile("", 1, text), GetParam().expected.empty() ? 0 : 1);
  EXPECT_EQ(Items(list), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, LabelLineParser,
    ::testing::Values(
        ParseCase{"NameOnlyTakesStartValues", "A\n;", {{"A", 1.0, 1.0, 0}}},
        ParseCase{"EmptyLineRepeatsPrevious",
                  "A\t2\t0.5\t3\n;\n;;",
                  {{"A", 2.0, 0.5, 3}, {"A", 2.0, 0.5, 3}, {"A", 2.0, 0.5, 3}}},
        ParseCase{"LaterLineKeepsMissingCharge",
                  "A\t2\t0.5\t3\n;B\t7\n;",
                  {{"A", 2.0, 0.5, 3}, {"B", 7.0, 0.5, 3}}},
        ParseCase{"LeadingTabChangesNothing",
                  "A\t2\t0.5\t3\n;\t9\t9\t9\n;",
                  {{"A", 2.0, 0.5, 3}, {"A", 2.0, 0.5, 3}}},
        ParseCase{"BadNumberStopsTheLine",
                  "A\t2\t0.5\t3\n;C\tabc\t9\t9\n;D\t4\tx\t9\n;",
                  {{"A", 2.0, 0.5, 3}, {"C", 2.0, 0.5, 3}, {"D", 4.0, 0.5, 3}}},
        ParseCase{"CLibraryNumberForms",
                  "E\t+1.5e2 \t .25\t+4\n;F \t-2.\t1e-3\t-1\n;",
                  {{"E", 150.0, 0.25, 4}, {"F ", -2.0, 0.001, -1}}},
        ParseCase{"WindowsLineEnds", "G\t5\t0.5\r\n;H\r\n;",
                  {{"G", 5.0, 0.5, 0}, {"H", 5.0, 0.5, 0}}},
        ParseCase{"UnterminatedPieceIgnored", "A\t2\t0.5\n;B\t3\t1", {{"A", 2.0, 0.5, 0}}},
        ParseCase{"HeaderOnly", "", {}}),
    [](const auto& info) { return std::string(info.param.name); });

TEST_F(LabelFiles, LabelsOfAnyLengthAreReadWhole) {
  const std::string longName(100000, 'n');
  QXUserPkLabels list = MakeList({{longName, 3.0, 0.5, 1}});
  const std::string path = PathOf("long.lbs");
  std::string text;
  ASSERT_EQ(list.SaveLabelsToFile(1, path.c_str(), 1, text), 1);
  QXUserPkLabels loaded;
  ASSERT_EQ(loaded.LoadLabelsFromFile(path.c_str(), 1, text), 1);
  EXPECT_EQ(Items(loaded), (std::vector<Item>{{longName, 3.0, 0.5, 1}}));
}

TEST_F(LabelFiles, HeaderAloneSetsSwitchesButKeepsOldLabels) {
  QXUserPkLabels list = MakeList({{"keep", 1.0, 1.0, 0}});
  list.SetLabelsChanged(0);
  EXPECT_EQ(list.LoadLabelsFromFile(nullptr, 1, "Label\tUseChargeState\tDifference\n;"), 0);
  EXPECT_EQ(list.GetUseChargeState(), 1);
  EXPECT_EQ(list.GetUserLabelType(), 1);
  EXPECT_EQ(list.LoadLabelsFromFile(nullptr, 1, "Label\tX Value\n;"), 0);
  EXPECT_EQ(list.GetUseChargeState(), 0);
  EXPECT_EQ(list.GetUserLabelType(), 0);
  EXPECT_EQ(Items(list), (std::vector<Item>{{"keep", 1.0, 1.0, 0}}));
  EXPECT_EQ(list.LabelsChanged(), 0);
  EXPECT_TRUE(sink_.ids.empty());
}

TEST_F(LabelFiles, FailuresShowTheirMessagesOnlyWhenAsked) {
  QXUserPkLabels list = MakeList({{"keep", 1.0, 1.0, 0}});
  std::string text;
  const std::string missing = PathOf("no/such/dir/x.lbs");
  struct Case {
    int expectedId;
    std::function<int(int)> call;
  };
  const std::vector<Case> cases = {
      {24707, [&](int show) { return list.LoadLabelsFromFile(nullptr, show, ""); }},
      {24707, [&](int show) { return list.LoadLabelsFromFile(nullptr, show, "no terminator"); }},
      {24725, [&](int show) { return list.LoadLabelsFromFile(missing.c_str(), show, ""); }},
      {24725, [&](int show) { return list.SaveLabelsToFile(1, missing.c_str(), show, text); }},
      {24715, [&](int show) { return list.SaveLabelsToFile(1, "/dev/full", show, text); }},
  };
  for (const Case& c : cases) {
    sink_.ids.clear();
    EXPECT_EQ(c.call(0), 0);
    EXPECT_TRUE(sink_.ids.empty());
    EXPECT_EQ(c.call(1), 0);
    EXPECT_EQ(sink_.ids, std::vector<int>{c.expectedId});
  }
  EXPECT_EQ(Items(list), (std::vector<Item>{{"keep", 1.0, 1.0, 0}}));
  EXPECT_TRUE(text.empty());
  EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(LabelFiles, EmptyFileHasNoHeader) {
  const std::string path = PathOf("empty.lbs");
  std::ofstream(path).close();
  QXUserPkLabels list;
  EXPECT_EQ(list.LoadLabelsFromFile(path.c_str(), 1, ""), 0);
  EXPECT_EQ(sink_.ids, std::vector<int>{24707});
}

}  // namespace
}  // namespace qxpkutil
