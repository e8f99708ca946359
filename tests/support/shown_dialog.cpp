#include "shown_dialog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "util/handles.h"

namespace {

/// Mark of a dialog that has been answered.
constexpr const char* ANSWERED = "kvo-test-answered";

void mark_answered(GtkDialog* dialog, gint response, gpointer) {
  if (response != GTK_RESPONSE_NONE)
    g_object_set_data(G_OBJECT(dialog), ANSWERED, GINT_TO_POINTER(1));
}

/// A widget's string property.
std::string property(gpointer object, const char* name) {
  char* raw = nullptr;
  g_object_get(object, name, &raw, nullptr);
  const Q_g_memory<char> text(raw);
  return text == nullptr ? "" : text.get();
}

std::string button_name(GtkWidget* button) {
  std::string name = property(button, "label");
  GtkStockItem stock;
  if (gtk_button_get_use_stock(GTK_BUTTON(button)) && gtk_stock_lookup(name.c_str(), &stock))
    name = stock.label;
  std::erase(name, '_');
  return name.substr(std::min(name.find_first_not_of(' '), name.size()));
}

std::vector<GtkWidget*> children(GtkWidget* container) {
  GList* list = gtk_container_get_children(GTK_CONTAINER(container));
  std::vector<GtkWidget*> result;
  for (GList* node = list; node != nullptr; node = node->next)
    result.push_back(GTK_WIDGET(node->data));
  g_list_free(list);
  return result;
}

std::vector<GtkWidget*> radio_buttons(GtkWidget* dialog) {
  std::vector<GtkWidget*> result = widgets_inside(dialog);
  std::erase_if(result, [](GtkWidget* widget) { return !GTK_IS_RADIO_BUTTON(widget); });
  return result;
}

/// The label, its text and its place, of each field.
std::vector<GtkWidget*> field_labels(GtkWidget* dialog) {
  std::vector<GtkWidget*> result = widgets_inside(dialog);
  std::erase_if(result, [](GtkWidget* widget) {
    return !GTK_IS_LABEL(widget) || !GTK_IS_TABLE(gtk_widget_get_parent(widget)) ||
           gtk_label_get_mnemonic_widget(GTK_LABEL(widget)) == nullptr;
  });
  std::ranges::stable_sort(result, {}, [](GtkWidget* label) { return label->allocation.y; });
  return result;
}

std::vector<GtkWidget*> spin_buttons(GtkWidget* row) {
  std::vector<GtkWidget*> result = children(row);
  std::erase_if(result, [](GtkWidget* widget) { return !GTK_IS_SPIN_BUTTON(widget); });
  return result;
}

std::string entry_text(GtkWidget* entry) {
  return gtk_entry_get_text(GTK_ENTRY(entry));
}

void enter_text(GtkWidget* entry, const std::string& text) {
  gtk_widget_grab_focus(entry);
  gtk_entry_set_text(GTK_ENTRY(entry), text.c_str());
}

std::vector<std::string> list_options(GtkWidget* list) {
  GtkTreeModel* model = gtk_combo_box_get_model(GTK_COMBO_BOX(list));
  std::vector<std::string> result;
  GtkTreeIter row;
  for (gboolean more = gtk_tree_model_get_iter_first(model, &row); more;
       more = gtk_tree_model_iter_next(model, &row)) {
    char* raw = nullptr;
    gtk_tree_model_get(model, &row, 0, &raw, -1);
    const Q_g_memory<char> text(raw);
    result.emplace_back(text.get());
  }
  return result;
}

void choose_from_list(GtkWidget* list, const std::string& option) {
  const std::vector<std::string> options = list_options(list);
  const auto found = std::ranges::find(options, option);
  if (found == options.end()) {
    ADD_FAILURE() << "no option '" << option << "' among " << testing::PrintToString(options);
    return;
  }
  gtk_combo_box_set_active(GTK_COMBO_BOX(list), static_cast<gint>(found - options.begin()));
}

std::string chosen_file(GtkWidget* chooser) {
  const Q_g_memory<char> path(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(chooser)));
  return path == nullptr ? "" : path.get();
}

void choose_file(GtkWidget* chooser, const std::string& path) {
  if (path.empty())
    gtk_file_chooser_unselect_all(GTK_FILE_CHOOSER(chooser));
  else
    gtk_file_chooser_set_filename(GTK_FILE_CHOOSER(chooser), path.c_str());
  EXPECT_TRUE(has_selected(chooser, path))
      << "'" << path << "' could not be selected, but '" << chosen_file(chooser) << "' is";
}

