// Peaks as the editor shows them: what is understood of pasted text, what is marked, and what the
// file then holds.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "companions/kvo_edit/operations.h"
#include "companions/kvo_edit/pasted_peaks.h"
#include "companions/kvo_edit/peaks_sheet.h"
#include "engine/base/refusal.h"
#include "engine/images/voxel_grid.h"
#include "test_folder.h"

using namespace kvo::edit;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Rows as "x y z value is comment", separated by "|".
std::string rows_text(const std::vector<std::vector<std::string>>& rows) {
  std::string text;
  for (const auto& row : rows) {
    if (!text.empty()) text += "|";
    for (std::size_t n = 0; n < row.size(); ++n)
      if (!row[n].empty()) text += (n > 0 ? " " : "") + row[n];
  }
  return text;
}

TEST(PastedPeaks, AreUnderstoodFromSpreadsheetsAndTablesOfPapers) {
  struct {
    const char *what, *text;
    bool decimal_comma;
    const char* rows;
    std::vector<std::string> dropped;
  } const cases[] = {
      {"cells with names",
       "Region\tx\ty\tz\tT value\nInsula\t-38\t4\t-2\t4.51\nACC\t2\t10\t42\t3.9\n",
       false,
       "-38 4 -2 4.51 t Insula|2 10 42 3.9 t ACC",
       {"Line 1 has no coordinates."}},
      {"empty cells",
       "Insula\t13\tR\t38\t4\t-2\t4.51\nThalamus\t\tL\t-10\t-20\t6\t3.98\n",
       false,
       "38 4 -2 4.51 t Insula R|-10 -20 6 3.98 t Thalamus L",
       {}},
      {"lines of a paper",
       "R insula (BA 13) 38 4 −2 4.51*\nL thalamus –10 −20 6 3.98ᵃ\n",
       false,
       "38 4 -2 4.51 t R insula (BA 13)|-10 -20 6 3.98 t L thalamus",
       {}},
      {"minus signs apart",
       "− 38 4 − 2 4.51\n10 – 20 6 – 3.98\n",
       false,
       "-38 4 -2 4.51 t|10 -20 6 -3.98 t",
       {}},
      {"coordinates last",
       "Insula 4.51 1,204 -38 4 -2\nACC 3.9 310 2 10 42\n",
       false,
       "-38 4 -2 + sign Insula|2 10 42 + sign ACC",
       {}},
      {"values before coordinates",
       "Insula 4.51 -38 4 -2\nACC 3.9 2 10 42\n",
       false,
       "-38 4 -2 4.51 t Insula|2 10 42 3.9 t ACC",
       {}},
      {"commas and brackets",
       "(-38, 4, -2) 4.51\n(2, 10, 42) 3.9\n",
       false,
       "-38 4 -2 4.51 t|2 10 42 3.9 t",
       {}},
      {"decimal commas", "-38 4 -2 4,51\n2 10 42 3,9\n", true, "-38 4 -2 4.51 t|2 10 42 3.9 t", {}},
      {"z scores",
       "x\ty\tz\tZ score\n-38\t4\t-2\t4.51\n",
       false,
       "-38 4 -2 4.51 z",
       {"Line 1 has no coordinates."}},
      {"coordinates alone", "-38 4 -2\r\n2 10 42\r\n", false, "-38 4 -2 + sign|2 10 42 + sign", {}},
      {"what is not significant",
       "-38\t4\t-2\tn.s.\n2\t10\t42\t3.9\n",
       false,
       "2 10 42 3.9 t",
       {"Line 1 is not significant."}},
      {"places outside of any head",
       "-380 4 -2 4.5\n2 10 42 3.9\n",
       false,
       "2 10 42 3.9 t",
       {"Line 1 has no coordinates."}},
      {"nothing", "no numbers\n\n", false, "", {"Line 1 has no coordinates."}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const std::vector<Pasted_line> lines = pasted_lines(c.text, c.decimal_comma);
    const Pasted_peaks peaks = pasted_peaks(lines, guessed_places(lines));
    EXPECT_EQ(rows_text(peaks.rows), c.rows);
    EXPECT_EQ(peaks.dropped, c.dropped);
  }
}

class PeaksSheet : public testing::Test {
 protected:
  /// A sheet of a file with these lines, of 16 people.
  Peaks_sheet sheet_of(const std::string& lines, const std::string& space = "MNI") {
    write_text("A.peaks.txt", "# space: " + space + "\n" + lines);
    return open_peaks_sheet("A.peaks.txt", facts_);
  }
  /// The marks of a sheet, as "row column: text".
  std::vector<std::string> marks(const Peaks_sheet& sheet) {
    std::vector<std::string> texts;
    for (long row = HEADER; row < row_count(sheet.document.table); ++row)
      for (long column = peak_x; column <= peak_comment; ++column)
        if (const auto fault = fault_of_peak(sheet, facts_, brain_, row, column))
          texts.push_back(std::to_string(row) + " " + std::to_string(column) + ": " + fault->text);
    return texts;
  }

  Test_folder folder_;
  Peak_facts facts_{Sample{16, 0}, {}};
  std::vector<bool> brain_ = std::vector<bool>(mni_grid().voxels());
};

TEST_F(PeaksSheet, KeepsWhatIsNotChangedAndConvertsWhatIs) {
  const std::string lines =
      "# from table 2\n48 -38 -24 5.45\n-4 2.5 6 n  # left\n38 4 -2 5.739759  # z 4.29  insula\n";
  Peaks_sheet sheet = sheet_of(lines);
  EXPECT_FALSE(has_changes(sheet));
  EXPECT_THAT(sheet.document.table.rows[1].cells,
              ElementsAre("-4", "2.5", "6", "-", "sign", "left"));
  EXPECT_EQ(peaks_sheet_text(sheet, facts_), "# space: MNI\n" + lines);
  set_text(sheet.document, 0, peak_kind, "z");
  add_studies(sheet.document, 3, 2);  // the last stays empty
  for (long column = peak_x; column <= peak_z; ++column) set_text(sheet.document, 3, column, "1");
  EXPECT_TRUE(has_changes(sheet));
  // SciPy: t.isf(norm.sf(5.45), 15) is 9.993929.
  EXPECT_THAT(peaks_sheet_text(sheet, facts_),
              testing::AllOf(HasSubstr("\n48 -38 -24 9.993929"), HasSubstr("# z 5.45\n"),
                             HasSubstr("\n1 1 1 p\n")));
  sheet.space = Space::talairach;
  EXPECT_THAT(peaks_sheet_text(sheet, facts_), testing::StartsWith("# space: Talairach\n"));
}

TEST_F(PeaksSheet, RefusesWhatNoFileCanHold) {
  const struct {
    Peak_column column;
    const char *text, *reason;
  } cases[] = {
      {peak_y, "12a", "Peak 1 of 'A.peaks.txt': The coordinate is not a number of mm"},
      {peak_x, "201", "The coordinate is not a number of mm from -200 to 200."},
      {peak_z, "NA", "The coordinate is not a number of mm"},
      {peak_value, "high", "The value is no t that a study can have."},
      {peak_kind, "F", "The kind of a value is t, z, p, g or sign."},
      {peak_kind, "p", "The value is no p that a study can have."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    Peaks_sheet sheet = sheet_of("48 -38 -24 5.45\n");
    set_text(sheet.document, 0, c.column, c.text);
    EXPECT_EQ(marks(sheet).size(), 1U);
    try {
      peaks_sheet_text(sheet, facts_);
      ADD_FAILURE() << "no refusal";
    } catch (const Refusal& refusal) {
      EXPECT_THAT(refusal.what(), HasSubstr(c.reason));
    }
  }
  Peaks_sheet sheet = sheet_of("48 -38 -24 5.45\n");
  set_text(sheet.document, 0, peak_kind, "z");
  facts_.sample = {};
  EXPECT_THROW(peaks_sheet_text(sheet, facts_), Refusal) << "nobody knows the sample size";
}

TEST_F(PeaksSheet, MarksWhatIsDoubtful) {
  // A brain to the right of the middle, and where Talairach's would not be.
  for (std::size_t n = 0; n < brain_.size(); ++n) brain_[n] = mni_grid().voxel(n).k > 30;
  facts_.threshold_t = 3.1;
  EXPECT_THAT(marks(sheet_of("10 0 20 4\n-10 0 20 3.05\n10 0 20 3.0\n10 0 -60 n\n")),
              ElementsAre("1 3: The value is below the threshold that the study states: t 3.1.",
                          "2 0: Peak 1 is at the same place.",
                          "2 3: The value is below the threshold that the study states: t 3.1.",
                          "3 0: The peak lies outside of the brain."));
  std::string right;
  for (int n = 1; n <= 6; ++n) right += std::to_string(n) + " 0 20 4\n";
  EXPECT_THAT(marks(sheet_of(right)), ElementsAre(HasSubstr("-1 0: All peaks lie on the right")));
  EXPECT_THAT(marks(sheet_of(right + "-1 0 20 4\n")), ElementsAre());
  // In front, low places of Talairach space are lower still in MNI space.
  const std::string low = "10 40 -8 4\n-10 40 -8 4\n";
  EXPECT_EQ(space_doubt(sheet_of(low), brain_), "");
  EXPECT_EQ(space_doubt(sheet_of(low, "Talairach"), brain_),
            "2 peaks lie outside of the brain; in MNI space none would.");
}

TEST_F(PeaksSheet, SeesWhatOthersHaveDoneToTheFile) {
  Peaks_sheet sheet = sheet_of("48 -38 -24 5.45\n");
  EXPECT_FALSE(changed_on_disk(sheet));
  write_text("A.peaks.txt", "# space: MNI\n");
  EXPECT_TRUE(changed_on_disk(sheet));
  const Peaks_sheet none = open_peaks_sheet("none.peaks.txt", facts_);
  EXPECT_EQ(row_count(none.document.table), 0);
  EXPECT_FALSE(changed_on_disk(none));
  EXPECT_THROW(sheet_of("1 2 3\n"), Refusal);
}

}  // namespace
