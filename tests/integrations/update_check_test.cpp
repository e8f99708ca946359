// The update check with the real wget and a web site of its own.

#include "integrations/update_check.h"

#include <gmock/gmock.h>

#include <chrono>

#include "dialog_driver.h"
#include "panes.h"
#include "server.h"

namespace {

namespace fs = std::filesystem;

const std::string OFFER =
    "[ A new version of KVO seems to be available! Do you want to download and install it now? ]";
const std::string PROGRAM = "the program of update4.31";

/// A web site, an installation root whose name asks for proper quoting, and an earlier update that
/// runs.
class Update_check : public testing::Test {
 protected:
  Update_check() : path_before_(g_getenv("PATH")) {
    for (const char* variable : {"http_proxy", "HTTP_PROXY"}) unsetenv(variable);
    const fs::path root = folder_.path() / "it's \"my\" $HOME; `x` \\ root";
    fs::create_directory(root);
    kvo_s_dir = root.c_str();
    const char* const site[] = {"/usr/bin/python3", VERSION_SITE, "port", nullptr};
    start_server(site);
    EXPECT_TRUE(wait_until([] { return fs::exists("port"); }));
    site_ = "http://127.0.0.1:" + read_text("port") + "/";
  }
  ~Update_check() override { setenv("PATH", path_before_.c_str(), 1); }

  /// An address that is answered as version_site.py does for the word.
  [[nodiscard]] std::string site(const std::string& word) const { return site_ + word + "/"; }
  /// An address that is answered with a text.
  [[nodiscard]] std::string replying(const std::string& text) const {
    std::string encoded = "text/";
    for (const char character : text)
      encoded += Q_format("%%%02X", static_cast<unsigned char>(character)).str();
    return site(encoded);
  }

  /// Asks a site and answers its dialogs, none when `play` is empty. A downloaded update is stored
  /// as it is given; another is refused by a second dialog that tells its fault.
  static void expect(Update result, const std::string& site, const std::string& play = "",
                     const std::string& stored = PROGRAM, const std::string& fault = "") {
    SCOPED_TRACE(site);
    const fs::path file = fs::path(kvo_s_dir.str()) / "update";
    write_text(file, "old");
    fs::permissions(file, fs::perms(0600));
    const Q_file running(std::fopen(file.c_str(), "r"));
    Dialog_driver user;
    if (!play.empty()) user.play(play);
    EXPECT_EQ(kvo_offer_update(site.c_str()), result);
    EXPECT_EQ(user.messages().empty(), play.empty());
    for (std::size_t i = 0; i < user.messages().size(); ++i)
      EXPECT_EQ(user.messages()[i], i == 0 ? OFFER : "The update has not been installed: " + fault);
    const bool downloaded = result == Update::DOWNLOADED;
    EXPECT_EQ(read_text(file), downloaded ? stored : "old");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(downloaded ? 0755 : 0600));
    EXPECT_EQ(std::fgetc(running.get()), 'o') << "an update that runs was written over";
    EXPECT_EQ(std::distance(fs::directory_iterator(kvo_s_dir.str()), {}), 1);
  }
  /// The same for a site whose offer is refused, or which offers nothing.
  static void expect_offered(bool offered, const std::string& site) {
    expect(offered ? Update::DECLINED : Update::NONE_KNOWN, site, offered ? "Cancel" : "");
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::string path_before_, site_;
};

TEST(Version, IsNewerAsANumber) {
  for (const char* newer :
       {"4.32", "4.319", "4.3199999", "4.4", "5", "10.0", "  4.32  ", "4.32beta"})
    EXPECT_TRUE(kvo_is_newer_version(newer)) << newer;
  for (const char* not_newer : {"4.31", "4.310", "4.3", "-5", "v4.32", "4,32", "", "\xff\x34.32",
                                "Information", "nan", "1e999", "0x9", "<html>4.32</html>"})
    EXPECT_FALSE(kvo_is_newer_version(not_newer)) << not_newer;
}

TEST_F(Update_check, OffersNewerVersionsOnly) {
  for (const char* newer : {"4.32", "4.32\r\n", "4.32\n4.31\n", "4.32\xff"})
    expect_offered(true, replying(newer));
  for (const char* not_newer : {"4.31\n", "\n4.32\n", "", "4.31\r\n4.32"})
    expect_offered(false, replying(not_newer));
  every_refusal("",
                [&] { EXPECT_EQ(kvo_offer_update(replying("4.32").c_str()), Update::DECLINED); });
}

/// The site keeps the reply back, or its end, for two minutes; see version_site.py.
TEST_F(Update_check, IsNeverHeldUpForLong) {
  for (const char* word :
       {"megabytes", "megabytes_on_one_line", "rubbish", "zeros", "missing", "redirected",
        "stalled", "stalled_reply", "dripping", "dripping_headers"}) {
    const auto start = std::chrono::steady_clock::now();
    expect_offered(std::string(word).starts_with("megabytes"), site(word));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(90));
  }
}

TEST_F(Update_check, KnowsNothingWithoutASite) {
  // A port that nobody listens at, and a name that is none.
  expect_offered(false, "http://127.0.0.1:1/");
  expect_offered(false, "http://name.invalid/");
  setenv("PATH", "/none", 1);
  expect_offered(false, replying("5"));  // there is no wget
}

/// As if the https site answered with a redirect to its plain address.
TEST_F(Update_check, TakesNoPlainAnswerForAnEncryptedSite) {
  const Test_folder programs;
  write_program("wget",
                "#!/bin/sh\nfor word; do shift; set -- \"$@\" \"$(echo \"$word\" | sed "
                "s/https:/http:/)\"; done\nexec /usr/bin/wget \"$@\"\n");
  setenv("PATH", (programs.path().string() + ":" + g_getenv("PATH")).c_str(), 1);
  setenv("no_proxy", "127.0.0.1", 1);
  const std::string plain = replying("4.32");
  expect_offered(true, plain);
  expect_offered(false, "https" + plain.substr(4));
  unsetenv("no_proxy");
}

TEST_F(Update_check, StoresAnAcceptedUpdateThatIsWhatTheSiteDescribes) {
  const Q_g_memory<char> sum(g_compute_checksum_for_string(G_CHECKSUM_SHA256, PROGRAM.c_str(), -1));
  const std::string line = "update4.31 " + std::to_string(PROGRAM.size()) + " ";
  const std::string reply = "4.32\n";
  expect(Update::DOWNLOADED, replying("4.32"), "OK");
  expect(Update::DOWNLOADED, replying(reply + "notes\n"), "Enter");
  expect(Update::DOWNLOADED, replying("9\nupdate4.30 1 x\r\n" + line + sum.get() + "\r\n"), "OK");
  expect(Update::DOWNLOADED, site("no_update"), "OK", "");
  const std::pair<std::string, std::string> faults[] = {
      {replying(reply + "update4.30 1 x\n"), "the site does not describe it"},
      {replying(reply + line + "\n"), "the site does not describe it"},
      {site("megabytes"), "the site does not describe it"},  // as far as is read
      {replying(reply + "update4.31 9 " + sum.get() + "\n"),
       "its size in bytes is 25 instead of the 9 that the site states"},
      {replying(reply + line + std::string(64, '0') + "\n"),
       "its checksum is not the one that the site states"},
  };
  for (const auto& [address, fault] : faults) expect(Update::FAILED, address, "OK | OK", "", fault);
}

}  // namespace
