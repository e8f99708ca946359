#include "companions/kvo_core/results.h"

#include <sys/stat.h>

#include <algorithm>
#include <limits>
#include <string_view>

#include "companions/common/error.h"
#include "companions/common/exists.h"
#include "companions/common/parallel.h"
#include "companions/common/progress.h"
#include "companions/common/text_file.h"
#include "kvo_config.h"
#include "util/q_string.h"
#include "util/text.h"

namespace {

constexpr MapKind map_kinds[] = {
    g_map,  var_map, z_map,    p_map,          tau2_map,
    I2_map, Q_map,   pFWE_map, negative_p_map, negative_pFWE_map,
};
constexpr std::string_view written_by_us = "KVO ";
constexpr std::size_t longest_description = 79;  // bytes of the header's field
// With fewer randomizations the smallest family-wise p that is possible is above 0.05.
constexpr std::size_t least_for_family_wise = 20;
// No list has counts beyond this one, which every unsigned number of 64 bits still holds.
constexpr double largest_count = 1e18;

std::string null_row(const std::string& name, const NullDistribution& null, Tail tail) {
  std::string row =
      name + (tail == Tail::negative ? negative_suffix : "") + "\t" + std::to_string(null.values());
  for (const double share : NullDistribution::stored_shares()) {
    row += '\t';
    row += text_of(null.quantile(share, tail));
  }
  return row + "\n";
}

NamedMap p_map_of(const std::string& name, const MapKind& kind, const NullDistribution& null,
                  Tail tail) {
  constexpr float below_one = 1 - std::numeric_limits<float>::epsilon() / 2;
  NamedMap map{name, kind, null.p(tail)};
  for (std::size_t n = 0; n < map.map.size(); ++n) {
    const float z = null.observed()[n];
    float& p = map.map[n];
    if (tail == Tail::positive ? z < 0 : z > 0)
      p = std::min(p, below_one);
    else
      map.intent_p1 = std::max(map.intent_p1, p);
  }
  return map;
}

/// A list of maps, which has a header, without the lines of some maps.
std::string list_without(const char* file, std::string list, std::span<const std::string> names) {
  if (!path_exists(file)) return list;
  const std::string text = read_text(file);
  const std::vector<TextLine> lines = filled_lines(text);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::string_view first = words(lines[i].text).front();
    if (std::find(names.begin(), names.end(), first) != names.end()) continue;
    list += lines[i].text;
    list += '\n';
  }
  return list;
}

/// Has what an earlier analysis left under the names of maps removed, but for those that are there
/// again.
void remove_others(Outputs& outputs, std::span<const NamedMap> maps) {
  for (const NamedMap& map : maps)
    for (const MapKind& kind : map_kinds) {
      const std::string file = map.name + kind.suffix + ".nii.gz";
      const bool again = std::any_of(maps.begin(), maps.end(), [&](const NamedMap& other) {
        return other.name + other.kind.suffix == map.name + kind.suffix;
      });
      if (!again && written_by_this_system(file)) outputs.remove(file);
    }
}

}  // namespace

void check_analysis_name(const std::string& name, const StudyTable& table) {
  // The name of a coefficient's map is longer than that of its model.
  if (const char* fault = Q_name_fault(name); fault != nullptr)
    throw Refusal("The name '" + name + "' " + fault + ".");
  if (name.starts_with("mask_"))
    throw Refusal("The name '" + name +
                  "' cannot be used: names that begin with 'mask_' are kept for masks.");
  if (name.ends_with(negative_suffix))
    throw Refusal("The name '" + name +
                  "' cannot be used: names that end with '_n' are kept for the negative tails of "
                  "null distributions.");
  for (const Study& study : table.studies)
    for (const MapKind& kind : map_kinds)
      if (study.name == name + kind.suffix)
        throw Refusal("The name '" + name + "' cannot be used: its map '" + study.name +
                      ".nii.gz' would be the image of study '" + study.name + "'.");
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
  std::vector<std::string> names;
  if (!path_exists(map_list_file)) return names;
  const std::string text = read_text(map_list_file);
  for (const TextLine& line : filled_lines(text)) {
    std::string name;
    for (const std::string_view word : words(line.text)) {
      if (!name.empty()) name += ' ';
      name += word;
    }
    names.push_back(std::move(name));
  }
  return names;
}

