// Studies from other programs' files, and back. imports.tsv has files that others write, in all
// their variety, and what becomes of them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "engine/base/text_file.h"
#include "engine/formats/bundle.h"
#include "engine/formats/folder_studies.h"
#include "engine/formats/foreign_file.h"
#include "table.h"
#include "test_folder.h"

using namespace kvo::formats;

namespace {

namespace fs = std::filesystem;

void import(const std::string& path, Space space = Space::unknown) {
  const NewStudies studies = read_foreign(path, space);
  write_import(import_plan(studies));
}

/// All files of the folder but that one, by name.
std::map<std::string, std::string> files_without(const std::string& name) {
  std::map<std::string, std::string> files;
  for (const auto& entry : fs::directory_iterator("."))
    if (entry.is_regular_file() && entry.path().filename() != name)
      files[entry.path().filename()] = kvo::base::read_text(entry.path());
  return files;
}

TEST(Import, TakesWhatOthersWrite) {
  for (const Cells& row : read_table(KVO_IMPORTS, 5)) {
    SCOPED_TRACE(row[0] + ": " + row[1]);
    const Test_folder folder;
    write_text(row[0], row[1]);
    const NewStudies studies = read_foreign(row[0], Space::unknown);
    std::string remarks;
    for (const std::string& remark : studies.remarks) remarks += remark;
    EXPECT_THAT(remarks, testing::HasSubstr(row[4]));
    EXPECT_EQ(remarks.empty(), row[4].empty()) << remarks;
    import(row[0]);
    EXPECT_EQ(kvo::base::read_text("kvo_table.txt"), row[2]);
    std::string peaks;
    for (const NewStudy& study : studies.studies)
      peaks += kvo::base::read_text(study.name + ".peaks.txt");
    EXPECT_EQ(peaks, row[3]);
    const auto before = files_without(row[0]);
    import(row[0]);
    EXPECT_EQ(files_without(row[0]), before);
  }
}

/// Studies with all that a folder can hold of them.
void make_studies() {
  write_text("kvo_table.txt",
             "study\tn1\tn2\tthreshold_p\tage\nA\t12\t14\tNA\t31.5\nB_2\t20\tNA\t0.001\tNA\n"
             "C\t9\tNA\tNA\t-4\n");
  write_text("A.peaks.txt",
             "# space: Talairach\n24 -14 6 4.1\n30 -10.5 4 -3.200\n0 1 2 n\n7 8 9 p  # x, \"y\"\n3 "
             "3 3 5.1  # p 0.001 FWE\n");
  write_text("B_2.peaks.txt", "# space: MNI\n# B, 2\n22 -16 4 4.914783  # z 3.9\n");
  write_text("C.peaks.txt", "# space: MNI\n");
}

TEST(Export, LosesNothingOnTheWayThere) {
  for (const char* name : {"x.csv", "x.tsv", "x.json", "x.zip"}) {
    SCOPED_TRACE(name);
    const Test_folder from;
    make_studies();
    const auto files = files_without("");
    if (file_kind(name) == FileKind::bundle)
      write_bundle(name);
    else
      write_text(name, foreign_text_of(folder_studies().studies, file_kind(name)));
    for (const auto& [file, text] : files) fs::remove(file);
    if (file_kind(name) == FileKind::bundle)
      unpack_bundle(name);
    else
      import(name);
    auto now = files_without(name);
    // A number of JSON has no zeros at its end, and columns stand where they are first met.
    if (file_kind(name) == FileKind::nimads) {
      std::string& peaks = now["A.peaks.txt"];
      peaks.replace(peaks.find("-3.2"), 4, "-3.200");
      now["kvo_table.txt"] = files.at("kvo_table.txt");
    }
    EXPECT_EQ(now, files);
  }
}

TEST(Import, AddsToATableAndTouchesNothingElse) {
  const Test_folder folder;
  write_text("kvo_table.txt", "study,n1,kind\r\nOld,12,a,\r\n");
  write_text("x.csv", "study,n,x,y,z,t,space\nNew,20,1,2,3,4,MNI\n");
  import("x.csv");
  EXPECT_EQ(kvo::base::read_text("kvo_table.txt"), "study,n1,kind\r\nOld,12,a,\r\nNew,20,NA\n");
  write_text("y.csv", "study,n,n2,x,y,z,t,space\nOther,20,19,1,2,3,4,MNI\n");
  import("y.csv");
  EXPECT_EQ(kvo::base::read_text("kvo_table.txt"),
            "study\tn1\tkind\tn2\nOld\t12\ta\tNA\nNew\t20\tNA\tNA\nOther\t20\tNA\t19\n");
  const auto before = files_without("");
  write_text("z.csv", "study,n,x,y,z,t,space\nMore,20,1,2,3,4,MNI\nNew,20,1,2,3,5,MNI\n");
  EXPECT_THROW(import("z.csv"), kvo::base::Refusal);
  EXPECT_EQ(files_without("z.csv"), before);
}

}  // namespace
