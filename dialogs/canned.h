#pragma once

// Ready-made modal dialogs: a single choice, a yes/no question, a folder. The message with one OK
// button is in dialogs/message.h.

#include <concepts>

#include "dialogs/options.h"
#include "util/q_string.h"
#include "util/text.h"

/// Asks for one of the options, shown as radio buttons; `position` (from 1) is the default. The
/// message's first line is the title, the rest the explanation. Position of the chosen option, from
/// 1; 0 when the user did not press OK. Passing no options or a default out of range is a mistake
/// of the caller; the first option is then the default.
int Q_input_opt(const char* message, int position, const Q_string_list& options);
/// The same with the options, n C strings, as arguments.
template <std::same_as<char>... Chars>
int Q_input_opt(const char* message, int position, int n, const Chars*... options) {
  return Q_input_opt(message, position, Q_option_list(n, options...));
}

/// Asks for OK or Cancel; Enter answers OK when `default_answer` is true, else Cancel. True only
/// when the user pressed OK.
bool Q_input_boolean(const char* message, bool default_answer);

/// Asks for a folder, `folder` being the one to begin with (empty for none). True when the user
/// opened one: `folder` is its absolute path. On any other answer `folder` becomes empty.
bool Q_input_folder(Q_string& folder, const char* title);
