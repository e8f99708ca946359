// The workspace in a window: settings that come and go, changes of the working folder, the loading
// of the study table and the wait for its editor.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <functional>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "file_size_limit.h"
#include "panes.h"
#include "workspace/edit_table.h"
#include "workspace/files/file_names.h"
#include "workspace/files/study_table.h"
#include "workspace/load_table.h"
#include "workspace/settings.h"
#include "workspace/working_folder.h"

namespace {

using testing::ExitedWithCode;
using testing::HasSubstr;
using testing::StartsWith;
namespace fs = std::filesystem;

std::string settings_text(const fs::path& folder) {
  return "working directory = " + folder.string() +
         "\nbrain viewer = mricron\nbrain viewer executable = \n\n";
}

std::string title() {
  return gtk_window_get_title(GTK_WINDOW(Qw_Window));
}

/// An installation, a window, an empty folder of a meta-analysis and the state before anything is
/// loaded.
class Workspace : public testing::Test {
 protected:
  Workspace() {
    fs::create_directories(root / "etc");
    fs::create_directory(folder);
    kvo_s_dir = root.c_str();
    KVO_TableT = {};
  }

  /// What start-up does.
  static void start() {
    kvo_s_user_dir = "";
    kvo_load_kvo_ini();
    kvo3_check_user_dir();
  }

  /// The user's next answer, to the question for a folder.
  static void choose(Dialog_driver& user, const fs::path& path, const char* button = "Open") {
    user.then([path, button](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.message(), "Select the folder containing the meta-analysis");
      EXPECT_EQ(Qs_HelpTopic, "folder");
      dialog.select(path.string());
      dialog.press(button);
    });
  }

 private:
  Test_folder test_folder_;
  Test_panes panes_;

 protected:
  const fs::path root = test_folder_.path() / "root";
  const fs::path folder = test_folder_.path() / "new <analysis>";
  const fs::path settings_file = root / "etc" / "linux64.ini";
};

TEST_F(Workspace, StartsInTheFolderOfTheSettingsOrInTheInstallationRoot) {
  const fs::path table = folder / "kvo_table.txt";
  const std::string its_own = settings_text(folder);
  const std::string gone = "Working folder not found. This may be because";
  const std::string faulty =
      "The study table of the last folder you used cannot be loaded: '" + table.string() + "' ";
  const struct {
    std::string settings;  // empty: no file
    std::string warning;   // the beginning; empty: none
    std::function<void()> make;
  } cases[] = {
      {"", gone, [] {}},
      {settings_text("/no such folder"), gone, [] {}},
      {settings_text("/etc/passwd"), gone, [] {}},
      {its_own, faulty + "is not a regular file. Please", [&] { mkfifo(table.c_str(), 0600); }},
      {its_own, faulty + "cannot be opened: No", [&] { fs::create_symlink("none", table); }},
      {its_own, faulty + "has more than 5000000 cells",
       [&] {
         std::string text(2499, ',');
         for (int row = 0; row < 2000; ++row) text += "\na";
         write_text(table, text);
       }},
      {its_own, "", [&] { write_text(table, "study n1\n"); }},
      {its_own, "", [] {}},
  };
  for (const auto& [settings, warning, make] : cases) {
    SCOPED_TRACE(settings + warning);
    fs::remove(settings_file);
    if (!settings.empty()) write_text(settings_file, settings);
    fs::remove_all(table);
    make();
    clear_pane(0);
    start();
    EXPECT_THAT(pane_text(0), StartsWith(warning.empty() ? "" : "WARNING: " + warning));
    EXPECT_EQ(pane_text(0).empty(), warning.empty());
    EXPECT_EQ(fs::current_path(), warning.empty() ? folder : root);
    EXPECT_EQ(kvo_s_user_dir, fs::current_path().c_str());
    EXPECT_EQ(read_text(settings_file), settings);
  }
}

TEST_F(Workspace, TakesTheBrainViewerFromTheFileOrMricron) {
  kvo_s_brain_viewer = "fslview";
  kvo_s_brain_viewer_exe = "/old";
  kvo_load_kvo_ini();
  EXPECT_EQ(kvo_s_brain_viewer, "mricron");
  EXPECT_EQ(kvo_s_brain_viewer_exe, "/old");
  write_text(settings_file, "brain viewer = fslview\nbrain viewer executable = /new\n");
  kvo_load_kvo_ini();
  EXPECT_EQ(kvo_s_brain_viewer, "fslview");
  EXPECT_EQ(kvo_s_brain_viewer_exe, "/new");
}

