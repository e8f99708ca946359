#include "dialog_driver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "dialogs/help.h"

namespace {

constexpr guint POLL_MS = 5;
/// Marks of a dialog: its script has begun; it has been answered.
constexpr const char* DRIVEN = "kvo-test-driven";
constexpr const char* ANSWERED = "kvo-test-answered";

bool is_marked(GtkWidget* dialog, const char* mark) {
  return g_object_get_data(G_OBJECT(dialog), mark) != nullptr;
}

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

std::vector<std::string> parted(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t end = 0; end != std::string::npos; start = end + separator.size()) {
    end = text.find(separator, start);
    parts.push_back(text.substr(start, end == std::string::npos ? end : end - start));
  }
  return parts;
}

std::string joined(const std::vector<std::string>& texts, const char* separator) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : separator) + text;
  return result;
}

/// One action of a played dialog; whether it answers the dialog.
bool act(Shown_dialog& dialog, const std::string& action) {
  const std::size_t equals = action.find('=');
  if (equals != std::string::npos)
    return dialog.set(action.substr(0, equals), action.substr(equals + 1)), false;
  if (action.starts_with('(')) return dialog.choose(action.substr(1, action.size() - 2)), false;
  if (action.starts_with('@')) return dialog.select(action.substr(1)), false;
  if (action.empty()) return false;
  if (action == "Enter")
    dialog.key(GDK_KEY_Return);
  else if (action == "Escape")
    dialog.key(GDK_KEY_Escape);
  else if (action == "Close")
    dialog.close();
  else
    dialog.press(action);
  return true;
}

/// The options as shown() gives them.
std::string options_text(const std::vector<std::string>& options) {
  constexpr std::size_t MOST = 12;
  return options.empty() || options.size() > MOST ? "" : " <" + joined(options, ", ") + ">";
}

std::string description(const Shown_dialog& dialog) {
  std::vector<std::string> fields;
  for (const std::string& label : dialog.labels())
    fields.push_back(label + ": " + dialog.value(label) +
                     (GTK_IS_COMBO_BOX(dialog.field(label)) ? options_text(dialog.options(label))
                                                            : std::string()));
  if (!radio_buttons(dialog.widget()).empty())
    fields.push_back(dialog.chosen() + options_text(dialog.options()));
  return Qs_HelpTopic.str() + " " + dialog.message() + (fields.empty() ? "" : " ") +
         joined(fields, "; ");
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

std::string Shown_dialog::message() const {
  if (!GTK_IS_MESSAGE_DIALOG(dialog_)) return property(dialog_, "title");
  std::string text;
  for (GtkWidget* label :
       widgets_inside(gtk_message_dialog_get_message_area(GTK_MESSAGE_DIALOG(dialog_))))
    if (gtk_widget_get_visible(label)) text += gtk_label_get_text(GTK_LABEL(label));
  return text;
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
    if (is_marked(dialog_, ANSWERED)) return;
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

Dialog_driver::Dialog_driver()
    : source_(g_timeout_add(
          POLL_MS,
          [](gpointer driver) -> gboolean {
            static_cast<Dialog_driver*>(driver)->look_for_dialog();
            return G_SOURCE_CONTINUE;
          },
          this)) {}

Dialog_driver::~Dialog_driver() {
  EXPECT_TRUE(scripts_.empty()) << scripts_.size() << " scripts have not had their dialog; seen: "
                                << testing::PrintToString(messages_);
}

Dialog_driver& Dialog_driver::then(Script script) {
  scripts_.push_back(std::move(script));
  return *this;
}

Dialog_driver& Dialog_driver::answer(std::vector<std::pair<std::string, std::string>> fields,
                                     std::string button) {
  return then([fields = std::move(fields), button = std::move(button)](Shown_dialog& dialog) {
    for (const auto& [label, value] : fields) dialog.set(label, value);
    dialog.press(button);
  });
}

Dialog_driver& Dialog_driver::play(const std::string& dialogs) {
  for (const std::string& dialog : parted(dialogs, " | "))
    then([actions = parted(dialog, "; ")](Shown_dialog& shown) {
      bool answered = false;
      for (const std::string& action : actions) answered = act(shown, action);
      if (!answered) shown.press(shown.buttons().back());
    });
  return *this;
}

void Dialog_driver::look_for_dialog() {
  GtkWidget* modal = gtk_grab_get_current();
  if (modal == nullptr) return;
  GtkWidget* dialog = gtk_widget_get_toplevel(modal);
  if (!GTK_IS_DIALOG(dialog) || !gtk_widget_get_mapped(dialog) || is_marked(dialog, DRIVEN)) return;
  handle_display_events();
  give_focus(dialog);
  drive(dialog);
}

void Dialog_driver::drive(GtkWidget* dialog) {
  g_object_ref(dialog);
  const Q_object<GtkWidget> kept(dialog);
  g_object_set_data(G_OBJECT(dialog), DRIVEN, GINT_TO_POINTER(1));
  g_signal_connect(dialog, "response", G_CALLBACK(mark_answered), nullptr);
  Shown_dialog shown(dialog);
  messages_.push_back(shown.message());
  shown_ += (shown_.empty() ? "" : " | ") + description(shown);
  if (scripts_.empty()) {
    ADD_FAILURE() << "a dialog that no script answers: " << shown.message();
  } else {
    const Script script = std::move(scripts_.front());
    scripts_.pop_front();
    script(shown);
    // A file chooser looks at the file before it answers.
    EXPECT_TRUE(wait_until([&] { return is_marked(dialog, ANSWERED); }))
        << "not answered: " << messages_.back();
  }
  if (!is_marked(dialog, ANSWERED)) gtk_dialog_response(GTK_DIALOG(dialog), GTK_RESPONSE_NONE);
}

void every_refusal(const std::string& answers, const std::function<void()>& ask) {
  for (const char* refusal : {"Cancel", "Escape", "Close"}) {
    SCOPED_TRACE(refusal);
    Dialog_driver user;
    user.play(answers + (answers.empty() ? "" : "; ") + refusal);
    ask();
  }
}
