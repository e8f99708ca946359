#include "shell/main/main_window.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "dialogs/help.h"
#include "kvo_config.h"
#include "resources/images.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "shell/main/actions.h"
#include "shell/markup.h"
#include "shell/window.h"
#include "util/handles.h"
#include "util/q_string.h"
#include "util/site_address.h"
#include "workspace/load_table.h"

namespace {

constexpr int DEFAULT_WIDTH = 800;          // pixels
constexpr int DEFAULT_HEIGHT = 600;         // pixels
constexpr int HEIGHT_BESIDE_CONSOLE = 350;  // pixels of the screen that the console leaves free

constexpr const char* BANNER =
    "\n<big><b>Quorvane v%.2f</b></big>\n\n"
    "Welcome to Quorvane v%.2f (formerly Telvarine) for %s %i bits, the software to perform "
    "complete voxel-based meta-analyses in neuroimage.\n"
    "Please visit %s for more information on the method.\n\n";

GtkActionGroup* actions = nullptr;

GtkUIManager* new_ui_manager() {
  GtkUIManager* manager = gtk_ui_manager_new();
  actions = kvo3_new_actions();
  gtk_ui_manager_insert_action_group(manager, actions, 0);
  g_object_unref(actions);
  GError* error = nullptr;
  if (gtk_ui_manager_add_ui_from_string(manager, kvo3_ui_description, -1, &error) == 0)
    g_error("The menus cannot be built: %s", error->message);
  return manager;
}

void pack(GtkWidget* box, GtkWidget* child, bool expand, guint padding) {
  gtk_box_pack_start(GTK_BOX(box), child, expand, expand, padding);
}

GtkWidget* new_panes() {
  GtkWidget* paned = gtk_vpaned_new();
  GtkWidget* console = Q_new_pane(0, false);
  gtk_text_buffer_set_markup(Qw_v_OutputBuffer[0], BANNER, KVO_VERSION, KVO_VERSION, "Linux", 64,
                             kvo_public_site());
  const int height = gdk_screen_get_height(gdk_screen_get_default()) - HEIGHT_BESIDE_CONSOLE;
  gtk_widget_set_size_request(console, -1, height > 0 ? height : -1);
  gtk_paned_add1(GTK_PANED(paned), console);
  gtk_paned_add2(GTK_PANED(paned), Q_new_pane(Q_BATCH_PANE, true));
  return paned;
}

/// The box with the command entry; stores the combo box in `combo_box`.
GtkWidget* new_command_entry(GtkWidget*& combo_box) {
  GtkWidget* box = gtk_hbox_new(FALSE, 0);
  GtkWidget* label = gtk_label_new(" Type a command:  ");
  combo_box = gtk_combo_box_entry_new_text();
  GtkWidget* entry = gtk_bin_get_child(GTK_BIN(combo_box));
  gtk_label_set_mnemonic_widget(GTK_LABEL(label), entry);
  kvo3_connect_entry(entry);
  kvo3_connect_command_end(kvotable_load_after);
  pack(box, label, false, 0);
  pack(box, combo_box, true, 0);
  return box;
}

GtkWidget* new_side_toolbar(GtkUIManager* manager) {
  GtkWidget* toolbar = gtk_ui_manager_get_widget(manager, "/toolbar2");
  gtk_orientable_set_orientation(GTK_ORIENTABLE(toolbar), GTK_ORIENTATION_VERTICAL);
  gtk_toolbar_set_style(GTK_TOOLBAR(toolbar), GTK_TOOLBAR_BOTH);
  GtkWidget* frame = gtk_frame_new("");
  gtk_container_add(GTK_CONTAINER(frame), toolbar);
  return frame;
}

void open_link(GtkAboutDialog* /*about*/, const gchar* link, gpointer /*data*/) {
  Q_open_browser("%s", link);
}

}  // namespace

GtkActionGroup* kvo3_actions() {
  return actions;
}

void kvo3_main() {
  const Q_object<GdkPixbuf> icon(kvo_image(image_kvo));
  gtk_window_set_default_icon(icon.get());

  Qw_Window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWindow* window = GTK_WINDOW(Qw_Window);
  g_signal_connect(window, "destroy", G_CALLBACK(kvo3_main_quit), nullptr);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_widget_destroyed), &Qw_Window);
  gtk_window_maximize(window);
  gtk_window_set_default_size(window, DEFAULT_WIDTH, DEFAULT_HEIGHT);
  gtk_window_set_position(window, GTK_WIN_POS_CENTER);

  GtkUIManager* manager = new_ui_manager();
  // Menus and actions live as long as the window.
  g_object_set_data_full(G_OBJECT(window), "kvo-ui-manager", manager, g_object_unref);
  GtkWidget* toolbar = gtk_ui_manager_get_widget(manager, "/toolbar1");
  gtk_toolbar_set_style(GTK_TOOLBAR(toolbar), GTK_TOOLBAR_BOTH);

  GtkWidget* combo_box = nullptr;
  GtkWidget* right = gtk_vbox_new(FALSE, 0);
  pack(right, new_panes(), true, 0);
  pack(right, new_command_entry(combo_box), false, 3);

  GtkWidget* middle = gtk_hbox_new(FALSE, 0);
  pack(middle, new_side_toolbar(manager), false, 5);
  pack(middle, gtk_vseparator_new(), false, 0);
  pack(middle, right, true, 0);

  GtkWidget* all = gtk_vbox_new(FALSE, 0);
  pack(all, gtk_ui_manager_get_widget(manager, "/menu"), false, 0);
  pack(all, toolbar, false, 0);
  pack(all, middle, true, 0);
  gtk_container_add(GTK_CONTAINER(window), all);

  gtk_widget_show_all(Qw_Window);
  gtk_widget_grab_focus(combo_box);
}

void kvo3_main_quit() {
  std::fputs("See you soon!\n", stdout);
  std::fflush(stdout);
  // There is no main loop to end before it has started.
  if (gtk_main_level() == 0) std::exit(0);
  gtk_main_quit();
}

void kvo3_about() {
  GtkWidget* dialog = gtk_about_dialog_new();
  GtkAboutDialog* about = GTK_ABOUT_DIALOG(dialog);
  const Q_object<GdkPixbuf> logo(kvo_image(image_kvo_letters));
  gtk_about_dialog_set_url_hook(open_link, nullptr, nullptr);
  gtk_about_dialog_set_logo(about, logo.get());
  gtk_about_dialog_set_program_name(about, "Quorvane");
  gtk_about_dialog_set_version(about, Q_format("%.2f", KVO_VERSION).c_str());
  gtk_about_dialog_set_comments(about, "(formerly Telvarine)");
  gtk_about_dialog_set_website(about, kvo_public_site());
  gtk_dialog_run(GTK_DIALOG(dialog));
  gtk_widget_destroy(dialog);
}
