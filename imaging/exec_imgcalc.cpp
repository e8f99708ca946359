#include "imaging/exec_imgcalc.h"

#include <optional>
#include <string>

#include "shell/companion_run.h"
#include "shell/console.h"
#include "shell/engine_output.h"
#include "util/q_string.h"
#include "util/text.h"

bool kvo3_exec_imgcalc(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(arguments, format);
  const Q_run this_run;
  if (!this_run.allowed("imgcalc")) return false;
  std::string complaint;  // what the program itself says before it gives up, as markup
  const std::optional<std::string> gone = Q_run_companion(
      "imgcalc", arguments.str() + " KVO", [&](const std::string& line, bool /*more*/) {
        const Engine_event event = Q_engine_event(line);
        if (event.kind == Engine_line::action)
          Q_print_action(0, "%s", std::string(event.text).c_str());
        if (event.kind == Engine_line::warning) complaint = event.text;
        if (event.kind == Engine_line::empty) Q_process_events();
        if (event.kind == Engine_line::ok) Q_print(Q_GREY, 0, "<b>OK</b>\n");
        return event.kind == Engine_line::ok;
      });
  if (!gone) return true;
  if (complaint.empty())
    complaint = "The image calculator ended before it finished (" + Q_markup_escape(*gone) + ")";
  Q_print("", 0, "\n");
  Q_print_warning(0, "%s", complaint.c_str());
  Q_print("", 0, "\n");
  return false;
}
