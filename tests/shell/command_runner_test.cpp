// Commands run through small engines that the tests write: what the console shows of their streams,
// and what the user can and cannot do meanwhile.

#include "shell/command_runner.h"

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>
#include <signal.h>

#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "dialog_driver.h"
#include "logged_warnings.h"
#include "scripted_engine.h"
#include "shell/busy.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

const std::string DONE = "hh:mm:ss - DONE\n\n";

/// What the console shows when the engine is gone for a reason.
std::string gone(const std::string& why) {
  return "\nWARNING: The engine ended before it finished (" + why + ")\n\n";
}

/// A text that a failure can print.
std::string shortened(const std::string& text) {
  return text.size() < 300 ? text : text.substr(0, 300) + "...";
}

TEST(Runner, ShowsEachKindOfLine) {
  const std::string full(Q_STRING_MAX, 'x');
  struct Case {
    std::string stream;
    std::string shown;
    std::size_t warnings = 0;  // logged, for markup that is not valid
  };
  const Case cases[] = {
      {"d\n", DONE},
      {"done and more\nnot read any more\n", DONE},
      {"d", DONE},
      {"aReading\n.\n.\no\nd\n", "hh:mm:ss - Reading.....OK\n" + DONE},
      {"a<b>R</b>\no\nd\n", "hh:mm:ss - R...OK\n" + DONE},
      {"WARNING: No maps.\n", "\nWARNING: No maps.\n\n"},
      {"WARNING\n", "\nWARNING: \n\n"},
      {"wNo maps.\n", "WARNING: No maps.\n\n"},
      {"cby the user\n  still read\nd\n", "hh:mm:ss - CANCELLED\n\n  still read\n" + DONE},
      {"Woman\n  100%s %n\nd\n", "Woman\n  100%s %n\n" + DONE},
      {"\n\n  x\n\nd\n", "  x\n" + DONE},
      {"  x\r\nd\r\n", "  x\n" + DONE},
      {"  x\xFF"
       "d\xFF",
       "  x\n" + DONE},
      {"  a &lt; b &amp; c\nd\n", "  a < b & c\n" + DONE},
      {"  <b>bold</b>\n  plain\nd\n", "  bold\n  plain\n" + DONE},
      // What stands behind a zero byte is no text; the line itself and the next ones are.
      {std::string("  a\0b\n  c\nd\n", 11), "  a\n  c\n" + DONE},
      {std::string("d\0\n", 3), DONE},
      // Lines that are no valid markup are lost, one by one.
      {"  1\n  a < b\n  2\n  a & b\n  3\nd\n", "  1\n  2\n  3\n" + DONE, 2},
      {"  1\n  <b>\n  2\n  </b>\n  3\nd\n", "  1\n  2\n  3\n" + DONE, 2},
      {"  1\n  \xE9\n  2\nd\n", "  1\n  2\n" + DONE, 1},
      {"a<\n  2\nwa & b\n", "  2\n\n", 2},
      // Lines over the limit.
      {full + "\nd\n", full + "\n" + DONE},
      {full + full + "yz\nd\n", full + "\n" + full + "\nyz\n" + DONE},
      {full.substr(1) + "\u00E9y\nd\n", full.substr(1) + "\n\u00E9y\n" + DONE},
      // Streams without a closing line.
      {"", gone("exit status 0")},
      {"  x\n", "  x\n" + gone("exit status 0")},
      {"  x", "  x\n" + gone("exit status 0")},
      {"aReading\n.\n", "hh:mm:ss - Reading...." + gone("exit status 0")},
  };
  const Shell_fixture shell;
  for (const Case& c : cases) {
    clear_pane(0);
    shell.engine_writes(c.stream);
    std::size_t warnings = 0;
    {
      const Logged_warnings log;
      kvo3_exec_core(false, "go");
      warnings = log.messages.size();
    }
    const std::string shown = transcript(0);
    EXPECT_TRUE(shown == "go\n" + c.shown)
        << testing::PrintToString(shortened(c.stream)) << "\nis shown as\n"
        << testing::PrintToString(shortened(shown));
    EXPECT_EQ(warnings, c.warnings) << testing::PrintToString(shortened(c.stream));
    EXPECT_EQ(temporary_files(), 0);
    EXPECT_FALSE(Q_busy);
    EXPECT_EQ(Qw_WorkingWindow, nullptr);
  }
}

