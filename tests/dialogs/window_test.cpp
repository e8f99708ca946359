// How the dialogs behave as windows: their place on the screen and what they leave behind.

#include <gmock/gmock.h>

#include <array>

#include "dialog_driver.h"
#include "dialogs/canned.h"
#include "dialogs/input.h"
#include "dialogs/message.h"

// Last, since it defines macros with plain names.
#include <gdk/gdkx.h>

namespace {

/// Windows on the screen from the lowest to the topmost, as the window manager reports them.
std::vector<gulong> stacking() {
  GdkAtom type{};
  int format = 0;
  int length = 0;
  guchar* raw = nullptr;
  if (!gdk_property_get(
          gdk_get_default_root_window(), gdk_atom_intern("_NET_CLIENT_LIST_STACKING", FALSE),
          gdk_atom_intern("WINDOW", FALSE), 0, 4096, FALSE, &type, &format, &length, &raw))
    return {};
  const Q_g_memory<guchar> value(raw);
  const auto* const windows = reinterpret_cast<const gulong*>(raw);
  return {windows, windows + static_cast<std::size_t>(length) / sizeof(gulong)};
}

bool is_on_top(GtkWidget* window) {
  const std::vector<gulong> windows = stacking();
  return !windows.empty() && windows.back() == GDK_WINDOW_XID(gtk_widget_get_window(window));
}

/// Stands in for the program's main window.
class Dialog_window : public testing::Test {
 protected:
  Dialog_window() {
    gtk_window_maximize(GTK_WINDOW(main_));
    gtk_widget_show(main_);
    // A window manager that is still starting may not give the first window the focus by itself.
    EXPECT_TRUE(wait_until([this] {
      gtk_window_present(GTK_WINDOW(main_));
      return gtk_window_is_active(GTK_WINDOW(main_));
    }));
  }
  ~Dialog_window() override { gtk_widget_destroy(main_); }

  GtkWidget* main_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
};

TEST_F(Dialog_window, StaysInFrontOfTheMainWindow) {
  Dialog_driver user;
  user.then([this](Shown_dialog& dialog) {
    EXPECT_TRUE(wait_until([&] { return is_on_top(dialog.widget()); }));
    gdk_window_raise(gtk_widget_get_window(main_));
    gdk_display_sync(gdk_display_get_default());
    for (int i = 0; i < 20; ++i) {
      while (gtk_events_pending()) gtk_main_iteration();
      g_usleep(5000);
    }
    EXPECT_TRUE(is_on_top(dialog.widget())) << "after the main window was raised";
    dialog.press("OK");
  });
  EXPECT_TRUE(Q_input_boolean("Overwrite?", false));
}

TEST_F(Dialog_window, FitsASmallScreen) {
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

TEST_F(Dialog_window, LeavesNoWidgetBehind) {
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
  run(200);
  EXPECT_TRUE(wait_until([] { return alive == 0; })) << alive << " objects are alive";
  EXPECT_TRUE(wait_until([&] { return count_toplevels() == toplevels; }))
      << count_toplevels() << " windows instead of " << toplevels;
}

}  // namespace
