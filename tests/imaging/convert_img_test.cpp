// The image wizard, driven as a user drives it, with the real image calculator.

#include "imaging/convert_img.h"

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include <cmath>
#include <sstream>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "imaging/choose_image.h"
#include "imaging/convert_actions.h"
#include "imaging/convert_t.h"
#include "imaging/exec_imgcalc.h"
#include "kvo_config.h"
#include "made_image.h"
#include "nifti/nifti_file.h"
#include "panes.h"
#include "shell/busy.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::StartsWith;

constexpr const char* NOTE = "***  PLEASE READ THIS VERY IMPORTANT NOTE  ***";
constexpr const char* CHOOSER = "Select a NIfTI file";
constexpr const char* READY = "Congratulations!\nThe image is ready for KVO pre-processing!";
constexpr const char* WILL_BE_COMPRESSED =
    "[ Original NIfTI file will be converted into NIfTI compressed file (.nii.gz) ]";
constexpr const char* OVERWRITE =
    "[ A file with the same name already exists. Do you want to overwrite it? ]";
constexpr const char* DF = "[ Specify the degrees of the t statistic ]";
constexpr const char* SPACE_UNKNOWN = "Stereotactic space is unknown";
constexpr const char* VALUES_UNKNOWN = "Image values are unknown";

/// A test with a working folder, the console and a program folder whose image calculator writes
/// down its arguments before it begins.
class Convert_img : public testing::Test {
 protected:
  Convert_img() {
    std::filesystem::create_directory(work());
    std::filesystem::current_path(work());
    program_ = make_program_folder(folder_.path());
    set_imgcalc("exec '" KVO_IMGCALC "' \"$@\"\n");
    Qs_HelpTopic = "old";
  }
  ~Convert_img() override {
    EXPECT_EQ(Qw_WorkingWindow, nullptr);
    for (const auto& entry : std::filesystem::directory_iterator(work()))
      EXPECT_NE(entry.path().extension(), ".tmp") << entry.path();
  }

  [[nodiscard]] std::filesystem::path work() const { return folder_.path() / "work"; }
  [[nodiscard]] std::string path(const std::string& name) const { return work() / name; }

  void set_imgcalc(const std::string& script) const {
    write_program(program_ / "imgcalc",
                  "#!/bin/sh\n"
                  "printf '%s|' \"$@\" >>\"${0%/*}/arguments\"\n"
                  "echo >>\"${0%/*}/arguments\"\n" +
                      script);
  }
  /// The arguments of each run, without the working folder's name.
  [[nodiscard]] std::vector<std::string> runs() const {
    std::vector<std::string> result;
    std::istringstream lines(read_text(program_ / "arguments"));
    for (std::string line; std::getline(lines, line);) {
      const std::string folder = work().string() + "/";
      for (std::size_t at = line.find(folder); at != std::string::npos; at = line.find(folder))
        line.erase(at, folder.size());
      result.push_back(line);
    }
    return result;
  }

  /// Writes an image; a ".hdr" gets its ".img".
  void make_image(const std::string& name, int intent_code, int sform_code, int volumes = 1) const {
    Nifti_header header = made_header();
    header.intent_code = static_cast<std::int16_t>(intent_code);
    header.sform_code = static_cast<std::int16_t>(sform_code);
    header.srow_x[0] = header.srow_y[1] = header.srow_z[2] = 2;
    header.qform_code = NIFTI_SCANNER;  // places the voxels where no sform does
    header.dim[0] = 4;
    header.dim[4] = static_cast<std::int16_t>(volumes);
    std::string values;
    for (int i = 0; i < volumes; ++i) values += bytes_of(made_values());
    if (name.ends_with(".hdr")) {
      write_text(path(name), bytes_of(header));
      write_text(path(name.substr(0, name.size() - 4) + ".img"), values);
    } else if (name.ends_with(".gz")) {
      write_gzip(path(name), single_file(header, values));
    } else {
      write_text(path(name), single_file(header, values));
    }
  }
  [[nodiscard]] std::string codes_of(const std::string& name) const {
    const auto result = nifti_read_info(path(name));
    if (const auto* error = std::get_if<Nifti_error>(&result)) return error->message;
    const Nifti_header& h = std::get<Nifti_info>(result).header;
    return std::to_string(h.intent_code) + " " + std::to_string(h.sform_code);
  }

