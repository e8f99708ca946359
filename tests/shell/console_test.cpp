// What prints leave in a pane's buffer: text, tags, time stamps; and the frame around a pane.

#include "shell/console.h"

#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "logged_warnings.h"
#include "panes.h"
#include "shell/busy.h"
#include "shell/markup.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

GtkTextBuffer* console() {
  return Qw_v_OutputBuffer[0];
}

/// A property's value as a text.
std::string property_text(GtkTextTag* tag, const std::string& name) {
  if (name.ends_with("ground")) {
    GdkColor* colour = nullptr;
    g_object_get(tag, (name + "-gdk").c_str(), &colour, nullptr);
    char digits[20];
    std::snprintf(digits, sizeof digits, "%04x%04x%04x", colour->red, colour->green, colour->blue);
    gdk_color_free(colour);
    return digits;
  }
  GValue value{};
  g_value_init(&value,
               g_object_class_find_property(G_OBJECT_GET_CLASS(tag), name.c_str())->value_type);
  g_object_get_property(G_OBJECT(tag), name.c_str(), &value);
  GValue text{};
  g_value_init(&text, G_TYPE_STRING);
  g_value_transform(&value, &text);
  std::string result = G_VALUE_HOLDS_ENUM(&value) ? std::to_string(g_value_get_enum(&value))
                                                  : std::string(g_value_get_string(&text));
  g_value_unset(&text);
  g_value_unset(&value);
  return result;
}

/// The properties that a tag sets, as "name=value" texts with single blanks between.
std::string tag_text(GtkTextTag* tag) {
  const std::string properties[] = {
      "language",   "family",     "style",     "weight",        "variant", "stretch", "size",
      "foreground", "background", "underline", "strikethrough", "rise",    "scale"};
  std::string text;
  for (const std::string& name : properties) {
    gboolean set = FALSE;
    g_object_get(tag, (name + "-set").c_str(), &set, nullptr);
    if (set == FALSE) continue;
    if (!text.empty()) text.append(" ");
    text.append(name).append("=").append(property_text(tag, name));
  }
  return text;
}

/// The buffer as pieces with the same tags: "text{properties}", one pair of braces a tag.
std::vector<std::string> runs(GtkTextBuffer* buffer) {
  std::vector<std::string> list;
  GtkTextIter start;
  gtk_text_buffer_get_start_iter(buffer, &start);
  while (!gtk_text_iter_is_end(&start)) {
    GtkTextIter end = start;
    gtk_text_iter_forward_to_tag_toggle(&end, nullptr);
    const Q_g_memory<char> text(gtk_text_iter_get_text(&start, &end));
    std::string run = text.get();
    GSList* tags = gtk_text_iter_get_tags(&start);
    for (GSList* node = tags; node != nullptr; node = node->next)
      run.append("{").append(tag_text(GTK_TEXT_TAG(node->data))).append("}");
    g_slist_free(tags);
    list.push_back(run);
    start = end;
  }
  return list;
}

int number_of_tags(GtkTextBuffer* buffer) {
  return gtk_text_tag_table_get_size(gtk_text_buffer_get_tag_table(buffer));
}

TEST(Print, TurnsMarkupIntoRunsWithTagsOfTheirOwn) {
  struct Case {
    const char* attributes;
    const char* markup;
    std::vector<std::string> runs;
  };
  const std::string grey = "foreground=666666666666";
  const Case cases[] = {
      {"", "plain\n", {"plain\n{}"}},
      {"", "<b>b</b>p", {"b{weight=700}", "p{}"}},
      {"", "a &lt;&amp;&gt; b", {"a <&> b{}"}},
      {Q_GREY, "two\nlines\n", {"two\nlines\n{" + grey + "}"}},
      {Q_GREY, "<b>OK</b>\n", {"OK{weight=700 " + grey + "}", "\n{" + grey + "}"}},
      {Q_BLUE, "x", {"x{foreground=00000000cccc}"}},
      {Q_RED, "x", {"x{foreground=ffff00000000}"}},
      {Q_ENGINE, "x", {"x{family=monospace foreground=000044442222}"}},
      {"", "<i>x</i>", {"x{style=2}"}},
      {"", "<s>x</s>", {"x{strikethrough=TRUE}"}},
      {"", "<u>x</u>", {"x{underline=1}"}},
      {"", "<span size='20480'>x</span>", {"x{size=20480}"}},
      {"", "<span rise='3'>x</span>", {"x{rise=3}"}},
      {"", "<span background='#010203'>x</span>", {"x{background=010102020303}"}},
      {"", "<span variant='smallcaps' stretch='condensed'>x</span>", {"x{variant=1 stretch=2}"}},
      {"", "<span lang='de'>x</span>", {"x{language=de}"}},
      {"", "", {}},
  };
  for (const Case& c : cases) {
    const Test_panes panes;
    Q_print(c.attributes, 0, "%s", c.markup);
    EXPECT_EQ(runs(console()), c.runs) << c.attributes << " " << c.markup;
    EXPECT_EQ(number_of_tags(console()), static_cast<int>(c.runs.size())) << c.markup;
  }
}

