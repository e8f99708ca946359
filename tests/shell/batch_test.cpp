// The batch pane: loading, saving and replaying, with the message dialogs answered.

#include "shell/batch.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "dialog_driver.h"
#include "scripted_engine.h"
#include "shell/busy.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

const std::string DONE = "hh:mm:ss - DONE\n\n";
constexpr const char* SAVED = "Batch content has been saved to\nthe text file 'kvo_batch.txt'";
constexpr const char* NOT_SAVED = "Batch content could not be saved!'";

void set_batch(const std::string& text) {
  gtk_text_buffer_set_text(Qw_v_OutputBuffer[1], text.data(), static_cast<int>(text.size()));
}

/// Saves the batch, answers the message and returns it.
std::string saved() {
  Dialog_driver user;
  user.answer({});
  kvo3_batch_save();
  return user.messages().empty() ? "" : user.messages().front();
}

std::string many_lines(std::size_t bytes) {
  std::string text;
  while (text.size() < bytes) text += "# " + std::to_string(text.size()) + " <b>&amp; text</b>\n";
  return text;
}

TEST(Batch, SavesAndLoadsTheSameText) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::string texts[] = {
      "",
      "\n",
      "\n\n\n",
      "# comment\nmean = mean\n\n",
      "no final line feed",
      "  blanks \t\n\n# <b>&amp;\n%s%n\n",
      "\u00E9\U0001F9E0\n",
      full + "\n" + full,
      many_lines(2000000),
  };
  const Shell_fixture shell;
  for (const std::string& text : texts) {
    const std::string name = testing::PrintToString(text.substr(0, 50));
    set_batch(text);
    EXPECT_EQ(saved(), SAVED) << name;
    EXPECT_TRUE(read_text("kvo_batch.txt") == text + "\n") << name;
    set_batch("unsaved edits");
    kvo3_batch_print();
    EXPECT_TRUE(pane_text(1) == text) << name;
  }
  EXPECT_EQ(pane_text(0), "");
}

TEST(Batch, LoadsFilesOfOthers) {
  struct Case {
    std::string file;
    std::string pane;
  };
  const Case cases[] = {
      {"", ""},
      {"a\r\nb\r\n", "a\n\nb\n"},
      {"a\nb", "a\nb"},
      {"<i>a</i> \xE9\n", "<i>a</i> \u00E9"},
  };
  const Shell_fixture shell;
  for (const Case& c : cases) {
    write_text("kvo_batch.txt", c.file);
    kvo3_batch_print();
    EXPECT_EQ(pane_text(1), c.pane) << testing::PrintToString(c.file);
  }
  fs::remove("kvo_batch.txt");
  kvo3_batch_print();
  EXPECT_EQ(pane_text(1), "") << "there is no file";
  set_batch("old");
  fs::create_directory("kvo_batch.txt");
  kvo3_batch_print();
  EXPECT_EQ(pane_text(1), "") << "the file cannot be read";
  EXPECT_EQ(pane_text(0), "");
}

TEST(Batch, ReportsThatItCannotBeSaved) {
  const Shell_fixture shell;
  fs::create_directory("kvo_batch.txt");
  set_batch("# kept\n");
  EXPECT_EQ(saved(), NOT_SAVED);
  EXPECT_EQ(pane_text(1), "# kept\n");
}

TEST(Batch, AsksBeforeItOverwritesWhatItDidNotShow) {
  const struct {
    std::optional<std::string> loaded, on_disk;
    bool asks;
  } cases[] = {
      {"a\xE9\n", "a\xE9\n", false}, {std::nullopt, std::nullopt, false},
      {"a\n", std::nullopt, false},  {"a\n", "b\n", true},
      {std::nullopt, "b\n", true},   {"a\xFF\n", "a\xFF\n", true},
      {"a\n", "new\n", false},
  };
  const Shell_fixture shell;
  const auto put = [](const std::optional<std::string>& content) {
    fs::remove("kvo_batch.txt");
    if (content) write_text("kvo_batch.txt", *content);
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.loaded) + testing::PrintToString(c.on_disk));
    put(c.loaded);
    kvo3_batch_print();
    put(c.on_disk);
    set_batch("new");
    if (c.asks) {
      Dialog_driver user;
      user.answer({}, "Cancel");
      kvo3_batch_save();
      EXPECT_THAT(user.messages(), ElementsAre(HasSubstr("Do you want to overwrite it?")));
      EXPECT_EQ(read_text("kvo_batch.txt"), *c.on_disk);
      user.answer({}).answer({});
      kvo3_batch_save();
    } else {
      EXPECT_EQ(saved(), SAVED);
    }
    EXPECT_EQ(read_text("kvo_batch.txt"), "new\n");
    EXPECT_EQ(saved(), SAVED) << "its own file";
  }
}

