#include "engine/maps/folder_maps.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "engine/base/exists.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/images/mask.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"
#include "workspace/files/file_names.h"
#include "workspace/files/map_lists.h"

namespace kvo::maps {

namespace {

constexpr std::string_view written_by_us = "KVO ";
constexpr std::size_t longest_description = 79;  // bytes of the header's field
// No list has counts above this one, which still fits in 64 bits.
constexpr double largest_count = 1e18;

/// The number of values that "kvo_nd.txt" gives for a name; 0 when it has none of that name.
std::size_t listed_values(const std::string& name) {
  const std::string text = read_text(KVO_ND_FILE);
  for (const TextLine& line : filled_lines(text)) {
    const std::vector<std::string_view> cells = Q_words(line.text);
    if (cells.size() < 2 || cells[0] != name) continue;
    const std::optional<double> values = number_of(cells[1]);
    if (values && *values >= 1 && *values < largest_count) return std::size_t(*values);
    throw Refusal(at_line(KVO_ND_FILE, line.number) + "there is no number of values.");
  }
  return 0;
}

}  // namespace

std::string map_file(const std::string& name, const MapKind& kind) {
  return image_file_of(name + kind.suffix);
}

std::vector<MapKind> map_kinds() {
  std::vector<MapKind> kinds{g_map, var_map,    z_map,       tau2_map, I2_map,
                             Q_map, ci_low_map, ci_high_map, info_map, tfce_map};
  for (const PMapKinds& p : p_map_kinds)
    kinds.insert(kinds.end(), {p.positive, p.negative, p.both});
  return kinds;
}

ChosenP chosen_p(const std::string& name) {
  // "NAME_p" has always been a name like any other.
  for (std::size_t kind = 0; kind < p_map_kinds.size(); ++kind)
    for (const bool both : {true, false}) {
      const PMapKinds& kinds = p_map_kinds[kind];
      const std::string_view suffix = both ? kinds.both.suffix : kinds.positive.suffix;
      if ((both || kind > 0) && name.ends_with(suffix) && name.size() > suffix.size())
        return {name.substr(0, name.size() - suffix.size()), kind, both};
    }
  return {name};
}

std::vector<std::string> coefficient_map_names(const std::string& name, std::size_t terms) {
  if (terms == 0) return {name};
  const std::string intercept = name + "_" + std::string(terms, '0');
  std::vector<std::string> names(terms + 1, intercept);
  for (std::size_t t = 0; t < terms; ++t) names[t + 1][name.size() + 1 + t] = '1';
  return names;
}

void check_no_mask(const std::string& name) {
  if (name.starts_with(KVO_MASK_PREFIX))
    throw Refusal("The name '" + name +
                  "' cannot be used: names that begin with 'mask_' are kept for masks.");
}

void check_analysis_name(const std::string& name, const StudyTable& table) {
  // The name of a coefficient's map is longer than that of its model.
  if (const char* fault = Q_name_fault(name); fault != nullptr)
    throw Refusal("The name '" + name + "' " + fault + ".");
  check_no_mask(name);
  if (kvo_is_negative_tail(name))
    throw Refusal("The name '" + name +
                  "' cannot be used: names that end with '_n' are kept for the negative tails of "
                  "null distributions.");
  if (const ChosenP chosen = chosen_p(name); chosen.map != name)
    throw Refusal("The name '" + name + "' cannot be used: its ending is kept for the p maps of '" +
                  chosen.map + "'.");
  for (const Study& study : table.studies)
    for (const MapKind& kind : map_kinds())
      if (study.name == name + kind.suffix)
        throw Refusal("The name '" + name + "' cannot be used: its map '" + map_file(name, kind) +
                      "' would be the image of study '" + study.name + "'.");
}

bool written_by_this_system(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  try {
    return read_description(path).starts_with(written_by_us);
  } catch (const Refusal&) {
    return false;
  }
}

std::string command_of_image(const std::string& path) {
  const std::string description = read_description(path);
  const std::size_t command = description.find(' ', written_by_us.size());
  if (!description.starts_with(written_by_us) || command == std::string::npos ||
      description.size() >= longest_description)
    return "";
  return description.substr(command + 1);
}

std::vector<std::string> read_map_list() {
  if (!path_exists(KVO_MAPS_FILE)) return {};
  return kvo_read_map_names(read_text(KVO_MAPS_FILE));
}

std::size_t null_values_of(const std::string& map) {
  if (const std::size_t values = listed_values(map); values > 0) return values;
  throw Refusal("'" + std::string(KVO_ND_FILE) + "' has no null distribution of map '" + map +
                "'. Please estimate the map again.");
}

std::size_t randomizations_of(const std::string& map, std::size_t kind) {
  return path_exists(KVO_ND_FILE) ? listed_values(map + p_map_kinds[kind].positive.suffix) : 0;
}

std::string empty_analysis_list() {
  return "map\tstudies\tparticipants\tcommand\tleft_out\n";
}

std::optional<AnalysisFacts> read_analysis_facts(const std::string& map) {
  if (!path_exists(KVO_ANALYSES_FILE)) return std::nullopt;
  const std::string text = read_text(KVO_ANALYSES_FILE);
  for (const TextLine& line : filled_lines(text)) {
    const std::vector<std::string_view> cells = Q_words(line.text);
    if (line.number == 1 || cells[0] != map) continue;
    const auto count = [&](std::size_t cell) {
      const std::optional<double> number = cells.size() > 3 ? number_of(cells[cell]) : std::nullopt;
      return number.value_or(0) >= 1 && *number < largest_count ? std::size_t(*number) : 0;
    };
    const std::size_t studies = count(1), participants = count(2);
    if (studies == 0 || participants == 0)
      throw Refusal(at_line(KVO_ANALYSES_FILE, line.number) +
                    "there are no numbers of studies and participants and no command.");
    const std::string_view rest = line.text.substr(std::size_t(cells[3].data() - line.text.data()));
    // Earlier versions end the line with the command.
    const std::size_t tab = std::min(rest.find('\t'), rest.size());
    const std::string_view left_out = Q_stripped(rest.substr(tab));
    return AnalysisFacts{.command = std::string(rest.substr(0, tab)),
                         .studies = studies,
                         .participants = participants,
                         .left_out = is_missing(left_out) ? "" : std::string(left_out)};
  }
  return std::nullopt;
}

void remove_listed_maps(Outputs& outputs) {
  for (const std::string& name : read_map_list()) {
    // The list is untrusted: only a valid name is accepted.
    if (Q_name_fault(name) != nullptr) continue;
    for (const MapKind& kind : map_kinds()) {
      const std::string file = map_file(name, kind);
      if (written_by_this_system(file)) outputs.remove(file);
    }
  }
}

std::string image_description(const std::string& command) {
  return program_text() + " " + command;
}

}  // namespace kvo::maps
