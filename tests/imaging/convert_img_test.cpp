// The image wizard, driven as a user drives it, with the real image calculator: what
// convert_img.tsv says, and what needs more than a line.

#include "imaging/convert_img.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "imaging/choose_image.h"
#include "imaging/convert_t.h"
#include "imaging/exec_imgcalc.h"
#include "kvo_config.h"
#include "made_image.h"
#include "nifti/nifti_file.h"
#include "panes.h"
#include "shell/busy.h"
#include "table_rows.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
namespace fs = std::filesystem;

/// A test with a working folder, the console and a program folder whose image calculator writes
/// down its arguments before it begins.
class Convert_img : public testing::Test {
 protected:
  Convert_img() {
    program_ = make_program_folder(folder_.path());
    set_imgcalc("exec '" KVO_IMGCALC "' \"$@\"\n");
    fs::create_directory(work());
    fs::current_path(work());
  }
  ~Convert_img() override {
    EXPECT_EQ(Qw_WorkingWindow, nullptr);
    for (const auto& entry : fs::directory_iterator(work()))
      EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
  }

  [[nodiscard]] fs::path work() const { return folder_.path() / "work"; }

  void set_imgcalc(const std::string& script) const {
    write_program(program_ / "imgcalc",
                  "#!/bin/sh\nprintf '%s|' \"$@\" >>\"${0%/*}/arguments\"\n" + script);
  }
  /// The arguments of all runs since the last call, without the working folder's name.
  std::string runs() const {
    const std::string text = read_text(program_ / "arguments");
    fs::remove(program_ / "arguments");
    return replaced(replaced(text, work().string() + "/", ""), "KVO|", "");
  }

  /// Writes an image, of a ".hdr" with its ".img".
  static void make_image(const std::string& name, const std::string& codes) {
    Nifti_header header = made_header();
    int volumes = 1;
    std::istringstream(codes) >> header.intent_code >> header.sform_code >> volumes;
    header.srow_x[0] = header.srow_y[1] = header.srow_z[2] = 2;
    header.qform_code = NIFTI_SCANNER;  // places the voxels where no sform does
    header.dim[0] = 4;
    header.dim[4] = static_cast<std::int16_t>(volumes);
    std::string values;
    for (int i = 0; i < volumes; ++i) values += bytes_of(made_values());
    const bool pair = name.ends_with(".hdr");
    if (pair) write_text(replaced(name, ".hdr", ".img"), values);
    const std::string bytes = pair ? bytes_of(header) : single_file(header, values);
    name.ends_with(".gz") ? write_gzip(name, bytes) : write_text(name, bytes);
  }
  static std::string codes_of(const std::string& name) {
    const Nifti_header h = std::get<Nifti_image>(nifti_read(name)).header;
    return std::to_string(h.intent_code) + " " + std::to_string(h.sform_code);
  }

  /// Answers the note, chooses the image and then answers as a row says; what was shown.
  std::string convert(const std::string& image, const std::string& answers) const {
    Dialog_driver user;
    user.play("OK")
        .then([&](Shown_dialog& dialog) {
          dialog.select(work() / image);
          dialog.press("Open");
        })
        .play(answers);
    kvo3_convert_img();
    return user.shown();
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
  fs::path program_;
};

/// A row has the image, its codes of intent and space (with the number of volumes unless it is 1),
/// a command of the shell to be run when the image is there, the answers behind the chooser as
/// Dialog_driver::play takes them, the end of what Dialog_driver::shown gives, the arguments of the
/// image calculator without "KVO", each with "|", and the codes of the image then.
TEST_F(Convert_img, AsksAndDoesWhatTheRowsSay) {
  const Words words = {
      {"CHOOSER", "folder Select a NIfTI file"},
      {"READY", "folder Congratulations!\nThe image is ready for KVO pre-processing!"},
      {"WORK", work().string()}};
  for (const auto& row : table_rows(CONVERT_IMG_TABLE, words)) {
    const auto &image = row[0], &codes = row[1], &first = row[2], &answers = row[3];
    SCOPED_TRACE(testing::PrintToString(row));
    for (const auto& entry : fs::directory_iterator(".")) fs::remove(entry.path());
    make_image(image, codes);
    ASSERT_TRUE(first.empty() || std::system(first.c_str()) == 0);
    const std::string before = read_text(image);
    EXPECT_THAT(convert(image, answers), EndsWith(row[4]));
    EXPECT_EQ(runs(), row[5]);
    const bool changed = !row[5].empty() && image.ends_with(".gz");
    EXPECT_TRUE(changed || read_text(image) == before);
    EXPECT_EQ(codes_of(row[5].empty() || changed ? image : "x.nii.gz"), row[6]);
  }
}

TEST_F(Convert_img, BeginsWithANoteAndAChoiceAmongFourFilters) {
  Qs_HelpTopic = "old";
  make_image("x.nii.gz", "24 3");
  Dialog_driver user;
  user.play("OK").then([this](Shown_dialog& dialog) {
    GSList* filters = gtk_file_chooser_list_filters(GTK_FILE_CHOOSER(dialog.widget()));
    std::vector<std::string> names;
    for (GSList* node = filters; node != nullptr; node = node->next)
      names.emplace_back(gtk_file_filter_get_name(GTK_FILE_FILTER(node->data)));
    EXPECT_THAT(names, ElementsAre("All supported files (*.nii.gz, *.nii, *.hdr)",
                                   "NIfTI compressed files (*.nii.gz)", "NIfTI files (*.nii)",
                                   "NIfTI pair files (*.hdr)"));
    EXPECT_EQ(gtk_file_chooser_get_filter(GTK_FILE_CHOOSER(dialog.widget())), filters->data);
    g_slist_free(filters);
    EXPECT_TRUE(is_in_folder(dialog.widget(), work().string()));
    EXPECT_THAT(dialog.buttons(), ElementsAre("Cancel", "Open"));
    GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(dialog.widget()));
    const auto is_help = [](GtkWidget* widget) {
      return GTK_IS_BUTTON(widget) &&
             g_strcmp0(gtk_button_get_label(GTK_BUTTON(widget)), " Help") == 0;
    };
    EXPECT_EQ(std::ranges::count_if(widgets_inside(content), is_help), 1);
    dialog.press("Cancel");
  });
  kvo3_convert_img();
  EXPECT_THAT(user.shown(), MatchesRegex("folder \\*\\*\\*  PLEASE READ THIS VERY IMPORTANT NOTE  "
                                         "\\*\\*\\*\n\nConversion of .* \\| folder Select a NIfTI "
                                         "file"));
  EXPECT_EQ(kvo_filter_name("*.mgz"), "[unknown type] files (*.mgz)");
}

