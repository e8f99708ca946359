#include "dialogs/message.h"

#include "dialogs/frame.h"
#include "dialogs/shown_text.h"
#include "util/q_string.h"

void Q_input_warning(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(text, format);
  Q_dialog dialog(gtk_message_dialog_new(nullptr, GTK_DIALOG_DESTROY_WITH_PARENT,
                                         GTK_MESSAGE_QUESTION, GTK_BUTTONS_OK, "%s",
                                         Q_shown_text(text.c_str()).get()));
  Q_wrap_message(dialog.get());
  [[maybe_unused]] const bool any_answer_will_do = dialog.run();
}
