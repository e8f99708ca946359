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
using testing::Each;
using testing::HasSubstr;

const std::string DONE = "hh:mm:ss - DONE\n\n";
constexpr const char* SAVED = "Batch content has been saved to\nthe text file 'kvo_batch.txt'";

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
  std::string two_full(2 * Q_STRING_MAX + 1, 'x');
  two_full[Q_STRING_MAX] = '\n';
  const Shell_fixture shell;
  for (const std::string& text : {std::string(), std::string("\n\n"),
                                  std::string("  blanks \t\n\n# <b>&amp;\n%s%n \u00E9\U0001F9E0"),
                                  two_full, many_lines(2000000)}) {
    const std::string name = testing::PrintToString(text.substr(0, 50));
    set_batch(text);
    EXPECT_EQ(saved(), SAVED) << name;
    EXPECT_TRUE(read_text("kvo_batch.txt") == text + "\n") << name;
    set_batch("unsaved edits");
    kvo3_batch_print();
    EXPECT_TRUE(pane_text(1) == text) << name;
  }
  fs::remove("kvo_batch.txt");
  kvo3_batch_print();
  EXPECT_EQ(pane_text(1), "") << "there is no file";
  fs::create_directory("kvo_batch.txt");
  set_batch("# kept");
  EXPECT_EQ(saved(), "Batch content could not be saved!'");
  EXPECT_EQ(pane_text(1), "# kept");
  kvo3_batch_print();
  EXPECT_EQ(pane_text(0) + pane_text(1), "") << "the file cannot be read";
}

TEST(Batch, AsksBeforeItOverwritesWhatItDidNotShow) {
  const Shell_fixture shell;
  write_text("kvo_batch.txt", "a\xE9\n");
  kvo3_batch_print();
  for (const char* text : {"a\u00E9", "a", "a\u00E9"}) {
    set_batch(text);
    EXPECT_EQ(saved(), SAVED) << "its own file";
  }
  EXPECT_EQ(read_text("kvo_batch.txt"), "a\xE9\n");
  for (const char* answer : {"Cancel", "OK"}) {
    write_text("kvo_batch.txt", "b\n");
    Dialog_driver user;
    user.answer({}, answer);
    if (*answer == 'O') user.answer({});
    kvo3_batch_save();
    EXPECT_THAT(user.messages().at(0), HasSubstr("Do you want to overwrite it?"));
    EXPECT_EQ(read_text("kvo_batch.txt"), *answer == 'O' ? "a\xE9\n" : "b\n");
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
  Dialog_driver user;
  user.answer({}).answer({});
  kvo3_batch_save();
  EXPECT_EQ(read_text("kvo_batch.txt"), "old");
  kvo3_batch_run();
  EXPECT_EQ(pane_text(0), "") << "not even the lines before it are run";
  EXPECT_THAT(user.messages(), Each(HasSubstr("Line 3 of the batch is longer than 49999")));
}

TEST(Replay, RunsTheLinesInOrder) {
  const std::string comments = many_lines(60000);
  const std::pair<std::string, std::string> cases[] = {
      // The pane, and what the console shows.
      {"\n \n\n", ""},
      {comments + "go 1\n  go   %s\n#3\n\n",
       comments + "go 1\n" + DONE + "go %s\n" + DONE + "#3\n"},
      {"go\n#`a`\ngo `echo 2`\ngo '<;>'\ngo \"$(true)\"",
       "WARNING: Besides Quorvane, the system's shell runs these lines of the batch:\n"
       "3: go `echo 2`\n5: go \"$(true)\"\n\ngo\n" +
           DONE + "#`a`\ngo `echo 2`\n" + DONE + "go '<;>'\n" + DONE + "go \"$(true)\"\n" + DONE},
      // Problems of one command do not keep the next from running.
      {"fail 7\ncrash\ngo",
       "fail 7\n\nWARNING: failed 7\n\ncrash\n\nWARNING: The engine ended before it finished "
       "(signal 9 (Killed))\n\ngo\n" +
           DONE},
  };
  const Shell_fixture shell;
  shell.engine_does(
      "case $1 in fail) echo \"WARNING: failed $2\";; crash) kill -9 $$;; *) echo d;; esac");
  for (const auto& [pane, shown] : cases) {
    clear_pane(0);
    set_batch(pane);
    kvo3_batch_run();
    EXPECT_EQ(transcript(0), shown);
    EXPECT_EQ(pane_text(1), pane);
    EXPECT_EQ(temporary_files(), 0);
  }
}

/// A button of the main window that asks for a replay, as the toolbar's does.
GtkWidget* add_run_button() {
  GtkWidget* button = gtk_button_new_with_label("Run batch");
  g_signal_connect(button, "clicked", G_CALLBACK(kvo3_batch_run), nullptr);
  gtk_container_add(GTK_CONTAINER(gtk_bin_get_child(GTK_BIN(Qw_Window))), button);
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

gboolean close_window(gpointer /*data*/) {
  gtk_widget_destroy(Qw_Window);
  return G_SOURCE_REMOVE;
}
/// Closes the main window with the next events.
void close_window_soon() {
  g_idle_add(close_window, nullptr);
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
  const std::string one =
      "WARNING: Besides Quorvane, the system's shell runs these lines of the batch:\n3: go `true` "
      "3\n\n"
      "go 1\n  here\n";
  const std::string all = one + DONE + "# two\ngo `true` 3\n  here\n" + DONE;
  const auto ask_again = [] {
    EXPECT_EQ(gtk_grab_get_current(), Qw_WorkingWindow);
    kvo3_batch_run();
    fs::remove("wait");
  };
  const std::tuple<At_text, const char*, std::string> cases[] = {
      // What happens and when, what is run, and what is shown if anything still is.
      {{"3\n\n", kvo3_batch_run, nullptr}, "1\n3\n", all},
      {{"# two\n", kvo3_batch_run, nullptr}, "1\n3\n", all},
      {{"  here\n", ask_again, nullptr}, "1\n3\n", all},
      {{"# two\n", close_window_soon, nullptr}, "1\n", ""},
      {{"  here\n", close_window_soon, nullptr}, "1\n", ""},
      {{"  here\n", [] { fs::rename("wait", "cancel"); }, nullptr},
       "1\n",
       one + "hh:mm:ss - CANCELLED\n\n\nWARNING: it was cancelled\n\n"
             "WARNING: A command was cancelled, so the batch has been stopped.\n\n"},
  };
  for (const auto& [event, runs, shown] : cases) {
    SCOPED_TRACE(event.text + shown);
    const Shell_fixture shell;
    shell.engine_does(
        "echo $2 >> runs; echo '  here'; while [ -e wait ]; do sleep 0.05; done\n"
        "[ -e cancel ] && { echo c; echo 'WARNING: it was cancelled'; }; echo d");
    set_batch("go 1\n# two\ngo `true` 3");
    At_text at = event;
    if (at.text[0] == ' ')
      write_text("wait", "");  // the run does not end before what happens in it
    at.button = add_run_button();
    g_signal_connect(Qw_v_OutputBuffer[0], "changed", G_CALLBACK(look_at_text), &at);
    click(at.button);  // which reaches its handler as long as nothing runs
    EXPECT_EQ(at.act, nullptr);
    EXPECT_EQ(read_text("runs"), runs);
    EXPECT_EQ(Q_console_gone() ? "" : transcript(0), shown);
    EXPECT_EQ(temporary_files(), 0);
    EXPECT_EQ(gtk_grab_get_current(), nullptr);
  }
}

}  // namespace