TEST_F(Convert_img, TellsOfTheConversionInTheConsole) {
  make_image("x.nii.gz", "24 3");
  convert("x.nii.gz", "OK | Degrees of freedom=17 | OK");
  EXPECT_THAT(pane_text(0), MatchesRegex("[0-9:]+ - Converting the -log10\\(p values\\) of "
                                         "'x.nii.gz' into t statistics\\.\\.\\.OK\n"));
  EXPECT_EQ(pane_text(1), "");
  // R: qt(-23.5 * log(10), 17, lower.tail = FALSE, log.p = TRUE)
  const auto image = std::get<Nifti_image>(nifti_read("x.nii.gz"));
  EXPECT_NEAR(image.values(0)[23] / 86.510659, 1, 1e-6);
}

TEST_F(Convert_img, TakesAnyPathThatACommandCanCarryAndNoOther) {
  for (const std::string name :
       {"with blanks", "it's", "na\u00efve \u8133", "a&b; touch pwned", "<b>x", "100%s %n",
        "(round) [square] *", "#hash ~ !!", "-set_z"}) {
    make_image(name + ".nii", "3 0");
    EXPECT_THAT(convert(name + ".nii", "OK | OK | OK"), HasSubstr("Congratulations!")) << name;
    EXPECT_EQ(codes_of(name + ".nii.gz"), "3 4") << name;
    EXPECT_THAT(pane_text(0), HasSubstr("'" + name + ".nii.gz' as MNI...OK\n"));
  }
  runs();
  for (const char* name :
       {"a\"b.nii.gz", "a`b.nii.gz", "a$b.nii.gz", "a\\b.nii.gz", "a\nb.nii.gz"}) {
    make_image(name, "0 0");
    EXPECT_THAT(convert(name, "OK"),
                MatchesRegex(".*cannot be passed on to .*\n\n.*/work/a.b.nii.gz"));
  }
  EXPECT_EQ(runs(), "");
  EXPECT_FALSE(fs::exists("pwned"));
}

TEST_F(Convert_img, SaysWhyTheCalculatorFailedAndStops) {
  const std::string ended = "WARNING: The image calculator ended before it finished (";
  const std::pair<const char*, std::string> cases[] = {
      {"echo 'aReading'; echo 'wNo &lt;room&gt;'; exit 1\n", "WARNING: No <room>\n\n"},
      {"echo 'aReading'; kill -9 $$\n", ended + "signal 9 (Killed))\n\n"},
      {"exit 3\n", ended + "exit status 3)\n\n"},
      {"exec /no/such/program\n", ended + "exit status 127, the program was not found)\n\n"},
  };
  make_image("x.nii.gz", "0 0");
  for (const auto& [script, console] : cases) {
    set_imgcalc(script);
    clear_pane(0);
    // Neither the space nor the next pass follows.
    convert("x.nii.gz", "OK | OK");
    EXPECT_THAT(pane_text(0), EndsWith("\n" + console));
    EXPECT_THAT(pane_text(0), testing::Not(HasSubstr("OK"))) << script;
  }
  EXPECT_EQ(codes_of("x.nii.gz"), "0 0");
}

TEST_F(Convert_img, ShowsOnlyTheLinesThatMeanSomething) {
  set_imgcalc(
      "echo nothing; echo; echo .; echo d; echo WARNING: no; printf 'a<b>Step</b> 1'\n"
      "sleep 0.1; echo; echo ok; echo late\n");
  EXPECT_TRUE(kvo3_exec_imgcalc("\"%s\"", "x"));
  EXPECT_THAT(pane_text(0), MatchesRegex("[0-9:]+ - Step 1\\.\\.\\.OK\n"));
}

TEST_F(Convert_img, OpensThePageOfStatistics) {
  write_program("xdg-open", "#!/bin/sh\necho \"$1\" >opened.part; mv opened.part opened\n");
  const std::string old_path = g_getenv("PATH");
  setenv("PATH", (work().string() + ":" + old_path).c_str(), 1);
  kvo3_convert_t();
  EXPECT_TRUE(wait_until([&] { return fs::exists("opened"); }));
  setenv("PATH", old_path.c_str(), 1);
  EXPECT_EQ(read_text("opened"), std::string(KVO_SITE_URL) + "utilities/?show=Statistics\n");
}

}  // namespace
