// The update check with the real wget and a web site of its own.

#include "integrations/update_check.h"

#include <fcntl.h>
#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <chrono>

#include "dialog_driver.h"
#include "panes.h"

namespace {

using testing::ElementsAre;
namespace fs = std::filesystem;

const char* const OFFER =
    "[ A new version of KVO seems to be available! Do you want to download and install it now? ]";

/// A running web site; see version_site.py for how its addresses are answered.
class Version_site {
 public:
  Version_site() {
    const char* const command[] = {"/usr/bin/python3", VERSION_SITE, nullptr};
    int input = -1;
    int output = -1;
    EXPECT_TRUE(g_spawn_async_with_pipes(nullptr, const_cast<char**>(command), nullptr,
                                         GSpawnFlags(0), nullptr, nullptr, nullptr, &input, &output,
                                         nullptr, nullptr));
    open_while_wanted_ = Q_fd(input);
    // Not handed on to wget, which would keep a site alive that keeps wget waiting.
    fcntl(input, F_SETFD, FD_CLOEXEC);
    const Q_file port(fdopen(output, "r"));
    EXPECT_EQ(std::fscanf(port.get(), "%d", &port_), 1);
  }

  [[nodiscard]] std::string address(const std::string& path) const {
    return "http://127.0.0.1:" + std::to_string(port_) + "/" + path + "/";
  }
  /// The address that is answered with a text.
  [[nodiscard]] std::string replying(const std::string& text) const {
    std::string encoded;
    for (const char character : text)
      encoded += Q_format("%%%02X", static_cast<unsigned char>(character)).str();
    return address("text/" + encoded);
  }

 private:
  Q_fd open_while_wanted_;
  int port_ = 0;
};

/// An installation root whose name asks for proper quoting.
class Update_check : public testing::Test {
 protected:
  Update_check() {
    for (const char* variable : {"http_proxy", "HTTP_PROXY"}) unsetenv(variable);
    const fs::path root = folder_.path() / "it's \"my\" $HOME; `x` \\ root";
    fs::create_directory(root);
    kvo_s_dir = root.c_str();
  }

  static fs::path update_file() { return fs::path(kvo_s_dir.str()) / "update"; }

  Version_site site_;