TEST_F(Workspace, RemembersFoldersAndSaysWhichTheFileCannotHold) {
  const std::pair<const char*, const char*> cases[] = {
      // Names, and what the next start would make of those that cannot be held.
      {"it's \"quoted\" $HOME `x` \\ (%s) %n", nullptr},
      {"d\xc3\xa9j\xc3\xa0 vu \xe7\xa0\x94", nullptr},
      {"<b>&amp;", nullptr},
      {"\xe9 latin", nullptr},
      {"<i> =", "<i>"},
      {"a\nbrain viewer = b", "a brain viewer"}};
  for (const auto& [name, read_back] : cases) {
    SCOPED_TRACE(name);
    const fs::path made = folder / name;
    fs::create_directories(made);
    start();
    clear_pane(0);
    kvo_enter_folder(made.c_str());
    EXPECT_EQ(kvo_s_user_dir, made.c_str());
    if (read_back != nullptr) {
      EXPECT_THAT(pane_text(0), HasSubstr("cannot hold the working directory '" + made.string() +
                                          "': the next start would take '" +
                                          (folder / read_back).string() + "' instead"));
      continue;
    }
    EXPECT_EQ(read_text(settings_file), settings_text(made));
    fs::current_path("/");
    start();
    EXPECT_EQ(pane_text(0), "");
    EXPECT_EQ(fs::current_path(), made);
  }
  kvo_s_user_dir = "/\xe9";
  kvo_show_title();
  EXPECT_EQ(title(), "KVO v4.31 - /\xef\xbf\xbd");
}

TEST_F(Workspace, KeepsTheSettingsWhenTheDiskIsFull) {
  const std::string old = settings_text("/old");
  write_text(settings_file, old);
  {
    const File_size_limit full_disk(10);
    kvo_save_kvo_ini();
  }
  EXPECT_EQ(read_text(settings_file), old);
  EXPECT_THAT(pane_text(0), StartsWith("WARNING: The settings could not be saved in '" +
                                       settings_file.string() + "' (File too large)"));
  EXPECT_EXIT(kvo_enter_folder("none"), ExitedWithCode(1), "Folder 'none' not found\\.");
  fs::remove_all(root / "etc");
  EXPECT_EXIT(kvo_save_kvo_ini(), ExitedWithCode(1), "File '.*/linux64\\.ini' not writable\\.");
}

TEST_F(Workspace, ChangesTheMetaAnalysis) {
  fs::create_directory_symlink(folder, root / "link");
  write_text(folder / "kvo_table.txt", "study age\nA 31\n");
  write_text(folder / "kvo_batch.txt", "# old batch\n");
  write_text(folder / "kvo_1.tmp", "of a program that was killed");
  start();
  clear_pane(0);
  Dialog_driver user;
  choose(user, root / "link");
  kvo3_cd();
  EXPECT_EQ(fs::current_path(), folder);
  EXPECT_EQ(kvo_s_user_dir, folder.c_str());
  EXPECT_EQ(read_text(settings_file), settings_text(folder));
  EXPECT_EQ(title(), "KVO v4.31 - " + folder.string());
  EXPECT_EQ(KVO_TableT, kvotable_read("study age\nA 31\n"));
  EXPECT_EQ(pane_text(0) + pane_text(1), "# old batch");
  EXPECT_FALSE(fs::exists("kvo_1.tmp"));

  choose(user, root / "etc");
  kvo3_cd();
  EXPECT_EQ(title(), "KVO v4.31 - " + (root / "etc").string());
  EXPECT_EQ(pane_text(1), "");
  EXPECT_EQ(KVO_TableT, kvotable_read(std::nullopt));
}

TEST_F(Workspace, ChangesNothingOnCancelOrWhereTheChangeWouldEndTheProgram) {
  start();
  kvo_show_title();
  clear_pane(0);
  const Q_table table = kvotable_read("study a\nA 1\n");
  KVO_TableT = table;
  const std::pair<fs::path, std::string> cases[] = {
      // A folder where a file is to be read or written, and the message; none: Cancel.
      {folder / "other", ""},
      {settings_file, "etc/linux64.ini' cannot be written"},
      {folder / "kvo_table.txt", "kvo_table.txt' is not a regular file"}};
  for (const auto& [in_the_way, message] : cases) {
    fs::create_directory(in_the_way);
    Dialog_driver user;
    choose(user, folder, message.empty() ? "Cancel" : "Open");
    if (!message.empty()) user.answer({});
    kvo3_cd();
    EXPECT_THAT(user.messages().back(), HasSubstr(message));
    EXPECT_EQ(fs::current_path(), root);
    EXPECT_EQ(kvo_s_user_dir, root.c_str());
    EXPECT_EQ(title(), "KVO v4.31 - " + root.string());
    EXPECT_EQ(KVO_TableT, table);
    EXPECT_EQ(pane_text(0), "");
    fs::remove(in_the_way);
    EXPECT_FALSE(fs::exists(settings_file));
  }
}

