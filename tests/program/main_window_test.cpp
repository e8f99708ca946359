#include "shell/main/main_window.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "dialog_driver.h"
#include "shell/console.h"
#include "shell/main/actions.h"
#include "shell/window.h"
#include "util/handles.h"

namespace {

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

/// The actions that the visible items of a menu or toolbar stand for, "|" being a separator; those
/// of a menu in the bar follow its own.
std::string actions_of(GtkWidget* container) {
  std::string names;
  for (GtkWidget* item : children(container)) {
    if (!gtk_widget_get_visible(item)) continue;
    GtkAction* action = gtk_activatable_get_related_action(GTK_ACTIVATABLE(item));
    names += std::string(" ") + (action != nullptr ? gtk_action_get_name(action) : "|");
    GtkWidget* menu =
        GTK_IS_MENU_ITEM(item) ? gtk_menu_item_get_submenu(GTK_MENU_ITEM(item)) : nullptr;
    if (menu != nullptr) names += ":" + actions_of(menu) + "\n";
  }
  return names;
}

class Main_window : public testing::Test {
 protected:
  Main_window() {
    kvo3_main();
    Q_process_events();
    parts_ = children(gtk_bin_get_child(GTK_BIN(Qw_Window)));
  }

  std::vector<GtkWidget*> parts_;  ///< menu bar, toolbar, all that is below
};

TEST_F(Main_window, HasTheMenusAndBothToolbarsWithoutAccelerators) {
  EXPECT_EQ(actions_of(parts_[0]),
            " menu_MetaAnalyses: cd edit_table | convert_t convert_img | pp | quit\n"
            " menu_Statistics: globals | mean lm | threshold | multi\n"
            " menu_Tools: create_mask extract | save_batch run_batch | spm settings\n"
            " menu_help: help check_updates | about\n");
  EXPECT_EQ(
      actions_of(parts_[1]),
      " cd edit_table | convert_t convert_img | globals | save_batch run_batch | help | quit");
  GtkWidget* side = gtk_bin_get_child(GTK_BIN(children(parts_[2])[0]));
  EXPECT_EQ(actions_of(side), " pp | mean lm threshold | multi | create_mask extract");
  EXPECT_EQ(gtk_orientable_get_orientation(GTK_ORIENTABLE(side)), GTK_ORIENTATION_VERTICAL);
  for (GtkWidget* bar : {parts_[1], side})
    EXPECT_EQ(gtk_toolbar_get_style(GTK_TOOLBAR(bar)), GTK_TOOLBAR_BOTH);

  GList* actions = gtk_action_group_list_actions(kvo3_actions());
  EXPECT_EQ(g_list_length(actions), 24U);
  for (GList* item = actions; item != nullptr; item = item->next) {
    GtkAccelKey key{};
    const char* path = gtk_action_get_accel_path(GTK_ACTION(item->data));
    EXPECT_FALSE(path != nullptr && gtk_accel_map_lookup_entry(path, &key) && key.accel_key != 0)
        << path;
  }
  g_list_free(actions);
}

TEST_F(Main_window, GreetsWithTheKeyboardInTheCommandEntry) {
  EXPECT_THAT(text_of(0), testing::MatchesRegex(
                              "\nQuorvane v4.31\n\nWelcome to Quorvane v4.31 \\(formerly "
                              "Telvarine\\) for Linux 64 bits, the software to perform complete "
                              "voxel-based meta-analyses in neuroimage.\nPlease visit http.* for "
                              "more information on the method.\n\n"));
  EXPECT_EQ(text_of(1), "");
  EXPECT_EQ(Qw_v_OutputBuffer[2], nullptr);
  EXPECT_FALSE(gtk_text_view_get_editable(GTK_TEXT_VIEW(Qw_v_OutputView[0])));
  EXPECT_TRUE(gtk_text_view_get_editable(GTK_TEXT_VIEW(Qw_v_OutputView[1])));
  GtkWidget* focus = gtk_window_get_focus(GTK_WINDOW(Qw_Window));
  ASSERT_TRUE(GTK_IS_ENTRY(focus));
  EXPECT_TRUE(GTK_IS_COMBO_BOX(gtk_widget_get_parent(focus)));
}

TEST_F(Main_window, AboutBoxNamesProgramAndVersion) {
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    GtkAboutDialog* about = GTK_ABOUT_DIALOG(dialog.widget());
    EXPECT_STREQ(gtk_about_dialog_get_program_name(about), "Quorvane");
    EXPECT_STREQ(gtk_about_dialog_get_version(about), "4.31");
    EXPECT_STREQ(gtk_about_dialog_get_comments(about), "(formerly Telvarine)");
    EXPECT_EQ(gdk_pixbuf_get_width(gtk_about_dialog_get_logo(about)), 208);
    EXPECT_EQ(gdk_pixbuf_get_height(gtk_about_dialog_get_logo(about)), 86);
    dialog.close();
  });
  kvo3_about();
}

}  // namespace