  /// Answers the note and chooses the file.
  void choose(Dialog_driver& user, const std::string& name) const {
    user.answer({}).then([file = path(name)](Shown_dialog& dialog) {
      dialog.select(file);
      dialog.press("Open");
    });
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::filesystem::path program_;
};

/// The messages with those of the first two dialogs left out, after a look at them.
std::vector<std::string> after_choosing(const Dialog_driver& user) {
  std::vector<std::string> messages = user.messages();
  EXPECT_GE(messages.size(), 2U);
  if (messages.size() < 2) return messages;
  EXPECT_THAT(messages[0], StartsWith(NOTE));
  EXPECT_EQ(messages[1], CHOOSER);
  messages.erase(messages.begin(), messages.begin() + 2);
  return messages;
}

TEST_F(Convert_img, CongratulatesOnAnImageThatIsReady) {
  for (const int space : {3, 4}) {
    make_image("t.nii.gz", 3, space);
    const std::string before = read_text(path("t.nii.gz"));
    Dialog_driver user;
    choose(user, "t.nii.gz");
    user.answer({});
    kvo3_convert_img();
    EXPECT_THAT(after_choosing(user), ElementsAre(READY));
    EXPECT_EQ(read_text(path("t.nii.gz")), before);
  }
  EXPECT_THAT(runs(), IsEmpty());
  EXPECT_EQ(pane_text(0), "");
  EXPECT_EQ(Qs_HelpTopic.str(), "folder");
}

TEST_F(Convert_img, ChoosesAmongTheFilesOfFourFilters) {
  Dialog_driver user;
  user.answer({}).then([this](Shown_dialog& dialog) {
    GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog.widget());
    EXPECT_THAT(dialog.buttons(), ElementsAre("Cancel", "Open"));
    GSList* filters = gtk_file_chooser_list_filters(chooser);
    std::vector<std::string> names;
    for (GSList* node = filters; node != nullptr; node = node->next)
      names.emplace_back(gtk_file_filter_get_name(GTK_FILE_FILTER(node->data)));
    EXPECT_THAT(names, ElementsAre("All supported files (*.nii.gz, *.nii, *.hdr)",
                                   "NIfTI compressed files (*.nii.gz)", "NIfTI files (*.nii)",
                                   "NIfTI pair files (*.hdr)"));
    EXPECT_EQ(gtk_file_chooser_get_filter(chooser), filters->data);
    g_slist_free(filters);
    EXPECT_TRUE(is_in_folder(dialog.widget(), work().string()));
    int help_buttons = 0;
    for (GtkWidget* widget :
         widgets_inside(gtk_dialog_get_content_area(GTK_DIALOG(dialog.widget()))))
      if (GTK_IS_BUTTON(widget) &&
          g_strcmp0(gtk_button_get_label(GTK_BUTTON(widget)), " Help") == 0)
        ++help_buttons;
    EXPECT_EQ(help_buttons, 1);
    dialog.press("Cancel");
  });
  kvo3_convert_img();
  EXPECT_EQ(kvo_filter_name("*.mgz"), "[unknown type] files (*.mgz)");
}

TEST_F(Convert_img, MakesTStatisticsOfZScores) {
  make_image("z.nii.gz", 5, 4);
  Dialog_driver user;
  choose(user, "z.nii.gz");
  user.then([this](Shown_dialog& dialog) {
        EXPECT_EQ(dialog.message(), "[ " + path("z.nii.gz") + " ]");
        EXPECT_THAT(dialog.labels(),
                    ElementsAre("Image values are \"z scores\"", "Stereotactic space is MNI"));
        EXPECT_THAT(dialog.options("Image values are \"z scores\""),
                    ElementsAre("Do not change them", "Convert them into \"t statistics\""));
        EXPECT_EQ(dialog.value("Image values are \"z scores\""),
                  "Convert them into \"t statistics\"");
        EXPECT_THAT(dialog.options("Stereotactic space is MNI"), ElementsAre("Do not change it"));
        dialog.press("OK");
      })
      .then([](Shown_dialog& dialog) {
        EXPECT_EQ(dialog.value("Degrees of freedom"), "30");
        EXPECT_THAT(dialog.explanation(), StartsWith("Note that standard one-sample t-tests have"));
        dialog.press("OK");
      })
      .answer({});
  kvo3_convert_img();
  EXPECT_THAT(after_choosing(user), ElementsAre("[ " + path("z.nii.gz") + " ]", DF, READY));
  EXPECT_THAT(runs(), ElementsAre("z.nii.gz|-z2t|30.000000|z.nii.gz|KVO|"));
  EXPECT_EQ(codes_of("z.nii.gz"), "3 4");
  EXPECT_THAT(pane_text(0), MatchesRegex("[0-9:]+ - Converting the z scores of 'z.nii.gz' into t "
                                         "statistics\\.\\.\\.OK\n"));
  EXPECT_EQ(pane_text(1), "");
}

