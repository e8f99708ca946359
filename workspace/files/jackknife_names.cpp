#include "workspace/files/jackknife_names.h"

#include <algorithm>
#include <set>

#include "workspace/files/map_lists.h"

namespace {

/// Between the names of the analysis and of the study.
constexpr const char* MARK = "JK";
constexpr std::size_t MAP_NAME_MAX = KVO_JACKKNIFE_STUDY_MAX + 2;

std::string cut(const std::string& text, std::size_t limit) {
  return text.substr(0, Q_utf8_cut(text, limit));
}

std::string map_name(const std::string& name, const std::string& study) {
  Q_string map(name + MARK + study);
  Q_replace_escape(map);
  return map.str();
}

/// Appends a number to names that occur twice, or that no map can have, so that all names differ.
Q_string_list told_apart(const Q_string_list& names) {
  std::set<std::string> taken(names.begin(), names.end());
  std::set<std::string> given;
  Q_string_list result;
  for (const std::string& name : names) {
    std::string unique = name;
    for (int number = 2; given.contains(unique) || kvo_is_negative_tail(unique) ||
                         (unique != name && taken.contains(unique));
         ++number) {
      const std::string suffix = Q_format("_%i", number).str();
      unique = cut(name, MAP_NAME_MAX - suffix.size()) + suffix;
    }
    given.insert(unique);
    result.push_back(unique);
  }
  return result;
}

}  // namespace

Kvo_jackknife_names kvo_jackknife_names(const std::string& name, const Q_string_list& studies) {
  std::size_t longest = 0;
  Q_string_list short_studies;
  for (const std::string& study : studies) {
    short_studies.push_back(cut(study, KVO_JACKKNIFE_STUDY_MAX));
    longest = std::max(longest, short_studies.back().size());
  }
  Kvo_jackknife_names names{cut(name, KVO_JACKKNIFE_STUDY_MAX - longest), {}};
  for (const std::string& study : short_studies) names.maps.push_back(map_name(names.name, study));
  names.maps = told_apart(names.maps);
  return names;
}
