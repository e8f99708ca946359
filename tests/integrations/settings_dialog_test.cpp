// The settings dialog and the search for the brain viewer, with real settings files.

#include "integrations/settings_dialog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "panes.h"
#include "workspace/settings.h"
#include "workspace/working_folder.h"

namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

const char* const FOUND_MRICRON =
    "Good news! - MRIcron program has been found at STANDARD/mricron\n\n";
const char* const FOUND_FSLVIEW =
    "Good news! - FSLView program has been found at STANDARD/fslview\n\n";
const char* const NO_MRICRON =
    "WARNING: MRIcron program not found. Please either specify MRIcron executable, or disable "
    "MRIcron brain viewer, by clicking [Settings] in [Tools] menu.\n\n";
const char* const NO_FSLVIEW =
    "WARNING: FSLView program not found. Please either specify FSLView executable, or disable "
    "FSLView brain viewer, by clicking [Settings] in [Tools] menu.\n\n";
const char* const NO_FILE = "(no file)";

std::string settings(const std::string& viewer, const std::string& executable) {
  return "working directory = ROOT\nbrain viewer = " + viewer +
         "\nbrain viewer executable = " + executable + "\n\n";
}

/// An installation, and a folder in the place of /usr/bin that has both viewers, as far as
/// installed. "ROOT" and "STANDARD" stand for the two in the tables.
class Settings : public testing::Test {
 protected:
  Settings() {
    fs::create_directories(root() / "etc");
    fs::create_directories(standard());
    write_text(standard() / "other", "");
    kvo_s_dir = root().c_str();
    viewers_.assign(kvo_brain_viewers().begin(), kvo_brain_viewers().end());
    for (std::size_t i = 0; i < viewers_.size(); ++i) {
      paths_.push_back(standard() / fs::path(viewers_[i].standard_executable).filename());
      viewers_[i].standard_executable = paths_[i].c_str();
    }
  }

  [[nodiscard]] fs::path root() const { return folder_.path() / "root"; }
  [[nodiscard]] fs::path standard() const { return folder_.path() / "standard & <b>"; }
  [[nodiscard]] fs::path settings_file() const { return root() / "etc" / "linux64.ini"; }
  [[nodiscard]] std::string with_paths(std::string text) const {
    for (const auto& [word, path] : {std::pair("ROOT", root()), std::pair("STANDARD", standard())})
      for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word))
        text.replace(at, std::string(word).size(), path.string());
    return text;
  }

  void prepare(const std::string& content, bool installed) {
    clear_pane(0);
    fs::remove(settings_file());
    if (content != NO_FILE) write_text(settings_file(), with_paths(content));
    for (const fs::path& path : paths_) {
      fs::remove(path);
      if (installed) write_text(path, "");
    }
  }
  /// What start-up does before the viewer is looked for.
  void load() {
    kvo_s_user_dir = "";
    kvo_s_brain_viewer_exe = "";
    kvo_load_kvo_ini();
    kvo3_check_user_dir();
    clear_pane(0);
  }
  [[nodiscard]] std::string content() const {
    return fs::exists(settings_file()) ? read_text(settings_file()) : NO_FILE;
  }

  std::vector<Brain_viewer> viewers_;

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::vector<fs::path> paths_;
};

