#include "analyses/choices.h"

#include <algorithm>

#include "workspace/files/file_names.h"
#include "workspace/files/study_table.h"

namespace {

Q_string_list sorted_after_first(int (*get)(Q_string_list& list)) {
  Q_string_list list;
  get(list);
  std::ranges::stable_sort(list.begin() + 1, list.end());
  return list;
}

}  // namespace

Q_string_list kvo_variable_choices() {
  return sorted_after_first(kvotable_get_variables);
}

Q_string_list kvo_indicator_choices() {
  return sorted_after_first(kvotable_get_variables_indicator);
}

Q_string_list kvo_image_choices(const char* folder, std::string_view prefix) {
  Q_string_list names;
  Q_ls(names, folder, std::string(prefix).c_str(), KVO_IMAGE_SUFFIX);
  const std::size_t around = prefix.size() + std::string_view(KVO_IMAGE_SUFFIX).size();
  for (std::string& name : names) name = name.substr(prefix.size(), name.size() - around);
  std::erase(names, "");
  return names;
}

std::string kvo_chosen(const Q_string_list& list, float position) {
  const auto index = static_cast<std::ptrdiff_t>(position) - 1;
  if (index < 0 || index >= std::ssize(list)) return "";
  return list[static_cast<std::size_t>(index)];
}

std::string kvo_chosen_variable(const Q_string_list& list, float position) {
  return position < 2 ? "" : kvo_chosen(list, position);
}

int kvo_position_or_first(const Q_string_list& list, std::string_view name) {
  const auto found = std::ranges::find(list, name);
  return found == list.end() ? 1 : static_cast<int>(found - list.begin()) + 1;
}