TEST_F(Workspace, KnowsTheStudiesThatACommandHasAdded) {
  kvotable_load(KVO_TABLE_FILE);
  const long before = Q_table_ncol(KVO_TableT);
  write_text("kvo_table.txt", "study\tn1\nA\t12\nB\t13\nC\t14\nD\t15\n");
  kvotable_load_after("MyMean = mean import");
  EXPECT_EQ(Q_table_ncol(KVO_TableT), before);
  kvotable_load_after(" import x.csv, MNI");
  EXPECT_EQ(Q_table_ncol(KVO_TableT), 5);
  fs::remove("kvo_table.txt");
  fs::create_directory("kvo_table.txt");
  kvotable_load_after("import x.csv");
  EXPECT_EQ(Q_table_ncol(KVO_TableT), 5);
}

TEST_F(Workspace, CleansUpAfterAJackknifeThatWasInterrupted) {
  const std::string variable = KVO_JACKKNIFE_VARIABLE;
  const std::string left = "study\tn1\t" + variable + "\t\nA\t1\tNA\t\nB\t2\t1\t\n";
  write_text("kvo_table.txt", left);
  {
    const File_size_limit full_disk(3);
    kvotable_load(KVO_TABLE_FILE);
  }
  EXPECT_EQ(Q_table_nrow(KVO_TableT), 2);
  EXPECT_THAT(pane_text(0), HasSubstr("'kvo_table.txt' could not be written (File too large)"));
  EXPECT_EQ(read_text("kvo_table.txt"), left);

  const std::string wider = "study n1 " + variable + "\nA 1 1 1,5\n";
  write_text("kvo_table.txt", wider);
  kvotable_load(KVO_TABLE_FILE);
  EXPECT_THAT(pane_text(0), HasSubstr("could not be written (line 2: there are 5 cells"));
  EXPECT_EQ(read_text("kvo_table.txt"), wider);

  write_text("kvo_table.txt", left);
  clear_pane(0);
  for (int times = 0; times < 2; ++times) kvotable_load(KVO_TABLE_FILE);
  EXPECT_EQ(read_text("kvo_table.txt"), "study\tn1\t\nA\t1\t\nB\t2\t\n");
  EXPECT_EQ(pane_text(0),
            "WARNING: A jackknife analysis was interrupted; the temporary variable that it had "
            "left in 'kvo_table.txt' has been removed.\n\n");
}

TEST_F(Workspace, WaitsForTheTableEditor) {
  const fs::path editor = make_program_folder(root) / "kvo_edit";
  const std::string change = "printf 'study a\\nA 1\\n' >\"$1\"\n";
  const std::tuple<std::string, const char*, long> cases[] = {
      // What the editor does (none: there is no editor), the warning, variables of the table then.
      {"echo x; sleep 0.3; echo y\n" + change, "", 2},
      {change + "exit 3\n", "The table editor ended with exit status 3.", 2},
      {change + "kill -KILL $$\n", "The table editor ended with signal 9 (Killed).", 2},
      {"", "kvo_edit' could not be started.", 0}};
  for (const auto& [script, warning, variables] : cases) {
    SCOPED_TRACE(script);
    clear_pane(0);
    fs::remove(editor);
    if (!script.empty())
      write_program(editor,
                    "#!/bin/sh\n[ $# = 1 ] && [ \"$1\" = kvo_table.txt ] || exit 9\n" + script);
    write_text("kvo_table.txt", "");
    kvo3_edit_table();
    EXPECT_EQ(Q_table_nrow(KVO_TableT), variables);
    EXPECT_THAT(pane_text(0), HasSubstr(warning));
    EXPECT_EQ(pane_text(0).empty(), *warning == '\0') << pane_text(0);
    EXPECT_TRUE(gtk_widget_get_sensitive(Qw_Window));
    EXPECT_EQ(getenv("DESKTOP_STARTUP_ID"), nullptr);
  }
}

}  // namespace
