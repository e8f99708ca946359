#include "companions/kvo_edit/columns_dialog.h"

#include <algorithm>
#include <string>

#include "companions/kvo_edit/grid_edit.h"
#include "engine/base/wording.h"
#include "engine/formats/foreign_text.h"

namespace kvo::edit {

using formats::Role;

namespace {

constexpr std::size_t EXAMPLES = 3;
constexpr std::size_t LONGEST = 60;                       // bytes of the examples
constexpr int COLUMNS_WIDTH = 620, COLUMNS_HEIGHT = 440;  // pixels

struct Columns_dialog {
  GtkWidget *dialog = nullptr, *missing = nullptr;
  std::vector<GtkWidget*> lists;
};

std::vector<Role> roles_of(const Columns_dialog& columns) {
  std::vector<Role> roles;
  for (GtkWidget* list : columns.lists)
    roles.push_back(static_cast<Role>(gtk_combo_box_get_active(GTK_COMBO_BOX(list))));
  return roles;
}

/// Says what is missing, without which nothing can be imported.
void show_missing(Columns_dialog& columns) {
  const std::vector<std::string> missing = formats::missing_roles(roles_of(columns));
  const std::string text =
      missing.empty() ? "" : "Please say which column is: " + listed(missing) + ".";
  gtk_label_set_text(GTK_LABEL(columns.missing), text.c_str());
  gtk_dialog_set_response_sensitive(GTK_DIALOG(columns.dialog), GTK_RESPONSE_ACCEPT,
                                    missing.empty() ? TRUE : FALSE);
}

void on_role(GtkWidget* /*list*/, gpointer data) {
  show_missing(*static_cast<Columns_dialog*>(data));
}

/// The first values of a column, so that it can be told what it is.
std::string examples_of(const formats::Delimited& table, std::size_t column) {
  std::string text;
  std::size_t count = 0;
  for (std::size_t row = 1; row < table.rows.size() && count < EXAMPLES; ++row) {
    const std::vector<std::string>& cells = table.rows[row].cells;
    if (column >= cells.size() || cells[column].empty()) continue;
    text += (count++ > 0 ? ", " : "") + cells[column];
  }
  return formats::cut_at_character(formats::one_line(text), LONGEST);
}

GtkWidget* new_label(const std::string& text) {
  GtkWidget* label = gtk_label_new(shown_text(text).c_str());
  gtk_misc_set_alignment(GTK_MISC(label), 0, 0.5);
  return label;
}

GtkWidget* new_rows(Columns_dialog& columns, const formats::Delimited& table) {
  const std::vector<std::string>& names = table.rows.front().cells;
  const std::vector<Role> guessed = formats::guessed_roles(names);
  GtkWidget* rows = gtk_table_new(static_cast<guint>(names.size()), 3, FALSE);
  gtk_table_set_col_spacings(GTK_TABLE(rows), 12);
  gtk_table_set_row_spacings(GTK_TABLE(rows), 4);
  gtk_container_set_border_width(GTK_CONTAINER(rows), 6);
  for (std::size_t c = 0; c < names.size(); ++c) {
    GtkWidget* list = gtk_combo_box_new_text();
    for (std::size_t role = 0; role < formats::role_count; ++role)
      gtk_combo_box_append_text(GTK_COMBO_BOX(list), formats::role_name(static_cast<Role>(role)));
    gtk_combo_box_set_active(GTK_COMBO_BOX(list), static_cast<int>(guessed[c]));
    g_signal_connect(list, "changed", G_CALLBACK(on_role), &columns);
    columns.lists.push_back(list);
    const auto row = static_cast<guint>(c);
    const auto attach = [&](GtkWidget* child, guint column, GtkAttachOptions options) {
      gtk_table_attach(GTK_TABLE(rows), child, column, column + 1, row, row + 1, options,
                       GtkAttachOptions(0), 0, 0);
    };
    attach(new_label(names[c]), 0, GTK_FILL);
    attach(list, 1, GTK_FILL);
    attach(new_label(examples_of(table, c)), 2, GtkAttachOptions(GTK_FILL | GTK_EXPAND));
  }
  return rows;
}

}  // namespace

std::optional<std::vector<Role>> ask_columns(GtkWidget* window, const formats::Delimited& table) {
  Columns_dialog columns;
  columns.dialog = gtk_dialog_new_with_buttons(
      "What the columns hold", GTK_WINDOW(window), GTK_DIALOG_MODAL, GTK_STOCK_CANCEL,
      GTK_RESPONSE_CANCEL, GTK_STOCK_GO_FORWARD, GTK_RESPONSE_ACCEPT, nullptr);
  gtk_window_set_default_size(GTK_WINDOW(columns.dialog), COLUMNS_WIDTH, COLUMNS_HEIGHT);
  gtk_dialog_set_default_response(GTK_DIALOG(columns.dialog), GTK_RESPONSE_ACCEPT);
  columns.missing = new_label("");
  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scrolled), GTK_POLICY_AUTOMATIC,
                                 GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_add_with_viewport(GTK_SCROLLED_WINDOW(scrolled), new_rows(columns, table));
  GtkBox* box = GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(columns.dialog)));
  gtk_box_pack_start(box, scrolled, TRUE, TRUE, 0);
  gtk_box_pack_start(box, columns.missing, FALSE, FALSE, 0);
  show_missing(columns);
  gtk_widget_show_all(columns.dialog);
  gtk_widget_grab_focus(
      gtk_dialog_get_widget_for_response(GTK_DIALOG(columns.dialog), GTK_RESPONSE_ACCEPT));
  const bool agreed = gtk_dialog_run(GTK_DIALOG(columns.dialog)) == GTK_RESPONSE_ACCEPT;
  const std::vector<Role> roles = roles_of(columns);
  gtk_widget_destroy(columns.dialog);
  if (!agreed) return std::nullopt;
  return roles;
}

}  // namespace kvo::edit
