#include "dialogs/input.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <limits>
#include <vector>

#include "dialogs/frame.h"
#include "util/error.h"
#include "util/text.h"

namespace {

/// A built field: its widget in the table and, for a coordinate, the widgets inside.
struct Field {
  GtkWidget* widget = nullptr;
  Q_voxel_widgets voxel{};
};

/// Builds a field with the item's default.
using Builder = void (*)(Field&, Q_input_item&);
/// Stores a field's answer in the item.
using Reader = void (*)(const Field&, Q_input_item&);

void build_choice(Field& field, Q_input_item& item) {
  const int options = item.options == nullptr ? 0 : item.n_options;
  field.widget = Q_input_new_combobox(item.options, static_cast<int>(item.value), options);
}

void read_choice(const Field& field, Q_input_item& item) {
  item.value = static_cast<float>(Q_input_get_opt(field.widget));
}

void build_boolean(Field& field, Q_input_item& item) {
  field.widget = Q_input_new_checkbutton("", static_cast<int>(item.value) != 0);
}

void read_boolean(const Field& field, Q_input_item& item) {
  item.value = Q_input_get_boolean(field.widget) ? 1 : 0;
}

void build_file(Field& field, Q_input_item& item) {
  field.widget = Q_input_new_file(item.text.c_str(), item.options[0]);
}

void read_file(const Field& field, Q_input_item& item) {
  Q_input_get_file(field.widget, item.text);
}

void build_number(Field& field, Q_input_item& item) {
  field.widget = Q_input_new_float(item.precision, static_cast<double>(item.value),
                                   static_cast<double>(item.min), static_cast<double>(item.max));
}

void read_number(const Field& field, Q_input_item& item) {
  item.value = Q_input_get_num(field.widget);
}

void build_string(Field& field, Q_input_item& item) {
  field.widget = Q_input_new_str("%s", item.text.c_str());
}

void read_string(const Field& field, Q_input_item& item) {
  Q_input_get_str(field.widget, item.text);
}

void build_owned_choice(Field& field, Q_input_item& item) {
  build_choice(field, item);
  item.options = nullptr;
  item.owned_options.reset();
}

void build_voxel(Field& field, Q_input_item& item) {
  Q_input_new_voxel(field.voxel, item.voxel);
  field.widget = field.voxel[0];
}

void read_voxel(const Field& field, Q_input_item& item) {
  item.voxel = Q_input_get_voxel(field.voxel);
}

struct Kind {
  char letter;
  Builder build;
  Reader read;
};
constexpr Kind KINDS[] = {
    {'b', build_boolean, read_boolean}, {'f', build_file, read_file},
    {'n', build_number, read_number},   {'o', build_choice, read_choice},
    {'s', build_string, read_string},   {'t', build_owned_choice, read_choice},
    {'v', build_voxel, read_voxel},
};

const Kind& kind_of(const Q_input_item& item) {
  const auto* const found = std::ranges::find(KINDS, item.kind, &Kind::letter);
  if (found == std::end(KINDS))
    Q_error("The question '%s' is of the unknown kind '%c' (character code %d)", item.label.c_str(),
            item.kind, static_cast<unsigned char>(item.kind));
  return *found;
}

/// A coordinate's number, brought into the range that a coordinate can hold.
std::int16_t leading_coordinate(GtkWidget* field) {
  using Limits = std::numeric_limits<std::int16_t>;
  const float number = Q_input_get_num(field);
  if (std::isnan(number)) return 0;
  return static_cast<std::int16_t>(
      std::clamp(number, static_cast<float>(Limits::min()), static_cast<float>(Limits::max())));
}

}  // namespace

int Q_input(const char* message, int n, std::span<Q_input_item> items) {
  assert(n >= 0 && static_cast<std::size_t>(n) <= items.size());
  const std::span<Q_input_item> asked = items.first(static_cast<std::size_t>(n));
  std::vector<const Kind*> kinds;
  for (const Q_input_item& item : asked) kinds.push_back(&kind_of(item));

  Q_dialog dialog(Q_input_new_dialog(message, true));
  GtkWidget* table = Q_input_new_table(n);
  std::vector<Field> fields(asked.size());
  for (std::size_t i = 0; i < asked.size(); ++i) {
    kinds[i]->build(fields[i], asked[i]);
    Q_input_new_table_row(table, static_cast<int>(i) + 1, asked[i].label.c_str(), fields[i].widget);
  }
  dialog.add(table);
  if (!dialog.run()) return 0;
  for (std::size_t i = 0; i < asked.size(); ++i) kinds[i]->read(fields[i], asked[i]);
  return 1;
}

void Q_input_get_str(GtkWidget* entry, Q_string& text) {
  text = gtk_entry_get_text(GTK_ENTRY(entry));
  Q_trim(text);
}

float Q_input_get_num(GtkWidget* field) {
  return static_cast<float>(Q_leading_number(gtk_entry_get_text(GTK_ENTRY(field))));
}

void Q_input_get_file(GtkWidget* chooser, Q_string& text) {
  const Q_g_memory<char> path(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser)));
  text = path == nullptr ? "" : path.get();
}

Q_voxel Q_input_get_voxel(const Q_voxel_widgets& widgets) {
  return {leading_coordinate(widgets[1]), leading_coordinate(widgets[2]),
          leading_coordinate(widgets[3])};
}

int Q_input_get_opt(GtkWidget* list) {
  return gtk_combo_box_get_active(GTK_COMBO_BOX(list)) + 1;
}

bool Q_input_get_boolean(GtkWidget* check_box) {
  return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(check_box)) != FALSE;
}
