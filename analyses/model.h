#pragma once

// The dialog in which a model is put together: a name, terms from the study table, and a filter.

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "analyses/composed.h"
#include "util/text.h"

/// A question for a term.
struct Kvo_term {
  const char* label;
  bool is_indicator;  ///< offers the indicators only
  int position;       ///< the default in its list; 1 is "(none)"
};

/// The lists that terms and filters are chosen from, each beginning with "(none)".
struct Kvo_model_choices {
  Q_string_list variables;
  Q_string_list indicators;
};

struct Kvo_model_answers {
  std::string name;                ///< as typed
  std::vector<std::string> terms;  ///< one for each question; empty when it is not used
  std::string filter;              ///< empty for all the studies
};

/// Asks for a model; nothing when the user does not press OK.
std::optional<Kvo_model_answers> kvo_ask_model(const char* message, const char* default_name,
                                               std::span<const Kvo_term> terms,
                                               const Kvo_model_choices& choices);

/// The comment "# Calculate SUBJECT of the studies as 'NAME':" and the command that gives the verb
/// the model, a text made of the terms, and the filter. Refuses an empty name.
Kvo_composed kvo_compose_model(const Kvo_model_answers& answers, const Q_string& subject,
                               const char* verb, const Q_string& model);
