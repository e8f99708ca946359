// The study table: what a file becomes, the variables that are offered, and what an interrupted
// jackknife leaves.

#include "workspace/files/study_table.h"

#include <gtest/gtest.h>

namespace {

const char* const TABLE_OF_THREE =
    "study\tn1\tage\tfemale\nA\t20\t\t1\nB\t30\t41.5\nC\t10\tNA\t0\textra\n";

void load(std::string_view content) {
  KVO_TableT = kvotable_read(content);
}

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

Q_string_list variables() {
  Q_string_list list{"old", "old", "old", "old", "old", "old", "old"};
  const int count = kvotable_get_variables(list);
  EXPECT_EQ(count, list.size());
  return list;
}

Q_string_list indicators() {
  Q_string_list list;
  const int count = kvotable_get_variables_indicator(list);
  EXPECT_EQ(count, list.size());
  return list;
}

TEST(StudyTable, HasARowForEachVariable) {
  load(TABLE_OF_THREE);
  EXPECT_EQ(rows(),
            (Q_string_list{"study|A|B|C", "n1|20|30|10", "age|NA|41.5|NA", "female|1|NA|0"}));
}

TEST(StudyTable, IsTheDefaultTableWithoutAFile) {
  KVO_TableT = kvotable_read(std::nullopt);
  EXPECT_EQ(KVO_TableT, (Q_table{"2", "1", "study", "n1"}));
  EXPECT_EQ(variables(), Q_string_list{"(none)"});
  EXPECT_EQ(indicators(), (Q_string_list{"(none)", "study", "n1"}));
}

TEST(StudyTable, ReloadsWithoutAnythingOfTheOldTable) {
  const struct {
    const char* content;
    Q_string_list rows;
  } loads[] = {
      {TABLE_OF_THREE, {"study|A|B|C", "n1|20|30|10", "age|NA|41.5|NA", "female|1|NA|0"}},
      {"study n1\nX\n", {"study|X", "n1|NA"}},
      {"study\n", {"study"}},
      {TABLE_OF_THREE, {"study|A|B|C", "n1|20|30|10", "age|NA|41.5|NA", "female|1|NA|0"}},
      {"study a b c\nX\n\nY 1\n", {"study|X|Y", "a|NA|1", "b|NA|NA", "c|NA|NA"}},
      {"\n", {}},
  };
  for (const auto& l : loads) {
    load(l.content);
    EXPECT_EQ(rows(), l.rows) << l.content;
    EXPECT_EQ(KVO_TableT.size(), 2 + Q_table_nrow(KVO_TableT) * Q_table_ncol(KVO_TableT));
  }
}

TEST(StudyTable, OffersVariables) {
  const struct {
    const char* content;
    Q_string_list variables, indicators;
  } cases[] = {
      {"", {"(none)"}, {"(none)"}},
      {"study n1 n2 age\nA 1 2 31\nB 3 4 35\n", {"(none)", "age"}, {"(none)"}},
      {"study z a\nA 1 x\n", {"(none)", "z", "a"}, {"(none)", "z"}},
      {"study\ta\tb\tc\td\te\nA\t1\t1\t1.0\t+1\tna\nB\t0\t0\t0\t0\t1\nC\t\t2\t1\t1\t1\n",
       {"(none)", "a", "b", "c", "d", "e"},
       {"(none)", "a"}},
      {"study\tx\nA\nB\n", {"(none)", "x"}, {"(none)", "x"}},
      {"n1\tstudy\tn2\n1\t0\tNA\n", {"(none)"}, {"(none)", "n1", "study", "n2"}},
      {"study Study N1 study\nA 2 2 B\n", {"(none)", "Study", "N1"}, {"(none)"}},
      {"study a\n", {"(none)", "a"}, {"(none)", "study", "a"}},
      {"study %s,\nA 1 1\n", {"(none)", "%s", "NA"}, {"(none)", "%s", "NA"}},
  };
  for (const auto& c : cases) {
    load(c.content);
    EXPECT_EQ(variables(), c.variables) << c.content;
    EXPECT_EQ(indicators(), c.indicators) << c.content;
  }
}

TEST(StudyTable, LosesWhatAJackknifeLeft) {
  const std::string leftover = KVO_JACKKNIFE_VARIABLE;
  const struct {
    std::string content;
    Q_string_list rows;
    bool removed;
  } cases[] = {
      {"study\tn1\t" + leftover + "\nA\t1\tNA\nB\t2\t1\n", {"study|A|B", "n1|1|2"}, true},
      {"study\t" + leftover + "\tn1\t" + leftover + "\nA\tNA\t1\t1\n", {"study|A", "n1|1"}, true},
      {"study\tn1\t" + leftover + "2\nA\t1\t0\n", {"study|A", "n1|1", leftover + "2|0"}, false},
      {"study\tn1\nA\t" + leftover + "\n", {"study|A", "n1|" + leftover}, false},
      {"", {}, false},
  };
  for (const auto& c : cases) {
    load(c.content);
    EXPECT_EQ(kvotable_remove_leftover(KVO_TableT), c.removed) << c.content;
    EXPECT_EQ(rows(), c.rows) << c.content;
  }
}

}  // namespace
