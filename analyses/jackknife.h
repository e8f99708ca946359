#pragma once

// The jackknife: the mean once for each study, without that study.

#include "util/q_string.h"

/// Runs a jackknife as kvo_plan_jackknife plans it on the study table; `name`, a safe one, may be
/// shortened. The study table and its file have a temporary indicator meanwhile, which is removed
/// in any case. A table that the disk does not take ends the jackknife with a console warning.
void kvo3_jackknife(Q_string& name, const char* filter);
