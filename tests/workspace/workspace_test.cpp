// The workspace in a window: settings that come and go, changes of the working folder, the loading
// of the study table and the wait for its editor.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

using testing::AllOf;
using testing::ElementsAre;
using testing::ExitedWithCode;
using testing::HasSubstr;
namespace fs = std::filesystem;

const char* const NOT_FOUND =
    "WARNING: Working folder not found. This may be because it is the first time you use the "
    "program, or because the last folder you used has been changed. Please change the folder as "
    "soon as possible.\n\n";

std::string settings_text(const std::string& folder) {
  return "working directory = " + folder +
         "\nbrain viewer = mricron\nbrain viewer executable = \n\n";
}

std::string title() {
  return gtk_window_get_title(GTK_WINDOW(Qw_Window));
}

/// An installation, a window and the state before anything is loaded.
class Workspace : public testing::Test {
 protected:
  Workspace() {
    fs::create_directories(root() / "etc");
    kvo_s_dir = root().c_str();
    kvo_s_user_dir = "";
    kvo_s_brain_viewer = "";
    kvo_s_brain_viewer_exe = "";
    KVO_TableT = {};
  }

  [[nodiscard]] fs::path root() const { return folder_.path() / "root"; }
  [[nodiscard]] fs::path settings_file() const { return root() / "etc" / "linux64.ini"; }
  [[nodiscard]] fs::path make_folder(const std::string& name) const {
    fs::path path = folder_.path() / name;
    fs::create_directories(path);
    return path;
  }

