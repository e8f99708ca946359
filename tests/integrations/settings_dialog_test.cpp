// The settings dialog and the search for the brain viewer, with real settings files.

#include "integrations/settings_dialog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "dialog_driver.h"
#include "panes.h"
#include "workspace/settings.h"
#include "workspace/working_folder.h"

namespace {

namespace fs = std::filesystem;

/// In the place of a viewer and its executable: there is no settings file.
constexpr const char* NO_FILE = "no file";

/// An installation, and a folder in the place of /usr/bin that has both viewers, as far as
/// installed.
class Settings : public testing::Test {
 protected:
  Settings() {
    fs::create_directories(root() / "etc");
    fs::create_directories(standard());
    write_text(standard() / "other", "");
    kvo_s_dir = root().c_str();
    viewers_.assign(kvo_brain_viewers().begin(), kvo_brain_viewers().end());
    paths_ = {standard() / "fslview", standard() / "mricron"};
    for (std::size_t i = 0; i < viewers_.size(); ++i)
      viewers_[i].standard_executable = paths_[i].c_str();
  }

  [[nodiscard]] fs::path root() const { return folder_.path() / "root"; }
  [[nodiscard]] fs::path standard() const { return folder_.path() / "standard & <b>"; }
  [[nodiscard]] fs::path settings_file() const { return root() / "etc" / "linux64.ini"; }

  /// Writes a settings file with a viewer and its executable, "mricron|STANDARD/mricron", and loads
  /// it as start-up does before it looks for the viewer.
  void prepare(const std::string& settings, bool installed) {
    fs::remove(settings_file());
    if (settings != NO_FILE) write_text(settings_file(), file_text(settings));
    for (const fs::path& path : paths_) {
      fs::remove(path);
      if (installed) write_text(path, "");
    }
    load();
  }
  void load() {
    kvo_s_user_dir = "";
    kvo_s_brain_viewer_exe = "";
    kvo_load_kvo_ini();
    kvo3_check_user_dir();
    clear_pane(0);
  }
  [[nodiscard]] std::string with_path(std::string text) const {
    const std::size_t at = text.find("STANDARD");
    return at == std::string::npos ? text : text.replace(at, 8, standard());
  }
  [[nodiscard]] std::string file_text(const std::string& settings) const {
    const std::size_t bar = settings.find('|');
    return bar == std::string::npos
               ? ""
               : "working directory = " + root().string() +
                     "\nbrain viewer = " + settings.substr(0, bar) +
                     "\nbrain viewer executable = " + with_path(settings.substr(bar + 1)) + "\n\n";
  }
  /// What the console says, "+" and the viewer that it has found or "-" and the one that it has
  /// not, and what the settings file holds.
  void expect(const std::string& told, const std::string& settings) const {
    const std::string viewer = told.substr(std::min(told.size(), std::size_t{1}));
    std::string text;
    if (told.starts_with('+'))
      text = "Good news! - " + viewer + " program has been found at " +
             with_path(viewer == "MRIcron" ? "STANDARD/mricron" : "STANDARD/fslview") + "\n\n";
    if (told.starts_with('-'))
      text = "WARNING: " + viewer + " program not found. Please either specify " + viewer +
             " executable, or disable " + viewer +
             " brain viewer, by clicking [Settings] in [Tools] menu.\n\n";
    EXPECT_EQ(pane_text(0), text);
    EXPECT_EQ(fs::exists(settings_file()), settings != NO_FILE);
    EXPECT_EQ(read_text(settings_file()), file_text(settings));
  }

  std::vector<Brain_viewer> viewers_;

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::vector<fs::path> paths_;
};

TEST_F(Settings, TheViewerIsLookedForAtStartUp) {
  const struct {
    const char* before;
    bool installed;
    std::string told;
    const char* after;
  } cases[] = {
      {NO_FILE, true, "+MRIcron", "mricron|STANDARD/mricron"},
      {NO_FILE, false, "-MRIcron", NO_FILE},
      {"fslview|", true, "+FSLView", "fslview|STANDARD/fslview"},
      {"fslview|/none/fslview", true, "+FSLView", "fslview|STANDARD/fslview"},
      {"fslview|/none/fslview", false, "-FSLView", "fslview|/none/fslview"},
      {"mricron|STANDARD/other", true, "", "mricron|STANDARD/other"},
      {"mricron|STANDARD", false, "", "mricron|STANDARD"},
      {"mricron|STANDARD/", false, "-MRIcron", "mricron|STANDARD/"},
      {"mricron|sh", false, "-MRIcron", "mricron|sh"},
      {"MRIcron|", true, "", "MRIcron|"},
      {"none|/none", true, "", "none|/none"},
      {"|", true, "+MRIcron", "mricron|STANDARD/mricron"},  // counts as no line
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before);
    prepare(c.before, c.installed);
    kvo_check_brain_viewer(viewers_);
    expect(c.told, c.after);
    load();
    kvo_check_brain_viewer(viewers_);
    expect(c.told.starts_with('+') ? "" : c.told, c.after);
  }
}

TEST_F(Settings, TheDialogEditsThem) {
  const std::string viewer = "Brain viewer=";
  const std::string other = "; Brain viewer executable=STANDARD/other";
  const struct {
    const char *before, *shown_viewer, *shown_file;
    std::string play;
    bool installed;
    const char *told, *after;
  } cases[] = {
      {"mricron|", "MRIcron", "", viewer + "FSLView", true, "+FSLView", "fslview|STANDARD/fslview"},
      {"mricron|", "MRIcron", "", viewer + "FSLView", false, "-FSLView", "fslview|"},
      {"fslview|", "FSLView", "", viewer + "MRIcron" + other, true, "", "mricron|STANDARD/other"},
      {"fslview|STANDARD/other", "FSLView", "STANDARD/other", viewer + "MRIcron", false, "",
       "mricron|STANDARD/other"},
      {"mricron|STANDARD/other", "MRIcron", "STANDARD/other", viewer + "(disabled)", true, "", "|"},
      {"MRIcron|", "(disabled)", "", viewer + "MRIcron", true, "+MRIcron",
       "mricron|STANDARD/mricron"},
      {"mricron|/none", "MRIcron", "", viewer + "FSLView" + other + "; Cancel", true, "",
       "mricron|/none"},
      {NO_FILE, "MRIcron", "", viewer + "FSLView; Cancel", true, "", NO_FILE},
      {NO_FILE, "MRIcron", "", "OK", false, "-MRIcron", "mricron|"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.play);
    prepare(c.before, c.installed);
    Dialog_driver user;
    user.play(with_path(c.play));
    kvo_ask_settings(viewers_);
    EXPECT_EQ(user.shown(), std::string("settings [ SETTINGS ] Brain viewer: ") + c.shown_viewer +
                                " <(disabled), FSLView, MRIcron>; Brain viewer executable: " +
                                with_path(c.shown_file));
    expect(c.told, c.after);
  }
}

// The Debian package mricron is installed where this runs.
TEST_F(Settings, FindTheRealViewer) {
  load();
  kvo3_check_brain_viewer();
  EXPECT_EQ(pane_text(0), "Good news! - MRIcron program has been found at /usr/bin/mricron\n\n");
  clear_pane(0);
  Dialog_driver user;
  user.play("OK");
  kvo3_settings();
  expect("", "mricron|/usr/bin/mricron");
}

}  // namespace
