#include "util/site_address.h"

#include <glib.h>

#include "kvo_config.h"
#include "util/read_file.h"

namespace {

std::string served_site;

}  // namespace

const char* kvo_public_site() {
  return KVO_SITE_URL;
}

const char* kvo_site() {
  return served_site.empty() ? KVO_SITE_URL : served_site.c_str();
}

void kvo_find_served_site(const std::string& root) {
  served_site.clear();
  const std::string content = Q_read_text((root + "/etc/kvo_site.txt").c_str()).value_or("");
  const std::string address = content.substr(0, content.find('\n'));
  const bool one_line = content.size() <= address.size() + 1;
  if (one_line && kvo_is_loopback_site(address)) served_site = address;
}

bool kvo_is_loopback_site(const std::string& address) {
  constexpr const char* PORT =
      "(6553[0-5]|655[0-2][0-9]|65[0-4][0-9]{2}|6[0-4][0-9]{3}|[1-5][0-9]{4}|[1-9][0-9]{0,3})";
  const std::string pattern =
      std::string("\\Ahttp://(127\\.0\\.0\\.1|localhost):") + PORT + "/([A-Za-z0-9._~-]+/)*\\z";
  return address.find('\0') == std::string::npos &&
         g_regex_match_simple(pattern.c_str(), address.c_str(), G_REGEX_RAW, GRegexMatchFlags(0)) !=
             FALSE;
}
