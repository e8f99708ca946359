#include "companions/kvo_edit/paste_dialog.h"

#include <algorithm>

#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/pasted_peaks.h"
#include "util/text.h"

namespace kvo::edit {

namespace {

constexpr const char* TITLES[] = {"x", "y", "z", "value", "is", "comment"};
constexpr int COLUMNS = 6;
constexpr std::size_t COORDINATES = 3;
constexpr std::size_t MOST_DROPPED = 4;
constexpr ValueKind KINDS[] = {ValueKind::t, ValueKind::z, ValueKind::p, ValueKind::g};

/// The dialog while it is open.
struct Paste_dialog {
  const std::string& text;
  std::vector<Pasted_line> lines{};
  Pasted_places places{};
  Pasted_peaks peaks{};
  GtkWidget *dialog = nullptr, *comma = nullptr, *x = nullptr, *value = nullptr, *kind = nullptr,
            *dropped = nullptr;
  GtkListStore* store = nullptr;
  bool filling = false;  ///< the lists are being filled, not chosen from
};

void fill(GtkWidget* list, const std::vector<std::string>& texts, std::size_t chosen) {
  gtk_list_store_clear(GTK_LIST_STORE(gtk_combo_box_get_model(GTK_COMBO_BOX(list))));
  for (const std::string& text : texts)
    gtk_combo_box_append_text(GTK_COMBO_BOX(list), text.c_str());
  gtk_combo_box_set_active(GTK_COMBO_BOX(list), static_cast<int>(chosen));
}

std::size_t chosen_of(GtkWidget* list) {
  return static_cast<std::size_t>(std::max(0, gtk_combo_box_get_active(GTK_COMBO_BOX(list))));
}

/// A number of the first line that has one there, so that a place can be told.
std::string place_text(const Paste_dialog& paste, std::size_t place) {
  std::string text = "number " + std::to_string(place + 1);
  for (const Pasted_line& line : paste.lines)
    if (place < line.numbers.size() && !line.numbers[place].empty())
      return text + " (" + line.numbers[place] + " ...)";
  return text;
}

void show_peaks(Paste_dialog& paste) {
  paste.peaks = pasted_peaks(paste.lines, paste.places);
  gtk_list_store_clear(paste.store);
  for (const auto& row : paste.peaks.rows) {
    GtkTreeIter at;
    gtk_list_store_append(paste.store, &at);
    for (int column = 0; column < COLUMNS; ++column)
      gtk_list_store_set(paste.store, &at, column,
                         shown_text(row[static_cast<std::size_t>(column)]).c_str(), -1);
  }
  const std::vector<std::string>& dropped = paste.peaks.dropped;
  std::string text = Q_counted(paste.peaks.rows.size(), "peak", "peaks") + " understood.";
  for (std::size_t n = 0; n < std::min(dropped.size(), MOST_DROPPED); ++n) text += " " + dropped[n];
  if (dropped.size() > MOST_DROPPED)
    text += " " + std::to_string(dropped.size() - MOST_DROPPED) + " more lines give none.";
  gtk_label_set_text(GTK_LABEL(paste.dropped), text.c_str());
  gtk_dialog_set_response_sensitive(GTK_DIALOG(paste.dialog), GTK_RESPONSE_ACCEPT,
                                    paste.peaks.rows.empty() ? FALSE : TRUE);
}

/// Reads the text anew and guesses what is what.
void read_lines(Paste_dialog& paste) {
  const bool comma = gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(paste.comma)) != FALSE;
  paste.lines = pasted_lines(paste.text, comma);
  paste.places = guessed_places(paste.lines);
  std::size_t most = 0;
  for (const Pasted_line& line : paste.lines) most = std::max(most, line.numbers.size());
  std::vector<std::string> begins, values = {"not given"};
  for (std::size_t place = 0; place < most; ++place) {
    if (place + COORDINATES <= most) begins.push_back(place_text(paste, place));
    values.push_back(place_text(paste, place));
  }
  paste.filling = true;
  fill(paste.x, begins, paste.places.x);
  fill(paste.value, values, paste.places.value ? *paste.places.value + 1 : 0);
  gtk_combo_box_set_active(
      GTK_COMBO_BOX(paste.kind),
      static_cast<int>(std::ranges::find(KINDS, paste.places.kind) - std::begin(KINDS)));
  paste.filling = false;
  show_peaks(paste);
}

void on_comma(GtkWidget* /*button*/, gpointer data) {
  read_lines(*static_cast<Paste_dialog*>(data));
}

void on_choice(GtkWidget* /*list*/, gpointer data) {
  Paste_dialog& paste = *static_cast<Paste_dialog*>(data);
  if (paste.filling) return;
  paste.places.x = chosen_of(paste.x);
  const std::size_t value = chosen_of(paste.value);
  paste.places.value = value == 0 ? std::nullopt : std::optional(value - 1);
  paste.places.kind = KINDS[chosen_of(paste.kind)];
  show_peaks(paste);
}

GtkWidget* new_list(Paste_dialog& paste, GtkWidget* row, const char* label) {
  GtkWidget* list = gtk_combo_box_new_text();
  gtk_box_pack_start(GTK_BOX(row), gtk_label_new(label), FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(row), list, FALSE, FALSE, 0);
  g_signal_connect(list, "changed", G_CALLBACK(on_choice), &paste);
  return list;
}

GtkWidget* new_preview(Paste_dialog& paste) {
  paste.store = gtk_list_store_new(COLUMNS, G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING,
                                   G_TYPE_STRING, G_TYPE_STRING, G_TYPE_STRING);
  GtkWidget* view = gtk_tree_view_new_with_model(GTK_TREE_MODEL(paste.store));
  g_object_unref(paste.store);
  for (int column = 0; column < COLUMNS; ++column)
    gtk_tree_view_insert_column_with_attributes(GTK_TREE_VIEW(view), -1, TITLES[column],
                                                gtk_cell_renderer_text_new(), "text", column,
                                                nullptr);
  return new_scrolled(view);
}

void make_dialog(Paste_dialog& paste, GtkWidget* window) {
  paste.dialog = gtk_dialog_new_with_buttons("Paste peaks", GTK_WINDOW(window), GTK_DIALOG_MODAL,
                                             GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL, GTK_STOCK_PASTE,
                                             GTK_RESPONSE_ACCEPT, nullptr);
  gtk_window_set_default_size(GTK_WINDOW(paste.dialog), 640, 420);
  gtk_dialog_set_default_response(GTK_DIALOG(paste.dialog), GTK_RESPONSE_ACCEPT);
  GtkBox* box = GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(paste.dialog)));
  gtk_box_set_spacing(box, 6);
  GtkWidget* row = gtk_hbox_new(FALSE, 6);
  paste.x = new_list(paste, row, "x, y, z from");
  paste.value = new_list(paste, row, "Value");
  paste.kind = new_list(paste, row, "which is");
  paste.filling = true;
  for (const ValueKind kind : KINDS)
    gtk_combo_box_append_text(GTK_COMBO_BOX(paste.kind), name_of(kind));
  paste.filling = false;
  paste.comma = gtk_check_button_new_with_mnemonic("_Decimal commas");
  paste.dropped = gtk_label_new("");
  gtk_label_set_line_wrap(GTK_LABEL(paste.dropped), TRUE);
  gtk_misc_set_alignment(GTK_MISC(paste.dropped), 0, 0.5);
  gtk_box_pack_start(box, row, FALSE, FALSE, 0);
  gtk_box_pack_start(box, paste.comma, FALSE, FALSE, 0);
  gtk_box_pack_start(box, new_preview(paste), TRUE, TRUE, 0);
  gtk_box_pack_start(box, paste.dropped, FALSE, FALSE, 0);
  g_signal_connect(paste.comma, "toggled", G_CALLBACK(on_comma), &paste);
  gtk_widget_show_all(paste.dialog);
  gtk_widget_grab_focus(
      gtk_dialog_get_widget_for_response(GTK_DIALOG(paste.dialog), GTK_RESPONSE_ACCEPT));
}

}  // namespace

std::vector<std::vector<std::string>> ask_pasted_peaks(GtkWidget* window, const std::string& text) {
  Paste_dialog paste{.text = text};
  make_dialog(paste, window);
  read_lines(paste);
  const bool agreed = gtk_dialog_run(GTK_DIALOG(paste.dialog)) == GTK_RESPONSE_ACCEPT;
  gtk_widget_destroy(paste.dialog);
  return agreed ? std::move(paste.peaks.rows) : std::vector<std::vector<std::string>>();
}

}  // namespace kvo::edit
