// The action that makes an SPM toolbox, with its dialogs.

#include "integrations/spm_extension.h"

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <set>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "panes.h"
#include "shell/busy.h"
#include "toolbox_files.h"
#include "workspace/settings.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
namespace fs = std::filesystem;

class Spm_extension : public testing::Test {
 protected:
  Spm_extension() {
    umask(022);
    for (const std::string& name : toolbox_files()) {
      fs::create_directories((root() / name).parent_path());
      write_text(root() / name, name);
    }
    fs::create_directory(working_folder());
    Qs_ProgramDir = (root() / "bin/linux64").c_str();
    kvo_s_user_dir = working_folder().c_str();
    fs::current_path(working_folder());
  }

  [[nodiscard]] fs::path root() const { return folder_.path() / "root"; }
  [[nodiscard]] fs::path working_folder() const { return folder_.path() / "analysis"; }
  [[nodiscard]] fs::path make_target(const char* name) const {
    const fs::path target = folder_.path() / name;
    fs::create_directories(target);
    return target;
  }
  static Dialog_driver::Script open(const fs::path& target) {
    return [target](Shown_dialog& dialog) {
      dialog.select(target.string());
      dialog.press("Open");
    };
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
};

TEST_F(Spm_extension, ExplainsAsksCopiesAndShowsTheCommand) {
  const struct {
    const char* folder;
    const char* last_button;
    bool plain;
  } cases[] = {
      {"toolbox", "OK", true}, {"toolbox", "Cancel", true}, {"my spm's toolbox", "OK", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.folder);
    const fs::path target = make_target(c.folder);
    Dialog_driver user;
    user.then([](Shown_dialog& dialog) {
      EXPECT_EQ(Qs_HelpTopic, "spm");
      EXPECT_EQ(
          dialog.explanation(),
          "This action will create the necessary files to run KVO as an SPM extension.\n\nPlease "
          "notice that the new SPM extension will work independently from the KVO software you are "
          "running now. Indeed, you can delete this software if you plan to run KVO only as an SPM "
          "extension.\n\nTo proceed click [OK] and next specify the SPM toolbox folder within the "
          "SPM folder.");
      EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "OK"));
      dialog.press("OK");
    });
    user.then(open(target));
    user.then([&](Shown_dialog& dialog) {
      expect_toolbox(target / "KVO", root(), {"KVO.m"});
      EXPECT_EQ(fs::current_path(), working_folder());
      EXPECT_FALSE(Q_busy);
      EXPECT_THAT(dialog.labels(), ElementsAre("Matlab command"));
      EXPECT_EQ(dialog.value("Matlab command"), "addpath " + target.string() + "/KVO");
      const std::string explanation =
          "To finish the installation open Matlab and copy and paste the following command into "
          "Matlab's console.";
      if (c.plain)
        EXPECT_EQ(dialog.explanation(), explanation);
      else
        EXPECT_THAT(dialog.explanation(),
                    testing::AllOf(testing::StartsWith(explanation),
                                   HasSubstr("KVO cannot be started from Matlab there")));
      dialog.press(c.last_button);
    });
    kvo3_spm_extension();
    EXPECT_THAT(user.messages(),
                ElementsAre("[ RUNNING KVO AS SPM EXTENSION ]", "Specify the SPM toolbox folder",
                            "[ READ VERY CAREFULLY !!! ]"));
    EXPECT_EQ(pane_text(0), "");
  }
}

TEST_F(Spm_extension, CreatesNothingOnCancel) {
  const fs::path target = make_target("toolbox");
  using Script = Dialog_driver::Script;
  const std::vector<std::vector<Script>> refusals = {
      {[](Shown_dialog& dialog) { dialog.press("Cancel"); }},
      {[](Shown_dialog& dialog) { dialog.key(GDK_KEY_Return); }},  // Cancel is the default
      {[](Shown_dialog& dialog) { dialog.close(); }},
      {[](Shown_dialog& dialog) { dialog.press("OK"); },
       [&](Shown_dialog& dialog) {
         dialog.select(target.string());
         dialog.press("Cancel");
       }},
  };
  for (const std::vector<Script>& scripts : refusals) {
    Dialog_driver user;
    for (const Script& script : scripts) user.then(script);
    kvo3_spm_extension();
    EXPECT_TRUE(fs::is_empty(target));
    EXPECT_EQ(fs::current_path(), working_folder());
  }
}

/// How many files and folders a folder holds.
long files_in(const fs::path& folder) {
  std::error_code missing;
  return std::ranges::distance(fs::recursive_directory_iterator(folder, missing));
}

/// A source of the main loop that has the window drawn again each time that a folder has grown.
struct Growth {
  GSource source;
  const fs::path* folder;
  long files;

  static gboolean has_grown(GSource* source) {
    const auto* const growth = reinterpret_cast<Growth*>(source);
    return files_in(*growth->folder) > growth->files ? TRUE : FALSE;
  }
  static gboolean prepare(GSource* source, gint* timeout) {
    *timeout = -1;
    return has_grown(source);
  }
  static gboolean draw(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/) {
    auto* const growth = reinterpret_cast<Growth*>(source);
    growth->files = files_in(*growth->folder);
    gtk_widget_queue_draw(Qw_Window);
    return G_SOURCE_CONTINUE;
  }
};

TEST_F(Spm_extension, KeepsTheWindowDrawingWhileItCopies) {
  const fs::path target = make_target("toolbox");
  const fs::path toolbox = target / "KVO";
  static GSourceFuncs functions{Growth::prepare, Growth::has_grown, Growth::draw,
                                nullptr,         nullptr,           nullptr};
  auto* const growth = reinterpret_cast<Growth*>(g_source_new(&functions, sizeof(Growth)));
  growth->folder = &toolbox;
  growth->files = 0;
  const Q_source source(g_source_attach(&growth->source, nullptr));
  g_source_unref(&growth->source);
  std::pair<const fs::path*, std::set<long>> drawn{&toolbox, {}};
  const auto note = [](GtkWidget* /*window*/, GdkEvent* /*event*/, gpointer data) -> gboolean {
    auto& [folder, files] = *static_cast<decltype(drawn)*>(data);
    if (Q_busy) files.insert(files_in(*folder));
    return FALSE;
  };
  g_signal_connect(Qw_Window, "expose-event", G_CALLBACK(+note), &drawn);
  Dialog_driver user;
  user.answer({}).then(open(target)).answer({});
  kvo3_spm_extension();
  EXPECT_GE(drawn.second.size(), toolbox_files().size()) << "with each file";
}

}  // namespace
