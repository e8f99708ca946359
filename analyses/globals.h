#pragma once

// Global values: a model of the whole brain's means rather than of each voxel.

#include <string>

#include "analyses/composed.h"
#include "analyses/model.h"
#include "workspace/files/text_table.h"

/// The warning about the first variable that the calculation needs and the study table does not
/// have; empty when it has all.
std::string kvo_missing_global_variable(const Q_table& study_table);

Kvo_composed kvo_compose_globals(const Kvo_model_answers& answers);

/// Handler of the menu action.
void kvo3_globals();
