#include "dialogs/widgets.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <filesystem>

#include "dialogs/shown_text.h"
#include "util/q_string.h"
#include "util/text.h"

namespace {

constexpr int COLUMN_SPACING = 10;
constexpr int ROW_SPACING = 4;
constexpr int TABLE_BORDER = 10;
constexpr int RADIO_SPACING = 2;
constexpr int RADIO_PADDING = 2;
constexpr int VOXEL_SPACING = 5;
/// Widths in characters, so that a field is neither tiny nor as wide as a long explanation.
constexpr int NUMBER_WIDTH = 8;
constexpr int TEXT_WIDTH = 30;

/// The box of the MNI template, in mm.
struct Axis {
  const char* label;
  double min;
  double max;
};
constexpr Axis AXES[] = {{"X:", -70, 70}, {"Y:", -102, 68}, {"Z:", -42, 66}};

/// Reads the number in the way the answer is read, so that the field shows what will be answered.
gint number_of_text(GtkSpinButton* field, gdouble* value, gpointer) {
  *value = Q_leading_number(gtk_entry_get_text(GTK_ENTRY(field)));
  return TRUE;
}

/// Cuts off the decimals of a coordinate that has been read.
gint truncate_number(GtkSpinButton*, gdouble* value, gpointer) {
  constexpr double NO_NEGATIVE_ZERO = 0;
  *value = std::trunc(*value) + NO_NEGATIVE_ZERO;
  return TRUE;
}

bool is_absolute_and_exists(const char* path) {
  std::error_code ignored;
  return path[0] == '/' && std::filesystem::exists(path, ignored);
}

}  // namespace

GtkWidget* Q_input_new_checkbutton(const char* label, bool active) {
  GtkWidget* box =
      label[0] == '\0' ? gtk_check_button_new() : gtk_check_button_new_with_label(label);
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(box), active);
  return box;
}

GtkWidget* Q_input_new_file(const char* path, const char* pattern) {
  GtkWidget* chooser = gtk_file_chooser_button_new("Choose a file", GTK_FILE_CHOOSER_ACTION_OPEN);
  if (is_absolute_and_exists(path)) {
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(chooser), path);
  } else {
    const Q_g_memory<char> current(g_get_current_dir());
    gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(chooser), current.get());
  }
  GtkFileFilter* filter = gtk_file_filter_new();
  gtk_file_filter_add_pattern(filter, pattern);
  gtk_file_filter_set_name(filter, pattern);
  gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(chooser), filter);
  gtk_file_chooser_button_set_width_chars(GTK_FILE_CHOOSER_BUTTON(chooser), TEXT_WIDTH);
  return chooser;
}

GtkWidget* Q_input_new_float(int precision, double value, double min, double max) {
  const int decimals = std::max(-precision, 0);
  const double step = std::pow(10, precision);
  GtkObject* adjustment = gtk_adjustment_new(value, min, max, step, std::pow(10, precision + 1), 0);
  GtkWidget* field =
      gtk_spin_button_new(GTK_ADJUSTMENT(adjustment), 0, static_cast<guint>(decimals));
  g_signal_connect(field, "input", G_CALLBACK(number_of_text), nullptr);
  gtk_entry_set_width_chars(GTK_ENTRY(field), NUMBER_WIDTH);
  gtk_widget_set_tooltip_text(field,
                              Q_format("From %.*f to %.*f", decimals, min, decimals, max).c_str());
  gtk_widget_show(field);
  return field;
}

GtkWidget* Q_input_new_str(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  GtkWidget* entry = gtk_entry_new();
  gtk_entry_set_text(GTK_ENTRY(entry), text.c_str());
  gtk_entry_set_width_chars(GTK_ENTRY(entry), TEXT_WIDTH);
  return entry;
}

GtkWidget* Q_input_new_radiogroup(GtkWidget** buttons, int selected, int n,
                                  const char* const* labels) {
  assert(n >= 1 && selected >= 1 && selected <= n);
  GtkWidget* box = gtk_vbox_new(TRUE, RADIO_SPACING);
  GSList* group = nullptr;
  for (int i = 0; i < n; ++i) {
    buttons[i] = gtk_radio_button_new_with_label(group, labels[i]);
    group = gtk_radio_button_get_group(GTK_RADIO_BUTTON(buttons[i]));
    gtk_box_pack_start(GTK_BOX(box), buttons[i], TRUE, TRUE, RADIO_PADDING);
  }
  if (selected >= 1 && selected <= n)
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(buttons[selected - 1]), TRUE);
  gtk_widget_show_all(box);
  return box;
}

void Q_input_new_voxel(Q_voxel_widgets& widgets, Q_voxel voxel) {
  const double start[] = {static_cast<double>(voxel.x), static_cast<double>(voxel.y),
                          static_cast<double>(voxel.z)};
  GtkWidget* row = gtk_hbox_new(FALSE, VOXEL_SPACING);
  widgets[0] = row;
  for (std::size_t axis = 0; axis < std::size(AXES); ++axis) {
    GtkWidget* field = Q_input_new_float(0, start[axis], AXES[axis].min, AXES[axis].max);
    g_signal_connect(field, "input", G_CALLBACK(truncate_number), nullptr);
    GtkWidget* label = gtk_label_new(AXES[axis].label);
    gtk_label_set_mnemonic_widget(GTK_LABEL(label), field);
    gtk_box_pack_start(GTK_BOX(row), label, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(row), field, TRUE, TRUE, 0);
    widgets[axis + 1] = field;
  }
  gtk_widget_show_all(row);
}

GtkWidget* Q_input_new_table(int n) {
  GtkWidget* table = gtk_table_new(static_cast<guint>(std::max(n, 1)), 2, FALSE);
  gtk_table_set_col_spacings(GTK_TABLE(table), COLUMN_SPACING);
  gtk_table_set_row_spacings(GTK_TABLE(table), ROW_SPACING);
  gtk_container_set_border_width(GTK_CONTAINER(table), TABLE_BORDER);
  return table;
}

void Q_input_new_table_row(GtkWidget* table, int row, const char* label, GtkWidget* field) {
  const auto bottom = static_cast<guint>(row);
  GtkWidget* name = gtk_label_new(Q_shown_text(label).get());
  gtk_misc_set_alignment(GTK_MISC(name), 1, 0.5);
  gtk_label_set_mnemonic_widget(GTK_LABEL(name), field);
  gtk_table_attach_defaults(GTK_TABLE(table), name, 0, 1, bottom - 1, bottom);
  gtk_table_attach_defaults(GTK_TABLE(table), field, 1, 2, bottom - 1, bottom);
}