  /// What start-up does.
  static void start() {
    kvo_s_user_dir = "";
    kvo_load_kvo_ini();
    kvo3_check_user_dir();
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
};

TEST_F(Workspace, StartsInTheInstallationRootWithoutAFolder) {
  const struct {
    const char* name;
    std::string settings;  // empty: no file
    std::string folder_in_file;
  } cases[] = {
      {"no settings file", "", ""},
      {"no folder", "brain viewer = fslview\n", ""},
      {"a folder that is gone", settings_text("/no such folder"), ""},
      {"a file", settings_text("/etc/passwd"), ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    clear_pane(0);
    fs::remove(settings_file());
    if (!c.settings.empty()) write_text(settings_file(), c.settings);
    start();
    EXPECT_EQ(pane_text(0), NOT_FOUND);
    EXPECT_EQ(kvo_s_user_dir, root().c_str());
    EXPECT_EQ(fs::current_path(), root());
    EXPECT_EQ(fs::exists(settings_file()) ? read_text(settings_file()) : "", c.settings);
  }
}

TEST_F(Workspace, StartsElsewhereWhenTheStudyTableWouldEndTheProgram) {
  const fs::path folder = make_folder("last <one>");
  const fs::path table = folder / KVO_TABLE_FILE;
  const struct {
    const char* fault;  // empty: none
    std::function<void()> make;
  } cases[] = {
      {"is not a regular file", [&] { mkfifo(table.c_str(), 0600); }},
      {"is not a regular file", [&] { fs::create_symlink("/dev/zero", table); }},
      {"is not a regular file", [&] { fs::create_directory(table); }},
      {"cannot be opened: No such file or directory", [&] { fs::create_symlink("none", table); }},
      {"is larger than 64 MiB",
       [&] {
         write_text(table, "");
         fs::resize_file(table, (std::uintmax_t{64} << 20) + 1);
       }},
      {"has more than 5000000 cells",
       [&] {
         std::string text(2499, ',');
         for (int row = 0; row < 2000; ++row) text += "\na";
         write_text(table, text);
       }},
      {"", [&] { write_text(table, "study n1\n"); }},
      {"", [] {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.fault);
    const std::string settings = settings_text(folder.string());
    write_text(settings_file(), settings);
    fs::remove_all(table);
    c.make();
    clear_pane(0);
    start();
    const bool is_faulty = *c.fault != '\0';
    EXPECT_EQ(pane_text(0), is_faulty
                                ? "WARNING: The study table of the last folder you used cannot "
                                  "be loaded: '" +
                                      table.string() + "' " + c.fault +
                                      ". Please mend that file and start again, or change "
                                      "the folder.\n\n"
                                : "");
    EXPECT_EQ(fs::current_path(), is_faulty ? root() : folder);
    EXPECT_EQ(kvo_s_user_dir, (is_faulty ? root() : folder).c_str());
    EXPECT_EQ(read_text(settings_file()), settings);
  }
}

TEST_F(Workspace, TakesTheBrainViewerFromTheFileOrMricron) {
  kvo_s_brain_viewer = "fslview";
  kvo_s_brain_viewer_exe = "/old";
  kvo_load_kvo_ini();
  EXPECT_EQ(kvo_s_brain_viewer, "mricron");
  EXPECT_EQ(kvo_s_brain_viewer_exe, "/old");
  write_text(settings_file(), "brain viewer = fslview\nbrain viewer executable = /new\n");
  kvo_load_kvo_ini();
  EXPECT_EQ(kvo_s_brain_viewer, "fslview");
  EXPECT_EQ(kvo_s_brain_viewer_exe, "/new");
}

TEST_F(Workspace, RemembersFoldersWhoseNamesTheFileCanHold) {
  for (const char* name :
       {"plain", "with blanks and (brackets)", "it's \"quoted\" $HOME `x` \\",
        "d\xc3\xa9j\xc3\xa0 vu \xe7\xa0\x94\xe7\xa9\xb6", "100%s %n", "<b>&amp;", "\xe9 latin"}) {
    SCOPED_TRACE(name);
    const fs::path folder = make_folder(name);
    clear_pane(0);
    kvo_enter_folder(folder.c_str());
    EXPECT_EQ(pane_text(0), "");
    EXPECT_EQ(read_text(settings_file()), "working directory = " + folder.string() +
                                              "\nbrain viewer = \nbrain viewer executable = \n\n");
    fs::current_path("/");
    start();
    EXPECT_EQ(pane_text(0), "");
    EXPECT_EQ(fs::current_path(), folder);
    kvo_s_brain_viewer = "";
  }
}

TEST_F(Workspace, SaysWhichFoldersTheFileCannotHold) {
  const struct {
    const char* name;
    const char* read_back;
  } cases[] = {
      {"a=b", "a"}, {"a  b", "a b"}, {"<i> =", "<i>"}, {"a\nbrain viewer = b", "a brain viewer"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const fs::path folder = make_folder(c.name);
    clear_pane(0);
    kvo_enter_folder(folder.c_str());
    EXPECT_THAT(pane_text(0),
                AllOf(HasSubstr("cannot hold the working directory '" + folder.string() + "'"),
                      HasSubstr("would take '" + (folder.parent_path() / c.read_back).string() +
                                "' instead")));
    EXPECT_EQ(kvo_s_user_dir, folder.c_str());
  }
}

TEST_F(Workspace, KeepsTheSettingsWhenTheDiskIsFull) {
  const std::string old = settings_text("/old");
  write_text(settings_file(), old);
  kvo_s_user_dir = "/new";
  const std::size_t size = settings_text("/new").size() - std::string("mricron").size();
  for (std::size_t room = 0; room < size; ++room) {
    clear_pane(0);
    {
      const File_size_limit limit(room);
      kvo_save_kvo_ini();
    }
    EXPECT_EQ(read_text(settings_file()), old) << room;
    EXPECT_THAT(pane_text(0), AllOf(HasSubstr("WARNING: The settings could not be saved"),
                                    HasSubstr("File too large")))
        << room;
  }
}

TEST_F(Workspace, EndsTheProgramForSettingsOrFoldersThatCannotBeUsed) {
  EXPECT_EXIT(kvo_enter_folder("none"), ExitedWithCode(1), "Folder 'none' not found\\.");
  fs::remove_all(root() / "etc");
  EXPECT_EXIT(kvo_save_kvo_ini(), ExitedWithCode(1),
              "File '.*/root/etc/linux64\\.ini' not writable\\.");
}

TEST_F(Workspace, ChangesTheMetaAnalysis) {
  const fs::path folder = make_folder("new analysis");
  const fs::path link = folder.parent_path() / "link";
  fs::create_directory_symlink(folder, link);
  write_text(folder / "kvo_table.txt", "study age\nA 31\n");
  write_text(folder / "kvo_batch.txt", "# old batch\n");
  start();
  clear_pane(0);
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    EXPECT_EQ(Qs_HelpTopic, "folder");
    dialog.select(link.string());
    dialog.press("Open");
  });
  kvo3_cd();
  EXPECT_THAT(user.messages(), ElementsAre("Select the folder containing the meta-analysis"));
  EXPECT_EQ(fs::current_path(), folder);
  EXPECT_EQ(kvo_s_user_dir, folder.c_str());
  EXPECT_EQ(read_text(settings_file()), settings_text(folder.string()));
  EXPECT_EQ(title(), "KVO v4.31 - " + folder.string());
  Q_string_list variables;
  kvotable_get_variables(variables);
  EXPECT_EQ(variables, (Q_string_list{"(none)", "age"}));
  EXPECT_EQ(pane_text(1), "# old batch");
  EXPECT_EQ(pane_text(0), "");

  const fs::path empty = make_folder("empty");
  user.then([&](Shown_dialog& dialog) {
    dialog.select(empty.string());
    dialog.press("Open");
  });
  kvo3_cd();
  EXPECT_EQ(title(), "KVO v4.31 - " + empty.string());
  EXPECT_EQ(pane_text(1), "");
  EXPECT_EQ(Q_table_ncol(KVO_TableT), 1);
}

TEST_F(Workspace, ChangesNothingWhereTheChangeWouldEndTheProgram) {
  start();
  clear_pane(0);
  KVO_TableT = kvotable_read("study a\nA 1\n");
  const Q_table table = KVO_TableT;
  const fs::path folder = make_folder("other");
  const struct {
    fs::path in_the_way;  ///< a folder where a file is to be read or written
    const char* message;
  } cases[] = {{settings_file(), "etc/linux64.ini' cannot be written"},
               {folder / KVO_TABLE_FILE, "other/kvo_table.txt' is not a regular file"}};
  for (const auto& c : cases) {
    fs::create_directory(c.in_the_way);
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
          dialog.select(folder.string());
          dialog.press("Open");
        })
        .answer({});
    kvo3_cd();
    EXPECT_THAT(user.messages().back(), HasSubstr(c.message));
    EXPECT_EQ(fs::current_path(), root());
    EXPECT_EQ(kvo_s_user_dir, root().c_str());
    EXPECT_EQ(KVO_TableT, table);
    fs::remove(c.in_the_way);
    EXPECT_FALSE(fs::exists(settings_file()));
  }
}