void set_coordinate(GtkWidget* row, const std::string& coordinate) {
  std::istringstream numbers(coordinate);
  for (GtkWidget* field : spin_buttons(row)) {
    std::string number;
    numbers >> number;
    enter_text(field, number);
  }
}

}  // namespace

bool has_selected(GtkWidget* chooser, const std::string& path) {
  return wait_until([&] { return chosen_file(chooser) == path; });
}

bool is_in_folder(GtkWidget* chooser, const std::string& folder) {
  return wait_until([&] {
    const Q_g_memory<char> current(gtk_file_chooser_get_current_folder(GTK_FILE_CHOOSER(chooser)));
    return current != nullptr && current.get() == folder;
  });
}

std::vector<GtkWidget*> widgets_inside(GtkWidget* container) {
  std::vector<GtkWidget*> result;
  if (!GTK_IS_CONTAINER(container)) return result;
  gtk_container_forall(
      GTK_CONTAINER(container),
      [](GtkWidget* child, gpointer collected) {
        auto& all = *static_cast<std::vector<GtkWidget*>*>(collected);
        all.push_back(child);
        const std::vector<GtkWidget*> inner = widgets_inside(child);
        all.insert(all.end(), inner.begin(), inner.end());
      },
      &result);
  return result;
}

Shown_dialog::Shown_dialog(GtkWidget* dialog) : dialog_(dialog) {
  if (GTK_IS_DIALOG(dialog))
    g_signal_connect(dialog, "response", G_CALLBACK(mark_answered), nullptr);
}

bool Shown_dialog::answered() const {
  return g_object_get_data(G_OBJECT(dialog_), ANSWERED) != nullptr;
}

std::string Shown_dialog::message() const {
  if (!GTK_IS_MESSAGE_DIALOG(dialog_)) return property(dialog_, "title");
  // As it is on the screen; the property may hold markup.
  GtkWidget* area = gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(dialog_));
  return gtk_label_get_text(GTK_LABEL(widgets_inside(area).front()));
}

std::string Shown_dialog::explanation() const {
  for (GtkWidget* child : children(gtk_dialog_get_content_area(GTK_DIALOG(dialog_))))
    if (GTK_IS_LABEL(child)) return gtk_label_get_text(GTK_LABEL(child));
  return "";
}

std::vector<std::string> Shown_dialog::buttons() const {
  std::vector<GtkWidget*> row = children(gtk_dialog_get_action_area(GTK_DIALOG(dialog_)));
  std::ranges::stable_sort(row, {}, [](GtkWidget* button) { return button->allocation.x; });
  std::vector<std::string> names;
  for (GtkWidget* button : row) names.push_back(button_name(button));
  return names;
}

std::vector<std::string> Shown_dialog::labels() const {
  std::vector<std::string> texts;
  for (GtkWidget* label : field_labels(dialog_))
    texts.emplace_back(gtk_label_get_text(GTK_LABEL(label)));
  return texts;
}

GtkWidget* Shown_dialog::field(const std::string& label) const {
  for (GtkWidget* candidate : field_labels(dialog_))
    if (label == gtk_label_get_text(GTK_LABEL(candidate)))
      return gtk_label_get_mnemonic_widget(GTK_LABEL(candidate));
  ADD_FAILURE() << "no field '" << label << "' among " << testing::PrintToString(labels());
  return nullptr;
}

std::string Shown_dialog::value(const std::string& label) const {
  GtkWidget* widget = field(label);
  if (widget == nullptr) return "";
  if (GTK_IS_ENTRY(widget)) return entry_text(widget);
  if (GTK_IS_FILE_CHOOSER(widget)) return chosen_file(widget);
  if (GTK_IS_TOGGLE_BUTTON(widget))
    return gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(widget)) ? "yes" : "no";
  if (GTK_IS_COMBO_BOX(widget)) {
    const int active = gtk_combo_box_get_active(GTK_COMBO_BOX(widget));
    return active < 0 ? "" : list_options(widget).at(static_cast<std::size_t>(active));
  }
  std::string coordinate;
  for (GtkWidget* axis : spin_buttons(widget)) {
    if (!coordinate.empty()) coordinate += ' ';
    coordinate += entry_text(axis);
  }
  return coordinate;
}

