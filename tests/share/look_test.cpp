// The look-and-feel file: understood by the toolkit without a complaint, with the drawing engine's
// package and without it, and in force on the widgets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <string>
#include <vector>

#include "logged_warnings.h"
#include "test_folder.h"
#include "util/handles.h"

namespace {

/// The colours that a window and its entry are drawn with: background, selection, lettering.
std::vector<std::string> colours_in_force() {
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWidget* entry = gtk_entry_new();
  gtk_container_add(GTK_CONTAINER(window), entry);
  gtk_widget_show_all(window);
  std::vector<std::string> colours;
  for (const GdkColor& colour : {gtk_widget_get_style(window)->bg[GTK_STATE_NORMAL],
                                 gtk_widget_get_style(entry)->base[GTK_STATE_SELECTED],
                                 gtk_widget_get_style(entry)->text[GTK_STATE_NORMAL]})
    colours.emplace_back(Q_g_memory<char>(gdk_color_to_string(&colour)).get());
  gtk_widget_destroy(window);
  return colours;
}

TEST(Look, IsInForceWithAndWithoutTheEngineAndNeverComplains) {
  const Logged_warnings complaints;
  const std::vector<std::string> expected{"#f0f0f1f1f3f3", "#3b3b6e6ea5a5", "#1c1c21212626"};
  std::string look = read_text(KVO_LOOK_FILE);
  const std::string include = "include \"/usr/share/themes/";
  const std::size_t at = look.find(include);
  ASSERT_NE(at, std::string::npos);
  gtk_rc_parse_string(look.insert(at + include.size(), "no_such_theme/").c_str());
  EXPECT_EQ(colours_in_force(), expected) << "without the engine's package";

  gtk_rc_parse(KVO_LOOK_FILE);
  gtk_rc_reset_styles(gtk_settings_get_default());
  EXPECT_EQ(colours_in_force(), expected) << "with what is installed";
  EXPECT_THAT(complaints.messages, testing::IsEmpty());
}

}  // namespace