TEST(Batch, RefusesALineOverTheLimit) {
  const Shell_fixture shell;
  const std::string text = "# a\n\n" + std::string(Q_STRING_MAX + 1, 'x') + "\n# b";
  write_text("kvo_batch.txt", text + "\n");
  kvo3_batch_print();
  EXPECT_TRUE(pane_text(1) == text) << "nothing is dropped";
  EXPECT_THAT(pane_text(0), HasSubstr("WARNING: Line 3 of 'kvo_batch.txt' is longer than 49999"));
  clear_pane(0);
  write_text("kvo_batch.txt", "old");
  EXPECT_THAT(saved(), HasSubstr("Line 3 of the batch is longer than 49999"));
  EXPECT_EQ(read_text("kvo_batch.txt"), "old");
  Dialog_driver user;
  user.answer({});
  kvo3_batch_run();
  EXPECT_THAT(user.messages(), ElementsAre(HasSubstr("Line 3 of the batch is longer than 49999")));
  EXPECT_EQ(pane_text(0), "") << "not even the lines before it are run";
}

TEST(Replay, RunsTheLinesInOrder) {
  struct Case {
    std::string pane;
    std::string shown;
  };
  const Case cases[] = {
      {"", ""},
      {"\n \n\n", ""},
      {"# comment\ngo\n\n", "# comment\ngo\n" + DONE},
      {"go 1\n  go   2\n#3", "go 1\n" + DONE + "go 2\n" + DONE + "#3\n"},
      {"go %s %n", "go %s %n\n" + DONE},
      {"go\n#`a`\ngo `echo 2`\ngo '<;>'\ngo \"$(true)\"",
       "WARNING: Besides Quorvane, the system's shell runs these lines of the batch:\n"
       "3: go `echo 2`\n5: go \"$(true)\"\n\ngo\n" +
           DONE + "#`a`\ngo `echo 2`\n" + DONE + "go '<;>'\n" + DONE + "go \"$(true)\"\n" + DONE},
      // Problems of one command do not keep the next from running.
      {"go\nfail 7\ngo", "go\n" + DONE + "fail 7\n\nWARNING: failed 7\n\ngo\n" + DONE},
      {"crash\ngo",
       "crash\n\nWARNING: The engine ended before it finished (signal 9 (Killed))\n\ngo\n" + DONE},
  };
  const Shell_fixture shell;
  shell.engine_does(
      "case $1 in fail) echo \"WARNING: failed $2\";; crash) kill -9 $$;; *) echo d;; esac");
  for (const Case& c : cases) {
    clear_pane(0);
    set_batch(c.pane);
    kvo3_batch_run();
    EXPECT_EQ(transcript(0), c.shown) << c.pane;
    EXPECT_EQ(pane_text(1), c.pane) << c.pane;
    EXPECT_EQ(temporary_files(), 0) << c.pane;
  }
}

TEST(Replay, RunsAPaneOfAnyLength) {
  const Shell_fixture shell;
  const std::string comments = many_lines(60000);
  set_batch(comments + "go");
  shell.engine_does("echo d");
  kvo3_batch_run();
  EXPECT_TRUE(transcript(0) == comments + "go\n" + DONE);
}

TEST(Replay, KeepsTheTitleOfThePopUpAndServesTheWindow) {
  const Shell_fixture shell;
  shell.engine_does("echo \"aStep of $1\"; echo o; echo d");
  std::string commands;
  for (int i = 0; i < 10; ++i) commands += "go" + std::to_string(i) + "\n";
  set_batch(commands);
  std::vector<std::string> titles;  // each time that the console is painted during a command
  const auto paint = +[](GtkWidget*, GdkEventExpose*, std::vector<std::string>* seen) -> gboolean {
    if (Qw_WorkingWindow != nullptr)
      seen->emplace_back(gtk_window_get_title(GTK_WINDOW(Qw_WorkingWindow)));
    return FALSE;
  };
  g_signal_connect(Qw_v_OutputView[0], "expose-event", G_CALLBACK(paint), &titles);
  kvo3_batch_run();
  EXPECT_GE(titles.size(), 10U) << "it is painted with each command";
  EXPECT_THAT(titles, testing::Each("KVO Working..."));
  EXPECT_THAT(transcript(0), HasSubstr("go9\nhh:mm:ss - Step of go9...OK\n" + DONE));
}

