#include "integrations/update_check.h"

#include <gtk/gtk.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dialogs/frame.h"
#include "dialogs/message.h"
#include "kvo_config.h"
#include "shell/console.h"
#include "util/files.h"
#include "util/lines.h"
#include "util/process.h"
#include "util/q_string.h"
#include "util/read_file.h"
#include "util/text.h"

namespace {

using Clock = std::chrono::steady_clock;

/// wget waits this long for each of look-up, connection and reading.
constexpr int WGET_TIMEOUT_S = 2;
constexpr auto PATIENCE = std::chrono::seconds(3 * WGET_TIMEOUT_S);
/// Of a longer version file only the beginning is read, which always includes the first line.
constexpr std::size_t LONGEST_REPLY = std::size_t{1} << 16;
static_assert(LONGEST_REPLY > Q_STRING_MAX);
constexpr std::size_t LARGEST_UPDATE = std::size_t{1} << 30;

static_assert(std::string_view(KVO_UPDATE_URL).starts_with("https://"));

/// What is put in front of wget for a site. wget follows redirects to unencrypted addresses, where
/// anyone on the way could forge the answer, and has no option against it. With a proxy on an
/// impossible port, such requests fail.
const char* environment_for(const char* site) {
  constexpr const char* ENCRYPTED_ONLY =
      "http_proxy=http://127.0.0.1:0/ ftp_proxy=http://127.0.0.1:0/ no_proxy= ";
  return std::string_view(site).starts_with("https:") ? ENCRYPTED_ONLY : "";
}

/// Whether the descriptor can be read, or is at its end, before the time is over.
bool readable_before(int fd, Clock::time_point end) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
  pollfd state{fd, POLLIN, 0};
  return left.count() > 0 && poll(&state, 1, static_cast<int>(left.count())) > 0;
}

/// What a site says in its version file, as far as it has come in time.
struct Reply {
  std::string text;
  bool whole = false;  ///< to its end
};

/// Reads until the reply is complete, too long or too late. wget's own time-out is for each read,
/// so a site that sends a byte now and then would hold it up forever.
Reply reply_of(int fd) {
  const Clock::time_point end = Clock::now() + PATIENCE;
  Reply reply;
  std::array<char, 4096> block{};
  while (reply.text.size() < LONGEST_REPLY && readable_before(fd, end)) {
    const ssize_t length = Q_read_some(fd, block.data(), block.size());
    if (length > 0) reply.text.append(block.data(), static_cast<std::size_t>(length));
    reply.whole = length == 0;
    if (length <= 0) break;
  }
  return reply;
}

Reply version_file(const char* site) {
  const Q_pipe pipe = Q_openr_exec(false, "%swget -q -t 1 -T %i -O - %ssoftware/current.txt",
                                   environment_for(site), WGET_TIMEOUT_S, site);
  return pipe != nullptr ? reply_of(fileno(pipe.get())) : Reply();
}

/// The first line of the reply; empty when it has not come whole.
std::string version_in(const Reply& reply) {
  const Q_line line = Q_first_line(reply.text);
  return line.complete || reply.whole ? std::string(line.text) : "";
}

std::string update_name() {
  return Q_format("update%.2f", KVO_VERSION).str();
}

/// What the version file says of an update program.
struct Description {
  std::string size, checksum;
};

/// The description of this version's update program. A site that describes none at all publishes
/// none, and there is nothing to compare with; otherwise one that is missing has an empty checksum.
std::optional<Description> description_in(const Reply& reply) {
  bool describes = !reply.whole;
  for (const std::string_view line : Q_split_lines(reply.text)) {
    const std::vector<std::string_view> words = Q_words(line);
    const auto word = [&words](std::size_t i) { return i < words.size() ? words[i] : ""; };
    if (word(0) == update_name()) return Description{std::string(word(1)), std::string(word(2))};
    describes = describes || word(0).starts_with("update");
  }
  return describes ? std::optional(Description()) : std::nullopt;
}

std::string file_error() {
  return std::string("it cannot be stored: ") + std::strerror(errno);
}

/// Why a file is not what was described; empty when it is.
std::string mismatch(const char* path, const Description& description) {
  if (description.checksum.empty()) return "the site does not describe it";
  Q_read_fault fault;
  const std::optional<std::string> content = Q_read_file(path, LARGEST_UPDATE, fault);
  if (!content) return "it " + fault.text;
  const std::string size = std::to_string(content->size());
  if (size != description.size)
    return "its size in bytes is " + size + " instead of the " + description.size +
           " that the site states";
  return description.checksum == Q_sha256(*content)
             ? ""
             : "its checksum is not the one that the site states";
}

/// A new folder in the installation that nobody else can enter and whose name nobody can guess. It
/// is removed with everything in it.
class Private_folder {
 public:
  Private_folder() : path_(kvo_s_dir.str() + "/.update-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) path_.clear();
  }
  Private_folder(const Private_folder&) = delete;
  Private_folder& operator=(const Private_folder&) = delete;
  ~Private_folder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  [[nodiscard]] const std::string& path() const { return path_; }

 private:
  std::string path_;
};

bool user_accepts() {
  Q_dialog dialog(Q_input_new_dialog(
      "A new version of KVO seems to be available! Do you want to download and install it now?",
      true));
  gtk_dialog_set_default_response(GTK_DIALOG(dialog.get()), GTK_RESPONSE_OK);
  return dialog.run();
}

/// Downloads and stores the update program. Returns why that failed; empty when it did not.
std::string download(const char* site, const std::optional<Description>& description) {
  const Private_folder folder;
  if (folder.path().empty()) return file_error();
  const std::string file = folder.path() + "/update";
  Q_execute_r(true, "%swget -O %s %ssoftware/update/%s", environment_for(site),
              Q_shell_quoted(file).c_str(), site, update_name().c_str());
  std::string fault = description ? mismatch(file.c_str(), *description) : "";
  if (!fault.empty()) return fault;
  Q_chmod_x("%s", file.c_str());
  // An earlier update may be running; it keeps its own file.
  return rename(file.c_str(), (kvo_s_dir.str() + "/update").c_str()) == 0 ? "" : file_error();
}

}  // namespace

bool kvo_is_newer_version(const char* reply_line) {
  const double version = Q_leading_number(reply_line);
  return std::isfinite(version) && std::floor(version * 100) > KVO_VERSION * 100;
}

Update kvo_offer_update(const char* site) {
  const Reply reply = version_file(site);
  if (!kvo_is_newer_version(version_in(reply).c_str())) return Update::NONE_KNOWN;
  if (!user_accepts()) return Update::DECLINED;
  // Lets the dialog disappear from the screen: nothing is drawn during the download.
  Q_process_events();
  const std::string fault = download(site, description_in(reply));
  if (fault.empty()) return Update::DOWNLOADED;
  Q_input_warning("The update has not been installed: %s", fault.c_str());
  return Update::FAILED;
}

bool kvo3_new_update() {
  const Update update = kvo_offer_update(KVO_UPDATE_URL);
  if (update == Update::DOWNLOADED) std::exit(0);
  return update != Update::NONE_KNOWN;
}

void kvo3_check_updates() {
  if (!kvo3_new_update()) Q_input_warning("This is the last available version of KVO");
}
