// The input dialog, answered on a real display.

#include "dialogs/input.h"

#include <gmock/gmock.h>

#include <array>

#include "dialog_driver.h"
#include "test_folder.h"

namespace {

using testing::ElementsAre;

const char* const FILTERS[] = {"(none)", "groupA", "groupB"};

/// One question of each kind; the file question preselects nothing.
std::array<Q_input_item, 7> every_kind() {
  std::array<Q_input_item, 7> items;
  Q_input_item_boolean(items, 0, "Jackknife", true);
  Q_input_item_file(items, 1, "Image", "", "*");
  Q_input_item_num(items, 2, "Probability", -1, 0, 1, 1);
  Q_input_item_opt(items, 3, "Filter", 3, FILTERS, 2);
  Q_input_item_temp_opt(items, 4, "Space", 1, 2, "MNI", "Talairach");
  Q_input_item_str(items, 5, "Name", "  the   mean ");
  Q_input_item_voxel(items, 6, "Coordinate", 12, -3, 0);
  return items;
}

TEST(Input, ShowsTheMessageTheLabelsAndTheDefaults) {
  std::array<Q_input_item, 7> items = every_kind();
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "[ MEAN <ANALYSIS> & more ]");
    EXPECT_EQ(dialog.explanation(), "Please <b>enter</b>\na name.");
    EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "OK"));
    EXPECT_THAT(dialog.labels(), ElementsAre("Jackknife", "Image", "Probability", "Filter", "Space",
                                             "Name", "Coordinate"));
    std::vector<std::string> values;
    for (const std::string& label : dialog.labels()) values.push_back(dialog.value(label));
    EXPECT_THAT(values, ElementsAre("yes", "", "1.0", "groupA", "MNI", "  the   mean ", "12 -3 0"));
    EXPECT_THAT(dialog.options("Space"), ElementsAre("MNI", "Talairach"));
    dialog.press("OK");
  });
  EXPECT_EQ(Q_input("MEAN <ANALYSIS> & more\nPlease <b>enter</b>\na name.", 7, items), 1);
  EXPECT_EQ(items[0].value, 1);
  EXPECT_EQ(items[1].text, "");
  EXPECT_EQ(items[2].value, 1);
  EXPECT_EQ(items[3].value, 2);
  EXPECT_EQ(items[4].value, 1);
  EXPECT_EQ(items[5].text, "the mean");
  EXPECT_EQ(items[6].voxel, (Q_voxel{12, -3, 0}));
}

TEST(Input, WritesTheAnswersBackOnOk) {
  const Test_folder folder;
  write_text("chosen.nii.gz", "");
  const std::string chosen = (folder.path() / "chosen.nii.gz").string();
  std::array<Q_input_item, 7> items = every_kind();
  Dialog_driver user;
  user.answer({{"Jackknife", "no"},
               {"Image", chosen},
               {"Probability", "0.2"},
               {"Filter", "groupB"},
               {"Space", "Talairach"},
               {"Name", "my mean"},
               {"Coordinate", "-70 68 5"}});
  EXPECT_EQ(Q_input("MEAN", 7, items), 1);
  EXPECT_EQ(items[0].value, 0);
  EXPECT_EQ(items[1].text, chosen.c_str());
  EXPECT_EQ(items[2].value, 0.2F);
  EXPECT_EQ(items[3].value, 3);
  EXPECT_EQ(items[4].value, 2);
  EXPECT_EQ(items[5].text, "my mean");
  EXPECT_EQ(items[6].voxel, (Q_voxel{-70, 68, 5}));
}

TEST(Input, LeavesTheItemsAloneOnEveryRefusal) {
  for (const auto& [name, refuse] : REFUSALS) {
    std::array<Q_input_item, 7> items = every_kind();
    Dialog_driver user;
    user.then([refuse = refuse](Shown_dialog& dialog) {
      dialog.set("Jackknife", "no");
      dialog.set("Probability", "0.5");
      dialog.set("Filter", "(none)");
      dialog.set("Space", "Talairach");
      dialog.set("Name", "other");
      dialog.set("Coordinate", "1 1 1");
      refuse(dialog);
    });
    EXPECT_EQ(Q_input("MEAN", 7, items), 0) << name;
    const std::array<Q_input_item, 7> before = every_kind();
    for (std::size_t i = 0; i < items.size(); ++i) {
      EXPECT_EQ(items[i].value, before[i].value) << name << ": " << items[i].label.str();
      EXPECT_EQ(items[i].text, before[i].text) << name << ": " << items[i].label.str();
      EXPECT_EQ(items[i].voxel, before[i].voxel) << name << ": " << items[i].label.str();
    }
    EXPECT_EQ(items[3].options, FILTERS) << name;
    EXPECT_EQ(items[4].options, nullptr) << name << ": a temporary choice is shown once";
  }
}