/// A button of the main window that asks for a replay, as the toolbar's does.
GtkWidget* add_run_button() {
  GtkWidget* button = gtk_button_new_with_label("Run batch");
  g_signal_connect(button, "clicked", G_CALLBACK(kvo3_batch_run), nullptr);
  gtk_box_pack_start(GTK_BOX(gtk_bin_get_child(GTK_BIN(Qw_Window))), button, FALSE, FALSE, 0);
  gtk_widget_show(button);
  Q_process_events();
  return button;
}

/// Clicks the middle of a button with the mouse.
void click(GtkWidget* button) {
  GdkWindow* window = GTK_BUTTON(button)->event_window;
  for (const GdkEventType type : {GDK_ENTER_NOTIFY, GDK_BUTTON_PRESS, GDK_BUTTON_RELEASE})
    send_pointer(window, type, button->allocation.width / 2, button->allocation.height / 2);
  Q_process_events();
}

/// Closes the main window with the next events.
void close_window_soon() {
  const auto close = [](gpointer /*data*/) -> gboolean {
    gtk_widget_destroy(Qw_Window);
    return G_SOURCE_REMOVE;
  };
  g_idle_add(close, nullptr);
}

/// Does something once, as soon as the main pane ends with a text: from inside the print of it.
struct At_text {
  const char* text;
  void (*act)();
  GtkWidget* button;  // to click first
};

void look_at_text(GtkTextBuffer* /*buffer*/, At_text* at) {
  if (at->act == nullptr || !pane_text(0).ends_with(at->text)) return;
  const auto act = std::exchange(at->act, nullptr);
  click(at->button);
  act();
}

TEST(Replay, HasTheWindowToItselfUntilItEnds) {
  const std::string until_two = "go 1\n  here\n" + DONE + "# two\n";
  const struct {
    const char* event;
    At_text at;
    const char* runs;
    std::string shown;
  } cases[] = {
      {"asking again between two commands, without a pop-up",
       {"# two\n", kvo3_batch_run, nullptr},
       "1\n3\n",
       until_two + "go 3\n  here\n" + DONE},
      {"asking again during a run",
       {"  here\n",
        [] {
          EXPECT_EQ(gtk_grab_get_current(), Qw_WorkingWindow);
          kvo3_batch_run();
          fs::remove("wait");
        },
        nullptr},
       "1\n3\n",
       until_two + "go 3\n  here\n" + DONE},
      {"closing the window there", {"# two\n", close_window_soon, nullptr}, "1\n", ""},
      {"closing the window during a run", {"  here\n", close_window_soon, nullptr}, "1\n", ""},
      {"cancelling the run",
       {"  here\n", [] { fs::rename("wait", "cancel"); }, nullptr},
       "1\n",
       "go 1\n  here\nhh:mm:ss - CANCELLED\n\n\nWARNING: it was cancelled\n\n"
       "WARNING: A command was cancelled, so the batch has been stopped.\n\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.event);
    const Shell_fixture shell;
    shell.engine_does(
        "echo $2 >> runs; echo '  here'; while [ -e wait ]; do sleep 0.05; done\n"
        "[ -e cancel ] && { echo c; echo 'WARNING: it was cancelled'; }; echo d");
    set_batch("go 1\n# two\ngo 3");
    At_text at = c.at;
    if (at.text[0] == ' ')
      write_text("wait", "");  // the run does not end before what happens in it
    at.button = add_run_button();
    g_signal_connect(Qw_v_OutputBuffer[0], "changed", G_CALLBACK(look_at_text), &at);
    click(at.button);  // which reaches its handler as long as nothing runs
    EXPECT_EQ(at.act, nullptr);
    EXPECT_EQ(read_text("runs"), c.runs);
    EXPECT_EQ(Q_console_gone() ? "" : transcript(0), c.shown);
    EXPECT_EQ(temporary_files(), 0);
    EXPECT_EQ(gtk_grab_get_current(), nullptr);
  }
}

}  // namespace
