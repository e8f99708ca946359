#include "integrations/update_check.h"

#include <gtk/gtk.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <string>

#include "dialogs/frame.h"
#include "dialogs/message.h"
#include "kvo_config.h"
#include "shell/console.h"
#include "util/files.h"
#include "util/lines.h"
#include "util/process.h"

namespace {

using Clock = std::chrono::steady_clock;

/// wget waits this long for each of look-up, connection and reading.
constexpr int WGET_TIMEOUT_S = 2;
constexpr auto PATIENCE = std::chrono::seconds(3 * WGET_TIMEOUT_S);

/// Whether the descriptor can be read, or is at its end, before the time is over.
bool readable_before(int fd, Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
  pollfd state{fd, POLLIN, 0};
  return left.count() > 0 && poll(&state, 1, static_cast<int>(left.count())) > 0;
}

/// The first line that comes out of the descriptor. Empty when it is not whole in time: a time-out
/// for each read, which is all that wget has, never ends with a site that drips.
std::string first_line(int fd) {
  const Clock::time_point end = Clock::now() + PATIENCE;
  std::string reply;
  std::array<char, 4096> block{};
  while (readable_before(fd, end)) {
    const ssize_t length = read(fd, block.data(), block.size());
    if (length > 0) reply.append(block.data(), static_cast<std::size_t>(length));
    const Q_line line = Q_first_line(reply);
    if (line.complete || length <= 0) return std::string(line.text);
  }
  return "";
}

std::string version_on_site(const char* site) {
  const Q_pipe reply =
      Q_openr_exec(false, "wget -q -t 1 -T %i -O - %ssoftware/current.txt", WGET_TIMEOUT_S, site);
  return reply != nullptr ? first_line(fileno(reply.get())) : "";
}

bool user_accepts() {
  Q_dialog dialog(Q_input_new_dialog(
      "A new version of KVO seems to be available! Do you want to download and install it now?",
      true));
  gtk_dialog_set_default_response(GTK_DIALOG(dialog.get()), GTK_RESPONSE_OK);
  return dialog.run();
}

void download(const char* site) {
  const std::string target = kvo_s_dir.str() + "/update";
  Q_execute_r(true, "wget -O %s %ssoftware/update/update%.2f", Q_shell_quoted(target).c_str(), site,
              KVO_VERSION);
  Q_chmod_x("%s", target.c_str());
}

}  // namespace

bool kvo_is_newer_version(const char* reply_line) {
  const double version = std::strtod(reply_line, nullptr);
  return std::isfinite(version) && std::floor(version * 100) > KVO_VERSION * 100;
}

Update kvo_offer_update(const char* site) {
  if (!kvo_is_newer_version(version_on_site(site).c_str())) return Update::NONE_KNOWN;
  if (!user_accepts()) return Update::DECLINED;
  // Lets the dialog go from the screen: nothing is drawn during the download.
  Q_process_events();
  download(site);
  return Update::DOWNLOADED;
}

bool kvo3_new_update() {
  const Update update = kvo_offer_update(KVO_UPDATE_URL);
  if (update == Update::DOWNLOADED) std::exit(0);
  return update == Update::DECLINED;
}

void kvo3_check_updates() {
  if (!kvo3_new_update()) Q_input_warning("This is the last available version of KVO");
}
