#include "engine/base/progress.h"

#include <glib.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <limits>

#include "engine/base/wording.h"
#include "util/handles.h"
#include "util/q_string.h"

namespace kvo::base {

namespace {

// Least seconds between two dots, so that they never keep the console busy.
constexpr double dot_interval = 0.2;

// Seconds that an action must have taken, and must have left, before it says how many are left.
constexpr double least_taken = 10, least_left = 15;

double now() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string_view markup_of_byte(char byte) {
  switch (byte) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      return {};
  }
}

/// Writes a line of the protocol, whose first characters tell its kind.
void write_coded(std::string_view beginning, std::string_view text) {
  std::string line(beginning);
  line += markup_of(text);
  write_line(line);
}

}  // namespace

std::string markup_of(std::string_view text) {
  const Q_g_memory<char> valid(g_utf8_make_valid(text.data(), gssize(text.size())));
  std::string markup;
  for (const char* c = valid.get(); *c != '\0'; c = g_utf8_next_char(c)) {
    const std::string_view character(c, std::size_t(g_utf8_next_char(c) - c));
    const std::string_view escaped = markup_of_byte(*c);
    // A character reference cut in the middle would make the whole line invalid markup.
    if (markup.size() + std::max(escaped.size(), character.size()) > Q_STRING_MAX - 16) break;
    if (!escaped.empty())
      markup += escaped;
    else if (g_unichar_iscntrl(g_utf8_get_char(c)) != FALSE)
      markup += ' ';
    else
      markup += character;
  }
  return markup;
}

void write_line(std::string_view line) {
  std::string bytes(line);
  bytes += '\n';
  std::string_view left = bytes;
  while (!left.empty()) {
    const ssize_t written = write(STDOUT_FILENO, left.data(), left.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    left.remove_prefix(std::size_t(written));
  }
}

void say(std::string_view text) {
  write_line("  " + markup_of(text));
}

void say_done() {
  write_line("d");
}

void say_warning(std::string_view text) {
  write_line("WARNING: " + markup_of(text));
}

void say_cancelled() {
  write_line("c");
  say_warning("The command was cancelled.");
}

std::string time_left_text(double seconds) {
  const double minutes = seconds / 60;
  if (seconds < 95) return "about " + decimal_text(10 * std::ceil(seconds / 10), 0) + " s left";
  if (minutes < 95) return "about " + decimal_text(minutes, 0) + " min left";
  return "about " + decimal_text(minutes / 60, 1) + " h left";
}

Action::Action(std::string_view text, std::size_t steps, std::size_t dots)
    : steps_(steps),
      dots_(dots),
      begun_(now()),
      last_dot_(begun_),
      told_(std::numeric_limits<double>::infinity()) {
  write_coded("a", text);
}

void Action::step() {
#pragma omp critical(action_step)
  {
    ++done_;
    const std::size_t due = std::min(done_ * dots_ / std::max<std::size_t>(steps_, 1), dots_);
    if (const double time = now(); due > shown_ && time - last_dot_ >= dot_interval) {
      write_line(".");
      shown_ = due;
      last_dot_ = time;
      say_time_left(time);
    }
  }
}

void Action::say_time_left(double time) {
  const double taken = time - begun_, left = taken / double(done_) * double(steps_ - done_);
  if (taken < least_taken || left < least_left || left > 0.6 * told_) return;
  told_ = left;
  say(time_left_text(left));
}

void Action::finish() {
  write_line("o");
}

}  // namespace kvo::base
