#include "engine/results/results.h"

#include <algorithm>
#include <limits>
#include <string_view>

#include "engine/base/exists.h"
#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

namespace {

std::string null_row(const std::string& name, const NullDistribution& null, Tail tail) {
  std::string row = name + (tail == Tail::negative ? KVO_NEGATIVE_TAIL : "") + "\t" +
                    std::to_string(null.values());
  for (const double share : NullDistribution::stored_shares()) {
    row += '\t';
    row += text_of(null.quantile(share, tail));
  }
  return row + "\n";
}

/// The lines of a map: its null distribution in either direction, and how many randomizations each
/// corrected p comes from.
std::string null_rows(const ListedMap& map) {
  const TestedMap& tested = map.tested;
  std::string rows = null_row(map.name, tested.null, Tail::positive) +
                     null_row(map.name, tested.null, Tail::negative);
  const std::size_t numbers[] = {tested.null.values(), tested.randomizations, tested.spatial,
                                 tested.spatial, tested.null.values()};
  for (std::size_t kind = 1; kind < p_map_kinds.size(); ++kind) {
    if (tested.both[kind].empty()) continue;
    rows += map.name + p_map_kinds[kind].positive.suffix + "\t" + std::to_string(numbers[kind]);
    for (std::size_t i = 0; i < NullDistribution::stored_shares().size(); ++i)
      rows += std::string("\t") + missing_value;
    rows += "\n";
  }
  return rows;
}

NamedMap p_map_of(const std::string& name, const MapKind& kind, const TestedMap& tested,
                  Tail tail) {
  constexpr float below_one = 1 - std::numeric_limits<float>::epsilon() / 2;
  NamedMap map{name, kind, tested.of(tail).front()};
  for (std::size_t n = 0; n < map.map.size(); ++n) {
    const float z = tested.statistic[n];
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
    const std::string_view first = Q_words(lines[i].text).front();
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
    for (const MapKind& kind : map_kinds()) {
      const std::string file = map_file(map.name, kind);
      const bool again = std::any_of(maps.begin(), maps.end(), [&](const NamedMap& other) {
        return other.name + other.kind.suffix == map.name + kind.suffix;
      });
      if (!again && written_by_this_system(file)) outputs.remove(file);
    }
}

}  // namespace

std::string empty_null_list() {
  std::string header = "name\tvalues";
  for (const double share : NullDistribution::stored_shares()) {
    header += '\t';
    header += text_of(share);
  }
  return header + "\n";
}

void list_maps(Outputs& outputs, std::span<const ListedMap> maps, const AnalysisFacts& facts) {
  std::vector<std::string> names = read_map_list(), replaced;
  std::string distributions, analysis_rows;
  for (const ListedMap& map : maps) {
    if (std::find(names.begin(), names.end(), map.name) == names.end()) names.push_back(map.name);
    replaced.push_back(map.name);
    replaced.push_back(map.name + KVO_NEGATIVE_TAIL);
    for (const PMapKinds& kinds : p_map_kinds) replaced.push_back(map.name + kinds.positive.suffix);
    distributions += null_rows(map);
    analysis_rows += map.name + "\t" + std::to_string(facts.studies) + "\t" +
                     std::to_string(facts.participants) + "\t" + facts.command + "\t" +
                     (facts.left_out.empty() ? missing_value : facts.left_out) + "\n";
  }
  std::string list;
  for (const std::string& each : names) list += each + "\n";
  outputs.write_text(KVO_MAPS_FILE, list);
  outputs.write_text(KVO_ND_FILE,
                     list_without(KVO_ND_FILE, empty_null_list(), replaced) + distributions);
  outputs.write_text(
      KVO_ANALYSES_FILE,
      list_without(KVO_ANALYSES_FILE, empty_analysis_list(), replaced) + analysis_rows);
}

void add_p_maps(std::vector<NamedMap>& maps, const std::string& name, const TestedMap& tested) {
  maps.push_back(p_map_of(name, p_map, tested, Tail::positive));
  maps.push_back(p_map_of(name, negative_p_map, tested, Tail::negative));
  const auto add = [&](const MapKind& kind, const std::vector<float>& map) {
    if (!map.empty()) maps.push_back({name, kind, map});
  };
  for (std::size_t kind = 0; kind < p_map_kinds.size(); ++kind) {
    const PMapKinds& kinds = p_map_kinds[kind];
    if (kind > 0) add(kinds.positive, tested.tails[0][kind]);
    if (kind > 0) add(kinds.negative, tested.tails[1][kind]);
    add(kinds.both, tested.both[kind]);
  }
  add(tfce_map, tested.tfce);
}

void write_maps(Outputs& outputs, const Command& command, const Mask& mask,
                std::span<const NamedMap> maps) {
  Action action("Writing the maps of " + command.name, maps.size());
  std::vector<std::string> paths;
  paths.reserve(maps.size());
  for (const NamedMap& map : maps) paths.push_back(outputs.path_of(map_file(map.name, map.kind)));
  remove_others(outputs, maps);
  const std::string description = image_description(command.text());
  in_parallel(maps.size(), [&](std::size_t i, std::size_t) {
    write_map(paths[i], mask, maps[i].map,
              {.description = description,
               .intent_code = maps[i].kind.intent_code,
               .intent_p1 = maps[i].intent_p1,
               .outside = maps[i].kind.outside});
    action.step();
  });
  action.finish();
}

}  // namespace kvo::results
