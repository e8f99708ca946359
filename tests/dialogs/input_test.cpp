// The input dialog, answered on a real display.

#include "dialogs/input.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>

#include "dialog_driver.h"
#include "dialogs/help.h"
#include "test_folder.h"

namespace {

using testing::ElementsAre;

const char* const FILTERS[] = {"(none)", "groupA", "groupB"};

/// One question of each kind; the file question preselects nothing.
std::array<Q_input_item, 7> every_kind() {
  std::array<Q_input_item, 7> items;
  std::string short_lived = "Talairach";
  Q_input_item_boolean(items, 0, "Jackknife", true);
  Q_input_item_file(items, 1, "Image", "", std::string("*").c_str());
  Q_input_item_num(items, 2, "Probability", -1, 0, 1, 1);
  Q_input_item_opt(items, 3, "Filter", 3, FILTERS, 2);
  Q_input_item_temp_opt(items, 4, "Space", 1, 2, "MNI", short_lived.c_str());
  Q_input_item_str(items, 5, "Name", "  the \t 5% <b> caf\xc3\xa9 ");
  Q_input_item_voxel(items, 6, "Coordinate", 12, -3, 0);
  short_lived.assign(short_lived.size(), '?');
  return items;
}

/// Everything that an answer may be.
template <std::size_t N>
std::string answers(const std::array<Q_input_item, N>& items) {
  std::string text;
  for (const Q_input_item& item : items)
    text += Q_format("%g '%s' %i %i %i; ", static_cast<double>(item.value), item.text.c_str(),
                     item.voxel.x, item.voxel.y, item.voxel.z)
                .str();
  return text;
}

TEST(Input, ShowsTheDefaultsAndGivesThemBack) {
  Qs_HelpTopic = "mean";
  std::array<Q_input_item, 7> items = every_kind();
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.explanation(), "Please <b>enter</b>\na name.");
    EXPECT_THAT(dialog.buttons(), ElementsAre("Help", "Cancel", "OK"));
    dialog.press("OK");
  });
  EXPECT_EQ(Q_input("MEAN <b>ANALYSIS</b>\nPlease <b>enter</b>\na name.", 7, items), 1);
  EXPECT_EQ(user.shown(),
            "mean [ MEAN <b>ANALYSIS</b> ] Jackknife: yes; Image: ; Probability: 1.0; Filter: "
            "groupA <(none), groupA, groupB>; Space: MNI <MNI, Talairach>; Name:   the \t 5% <b> "
            "caf\xc3\xa9 ; Coordinate: 12 -3 0");
  EXPECT_EQ(answers(items),
            "1 '' 0 0 0; 0 '' 0 0 0; 1 '' 0 0 0; 2 '' 0 0 0; 1 '' 0 0 0; 0 'the 5% <b> "
            "caf\xc3\xa9' 0 0 0; 0 '' 12 -3 0; ");
}

TEST(Input, WritesTheAnswersBackOnOkOnly) {
  const Test_folder folder;
  write_text("chosen.nii.gz", "");
  const std::string chosen = folder.path() / "chosen.nii.gz";
  const std::string other = "Jackknife=no; Image=" + chosen +
                            "; Probability=0.2; Filter=groupB; Space=Talairach; Name=my mean; "
                            "Coordinate=-70 68 5";
  std::array<Q_input_item, 7> items;
  every_refusal(other, [&] {
    items = every_kind();
    EXPECT_EQ(Q_input("MEAN", 7, items), 0);
    EXPECT_EQ(answers(items), answers(every_kind()));
    EXPECT_EQ(items[3].options, FILTERS);
    EXPECT_EQ(items[4].options, nullptr) << "a temporary choice is shown once";
  });
  items = every_kind();
  Dialog_driver user;
  user.play(other);
  EXPECT_EQ(Q_input("MEAN", 7, items), 1);
  EXPECT_EQ(answers(items), "0 '' 0 0 0; 0 '" + chosen +
                                "' 0 0 0; 0.2 '' 0 0 0; 3 '' 0 0 0; 2 '' 0 0 0; 0 'my mean' 0 0 0; "
                                "0 '' -70 68 5; ");
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
  const struct {
    int precision;
    float min, max, answer;
    const char *tooltip, *typed, *shown;
  } cases[] = {
      {-1, 0, 1, 0.4F, "From 0.0 to 1.0", "0.37", "0.4"},
      {0, 2, 99999, 99999, "From 2 to 99999", "1e9", "99999"},
      {0, 2, 99999, 2, "From 2 to 99999", "", "2"},
      {0, 2, 99999, 2, "From 2 to 99999", "0x10", "2"},
      {0, 2, 99999, 30, "From 2 to 99999", "30 or so", "30"},
      {-5, 0, 1, 0.00025F, "From 0.00000 to 1.00000", "0.000249", "0.00025"},
      {2, 0, 99999, 123, "From 0 to 99999", "123", "123"},
      {0, -100, 100, -8, "From -100 to 100", "-7.6", "-8"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.typed);
    std::array<Q_input_item, 2> items;
    Q_input_item_num(items, 0, "Number", c.precision, c.min, c.max, 30);
    EXPECT_EQ(type_leave_and_accept(items, c.typed), c.shown);
    EXPECT_EQ(items[0].value, c.answer);
    const Q_object<GtkWidget> field(
        GTK_WIDGET(g_object_ref_sink(Q_input_new_float(c.precision, 0, c.min, c.max))));
    const Q_g_memory<char> tooltip(gtk_widget_get_tooltip_text(field.get()));
    EXPECT_STREQ(tooltip.get(), c.tooltip);
    double step = 0;
    double page = 0;
    gtk_spin_button_get_increments(GTK_SPIN_BUTTON(field.get()), &step, &page);
    EXPECT_DOUBLE_EQ(step, std::pow(10, c.precision));
    EXPECT_DOUBLE_EQ(page, 10 * step);
  }
}