TEST(Runner, SurvivesActionsThatAreNoOrdinaryText) {
  const Shell_fixture shell;
  const Gate gate;
  write_text("stream", "a\xE9\na\xC3\na" + std::string(Q_STRING_MAX - 10, 'x') + "\n");
  shell.engine_does("cat stream; read l < gate; echo d");
  Meanwhile meanwhile;
  meanwhile.when_shown("xxx...", [&] {
    EXPECT_LE(Qw_WorkingWindow->allocation.width, gdk_screen_width());
    gate.let_pass();
  });
  const Logged_warnings log;
  kvo3_exec_core(false, "go");
  EXPECT_THAT(transcript(0), testing::EndsWith(DONE));
  EXPECT_THAT(log.messages, testing::Each(HasSubstr("Invalid markup string"))) << "of the console";
  EXPECT_EQ(log.messages.size(), 2U);
}

TEST(Runner, SaysWhyTheEngineIsGone) {
  struct Case {
    std::string script;  // none: there is no engine
    std::string command;
    std::string shown;
  };
  const std::string said = "  /bin/sh: 1: Syntax error: ";
  const Case cases[] = {
      {"echo '  x'; exit 3", "go", "  x\n" + gone("exit status 3")},
      {"echo '  x'; kill -9 $$", "go", "  x\n" + gone("signal 9 (Killed)")},
      {"kill -SEGV $$", "go", gone("signal 11 (Segmentation fault)")},
      {"echo 'd'", "go (", said + "\"(\" unexpected\n" + gone("exit status 2")},
      {"echo 'd'", "go & & \"a\"", said + "\"&\" unexpected\n" + gone("exit status 2")},
      {"echo 'd'", "go 'it", said + "Unterminated quoted string\n" + gone("exit status 2")},
      {"", "go", gone("exit status 127, the program was not found")},
      {"echo 'WARNING: own words'; exit 1", "go", "\nWARNING: own words\n\n"},
      {"echo 'd'; exit 1", "go", DONE},
      // Not the engine itself has the last word, but all that it started.
      {"(sleep 0.3; echo '  child'; echo d) & exit 4", "go", "  child\n" + DONE},
  };
  const Shell_fixture shell;
  testing::internal::CaptureStderr();  // the shell's own complaints
  for (const Case& c : cases) {
    clear_pane(0);
    std::filesystem::remove(shell.engine());
    if (!c.script.empty()) shell.engine_does(c.script);
    kvo3_exec_core(false, "%s", c.command.c_str());
    EXPECT_EQ(transcript(0), c.command + "\n" + c.shown) << c.script;
    EXPECT_EQ(temporary_files(), 0) << c.script;
    EXPECT_FALSE(Q_busy) << c.script;
  }
  clear_pane(0);
  write_text(shell.engine(), "#!/bin/sh\necho d\n");
  std::filesystem::permissions(shell.engine(), std::filesystem::perms(0644));
  kvo3_exec_core(false, "go");
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(transcript(0), "go\n" + gone("exit status 126, the program could not be started"));
}

TEST(Runner, NoticesAKilledEngine) {
  const Shell_fixture shell;
  shell.engine_does("echo '  x'; echo $$ > pid; exec sleep 600");
  Meanwhile meanwhile;
  meanwhile.when([] { return read_text("pid").ends_with("\n"); },
                 [] { kill(std::stoi(read_text("pid")), SIGKILL); });
  kvo3_exec_core(false, "go");
  EXPECT_EQ(transcript(0), "go\n  x\n" + gone("signal 9 (Killed)"));
}

TEST(Runner, HandsTheCommandToTheShell) {
  struct Case {
    std::string command;
    std::string echoed;
    std::vector<std::string> words;
  };
  const Case cases[] = {
      {"pp gray_matter, 0.0", "pp gray_matter, 0.0", {"pp", "gray_matter,", "0.0"}},
      {"  a \t b\n", "a b", {"a", "b"}},
      {"mean \"a & b\" '<i>c</i>' %s",
       "mean \"a & b\" '<i>c</i>' %s",
       {"mean", "a & b", "<i>c</i>", "%s"}},
      {"$WORD", "$WORD", {"from", "outside"}},
  };
  setenv("WORD", "from outside", 1);
  const Shell_fixture shell;
  shell.engine_does("for word; do printf '%s\\n' \"$word\" >> words; done; echo d");
  for (const Case& c : cases) {
    clear_pane(0);
    clear_pane(1);
    write_text("words", "");
    kvo3_exec_core(true, "%s", c.command.c_str());
    std::string expected;
    for (const std::string& word : c.words) expected += word + "\n";
    EXPECT_EQ(read_text("words"), expected) << c.command;
    EXPECT_EQ(transcript(0), c.echoed + "\n" + DONE) << c.command;
    EXPECT_EQ(pane_text(1), c.echoed + "\n\n") << c.command;
  }
}