TEST(Print, GivesEachPrintNewTags) {
  const Test_panes panes;
  for (int i = 1; i <= 3; ++i) {
    Q_print(Q_GREY, 0, "same\n");
    EXPECT_EQ(number_of_tags(console()), i);
  }
  EXPECT_EQ(runs(console()).size(), 3U);
  EXPECT_EQ(number_of_tags(Qw_v_OutputBuffer[1]), 0);
}

TEST(Print, FormatsOnceAndAppendsToItsPane) {
  const Test_panes panes;
  Q_print("", 0, "%s %i\n", "%s%n", 7);
  Q_print("", 1, "batch\n");
  Q_print("", 0, "next");
  EXPECT_EQ(pane_text(0), "%s%n 7\nnext");
  EXPECT_EQ(pane_text(1), "batch\n");
}

TEST(Print, LosesInvalidMarkupAndKeepsThePane) {
  const Test_panes panes;
  Q_print("", 0, "before\n");
  for (const char* markup : {"a < b", "a & b", "<b>", "</b>", "<nosuch>x</nosuch>", "\xE9",
                             "</span><b>x</b>", "<span color='nosuch'>x</span>", "&nosuch;"}) {
    const Logged_warnings log;
    Q_print(Q_GREY, 0, "%s", markup);
    EXPECT_THAT(log.messages, ElementsAre(HasSubstr("Invalid markup string: "))) << markup;
    EXPECT_EQ(pane_text(0), "before\n") << markup;
  }
  Q_print("", 0, "after\n");
  EXPECT_EQ(pane_text(0), "before\nafter\n");
}

TEST(Print, KeepsTheEndOfAFullText) {
  const Test_panes panes;
  const std::string full(Q_STRING_MAX, 'x');
  Q_print(Q_ENGINE, 0, "%s\n", full.c_str());
  Q_print("", 0, "next");
  EXPECT_TRUE(pane_text(0) == full + "\nnext");
}

TEST(Print, ScrollsToItsEndAndHandlesAllEvents) {
  const Test_panes panes;
  GtkAdjustment* position = gtk_text_view_get_vadjustment(GTK_TEXT_VIEW(Qw_v_OutputView[0]));
  static int idles;
  idles = 0;
  const auto chain = [](gpointer data) -> gboolean {
    ++idles;
    return --*static_cast<int*>(data) > 0 ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
  };
  int left = 5;
  g_idle_add(chain, &left);
  for (int i = 0; i < 200; ++i) {
    Q_print("", 0, "line %i\n", i);
    EXPECT_EQ(idles, 5) << i;
    // The last line, an empty one, may still be on its way.
    EXPECT_GE(position->value + position->page_size + 40, position->upper) << i;
  }
  EXPECT_GT(position->value, 0);
  gtk_adjustment_set_value(position, 0);
  Q_print("", 0, "%s", "");
  EXPECT_GT(position->value, 0) << "an empty print scrolls too";
}

TEST(Print, LongWordsDoNotWidenTheWindow) {
  const Test_panes panes;
  const int width = Qw_Window->allocation.width;
  for (const std::size_t length : {2000U, 49000U}) {
    Q_print("", 0, "%s\n", std::string(length, 'x').c_str());
    EXPECT_EQ(Qw_Window->allocation.width, width) << length;
    GtkRequisition wanted;
    gtk_widget_size_request(Qw_Window, &wanted);
    EXPECT_LE(wanted.width, width) << length;
  }
}

