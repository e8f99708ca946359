#include "engine/results/shared_results.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <string>

#include "engine/base/refusal.h"
#include "engine/formats/json_text.h"
#include "engine/maps/folder_maps.h"
#include "engine/results/map_facts.h"
#include "kvo_config.h"
#include "util/q_string.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

using namespace formats;

namespace {

constexpr const char* bids_version = "1.9.0";
/// The standard space of the grid, as BIDS calls it.
constexpr const char* space_label = "MNI152NLin6Asym";

/// What a map other than one of p shows.
struct Shown {
  MapKind kind;
  const char *label, *text;
};
constexpr Shown shown_maps[] = {
    {g_map, "effect", "Effect size, Hedges' g"},
    {var_map, "variance", "Squared standard error of g"},
    {z_map, "z", "g divided by its standard error; judge it by the maps of p"},
    {ci_low_map, "cilow", "Lower end of the 95 % interval of g"},
    {ci_high_map, "cihigh", "Upper end of the 95 % interval of g"},
    {info_map, "info", "What the studies know, as a share of what images of all would"},
    {tau2_map, "tau2", "Between-study variance"},
    {I2_map, "I2", "Share of the variance that is between studies, in %"},
    {Q_map, "Q", "Cochran's Q"},
    {tfce_map, "tfce", "Threshold-free cluster enhancement"},
};

/// A map's name with nothing but letters and digits, unlike those taken before.
std::string label_of(const std::string& map, std::set<std::string>& taken) {
  std::string label;
  std::copy_if(map.begin(), map.end(), std::back_inserter(label),
               [](unsigned char c) { return std::isalnum(c) != 0 && c < 0x80; });
  if (label.empty()) label = "map";
  for (int number = 2; !taken.insert(label).second; ++number) label += std::to_string(number);
  return label;
}

JsonTexts program() {
  return {{"Name", "Quorvane"}, {"Version", Q_format("%.2f", KVO_VERSION).str()}};
}

/// What the side file of a map says but for what the map shows.
JsonMembers about(const std::string& map, std::span<const Verb> verbs) {
  const MapFacts known = facts_of_map(map, verbs);
  JsonTexts facts;
  for (const auto& [label, text] : known.facts) facts.emplace_back(label, text);
  return {{"Analysis", map},
          {"SpatialReference", space_label},
          {"Facts", facts},
          {"Commands", known.commands},
          {"GeneratedBy", program()}};
}

struct ResultsWriter {
  Outputs& outputs;
  std::size_t maps = 0;

  static std::string placed(const std::string& name) {
    return std::string(KVO_RESULTS_FOLDER) + "/" + name;
  }

  /// Nothing where the analysis has no such map, or another program has made it.
  void add(const std::string& file, const std::string& contrast, const std::string& stat,
           const std::string& description, JsonMembers facts) {
    if (!written_by_this_system(file)) return;
    const std::string name =
        "contrast-" + contrast + "_space-" + space_label + "_res-2_stat-" + stat + "_statmap";
    facts.insert(facts.begin(), {"Description", description});
    std::error_code fault;
    std::filesystem::copy_file(file, outputs.path_of(placed(name + KVO_IMAGE_SUFFIX)), fault);
    if (fault) throw Refusal("'" + file + "' cannot be copied: " + fault.message() + ".");
    outputs.write_text(placed(name + ".json"), json_text(facts));
    ++maps;
  }
};

void add_p(ResultsWriter& writer, const std::string& map, const std::string& contrast,
           const JsonMembers& facts) {
  for (const PMapKinds& kinds : p_map_kinds) {
    const std::string heading = kinds.heading;
    for (const auto& [kind, direction] :
         {std::pair{kinds.positive, "one-tailed, of positive effects"},
          std::pair{kinds.negative, "one-tailed, of negative effects"},
          std::pair{kinds.both, "two-tailed"}}) {
      std::string stat = kind.suffix;
      std::erase(stat, '_');
      writer.add(map_file(map, kind), contrast, stat, heading + ", " + direction, facts);
    }
  }
}

constexpr const char* readme =
    "Maps of a voxel-based meta-analysis, each with a side file that says how it came about.\n"
    "dataset_description.json names the program. All maps are in MNI space, with voxels of 2 mm.\n";

}  // namespace

void check_shared_results() {
  if (read_map_list().empty())
    throw Refusal("There are no maps to export. Please estimate a mean or a linear model first.");
}

std::size_t share_results(Outputs& outputs, std::span<const Verb> verbs) {
  check_shared_results();
  ResultsWriter writer{outputs};
  std::set<std::string> taken;
  for (const std::string& map : read_map_list()) {
    // The list may be a stranger's: no name may lead elsewhere.
    if (Q_name_fault(map) != nullptr) continue;
    const auto analysis = read_analysis_facts(map);
    if (analysis && !analysis->left_out.empty()) continue;
    const std::string contrast = label_of(map, taken);
    const JsonMembers facts = about(map, verbs);
    for (const Shown& shown : shown_maps)
      writer.add(map_file(map, shown.kind), contrast, shown.label, shown.text, facts);
    add_p(writer, map, contrast, facts);
  }
  outputs.write_text(ResultsWriter::placed("dataset_description.json"),
                     json_text({{"Name", "Voxel-based meta-analysis"},
                                {"BIDSVersion", bids_version},
                                {"DatasetType", "derivative"},
                                {"GeneratedBy", std::vector<JsonTexts>{program()}}}));
  outputs.write_text(ResultsWriter::placed("README"), readme);
  return writer.maps;
}

}  // namespace kvo::results