TEST_F(Convert_img, MakesTStatisticsOfLog10PValues) {
  make_image("p.nii.gz", 24, 3);
  Dialog_driver user;
  choose(user, "p.nii.gz");
  user.answer({}).answer({{"Degrees of freedom", "17"}}).answer({});
  kvo3_convert_img();
  EXPECT_THAT(after_choosing(user), ElementsAre(testing::_, DF, READY));
  EXPECT_THAT(runs(), ElementsAre("p.nii.gz|-logp2t|17.000000|p.nii.gz|KVO|"));
  EXPECT_EQ(codes_of("p.nii.gz"), "3 3");
  const auto image = std::get<Nifti_image>(nifti_read(path("p.nii.gz")));
  // R: qt(-23.5 * log(10), 17, lower.tail = FALSE, log.p = TRUE)
  EXPECT_NEAR(image.values(0)[23] / 86.510659, 1, 1e-6);
}

TEST_F(Convert_img, DeclaresWhatTheHeaderDoesNot) {
  struct Case {
    const char* values;
    const char* space;
    bool asks_df;
    std::vector<std::string> runs;
    std::string codes;
  };
  const Case cases[] = {
      {"Set them as \"t statistics\"",
       "Set it as MNI",
       true,
       {"x.nii.gz|-set_t|30.000000|KVO|", "x.nii.gz|-set_mni|KVO|"},
       "3 4"},
      {"Set them as \"z scores\"",
       "Set it as Talairach",
       false,
       {"x.nii.gz|-set_z|KVO|", "x.nii.gz|-set_tal|KVO|"},
       "5 3"},
      {"Set them as \"-log10(p values)\"",
       "Set it as MNI",
       false,
       {"x.nii.gz|-set_logp|KVO|", "x.nii.gz|-set_mni|KVO|"},
       "24 4"},
  };
  std::vector<std::string> all_runs;
  for (const Case& c : cases) {
    make_image("x.nii.gz", 0, 2);
    Dialog_driver user;
    choose(user, "x.nii.gz");
    user.then([&](Shown_dialog& dialog) {
      EXPECT_THAT(dialog.labels(), ElementsAre(VALUES_UNKNOWN, SPACE_UNKNOWN));
      EXPECT_THAT(dialog.options(VALUES_UNKNOWN),
                  ElementsAre("Set them as \"-log10(p values)\"", "Set them as \"t statistics\"",
                              "Set them as \"z scores\""));
      EXPECT_EQ(dialog.value(VALUES_UNKNOWN), "Set them as \"t statistics\"");
      EXPECT_THAT(dialog.options(SPACE_UNKNOWN),
                  ElementsAre("Set it as MNI", "Set it as Talairach"));
      EXPECT_EQ(dialog.value(SPACE_UNKNOWN), "Set it as MNI");
      dialog.set(VALUES_UNKNOWN, c.values);
      dialog.set(SPACE_UNKNOWN, c.space);
      dialog.press("OK");
    });
    if (c.asks_df) user.answer({});
    // Either it is ready now or the next pass asks about what it has become.
    user.answer({}, c.asks_df ? "OK" : "Cancel");
    kvo3_convert_img();
    EXPECT_EQ(codes_of("x.nii.gz"), c.codes);
    all_runs.insert(all_runs.end(), c.runs.begin(), c.runs.end());
    EXPECT_EQ(runs(), all_runs) << c.values;
  }
}

TEST_F(Convert_img, AsksAgainWhenNothingWasChanged) {
  make_image("z.nii.gz", 5, 3);
  Dialog_driver user;
  choose(user, "z.nii.gz");
  for (int i = 0; i < 2; ++i)
    user.answer({{"Image values are \"z scores\"", "Do not change them"}});
  user.answer({}, "Cancel");
  kvo3_convert_img();
  const std::string question = "[ " + path("z.nii.gz") + " ]";
  EXPECT_THAT(after_choosing(user), ElementsAre(question, question, question));
  EXPECT_THAT(runs(), IsEmpty());
}