std::size_t null_values_of(const std::string& map) {
  const std::string text = read_text(null_list_file);
  for (const TextLine& line : filled_lines(text)) {
    const std::vector<std::string_view> cells = words(line.text);
    if (cells.size() < 2 || cells[0] != map) continue;
    const std::optional<double> values = number_of(cells[1]);
    if (values && *values >= 1 && *values < largest_count) return std::size_t(*values);
    throw Refusal(at_line(null_list_file, line.number) + "there is no number of values.");
  }
  throw Refusal("'" + std::string(null_list_file) + "' has no null distribution of map '" + map +
                "'. Please estimate the map again.");
}

std::string empty_null_list() {
  std::string header = "name\tvalues";
  for (const double share : NullDistribution::stored_shares()) {
    header += '\t';
    header += text_of(share);
  }
  return header + "\n";
}

std::string empty_analysis_list() {
  return "map\tstudies\tparticipants\tcommand\n";
}

void list_maps(Outputs& outputs, std::span<const ListedMap> maps, const AnalysisFacts& facts) {
  std::vector<std::string> names = read_map_list(), replaced;
  std::string null_rows, analysis_rows;
  for (const ListedMap& map : maps) {
    if (std::find(names.begin(), names.end(), map.name) == names.end()) names.push_back(map.name);
    replaced.push_back(map.name);
    replaced.push_back(map.name + negative_suffix);
    null_rows += null_row(map.name, map.null, Tail::positive);
    null_rows += null_row(map.name, map.null, Tail::negative);
    analysis_rows += map.name + "\t" + std::to_string(facts.studies) + "\t" +
                     std::to_string(facts.participants) + "\t" + facts.command + "\n";
  }
  std::string list;
  for (const std::string& each : names) list += each + "\n";
  outputs.write_text(map_list_file, list);
  outputs.write_text(null_list_file,
                     list_without(null_list_file, empty_null_list(), replaced) + null_rows);
  outputs.write_text(
      analysis_list_file,
      list_without(analysis_list_file, empty_analysis_list(), replaced) + analysis_rows);
}

std::optional<AnalysisFacts> read_analysis_facts(const std::string& map) {
  if (!path_exists(analysis_list_file)) return std::nullopt;
  const std::string text = read_text(analysis_list_file);
  for (const TextLine& line : filled_lines(text)) {
    const std::vector<std::string_view> cells = words(line.text);
    if (line.number == 1 || cells[0] != map) continue;
    const auto count = [&](std::size_t cell) {
      const std::optional<double> number = cells.size() > 3 ? number_of(cells[cell]) : std::nullopt;
      return number.value_or(0) >= 1 && *number < largest_count ? std::size_t(*number) : 0;
    };
    const std::size_t studies = count(1), participants = count(2);
    if (studies == 0 || participants == 0)
      throw Refusal(at_line(analysis_list_file, line.number) +
                    "there are no numbers of studies and participants and no command.");
    return AnalysisFacts{
        std::string(line.text.substr(std::size_t(cells[3].data() - line.text.data()))), studies,
        participants};
  }
  return std::nullopt;
}

void add_p_maps(std::vector<NamedMap>& maps, const std::string& name, const NullDistribution& null,
                std::size_t randomizations) {
  maps.push_back(p_map_of(name, p_map, null, Tail::positive));
  maps.push_back(p_map_of(name, negative_p_map, null, Tail::negative));
  if (randomizations < least_for_family_wise) return;
  maps.push_back({name, pFWE_map, null.p_family_wise(Tail::positive)});
  maps.push_back({name, negative_pFWE_map, null.p_family_wise(Tail::negative)});
}

void write_maps(Outputs& outputs, const Command& command, const Mask& mask,
                std::span<const NamedMap> maps) {
  Action action("Writing the maps of " + command.name, maps.size());
  std::vector<std::string> paths;
  paths.reserve(maps.size());
  for (const NamedMap& map : maps)
    paths.push_back(outputs.path_of(map.name + map.kind.suffix + ".nii.gz"));
  remove_others(outputs, maps);
  const std::string description = image_description(command.text());
  in_parallel(maps.size(), [&](std::size_t i, std::size_t) {
    write_map(paths[i], mask, maps[i].map, description, maps[i].kind.intent_code,
              maps[i].kind.outside, maps[i].intent_p1);
    action.step();
  });
  action.finish();
}

void remove_listed_maps(Outputs& outputs) {
  for (const std::string& name : read_map_list()) {
    // Anyone can have written the list; only what is a name of ours is one.
    if (Q_name_fault(name) != nullptr) continue;
    for (const MapKind& kind : map_kinds) {
      const std::string file = name + kind.suffix + ".nii.gz";
      if (written_by_this_system(file)) outputs.remove(file);
    }
  }
}

std::string image_description(const std::string& command) {
  return std::string(written_by_us) + Q_format("%.2f ", KVO_VERSION).str() + command;
}
