// How the dialogs behave as windows: their place on the screen and what they leave behind.

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <memory>

#include "dialog_driver.h"
#include "dialogs/canned.h"
#include "dialogs/input.h"
#include "dialogs/message.h"

// Last, since it defines macros with plain names.
#include <gdk/gdkx.h>

namespace {

/// How many windows are under a window; -1 when the window manager does not have it yet.
long height_of(GtkWidget* window) {
  const std::vector<gulong> windows = windows_of_property("_NET_CLIENT_LIST_STACKING");
  const auto found = std::ranges::find(windows, GDK_WINDOW_XID(gtk_widget_get_window(window)));
  return found == windows.end() ? -1 : found - windows.begin();
}

using Window_widget = std::unique_ptr<GtkWidget, Q_call<gtk_widget_destroy>>;

/// A window that the window manager has taken over.
Window_widget managed_window() {
  Window_widget window(gtk_window_new(GTK_WINDOW_TOPLEVEL));
  gtk_window_maximize(GTK_WINDOW(window.get()));
  gtk_widget_show(window.get());
  EXPECT_TRUE(wait_until([&] { return height_of(window.get()) >= 0; }));
  return window;
}

TEST(DialogWindow, StaysInFrontOfTheMainWindow) {
  start_window_manager();
  const Window_widget main_window = managed_window();
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    const auto above = [&] { return height_of(dialog.widget()) > height_of(main_window.get()); };
    EXPECT_TRUE(wait_until(above));
    gdk_window_raise(gtk_widget_get_window(main_window.get()));
    // Once the window manager has this one, it has dealt with what it was asked before.
    const Window_widget later = managed_window();
    EXPECT_TRUE(above()) << "after the main window was raised";
    dialog.press("OK");
  });
  EXPECT_TRUE(Q_input_boolean("Overwrite?", false));
}

TEST(DialogWindow, FitsASmallScreen) {
  const std::string words = "MULTIMODAL META-ANALYSES\n" + [] {
    std::string text;
    for (int i = 0; i < 60; ++i) text += "several words ";
    return text;
  }();
  const std::string path = "/home/" + std::string(300, 'x') + "/image.nii.gz";
  for (const std::string& message : {words, path, path + "\n" + path}) {
    std::array<Q_input_item, 6> items;
    for (int i = 0; i < 6; ++i)
      Q_input_item_file(items, i, "A rather long label of a question", "", "*");
    Dialog_driver user;
    user.then([&](Shown_dialog& dialog) {
      int width = 0;
      int height = 0;
      gtk_window_get_size(GTK_WINDOW(dialog.widget()), &width, &height);
      EXPECT_LE(width, 800) << message;
      EXPECT_LE(height, 720) << message;
      dialog.press("Cancel");
    });
    EXPECT_EQ(Q_input(message.c_str(), 6, items), 0);
  }
}

/// Counts the objects of the dialogs that are alive.
int alive = 0;

void watch(gpointer object) {
  if (object == nullptr) return;
  ++alive;
  g_object_weak_ref(
      G_OBJECT(object), [](gpointer, GObject*) { --alive; }, nullptr);
}

/// Counts a dialog with all that is inside it, visible or not.
void watch_all(GtkWidget* dialog) {
  watch(dialog);
  for (GtkWidget* widget : widgets_inside(dialog)) {
    watch(widget);
    if (GTK_IS_COMBO_BOX(widget)) watch(gtk_combo_box_get_model(GTK_COMBO_BOX(widget)));
    if (GTK_IS_SPIN_BUTTON(widget)) watch(gtk_spin_button_get_adjustment(GTK_SPIN_BUTTON(widget)));
    if (GTK_IS_ENTRY(widget)) watch(gtk_entry_get_completion(GTK_ENTRY(widget)));
    if (GTK_IS_FILE_CHOOSER_BUTTON(widget))
      watch(gtk_file_chooser_get_filter(GTK_FILE_CHOOSER(widget)));
  }
}

std::size_t count_toplevels() {
  GList* windows = gtk_window_list_toplevels();
  const std::size_t count = g_list_length(windows);
  g_list_free(windows);
  return count;
}

void ask_everything(const Q_string_list& many) {
  std::array<Q_input_item, 7> items;
  Q_input_item_boolean(items, 0, "Jackknife", true);
  Q_input_item_file(items, 1, "Image", "/usr/bin/env", "*");
  Q_input_item_num(items, 2, "Probability", -1, 0, 1, 1);
  Q_input_item_opt(items, 3, "Filter", many, 2);
  Q_input_item_temp_opt(items, 4, "Space", 1, 2, "MNI", "Talairach");
  Q_input_item_str(items, 5, "Name", "mean");
  Q_input_item_voxel(items, 6, "Coordinate", 12, -3, 0);
  Q_input("EVERYTHING\nof each kind one", 7, items);
  Q_input_opt("Select", 1, 2, "first", "second");
  Q_input_boolean("Overwrite?", true);
  Q_input_warning("No maps found.");
}

TEST(DialogWindow, LeavesNoWidgetBehind) {
  const Q_string_list many(179, "a brain region");
  const auto run = [&many](int dialogs) {
    Dialog_driver user;
    for (int i = 0; i < dialogs; ++i)
      user.then([i](Shown_dialog& dialog) {
        watch_all(dialog.widget());
        dialog.press(i % 3 == 0 && dialog.buttons().size() > 1 ? "Cancel" : "OK");
      });
    for (int i = 0; i < dialogs / 4; ++i) ask_everything(many);
  };
  // The toolkit makes some windows once, for tooltips say.
  run(4);
  const std::size_t toplevels = count_toplevels();
  run(40);
  EXPECT_TRUE(wait_until([] { return alive == 0; })) << alive << " objects are alive";
  EXPECT_TRUE(wait_until([&] { return count_toplevels() == toplevels; }))
      << count_toplevels() << " windows instead of " << toplevels;
}

}  // namespace
