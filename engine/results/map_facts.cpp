#include "engine/results/map_facts.h"

#include <algorithm>
#include <filesystem>
#include <optional>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/base/wording.h"
#include "engine/images/image.h"
#include "engine/maps/folder_maps.h"
#include "engine/maps/pp_record.h"
#include "engine/model/study_model.h"
#include "engine/results/estimate_record.h"
#include "engine/results/study_list.h"
#include "engine/studies/study_image.h"
#include "util/text.h"
#include "workspace/files/study_table.h"

namespace kvo::results {

namespace {

/// The term of a linear model of that name whose coefficient the map is: "" for the intercept.
std::string term_of(const std::string& map, const std::string& name,
                    const std::vector<std::string>& variables) {
  const std::vector<std::string> names = coefficient_map_names(name, variables.size());
  for (std::size_t t = 0; t < variables.size(); ++t)
    if (map == names[t + 1]) return variables[t];
  return "";
}

/// What the command of the analysis says, which this version may not know.
void add_command(MethodsFacts& methods, const std::string& map, const std::string& text,
                 std::span<const Verb> verbs) {
  try {
    const Command command = parse_command(text, verbs);
    if (command.verb->name == std::string("mean")) {
      methods.subgroup = command.arguments[0];
    } else if (command.verb->name == std::string("lm")) {
      methods.analysis = MethodsFacts::Analysis::linear_model;
      methods.variables = model_variables(command.arguments[0]);
      methods.term = term_of(map, command.name, methods.variables);
      methods.subgroup = command.arguments[1];
    }
  } catch (const Refusal&) {
    // Then the paragraph does not speak of it; the command itself is shown all the same.
  }
}

/// Of the chosen studies those that have a value of each variable of the model.
std::vector<std::size_t> with_all_values(const StudyTable& table,
                                         const std::vector<std::string>& variables,
                                         const std::vector<std::size_t>& chosen) {
  std::string model;
  for (const std::string& variable : variables) model += (model.empty() ? "" : " + ") + variable;
  return read_model(table, model, chosen).studies;
}

/// What the files of the studies say. The filter of a jackknife has gone when it has ended; what it
/// was is told only when the others are all the studies.
void add_studies(MapFacts& known, const PpRecord& record) {
  MethodsFacts& methods = known.methods;
  const bool jackknife = methods.subgroup == KVO_JACKKNIFE_VARIABLE;
  if (jackknife) methods.subgroup.clear();
  try {
    const StudyTable table = read_study_table();
    std::vector<std::size_t> chosen = filtered_studies(table, methods.subgroup);
    if (jackknife) {
      std::erase_if(chosen,
                    [&](std::size_t s) { return table.studies[s].name == methods.left_out; });
      if (chosen.size() != methods.studies) return;
    }
    chosen = with_all_values(table, methods.variables, chosen);
    std::vector<StudyData> data;
    std::vector<ExploredStudy> explored;
    for (const std::size_t s : chosen) {
      const Study& study = table.studies[s];
      const bool has_image = record.checksums.contains(image_file(study));
      KnownStudy said = read_known_study(study, has_image);
      methods.studies_with_images += has_image ? 1 : 0;
      methods.unknown_heights = methods.unknown_heights || said.unknown_heights;
      methods.talairach = methods.talairach || said.talairach;
      data.push_back(std::move(said.data));
      explored.push_back(std::move(said.explored));
    }
    known.studies = study_list(table, chosen, data);
    known.explored = std::move(explored);
  } catch (const Refusal&) {
    // Maps can be thresholded after the files that they came from have gone.
  }
}

std::string preprocessing_command(const PpRecord& record) {
  return "pp " + record.correlation_template + ", " + text_of(record.anisotropy) + ", " +
         text_of(record.fwhm) + ", " + record.mask + ", " + std::to_string(record.randomizations);
}

}  // namespace

MapFacts facts_of_map(const std::string& map, std::span<const Verb> verbs) {
  const PpRecord record = read_pp_record();
  MapFacts known;
  MethodsFacts& methods = known.methods;
  methods.fwhm = record.fwhm;
  methods.anisotropy = record.anisotropy;
  methods.correlation_template = record.correlation_template;
  methods.mask = record.mask;
  methods.randomizations = record.randomizations;
  methods.seed = record.seed;
  known.commands.push_back(preprocessing_command(record));
  if (const auto analysis = read_analysis_facts(map)) {
    methods.studies = analysis->studies;
    methods.participants = analysis->participants;
    methods.left_out = analysis->left_out;
    add_command(methods, map, analysis->command, verbs);
    known.commands.push_back(analysis->command);
    known.facts = {{"Studies", std::to_string(analysis->studies)},
                   {"Participants", std::to_string(analysis->participants)}};
  }
  add_studies(known, record);
  if (!map.empty()) {
    const std::vector<Fact> estimate = read_estimate_record(map);
    methods.estimated_from_peaks = !estimate.empty();
    known.facts.insert(known.facts.end(), estimate.begin(), estimate.end());
  }
  if (!methods.left_out.empty()) known.facts.push_back({"Left out", methods.left_out});
  known.facts.insert(
      known.facts.end(),
      {{"Kernel", text_of(record.fwhm) + " mm FWHM, anisotropy " + text_of(record.anisotropy) +
                      ", correlation template " + record.correlation_template},
       {"Mask", record.mask},
       {"Randomizations",
        std::to_string(record.randomizations) + ", seed " + std::to_string(record.seed)},
       {"Program", program_text()}});
  return known;
}

}  // namespace kvo::results