TEST_F(Convert_img, CompressesOtherFilesFirst) {
  for (const char* name : {"single.nii", "pair.hdr"}) {
    make_image(name, 3, 4);
    Dialog_driver user;
    choose(user, name);
    user.answer({}).answer({});
    kvo3_convert_img();
    EXPECT_THAT(after_choosing(user), ElementsAre(WILL_BE_COMPRESSED, READY));
  }
  EXPECT_THAT(runs(), ElementsAre("single.nii|KVO|", "pair.hdr|KVO|"));
  for (const char* name : {"single.nii.gz", "pair.nii.gz"}) {
    EXPECT_EQ(codes_of(name), "3 4");
    const auto image = std::get<Nifti_image>(nifti_read(path(name)));
    EXPECT_THAT(image.values(0), testing::ElementsAreArray(made_values()));
  }
}

TEST_F(Convert_img, AsksBeforeItOverwritesAFile) {
  make_image("x.nii", 3, 4);
  write_text(path("x.nii.gz"), "old");
  {
    Dialog_driver user;
    choose(user, "x.nii");
    user.answer({}).then([](Shown_dialog& dialog) { dialog.key(GDK_KEY_Return); });
    kvo3_convert_img();
    EXPECT_THAT(after_choosing(user), ElementsAre(WILL_BE_COMPRESSED, OVERWRITE));
    EXPECT_EQ(read_text(path("x.nii.gz")), "old") << "Enter means Cancel";
    EXPECT_THAT(runs(), IsEmpty());
  }
  Dialog_driver user;
  choose(user, "x.nii");
  user.answer({}).answer({}).answer({});
  kvo3_convert_img();
  EXPECT_THAT(after_choosing(user), ElementsAre(WILL_BE_COMPRESSED, OVERWRITE, READY));
  EXPECT_EQ(codes_of("x.nii.gz"), "3 4");
}

TEST_F(Convert_img, LeavesAnImageThatTheCompressedFileLeadsTo) {
  make_image("x.nii", 3, 4);
  make_image("p.hdr", 3, 4);
  std::filesystem::create_symlink("x.nii", path("x.nii.gz"));
  std::filesystem::create_hard_link(path("p.img"), path("p.nii.gz"));
  for (const char* name : {"x.nii", "p.hdr"}) {
    const std::string before = read_text(path("x.nii")) + read_text(path("p.img"));
    Dialog_driver user;
    choose(user, name);
    user.answer({});
    kvo3_convert_img();
    EXPECT_THAT(after_choosing(user), ElementsAre(HasSubstr("leads to the image itself")));
    EXPECT_EQ(read_text(path("x.nii")) + read_text(path("p.img")), before);
  }
}

TEST_F(Convert_img, RefusesSeveralVolumes) {
  for (const char* name : {"x.nii", "x.nii.gz"}) {
    make_image(name, 3, 4, 2);
    Dialog_driver user;
    choose(user, name);
    user.answer({});
    kvo3_convert_img();
    EXPECT_THAT(after_choosing(user), ElementsAre("This NIfTI image contain more than one volume"));
  }
  EXPECT_THAT(runs(), IsEmpty());
}

TEST_F(Convert_img, EndsAtEveryCancel) {
  struct Case {
    const char* name;
    int intent_code;
    std::vector<const char*> buttons;  // of the dialogs behind the chooser
    std::vector<std::string> runs;
  };
  const Case cases[] = {
      {"a.nii", 0, {"Cancel"}, {}},
      {"b.hdr", 0, {"Cancel"}, {}},
      {"c.nii.gz", 0, {"Cancel"}, {}},
      {"d.nii.gz", 0, {"OK", "Cancel"}, {}},  // of the degrees of freedom
      {"e.nii.gz", 5, {"OK", "Cancel"}, {}},
      {"f.nii.gz", 24, {"OK", "Cancel"}, {}},
      {"g.nii", 5, {"OK", "OK", "Cancel"}, {"g.nii|KVO|"}},  // what is done stays done
      {"h.nii.gz", 3, {"OK", "OK"}, {"h.nii.gz|-set_mni|KVO|"}},
  };
  std::vector<std::string> all_runs;
  for (const Case& c : cases) {
    make_image(c.name, c.intent_code, 0);
    Dialog_driver user;
    choose(user, c.name);
    for (const char* button : c.buttons) user.answer({}, button);
    kvo3_convert_img();
    EXPECT_EQ(after_choosing(user).size(), c.buttons.size()) << c.name;
    all_runs.insert(all_runs.end(), c.runs.begin(), c.runs.end());
    EXPECT_EQ(runs(), all_runs) << c.name;
  }
}

