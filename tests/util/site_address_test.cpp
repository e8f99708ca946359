// The address that pages are opened at.

#include "util/site_address.h"

#include <filesystem>

#include <gtest/gtest.h>
#include "kvo_config.h"
#include "test_folder.h"
#include "util/text.h"

namespace {

TEST(SiteAddress, IsTheServedOneOnlyWhenItIsAPlainAddressOfThisMachine) {
  const Test_folder folder;
  const std::string root = folder.path().string();
  kvo_find_served_site(root);
  EXPECT_STREQ(kvo_site(), KVO_SITE_URL) << "no file";
  std::filesystem::create_directories("etc/kvo_site.txt");
  kvo_find_served_site(root);
  EXPECT_STREQ(kvo_site(), KVO_SITE_URL) << "a folder";
  std::filesystem::remove("etc/kvo_site.txt");

  const auto site_of = [&root](const std::string& content) {
    write_text("etc/kvo_site.txt", content);
    kvo_find_served_site(root);
    EXPECT_STREQ(kvo_public_site(), KVO_SITE_URL);
    return std::string(kvo_site());
  };
  for (const std::string address :
       {"http://127.0.0.1:1/", "http://127.0.0.1:65535/", "http://localhost:8080/",
        "http://localhost:40123/kvo-4.31/~a_b/"})
    for (const char* end : {"", "\n"}) EXPECT_EQ(site_of(address + end), address);
  for (const std::string_view refused : Q_words(
           R"(http://127.0.0.1/ http://127.0.0.1:0/ http://127.0.0.1:65536/ http://127.0.0.1:080/
                  http://127.0.0.1:80 http://127.0.0.1:80/page http://127.0.0.1:80//
                  https://127.0.0.1:80/ HTTP://127.0.0.1:80/ http://127.0.0.2:80/
                  http://127x0.0.1:80/ http://0.0.0.0:80/ http://localhost.example.org:80/
                  http://localhost@example.org:80/ http://user@localhost:80/
                  http://example.org:80/ http://localhost:80/?a= http://localhost:80/$(id)/
                  http://localhost:80/`id`/ http://localhost:80/"/ http://localhost:80/\/
                  http://localhost:80/%41/ http://localhost:80/é/)"))
    EXPECT_EQ(site_of(std::string(refused)), KVO_SITE_URL) << refused;
  const std::string plain = "http://localhost:80/";
  for (const std::string& refused :
       {std::string(), std::string("\n"), " " + plain, plain + " ", plain + "a b/", plain + "\r\n",
        plain + "\n\n", plain + "\n" + plain, plain + '\0', plain + '\0' + '/'})
    EXPECT_EQ(site_of(refused), KVO_SITE_URL) << refused;
}

}  // namespace
