// The drop-down list, in its short and its long form.

#include "dialogs/shown_text.h"
#include "dialogs/widgets.h"
#include "util/handles.h"
#include "util/text.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace {

/// Longest list that opens as a menu, where all options are in view.
constexpr int LONGEST_MENU = 20;
/// Width of a long list's field, in characters.
constexpr int FIELD_WIDTH = 40;
/// Where a long list keeps the position (from 1) of its last valid choice.
constexpr const char* LAST_CHOICE = "kvo-last-choice";
/// Name of the long lists' widgets, for the style below.
constexpr const char* LONG_LIST = "kvo-long-list";

/// A long list drops down as a scrolled list; as a menu it would cover the screen.
void define_long_list_style() {
  [[maybe_unused]] static const bool defined = [] {
    gtk_rc_parse_string(
        "style \"kvo-long-list\" { GtkComboBox::appears-as-list = 1 }\n"
        "widget \"*.kvo-long-list\" style \"kvo-long-list\"");
    return true;
  }();
}

/// The form in which texts are compared: case does not matter.
std::string folded(const char* text) {
  const Q_g_memory<char> normal(g_utf8_normalize(text, -1, G_NORMALIZE_ALL));
  if (normal == nullptr) return "";
  const Q_g_memory<char> result(g_utf8_casefold(normal.get(), -1));
  return result.get();
}

/// Whether the option holds every word of what has been typed; both folded.
bool holds_all_words(std::string_view option, std::string_view typed) {
  return std::ranges::all_of(Q_words(typed), [option](std::string_view word) {
    return option.find(word) != std::string_view::npos;
  });
}

std::string option_text(GtkTreeModel* model, GtkTreeIter* row) {
  char* raw = nullptr;
  gtk_tree_model_get(model, row, 0, &raw, -1);
  const Q_g_memory<char> text(raw);
  return folded(text == nullptr ? "" : text.get());
}

/// The option that typed text stands for: the one that equals it, or else the only one that holds
/// all its words. -1 when there is none.
int meant_option(GtkTreeModel* model, const char* typed) {
  const std::string sought = folded(typed);
  if (Q_words(sought).empty()) return -1;
  int result = -1;
  int matches = 0;
  GtkTreeIter row;
  gboolean more = gtk_tree_model_get_iter_first(model, &row);
  for (int position = 0; more; ++position, more = gtk_tree_model_iter_next(model, &row)) {
    const std::string option = option_text(model, &row);
    if (option == sought) return position;
    if (!holds_all_words(option, sought)) continue;
    result = position;
    ++matches;
  }
  return matches == 1 ? result : -1;
}

GtkEntry* entry_of(GtkComboBox* list) {
  return GTK_ENTRY(gtk_bin_get_child(GTK_BIN(list)));
}

int option_meant_by_entry(GtkComboBox* list) {
  const int active = gtk_combo_box_get_active(list);
  if (active >= 0) return active;
  return meant_option(gtk_combo_box_get_model(list), gtk_entry_get_text(entry_of(list)));
}

/// Text that matches several options, or none, cannot be the answer: OK is off until one is meant.
void follow_text(GtkComboBox* list, gpointer) {
  const int active = gtk_combo_box_get_active(list);
  if (active >= 0) g_object_set_data(G_OBJECT(list), LAST_CHOICE, GINT_TO_POINTER(active + 1));
  GtkWidget* dialog = gtk_widget_get_toplevel(GTK_WIDGET(list));
  if (!GTK_IS_DIALOG(dialog)) return;
  const bool empty = *gtk_entry_get_text(entry_of(list)) == '\0';
  gtk_dialog_set_response_sensitive(GTK_DIALOG(dialog), GTK_RESPONSE_OK,
                                    empty || option_meant_by_entry(list) >= 0);
}

/// Completes the field to an option's whole text: the one meant, else the last one chosen.
void settle(GtkComboBox* list) {
  if (gtk_combo_box_get_active(list) >= 0) return;
  const int meant = option_meant_by_entry(list);
  const int last = GPOINTER_TO_INT(g_object_get_data(G_OBJECT(list), LAST_CHOICE)) - 1;
  gtk_combo_box_set_active(list, meant >= 0 ? meant : last);
  if (gtk_combo_box_get_active(list) < 0) gtk_entry_set_text(entry_of(list), "");
}

gboolean settle_when_left(GtkWidget*, GdkEventFocus*, gpointer list) {
  settle(GTK_COMBO_BOX(list));
  return FALSE;
}

gboolean matches(GtkEntryCompletion* completion, const gchar* key, GtkTreeIter* row, gpointer) {
  return holds_all_words(option_text(gtk_entry_completion_get_model(completion), row), key);
}

gboolean choose_match(GtkEntryCompletion*, GtkTreeModel* model, GtkTreeIter* row, gpointer list) {
  GtkTreeIter option = *row;
  if (GTK_IS_TREE_MODEL_FILTER(model))
    gtk_tree_model_filter_convert_iter_to_child_iter(GTK_TREE_MODEL_FILTER(model), &option, row);
  gtk_combo_box_set_active_iter(GTK_COMBO_BOX(list), &option);
  gtk_editable_set_position(GTK_EDITABLE(entry_of(GTK_COMBO_BOX(list))), -1);
  return TRUE;
}

/// Lets the user type into the list's entry to find an option.
void make_searchable(GtkComboBox* list) {
  const Q_object<GtkEntryCompletion> completion(gtk_entry_completion_new());
  gtk_entry_completion_set_model(completion.get(), gtk_combo_box_get_model(list));
  gtk_entry_completion_set_text_column(completion.get(), 0);
  gtk_entry_completion_set_match_func(completion.get(), matches, nullptr, nullptr);
  g_signal_connect(completion.get(), "match-selected", G_CALLBACK(choose_match), list);
  GtkEntry* entry = entry_of(list);
  gtk_entry_set_completion(entry, completion.get());
  gtk_entry_set_width_chars(entry, FIELD_WIDTH);
  gtk_widget_set_tooltip_text(GTK_WIDGET(entry), "Type a part of the name to find it");
  g_signal_connect(entry, "focus-out-event", G_CALLBACK(settle_when_left), list);
  g_signal_connect(list, "changed", G_CALLBACK(follow_text), nullptr);
}

}  // namespace

GtkWidget* Q_input_new_combobox(const char* const* options, int selected, int n) {
  const bool is_long = n > LONGEST_MENU;
  GtkWidget* list = is_long ? gtk_combo_box_text_new_with_entry() : gtk_combo_box_text_new();
  for (int i = 0; i < n; ++i)
    gtk_combo_box_text_append_text(GTK_COMBO_BOX_TEXT(list), Q_shown_text(options[i]).get());
  if (is_long) {
    define_long_list_style();
    gtk_widget_set_name(list, LONG_LIST);
    make_searchable(GTK_COMBO_BOX(list));
  }
  if (selected >= 1 && selected <= n) gtk_combo_box_set_active(GTK_COMBO_BOX(list), selected - 1);
  gtk_widget_show(list);
  return list;
}
