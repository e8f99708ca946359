// The study table: what a file becomes, the variables that are offered, and what an interrupted
// jackknife leaves.

#include "workspace/files/study_table.h"

#include "each.h"

namespace {

/// The table's rows, cells joined by "|".
Q_string_list rows() {
  Q_string_list lines;
  for (long row = 0; row < Q_table_nrow(KVO_TableT); ++row) {
    lines.emplace_back();
    for (long column = 0; column < Q_table_ncol(KVO_TableT); ++column)
      lines.back().append(column == 0 ? "" : "|").append(TABLE(row, column).value_or("(absent)"));
  }
  return lines;
}

TEST(StudyTable, HasARowForEachVariableAndNothingOfTheTableBefore) {
  const char* of_three = "study\tn1\tage\tfemale\nA\t20\t\t1\nB\t30\t41.5\nC\t10\tNA\t0\textra\n";
  const Q_string_list its_rows{"study|A|B|C", "n1|20|30|10", "age|NA|41.5|NA", "female|1|NA|0"};
  expect_each<const char*, Q_string_list>(
      [](const char* content) {
        KVO_TableT = kvotable_read(content);
        EXPECT_EQ(std::ssize(KVO_TableT), 2 + Q_table_nrow(KVO_TableT) * Q_table_ncol(KVO_TableT));
        return rows();
      },
      {{of_three, its_rows},
       {"study n1\nX\n", {"study|X", "n1|NA"}},
       {of_three, its_rows},
       {"study a b c\nX\n\nY 1\n", {"study|X|Y", "a|NA|1", "b|NA|NA", "c|NA|NA"}},
       {"\n", {}}});
  EXPECT_EQ(kvotable_read(std::nullopt), (Q_table{"2", "1", "study", "n1"}));
}

TEST(StudyTable, OffersVariablesAndIndicators) {
  using Lists = std::pair<Q_string_list, Q_string_list>;
  expect_each<const char*, Lists>(
      [](const char* content) {
        KVO_TableT = kvotable_read(content);
        Lists lists{{"old", "old", "old", "old", "old", "old", "old"}, {}};
        const int variables = kvotable_get_variables(lists.first);
        EXPECT_EQ(variables, std::ssize(lists.first));
        const int indicators = kvotable_get_variables_indicator(lists.second);
        EXPECT_EQ(indicators, std::ssize(lists.second));
        // Each begins with "(none)".
        for (Q_string_list* list : {&lists.first, &lists.second}) {
          EXPECT_EQ(list->at(0), "(none)");
          list->erase(list->begin());
        }
        return lists;
      },
      {{"", {{}, {}}},
       {"study n1 n2 age\nA 1 2 31\nB 3 4 35\n", {{"age"}, {}}},
       {"study z a\nA 1 x\n", {{"z", "a"}, {"z"}}},
       {"study\ta\tb\tc\td\te\nA\t1\t1\t1.0\t+1\tna\nB\t0\t0\t0\t0\t1\nC\t\t2\t1\t1\t1\n",
        {{"a", "b", "c", "d", "e"}, {"a"}}},
       {"n1\tstudy\tn2\n1\t0\tNA\n", {{}, {"n1", "study", "n2"}}},
       {"study Study N1 study\nA 2 2 B\n", {{"Study", "N1"}, {}}},
       {"study a\n", {{"a"}, {"study", "a"}}},
       {"study %s,\nA 1 1\n", {{"%s", "NA"}, {"%s", "NA"}}}});
}

TEST(StudyTable, LosesWhatAJackknifeLeft) {
  const std::string leftover = KVO_JACKKNIFE_VARIABLE;
  expect_each<std::string, std::pair<bool, Q_string_list>>(
      [](const std::string& content) {
        KVO_TableT = kvotable_read(content);
        const bool removed = kvotable_remove_leftover(KVO_TableT);
        return std::pair(removed, rows());
      },
      {{"study\t" + leftover + "\tn1\t" + leftover + "\nA\tNA\t1\t1\nB\t1\t2\t1\n",
        {true, {"study|A|B", "n1|1|2"}}},
       {"study\tn1\t" + leftover + "2\nA\t" + leftover + "\t0\n",
        {false, {"study|A", "n1|" + leftover, leftover + "2|0"}}},
       {"", {false, {}}}});
}

}  // namespace