TEST(Input, TruncatesCoordinatesTowardZeroIntoTheBrainsBox) {
  const std::pair<const char*, const char*> cases[] = {
      {"12.9 -3.7 0", "12 -3 0"}, {"200 -200 -200", "70 -102 -42"}, {"-200 200 200", "-70 68 66"},
      {"x 1x -0.9", "0 1 0"},     {"inf -inf 1e9", "70 -102 66"},
  };
  for (const auto& [typed, answer] : cases) {
    std::array<Q_input_item, 2> items;
    Q_input_item_voxel(items, 0, "Coordinate", 5, 5, 5);
    EXPECT_EQ(type_leave_and_accept(items, typed), answer);
    const Q_voxel& voxel = items[0].voxel;
    EXPECT_EQ(Q_format("%i %i %i", voxel.x, voxel.y, voxel.z), answer);
  }
}

TEST(Input, AnswersWithThePathOfAFileAmongThoseOfThePattern) {
  const Test_folder folder;
  const std::string a = folder.path() / "a_p.nii.gz";
  const std::string b = folder.path() / "b_p.nii.gz";
  for (const std::string& path : {a, b}) write_text(path, "");
  const std::vector<std::string> cases[] = {// preselected, chosen, answer
                                            {"", "", ""},
                                            {a, "", a},
                                            {a, b, b},
                                            {a + ".bak", "", ""},
                                            {"a_p.nii.gz", "", ""}};
  for (const auto& c : cases) {
    std::array<Q_input_item, 1> items;
    Q_input_item_file(items, 0, "Image", c[0].c_str(), "*_p.nii.gz");
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
      EXPECT_TRUE(c[0] == a || is_in_folder(dialog.field("Image"), folder.path()));
      GtkFileFilter* filter = gtk_file_chooser_get_filter(GTK_FILE_CHOOSER(dialog.field("Image")));
      EXPECT_STREQ(gtk_file_filter_get_name(filter), "*_p.nii.gz");
      for (const char* name : {"mean_p.nii.gz", "mean_z.nii.gz", "mean_p.nii.gz.bak"}) {
        GtkFileFilterInfo info{};
        info.contains = GTK_FILE_FILTER_DISPLAY_NAME;
        info.display_name = name;
        EXPECT_EQ(gtk_file_filter_filter(filter, &info),
                  std::string_view(name).ends_with("_p.nii.gz"));
      }
      if (!c[1].empty()) dialog.set("Image", c[1]);
      dialog.press("OK");
    });
    EXPECT_EQ(Q_input("MULTIMODAL", 1, items), 1);
    EXPECT_EQ(items[0].text, c[2].c_str()) << c[0] << ", " << c[1];
  }
}

TEST(Input, StartsInTheFirstFieldAndTabGoesThroughAllInOrder) {
  std::array<Q_input_item, 7> items = every_kind();
  std::vector<std::string> visited;
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    // A field with several parts keeps the focus for several keys.
    for (int i = 0; i < 12; ++i) {
      if (visited.empty() || visited.back() != dialog.focus()) visited.push_back(dialog.focus());
      dialog.key(GDK_KEY_Tab);
    }
    dialog.press("Cancel");
  });
  EXPECT_EQ(Q_input("MEAN", 7, items), 0);
  EXPECT_THAT(visited, ElementsAre("Jackknife", "Image", "Probability", "Filter", "Space", "Name",
                                   "Coordinate", "Help", "Cancel", "OK"));
}

TEST(Input, IsAnsweredByAMnemonicWhichSettlesTheFieldButNotByEnter) {
  std::array<Q_input_item, 1> items;
  Q_input_item_num(items, 0, "Number", 0, 0, 10, 5);
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    dialog.set("Number", "12.7");
    dialog.key(GDK_KEY_Return);
    EXPECT_TRUE(gtk_widget_get_visible(dialog.widget()));
    dialog.set("Number", "12.7");
    dialog.key(GDK_KEY_o, GDK_MOD1_MASK);
  });
  EXPECT_EQ(Q_input("NUMBER", 1, items), 1);
  EXPECT_EQ(items[0].value, 10);
}

}  // namespace
