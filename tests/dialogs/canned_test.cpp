// The ready-made dialogs, answered on a real display.

#include "dialogs/canned.h"

#include <gmock/gmock.h>

#include "dialog_driver.h"
#include "dialogs/frame.h"
#include "dialogs/help.h"
#include "dialogs/message.h"
#include "test_folder.h"

namespace {

using testing::ElementsAre;

TEST(SingleChoice, AnswersWithTheChosenPosition) {
  Qs_HelpTopic = "lm";
  const auto ask = [](int position) {
    return Q_input_opt("Select\nOne of three.", position, 3, "first", "<b>second", "third");
  };
  const struct {
    int position;
    const char *preselected, *play;
    int answer;
  } cases[] = {{2, "<b>second", "OK", 2}, {1, "first", "(third)", 3}, {3, "third", "(first)", 1}};
  for (const auto& c : cases) {
    Dialog_driver user;
    user.play(c.play);
    EXPECT_EQ(ask(c.position), c.answer) << c.play;
    EXPECT_EQ(user.shown(),
              Q_format("lm [ Select ] %s <first, <b>second, third>", c.preselected).str());
  }
  every_refusal("(third)", [&] { EXPECT_EQ(ask(2), 0); });
}

TEST(Question, IsTrueOnlyForOk) {
  const std::pair<bool, const char*> cases[] = {{true, "Enter"}, {false, "Enter"}, {false, "OK"}};
  for (const auto& [by_default, play] : cases) {
    Dialog_driver user;
    user.play(play);
    EXPECT_EQ(Q_input_boolean("Overwrite?", by_default), by_default || *play == 'O');
  }
  every_refusal("", [] { EXPECT_FALSE(Q_input_boolean("Overwrite?", true)); });
}

TEST(Folder, IsTheOpenedOneAndEmptyAfterARefusal) {
  const Test_folder here;
  const std::string first = here.path() / "first";
  const std::string second = here.path() / "second one";
  for (const std::string& folder : {first, second}) std::filesystem::create_directory(folder);
  const struct {
    std::string preselected, selected, typed, answer;
  } cases[] = {{first, "", "", first},  // as it is preselected
               {first, second, "", second},
               {"", second, "", second},
               {first, "", second, second}};
  for (const auto& c : cases) {
    Q_string folder(c.preselected);
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.message(), "Specify the folder");
      EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "Open"));
      EXPECT_TRUE(c.preselected.empty() || has_selected(dialog.widget(), c.preselected));
      if (!c.selected.empty()) dialog.select(c.selected);
      if (!c.typed.empty()) dialog.key(GDK_KEY_l, GDK_CONTROL_MASK);
      dialog.type(c.typed);
      dialog.press("Open");  // with the mouse
    });
    EXPECT_TRUE(Q_input_folder(folder, "Specify the folder"));
    EXPECT_EQ(folder, c.answer.c_str());
  }
  every_refusal("", [] {
    Q_string folder("/usr");
    EXPECT_FALSE(Q_input_folder(folder, "Specify the folder"));
    EXPECT_EQ(folder, "");
  });
}

TEST(Message, ShowsTheFormattedTextVerbatim) {
  const std::vector<const char*> cases[] = {
      // text, as shown, answer
      {"first\n\nthird line", "first\n\nthird line", "OK"},
      {"<b>a & b</b> < &amp; 100%s", "<b>a & b</b> < &amp; 100%s", "Enter"},
      {"caf\xe9.nii", "caf\xef\xbf\xbd.nii", "Close"}};
  for (const auto& c : cases) {
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
          EXPECT_THAT(dialog.buttons(), ElementsAre("OK"));
          dialog.press("OK");
        })
        .play(c[2]);
    for (int i = 0; i < 2; ++i) Q_input_warning("%i %% %s", 5, c[0]);
    EXPECT_EQ(user.messages().back(), std::string("5 % ") + c[1]);
  }
}

TEST(Message, SplitsIntoTitleAndExplanation) {
  const struct {
    const char *message, *title, *explanation;
  } cases[] = {
      {"SETTINGS\n", "SETTINGS", ""},
      {"MEAN\nfirst line\nsecond line", "MEAN", "first line\nsecond line"},
      {"\n\nTITLE\n\nafter an empty line\n", "TITLE", "\nafter an empty line\n"},
      {"\n\n", "", ""},
  };
  for (const auto& c : cases) {
    const Q_message_parts parts = Q_split_message(c.message);
    EXPECT_EQ(parts.title, c.title) << c.message;
    EXPECT_EQ(parts.explanation, c.explanation) << c.message;
  }
}

}  // namespace
