// Takes one command of the suite's language, checks it against the current folder and has kvo_core
// carry it out. The words of the command are the arguments; progress goes to standard output, line
// by line.

#include <string>

#include "companions/kvo_parse/supervise.h"
#include "engine/base/install.h"
#include "engine/base/outcome.h"
#include "engine/base/outputs.h"
#include "engine/base/progress.h"
#include "engine/verbs/verbs.h"

using namespace kvo::verbs;

namespace {

bool run(const std::string& text) {
  if (text == "help") {
    for (const std::string& line : help_lines(all_verbs())) say(line);
    say_done();
    return true;
  }
  const Command command = command_of(text);
  recover_folder();
  command.verb->check(command);
  check_folder_writable();
  return kvo::parse::supervise(companion_path("kvo_core"), {text});
}

}  // namespace

int main(int argc, char** argv) {
  return exit_status_of([&] { return run(joined_words(argc, argv)); });
}
