// Carries out one command of the suite's language in the current folder. The words of the command
// are the arguments; progress goes to standard output. Started by kvo_parse.

#include "engine/base/outcome.h"
#include "engine/base/progress.h"
#include "engine/verbs/verbs.h"

using namespace kvo::verbs;

int main(int argc, char** argv) {
  return exit_status_of([&] {
    const Command command = command_of(joined_words(argc, argv));
    command.verb->run(command);
    say_overview();
    say_done();
    return true;
  });
}
