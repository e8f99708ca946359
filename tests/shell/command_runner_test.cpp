// Commands run through small engines that the tests write: what the console shows of their streams,
// and what the user can and cannot do meanwhile.

#include "shell/command_runner.h"

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include <ctime>

#include "dialog_driver.h"
#include "logged_warnings.h"
#include "scripted_engine.h"
#include "shell/busy.h"

namespace {

using testing::HasSubstr;
using Texts = std::vector<std::string>;

const std::string DONE = "hh:mm:ss - DONE\n\n";

/// What the console shows when the engine is gone for a reason.
std::string gone(const std::string& why) {
  return "\nWARNING: The engine ended before it finished (" + why + ")\n\n";
}

/// Both panes after a command.
struct Shown {
  std::string console, batch;
  bool operator==(const Shown&) const = default;
};

Shown shown_of(const std::string& command, bool record = false) {
  clear_pane(0);
  clear_pane(1);
  kvo3_exec_core(record, "%s", command.c_str());
  EXPECT_EQ(temporary_files(), 0);
  EXPECT_FALSE(Q_busy);
  EXPECT_EQ(Qw_WorkingWindow, nullptr);
  return {transcript(0), pane_text(1)};
}

TEST(Runner, ShowsEachKindOfLine) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::tuple<std::string, std::string, std::size_t> cases[] = {
      // The stream, what is shown, and how many lines are logged for not being valid markup.
      {"aReading\n.\n.\no\na<b>R</b>\no\nd\n",
       "hh:mm:ss - Reading.....OK\nhh:mm:ss - R...OK\n" + DONE, 0},
      {"cby the user\n\n  100%s %n &lt;\n  <b>b</b>\ndone and more\nnot read any more\n",
       "hh:mm:ss - CANCELLED\n\n  100%s %n <\n  b\n" + DONE, 0},
      {"WARNING: No maps.\n", "\nWARNING: No maps.\n\n", 0},
      {"wNo maps.\n", "WARNING: No maps.\n\n", 0},
      // What stands behind a zero byte is no text; the line itself and the next ones are.
      {std::string("  a\0b\n  c\nd\0\n", 13), "  a\n  c\n" + DONE, 0},
      // Lines that are no valid markup are lost, one by one.
      {"  1\n  a < b\n  2\n  a & b\n  3\n  <b>\n  4\n  </b>\n  \xE9\na<\nwa & b\n",
       "  1\n  2\n  3\n  4\n\n", 7},
      {full + full + "yz\nd\n", full + "\n" + full + "\nyz\n" + DONE, 0},
      {"aReading\n.\n  x", "hh:mm:ss - Reading....  x\n" + gone("exit status 0"), 0},
      {"", gone("exit status 0"), 0},
  };
  const Shell_fixture shell;
  for (const auto& [stream, shown, warnings] : cases) {
    shell.engine_writes(stream);
    const Logged_warnings log;
    const std::string console = shown_of("go").console;
    EXPECT_TRUE(console == "go\n" + shown) << testing::PrintToString(console.substr(0, 300));
    EXPECT_EQ(log.messages.size(), warnings) << testing::PrintToString(stream.substr(0, 300));
  }
}

TEST(Runner, SaysWhyTheEngineIsGone) {
  const std::string said = "  /bin/sh: 1: Syntax error: ";
  const std::tuple<const char*, std::string, std::string> cases[] = {
      // What the engine does (none: there is no engine), the command, and what is shown.
      {"echo '  x'; exit 3", "go", "  x\n" + gone("exit status 3")},
      {"echo '  x'; kill -9 $$", "go", "  x\n" + gone("signal 9 (Killed)")},
      {"echo 'd'", "go & & \"a\"", said + "\"&\" unexpected\n" + gone("exit status 2")},
      {"echo 'd'", "go 'it", said + "Unterminated quoted string\n" + gone("exit status 2")},
      {"", "go", gone("exit status 127, the program was not found")},
      {"echo 'WARNING: own words'; exit 1", "go", "\nWARNING: own words\n\n"},
      // Not the engine itself has the last word, but all that it started.
      {"(sleep 0.3; echo '  child'; echo d) & exit 4", "go", "  child\n" + DONE},
  };
  const Shell_fixture shell;
  testing::internal::CaptureStderr();  // the shell's own complaints
  for (const auto& [script, command, shown] : cases) {
    std::filesystem::remove(shell.engine());
    if (*script != '\0') shell.engine_does(script);
    EXPECT_EQ(shown_of(command).console, std::string(command).append("\n").append(shown)) << script;
  }
  std::filesystem::permissions(shell.engine(), std::filesystem::perms(0644));
  const std::string console = shown_of("go").console;
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(console, "go\n" + gone("exit status 126, the program could not be started"));
}