TEST(PrintStamped, WritesTheLocalTime) {
  const Test_panes panes;
  const std::string stamp = "[0-2][0-9]:[0-5][0-9]:[0-6][0-9] - ";
  Q_print_action(0, "Reading %s", "a &lt; b");
  Q_print("", 0, ".");
  Q_print("", 0, ".");
  Q_print(Q_GREY, 0, "<b>OK</b>\n");
  Q_print_done(0);
  Q_print_cancelled(0);
  Q_print_warning(0, "No %s", "maps &amp; nothing");
  EXPECT_THAT(pane_text(0),
              MatchesRegex(stamp + "Reading a < b\\.\\.\\.\\.\\.OK\n" + stamp + "DONE\n\n" + stamp +
                           "CANCELLED\n\nWARNING: No maps & nothing\n"));
  const std::vector<std::string> all = runs(console());
  EXPECT_THAT(all[0], MatchesRegex(stamp + "\\{foreground=666666666666\\}"));
  EXPECT_EQ(all[1], "Reading a < b...{}");
  EXPECT_EQ(all.back(), "WARNING: No maps & nothing\n{foreground=ffff00000000}");
  EXPECT_THAT(all, testing::Contains("DONE{weight=700 foreground=666666666666}"));
  EXPECT_THAT(all, testing::Contains("CANCELLED{weight=700 foreground=666666666666}"));
}

TEST(PrintStamped, IsOfTheTimeOfPrinting) {
  const Test_panes panes;
  const std::time_t before = std::time(nullptr);
  Q_print_done(0);
  const std::time_t after = std::time(nullptr);
  std::vector<std::string> possible;
  for (std::time_t t = before; t <= after; ++t) {
    char text[40];
    std::strftime(text, sizeof text, "%H:%M:%S - DONE\n\n", std::localtime(&t));
    possible.emplace_back(text);
  }
  EXPECT_THAT(possible, testing::Contains(pane_text(0)));
}

TEST(Busy, LabelShowsTheLatestAction) {
  const Test_panes panes;
  Q_print_action(0, "not shown");
  Q_set_busy("KVO", true);
  const auto label = [] { return gtk_label_get_text(GTK_LABEL(Qw_WorkingWindowLabel)); };
  EXPECT_STREQ(label(), "KVO Working...");
  Q_print_action(0, "Reading <b>%s</b>", "%s");
  EXPECT_STREQ(label(), "Reading <b>%s</b>") << "as plain text";
  Q_print_action(0, "Reading Smith &amp; &lt;Doe&gt;");
  EXPECT_STREQ(label(), "Reading Smith & <Doe>");
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_WorkingWindow)), "KVO Working...");
  Q_set_busy("KVO", false);
  Q_print_action(0, "the label is gone");
}

TEST(SetMarkup, ReplacesTheContentUnlessItIsEmpty) {
  const Test_panes panes;
  gtk_text_buffer_set_text(console(), "old", -1);
  gtk_text_buffer_set_markup(console(), "%s", "");
  EXPECT_EQ(pane_text(0), "old");
  gtk_text_buffer_set_markup(console(), "<b>%s</b> %i", "new", 1);
  EXPECT_THAT(runs(console()), ElementsAre("new{weight=700}", " 1{}"));
  {
    const Logged_warnings log;
    gtk_text_buffer_set_markup(nullptr, "%s", "x");
    EXPECT_THAT(log.messages, ElementsAre(HasSubstr("GTK_IS_TEXT_BUFFER")));
  }
}

TEST(InsertMarkup, GoesToThePositionWithTheExtraTag) {
  const Test_panes panes;
  gtk_text_buffer_set_text(console(), "startend", -1);
  GtkTextTag* extra = gtk_text_buffer_create_tag(console(), "extra", "size", 5, nullptr);
  GtkTextIter position;
  gtk_text_buffer_get_iter_at_offset(console(), &position, 5);
  gtk_text_buffer_real_insert_markup(console(), &position, "<b>\u00E9</b>x", extra);
  EXPECT_THAT(runs(console()),
              ElementsAre("start", "\u00E9{size=5}{weight=700}", "x{size=5}{}", "end"));
  EXPECT_EQ(gtk_text_iter_get_offset(&position), 7) << "behind what was inserted";
  gtk_text_buffer_real_insert_markup(console(), &position, "", extra);
  gtk_text_buffer_insert(console(), &position, "!", -1);
  EXPECT_EQ(pane_text(0), "start\u00E9x!end");
}

