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
  Help() : path_before_(g_getenv("PATH")) {
    setenv("PATH", folder_.path().c_str(), 1);
    Qs_HelpURL = "http://localhost/manual/?show=";
    Qs_HelpTopic = "create.mask";
  }
  ~Help() override { setenv("PATH", path_before_.c_str(), 1); }

  static void install(const std::string& script) {
    write_text("xdg-open", "#!/bin/sh\n" + script);
    std::filesystem::permissions("xdg-open", std::filesystem::perms::all);
  }
  /// Each call appends the arguments, in brackets, as a line.
  static void install_recorder() {
    install("line=\nfor word; do line=\"$line[$word]\"; done\nprintf '%s\\n' \"$line\" >>record\n");
  }
  /// That xdg-open has been called with these addresses since the last time.
  static void expect_opened(const std::vector<std::string>& addresses) {
    std::string expected;
    for (const std::string& address : addresses) expected += "[" + address + "]\n";
    wait_until([&] { return read_text("record").size() >= expected.size(); });
    EXPECT_EQ(read_text("record"), expected);
    std::filesystem::remove("record");
  }

 private:
  Test_folder folder_;
  std::string path_before_;
};

TEST_F(Help, OpensTheTopicAndTheManualWhereTheSiteIs) {
  install_recorder();
  Q_show_help();
  expect_opened({"http://localhost/manual/?show=create.mask"});
  kvo3_help();
  expect_opened({std::string(KVO_SITE_URL) + "manual/"});
  std::filesystem::create_directory("etc");
  write_text("etc/kvo_site.txt", "http://127.0.0.1:4321/\n");
  kvo_find_served_site(std::filesystem::current_path().string());
  kvo3_help();
  kvo_find_served_site("/none");
  expect_opened({"http://127.0.0.1:4321/manual/"});
}

TEST_F(Help, PassesAnAddressUnchangedUnlessTheShellWouldActOnIt) {
  install_recorder();
  for (const char* address : {"http://localhost/?a=1&b=2;c=3", "http://localhost/it's#top",
                              "http://localhost/two words/*", "http://localhost/100%25",
                              "http://localhost/caf\xc3\xa9", "http://localhost/;>record|(!)"}) {
    Q_open_browser("%s", address);
    expect_opened({address});
  }
  for (const char* address : {"http://localhost/\" ; : > harm ; \"", "http://localhost/$(: > harm)",
                              "http://localhost/`: > harm`", "http://localhost/\\", "$HOME",
                              "http://localhost/\n: > harm"})
    Q_open_browser("%s", address);
  Q_open_browser("last");
  expect_opened({"last"});
  EXPECT_FALSE(std::filesystem::exists("harm"));
}

TEST_F(Help, LeavesTheDialogOpenAndNoZombie) {
  install_recorder();
  for (const bool has_opener : {true, false}) {
    Dialog_driver user;
    user.then([](Shown_dialog& dialog) {
      for (int i = 0; i < 2; ++i) dialog.press("Help");
      EXPECT_TRUE(gtk_widget_get_mapped(dialog.widget()));
      dialog.choose("second");
      dialog.press("OK");
    });
    EXPECT_EQ(Q_input_opt("Select", 1, 2, "first", "second"), 2);
    const std::string address = "http://localhost/manual/?show=create.mask";
    if (has_opener) expect_opened({address, address});
    EXPECT_LE(waitpid(-1, nullptr, WNOHANG), 0) << "a child had ended and was not waited for";
    std::filesystem::remove("xdg-open");
  }
}

TEST_F(Help, ReturnsAtOnceFromABrowserThatKeepsRunning) {
  // Runs until it may close, or for half a minute.
  install(
      ": > opened\nfor i in $(/usr/bin/seq 300); do [ -e close ] && break; /bin/sleep 0.1; done\n"
      ": > closed\n");
  Q_show_help();
  EXPECT_TRUE(wait_until([] { return std::filesystem::exists("opened"); }));
  EXPECT_FALSE(std::filesystem::exists("closed"));
  write_text("close", "");
  EXPECT_TRUE(wait_until([] { return std::filesystem::exists("closed"); }));
}

}  // namespace
