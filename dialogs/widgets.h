#pragma once

// One builder per kind of field, and the table that holds labels and fields. The builders keep
// nothing: a widget belongs to the dialog that it is put into.

#include <gtk/gtk.h>

#include <array>
#include <cstdint>

/// An MNI coordinate in mm.
struct Q_voxel {
  std::int16_t x = 0;
  std::int16_t y = 0;
  std::int16_t z = 0;
  bool operator==(const Q_voxel&) const = default;
};

/// The parts of a coordinate field: the row as a whole, then the spin buttons of x, y and z.
using Q_voxel_widgets = std::array<GtkWidget*, 4>;

/// A check box, without a label when the label is empty.
GtkWidget* Q_input_new_checkbutton(const char* label, bool active);

/// A drop-down list of n texts with the option at position `selected` (from 1) chosen, none when it
/// is 0 or beyond n. A list too long to look through is a field to type into, which offers the
/// options that contain what has been typed; text that stands for no option never stays in it once
/// the field is left. gtk_combo_box_get_active() is the answer in both forms.
GtkWidget* Q_input_new_combobox(const char* const* options, int selected, int n);

/// A file chooser button that opens one existing file among those that match the pattern. A path
/// that is not absolute or does not exist leaves it with no file chosen; it then starts in the
/// current folder.
GtkWidget* Q_input_new_file(const char* path, const char* pattern);

/// A spin button over [min, max] whose step is 10^precision, with a page step ten times that. It
/// shows -precision decimals when precision is negative, none otherwise.
GtkWidget* Q_input_new_float(int precision, double value, double min, double max);

/// A one-line text entry that holds the formatted text.
[[gnu::format(printf, 1, 2)]] GtkWidget* Q_input_new_str(const char* format, ...);

/// A vertical box of n radio buttons, which are also stored in the caller's array, with the one at
/// position `selected` (from 1) active. A position out of range is an error of the caller: the
/// first button becomes active.
GtkWidget* Q_input_new_radiogroup(GtkWidget** buttons, int selected, int n,
                                  const char* const* labels);

/// Fills `widgets` with a row of three spin buttons that start at the coordinate and span the
/// brain's box. Decimals typed into them are cut off, not rounded.
void Q_input_new_voxel(Q_voxel_widgets& widgets, Q_voxel voxel);

/// A table of n rows and two columns, for labels and their fields.
GtkWidget* Q_input_new_table(int n);

/// Puts a label with the plain text and the field into a row (from 1) of the table; the label names
/// the field for assistive technology.
void Q_input_new_table_row(GtkWidget* table, int row, const char* label, GtkWidget* field);