TEST_F(Convert_img, TakesAnyPathThatACommandCanCarry) {
  const std::string names[] = {"with blanks",        "it's",       "na\u00efve \u8133",
                               "a&b; touch pwned",   "<b>x",       "100%s %n",
                               "(round) [square] *", "#hash ~ !!", "-set_z"};
  for (const std::string& name : names) {
    make_image(name + ".nii", 3, 0);
    Dialog_driver user;
    choose(user, name + ".nii");
    user.answer({}).answer({}).answer({});
    kvo3_convert_img();
    EXPECT_EQ(after_choosing(user).back(), READY) << name;
    EXPECT_EQ(codes_of(name + ".nii.gz"), "3 4") << name;
    EXPECT_THAT(pane_text(0), HasSubstr("'" + name + ".nii.gz' as MNI...OK\n"));
  }
  EXPECT_FALSE(std::filesystem::exists(path("pwned")));
}

TEST_F(Convert_img, RefusesAPathThatNoCommandCanCarry) {
  for (const char* name :
       {"a\"b.nii.gz", "a`b.nii.gz", "a$b.nii.gz", "a\\b.nii.gz", "a\nb.nii.gz"}) {
    make_image(name, 0, 0);
    Dialog_driver user;
    choose(user, name);
    user.answer({});
    kvo3_convert_img();
    EXPECT_THAT(after_choosing(user),
                ElementsAre(testing::AllOf(HasSubstr("cannot be passed on"), HasSubstr(name))));
  }
  EXPECT_THAT(runs(), IsEmpty());
}

TEST_F(Convert_img, SaysWhyTheCalculatorFailedAndStops) {
  struct Case {
    const char* script;
    const char* console;
  };
  const Case cases[] = {
      {"echo 'aReading'; echo 'wNo &lt;room&gt;'; exit 1\n", "\nWARNING: No <room>\n"},
      {"echo 'aReading'; kill -9 $$\n",
       "\nWARNING: The image calculator ended before it finished (signal 9 (Killed))\n"},
      {"exit 3\n", "\nWARNING: The image calculator ended before it finished (exit status 3)\n"},
      {"exec /no/such/program\n",
       "\nWARNING: The image calculator ended before it finished (exit status 127, the program was "
       "not found)\n"},
  };
  make_image("x.nii.gz", 0, 0);
  const std::string before = read_text(path("x.nii.gz"));
  for (const Case& c : cases) {
    set_imgcalc(c.script);
    clear_pane(0);
    Dialog_driver user;
    choose(user, "x.nii.gz");
    user.answer({}).answer({});
    kvo3_convert_img();
    EXPECT_THAT(pane_text(0), HasSubstr(c.console));
    EXPECT_THAT(pane_text(0), testing::Not(HasSubstr("OK"))) << c.script;
    EXPECT_EQ(after_choosing(user).size(), 2U) << "neither the space nor the next pass follows";
  }
  EXPECT_EQ(read_text(path("x.nii.gz")), before);
}

TEST_F(Convert_img, ShowsOnlyTheLinesThatMeanSomething) {
  set_imgcalc(
      "echo nothing; echo; echo .; echo d; echo WARNING: no; printf 'a<b>Step</b> 1'\n"
      "sleep 0.1; echo; echo ok; echo late\n");
  EXPECT_TRUE(kvo3_exec_imgcalc("\"%s\"", "x"));
  EXPECT_THAT(pane_text(0), MatchesRegex("[0-9:]+ - Step 1\\.\\.\\.OK\n"));
  EXPECT_THAT(runs(), ElementsAre("x|KVO|"));
}

TEST_F(Convert_img, AnswersZeroDegreesOfFreedomForCancel) {
  struct Case {
    const char* typed;
    const char* button;
    float df;
  };
  const Case cases[] = {
      {"12", "OK", 12}, {"1", "OK", 2}, {"10000", "OK", 9999}, {"12", "Cancel", 0}};
  for (const Case& c : cases) {
    Dialog_driver user;
    user.answer({{"Degrees of freedom", c.typed}}, c.button);
    EXPECT_EQ(kvo3_convert_img_df(), c.df) << c.typed << " " << c.button;
  }
}

TEST_F(Convert_img, OpensThePageOfStatistics) {
  write_program(work() / "xdg-open",
                "#!/bin/sh\necho \"$1\" >opened.part; mv opened.part opened\n");
  const std::string old_path = getenv("PATH");
  setenv("PATH", (work().string() + ":" + old_path).c_str(), 1);
  kvo3_convert_t();
  EXPECT_TRUE(wait_until([&] { return std::filesystem::exists(path("opened")); }));
  setenv("PATH", old_path.c_str(), 1);
  EXPECT_EQ(read_text(path("opened")), std::string(KVO_SITE_URL) + "utilities/?show=Statistics\n");
}

}  // namespace
