#include "engine/base/outcome.h"

#include <malloc.h>

#include <exception>
#include <new>

#include "engine/base/cancel.h"
#include "engine/base/progress.h"
#include "engine/base/refusal.h"

namespace kvo::base {

std::string joined_words(int argc, char** argv) {
  std::string text;
  for (int i = 1; i < argc; ++i) {
    if (i > 1) text += ' ';
    text += argv[i];
  }
  return text;
}

int exit_status_of(const std::function<bool()>& work) {
  // Images are allocated and freed one after another. Getting each one's memory from the system and
  // giving it back would take as long as the reading and computing.
  constexpr int all_images = 1 << 30;
  mallopt(M_MMAP_THRESHOLD, all_images);
  mallopt(M_TRIM_THRESHOLD, all_images);
  catch_cancel_signals();
  try {
    return work() ? 0 : 1;
  } catch (const Cancelled&) {
    say_cancelled();
  } catch (const Refusal& refusal) {
    say_warning(refusal.what());
  } catch (const std::bad_alloc&) {
    say_warning("There is not enough memory for this command.");
  } catch (const std::exception& error) {
    say_warning(std::string("The command failed: ") + error.what() + ".");
  }
  return 1;
}

}  // namespace kvo::base
