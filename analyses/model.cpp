#include "analyses/model.h"

#include "analyses/choices.h"
#include "analyses/names.h"
#include "dialogs/input.h"

std::optional<Kvo_model_answers> kvo_ask_model(const char* message, const char* default_name,
                                               std::span<const Kvo_term> terms,
                                               const Kvo_model_choices& choices) {
  const auto list_of = [&](const Kvo_term& term) -> const Q_string_list& {
    return term.is_indicator ? choices.indicators : choices.variables;
  };
  const int filter = static_cast<int>(terms.size()) + 1;
  std::vector<Q_input_item> items(terms.size() + 2);
  Q_input_item_str(items, 0, "Name", default_name);
  for (int i = 1; i < filter; ++i) {
    const Kvo_term& term = terms[static_cast<std::size_t>(i - 1)];
    Q_input_item_opt(items, i, term.label, list_of(term), term.position);
  }
  Q_input_item_opt(items, filter, "Filter", choices.indicators, 1);
  if (Q_input(message, static_cast<int>(items.size()), items) == 0) return std::nullopt;

  Kvo_model_answers answers;
  answers.name = items.front().text.str();
  for (std::size_t i = 0; i < terms.size(); ++i)
    answers.terms.push_back(kvo_chosen_variable(list_of(terms[i]), items[i + 1].value));
  answers.filter = kvo_chosen_variable(choices.indicators, items.back().value);
  return answers;
}

Kvo_composed kvo_compose_model(const Kvo_model_answers& answers, const Q_string& subject,
                               const char* verb, const Q_string& model) {
  if (answers.name.empty()) return kvo_refusal(KVO_NO_NAME);
  const std::string name = kvo_safe_name(answers.name);
  const std::string& filter = answers.filter;
  const Q_string comment = Q_format("# Calculate %s of %s as '%s':\n", subject.c_str(),
                                    kvo_studies(filter).c_str(), name.c_str());
  Q_string command = Q_format("%s = %s %s", kvo_word(name).c_str(), verb, model.c_str());
  if (!filter.empty()) Q_strcat(command, ", %s", kvo_word(filter).c_str());
  Q_string_list names = answers.terms;
  names.insert(names.begin(), name);
  names.push_back(filter);
  return kvo_composed(names, comment, command);
}