/// Types into the first question's field, goes on to another and presses OK; what the field showed
/// once it was left.
std::string type_leave_and_accept(std::array<Q_input_item, 2>& items, const char* typed) {
  Q_input_item_str(items, 1, "Name", "");
  std::string left;
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    const std::string label = dialog.labels().front();
    dialog.set(label, typed);
    dialog.set("Name", "elsewhere");
    left = dialog.value(label);
    dialog.press("OK");
  });
  EXPECT_EQ(Q_input("ANALYSIS", 2, items), 1);
  return left;
}

TEST(Input, BringsNumbersIntoTheirRangeAndDecimals) {
  struct {
    int precision;
    float min;
    float max;
    const char* typed;
    const char* shown;
    float answer;
  } const cases[] = {
      {-1, 0, 1, "0.4", "0.4", 0.4F},
      {-1, 0, 1, "0.37", "0.4", 0.4F},
      {-1, 0, 1, "7", "1.0", 1},
      {-1, 0, 1, "-0.1", "0.0", 0},
      {0, 2, 99999, "12.6", "13", 13},
      {0, 2, 99999, "1e9", "99999", 99999},
      {0, 2, 99999, "0x10", "2", 2},
      {0, 2, 99999, "", "2", 2},
      {0, 2, 99999, "abc", "2", 2},
      {0, 2, 99999, "30 or so", "30", 30},
      {-5, 0, 1, "0.000249", "0.00025", 0.00025F},
      {2, 0, 99999, "123", "123", 123},
      {0, -100, 100, "-7.6", "-8", -8},
  };
  for (const auto& [precision, min, max, typed, shown, answer] : cases) {
    std::array<Q_input_item, 2> items;
    Q_input_item_num(items, 0, "Number", precision, min, max, 30);
    const std::string left = type_leave_and_accept(items, typed);
    EXPECT_EQ(left, shown) << "typed " << typed;
    EXPECT_EQ(items[0].value, answer) << "typed " << typed;
  }
}

TEST(Input, SettlesANumberAlsoWhenOkIsGivenByItsMnemonic) {
  std::array<Q_input_item, 1> items;
  Q_input_item_num(items, 0, "Number", 0, 0, 10, 5);
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    dialog.set("Number", "12.7");
    dialog.key(GDK_KEY_o, GDK_MOD1_MASK);
  });
  EXPECT_EQ(Q_input("NUMBER", 1, items), 1);
  EXPECT_EQ(items[0].value, 10);
}

TEST(Input, NormalisesTheWhiteSpaceOfStrings) {
  struct {
    const char* typed;
    const char* answer;
  } const cases[] = {
      {"  my   \tanalysis ", "my analysis"},
      {"\t\v\f\r\n", ""},
      {"100% <b>&amp;", "100% <b>&amp;"},
      {"caf\xc3\xa9 %s", "caf\xc3\xa9 %s"},
  };
  for (const auto& [typed, answer] : cases) {
    std::array<Q_input_item, 1> items;
    Q_input_item_str(items, 0, "Name", typed);
    Dialog_driver user;
    user.then([typed = typed](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.value("Name"), typed) << "the default is shown verbatim";
      dialog.set("Name", typed);
      dialog.press("OK");
    });
    EXPECT_EQ(Q_input("NAME", 1, items), 1);
    EXPECT_EQ(items[0].text, answer) << typed;
  }
}

TEST(Input, TruncatesCoordinatesTowardZero) {
  struct {
    const char* typed;
    const char* shown;
    Q_voxel answer;
  } const cases[] = {
      {"12.9 -3.7 0", "12 -3 0", {12, -3, 0}},
      {"200 -200 -0.9", "70 -102 0", {70, -102, 0}},
      {"x 1x 66.99", "0 1 66", {0, 1, 66}},
  };
  for (const auto& [typed, shown, answer] : cases) {
    std::array<Q_input_item, 2> items;
    Q_input_item_voxel(items, 0, "Coordinate", 5, 5, 5);
    const std::string left = type_leave_and_accept(items, typed);
    EXPECT_EQ(left, shown) << typed;
    EXPECT_EQ(items[0].voxel, answer)
        << typed << ": " << items[0].voxel.x << ' ' << items[0].voxel.y << ' ' << items[0].voxel.z;
  }
}

