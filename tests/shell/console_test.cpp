// What prints leave in a pane's buffer: text, tags, time stamps; and the frame around a pane.

#include "shell/console.h"

#include <gmock/gmock.h>

#include <map>
#include <regex>

#include "logged_warnings.h"
#include "panes.h"
#include "shell/busy.h"
#include "shell/markup.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

GtkTextBuffer* console() {
  return Qw_v_OutputBuffer[0];
}

int number_of_tags(GtkTextBuffer* buffer) {
  return gtk_text_tag_table_get_size(gtk_text_buffer_get_tag_table(buffer));
}

/// The buffer's text with what each tag sets in front of what it is on: "<weight=700>text</>".
std::string tagged_text(GtkTextBuffer* buffer) {
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(buffer, &start, &end);
  std::size_t length = 0;
  const Q_g_memory<guint8> data(gtk_text_buffer_serialize(
      buffer, buffer, gtk_text_buffer_register_serialize_tagset(buffer, nullptr), &start, &end,
      &length));
  const std::string xml(reinterpret_cast<const char*>(data.get()), length);
  const auto each = [](const std::string& text, const char* pattern, const auto& handle) {
    const std::regex regex(pattern);
    for (std::sregex_iterator it(text.begin(), text.end(), regex), none; it != none; ++it)
      handle(*it);
  };
  std::map<std::string, std::string> tags;  // what is set, by how the text names the tag
  each(xml, R"re(<tag ((?:id|name)="[^"]*") [^>]*>([^]*?)</tag>)re", [&](const std::smatch& tag) {
    std::string& set = tags[tag[1]];
    each(tag[2], R"re(name="(.*?)(?:-gdk)?" .*value="(.*?)")re", [&](const std::smatch& one) {
      set += (set.empty() ? "" : " ") + one[1].str() + "=" + one[2].str();
    });
  });
  std::string text = xml.substr(xml.find("<text>") + 6);
  text = text.substr(0, text.find("</text>\n"));
  for (const auto& [name, set] : tags)
    for (const std::string mark = "<apply_tag " + name + ">"; text.find(mark) != std::string::npos;)
      text.replace(text.find(mark), mark.size(), "<" + set + ">");
  return std::regex_replace(text, std::regex("</apply_tag>"), "</>");
}

TEST(Print, TurnsMarkupIntoRunsWithTagsOfTheirOwn) {
  const std::string grey = "foreground=6666:6666:6666";
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"", "plain\n", "<>plain\n</>"},
      {"", "<b>b</b>a &lt;&amp;", "<weight=700>b</><>a &lt;&amp;</>"},
      {Q_GREY, "<b>OK</b>\n", "<" + grey + " weight=700>OK</><" + grey + ">\n</>"},
      {Q_BLUE, "x", "<foreground=0:0:cccc>x</>"},
      {Q_RED, "x", "<foreground=ffff:0:0>x</>"},
      {Q_ENGINE, "x", "<foreground=0:4444:2222 family=monospace>x</>"},
      {"", "<i>x</i>", "<style=PANGO_STYLE_ITALIC>x</>"},
      {"", "<s>x</s>", "<strikethrough=TRUE>x</>"},
      {"", "<u>x</u>", "<underline=PANGO_UNDERLINE_SINGLE>x</>"},
      {"", "<span size='20480' rise='3'>x</span>", "<size=20480 rise=3>x</>"},
      {"", "<span background='#010203' lang='de'>x</span>",
       "<background=101:202:303 language=de>x</>"},
      {"", "<span variant='smallcaps' stretch='condensed'>x</span>",
       "<variant=PANGO_VARIANT_SMALL_CAPS stretch=PANGO_STRETCH_CONDENSED>x</>"},
      {"", "", ""},
  };
  for (const auto& [attributes, markup, tagged] : cases) {
    const Test_panes panes;
    Q_print(attributes, 0, "%s", markup);
    EXPECT_EQ(tagged_text(console()), tagged) << markup;
  }
}

TEST(Print, AppendsToItsPaneWithNewTags) {
  const std::string full(Q_STRING_MAX, 'x');
  const Test_panes panes;
  for (int i = 1; i <= 2; ++i) {
    Q_print(Q_GREY, 0, "%s\n", full.c_str());
    EXPECT_EQ(number_of_tags(console()), i);
  }
  Q_print("", Q_BATCH_PANE, "batch");
  Q_print("", Q_BATCH_PANE, "next line");
  EXPECT_TRUE(pane_text(0) == full + "\n" + full + "\n") << "a full text keeps its end";
  EXPECT_EQ(pane_text(1), "batch\nnext line");
}

TEST(Print, LosesInvalidMarkupAndKeepsThePane) {
  const Test_panes panes;
  Q_print("", 0, "before\n");
  for (const char* markup : {"a < b", "a & b", "<b>", "<nosuch>x</nosuch>", "\xE9",
                             "</span><b>x</b>", "<span color='nosuch'>x</span>", "&nosuch;"}) {
    const Logged_warnings log;
    Q_print(Q_GREY, 0, "%s", markup);
    EXPECT_THAT(log.messages, ElementsAre(HasSubstr("Invalid markup string: "))) << markup;
  }
  Q_print("", 0, "after\n");
  EXPECT_EQ(pane_text(0), "before\nafter\n");
}

