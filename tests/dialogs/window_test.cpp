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
  std::string words = "MULTIMODAL META-ANALYSES\n";
  for (int i = 0; i < 60; ++i) words += "several words ";
  const std::string path = "/home/" + std::string(300, 'x') + "/image.nii.gz\n";
  for (const std::string& message : {words, path + path}) {
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

/// How many of the watched widgets are alive.
int alive = 0;

void watch(GtkWidget* widget) {
  const auto note_end = [](gpointer, GObject*) { --alive; };
  ++alive;
  g_object_weak_ref(G_OBJECT(widget), note_end, nullptr);
}

TEST(DialogWindow, LeavesNoWidgetBehind) {
  const Q_string_list many(179, "a brain region");
  for (const char* button : {"OK", "Cancel", "OK"}) {
    Dialog_driver user;
    const auto watch_all = [&](Shown_dialog& dialog) {
      watch(dialog.widget());
      std::ranges::for_each(widgets_inside(dialog.widget()), watch);
      dialog.press(dialog.buttons().size() > 1 ? button : "OK");
    };
    for (int i = 0; i < 4; ++i) user.then(watch_all);
    std::array<Q_input_item, 6> items;
    Q_input_item_boolean(items, 0, "Jackknife", true);
    Q_input_item_file(items, 1, "Image", "/usr/bin/env", "*");
    Q_input_item_num(items, 2, "Probability", -1, 0, 1, 1);
    Q_input_item_opt(items, 3, "Filter", many, 2);
    Q_input_item_temp_opt(items, 4, "Space", 1, 2, "MNI", "Talairach");
    Q_input_item_voxel(items, 5, "Coordinate", 12, -3, 0);
    Q_input("EVERYTHING\nof each kind one", 6, items);
    Q_input_opt("Select", 1, 2, "first", "second");
    Q_input_boolean("Overwrite?", true);
    Q_input_warning("No maps found.");
  }
  EXPECT_TRUE(wait_until([] { return alive == 0; })) << alive << " widgets are alive";
}

}  // namespace
