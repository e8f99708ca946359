// The fields by themselves, and the long drop-down list.

#include "dialogs/widgets.h"

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include <array>

#include "dialog_driver.h"
#include "dialogs/input.h"

namespace {

using testing::ElementsAre;

Q_object<GtkWidget> owned(GtkWidget* widget) {
  return Q_object<GtkWidget>(GTK_WIDGET(g_object_ref_sink(widget)));
}

TEST(Widgets, NumberFieldsHaveStepPageDecimalsAndRange) {
  struct {
    int precision;
    double step;
    double page;
    guint digits;
    const char* shown;
    const char* tooltip;
  } const cases[] = {
      {-2, 0.01, 0.1, 2, "0.50", "From 0.00 to 1.00"},
      {-1, 0.1, 1, 1, "0.5", "From 0.0 to 1.0"},
      {0, 1, 10, 0, "0", "From 0 to 1"},
      {1, 10, 100, 0, "0", "From 0 to 1"},
  };
  for (const auto& [precision, step, page, digits, shown, tooltip] : cases) {
    const auto field = owned(Q_input_new_float(precision, digits > 0 ? 0.5 : 0, 0, 1));
    GtkSpinButton* spin = GTK_SPIN_BUTTON(field.get());
    double real_step = 0;
    double real_page = 0;
    gtk_spin_button_get_increments(spin, &real_step, &real_page);
    EXPECT_DOUBLE_EQ(real_step, step) << precision;
    EXPECT_DOUBLE_EQ(real_page, page) << precision;
    EXPECT_EQ(gtk_spin_button_get_digits(spin), digits) << precision;
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(field.get())), shown) << precision;
    const Q_g_memory<char> text(gtk_widget_get_tooltip_text(field.get()));
    EXPECT_STREQ(text.get(), tooltip) << precision;
  }
}

TEST(Widgets, NumberFieldsStepWithTheKeys) {
  struct {
    guint key;
    float answer;
  } const cases[] = {
      {GDK_KEY_Down, 4.9F}, {GDK_KEY_Up, 5.1F}, {GDK_KEY_Page_Down, 4}, {GDK_KEY_Page_Up, 6}};
  for (const auto& [key, answer] : cases) {
    std::array<Q_input_item, 1> items;
    Q_input_item_num(items, 0, "Number", -1, 0, 10, 5);
    Dialog_driver user;
    user.then([pressed = key](Shown_dialog& dialog) {
      dialog.key(pressed);
      dialog.press("OK");
    });
    EXPECT_EQ(Q_input("NUMBER", 1, items), 1);
    EXPECT_EQ(items[0].value, answer) << gdk_keyval_name(key);
  }
}

TEST(Widgets, CoordinatesSpanTheBrain) {
  Q_voxel_widgets widgets{};
  Q_input_new_voxel(widgets, {0, 0, 0});
  const auto row = owned(widgets[0]);
  const double ranges[][2] = {{-70, 70}, {-102, 68}, {-42, 66}};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    GtkSpinButton* field = GTK_SPIN_BUTTON(widgets[axis + 1]);
    double min = 0;
    double max = 0;
    gtk_spin_button_get_range(field, &min, &max);
    EXPECT_EQ(min, ranges[axis][0]);
    EXPECT_EQ(max, ranges[axis][1]);
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(field)), "0");
    gtk_spin_button_spin(field, GTK_SPIN_STEP_FORWARD, 0);
    EXPECT_STREQ(gtk_entry_get_text(GTK_ENTRY(field)), "1");
  }
}

TEST(Widgets, RadioGroupsActivateTheSelectedButton) {
  const char* const labels[] = {"a", "b <i>", "c"};
  for (int selected = 1; selected <= 3; ++selected) {
    std::array<GtkWidget*, 3> buttons{};
    const auto box = owned(Q_input_new_radiogroup(buttons.data(), selected, 3, labels));
    for (int i = 0; i < 3; ++i) {
      GtkWidget* button = buttons[static_cast<std::size_t>(i)];
      EXPECT_EQ(gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(button)), i + 1 == selected);
      EXPECT_STREQ(gtk_button_get_label(GTK_BUTTON(button)), labels[i]);
      EXPECT_TRUE(gtk_widget_get_visible(button));
    }
  }
}

TEST(Widgets, FileFieldsListWhatMatchesTheirPattern) {
  struct {
    const char* pattern;
    const char* name;
    bool listed;
  } const cases[] = {
      {"*", "anything", true},
      {"*_p.nii.gz", "mean_p.nii.gz", true},
      {"*_p.nii.gz", "mean_z.nii.gz", false},
      {"*_p.nii.gz", "mean_p.nii.gz.bak", false},
  };
  for (const auto& [pattern, name, listed] : cases) {
    const auto field = owned(Q_input_new_file("", pattern));
    GSList* filters = gtk_file_chooser_list_filters(GTK_FILE_CHOOSER(field.get()));
    ASSERT_EQ(g_slist_length(filters), 1U);
    GtkFileFilter* filter = GTK_FILE_FILTER(filters->data);
    g_slist_free(filters);
    EXPECT_STREQ(gtk_file_filter_get_name(filter), pattern);
    GtkFileFilterInfo info{};
    info.contains = GTK_FILE_FILTER_DISPLAY_NAME;
    info.display_name = name;
    EXPECT_EQ(gtk_file_filter_filter(filter, &info) != FALSE, listed) << pattern << ' ' << name;
  }
}

TEST(Widgets, FileFieldsStartInTheCurrentFolder) {
  const auto field = owned(Q_input_new_file("", "*"));
  const Q_g_memory<char> current(g_get_current_dir());
  EXPECT_TRUE(is_in_folder(field.get(), current.get()));
}

