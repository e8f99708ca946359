// Texts and lists of texts: limits, formatting, normalisation, escaping, search and order.

#include "util/text.h"

#include <glib.h>
#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "util/q_string.h"

namespace {

using testing::ElementsAre;

/// Counts the warnings that are logged while it exists, instead of showing them.
class Warnings {
 public:
  Warnings() : before_(g_log_set_default_handler(count, this)) {}
  Warnings(const Warnings&) = delete;
  Warnings& operator=(const Warnings&) = delete;
  ~Warnings() { g_log_set_default_handler(before_, nullptr); }
  int number = 0;

 private:
  static void count(const gchar*, GLogLevelFlags level, const gchar*, gpointer self) {
    if ((level & G_LOG_LEVEL_WARNING) != 0) ++static_cast<Warnings*>(self)->number;
  }
  GLogFunc before_;
};

TEST(Utf8Cut, NeverEndsInsideACharacter) {
  struct Case {
    std::string text;
    std::size_t limit;
    std::size_t cut;
  };
  const Case cases[] = {
      {"", 0, 0},
      {"abc", 3, 3},
      {"abc", 2, 2},
      {"abc", 0, 0},
      {"a\u00E9", 2, 1},       // 2 bytes
      {"a\u00E9b", 3, 3},      // fits exactly
      {"\u20AC\u20AC", 5, 3},  // 3 bytes
      {"\u20AC\u20AC", 4, 3},
      {"\u20AC\u20AC", 3, 3},
      {"\u20AC", 2, 0},
      {"x\U0001F9E0", 4, 1},  // 4 bytes
      {"x\U0001F9E0", 2, 1},
      {"x\U0001F9E0y", 5, 5},
      {"\xFF\xFF\xFF", 2, 2},              // no characters at all
      {"\x80\x80\x80\x80\x80\x80", 5, 5},  // only continuations
      {"\xF0\x9F"
       "abc",
       3, 3},  // a torn character that is followed by text
  };
  for (const Case& c : cases)
    EXPECT_EQ(Q_utf8_cut(c.text, c.limit), c.cut)
        << testing::PrintToString(c.text) << " at " << c.limit;
}

TEST(QString, IsCutAtItsLimitWithAWarning) {
  const std::string full(Q_STRING_MAX, 'x');
  struct Case {
    std::string start;
    std::string added;
    std::size_t size;
    int warnings;
  };
  const Case cases[] = {
      {"", full, Q_STRING_MAX, 0},
      {"", full + "y", Q_STRING_MAX, 1},
      {"", std::string(2000000, 'x'), Q_STRING_MAX, 1},
      {full, "", Q_STRING_MAX, 0},
      {full, "y", Q_STRING_MAX, 1},
      {full.substr(2), "\u00E9", Q_STRING_MAX, 0},
      {full.substr(1), "\u00E9", Q_STRING_MAX - 1, 1},
      {full.substr(3), "\U0001F9E0", Q_STRING_MAX - 3, 1},
  };
  for (const Case& c : cases) {
    const auto described = [&c] {
      return std::to_string(c.start.size()) + " + " + std::to_string(c.added.size());
    };
    const Warnings warnings;
    Q_string text(c.start);
    text.append(c.added);
    EXPECT_EQ(text.size(), c.size) << described();
    EXPECT_EQ(text.str(), (c.start + c.added).substr(0, c.size)) << described();
    EXPECT_EQ(warnings.number, c.warnings) << described();
  }
  const Warnings warnings;
  Q_string appended("ab");
  Q_strcat(appended, "%s\n", full.c_str());
  EXPECT_EQ(appended.str(), "ab" + full.substr(2));
  EXPECT_EQ(Q_format("%s%s", full.c_str(), "y").str(), full);
  EXPECT_EQ(Q_malloc_string("%s!", full.c_str()), full);
  EXPECT_EQ(warnings.number, 4)
      << "the appended text was cut twice: alone and at the end of the other";
}

TEST(QString, IsFormattedOnce) {
  EXPECT_EQ(Q_format("%s", "100%s %n %d").str(), "100%s %n %d");
  Q_string text("a");
  Q_strcat(text, "%s", "%d%%");
  EXPECT_EQ(text.str(), "a%d%%");
  EXPECT_EQ(Q_malloc_string("%s-%i", "%s", 7), "%s-7");
  EXPECT_EQ(Q_get_string_pos(2, {"a", "%s"}, "%s", "%s"), 1);
}

TEST(Trim, NormalisesWhiteSpace) {
  struct Case {
    std::string text;
    std::string trimmed;
  };
  const Case cases[] = {
      {"", ""},
      {" \t\n\v\f\r", ""},
      {"  a \t b  ", "a b"},
      {"a", "a"},
      {"a\nb", "a b"},
      {"\ta\v\fb\r\n", "a b"},
      {"a\u00A0b", "a\u00A0b"},  // a no-break space is no white space of the C locale
      {"\xFF a", "\xFF a"},
  };
  for (const Case& c : cases) {
    Q_string text(c.text);
    Q_trim(text);
    EXPECT_EQ(text.str(), c.trimmed) << testing::PrintToString(c.text);
  }
}

TEST(ReplaceEscape, MakesNamesSafe) {
  struct Case {
    std::string text;
    std::string safe;
  };
  const Case cases[] = {
      {"mean 1: a/b", "mean_1._a-b"},
      {"\"*+<=>/|[\\]&'", "-------------"},
      {":;?!,", "....."},
      {"  ", "__"},
      {"", ""},
      {"Aa09._-(){}#%$`~^\t\u00E9", "Aa09._-(){}#%$`~^\t\u00E9"},
  };
  for (const Case& c : cases) {
    Q_string text(c.text);
    Q_replace_escape(text);
    EXPECT_EQ(text.str(), c.safe) << c.text;
  }
}

TEST(MarkupEscape, ShowsAnyBytesLiterally) {
  struct Case {
    std::string text;
    std::string markup;
  };
  const Case cases[] = {
      {"", ""},
      {"a<b>&\"c'", "a&lt;b&gt;&amp;&quot;c&apos;"},
      {"&amp;", "&amp;amp;"},
      {"\u00E9", "\u00E9"},
      {"a\xE9z", "a\uFFFDz"},
      {std::string("a\0b", 3),
       "a\uFFFD"
       "b"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Q_markup_escape(c.text), c.markup) << testing::PrintToString(c.text);
}

TEST(StringList, IsFilledFromTexts) {
  Q_string_list list{"old"};
  Q_malloc_vs_string(list, 0, "unused");
  EXPECT_THAT(list, ElementsAre("old"));
  Q_malloc_vs_string(list, 3, "study", "%s", "");
  EXPECT_THAT(list, ElementsAre("study", "%s", ""));
  Q_malloc_vs_string(list, 1, "n1");
  EXPECT_THAT(list, ElementsAre("n1", "%s", ""));
}

TEST(StringList, IsSearched) {
  const Q_string_list list{"b", "a", "b", "", "B"};
  struct Case {
    int n;
    const char* text;
    int position;
  };
  const Case cases[] = {{5, "b", 0},  {5, "B", 4},   {4, "B", -1},  {5, "", 3},
                        {0, "b", -1}, {-1, "b", -1}, {99, "c", -1}, {5, "b ", -1}};
  for (const Case& c : cases)
    EXPECT_EQ(Q_get_string_pos(c.n, list, "%s", c.text), c.position)
        << c.n << " '" << c.text << "'";
}

TEST(StringList, IsSortedInByteOrder) {
  struct Case {
    int n;
    Q_string_list list;
    Q_string_list sorted;
  };
  const Case cases[] = {
      {5, {"a", "B", "9", "10", ""}, {"", "10", "9", "B", "a"}},
      {2, {"b", "a", "0"}, {"a", "b", "0"}},
      {0, {"b", "a"}, {"b", "a"}},
      {-1, {"b", "a"}, {"b", "a"}},
      {2, {"\u00E9", "z"}, {"z", "\u00E9"}},  // bytes above 127 come last
      {2, {"ab", "a"}, {"a", "ab"}},
      {9, {"b", "a"}, {"a", "b"}},
  };
  for (const Case& c : cases) {
    Q_string_list list = c.list;
    Q_sort_string_asc(c.n, list);
    EXPECT_EQ(list, c.sorted) << c.n << " of " << testing::PrintToString(c.list);
  }
}

}  // namespace
