// The online help, with an xdg-open of ours that records its arguments.

#include "dialogs/help.h"

#include <gmock/gmock.h>
#include <sys/wait.h>

#include <filesystem>

#include "dialog_driver.h"
#include "dialogs/canned.h"
#include "kvo_config.h"
#include "test_folder.h"
#include "util/site_address.h"

namespace {

/// A folder that is all of PATH while a test runs.
class Help : public testing::Test {
 protected:
  Help() : path_before_(std::getenv("PATH")) {
    setenv("PATH", folder_.path().c_str(), 1);
    Qs_HelpURL = "http://localhost/manual/?show=";
    Qs_HelpTopic = "settings";
  }
  ~Help() override { setenv("PATH", path_before_.c_str(), 1); }

  /// Puts an xdg-open into the folder; each call appends the arguments, in brackets, as a line.
  void install_recorder() {
    write_text("xdg-open",
               "#!/bin/sh\n"
               "line=\n"
               "for word; do line=\"$line[$word]\"; done\n"
               "printf '%s\\n' \"$line\" >> '" +
                   record() + "'\n");
    std::filesystem::permissions("xdg-open", std::filesystem::perms::all);
  }
  [[nodiscard]] std::string record() const { return (folder_.path() / "record").string(); }
  /// What has been recorded once it is as long as what is expected.
  [[nodiscard]] std::string recorded(const std::string& expected) const {
    wait_until([&] { return read_text(record()).size() >= expected.size(); });
    return read_text(record());
  }

 private:
  Test_folder folder_;
  std::string path_before_;
};

TEST_F(Help, OpensTheCurrentTopic) {
  install_recorder();
  Q_show_help();
  std::string expected = "[http://localhost/manual/?show=settings]\n";
  EXPECT_EQ(recorded(expected), expected);
  Qs_HelpTopic = "create.mask";
  Q_show_help();
  expected += "[http://localhost/manual/?show=create.mask]\n";
  EXPECT_EQ(recorded(expected), expected);
  kvo3_help();
  expected += std::string("[") + KVO_SITE_URL + "manual/]\n";
  EXPECT_EQ(recorded(expected), expected);
  std::filesystem::create_directory("etc");
  write_text("etc/kvo_site.txt", "http://127.0.0.1:4321/\n");
  kvo_find_served_site(std::filesystem::current_path().string());
  kvo3_help();
  kvo_find_served_site("/none");
  expected += "[http://127.0.0.1:4321/manual/]\n";
  EXPECT_EQ(recorded(expected), expected);
}

TEST_F(Help, PassesAnAddressUnchanged) {
  install_recorder();
  std::string expected;
  for (const char* address :
       {"http://localhost/utilities/?show=Statistics", "http://localhost/?a=1&b=2;c=3",
        "http://localhost/it's#top", "http://localhost/two words/*", "http://localhost/100%25",
        "http://localhost/caf\xc3\xa9", "http://localhost/;>record|(!)"}) {
    Q_open_browser("%s", address);
    expected += std::string("[") + address + "]\n";
    EXPECT_EQ(recorded(expected), expected);
  }
}

TEST_F(Help, OpensNothingThatTheShellWouldActOn) {
  install_recorder();
  for (const char* address : {"http://localhost/\" ; : > harm ; \"", "http://localhost/$(: > harm)",
                              "http://localhost/`: > harm`", "http://localhost/\\", "$HOME",
                              "http://localhost/\n: > harm"})
    Q_open_browser("%s", address);
  Q_open_browser("%s", "last");
  EXPECT_EQ(recorded("[last]\n"), "[last]\n");
  EXPECT_FALSE(std::filesystem::exists("harm"));
}

TEST_F(Help, LeavesTheDialogOpenAndNoZombie) {
  install_recorder();
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    dialog.press("Help");
    dialog.press("Help");
    EXPECT_TRUE(gtk_widget_get_mapped(dialog.widget()));
    dialog.choose("second");
    dialog.press("OK");
  });
  EXPECT_EQ(Q_input_opt("Select", 1, 2, "first", "second"), 2);
  const std::string line = "[http://localhost/manual/?show=settings]\n";
  EXPECT_EQ(recorded(line + line), line + line);
  int status = 0;
  EXPECT_LE(waitpid(-1, &status, WNOHANG), 0) << "a child had ended and was not waited for";
}

TEST_F(Help, ChangesNothingWithoutXdgOpen) {
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    dialog.press("Help");
    EXPECT_TRUE(gtk_widget_get_mapped(dialog.widget()));
    dialog.press("OK");
  });
  EXPECT_TRUE(Q_input_boolean("Overwrite?", false));
  int status = 0;
  EXPECT_LE(waitpid(-1, &status, WNOHANG), 0);
}

TEST_F(Help, ReturnsAtOnceFromABrowserThatKeepsRunning) {
  // Runs until it may close, or for half a minute.
  write_text("xdg-open",
             "#!/bin/sh\n: > opened\n"
             "for i in $(/usr/bin/seq 300); do [ -e close ] && break; /bin/sleep 0.1; done\n"
             ": > closed\n");
  std::filesystem::permissions("xdg-open", std::filesystem::perms::all);
  Q_show_help();
  EXPECT_TRUE(wait_until([] { return std::filesystem::exists("opened"); }));
  EXPECT_FALSE(std::filesystem::exists("closed"));
  write_text("close", "");
  EXPECT_TRUE(wait_until([] { return std::filesystem::exists("closed"); }));
}

}  // namespace
