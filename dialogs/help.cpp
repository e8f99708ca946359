#include "dialogs/help.h"

#include <glib.h>

#include <algorithm>

#include "util/process.h"
#include "util/site_address.h"
#include "util/text.h"

Q_string Qs_HelpURL;
Q_string Qs_HelpTopic;

namespace {

/// Whether a character acts inside the double quotes of a shell command, or ends the command.
bool means_something_to_the_shell(char character) {
  return Q_ACTS_IN_QUOTES.find(character) != std::string_view::npos || Q_is_control(character);
}

}  // namespace

void Q_show_help() {
  Q_open_browser("%s%s", Qs_HelpURL.c_str(), Qs_HelpTopic.c_str());
}

void Q_open_browser(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(address, format);
  if (std::ranges::any_of(address.str(), means_something_to_the_shell)) {
    g_warning("The address '%s' is not opened: it holds characters that the shell would act on",
              address.c_str());
    return;
  }
  const Q_pipe closed_at_once = Q_openr_exec(false, "xdg-open \"%s\"", address.c_str());
}

void kvo3_help() {
  Q_open_browser("%smanual/", kvo_site());
}
