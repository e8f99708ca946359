// The action that makes an SPM toolbox, with its dialogs.

#include "integrations/spm_extension.h"

#include <gmock/gmock.h>

#include "dialog_driver.h"
#include "panes.h"
#include "shell/busy.h"
#include "toolbox_files.h"
#include "workspace/settings.h"

namespace {

namespace fs = std::filesystem;

class Spm_extension : public Toolbox_test {
 protected:
  Spm_extension() : work_(make_target("analysis")), target_(make_target("toolbox")) {
    kvo_s_user_dir = work_.c_str();
    fs::current_path(work_);
  }

  const fs::path work_, target_;

 private:
  Test_panes panes_;
};

TEST_F(Spm_extension, ExplainsAsksCopiesAndShowsTheCommand) {
  for (const char* name : {"toolbox", "my spm's toolbox"}) {
    const fs::path target = make_target(name);
    Dialog_driver user;
    user.then([](Shown_dialog& dialog) {
          EXPECT_EQ(
              dialog.explanation(),
              "This action will create the necessary files to run KVO as an SPM extension.\n\n"
              "Please notice that the new SPM extension will work independently from the KVO "
              "software you are running now. Indeed, you can delete this software if you plan to "
              "run KVO only as an SPM extension.\n\nTo proceed click [OK] and next specify the "
              "SPM toolbox folder within the SPM folder.");
          dialog.press("OK");
        })
        .play("@" + target.string())
        .then([&](Shown_dialog& dialog) {
          expect_toolbox(target / "KVO", root(), {"KVO.m"});
          EXPECT_EQ(fs::current_path(), work_);
          EXPECT_FALSE(Q_busy);
          EXPECT_THAT(dialog.explanation(),
                      testing::StartsWith("To finish the installation open Matlab and copy and "
                                          "paste the following command into Matlab's console."));
          EXPECT_EQ(
              dialog.explanation().find("cannot be started from Matlab there") == std::string::npos,
              target == target_);
          dialog.press("Cancel");
        });
    kvo3_spm_extension();
    EXPECT_EQ(user.shown(),
              "spm [ RUNNING KVO AS SPM EXTENSION ] | spm Specify the SPM toolbox "
              "folder | spm [ READ VERY CAREFULLY !!! ] Matlab command: addpath " +
                  target.string() + "/KVO");
    EXPECT_EQ(pane_text(0), "");
  }
}

TEST_F(Spm_extension, CreatesNothingOnARefusal) {
  const auto expect_nothing = [&] {
    kvo3_spm_extension();
    EXPECT_TRUE(fs::is_empty(target_));
    EXPECT_EQ(fs::current_path(), work_);
  };
  every_refusal("", expect_nothing);
  for (const std::string& play : {std::string("Enter"), "OK | @" + target_.string() + "; Cancel"}) {
    Dialog_driver user;
    user.play(play);
    expect_nothing();
  }
}

TEST_F(Spm_extension, KeepsTheWindowAliveWhileItCopies) {
  static fs::path toolbox;
  static std::set<long> seen;  // numbers of files that the busy main loop came by
  toolbox = target_ / "KVO";
  g_main_context_set_poll_func(nullptr, [](GPollFD* files, guint n, gint timeout) {
    std::error_code missing;
    if (Q_busy)
      seen.insert(std::ranges::distance(fs::recursive_directory_iterator(toolbox, missing)));
    return g_poll(files, n, timeout);
  });
  Dialog_driver user;
  user.play("OK | @" + target_.string() + " | OK");
  kvo3_spm_extension();
  g_main_context_set_poll_func(nullptr, nullptr);
  EXPECT_GE(seen.size(), TOOLBOX_FILES.size()) << "with each file";
}

}  // namespace
