#pragma once

// The line protocol that tells the front end how a command is getting on. Each line is flushed at
// once. The texts passed in are plain; what is written is Pango markup and always valid UTF-8 on
// one line.

#include <cstddef>
#include <string>
#include <string_view>

namespace kvo::base {

/// Text as Pango markup: special characters escaped, bytes that are not UTF-8 replaced, control
/// characters made blanks, and truncated where readers of the protocol would truncate it.
std::string markup_of(std::string_view text);

/// Writes bytes and a line feed to standard output in one go. A reader that is gone is no error.
void write_line(std::string_view line);

/// A line of text for the user.
void say(std::string_view text);

/// The closing line of a command that went well.
void say_done();
/// The closing line of a command that did not.
void say_warning(std::string_view text);
/// The two lines that close a cancelled command.
void say_cancelled();

/// "about 40 s left", "about 3 min left", "about 2.5 h left"
std::string time_left_text(double seconds);

/// One action of a command, from "a" to "o": announces itself, shows progress dots while step() is
/// called, and says that it is done when finish() is called. A long one says now and then how much
/// time is left. If it goes out of scope unfinished, it says nothing more.
class Action {
 public:
  /// `steps` is how often step() will be called; at most `dots` dots are shown for them.
  explicit Action(std::string_view text, std::size_t steps = 0, std::size_t dots = 10);

  /// Counts one step. May be called from any thread.
  void step();
  void finish();

 private:
  void say_time_left(double time);

  std::size_t steps_, dots_;
  std::size_t done_ = 0, shown_ = 0;
  double begun_, last_dot_;
  double told_;  ///< the seconds left when the user was last told
};

}  // namespace kvo::base
