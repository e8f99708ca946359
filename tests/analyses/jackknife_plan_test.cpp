// Which means a jackknife runs, and what their maps are called.

#include "analyses/jackknife_plan.h"

#include <gtest/gtest.h>

#include <set>

#include "util/text.h"
#include "workspace/files/study_table.h"

namespace {

/// Names in a column of a study table.
Q_table table_of(const Q_string_list& studies) {
  std::string content = "study\n";
  for (const std::string& study : studies) content += study + "\n";
  return kvotable_read(content);
}

Q_string_list maps(const Kvo_jackknife_plan& plan) {
  Q_string_list names;
  for (const Kvo_jackknife_run& run : plan.runs) names.push_back(run.map);
  return names;
}

TEST(JackknifePlan, LeavesOutEachStudyOfTheSubgroup) {
  const Q_table table = kvotable_read(
      "female study all none text\n1 A 1 0 2x\n0 B 1 NA 0x2\nNA C 1 0 -1\n1 D 1 0 0.0\n");
  const struct {
    const char* filter;
    std::vector<long> columns;
    Q_string_list maps;
  } cases[] = {
      {"", {1, 2, 3, 4}, {"MJKA", "MJKB", "MJKC", "MJKD"}},
      {"all", {1, 2, 3, 4}, {"MJKA", "MJKB", "MJKC", "MJKD"}},
      {"female", {1, 4}, {"MJKA", "MJKD"}},
      {"text", {1, 3}, {"MJKA", "MJKC"}},
      {"none", {}, {}},
  };
  for (const auto& c : cases) {
    const Kvo_jackknife_plan plan = kvo_plan_jackknife(table, "M", c.filter);
    std::vector<long> columns;
    for (const Kvo_jackknife_run& run : plan.runs) columns.push_back(run.column);
    EXPECT_EQ(columns, c.columns) << c.filter;
    EXPECT_EQ(maps(plan), c.maps) << c.filter;
  }
}

TEST(JackknifePlan, CutsTheAnalysisNameToWhatFits) {
  const struct {
    std::size_t name;
    std::size_t longest_study;
    std::size_t left;
  } cases[] = {
      {50, 10, 48}, {48, 10, 48}, {47, 10, 47}, {49, 10, 48}, {57, 1, 57}, {58, 1, 57},
      {3, 56, 2},   {3, 57, 1},   {3, 58, 0},   {3, 59, 0},   {3, 200, 0},
  };
  for (const auto& c : cases) {
    const Kvo_jackknife_plan plan = kvo_plan_jackknife(
        table_of({"a", std::string(c.longest_study, 's')}), std::string(c.name, 'n'), "");
    EXPECT_EQ(plan.name.size(), c.left) << c.name << " " << c.longest_study;
    EXPECT_EQ(plan.runs.front().map, plan.name + "JKa");
    EXPECT_LE(plan.runs.back().map.size(), 60) << c.name << " " << c.longest_study;
  }
  const Q_table table = kvotable_read("study f\nlong_name_of_a_study_that_is_not_taken 0\nA 1\n");
  EXPECT_EQ(kvo_plan_jackknife(table, std::string(50, 'n'), "f").name.size(), 50);
}

TEST(JackknifePlan, KeepsNamesApart) {
  const std::string common(58, 's');
  const std::string accents = "\xc3\xa9";
  std::string long_accents(57, 's');
  long_accents += accents + accents;
  const struct {
    Q_string_list studies;
    Q_string_list maps;
  } cases[] = {
      {{"A/1", "A-1", "A-1_2"}, {"MJKA-1", "MJKA-1_3", "MJKA-1_2"}},
      {{"A", "A", "A_2", "A_2"}, {"MJKA", "MJKA_3", "MJKA_2", "MJKA_2_2"}},
      // No map may be called as the negative tail of another.
      {{"A_n", "A_n_2", "B_n_"}, {"MJKA_n_3", "MJKA_n_2", "MJKB_n_"}},
      {{common + "x", common + "y"}, {"JK" + common, "JK" + common.substr(2) + "_2"}},
      // No character is torn.
      {{long_accents, long_accents + "x"},
       {"MJK" + long_accents.substr(0, 57), "MJK" + long_accents.substr(0, 55) + "_2"}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(maps(kvo_plan_jackknife(table_of(c.studies), "M", "")), c.maps);

  Q_string_list many;
  for (int i = 0; i < 1200; ++i) many.push_back(common + std::to_string(i));
  const Q_string_list names = maps(kvo_plan_jackknife(table_of(many), "M", ""));
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), many.size());
  for (const std::string& name : names) EXPECT_LE(name.size(), 60) << name;
}

TEST(JackknifePlan, NeedsTheFilterAndTheStudies) {
  for (const auto& [table, missing] : {std::pair("study\nA\n", "a"), {"Study a\nA 1\n", "study"}})
    EXPECT_EXIT(kvo_plan_jackknife(kvotable_read(table), "M", "a"), testing::ExitedWithCode(1),
                std::string("Row '") + missing + "' not found in the table\\.");
}

}  // namespace
