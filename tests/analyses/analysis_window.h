#pragma once

// What a handler needs: an installation with templates and masks, the console in a window, a
// working folder, and an engine that records how it was started.

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "panes.h"
#include "workspace/files/file_names.h"
#include "workspace/files/study_table.h"
#include "workspace/load_table.h"
#include "workspace/settings.h"

using Arguments = std::vector<std::string>;
using Options = std::vector<std::string>;

/// A script that presses OK in a message.
inline void press_ok(Shown_dialog& dialog) {
  dialog.press("OK");
}

/// A test with all of it; the working folder is the current folder.
class Analysis_window : public testing::Test {
 protected:
  Analysis_window() {
    for (const char* folder : {"root/etc", "root/share", "work & folder"})
      std::filesystem::create_directories(base() / folder);
    kvo_s_dir = Q_string(root().string());
    kvo_s_user_dir = Q_string(work().string());
    std::filesystem::current_path(work());
    for (const char* image :
         {"cor_cerebrospinal_fluid", "cor_fractional_anisotropy", "cor_gray_matter",
          "cor_white_matter", "mask_brain", "mask_cerebrospinal_fluid", "mask_gray_matter",
          "mask_tbss", "mask_white_matter", "atlas"})
      write_text(root() / "share" / (std::string(image) + ".nii.gz"), "");
    engine_folder_ = make_program_folder(base());
    set_engine("echo d\n");
    Qs_HelpTopic = "old";
    load_table("study n1\n");
  }
  ~Analysis_window() override {
    EXPECT_FALSE(std::filesystem::exists("pwned"));
    for (const auto& entry : std::filesystem::directory_iterator("."))
      EXPECT_FALSE(entry.path().extension() == ".tmp") << entry.path();
  }

  [[nodiscard]] std::filesystem::path base() const { return folder_.path(); }
  [[nodiscard]] std::filesystem::path root() const { return base() / "root"; }
  [[nodiscard]] std::filesystem::path work() const { return base() / "work & folder"; }

  /// Lets the engine write its arguments into a file of its own, then do what the script says;
  /// `$run` is the number of the run.
  void set_engine(const std::string& script) {
    write_program(engine_folder_ / "kvo_parse",
                  "#!/bin/sh\n"
                  "folder=${0%/*}\n"
                  "run=$(($(ls \"$folder\" | grep -c '^arguments') + 1))\n"
                  "printf '%s\\n' \"$@\" >\"$folder/arguments.$run\"\n" +
                      script);
  }
  [[nodiscard]] std::filesystem::path engine_folder() const { return engine_folder_; }

  /// The arguments of each run since the last call.
  std::vector<Arguments> runs() {
    std::vector<Arguments> result;
    for (int run = 1;; ++run) {
      const auto file = engine_folder_ / ("arguments." + std::to_string(run));
      if (!std::filesystem::exists(file)) return result;
      result.emplace_back();
      std::istringstream lines(read_text(file));
      for (std::string line; std::getline(lines, line);) result.back().push_back(line);
      std::filesystem::remove(file);
    }
  }

  /// The batch pane's text since the last call.
  static std::string batch() {
    std::string text = pane_text(1);
    clear_pane(1);
    return text;
  }

  static void load_table(const std::string& content) {
    write_text(KVO_TABLE_FILE, content);
    kvotable_load(KVO_TABLE_FILE);
  }

  /// That the last handler has printed and run nothing.
  void expect_nothing_run() {
    EXPECT_EQ(batch(), "");
    EXPECT_EQ(pane_text(0), "");
    EXPECT_EQ(runs(), std::vector<Arguments>{});
  }

  /// Makes the working folder one that has been preprocessed.
  static void preprocess(const std::string& maps = "") { write_text("kvo_maps.txt", maps); }

  /// Runs a handler that is expected to show the one message and do nothing else.
  void expect_refused(void (*handler)(), const std::string& message) {
    user.then(press_ok);
    const std::size_t before = user.messages().size();
    handler();
    ASSERT_EQ(user.messages().size(), before + 1);
    EXPECT_EQ(user.messages().back(), message);
    expect_nothing_run();
  }

  /// Runs a handler that is expected to end when its dialog is cancelled.
  void expect_cancellable(void (*handler)()) {
    user.answer({}, "Cancel");
    handler();
    expect_nothing_run();
  }

  Dialog_driver user;

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::filesystem::path engine_folder_;
};

/// A dialog's fields as they are shown, a line each: "Name: MyMean".
inline std::vector<std::string> fields(const Shown_dialog& dialog) {
  std::vector<std::string> lines;
  for (const std::string& label : dialog.labels())
    lines.push_back(label + ": " + dialog.value(label));
  return lines;
}