TEST(Print, ScrollsToItsEndAndHandlesAllEvents) {
  const Test_panes panes;
  GtkAdjustment* position = gtk_text_view_get_vadjustment(GTK_TEXT_VIEW(Qw_v_OutputView[0]));
  int left = 5;
  const auto chain = [](gpointer number) -> gboolean { return --*static_cast<int*>(number) > 0; };
  g_idle_add(chain, &left);
  for (int i = 0; i < 200; ++i) {
    Q_print("", 0, "line %i\n", i);
    EXPECT_EQ(left, 0) << i;
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
  Q_print("", 0, "%s\n", std::string(49000, 'x').c_str());
  EXPECT_EQ(Qw_Window->allocation.width, width);
  GtkRequisition wanted;
  gtk_widget_size_request(Qw_Window, &wanted);
  EXPECT_LE(wanted.width, width);
}

TEST(PrintStamped, WritesTheLocalTime) {
  std::string printed;
  std::string right;
  // Once more when a second has begun between the print and the look at the clock.
  for (int tries = 0; tries < 10 && (tries == 0 || printed != right); ++tries) {
    const Test_panes panes;
    Q_print_action(0, "Reading %s", "a &lt; b");
    Q_print_done(0);
    Q_print_cancelled(0);
    Q_print_warning(0, "No %s", "maps &amp; nothing");
    printed = tagged_text(console());
    const std::time_t now = std::time(nullptr);
    char stamp[80];
    std::strftime(stamp, sizeof stamp, "<foreground=6666:6666:6666>%H:%M:%S - </>",
                  std::localtime(&now));
    right = Q_format(
                "%s<>Reading a &lt; b...</>%s<foreground=6666:6666:6666 weight=700>DONE</><>\n\n</>"
                "%s<foreground=6666:6666:6666 weight=700>CANCELLED</><>\n\n</>"
                "<foreground=ffff:0:0>WARNING: No maps &amp; nothing\n</>",
                stamp, stamp, stamp)
                .str();
  }
  EXPECT_EQ(printed, right);
}

TEST(Busy, HasALabelWithTheLatestAction) {
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
  Q_set_title("KVO v%.2f - %s", 4.31, "/a/%s");
  EXPECT_STREQ(gtk_window_get_title(GTK_WINDOW(Qw_Window)), "KVO v4.31 - /a/%s");
  Q_set_busy("KVO", false);
  Q_print_action(0, "the label is gone");
}

TEST(Markup, ReplacesTheContentOrGoesToThePosition) {
  const Test_panes panes;
  gtk_text_buffer_set_text(console(), "old", -1);
  gtk_text_buffer_set_markup(console(), "%s", "");
  EXPECT_EQ(pane_text(0), "old");
  gtk_text_buffer_set_markup(console(), "<b>%s</b> %i", "new", 1);
  EXPECT_EQ(tagged_text(console()), "<weight=700>new</><> 1</>");

  gtk_text_buffer_set_text(console(), "startend", -1);
  GtkTextTag* extra = gtk_text_buffer_create_tag(console(), "extra", "size", 5, nullptr);
  GtkTextIter position;
  gtk_text_buffer_get_iter_at_offset(console(), &position, 5);
  gtk_text_buffer_real_insert_markup(console(), &position, "<b>\u00E9</b>x", extra);
  EXPECT_THAT(tagged_text(console()),
              testing::StartsWith("start<weight=700><size=5>\u00E9</></><size=5><>x</></>"));
  gtk_text_buffer_real_insert_markup(console(), &position, "", extra);
  gtk_text_buffer_insert(console(), &position, "!", -1);
  EXPECT_EQ(pane_text(0), "start\u00E9x!end");
}

TEST(Markup, LogsFailedPreconditionsOnly) {
  const Test_panes panes;
  GtkTextIter here;
  GtkTextIter elsewhere;
  gtk_text_buffer_get_start_iter(console(), &here);
  gtk_text_buffer_get_start_iter(Qw_v_OutputBuffer[1], &elsewhere);
  const std::tuple<GtkTextBuffer*, GtkTextIter*, const char*, const char*> cases[] = {
      {nullptr, nullptr, nullptr, "GTK_IS_TEXT_BUFFER (buffer)"},
      {console(), nullptr, nullptr, "textiter != NULL"},
      {console(), &here, nullptr, "markup != NULL"},
      {console(), &elsewhere, "x", "gtk_text_iter_get_buffer (textiter) == buffer"}};
  for (const auto& [buffer, position, markup, expression] : cases) {
    const Logged_warnings log;
    gtk_text_buffer_real_insert_markup(buffer, position, markup, nullptr);
    EXPECT_THAT(log.messages, ElementsAre(HasSubstr(expression)));
    EXPECT_EQ(pane_text(0) + pane_text(1), "") << expression;
  }
  const Logged_warnings log;
  gtk_text_buffer_set_markup(nullptr, "%s", "x");
  EXPECT_THAT(log.messages, ElementsAre(HasSubstr("GTK_IS_TEXT_BUFFER")));
}

TEST(TextFrame, ScrollsVerticallyAndIsEditedOrNot) {
  const Test_panes panes;
  for (const std::size_t pane : {0U, 1U}) {
    GtkWidget* view = Qw_v_OutputView[pane];
    GtkPolicyType horizontal{};
    GtkPolicyType vertical{};
    gtk_scrolled_window_get_policy(GTK_SCROLLED_WINDOW(gtk_widget_get_parent(view)), &horizontal,
                                   &vertical);
    EXPECT_EQ(horizontal, GTK_POLICY_NEVER);
    EXPECT_EQ(vertical, GTK_POLICY_ALWAYS);
    EXPECT_EQ(gtk_text_view_get_editable(GTK_TEXT_VIEW(view)), pane == 1);
    EXPECT_EQ(gtk_text_view_get_cursor_visible(GTK_TEXT_VIEW(view)), pane == 1);
    EXPECT_EQ(gtk_text_view_get_wrap_mode(GTK_TEXT_VIEW(view)), GTK_WRAP_WORD);
  }
}

}  // namespace
