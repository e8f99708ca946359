#pragma once

// What authors, reviewers and editors ask of a meta-analysis of neuroimaging studies (Müller et al.
// 2018), with what is known of an analysis here.

#include "engine/report/html.h"
#include "engine/report/methods.h"
#include "engine/report/report_layer.h"

namespace kvo::report {

/// A line for each recommendation: what this analysis has of it, and what only its authors know.
/// The facts are those of a mean or a linear model.
HtmlTable checklist_of(const MethodsFacts& facts, bool has_runs_without_one);

}  // namespace kvo::report