TEST_F(Workspace, ChangesNothingOnCancel) {
  start();
  clear_pane(0);
  kvo_show_title();
  KVO_TableT = kvotable_read("study a\nA 1\n");
  const Q_table table = KVO_TableT;
  const fs::path folder = make_folder("other");
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    dialog.select(folder.string());
    dialog.press("Cancel");
  });
  kvo3_cd();
  EXPECT_EQ(fs::current_path(), root());
  EXPECT_EQ(title(), "KVO v4.31 - " + root().string());
  EXPECT_EQ(KVO_TableT, table);
  EXPECT_FALSE(fs::exists(settings_file()));
  EXPECT_EQ(pane_text(0), "");
}

TEST_F(Workspace, ShowsAFolderWhoseNameIsNotUtf8) {
  kvo_s_user_dir = "/\xe9";
  kvo_show_title();
  EXPECT_EQ(title(), "KVO v4.31 - /\xef\xbf\xbd");
}

TEST_F(Workspace, CleansUpAfterAJackknifeThatWasInterrupted) {
  const std::string variable = KVO_JACKKNIFE_VARIABLE;
  write_text(KVO_TABLE_FILE, "study\tn1\t" + variable + "\t\nA\t1\tNA\t\nB\t2\t1\t\n");
  {
    const File_size_limit full_disk(3);
    kvotable_load(KVO_TABLE_FILE);
  }
  EXPECT_EQ(Q_table_nrow(KVO_TableT), 2);
  EXPECT_THAT(pane_text(0), HasSubstr("'kvo_table.txt' could not be written (File too large)"));
  EXPECT_THAT(read_text(KVO_TABLE_FILE), HasSubstr(variable));

  const std::string wider = "study n1 " + variable + "\nA 1 1 1,5\n";
  write_text(KVO_TABLE_FILE, wider);
  kvotable_load(KVO_TABLE_FILE);
  EXPECT_THAT(pane_text(0), HasSubstr("could not be written (line 2: there are 5 cells"));
  EXPECT_EQ(read_text(KVO_TABLE_FILE), wider);

  write_text(KVO_TABLE_FILE, "study\tn1\t" + variable + "\t\nA\t1\tNA\t\nB\t2\t1\t\n");
  clear_pane(0);
  kvotable_load(KVO_TABLE_FILE);
  EXPECT_EQ(read_text(KVO_TABLE_FILE), "study\tn1\t\nA\t1\t\nB\t2\t\n");
  EXPECT_EQ(pane_text(0),
            "WARNING: A jackknife analysis was interrupted; the temporary variable that it had "
            "left in 'kvo_table.txt' has been removed.\n\n");
  clear_pane(0);
  kvotable_load(KVO_TABLE_FILE);
  EXPECT_EQ(pane_text(0), "");
}

TEST_F(Workspace, WaitsForTheTableEditor) {
  const fs::path editor = make_program_folder(make_folder("programs")) / "kvo_edit";
  const std::string change = "printf 'study a\\nA 1\\n' >\"$1\"\n";
  const struct {
    const char* name;
    std::string script;  // empty: no editor
    const char* warning;
    long variables;
  } cases[] = {
      {"ends by itself", "sleep 0.3\n" + change, "", 2},
      {"writes to its output", "echo x; sleep 0.2; echo y\n" + change, "", 2},
      {"ends with a failure", change + "exit 3\n", "The table editor ended with exit status 3.", 2},
      {"is killed", change + "kill -KILL $$\n", "The table editor ended with signal 9 (Killed).",
       2},
      {"is not there", "", "The table editor '", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    clear_pane(0);
    fs::remove(editor);
    if (!c.script.empty())
      write_program(editor,
                    "#!/bin/sh\n[ $# = 1 ] && [ \"$1\" = kvo_table.txt ] || exit 9\n" + c.script);
    write_text(KVO_TABLE_FILE, "");
    kvo3_edit_table();
    EXPECT_EQ(Q_table_nrow(KVO_TableT), c.variables);
    EXPECT_THAT(pane_text(0), HasSubstr(c.warning));
    EXPECT_EQ(pane_text(0).empty(), *c.warning == '\0') << pane_text(0);
    EXPECT_TRUE(gtk_widget_get_sensitive(Qw_Window));
    EXPECT_EQ(getenv("DESKTOP_STARTUP_ID"), nullptr);
  }
  EXPECT_THAT(pane_text(0), HasSubstr("kvo_edit' could not be started."));
}

}  // namespace
