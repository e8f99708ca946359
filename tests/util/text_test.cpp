// Texts and lists of texts: limits, formatting, normalisation, numbers, escaping, search and order.

#include "util/text.h"

#include <gmock/gmock.h>

#include <cmath>

#include "each.h"
#include "logged_warnings.h"

namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;

/// Where a text is cut at each limit from 0 to its size.
std::vector<std::size_t> cuts(const std::string& text) {
  std::vector<std::size_t> all;
  for (std::size_t limit = 0; limit <= text.size(); ++limit) all.push_back(Q_utf8_cut(text, limit));
  return all;
}

TEST(Utf8Cut, NeverEndsInsideACharacter) {
  expect_each<std::string, std::vector<std::size_t>>(
      cuts, {{"", {0}},
             {"abc", {0, 1, 2, 3}},
             {"a\u00E9b", {0, 1, 1, 3, 4}},
             {"\u20AC\u20AC", {0, 0, 0, 3, 3, 3, 6}},
             {"x\U0001F9E0y", {0, 1, 1, 1, 1, 5, 6}},
             {"\xFF\xFF", {0, 1, 2}},  // no characters at all
             {"\x80\x80\x80\x80\x80\x80", {0, 1, 2, 3, 4, 5, 6}},
             {"\xF0\x9F!", {0, 0, 2, 3}}});  // a torn one
}

TEST(QString, IsCutAtItsLimitWithAWarning) {
  const std::string full(Q_STRING_MAX, 'x');
  const std::tuple<std::string, std::string, std::size_t> cases[] = {
      // The text, what is added, and how many bytes there are then.
      {"", full, Q_STRING_MAX},
      {"", full + "y", Q_STRING_MAX},
      {full, "", Q_STRING_MAX},
      {full, "y", Q_STRING_MAX},
      {full.substr(2), "\u00E9", Q_STRING_MAX},
      {full.substr(1), "\u00E9", Q_STRING_MAX - 1},
      {full.substr(3), "\U0001F9E0", Q_STRING_MAX - 3}};
  for (const auto& [start, added, size] : cases) {
    const Logged_warnings log;
    Q_string text(start);
    text.append(added);
    EXPECT_TRUE(text.str() == (start + added).substr(0, size)) << text.size();
    EXPECT_EQ(log.messages.size(), size < start.size() + added.size() ? 1U : 0U) << size;
  }
  const Logged_warnings log;
  Q_string appended("ab");
  Q_strcat(appended, "%s", full.c_str());
  EXPECT_TRUE(appended.str() == "ab" + full.substr(2));
  EXPECT_TRUE(Q_format("%s%s", full.c_str(), "y").str() == full);
  EXPECT_TRUE(Q_malloc_string("%s!", full.c_str()) == full);
  EXPECT_EQ(log.messages.size(), 3U);
}

TEST(Text, IsParted) {
  // A no-break space is no white space of the C locale.
  expect_each<std::string, Texts>(
      [](const std::string& text) {
        Q_string trimmed(text);
        Q_trim(trimmed);
        const auto words = Q_words(text);
        Texts parts(words.begin(), words.end());
        parts.push_back(trimmed.str());
        parts.emplace_back(Q_stripped(text));
        return parts;
      },
      {{"", {"", ""}},
       {" \t\n\v\f\r", {"", ""}},
       {"a", {"a", "a", "a"}},
       {"  a \t b  ", {"a", "b", "a b", "a \t b"}},
       {"\ta\v\fb\r\nc", {"a", "b", "c", "a b c", "a\v\fb\r\nc"}},
       {"a\u00A0b", {"a\u00A0b", "a\u00A0b", "a\u00A0b"}},
       {"\xFF a", {"\xFF", "a", "\xFF a", "\xFF a"}}});
}

TEST(Text, BeginsWithADecimalNumber) {
  std::vector<double> numbers;
  for (const char* text : {"", "abc", "- 7", "+-7", "0x10", "1e-999", "4.32", " \t\n-.5e1x", "+7",
                           "4,3", "1e", "-1e999 ", "infinite"})
    numbers.push_back(Q_leading_number(text));
  EXPECT_THAT(numbers, ElementsAre(0, 0, 0, 0, 0, 0, 4.32, -5, 7, 4, 1, -HUGE_VAL, HUGE_VAL));
}

TEST(Text, Counts) {
  EXPECT_EQ(Q_counted(1, "line", "lines") + Q_counted(0, " x", " ys"), "1 line0  ys");
  Texts counts;
  for (const std::size_t count : {9999U, 10000U, 123456U, 123456789U, 1234567890U})
    counts.push_back(Q_count_text(count));
  EXPECT_THAT(counts, ElementsAre("9999", "10\u202F000", "123\u202F456", "123\u202F456\u202F789",
                                  "1\u202F234\u202F567\u202F890"));
}

TEST(Text, IsMadeSafe) {
  expect_each<std::string, std::string>(
      [](const std::string& text) {
        Q_string safe(text);
        Q_replace_escape(safe);
        return safe.str();
      },
      {{"mean 1: a/b", "mean_1._a-b"},
       {"\"*+<=>/|[\\]&'", "-------------"},
       {":;?!,  ", ".....__"},
       {"Aa09._-(){}#%$`~^\t\u00E9", "Aa09._-(){}#%$`~^\t\u00E9"}});
  expect_each<std::string, std::string>(Q_markup_escape,
                                        {{"a<b>&\"c'", "a&lt;b&gt;&amp;&quot;c&apos;"},
                                         {"&amp;", "&amp;amp;"},
                                         {"\u00E9\xE9", "\u00E9\uFFFD"},
                                         {std::string("a\0z", 3), "a\uFFFDz"}});
}

TEST(StringList, IsFilledSearchedAndSortedUpToACount) {
  Q_string_list list{"old"};
  Q_malloc_vs_string(list, 0, "unused");
  EXPECT_THAT(list, ElementsAre("old"));
  Q_malloc_vs_string(list, 4, "study", "%s", "", "%s");
  EXPECT_THAT(list, ElementsAre("study", "%s", "", "%s"));
  Q_malloc_vs_string(list, 1, "n1");
  EXPECT_THAT(list, ElementsAre("n1", "%s", "", "%s"));

  EXPECT_EQ(Q_get_string_pos(4, list, "%s", "%s"), 1);
  EXPECT_EQ(Q_get_string_pos(99, list, "%s", ""), 2);
  for (const int n : {2, 0, -1}) EXPECT_EQ(Q_get_string_pos(n, list, "%s", ""), -1) << n;
  EXPECT_EQ(Q_get_string_pos(99, list, "N1"), -1);

  // Bytes above 127 come last.
  const Texts texts{"b", "\u00E9", "a", "ab", "B", "10", "9", ""};
  expect_each<int, Texts>(
      [&texts](int n) {
        Texts sorted = texts;
        Q_sort_string_asc(n, sorted);
        return sorted;
      },
      {{-1, texts},
       {0, texts},
       {3, {"a", "b", "\u00E9", "ab", "B", "10", "9", ""}},
       {99, {"", "10", "9", "B", "a", "ab", "b", "\u00E9"}}});
}

}  // namespace
