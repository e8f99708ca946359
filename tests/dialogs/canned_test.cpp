// The ready-made dialogs, answered on a real display.

#include "dialogs/canned.h"

#include <gmock/gmock.h>

#include "dialog_driver.h"
#include "dialogs/message.h"
#include "test_folder.h"

namespace {

using testing::ElementsAre;

int ask_model(int position, Dialog_driver::Script script) {
  Dialog_driver user;
  user.then(std::move(script));
  return Q_input_opt("Select a model\nOne of four.", position, 4, "Compare 2 groups",
                     "Compare 3 groups", "Meta-regression", "Multiple meta-regression");
}

TEST(SingleChoice, AnswersWithTheChosenPosition) {
  EXPECT_EQ(ask_model(2,
                      [](Shown_dialog& dialog) {
                        EXPECT_EQ(dialog.message(), "[ Select a model ]");
                        EXPECT_EQ(dialog.explanation(), "One of four.");
                        EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "OK"));
                        EXPECT_THAT(dialog.options(),
                                    ElementsAre("Compare 2 groups", "Compare 3 groups",
                                                "Meta-regression", "Multiple meta-regression"));
                        EXPECT_EQ(dialog.chosen(), "Compare 3 groups");
                        EXPECT_EQ(dialog.focus(), "Compare 3 groups");
                        dialog.press("OK");
                      }),
            2);
  struct {
    int position;
    const char* clicked;
    int answer;
  } const cases[] = {
      {2, "Multiple meta-regression", 4}, {4, "Compare 2 groups", 1}, {3, "Meta-regression", 3}};
  for (const auto& [position, clicked, answer] : cases)
    EXPECT_EQ(ask_model(position,
                        [option = clicked](Shown_dialog& dialog) {
                          dialog.choose(option);
                          dialog.press("OK");
                        }),
              answer)
        << "default " << position << ", clicked " << clicked;
  for (const auto& [name, refuse] : REFUSALS)
    EXPECT_EQ(ask_model(2,
                        [act = refuse](Shown_dialog& dialog) {
                          dialog.choose("Meta-regression");
                          act(dialog);
                        }),
              0)
        << name;
}

TEST(SingleChoice, TakesTheFirstOptionForADefaultOutOfRange) {
#ifdef NDEBUG
  for (const int position : {0, 3, -1}) {
    Dialog_driver user;
    user.answer({});
    EXPECT_EQ(Q_input_opt("Select", position, {"first", "second"}), 1) << position;
  }
  Dialog_driver user;
  user.answer({});
  EXPECT_EQ(Q_input_opt("Select", 1, Q_string_list{}), 1) << "no options at all";
#else
  EXPECT_DEATH(Q_input_opt("Select", 0, {"first", "second"}), "position");
  EXPECT_DEATH(Q_input_opt("Select", 1, Q_string_list{}), "n >= 1");
#endif
}

TEST(Question, IsTrueOnlyForOk) {
  const auto answer = [](bool default_answer, void (*act)(Shown_dialog&)) {
    Dialog_driver user;
    user.then(act);
    const bool result = Q_input_boolean("Overwrite?", default_answer);
    EXPECT_THAT(user.messages(), ElementsAre("[ Overwrite? ]"));
    return result;
  };
  for (const bool by_default : {true, false})
    EXPECT_EQ(answer(by_default, [](Shown_dialog& dialog) { dialog.key(GDK_KEY_Return); }),
              by_default);
  EXPECT_TRUE(answer(false, [](Shown_dialog& dialog) { dialog.press("OK"); }));
  for (const auto& [name, refuse] : REFUSALS) EXPECT_FALSE(answer(true, refuse)) << name;
}

TEST(Folder, IsTheOpenedOneAndEmptyAfterARefusal) {
  const Test_folder here;
  std::filesystem::create_directory("first");
  std::filesystem::create_directory("second one");
  const std::string first = (here.path() / "first").string();
  const std::string second = (here.path() / "second one").string();
  struct {
    std::string preselected;
    std::string selected;
    std::string answer;
  } const cases[] = {
      {first, first, first},
      {first, second, second},
      {"", second, second},
      {first, "", first},  // as it is preselected
  };
  for (const auto& [preselected, selected, answer] : cases) {
    Q_string folder(preselected);
    Dialog_driver user;
    user.then([&, path = selected, expected = answer](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.message(), "Specify the folder");
      EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "Open"));
      if (!path.empty()) dialog.select(path);
      EXPECT_TRUE(has_selected(dialog.widget(), expected));
      dialog.press("Open");
    });
    EXPECT_TRUE(Q_input_folder(folder, "Specify the folder"));
    EXPECT_EQ(folder, answer.c_str());
  }
  {
    // A path that is typed, and confirmed with the mouse.
    Q_string folder(first);
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
      EXPECT_TRUE(has_selected(dialog.widget(), first));
      dialog.key(GDK_KEY_l, GDK_CONTROL_MASK);
      dialog.type(second);
      dialog.press("Open");
    });
    EXPECT_TRUE(Q_input_folder(folder, "Specify the folder"));
    EXPECT_EQ(folder, second.c_str());
  }
  for (const auto& [name, refuse] : REFUSALS) {
    Q_string folder("/usr");
    Dialog_driver user;
    user.then(refuse);
    EXPECT_FALSE(Q_input_folder(folder, "Specify the folder"));
    EXPECT_EQ(folder, "") << name;
  }
}

TEST(Message, ShowsTheTextVerbatim) {
  struct {
    const char* text;
    const char* shown;
  } const cases[] = {
      {"No maps found.", "No maps found."},
      {"first\n\nthird line", "first\n\nthird line"},
      {"<b>a & b</b> < &amp; 100%s", "<b>a & b</b> < &amp; 100%s"},
      {"caf\xe9.nii", "caf\xef\xbf\xbd.nii"},
  };
  for (const auto& [text, shown] : cases) {
    Dialog_driver user;
    user.then([text = shown](Shown_dialog& dialog) {
      GtkWidget* area = gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(dialog.widget()));
      std::string on_screen;
      for (GtkWidget* label : widgets_inside(area))
        if (gtk_widget_get_visible(label)) on_screen += gtk_label_get_text(GTK_LABEL(label));
      EXPECT_EQ(on_screen, text);
      EXPECT_THAT(dialog.buttons(), ElementsAre("OK"));
      GtkMessageType type{};
      g_object_get(dialog.widget(), "message-type", &type, nullptr);
      EXPECT_EQ(type, GTK_MESSAGE_QUESTION);
      dialog.press("OK");
    });
    Q_input_warning("%s", text);
  }
}

TEST(Message, FormatsItsArgumentsAndCanBeClosed) {
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) { dialog.close(); }).then([](Shown_dialog& dialog) {
    dialog.key(GDK_KEY_Return);
  });
  Q_input_warning("File '%s' has %d rows", "a.txt", 3);
  Q_input_warning("%i%%", 5);
  EXPECT_THAT(user.messages(), ElementsAre("File 'a.txt' has 3 rows", "5%"));
}

}  // namespace