std::vector<std::string> Shown_dialog::options(const std::string& label) const {
  if (!label.empty()) {
    GtkWidget* list = field(label);
    return list == nullptr ? std::vector<std::string>{} : list_options(list);
  }
  std::vector<std::string> texts;
  for (GtkWidget* button : radio_buttons(dialog_)) texts.push_back(button_name(button));
  return texts;
}

void Shown_dialog::set(const std::string& label, const std::string& value) {
  GtkWidget* widget = field(label);
  if (widget == nullptr) return;
  if (GTK_IS_ENTRY(widget)) {
    enter_text(widget, value);
  } else if (GTK_IS_FILE_CHOOSER(widget)) {
    choose_file(widget, value);
  } else if (GTK_IS_TOGGLE_BUTTON(widget)) {
    gtk_widget_grab_focus(widget);
    gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(widget), value == "yes");
  } else if (GTK_IS_COMBO_BOX(widget)) {
    choose_from_list(widget, value);
  } else {
    set_coordinate(widget, value);
  }
}

void Shown_dialog::choose(const std::string& option) {
  for (GtkWidget* button : radio_buttons(dialog_)) {
    if (button_name(button) != option) continue;
    gtk_widget_grab_focus(button);
    gtk_button_clicked(GTK_BUTTON(button));
    return;
  }
  ADD_FAILURE() << "no option '" << option << "' among " << testing::PrintToString(options());
}

std::string Shown_dialog::chosen() const {
  for (GtkWidget* button : radio_buttons(dialog_))
    if (gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(button))) return button_name(button);
  return "";
}

void Shown_dialog::select(const std::string& path) {
  choose_file(dialog_, path);
}

void Shown_dialog::press(const std::string& button) {
  for (GtkWidget* candidate : children(gtk_dialog_get_action_area(GTK_DIALOG(dialog_)))) {
    if (button_name(candidate) != button) continue;
    EXPECT_TRUE(gtk_widget_is_sensitive(candidate)) << "the button '" << button << "' is grey";
    gtk_widget_grab_focus(candidate);
    gtk_button_clicked(GTK_BUTTON(candidate));
    return;
  }
  ADD_FAILURE() << "no button '" << button << "' among " << testing::PrintToString(buttons());
}

void Shown_dialog::key(guint key, GdkModifierType state) {
  give_focus(dialog_);
  for (const GdkEventType type : {GDK_KEY_PRESS, GDK_KEY_RELEASE}) {
    if (answered()) return;
    GdkEvent* event = gdk_event_new(type);
    event->key.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(dialog_)));
    event->key.time = GDK_CURRENT_TIME;
    event->key.state = state;
    event->key.keyval = key;
    const guint32 character = gdk_keyval_to_unicode(key);
    event->key.length = 0;
    event->key.string = g_strdup("");
    GdkKeymapKey* codes = nullptr;
    gint count = 0;
    if (gdk_keymap_get_entries_for_keyval(nullptr, key, &codes, &count)) {
      event->key.hardware_keycode = static_cast<guint16>(codes[0].keycode);
      if (codes[0].level == 1 && character != 0) event->key.state |= GDK_SHIFT_MASK;
    }
    g_free(codes);
    gtk_main_do_event(event);
    gdk_event_free(event);
  }
}

void Shown_dialog::type(const std::string& text) {
  for (const char character : text)
    key(gdk_unicode_to_keyval(static_cast<unsigned char>(character)));
}

void Shown_dialog::close() {
  GdkEvent* event = gdk_event_new(GDK_DELETE);
  event->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(dialog_)));
  gtk_main_do_event(event);
  gdk_event_free(event);
}

std::string Shown_dialog::focus() const {
  GtkWidget* focused = gtk_window_get_focus(GTK_WINDOW(dialog_));
  if (focused == nullptr) return "";
  for (GtkWidget* label : field_labels(dialog_)) {
    GtkWidget* named = gtk_label_get_mnemonic_widget(GTK_LABEL(label));
    if (focused == named || gtk_widget_is_ancestor(focused, named))
      return gtk_label_get_text(GTK_LABEL(label));
  }
  return GTK_IS_BUTTON(focused) ? button_name(focused) : G_OBJECT_TYPE_NAME(focused);
}