TEST_F(Settings, TheViewerIsLookedForAtStartUp) {
  const struct {
    const char* name;
    std::string before;
    bool installed;
    std::string console;
    std::string after;
    std::string console_of_next_start;
  } cases[] = {
      {"first start, installed", NO_FILE, true, FOUND_MRICRON,
       settings("mricron", "STANDARD/mricron"), ""},
      {"first start, not installed", NO_FILE, false, NO_MRICRON, NO_FILE, NO_MRICRON},
      {"fslview without a path", settings("fslview", ""), true, FOUND_FSLVIEW,
       settings("fslview", "STANDARD/fslview"), ""},
      {"a path that is gone", settings("fslview", "/none/fslview"), true, FOUND_FSLVIEW,
       settings("fslview", "STANDARD/fslview"), ""},
      {"a path that is gone, not installed", settings("fslview", "/none/fslview"), false,
       NO_FSLVIEW, settings("fslview", "/none/fslview"), NO_FSLVIEW},
      {"a stored path that exists", settings("mricron", "STANDARD/mricron"), true, "",
       settings("mricron", "STANDARD/mricron"), ""},
      {"any existing file", settings("mricron", "STANDARD/other"), true, "",
       settings("mricron", "STANDARD/other"), ""},
      {"a folder", settings("mricron", "STANDARD"), false, "", settings("mricron", "STANDARD"), ""},
      {"a folder with a final slash", settings("mricron", "STANDARD/"), false, NO_MRICRON,
       settings("mricron", "STANDARD/"), NO_MRICRON},
      {"a name along PATH", settings("mricron", "sh"), false, NO_MRICRON, settings("mricron", "sh"),
       NO_MRICRON},
      {"capital letters", settings("MRIcron", ""), true, "", settings("MRIcron", ""), ""},
      {"another viewer", settings("none", "/none"), true, "", settings("none", "/none"), ""},
      {"an empty viewer counts as no line", settings("", ""), true, FOUND_MRICRON,
       settings("mricron", "STANDARD/mricron"), ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    prepare(c.before, c.installed);
    load();
    kvo_check_brain_viewer(viewers_);
    EXPECT_EQ(pane_text(0), with_paths(c.console));
    EXPECT_EQ(content(), with_paths(c.after));
    load();
    kvo_check_brain_viewer(viewers_);
    EXPECT_EQ(pane_text(0), with_paths(c.console_of_next_start));
  }
}

TEST_F(Settings, TheDialogEditsThem) {
  struct Answer {
    const char* viewer;
    const char* file;  // empty: left alone
    const char* button;
  };
  const struct {
    const char* name;
    std::string before;
    const char* shown_viewer;
    std::string shown_file;
    Answer answer;
    bool installed;
    std::string console;
    std::string after;
  } cases[] = {
      {"FSLView without a file",
       settings("mricron", ""),
       "MRIcron",
       "",
       {"FSLView", "", "OK"},
       true,
       FOUND_FSLVIEW,
       settings("fslview", "STANDARD/fslview")},
      {"the same when it is not installed",
       settings("mricron", ""),
       "MRIcron",
       "",
       {"FSLView", "", "OK"},
       false,
       NO_FSLVIEW,
       settings("fslview", "")},
      {"a file",
       settings("fslview", ""),
       "FSLView",
       "",
       {"MRIcron", "STANDARD/other", "OK"},
       true,
       "",
       settings("mricron", "STANDARD/other")},
      {"the shown file stays",
       settings("fslview", "STANDARD/other"),
       "FSLView",
       "STANDARD/other",
       {"MRIcron", "", "OK"},
       false,
       "",
       settings("mricron", "STANDARD/other")},
      {"disabled",
       settings("mricron", "STANDARD/other"),
       "MRIcron",
       "STANDARD/other",
       {"(disabled)", "", "OK"},
       true,
       "",
       settings("", "")},
      {"disabled with a file",
       settings("mricron", ""),
       "MRIcron",
       "",
       {"(disabled)", "STANDARD/other", "OK"},
       true,
       "",
       settings("", "")},
      {"capital letters",
       settings("MRIcron", ""),
       "(disabled)",
       "",
       {"MRIcron", "", "OK"},
       true,
       FOUND_MRICRON,
       settings("mricron", "STANDARD/mricron")},
      {"Cancel",
       settings("mricron", "/none"),
       "MRIcron",
       "",
       {"FSLView", "STANDARD/other", "Cancel"},
       true,
       "",
       settings("mricron", "/none")},
      {"Cancel without a settings file",
       NO_FILE,
       "MRIcron",
       "",
       {"FSLView", "", "Cancel"},
       true,
       "",
       NO_FILE},
      {"the first settings",
       NO_FILE,
       "MRIcron",
       "",
       {"MRIcron", "", "OK"},
       false,
       NO_MRICRON,
       settings("mricron", "")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    prepare(c.before, c.installed);
    load();
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
      EXPECT_EQ(Qs_HelpTopic, "settings");
      EXPECT_EQ(dialog.explanation(), "");
      EXPECT_THAT(dialog.labels(), ElementsAre("Brain viewer", "Brain viewer executable"));
      EXPECT_THAT(dialog.options("Brain viewer"), ElementsAre("(disabled)", "FSLView", "MRIcron"));
      EXPECT_EQ(dialog.value("Brain viewer"), c.shown_viewer);
      EXPECT_EQ(dialog.value("Brain viewer executable"), with_paths(c.shown_file));
      dialog.set("Brain viewer", c.answer.viewer);
      if (*c.answer.file != '\0') dialog.set("Brain viewer executable", with_paths(c.answer.file));
      dialog.press(c.answer.button);
    });
    kvo_ask_settings(viewers_);
    EXPECT_THAT(user.messages(), ElementsAre("[ SETTINGS ]"));
    EXPECT_EQ(pane_text(0), with_paths(c.console));
    EXPECT_EQ(content(), with_paths(c.after));
  }
}

TEST_F(Settings, EndTheProgramWhenTheyCannotBeSaved) {
  // The child prints in a window, so it needs a display of its own.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  prepare(NO_FILE, true);
  load();
  fs::remove_all(root() / "etc");
  EXPECT_EXIT(kvo_check_brain_viewer(viewers_), testing::ExitedWithCode(1),
              "File '.*/root/etc/linux64\\.ini' not writable\\.");
}

// The Debian package mricron is installed where this runs.
TEST_F(Settings, FindTheRealViewer) {
  load();
  kvo3_check_brain_viewer();
  EXPECT_EQ(pane_text(0), "Good news! - MRIcron program has been found at /usr/bin/mricron\n\n");
  EXPECT_EQ(content(), with_paths(settings("mricron", "/usr/bin/mricron")));

  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.value("Brain viewer executable"), "/usr/bin/mricron");
    dialog.press("OK");
  });
  clear_pane(0);
  kvo3_settings();
  EXPECT_EQ(pane_text(0), "");
  EXPECT_EQ(content(), with_paths(settings("mricron", "/usr/bin/mricron")));
}

}  // namespace