TEST(Runner, RunsAndRecordsOnlyCommands) {
  struct Case {
    std::string text;
    bool record;
    std::string shown;
    std::string recorded;
  };
  const Case cases[] = {
      {"", true, "", ""},
      {" \t\n ", true, "", ""},
      {"# a <b> & c", true, "# a <b> & c\n", ""},
      {"  #comment  with   blanks ", true, "#comment with blanks\n", ""},
      {"go", true, "go\n" + DONE, "go\n\n"},
      {" go  on ", true, "go on\n" + DONE, "go on\n\n"},
      {"go", false, "go\n" + DONE, ""},
  };
  const Shell_fixture shell;
  shell.engine_does("echo run >> runs; echo d");
  for (const Case& c : cases) {
    clear_pane(0);
    clear_pane(1);
    std::filesystem::remove("runs");
    kvo3_exec_core(c.record, "%s", c.text.c_str());
    EXPECT_EQ(transcript(0), c.shown) << c.text;
    EXPECT_EQ(pane_text(1), c.recorded) << c.text;
    EXPECT_EQ(std::filesystem::exists("runs"), c.shown.ends_with(DONE)) << c.text;
  }
}

TEST(Runner, ShowsLinesAsTheyComeUnderAModalPopUp) {
  const Shell_fixture shell;
  const Gate gate;
  shell.engine_does(
      "echo aFirst; read l < gate; echo '  two'; read l < gate; printf '  no end';"
      "read l < gate; echo; echo aLast; read l < gate; echo o; echo d");
  const auto label = [] { return gtk_label_get_text(GTK_LABEL(Qw_WorkingWindowLabel)); };
  Meanwhile meanwhile;
  meanwhile
      .when_shown("First...",
                  [&] {
                    EXPECT_TRUE(Q_busy);
                    EXPECT_EQ(temporary_files(), 1);
                    GtkWindow* window = GTK_WINDOW(Qw_WorkingWindow);
                    EXPECT_TRUE(gtk_window_get_modal(window));
                    EXPECT_EQ(gtk_window_get_transient_for(window), GTK_WINDOW(Qw_Window));
                    EXPECT_STREQ(gtk_window_get_title(window), "KVO Working...");
                    EXPECT_EQ(gtk_grab_get_current(), Qw_WorkingWindow);
                    EXPECT_STREQ(label(), "First");
                    gate.let_pass();
                  })
      .when_shown("  two\n",
                  [&] {
                    // The window manager's close button.
                    GtkWidget* before = Qw_WorkingWindow;
                    Shown_dialog(Qw_WorkingWindow).close();
                    EXPECT_EQ(Qw_WorkingWindow, before);
                    EXPECT_TRUE(gtk_widget_get_visible(before));
                    EXPECT_EQ(gtk_grab_get_current(), before);
                    gate.let_pass();
                  })
      .when_shown("  no end\n", [&] { gate.let_pass(); })
      .when_shown("Last...", [&] {
        EXPECT_STREQ(label(), "Last");
        EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_WorkingWindow)), "KVO Working...");
        gate.let_pass();
      });
  kvo3_exec_core(false, "go");
  EXPECT_EQ(transcript(0), "go\nhh:mm:ss - First...  two\n  no end\nhh:mm:ss - Last...OK\n" + DONE);
  EXPECT_EQ(gtk_grab_get_current(), nullptr);
}