TEST(Input, ReadsCoordinatesFromTextThatWasNeverLeft) {
  Q_voxel_widgets widgets{};
  Q_input_new_voxel(widgets, {0, 0, 0});
  const Q_object<GtkWidget> row(GTK_WIDGET(g_object_ref_sink(widgets[0])));
  const char* const texts[] = {"12.9mm", "-3.7", "1e30"};
  for (std::size_t axis = 0; axis < 3; ++axis)
    gtk_entry_set_text(GTK_ENTRY(widgets[axis + 1]), texts[axis]);
  EXPECT_EQ(Q_input_get_voxel(widgets), (Q_voxel{12, -3, 32767}));
}

TEST(Input, AnswersWithThePathOfTheFile) {
  const Test_folder folder;
  write_text("a_p.nii.gz", "");
  write_text("b_p.nii.gz", "");
  const std::string a = (folder.path() / "a_p.nii.gz").string();
  const std::string b = (folder.path() / "b_p.nii.gz").string();
  const std::string missing = (folder.path() / "c_p.nii.gz").string();
  struct {
    std::string preselected;
    std::string chosen;  ///< nothing is chosen when it is "-"
    std::string answer;
  } const cases[] = {
      {"", "-", ""}, {a, "-", a},        {a, b, b},
      {"", b, b},    {missing, "-", ""}, {"a_p.nii.gz", "-", ""},
  };
  for (const auto& [preselected, chosen, answer] : cases) {
    std::array<Q_input_item, 1> items;
    Q_input_item_file(items, 0, "Image", preselected.c_str(), "*_p.nii.gz");
    Dialog_driver user;
    user.then([choice = chosen](Shown_dialog& dialog) {
      if (choice != "-") dialog.set("Image", choice);
      dialog.press("OK");
    });
    EXPECT_EQ(Q_input("MULTIMODAL", 1, items), 1);
    EXPECT_EQ(items[0].text, answer.c_str())
        << "preselected " << preselected << ", chosen " << chosen;
  }
}

TEST(Input, AnswersZeroWhenNothingIsChosen) {
  for (const int position : {0, 4, -1}) {
    std::array<Q_input_item, 1> items;
    Q_input_item_opt(items, 0, "Filter", 3, FILTERS, position);
    Dialog_driver user;
    user.then([](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.value("Filter"), "");
      dialog.press("OK");
    });
    EXPECT_EQ(Q_input("FILTER", 1, items), 1);
    EXPECT_EQ(items[0].value, 0) << position;
  }
}

TEST(Input, AsksOnlyTheFirstItemsAndAlsoNone) {
  std::array<Q_input_item, 2> items;
  Q_input_item_str(items, 0, "Name", "a");
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
        EXPECT_THAT(dialog.labels(), ElementsAre("Name"));
        dialog.press("OK");
      })
      .then([](Shown_dialog& dialog) {
        EXPECT_THAT(dialog.labels(), ElementsAre());
        dialog.press("OK");
      });
  EXPECT_EQ(Q_input("ONE", 1, items), 1);
  EXPECT_EQ(Q_input("NONE", 0, {}), 1);
}

TEST(Input, GoesThroughTheFieldsInOrderWithTab) {
  std::array<Q_input_item, 7> items = every_kind();
  std::vector<std::string> visited;
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    // A field with several parts keeps the focus for several keys.
    for (int i = 0; i < 12; ++i) {
      if (visited.empty() || visited.back() != dialog.focus()) visited.push_back(dialog.focus());
      dialog.key(GDK_KEY_Tab);
    }
    dialog.key(GDK_KEY_Escape);
  });
  EXPECT_EQ(Q_input("MEAN", 7, items), 0);
  EXPECT_THAT(visited, ElementsAre("Jackknife", "Image", "Probability", "Filter", "Space", "Name",
                                   "Coordinate", "Help", "Cancel", "OK"));
}

TEST(Input, StartsInTheFirstFieldAndEnterDoesNotAnswer) {
  std::array<Q_input_item, 2> items;
  Q_input_item_str(items, 0, "Name", "");
  Q_input_item_num(items, 1, "Number", 0, 0, 10, 5);
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    dialog.type("Mean 1");
    dialog.key(GDK_KEY_Return);
    EXPECT_TRUE(gtk_widget_get_visible(dialog.widget()));
    EXPECT_EQ(dialog.value("Name"), "Mean 1");
    dialog.press("OK");
  });
  EXPECT_EQ(Q_input("MEAN", 2, items), 1);
  EXPECT_EQ(items[0].text, "Mean 1");
}

}  // namespace
