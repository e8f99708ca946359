#include "shell/main/main_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "shell/console.h"
#include "shell/main/actions.h"
#include "shell/window.h"
#include "util/handles.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;

std::string text_of(int pane) {
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(Qw_v_OutputBuffer.at(static_cast<std::size_t>(pane)), &start, &end);
  const Q_g_memory<char> text(gtk_text_iter_get_text(&start, &end));
  return text.get();
}

std::vector<GtkWidget*> children(GtkWidget* container) {
  std::vector<GtkWidget*> result;
  GList* list = gtk_container_get_children(GTK_CONTAINER(container));
  for (GList* item = list; item != nullptr; item = item->next)
    result.push_back(GTK_WIDGET(item->data));
  g_list_free(list);
  return result;
}

/// The action that a menu item or tool item stands for; "|" for a separator.
std::string action_of(GtkWidget* item) {
  GtkAction* action = gtk_activatable_get_related_action(GTK_ACTIVATABLE(item));
  return action != nullptr ? gtk_action_get_name(action) : "|";
}

std::vector<std::string> visible_actions(GtkWidget* container) {
  std::vector<std::string> names;
  for (GtkWidget* item : children(container)) {
    if (!gtk_widget_get_visible(item)) continue;
    const bool separator = GTK_IS_SEPARATOR_MENU_ITEM(item) || GTK_IS_SEPARATOR_TOOL_ITEM(item);
    names.push_back(separator ? "|" : action_of(item));
  }
  return names;
}

class Main_window : public testing::Test {
 protected:
  Main_window() {
    kvo3_main();
    Q_process_events();
  }

  static GtkWidget* menu_bar() { return children(gtk_bin_get_child(GTK_BIN(Qw_Window)))[0]; }
  static GtkWidget* toolbar() { return children(gtk_bin_get_child(GTK_BIN(Qw_Window)))[1]; }
  static GtkWidget* middle() { return children(gtk_bin_get_child(GTK_BIN(Qw_Window)))[2]; }
};

TEST_F(Main_window, HasTheMenusAndBothToolbarsWithoutAccelerators) {
  const std::vector<std::pair<std::string, std::vector<std::string>>> menus = {
      {"menu_MetaAnalyses",
       {"cd", "edit_table", "|", "convert_t", "convert_img", "|", "pp", "|", "quit"}},
      {"menu_Statistics", {"globals", "|", "mean", "lm", "|", "threshold", "|", "multi"}},
      {"menu_Tools",
       {"create_mask", "extract", "|", "save_batch", "run_batch", "|", "spm", "settings"}},
      {"menu_help", {"help", "check_updates", "|", "about"}},
  };
  const std::vector<GtkWidget*> items = children(menu_bar());
  ASSERT_EQ(items.size(), menus.size());
  for (std::size_t i = 0; i < menus.size(); ++i) {
    EXPECT_EQ(action_of(items[i]), menus[i].first);
    EXPECT_THAT(visible_actions(gtk_menu_item_get_submenu(GTK_MENU_ITEM(items[i]))),
                ElementsAreArray(menus[i].second))
        << menus[i].first;
  }

  EXPECT_THAT(visible_actions(toolbar()),
              ElementsAre("cd", "edit_table", "|", "convert_t", "convert_img", "|", "globals", "|",
                          "save_batch", "run_batch", "|", "help", "|", "quit"));
  GtkWidget* frame = children(middle())[0];
  GtkWidget* side = gtk_bin_get_child(GTK_BIN(frame));
  EXPECT_THAT(visible_actions(side), ElementsAre("pp", "|", "mean", "lm", "threshold", "|", "multi",
                                                 "|", "create_mask", "extract"));
  EXPECT_EQ(gtk_orientable_get_orientation(GTK_ORIENTABLE(side)), GTK_ORIENTATION_VERTICAL);
  for (GtkWidget* bar : {toolbar(), side})
    EXPECT_EQ(gtk_toolbar_get_style(GTK_TOOLBAR(bar)), GTK_TOOLBAR_BOTH);

  GList* actions = gtk_action_group_list_actions(kvo3_actions());
  EXPECT_EQ(g_list_length(actions), 24U);
  for (GList* item = actions; item != nullptr; item = item->next) {
    GtkAction* action = GTK_ACTION(item->data);
    GtkAccelKey key{};
    const char* path = gtk_action_get_accel_path(action);
    EXPECT_FALSE(path != nullptr && gtk_accel_map_lookup_entry(path, &key) && key.accel_key != 0)
        << gtk_action_get_name(action);
  }
  g_list_free(actions);
}

TEST_F(Main_window, GreetsWithTheKeyboardInTheCommandEntry) {
  EXPECT_THAT(text_of(0),
              testing::StartsWith("\nQuorvane v4.31\n\nWelcome to Quorvane v4.31 (formerly "
                                  "Telvarine) for Linux 64 bits, the software to perform complete "
                                  "voxel-based meta-analyses in neuroimage.\nPlease visit http"));
  EXPECT_THAT(text_of(0), testing::EndsWith(" for more information on the method.\n\n"));
  EXPECT_EQ(text_of(1), "");
  EXPECT_EQ(Qw_v_OutputBuffer[2], nullptr);

  EXPECT_FALSE(gtk_text_view_get_editable(GTK_TEXT_VIEW(Qw_v_OutputView[0])));
  EXPECT_TRUE(gtk_text_view_get_editable(GTK_TEXT_VIEW(Qw_v_OutputView[1])));

  GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(Qw_Window));
  ASSERT_TRUE(GTK_IS_ENTRY(focus));
  EXPECT_TRUE(GTK_IS_COMBO_BOX(gtk_widget_get_parent(focus)));
}

TEST_F(Main_window, AboutBoxNamesProgramAndVersion) {
  std::string seen;
  const auto answer = [](gpointer data) -> gboolean {
    GList* windows = gtk_window_list_toplevels();
    for (GList* item = windows; item != nullptr; item = item->next) {
      if (!GTK_IS_ABOUT_DIALOG(item->data)) continue;
      GtkAboutDialog* about = GTK_ABOUT_DIALOG(item->data);
      GdkPixbuf* logo = gtk_about_dialog_get_logo(about);
      *static_cast<std::string*>(data) = std::string(gtk_about_dialog_get_program_name(about)) +
                                         "|" + gtk_about_dialog_get_version(about) + "|" +
                                         gtk_about_dialog_get_comments(about) + "|" +
                                         std::to_string(gdk_pixbuf_get_width(logo)) + "x" +
                                         std::to_string(gdk_pixbuf_get_height(logo));
      gtk_dialog_response(GTK_DIALOG(about), GTK_RESPONSE_CANCEL);
    }
    g_list_free(windows);
    return G_SOURCE_REMOVE;
  };
  g_idle_add(answer, &seen);
  kvo3_about();
  EXPECT_EQ(seen, "Quorvane|4.31|(formerly Telvarine)|208x86");
}

}  // namespace