/// 178 brain regions, many of whose names hold others' words.
Q_string_list regions() {
  Q_string_list result;
  for (const char* side : {"Left", "Right"})
    for (int area = 1; area <= 89; ++area)
      result.push_back(std::string(side) + (area == 34 ? " amygdala" : " cortex") + ", BA " +
                       std::to_string(area));
  return result;
}

int ask_region(Dialog_driver::Script script, int position = 1) {
  const Q_string_list options = regions();
  std::array<Q_input_item, 2> items;
  Q_input_item_opt(items, 0, "Brain region", options, position);
  Q_input_item_str(items, 1, "Name", "");
  Dialog_driver user;
  user.then(std::move(script));
  return Q_input("MASK", 2, items) == 1 ? static_cast<int>(items[0].value) : -1;
}

TEST(LongList, ShowsTheDefaultAndAnswersWithThePosition) {
  EXPECT_EQ(ask_region(
                [](Shown_dialog& dialog) {
                  EXPECT_EQ(dialog.value("Brain region"), "Left amygdala, BA 34");
                  EXPECT_EQ(dialog.options("Brain region").size(), 178U);
                  dialog.press("OK");
                },
                34),
            34);
  EXPECT_EQ(ask_region([](Shown_dialog& dialog) {
              dialog.set("Brain region", "Right cortex, BA 89");
              dialog.press("OK");
            }),
            178);
  EXPECT_EQ(ask_region([](Shown_dialog& dialog) { dialog.press("OK"); }, 0), 0);
}

TEST(LongList, FindsTheOptionThatIsTyped) {
  struct {
    const char* typed;
    int answer;
  } const cases[] = {
      {"right amyg", 123},       // all words, in any case
      {"amyg RIGHT", 123},       // in any order
      {"left cortex, ba 5", 5},  // equal, though others begin with it
      {"no such region", 7},     // stands for nothing: the choice before
      {"amyg", 7},               // could be two
      {"", 7},                   //
  };
  for (const auto& [typed, answer] : cases) {
    EXPECT_EQ(ask_region(
                  [text = typed](Shown_dialog& dialog) {
                    GtkWidget* list = dialog.field("Brain region");
                    GtkEntry* entry = GTK_ENTRY(gtk_bin_get_child(GTK_BIN(list)));
                    gtk_widget_grab_focus(GTK_WIDGET(entry));
                    gtk_entry_set_text(entry, text);
                    dialog.set("Name", "leaves the list");
                    EXPECT_EQ(gtk_entry_get_text(entry), dialog.value("Brain region"));
                    dialog.press("OK");
                  },
                  7),
              answer)
        << "typed " << typed;
  }
}

TEST(LongList, SettlesAlsoWhenOkIsGivenByItsMnemonic) {
  EXPECT_EQ(ask_region([](Shown_dialog& dialog) {
              dialog.type("right amyg");
              dialog.key(GDK_KEY_o, GDK_MOD1_MASK);
            }),
            123);
}

TEST(LongList, DoesNotLetAnUnclearTextBeTheAnswer) {
  ask_region([](Shown_dialog& dialog) {
    GtkWidget* ok =
        gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog.widget()), GTK_RESPONSE_OK);
    dialog.type("amyg");
    EXPECT_FALSE(gtk_widget_get_sensitive(ok));
    dialog.type(" right");
    EXPECT_TRUE(gtk_widget_get_sensitive(ok));
    dialog.type(" x");
    EXPECT_FALSE(gtk_widget_get_sensitive(ok));
    dialog.key(GDK_KEY_Tab);
    EXPECT_TRUE(gtk_widget_get_sensitive(ok));
    dialog.press("Cancel");
  });
}

/// The window that has popped up over a dialog; null when there is none.
GtkWidget* popup_window() {
  GtkWidget* result = nullptr;
  GList* windows = gtk_window_list_toplevels();
  for (GList* node = windows; node != nullptr; node = node->next) {
    GtkWindowType type{};
    g_object_get(node->data, "type", &type, nullptr);
    if (type == GTK_WINDOW_POPUP && gtk_widget_get_mapped(GTK_WIDGET(node->data)))
      result = GTK_WIDGET(node->data);
  }
  g_list_free(windows);
  return result;
}

TEST(LongList, OffersTheMatchesWhileTyping) {
  EXPECT_EQ(ask_region([](Shown_dialog& dialog) {
              dialog.type("amyg");
              ASSERT_TRUE(wait_until([] { return popup_window() != nullptr; }));
              dialog.key(GDK_KEY_Down);
              dialog.key(GDK_KEY_Down);
              dialog.key(GDK_KEY_Return);
              EXPECT_EQ(dialog.value("Brain region"), "Right amygdala, BA 34");
              dialog.press("OK");
            }),
            123);
}

TEST(LongList, DropsDownWithoutCoveringTheScreen) {
  ask_region([](Shown_dialog& dialog) {
    // In the middle, where there is room neither above nor below it for much.
    gtk_window_move(GTK_WINDOW(dialog.widget()), 0, gdk_screen_height() / 2);
    handle_display_events();
    GtkComboBox* list = GTK_COMBO_BOX(dialog.field("Brain region"));
    gtk_combo_box_popup(list);
    ASSERT_TRUE(wait_until([] { return popup_window() != nullptr; }));
    EXPECT_LT(popup_window()->allocation.height, gdk_screen_height() * 3 / 4);
    EXPECT_GT(popup_window()->allocation.height, 100);
    gtk_combo_box_popdown(list);
    dialog.press("Cancel");
  });
}

}  // namespace
