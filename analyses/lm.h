#pragma once

// Linear models: comparisons of groups of studies, and meta-regressions.

#include <span>

#include "analyses/composed.h"
#include "analyses/model.h"

/// A kind of model, as the user chooses and fills it.
struct Kvo_lm_kind {
  const char* option;
  const char* help_topic;
  const char* default_name;
  const char* message;
  std::span<const Kvo_term> terms;  ///< the first is required
};
/// The four kinds, in the order of the question.
std::span<const Kvo_lm_kind> kvo_lm_kinds();

Kvo_composed kvo_compose_lm(const Kvo_lm_kind& kind, const Kvo_model_answers& answers);

/// Whether a model of this name, as typed, could overwrite one of the maps.
bool kvo_lm_may_overwrite(const Q_string_list& maps, const std::string& name);

/// Handler of the menu action.
void kvo3_lm();
