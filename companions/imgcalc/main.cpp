// The image calculator: one operation on one image.

#include <cstdio>
#include <cstring>
#include <exception>
#include <new>
#include <span>

#include "companions/imgcalc/command_line.h"
#include "companions/imgcalc/image_operations.h"
#include "engine/base/cancel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "kvo_config.h"

using namespace kvo::imgcalc;

namespace {

void write_progress(char kind, const std::string& text) {
  std::string line(1, kind);
  line += markup_of(text);
  write_line(line);
}

int fail(bool with_progress, const std::string& reason) {
  if (with_progress)
    write_progress('w', reason);
  else
    std::fprintf(stderr, "imgcalc: %s\n", reason.c_str());
  return 1;
}

int run(std::span<const char* const> words, bool with_progress) {
  const Command command = parse_command(words);
  if (with_progress) write_progress('a', description_of(command));
  carry_out(command, [&](const std::string& text) {
    if (with_progress)
      write_progress('a', text);
    else
      std::fprintf(stderr, "imgcalc: %s.\n", text.c_str());
  });
  if (with_progress) write_line("o");
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::span<const char* const> words(argv + 1, argv + argc);
  if (words.size() == 1 && std::strcmp(words[0], "--help") == 0) {
    std::fputs(help_text().c_str(), stdout);
    return 0;
  }
  if (words.size() == 1 && std::strcmp(words[0], "--version") == 0) {
    std::printf("imgcalc %.2f\n", KVO_VERSION);
    return 0;
  }
  const bool with_progress = take_progress_word(words);
  catch_cancel_signals();
  try {
    return run(words, with_progress);
  } catch (const Cancelled&) {
    return fail(with_progress, "The conversion was cancelled");
  } catch (const std::bad_alloc&) {
    return fail(with_progress, "Insufficient memory");
  } catch (const std::exception& problem) {
    return fail(with_progress, problem.what());
  }
}
