// The look-and-feel file: understood by the toolkit without a complaint, with the drawing engine's
// package and without it, and in force on the widgets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::vector<std::string> complaints;

void keep_complaint(const gchar* /*domain*/, GLogLevelFlags /*level*/, const gchar* text,
                    gpointer /*data*/) {
  complaints.emplace_back(text);
}

std::string look_without_engine() {
  std::ifstream file(KVO_LOOK_FILE);
  std::ostringstream text;
  text << file.rdbuf();
  std::string look = text.str();
  const std::string include = "include \"/usr/share/themes/";
  const std::size_t at = look.find(include);
  if (at != std::string::npos) look.insert(at + include.size(), "no_such_theme/");
  return look;
}

std::string colour_text(const GdkColor& colour) {
  gchar* text = gdk_color_to_string(&colour);
  std::string result = text;
  g_free(text);
  return result;
}

/// The colours that a button and its window are drawn with: background, selection, lettering.
std::vector<std::string> colours_in_force() {
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWidget* entry = gtk_entry_new();
  gtk_container_add(GTK_CONTAINER(window), entry);
  gtk_widget_show_all(window);
  const GtkStyle* of_window = gtk_widget_get_style(window);
  const GtkStyle* of_entry = gtk_widget_get_style(entry);
  std::vector<std::string> colours{colour_text(of_window->bg[GTK_STATE_NORMAL]),
                                   colour_text(of_entry->base[GTK_STATE_SELECTED]),
                                   colour_text(of_entry->text[GTK_STATE_NORMAL])};
  gtk_widget_destroy(window);
  return colours;
}

TEST(Look, IsInForceWithAndWithoutTheEngineAndNeverComplains) {
  const GLogFunc before = g_log_set_default_handler(keep_complaint, nullptr);
  const std::vector<std::string> expected{"#f0f0f1f1f3f3", "#3b3b6e6ea5a5", "#1c1c21212626"};

  gtk_rc_parse_string(look_without_engine().c_str());
  EXPECT_EQ(colours_in_force(), expected) << "without the engine's package";
  EXPECT_THAT(complaints, testing::IsEmpty()) << "without the engine's package";

  gtk_rc_parse(KVO_LOOK_FILE);
  gtk_rc_reset_styles(gtk_settings_get_default());
  EXPECT_EQ(colours_in_force(), expected) << "with what is installed";
  EXPECT_THAT(complaints, testing::IsEmpty()) << "with what is installed";
  g_log_set_default_handler(before, nullptr);
}

}  // namespace
