#pragma once

// The model of a command, "age + dose", on the study table.

#include <span>
#include <string>
#include <vector>

#include "engine/model/design.h"
#include "engine/model/model_layer.h"
#include "engine/studies/study.h"

namespace kvo::model {

/// The variables of "age + dose".
std::vector<std::string> model_variables(const std::string& text);

struct Model {
  std::vector<std::string> terms;
  std::vector<std::size_t> studies;     ///< indices in the table, of those that have all values
  std::vector<std::string> incomplete;  ///< names of the others, which are left out
  Design design;                        ///< of `studies`
};

/// The model of some studies, given by their indices in the table; the text "" is the intercept
/// alone. Throws Refusal, naming the variable, when the table does not have it or a value is
/// neither a number nor missing, and when the terms make no design.
Model read_model(const StudyTable& table, const std::string& text,
                 std::span<const std::size_t> chosen);

/// Tells the user which studies are left out for want of a value, if any.
void say_incomplete(const Model& model);

}  // namespace kvo::model
