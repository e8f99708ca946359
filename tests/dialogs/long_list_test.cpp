// The drop-down list that is too long to look through.

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>

#include <array>

#include "dialog_driver.h"
#include "dialogs/input.h"

namespace {

constexpr const char* REGION = "Brain region";

/// Asks for one of 178 brain regions, many of whose names hold others' words; -1 when it was not
/// answered by OK.
int ask_region(Dialog_driver::Script script, int position = 1) {
  Q_string_list options;
  for (const char* side : {"Left", "Right"})
    for (int area = 1; area <= 89; ++area)
      options.push_back(
          Q_format("%s %s, BA %i", side, area == 34 ? "amygdala" : "cortex", area).str());
  std::array<Q_input_item, 2> items;
  Q_input_item_opt(items, 0, REGION, options, position);
  Q_input_item_str(items, 1, "Name", "");
  Dialog_driver user;
  user.then(std::move(script));
  return Q_input("MASK", 2, items) == 1 ? static_cast<int>(items[0].value) : -1;
}

TEST(LongList, FindsTheOptionThatIsTypedWhenItIsLeft) {
  const std::pair<const char*, int> cases[] = {
      {"right amyg", 123},       // all words, in any case
      {"amyg RIGHT", 123},       // in any order
      {"left cortex, ba 5", 5},  // equal, though others begin with it
      {"no such region", 7},     // stands for nothing: the choice before
      {"amyg", 7},               // could be two
      {"", 7},
  };
  for (const auto& [typed, answer] : cases)
    EXPECT_EQ(ask_region(
                  [text = typed](Shown_dialog& dialog) {
                    EXPECT_EQ(dialog.value(REGION), "Left cortex, BA 7");
                    GtkWidget* entry = gtk_bin_get_child(GTK_BIN(dialog.field(REGION)));
                    gtk_widget_grab_focus(entry);
                    gtk_entry_set_text(GTK_ENTRY(entry), text);
                    dialog.set("Name", "leaves the list");
                    EXPECT_EQ(gtk_entry_get_text(GTK_ENTRY(entry)), dialog.value(REGION));
                    dialog.press("OK");
                  },
                  7),
              answer)
        << typed;
}

TEST(LongList, TakesNoUnclearTextForAnAnswer) {
  EXPECT_EQ(ask_region([](Shown_dialog& dialog) {
              const auto expect_clear = [&](bool clear) {
                EXPECT_EQ(gtk_widget_get_sensitive(gtk_dialog_get_widget_for_response(
                              GTK_DIALOG(dialog.widget()), GTK_RESPONSE_OK)),
                          clear);
              };
              dialog.type("amyg");
              expect_clear(false);
              dialog.type(" right");
              expect_clear(true);
              dialog.type(" x");
              expect_clear(false);
              dialog.key(GDK_KEY_BackSpace);
              expect_clear(true);
              dialog.key(GDK_KEY_o, GDK_MOD1_MASK);
            }),
            123);
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
              for (const guint key : {GDK_KEY_Down, GDK_KEY_Down, GDK_KEY_Return}) dialog.key(key);
              EXPECT_EQ(dialog.value(REGION), "Right amygdala, BA 34");
              dialog.press("OK");
            }),
            123);
}

TEST(LongList, DropsDownWithoutCoveringTheScreen) {
  ask_region([](Shown_dialog& dialog) {
    // In the middle, where there is room neither above nor below it for much.
    gtk_window_move(GTK_WINDOW(dialog.widget()), 0, gdk_screen_height() / 2);
    handle_display_events();
    GtkComboBox* list = GTK_COMBO_BOX(dialog.field(REGION));
    gtk_combo_box_popup(list);
    ASSERT_TRUE(wait_until([] { return popup_window() != nullptr; }));
    EXPECT_LT(popup_window()->allocation.height, gdk_screen_height() * 3 / 4);
    EXPECT_GT(popup_window()->allocation.height, 100);
    gtk_combo_box_popdown(list);
    dialog.press("Cancel");
  });
}

}  // namespace