TEST(InsertMarkup, LogsFailedPreconditionsOnly) {
  const Test_panes panes;
  GtkTextIter here;
  GtkTextIter elsewhere;
  gtk_text_buffer_get_start_iter(console(), &here);
  gtk_text_buffer_get_start_iter(Qw_v_OutputBuffer[1], &elsewhere);
  struct Case {
    GtkTextBuffer* buffer;
    GtkTextIter* position;
    const char* markup;
    const char* expression;
  };
  const Case cases[] = {
      {nullptr, nullptr, nullptr, "GTK_IS_TEXT_BUFFER (buffer)"},
      {console(), nullptr, nullptr, "textiter != NULL"},
      {console(), &here, nullptr, "markup != NULL"},
      {console(), &elsewhere, "x", "gtk_text_iter_get_buffer (textiter) == buffer"},
  };
  for (const Case& c : cases) {
    const Logged_warnings log;
    gtk_text_buffer_real_insert_markup(c.buffer, c.position, c.markup, nullptr);
    EXPECT_THAT(log.messages, ElementsAre(HasSubstr(c.expression)));
    EXPECT_EQ(pane_text(0) + pane_text(1), "") << c.expression;
  }
}

TEST(TextFrame, ScrollsVerticallyAndWrapsAtWords) {
  for (const bool editable : {false, true}) {
    GtkTextBuffer* buffer = gtk_text_buffer_new(nullptr);
    GtkWidget* view = gtk_text_view_new_with_buffer(buffer);
    g_object_unref(buffer);
    GtkWidget* frame = Q_input_new_textframe(buffer, view, editable);
    ASSERT_TRUE(GTK_IS_FRAME(frame));
    EXPECT_EQ(gtk_frame_get_label(GTK_FRAME(frame)), nullptr);
    GtkWidget* scrolled = gtk_bin_get_child(GTK_BIN(frame));
    ASSERT_TRUE(GTK_IS_SCROLLED_WINDOW(scrolled));
    GtkPolicyType horizontal{};
    GtkPolicyType vertical{};
    gtk_scrolled_window_get_policy(GTK_SCROLLED_WINDOW(scrolled), &horizontal, &vertical);
    EXPECT_EQ(horizontal, GTK_POLICY_NEVER);
    EXPECT_EQ(vertical, GTK_POLICY_ALWAYS);
    EXPECT_EQ(gtk_bin_get_child(GTK_BIN(scrolled)), view);
    GtkTextView* text_view = GTK_TEXT_VIEW(view);
    EXPECT_EQ(gtk_text_view_get_editable(text_view), editable ? TRUE : FALSE);
    EXPECT_EQ(gtk_text_view_get_cursor_visible(text_view), editable ? TRUE : FALSE);
    EXPECT_EQ(gtk_text_view_get_left_margin(text_view), 10);
    EXPECT_EQ(gtk_text_view_get_right_margin(text_view), 10);
    EXPECT_EQ(gtk_text_view_get_wrap_mode(text_view), GTK_WRAP_WORD);
    const GdkColor& background = gtk_widget_get_modifier_style(view)->bg[GTK_STATE_NORMAL];
    EXPECT_EQ(background.red, 65535);
    EXPECT_EQ(background.green, 65535);
    EXPECT_EQ(background.blue, 65535);
    g_object_ref_sink(frame);
    g_object_unref(frame);
  }
}

TEST(Title, IsReplacedAtOnce) {
  const Test_panes panes;
  Q_set_title("KVO v%.2f - %s", 4.31, "/a/%s");
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_Window)), "KVO v4.31 - /a/%s");
  Q_set_busy("KVO", true);
  Q_set_title("other");
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_Window)), "other");
  Q_set_busy("KVO", false);
}

}  // namespace