TEST(Runner, HandsCommandsToTheShellAndRecordsThem) {
  const std::tuple<std::string, Shown, const char*> cases[] = {
      // What is run, what the panes show, and the words that the engine gets.
      {"  pp \t a,\n0.0", {"pp a, 0.0\n" + DONE, "pp a, 0.0\n\n"}, "pp\na,\n0.0\n"},
      {"mean \"a & b\" '<i>c</i>' %s $WORD",
       {"mean \"a & b\" '<i>c</i>' %s $WORD\n" + DONE, "mean \"a & b\" '<i>c</i>' %s $WORD\n\n"},
       "mean\na & b\n<i>c</i>\n%s\nfrom\noutside\n"},
      {" \t\n ", {"", ""}, ""},
      {"  #a <b> & `c`  with   blanks ", {"#a <b> & `c` with blanks\n", ""}, ""},
  };
  setenv("WORD", "from outside", 1);
  const Shell_fixture shell;
  shell.engine_does("for word; do printf '%s\\n' \"$word\" >> words; done; echo d");
  for (const auto& [text, shown, words] : cases) {
    write_text("words", "");
    EXPECT_TRUE(shown_of(text, true) == shown) << transcript(0) << pane_text(1);
    EXPECT_EQ(read_text("words"), words);
    EXPECT_EQ(shown_of(text, false).batch, "");
  }
}

TEST(Runner, ShowsLinesAsTheyComeUnderAModalPopUp) {
  const Shell_fixture shell;
  const Gate gate;
  write_text("odd", "a\xE9\na" + std::string(Q_STRING_MAX - 10, 'x') + "\n");
  shell.engine_does(
      "echo aFirst; read l < gate; echo '  two'; read l < gate; printf '  no end';"
      "read l < gate; echo; cat odd; read l < gate; echo aLast; read l < gate; echo o; echo d");
  const auto label = [] { return gtk_label_get_text(GTK_LABEL(Qw_WorkingWindowLabel)); };
  const auto let_pass = [&gate] { gate.let_pass(); };
  Meanwhile meanwhile;
  meanwhile
      .when_shown("First...",
                  [&] {
                    EXPECT_TRUE(Q_busy);
                    EXPECT_EQ(temporary_files(), 1);
                    GtkWindow* window = GTK_WINDOW(Qw_WorkingWindow);
                    EXPECT_TRUE(gtk_window_get_modal(window));
                    EXPECT_EQ(gtk_window_get_transient_for(window), GTK_WINDOW(Qw_Window));
                    EXPECT_STREQ(label(), "First");
                    let_pass();
                  })
      .when_shown("  two\n",
                  [&] {
                    GtkWidget* before = Qw_WorkingWindow;
                    Shown_dialog(before).close();
                    EXPECT_EQ(Qw_WorkingWindow, before);
                    EXPECT_TRUE(gtk_widget_get_visible(before));
                    EXPECT_EQ(gtk_grab_get_current(), before);
                    let_pass();
                  })
      .when_shown("  no end\n", let_pass)
      .when_shown("xxx...",
                  [&] {
                    GtkRequisition wanted;
                    gtk_widget_size_request(Qw_WorkingWindow, &wanted);
                    EXPECT_LE(wanted.width, gdk_screen_width());
                    let_pass();
                  })
      .when_shown("Last...", [&] {
        EXPECT_STREQ(label(), "Last");
        EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_WorkingWindow)), "KVO Working...");
        let_pass();
      });
  const Logged_warnings log;
  const std::string console = shown_of("go").console;
  EXPECT_TRUE(console.starts_with("go\nhh:mm:ss - First...  two\n  no end\nhh:mm:ss - "));
  EXPECT_TRUE(console.ends_with("xxx...hh:mm:ss - Last...OK\n" + DONE));
  EXPECT_THAT(log.messages, testing::ElementsAre(HasSubstr("Invalid markup string")));
  EXPECT_EQ(gtk_grab_get_current(), nullptr);
}

