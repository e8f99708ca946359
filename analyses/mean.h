#pragma once

// The mean of the studies, and the jackknife of it.

#include <string>

#include "analyses/composed.h"
#include "workspace/files/text_table.h"

struct Kvo_mean_answers {
  std::string name;    ///< as typed
  std::string filter;  ///< an indicator; empty for all the studies
  bool jackknife = false;
};
/// The mean alone.
Kvo_composed kvo_compose_mean(const Kvo_mean_answers& answers);
/// The comment of a jackknife of the study table, whose commands kvo3_jackknife makes; refused when
/// it could not run, or when one of its commands would hold a name that cannot be used.
Kvo_composed kvo_compose_jackknife(const Kvo_mean_answers& answers, const Q_table& study_table);

/// Handler of the menu action.
void kvo3_mean();
