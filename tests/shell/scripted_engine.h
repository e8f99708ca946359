#pragma once

// Engines that tests write themselves, and what happens while they run.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "panes.h"
#include "test_folder.h"
#include "util/handles.h"

/// A fresh working folder, the panes, and a program folder whose engine is written by the test.
class Shell_fixture {
 public:
  Shell_fixture() : engine_(make_program_folder(folder_.path()) / "kvo_parse") {}

  [[nodiscard]] const std::filesystem::path& engine() const { return engine_; }
  /// The engine becomes a shell script, which runs in the working folder.
  void engine_does(const std::string& script) const {
    write_program(engine_, "#!/bin/sh\n" + script + "\n");
  }
  /// The engine writes these bytes and ends.
  void engine_writes(const std::string& bytes) const {
    write_text("stream", bytes);
    engine_does("exec cat stream");
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::filesystem::path engine_;

 public:
  [[nodiscard]] const Test_panes& panes() const { return panes_; }
};

/// The text of a pane with its time stamps as "hh:mm:ss".
inline std::string transcript(std::size_t pane) {
  const std::unique_ptr<GRegex, Q_call<g_regex_unref>> stamp(g_regex_new(
      "[0-9]{2}:[0-9]{2}:[0-9]{2} - ", GRegexCompileFlags(0), GRegexMatchFlags(0), nullptr));
  const std::string text = pane_text(pane);
  const Q_g_memory<char> result(g_regex_replace_literal(
      stamp.get(), text.c_str(), -1, 0, "hh:mm:ss - ", GRegexMatchFlags(0), nullptr));
  return result.get();
}

/// How many temporary output files the working folder holds.
inline int temporary_files() {
  int number = 0;
  for (const auto& entry : std::filesystem::directory_iterator("."))
    if (entry.path().extension() == ".tmp") ++number;
  return number;
}

/// A gate of the working folder that engines wait at with "read line < gate".
class Gate {
 public:
  Gate() {
    EXPECT_EQ(mkfifo("gate", 0600), 0);
    // Open on both ends, so that neither side waits for the other to open it.
    gate_ = Q_fd(open("gate", O_RDWR | O_CLOEXEC));
  }
  /// Lets one waiter pass.
  void let_pass() const { EXPECT_EQ(write(gate_.get(), "\n", 1), 1); }

 private:
  Q_fd gate_;
};

/// Runs actions from the main loop, in order, each as soon as its condition holds. An action that
/// is left at the end is a failure of the test.
class Meanwhile {
 public:
  Meanwhile() : source_(g_timeout_add(3, look, this)) {}
  Meanwhile(const Meanwhile&) = delete;
  Meanwhile& operator=(const Meanwhile&) = delete;
  ~Meanwhile() { EXPECT_TRUE(steps_.empty()) << steps_.size() << " steps have not come about"; }

  Meanwhile& when(std::function<bool()> condition, std::function<void()> action) {
    steps_.emplace_back(std::move(condition), std::move(action));
    return *this;
  }
  /// As soon as the main pane holds the text.
  Meanwhile& when_shown(const std::string& text, std::function<void()> action) {
    return when([text] { return pane_text(0).find(text) != std::string::npos; }, std::move(action));
  }

 private:
  static gboolean look(gpointer data) {
    auto& self = *static_cast<Meanwhile*>(data);
    if (self.steps_.empty() || !self.steps_.front().first()) return G_SOURCE_CONTINUE;
    const auto action = std::move(self.steps_.front().second);
    self.steps_.pop_front();
    action();
    return G_SOURCE_CONTINUE;
  }

  std::deque<std::pair<std::function<bool()>, std::function<void()>>> steps_;
  Q_source source_;
};
