// What is marked in the table, and why.

#include "companions/kvo_edit/checks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "companions/common/error.h"
#include "companions/kvo_edit/peaks.h"
#include "companions/kvo_edit/table_file.h"
#include "test_folder.h"

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

TEST(Checks, MarkStudies) {
  const Test_folder folder;
  write_text("a.peaks.txt", "# space: MNI\n");
  write_text("b.nii.gz", "");
  write_text(".hidden.peaks.txt", "");
  struct {
    std::string line;
    long column;
    std::string fault;  ///< a part of it
  } const cases[] = {
      {"a,12,9", 0, ""},
      {"b,12,9", 0, ""},
      {"c,12,9", 0, "note: The folder has no peaks file 'c.peaks.txt' and no image 'c.nii.gz'."},
      {",12,9", 0, "problem: The study has no name."},
      {"NA,12,9", 0, "problem: The study has no name."},
      {"twice,12,9", 0, "problem: Another study has the same name."},
      {"../a,12,9", 0, "problem: The name of the study begins with a full stop."},
      {"x/a,12,9", 0, "problem: The name of the study holds a slash."},
      {".hidden,12,9", 0, "problem: The name of the study begins with a full stop."},
      {"a,12,9", 1, ""},
      {"a,1.5e1,9", 1, ""},
      {"a,0,9", 1, "problem: The sample size is less than 1."},
      {"a,-3,9", 1, "problem: The sample size is less than 1."},
      {"a,12x,9", 1, "problem: The sample size is not a number."},
      {"a,inf,9", 1, "problem: The sample size is not a number."},
      {"a,0x10,9", 1, "problem: The sample size is not a number."},
      {"a,NA,9", 1, "problem: The sample size is missing."},
      {"a", 1, "problem: The sample size is missing."},
      {"a,12,NA", 2, ""},
      {"a,12,", 2, ""},
      {"a,12,many", 2, "problem: The sample size is not a number."},
      {"a,12,9,any%text<b>", 3, ""},
      {"a,12,9,x\vy", 3, "problem: The cell holds a blank"},
  };
  for (const auto& c : cases) {
    const Checked table = checked("study,n1,n2,note\n" + c.line + "\ntwice,1,1,1\n");
    const std::string fault = shown(fault_of(table.index, table.document.table, 0, c.column));
    EXPECT_EQ(fault.substr(0, c.fault.size()), c.fault) << c.line;
    EXPECT_EQ(fault.empty(), c.fault.empty()) << c.line << ": " << fault;
  }
}

TEST(Checks, MarkNamesOfVariables) {
  struct {
    std::string header;
    long column;
    std::string fault;
  } const cases[] = {
      {"study,n1,age", 2, ""},
      {"study,n1,%s<b>", 2, ""},
      {"study,n1,,x", 2, "problem: The variable has no name."},
      {"study,n1,NA", 2, "problem: The variable has no name."},
      {"study,n1,age,age", 2, "problem: Another variable has the same name."},
      {"study,n1,age,age", 3, "problem: Another variable has the same name."},
      {"study,n1,a\vb", 2, "problem: The name holds a blank"},
      {"study,n1,a+b", 2, "problem: The name holds a quote, '=' or '+'"},
      {"study,n1,a=b", 2, "problem: The name holds a quote, '=' or '+'"},
      {"study,n1,\"age\"", 2, "problem: The name holds a quote, '=' or '+'"},
      {"study,n1,TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS", 2, "problem: This name is kept"},
      {"study,n1,(none)", 2, "problem: This name stands for no variable"},
      {"name,n1", 0, "problem: No variable is called 'study'"},
      {"name,n1", 1, ""},
      {"study,mean1", 0, "note: No variable is called 'n1'"},
      {"study,n1", 0, ""},
  };
  for (const auto& c : cases) {
    const Checked table = checked(c.header + "\n");
    const std::string fault = shown(fault_of(table.index, table.document.table, HEADER, c.column));
    EXPECT_EQ(fault.substr(0, c.fault.size()), c.fault) << c.header;
    EXPECT_EQ(fault.empty(), c.fault.empty()) << c.header << ": " << fault;
  }
}

TEST(Checks, ListAllMarksInOrder) {
  const Test_folder folder;
  write_text("a.peaks.txt", "");
  const Checked table = checked("study,n1,x,x\na,1,2,3\nb,y,2,3\n");
  EXPECT_THAT(all_faults(table.index, table.document.table),
              testing::ElementsAre(Cell_place{HEADER, 2}, Cell_place{HEADER, 3}, Cell_place{1, 0},
                                   Cell_place{1, 1}));
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