TEST(Runner, EndsWithBothPanesAtTheirEnds) {
  const Shell_fixture shell;
  std::string stream;
  for (int i = 0; i < 300; ++i) stream += "  line\n";
  shell.engine_writes(stream + "d\n");
  gtk_text_buffer_set_text(Qw_v_OutputBuffer[1], stream.c_str(), -1);
  Q_process_events();
  kvo3_exec_core(false, "go");
  Q_process_events();
  for (std::size_t pane = 0; pane < 2; ++pane) {
    GtkTextView* view = GTK_TEXT_VIEW(Qw_v_OutputView[pane]);
    GtkTextIter end;
    gtk_text_buffer_get_end_iter(Qw_v_OutputBuffer[pane], &end);
    GdkRectangle last{};
    GdkRectangle visible{};
    gtk_text_view_get_iter_location(view, &end, &last);
    gtk_text_view_get_visible_rect(view, &visible);
    EXPECT_GT(visible.y, 0) << pane;
    EXPECT_LE(last.y + last.height, visible.y + visible.height) << pane;
  }
}

TEST(Runner, ShowsVeryManyLines) {
  constexpr int LINES = 100000;
  const Shell_fixture shell;
  shell.engine_does("seq -f '  line %.0f' 1 100000; echo d");
  int alive = 0;
  const auto count = [](gpointer data) -> gboolean {
    ++*static_cast<int*>(data);
    return G_SOURCE_CONTINUE;
  };
  const Q_source counter(g_timeout_add(20, count, &alive));
  const std::clock_t start = std::clock();
  kvo3_exec_core(false, "go");
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 120) << "s of the processor's time";
  EXPECT_GT(alive, 5) << "the window was served meanwhile";
  std::string expected = "go\n";
  for (int i = 1; i <= LINES; ++i) expected += "  line " + std::to_string(i) + "\n";
  EXPECT_TRUE(pane_text(0).starts_with(expected));
}

/// Sends the entry a key event and tells whether it was handled.
bool send_key(const Test_panes& panes, GdkEventType type, guint key) {
  GdkEvent* event = gdk_event_new(type);
  event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(panes.entry())));
  event->key.keyval = key;
  const bool handled = gtk_widget_event(panes.entry(), event) != FALSE;
  gdk_event_free(event);
  return handled;
}

/// Presses and releases an Enter key in the entry.
void press_enter(const Test_panes& panes, guint key = GDK_KEY_Return) {
  send_key(panes, GDK_KEY_PRESS, key);
  send_key(panes, GDK_KEY_RELEASE, key);
}

std::vector<std::string> history(const Test_panes& panes) {
  std::vector<std::string> list;
  GtkTreeModel* model = gtk_combo_box_get_model(GTK_COMBO_BOX(panes.combo_box()));
  GtkTreeIter row;
  for (gboolean more = gtk_tree_model_get_iter_first(model, &row); more != FALSE;
       more = gtk_tree_model_iter_next(model, &row)) {
    char* raw = nullptr;
    gtk_tree_model_get(model, &row, 0, &raw, -1);
    list.emplace_back(Q_g_memory<char>(raw).get());
  }
  return list;
}

TEST(TypedCommand, RunsWhenAnEnterKeyIsReleased) {
  const Shell_fixture shell;
  shell.engine_does("echo d");
  GtkEntry* entry = GTK_ENTRY(shell.panes().entry());
  const guint enter_keys[] = {0xFF0D, 0xFF8D, 0xFE34, 0xFD1E};
  std::string shown;
  std::string recorded;
  std::vector<std::string> typed;
  for (std::size_t i = 0; i < std::size(enter_keys); ++i) {
    // The same command twice, in the manner of somebody who is not sure.
    const std::string number = std::to_string(i / 2);
    typed.push_back("  command   '<" + number + ">' ");
    gtk_entry_set_text(entry, typed.back().c_str());
    press_enter(shell.panes(), enter_keys[i]);
    shown.append("command '<").append(number).append(">'\n").append(DONE);
    recorded.append("# User command:\ncommand '<").append(number).append(">'\n\n");
    EXPECT_STREQ(gtk_entry_get_text(entry), "");
  }
  EXPECT_EQ(transcript(0), shown);
  EXPECT_EQ(pane_text(1), recorded);
  EXPECT_EQ(history(shell.panes()), typed);
}

