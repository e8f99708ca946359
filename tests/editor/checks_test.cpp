// What is marked in the table, and why.

#include "companions/kvo_edit/checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "companions/kvo_edit/peaks.h"
#include "companions/kvo_edit/table_file.h"
#include "engine/base/refusal.h"
#include "engine/studies/study_source.h"
#include "test_folder.h"

using namespace kvo::edit;

namespace {

using testing::HasSubstr;

struct Checked {
  Document document;
  Check_index index;
};

Checked checked(const std::string& content) {
  Checked result{document_of("kvo_table.txt", content), {}};
  refresh_files(result.index, ".");
  refresh_names(result.index, result.document.table);
  return result;
}

/// "severity: text" of a fault; empty when there is none.
std::string shown(const std::optional<Fault>& fault) {
  if (!fault) return "";
  return (fault->severity == Severity::problem ? "problem: " : "note: ") + fault->text;
}

TEST(Checks, MarkCellsAndSayWhy) {
  const Test_folder folder;
  for (const char* file : {"a.peaks.txt", "b.nii.gz", "d.peaks.txt", "d.nii.gz"})
    write_text(file, "");
  struct {
    std::string line;
    long column;
    std::string fault;  ///< its beginning; empty when there is none
  } const studies[] =
      {
          {"a,12,9", 0, ""},
          {"b,12,9", 0, ""},
          {"c,12,9", 0, "note: Study 'c' has no peaks file 'c.peaks.txt' and no image 'c.nii.gz'."},
          {"d,12,9", 0,
           "problem: Study 'd' has both a peaks file 'd.peaks.txt' and an image 'd.nii"},
          {",12,9", 0, "problem: The study has no name."},
          {"NA,12,9", 0, "problem: The study has no name."},
          {"twice,12,9", 0, "problem: Another study has the same name."},
          {"x/a,12,9", 0, "problem: The name of the study holds a slash."},
          {"a,1.5e1,9", 1, ""},
          {"a,2.5,9", 1, "problem: The sample size is not a whole number from 2 to 1000000000."},
          {"a,2", 1, "problem: The sample size is not a whole number from 3 to 1000000000."},
          {"a,NA,9", 1, "problem: The sample size is missing."},
          {"a", 1, "problem: The sample size is missing."},
          {"a,12,NA", 2, ""},
          {"a,12,many", 2, "problem: The sample size is not a whole number from 2"},
          {"a,12,9,any%text<b>", 3, ""},
          {"a,12,9,x\vy", 3, "problem: The cell holds a blank"},
          {"a,12,9,x,,,y", 5, "problem: The line has 7 cells, but the table has 6 variables."},
          {"a,12,9,x,,,,", 5, ""},
          {"a,12,NA,,3.1", 4, ""},
          {"a,12,NA,,0", 4, "problem: threshold_t is not a number above 0 and up to 1000."},
          {"a,12,NA,,3.1,.001", 4, "problem: The study gives both threshold_t and threshold_p."},
          {"a,12,NA,,3.1,.001", 5, "problem: The study gives both threshold_t and threshold_p."},
          {"a,2,2,,NA,1e-9", 5, "problem: threshold_p is too small for so few"},
          {"a,few,NA,,,1e-9", 5, ""},
      },
          names[] = {
              {"study,n1,%s<b>", 2, ""},
              {"study,n1,,x", 2, "note: The variable has no name."},
              {"study,n1,NA", 2, "note: The variable has no name."},
              {"study,n1,age,age", 2, "problem: Another variable has the same name."},
              {"study,n1,age,age", 3, "problem: Another variable has the same name."},
              {"study,n1,a\vb", 2, "problem: The name holds a blank"},
              {"study,n1,a+b", 2, "note: The name holds a quote, '=' or '+'"},
              {"study,n1,\"age\"", 2, "note: The name holds a quote, '=' or '+'"},
              {"study,n1,TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS", 2, "note: This name is kept"},
              {"study,n1,(none)", 2, "note: This name stands for no variable"},
              {"name,n1", 0, "problem: No variable is called 'study'"},
              {"name,n1", 1, ""},
              {"study,mean1", 0, "problem: No variable is called 'n1'"},
          };
  const auto check = [](const std::string& content, long row, long column,
                        const std::string& fault) {
    const Checked table = checked(content);
    const std::string found = shown(fault_of(table.index, table.document.table, row, column));
    EXPECT_TRUE(fault.empty() ? found.empty() : found.starts_with(fault)) << content << found;
  };
  for (const auto& [line, column, fault] : studies)
    check("study,n1,n2,note,threshold_t,threshold_p\n" + line + "\ntwice,1,1,1\n", 0, column,
          fault);
  for (const auto& [header, column, fault] : names) check(header + "\n", HEADER, column, fault);
}

/// The line that the engine refuses a table at, 0 when it refuses a study's files; nothing when it
/// takes the table.
std::optional<long> refused_line() {
  try {
    for (const Study& study : read_study_table().studies) study_source(study);
  } catch (const Refusal& refusal) {
    const std::string text = refusal.what();
    const std::size_t line = text.find(", line ");
    return line == std::string::npos ? 0 : std::stol(text.substr(line + 7));
  }
  return std::nullopt;
}

TEST(Checks, FindAProblemWhereTheEngineRefusesATable) {
  const Test_folder folder;
  const std::vector<std::string> studies = {
      "a",  "b",  "Smith$(x)2004", "\u00e9", "s;t'u\"", "both", "",
      "NA", ".a", "a/b",           "\xc3",   "x\vy"};
  for (const std::string& name : studies)
    if (!name.empty() && name.find('/') == std::string::npos) write_text(name + ".peaks.txt", "");
  write_text("both.nii.gz", "");
  const std::vector<std::string> columns = {"n2",
                                            "threshold_t",
                                            "threshold_p",
                                            "peaks_per_cluster",
                                            "peak_distance",
                                            "cluster_extent",
                                            "age",
                                            "",
                                            "NA",
                                            "a\vb",
                                            "(none)",
                                            "a+b",
                                            "x/y",
                                            "study",
                                            "n1",
                                            "age"};
  const std::vector<std::string> values = {
      "3",     "2",    "1",      "0",    "-3",         "2.5",        "1.5e1", "+4",
      "0x10",  "nan",  "12x",    "1e-9", "1000000000", "1000000001", "",      "NA",
      "1e400", "1000", "1000.5", "a\fb", "20",         "15",         "0.5",   ".001"};
  std::mt19937 random(7);
  const auto one_of = [&](const std::vector<std::string>& list, std::size_t usual) {
    // Mostly what is right: a table with a fault everywhere tells little.
    return list[random() % (random() % 8 != 0 ? usual : list.size())];
  };
  int taken = 0;
  constexpr int TABLES = 1000;
  for (int n = 0; n < TABLES; ++n) {
    std::vector<std::string> header = {"study", "n1"};
    if (random() % 16 == 0) header.erase(header.begin() + random() % 2);
    for (std::size_t more = random() % 4; more > 0; --more) header.push_back(one_of(columns, 7));
    std::string content;
    const auto add_line = [&](const std::vector<std::string>& cells) {
      for (std::size_t i = 0; i < cells.size(); ++i) content += (i > 0 ? "," : "") + cells[i];
      content += '\n';
    };
    add_line(header);
    for (std::size_t rows = 1 + random() % 3, row = 0; row < rows; ++row) {
      std::vector<std::string> cells;
      for (const std::string& column : header)
        cells.push_back(column == "study" ? one_of(studies, 5)
                        : column == "threshold_p"
                            ? one_of({"1e-9", ".001", "NA", "0.6", "1e-99"}, 3)
                            : one_of(values, random() % 2 + 1));
      if (random() % 16 == 0) cells.push_back(random() % 2 == 0 ? "more" : "");
      if (random() % 16 == 0) cells.pop_back();
      if (cells.empty() || (cells.size() == 1 && cells[0].empty())) cells = {"a"};
      add_line(cells);
    }
    write_text("kvo_table.txt", content);
    const Checked table = checked(content);
    std::vector<long> problem_lines;
    for (const Cell_place& place : all_faults(table.index, table.document.table))
      if (fault_of(table.index, table.document.table, place.row, place.column)->severity ==
          Severity::problem)
        problem_lines.push_back(place.row + 2);
    const std::optional<long> refused = refused_line();
    if (!refused)
      EXPECT_THAT(problem_lines, testing::IsEmpty()) << content;
    else if (*refused == 0)
      EXPECT_FALSE(problem_lines.empty()) << content;
    else
      EXPECT_THAT(problem_lines, testing::Contains(*refused)) << content;
    taken += refused ? 0 : 1;
  }
  EXPECT_GT(taken, TABLES / 10);
  EXPECT_LT(taken, TABLES * 9 / 10);
}

TEST(Peaks, HaveTheirPlaceAndBeginning) {
  const Test_folder folder;
  const std::string path = peaks_path("sub/kvo_table.txt", "-Smith$(x)2004");
  EXPECT_EQ(path, (folder.path() / "sub/-Smith$(x)2004.peaks.txt").string());
  for (const char* name : {"", "NA", "../up", "a/b"})
    EXPECT_THROW(peaks_path("kvo_table.txt", name), Refusal) << name;

  EXPECT_THROW(create_peaks_file(path), Refusal);  // no such folder
  std::filesystem::create_directory("sub");
  create_peaks_file(path);
  EXPECT_THAT(read_text(path), testing::StartsWith("# space: MNI\n# "));
  EXPECT_THAT(read_text(path), HasSubstr("x y z t"));
  write_text(path, "mine");
  EXPECT_THROW(create_peaks_file(path), Refusal);
  EXPECT_EQ(read_text(path), "mine");
}

}  // namespace
