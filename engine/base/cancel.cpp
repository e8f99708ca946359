#include "engine/base/cancel.h"

#include <atomic>
#include <csignal>

#include "engine/base/refusal.h"

namespace kvo::base {

namespace {
std::atomic<bool> requested = false;
static_assert(std::atomic<bool>::is_always_lock_free, "it is set by a signal handler");
}  // namespace

void catch_cancel_signals() {
  struct sigaction action {};
  // No SA_RESTART: the signal must end a wait in poll().
  action.sa_handler = [](int) { requested = true; };
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) sigaction(signal, &action, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

bool cancel_requested() {
  return requested;
}

void stop_if_cancelled() {
  if (requested) throw Cancelled{};
}

}  // namespace kvo::base
