#pragma once

// What a handler needs: an installation with templates and masks, the console in a window, a
// preprocessed working folder, and an engine that records how it was started.

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

/// A test with all of it; the working folder is the current folder.
class Analysis_window : public testing::Test {
 protected:
  Analysis_window() {
    engine_folder_ = make_program_folder(base());
    kvo_s_dir = Q_string(root().string());
    set_engine("echo d\n");
    reset();
  }
  ~Analysis_window() override {
    EXPECT_FALSE(std::filesystem::exists(work() / "pwned"));
    for (const auto& entry : std::filesystem::directory_iterator(work()))
      EXPECT_FALSE(entry.path().extension() == ".tmp") << entry.path();
  }

  [[nodiscard]] std::filesystem::path base() const { return folder_.path(); }
  [[nodiscard]] std::filesystem::path root() const { return base() / "root"; }
  [[nodiscard]] std::filesystem::path work() const { return base() / "work & folder"; }
  [[nodiscard]] std::filesystem::path engine_folder() const { return engine_folder_; }

  /// Begins anew with fresh folders and an empty console.
  void reset() {
    std::filesystem::current_path(base());
    for (const auto& folder : {root(), work()}) std::filesystem::remove_all(folder);
    for (const auto& folder : {root() / "etc", root() / "share", work()})
      std::filesystem::create_directories(folder);
    std::filesystem::current_path(work());
    kvo_s_user_dir = Q_string(work().string());
    write_text("kvo_maps.txt", "");
    load_table("study n1\n");
    clear_pane(0);
    clear_pane(1);
    runs();
    Qs_HelpTopic = "old";
  }

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

  static void load_table(const std::string& content) {
    write_text(KVO_TABLE_FILE, content);
    kvotable_load(KVO_TABLE_FILE);
  }

 private:
  Test_folder folder_;
  Test_panes panes_;
  std::filesystem::path engine_folder_;
};