TEST(TypedCommand, IsTextOfItsOwnKind) {
  struct Case {
    std::string typed;
    std::string shown;
    std::string recorded;
  };
  const Case cases[] = {
      {"", "", ""},
      {"   ", "", "# User command:\n"},
      {" # note", "# note\n", "# User command:\n"},
      {"go %s%n", "go %s%n\n" + DONE, "# User command:\ngo %s%n\n\n"},
  };
  const Shell_fixture shell;
  shell.engine_does("echo d");
  std::vector<std::string> typed;
  for (const Case& c : cases) {
    clear_pane(0);
    clear_pane(1);
    gtk_entry_set_text(GTK_ENTRY(shell.panes().entry()), c.typed.c_str());
    press_enter(shell.panes());
    if (!c.typed.empty()) typed.push_back(c.typed);
    EXPECT_EQ(transcript(0), c.shown) << c.typed;
    EXPECT_EQ(pane_text(1), c.recorded) << c.typed;
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(shell.panes().entry())), "") << c.typed;
  }
  EXPECT_EQ(history(shell.panes()), typed);
}

TEST(TypedCommand, StaysUnlessEnterGoesDownAndUpInIt) {
  const Shell_fixture shell;
  const Test_panes& panes = shell.panes();
  shell.engine_does("echo d");
  gtk_entry_set_text(GTK_ENTRY(panes.entry()), "go");
  for (const guint key : {GDK_KEY_a, GDK_KEY_Tab, GDK_KEY_Escape, GDK_KEY_KP_0, GDK_KEY_Linefeed,
                          GDK_KEY_space, GDK_KEY_Down})
    send_key(panes, GDK_KEY_RELEASE, key);
  // What closes a dialog on its way down comes up in the field.
  send_key(panes, GDK_KEY_RELEASE, GDK_KEY_Return);
  send_key(panes, GDK_KEY_PRESS, GDK_KEY_Return);
  GdkEvent* event = gdk_event_new(GDK_FOCUS_CHANGE);
  event->focus_change.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(panes.entry())));
  gtk_widget_event(panes.entry(), event);
  gdk_event_free(event);
  send_key(panes, GDK_KEY_RELEASE, GDK_KEY_KP_Enter);
  EXPECT_EQ(pane_text(0) + pane_text(1), "");
  EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(panes.entry())), "go");
  EXPECT_THAT(history(panes), IsEmpty());
}

/// Does something with the events after each change of the main pane in which the pop-up is not
/// there: between the echo of a command and the pop-up, and between the pop-up and the end of the
/// run.
class Without_pop_up {
 public:
  explicit Without_pop_up(std::function<void()> action) : action_(std::move(action)) {
    const auto on_change = +[](GtkTextBuffer*, Without_pop_up* self) {
      if (!Q_busy && !self->inside_) self->next_ = Q_source(g_idle_add(act, self));
    };
    g_signal_connect(Qw_v_OutputBuffer[0], "changed", G_CALLBACK(on_change), this);
  }
  Without_pop_up(const Without_pop_up&) = delete;
  Without_pop_up& operator=(const Without_pop_up&) = delete;
  ~Without_pop_up() { EXPECT_GE(times_, 2); }

 private:
  static gboolean act(gpointer data) {
    auto& self = *static_cast<Without_pop_up*>(data);
    self.next_.forget();
    self.inside_ = true;
    ++self.times_;
    self.action_();
    self.inside_ = false;
    return G_SOURCE_REMOVE;
  }

  std::function<void()> action_;
  Q_source next_;
  bool inside_ = false;
  int times_ = 0;
};

TEST(Runner, BeginsNoRunInsideAnother) {
  const Shell_fixture shell;
  GtkEntry* entry = GTK_ENTRY(shell.panes().entry());
  shell.engine_does("echo $1 >> runs; exit 3");
  const Without_pop_up meanwhile([&] {
    gtk_entry_set_text(entry, "typed");
    press_enter(shell.panes());
    EXPECT_STREQ(gtk_entry_get_text(entry), "typed");
    EXPECT_FALSE(kvo3_exec_core(true, "called"));
  });
  gtk_entry_set_text(entry, "go");
  press_enter(shell.panes());
  EXPECT_EQ(read_text("runs"), "go\n");
  EXPECT_EQ(pane_text(1), "# User command:\ngo\n\n");
  EXPECT_THAT(pane_text(0), HasSubstr("The command 'called' has not been run"));
  EXPECT_EQ(Qw_WorkingWindow, nullptr);
  EXPECT_EQ(gtk_grab_get_current(), nullptr);
}

}  // namespace