TEST(Runner, ShowsVeryManyLinesWithBothPanesAtTheirEnds) {
  constexpr int LINES = 20000;
  const Shell_fixture shell;
  shell.engine_does("seq -f '  line %.0f' 1 20000; echo d");
  gtk_text_buffer_set_text(Qw_v_OutputBuffer[1], std::string(300, '\n').c_str(), -1);
  int alive = 0;
  const auto count = [](gpointer data) -> gboolean {
    ++*static_cast<int*>(data);
    return G_SOURCE_CONTINUE;
  };
  const Q_source counter(g_timeout_add(20, count, &alive));
  const std::clock_t start = std::clock();
  kvo3_exec_core(false, "go");
  EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 25) << "s of the processor's time";
  EXPECT_GT(alive, 5) << "the window was served meanwhile";
  std::string expected = "go\n";
  for (int i = 1; i <= LINES; ++i) expected += "  line " + std::to_string(i) + "\n";
  EXPECT_TRUE(pane_text(0).starts_with(expected));
  Q_process_events();
  for (std::size_t pane = 0; pane < 2; ++pane) {
    const GtkAdjustment* place =
        gtk_text_view_get_vadjustment(GTK_TEXT_VIEW(Qw_v_OutputView[pane]));
    EXPECT_GT(place->value, 0) << pane;
    EXPECT_GE(place->value + place->page_size, place->upper) << pane;
  }
}

/// Sends the entry a key event.
void send_key(const Test_panes& panes, GdkEventType type, guint key) {
  GdkEvent* event = gdk_event_new(type);
  event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(panes.entry())));
  event->key.keyval = key;
  gtk_widget_event(panes.entry(), event);
  gdk_event_free(event);
}

/// Types a command and an Enter key; what is left in the entry.
std::string type(const Test_panes& panes, const std::string& command, guint key = GDK_KEY_Return) {
  gtk_entry_set_text(GTK_ENTRY(panes.entry()), command.c_str());
  send_key(panes, GDK_KEY_PRESS, key);
  send_key(panes, GDK_KEY_RELEASE, key);
  return gtk_entry_get_text(GTK_ENTRY(panes.entry()));
}

Texts history(const Test_panes& panes) {
  Texts list;
  const auto add = [](GtkTreeModel* model, GtkTreePath*, GtkTreeIter* row,
                      gpointer texts) -> gboolean {
    char* raw = nullptr;
    gtk_tree_model_get(model, row, 0, &raw, -1);
    static_cast<Texts*>(texts)->emplace_back(Q_g_memory<char>(raw).get());
    return FALSE;
  };
  gtk_tree_model_foreach(gtk_combo_box_get_model(GTK_COMBO_BOX(panes.combo_box())), add, &list);
  return list;
}

TEST(TypedCommand, RunsWhenAnEnterKeyIsReleased) {
  const std::tuple<guint, std::string, Shown> cases[] = {
      {0xFF0D, "  go   '<1>' ", {"go '<1>'\n" + DONE, "# User command:\ngo '<1>'\n\n"}},
      {0xFF8D, "  go   '<1>' ", {"go '<1>'\n" + DONE, "# User command:\ngo '<1>'\n\n"}},
      {0xFE34, " # note", {"# note\n", "# User command:\n"}},
      {0xFD1E, "go %s%n", {"go %s%n\n" + DONE, "# User command:\ngo %s%n\n\n"}},
      {0xFF0D, "   ", {"", "# User command:\n"}},
      {0xFF0D, "", {"", ""}},
  };
  const Shell_fixture shell;
  shell.engine_does("echo d");
  Texts typed;
  for (const auto& [key, command, shown] : cases) {
    clear_pane(0);
    clear_pane(1);
    EXPECT_EQ(type(shell.panes(), command, key), "") << command;
    if (!command.empty()) typed.push_back(command);
    EXPECT_TRUE((Shown{transcript(0), pane_text(1)} == shown)) << transcript(0) << pane_text(1);
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
  EXPECT_THAT(history(panes), testing::IsEmpty());
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
  shell.engine_does("echo $1 >> runs; exit 3");
  const Without_pop_up meanwhile([&] {
    EXPECT_EQ(type(shell.panes(), "typed"), "typed");
    EXPECT_FALSE(kvo3_exec_core(true, "called"));
  });
  type(shell.panes(), "go");
  EXPECT_EQ(read_text("runs"), "go\n");
  EXPECT_EQ(pane_text(1), "# User command:\ngo\n\n");
  EXPECT_THAT(pane_text(0), HasSubstr("The command 'called' has not been run"));
  EXPECT_EQ(Qw_WorkingWindow, nullptr);
  EXPECT_EQ(gtk_grab_get_current(), nullptr);
}

}  // namespace