 private:
  Test_folder folder_;
  Test_panes panes_;
};

TEST(Version, IsNewerAsANumber) {
  for (const char* newer :
       {"4.32", "4.319", "4.315", "4.3199999", "4.4", "5", "10.0", "  4.32  ", "4.32beta"})
    EXPECT_TRUE(kvo_is_newer_version(newer)) << newer;
  for (const char* not_newer :
       {"4.31", "4.310", "4.3", "-5", "v4.32", "version 4.32", "4,32", "", "\xff\x34.32",
        "Information", "nan", "1e999", "0x9", "<html>4.32</html>"})
    EXPECT_FALSE(kvo_is_newer_version(not_newer)) << not_newer;
}

TEST_F(Update_check, OffersNewerVersionsOnly) {
  const struct {
    const char* reply;
    bool offered;
  } cases[] = {{"4.31\n", false},   {"4.32", true}, {"4.32\r\n", true},      {"4.32\n4.31\n", true},
               {"\n4.32\n", false}, {"", false},    {"4.31\r\n4.32", false}, {"4.32\xff", true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reply);
    Dialog_driver user;
    if (c.offered) user.answer({}, "Cancel");
    EXPECT_EQ(kvo_offer_update(site_.replying(c.reply).c_str()),
              c.offered ? Update::DECLINED : Update::NONE_KNOWN);
    EXPECT_EQ(user.messages(),
              c.offered ? std::vector<std::string>{OFFER} : std::vector<std::string>{});
    EXPECT_FALSE(fs::exists(update_file()));
  }
}

/// The site keeps the reply back, or its end, for two minutes; see version_site.py.
TEST_F(Update_check, IsNeverHeldUpForLong) {
  constexpr std::chrono::seconds LIMIT(90);
  const struct {
    const char* site;
    bool offered;
  } cases[] = {
      {"megabytes", true}, {"megabytes_on_one_line", true},
      {"rubbish", false},  {"zeros", false},
      {"missing", false},  {"redirected", false},
      {"stalled", false},  {"stalled_reply", false},
      {"dripping", false}, {"dripping_headers", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.site);
    Dialog_driver user;
    if (c.offered) user.answer({}, "Cancel");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(kvo_offer_update(site_.address(c.site).c_str()),
              c.offered ? Update::DECLINED : Update::NONE_KNOWN);
    EXPECT_LT(std::chrono::steady_clock::now() - start, LIMIT);
  }
}

TEST_F(Update_check, KnowsNothingWithoutASite) {
  // A port that is taken, so that no other program gets it meanwhile, and refuses connections.
  const Q_fd taken(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const general = reinterpret_cast<sockaddr*>(&address);
  ASSERT_EQ(bind(taken.get(), general, size), 0);
  ASSERT_EQ(getsockname(taken.get(), general, &size), 0);
  const std::string closed = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/";
  for (const std::string& site : {closed, std::string("http://name.invalid/")})
    EXPECT_EQ(kvo_offer_update(site.c_str()), Update::NONE_KNOWN) << site;
  const std::string path = g_getenv("PATH");
  setenv("PATH", "/none", 1);
  EXPECT_EQ(kvo_offer_update(site_.replying("5").c_str()), Update::NONE_KNOWN) << "no wget";
  setenv("PATH", path.c_str(), 1);
}

/// As if the https site answered with a redirect to its plain address.
TEST_F(Update_check, TakesNoPlainAnswerForAnEncryptedSite) {
  const fs::path programs = fs::path(kvo_s_dir.str()) / "programs";
  fs::create_directory(programs);
  write_text(
      programs / "wget",
      "#!/bin/sh\nfor word; do shift; set -- \"$@\" \"$(echo \"$word\" | sed s/https:/http:/)\"; "
      "done\nexec /usr/bin/wget \"$@\"\n");
  fs::permissions(programs / "wget", fs::perms(0755));
  const std::string path = g_getenv("PATH");
  setenv("PATH", (programs.string() + ":" + path).c_str(), 1);
  setenv("no_proxy", "127.0.0.1", 1);
  const std::string plain = site_.replying("4.32");
  Dialog_driver user;
  user.answer({}, "Cancel");
  EXPECT_EQ(kvo_offer_update(plain.c_str()), Update::DECLINED);
  EXPECT_EQ(kvo_offer_update(("https" + plain.substr(4)).c_str()), Update::NONE_KNOWN);
  unsetenv("no_proxy");
  setenv("PATH", path.c_str(), 1);
}

TEST_F(Update_check, DownloadsAnAcceptedUpdate) {
  using Answer = void (*)(Shown_dialog&);
  const struct {
    const char* name;
    std::string site;
    Answer answer;
    std::string downloaded;
  } cases[] = {
      {"OK", site_.replying("4.32"), [](Shown_dialog& dialog) { dialog.press("OK"); },
       "the program of update4.31"},
      {"Enter", site_.replying("9"), [](Shown_dialog& dialog) { dialog.key(GDK_KEY_Return); },
       "the program of update4.31"},
      {"not there", site_.address("no_update"), [](Shown_dialog& dialog) { dialog.press("OK"); },
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
      EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "OK"));
      EXPECT_EQ(dialog.explanation(), "");
      c.answer(dialog);
    });
    EXPECT_EQ(kvo_offer_update(c.site.c_str()), Update::DOWNLOADED);
    EXPECT_EQ(read_text(update_file()), c.downloaded);
    struct stat status {};
    EXPECT_EQ(stat(update_file().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
    fs::remove(update_file());
  }
}

TEST_F(Update_check, StoresOnlyWhatTheSiteDescribes) {
  const std::string program = "the program of update4.31";
  const Q_g_memory<char> sum(g_compute_checksum_for_string(G_CHECKSUM_SHA256, program.c_str(), -1));
  const std::string size = std::to_string(program.size()) + " ";
  const std::string not_described = "the site does not describe it";
  const auto describing = [&](const std::string& lines) {
    return site_.replying("4.32\n" + lines);
  };
  const struct {
    std::string site;
    std::string fault;
  } cases[] = {
      {describing("update4.30 1 x\r\nupdate4.31 " + size + sum.get() + "\r\n"), ""},
      {describing("notes\n"), ""},
      {describing("update4.30 1 x\n"), not_described},
      {describing("update4.31 " + size + "\n"), not_described},
      {site_.address("megabytes"), not_described},  // if so, further down than is read
      {describing("update4.31 9 " + std::string(sum.get()) + "\n"),
       "it has 25 bytes instead of the 9 that the site states"},
      {describing("update4.31 " + size + std::string(64, '0') + "\n"),
       "its checksum is not the one that the site states"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.site);
    write_text(update_file(), "old");
    const Q_file running(std::fopen(update_file().c_str(), "r"));
    Dialog_driver user;
    user.answer({}, "OK");
    if (!c.fault.empty()) user.answer({}, "OK");
    EXPECT_EQ(kvo_offer_update(c.site.c_str()),
              c.fault.empty() ? Update::DOWNLOADED : Update::FAILED);
    if (!c.fault.empty()) {
      EXPECT_EQ(user.messages().back(), "The update has not been installed: " + c.fault);
    }
    EXPECT_EQ(read_text(update_file()), c.fault.empty() ? program : "old");
    EXPECT_EQ(std::fgetc(running.get()), 'o') << "an update that runs was written over";
    EXPECT_EQ(std::distance(fs::directory_iterator(kvo_s_dir.str()), {}), 1);
  }
}

TEST_F(Update_check, RefusalsDownloadNothing) {
  for (const auto& [name, refuse] : REFUSALS) {
    Dialog_driver user;
    user.then(refuse);
    EXPECT_EQ(kvo_offer_update(site_.replying("4.32").c_str()), Update::DECLINED) << name;
    EXPECT_FALSE(fs::exists(update_file())) << name;
  }
}

}  // namespace
