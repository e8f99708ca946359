#include "analyses/composed.h"

#include <glib.h>

#include <utility>

#include "analyses/names.h"

Kvo_composed kvo_refusal(std::string reason) {
  return {std::move(reason), "", ""};
}

Kvo_composed kvo_composed(const Q_string_list& names, const Q_string& comment,
                          const Q_string& command) {
  for (const std::string& name : names)
    if (std::string reason = kvo_name_refusal(name); !reason.empty())
      return kvo_refusal(std::move(reason));
  return {"", comment.str(), command.str()};
}

std::string kvo_not_selected(std::string_view label) {
  std::string field(label);
  const bool is_abbreviation = field.size() > 1 && g_ascii_isupper(field[1]);
  if (!field.empty() && !is_abbreviation) field[0] = g_ascii_tolower(field[0]);
  return Q_format("Please select the %s and try again.", field.c_str()).str();
}

std::string kvo_studies(const std::string& filter) {
  if (filter.empty()) return "all the studies";
  return Q_format("the subgroup '%s'", filter.c_str()).str();
}
