#include "util/site_address.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "kvo_config.h"
#include "test_folder.h"

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

  for (const std::string address :
       {"http://127.0.0.1:1/", "http://127.0.0.1:65535/", "http://localhost:8080/",
        "http://localhost:40123/kvo-4.31/~a_b/"})
    for (const char* end : {"", "\n"}) {
      write_text("etc/kvo_site.txt", address + end);
      kvo_find_served_site(root);
      EXPECT_EQ(kvo_site(), address);
      EXPECT_STREQ(kvo_public_site(), KVO_SITE_URL);
    }

  const std::string refused[] = {
      "",
      "\n",
      "http://127.0.0.1/",
      "http://127.0.0.1:0/",
      "http://127.0.0.1:65536/",
      "http://127.0.0.1:080/",
      "http://127.0.0.1:80",
      "http://127.0.0.1:80/page",
      "http://127.0.0.1:80//",
      "https://127.0.0.1:80/",
      "HTTP://127.0.0.1:80/",
      "http://127.0.0.2:80/",
      "http://127x0.0.1:80/",
      "http://0.0.0.0:80/",
      "http://localhost.example.org:80/",
      "http://localhost@example.org:80/",
      "http://user@localhost:80/",
      "http://example.org:80/",
      "http://localhost:80/?a=",
      "http://localhost:80/a b/",
      "http://localhost:80/$(id)/",
      "http://localhost:80/`id`/",
      "http://localhost:80/\"/",
      "http://localhost:80/\\/",
      "http://localhost:80/%41/",
      "http://localhost:80/\xc3\xa9/",
      " http://localhost:80/",
      "http://localhost:80/ ",
      "http://localhost:80/\r\n",
      "http://localhost:80/\n\n",
      "http://localhost:80/\nhttp://localhost:81/\n",
      std::string("http://localhost:80/\0", 21),
      std::string("http://localhost:80/\0/", 22),
  };
  for (const std::string& content : refused) {
    write_text("etc/kvo_site.txt", content);
    kvo_find_served_site(root);
    EXPECT_STREQ(kvo_site(), KVO_SITE_URL) << content;
  }
}

}  // namespace
