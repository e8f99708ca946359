// The multimodal analysis through its dialogs, which changes the working folder.

#include "analyses/multi.h"

#include <gmock/gmock.h>

#include "analysis_window.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

class Multimodal : public Analysis_window {
 protected:
  Multimodal() {
    fs::create_directory(results());
    write_text(image("gm"), "first");
    write_text(image("fmri"), "second");
  }
  [[nodiscard]] fs::path results() const { return base() / "results"; }
  [[nodiscard]] fs::path image(const std::string& name) const {
    return work() / (name + "_p.nii.gz");
  }
  [[nodiscard]] std::vector<std::pair<std::string, std::string>> images() const {
    return {{"Meta-analysis 1, p-value image", image("gm").string()},
            {"Meta-analysis 2, p-value image", image("fmri").string()}};
  }
  void choose_folder(const fs::path& folder) {
    user.then([folder](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.message(), "Select the folder where you want to save the results.");
      dialog.select(folder.string());
      dialog.press("Open");
    });
  }
  void expect_unchanged() {
    expect_nothing_run();
    EXPECT_EQ(fs::current_path(), work());
    EXPECT_EQ(kvo_s_user_dir, work().c_str());
    EXPECT_FALSE(fs::exists(root() / "etc" / "linux64.ini"));
    EXPECT_TRUE(fs::is_empty(results()));
    EXPECT_EQ(read_text(image("gm")) + read_text(image("fmri")), "firstsecond");
  }
};

TEST_F(Multimodal, RunsInTheResultsFolder) {
  Qs_HelpURL = "http://site/manual/?show=";
  user.then([&](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ MULTIMODAL META-ANALYSES ]");
    EXPECT_THAT(fields(dialog),
                ElementsAre("Meta-analysis 1, p-value image: ", "Meta-analysis 1, short name: ",
                            "Meta-analysis 2, p-value image: ", "Meta-analysis 2, short name: "));
    for (const auto& [label, value] : images()) dialog.set(label, value);
    dialog.press("OK");
  });
  user.then([&](Shown_dialog& dialog) {
    EXPECT_TRUE(has_selected(dialog.widget(), work().string()));
    dialog.select(results().string());
    dialog.press("Open");
  });
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ THRESHOLD ]");
    EXPECT_THAT(fields(dialog), ElementsAre("Probability: 0.00250",
                                            "Peak height threshold: "
                                            "0.00025",
                                            "Extent threshold: 10"));
    dialog.press("OK");
  });
  user.then([](Shown_dialog& dialog) {
    EXPECT_THAT(dialog.explanation(), testing::EndsWith("(http://site/manual/?show=multi)."));
    EXPECT_THAT(fields(dialog), ElementsAre("Assume error in p-values (recommended): yes",
                                            "Decrease p-values as in a better scenario: yes",
                                            "Tolerable p-values in the meta-analyses: 0.10000"));
    dialog.press("OK");
  });
  kvo3_multi();
  EXPECT_THAT(runs(), ElementsAre(ElementsAre("multi", "meta1,", "meta2,", "0.00250,", "0.00025,",
                                              "10,", "1,", "2,", "0.10000")));
  EXPECT_EQ(fs::current_path(), results());
  EXPECT_EQ(kvo_s_user_dir, results().c_str());
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_Window)),
               ("KVO v4.31 - " + results().string()).c_str());
  EXPECT_THAT(read_text(root() / "etc" / "linux64.ini"),
              HasSubstr("working directory = " + results().string()));
  EXPECT_EQ(read_text("meta1_p.nii.gz"), "first");
  EXPECT_EQ(read_text("meta2_p.nii.gz"), "second");
  EXPECT_EQ(batch(),
            "# Perform a multimodal analysis of 'meta1' (copied from " + image("gm").string() +
                ") and 'meta2' (copied from " + image("fmri").string() +
                "),\n# threshold with p 0.00250, minimum peak height 0.00025, minimum 10 voxels, "
                "options: [1, 2, 0.10000]:\n"
                "multi meta1, meta2, 0.00250, 0.00025, 10, 1, 2, 0.10000\n\n");
  EXPECT_EQ(Qs_HelpTopic, "multi");
}

TEST_F(Multimodal, ChangesNothingBeforeAllIsAnswered) {
  const auto answer_until = [&](int step) {
    if (step == 0) return user.answer(images(), "Cancel"), void();
    user.answer(images());
    if (step == 1) return user.answer({}, "Cancel"), void();
    choose_folder(results());
    if (step == 2) return user.answer({}, "Cancel"), void();
    user.answer({}).answer({}, "Cancel");
  };
  for (int step = 0; step < 4; ++step) {
    SCOPED_TRACE(step);
    answer_until(step);
    kvo3_multi();
    expect_unchanged();
  }
}

TEST_F(Multimodal, RefusesImagesNamesAndFoldersBeforeAnythingChanges) {
  user.answer({}).then(press_ok);
  kvo3_multi();
  EXPECT_EQ(user.messages().back(),
            "No p-value image was specified for meta-analysis 1. Please try again.");
  expect_unchanged();

  auto answers = images();
  answers.emplace_back("Meta-analysis 2, short name", "x/y");
  user.answer(answers).then(press_ok);
  kvo3_multi();
  EXPECT_THAT(user.messages().back(), HasSubstr("The name 'x/y' cannot be used"));
  expect_unchanged();

  answers.back() = {"Meta-analysis 2, short name", "gm"};
  user.answer(answers);
  choose_folder(work());
  user.then(press_ok);
  kvo3_multi();
  EXPECT_THAT(user.messages().back(), HasSubstr("would overwrite one of the two images"));
  expect_unchanged();

  answers.back() = {"Meta-analysis 2, short name", "old"};
  write_text(results() / "old_p.nii.gz", "another");
  user.answer(answers);
  choose_folder(results());
  user.answer({}, "Cancel");
  kvo3_multi();
  EXPECT_THAT(user.messages().back(), HasSubstr("old_p.nii.gz' already exists"));
  EXPECT_EQ(read_text(results() / "old_p.nii.gz"), "another");
  fs::remove(results() / "old_p.nii.gz");
  expect_unchanged();

  fs::create_directory(root() / "etc" / "linux64.ini");
  user.answer(answers);
  choose_folder(results());
  user.then(press_ok);
  kvo3_multi();
  EXPECT_THAT(user.messages().back(), HasSubstr("linux64.ini' cannot be written"));
  fs::remove(root() / "etc" / "linux64.ini");
  expect_unchanged();
}

}  // namespace
