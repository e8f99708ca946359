#include "dialog_driver.h"

#include <gtest/gtest.h>

#include "dialogs/help.h"

namespace {

constexpr guint POLL_MS = 5;
/// Mark of a dialog whose script has begun.
constexpr const char* DRIVEN = "kvo-test-driven";

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
  if (!dialog.options().empty()) fields.push_back(dialog.chosen() + options_text(dialog.options()));
  return Qs_HelpTopic.str() + " " + dialog.message() + (fields.empty() ? "" : " ") +
         joined(fields, "; ");
}

}  // namespace

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
  if (!GTK_IS_DIALOG(dialog) || !gtk_widget_get_mapped(dialog) ||
      g_object_get_data(G_OBJECT(dialog), DRIVEN) != nullptr)
    return;
  handle_display_events();
  give_focus(dialog);
  drive(dialog);
}

void Dialog_driver::drive(GtkWidget* dialog) {
  g_object_ref(dialog);
  const Q_object<GtkWidget> kept(dialog);
  g_object_set_data(G_OBJECT(dialog), DRIVEN, GINT_TO_POINTER(1));
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
    EXPECT_TRUE(wait_until([&] { return shown.answered(); }))
        << "not answered: " << messages_.back();
  }
  if (!shown.answered()) gtk_dialog_response(GTK_DIALOG(dialog), GTK_RESPONSE_NONE);
}

void every_refusal(const std::string& answers, const std::function<void()>& ask) {
  for (const char* refusal : {"Cancel", "Escape", "Close"}) {
    SCOPED_TRACE(refusal);
    Dialog_driver user;
    user.play(answers + (answers.empty() ? "" : "; ") + refusal);
    ask();
  }
}
