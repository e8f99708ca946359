#include "engine/model/study_model.h"

#include <algorithm>

#include "engine/base/progress.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "util/text.h"

namespace kvo::model {

namespace {

constexpr std::size_t named_at_most = 5;

}  // namespace

std::vector<std::string> model_variables(const std::string& text) {
  std::vector<std::string> variables;
  for (const std::string_view word : Q_words(text))
    if (word != "+") variables.emplace_back(word);
  return variables;
}

Model read_model(const StudyTable& table, const std::string& text,
                 std::span<const std::size_t> chosen) {
  Model model;
  model.terms = model_variables(text);
  std::vector<std::size_t> columns;
  std::vector<Term> terms;
  for (const std::string& name : model.terms) {
    columns.push_back(required_column(table, name));
    terms.push_back({name, {}});
  }
  for (const std::size_t i : chosen) {
    const Study& study = table.studies[i];
    std::vector<double> values;
    for (const std::size_t column : columns)
      if (const std::optional<double> value = study_number(table, study, column))
        values.push_back(*value);
    if (values.size() < columns.size()) {
      model.incomplete.push_back(study.name);
      continue;
    }
    model.studies.push_back(i);
    for (std::size_t t = 0; t < terms.size(); ++t) terms[t].values.push_back(values[t]);
  }
  model.design = make_design(terms, model.studies.size());
  return model;
}

void say_incomplete(const Model& model) {
  const std::size_t count = model.incomplete.size();
  if (count == 0) return;
  std::vector<std::string> named = model.incomplete;
  if (count > named_at_most + 1) {
    named.resize(named_at_most);
    named.push_back(std::to_string(count - named_at_most) + " more");
  }
  say(Q_counted(count, "study is left out, as it has", "studies are left out, as they have") +
      " no value of " + listed(model.terms, " or ") + ": " + listed(named));
}

}  // namespace kvo::model
