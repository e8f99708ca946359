#include "companions/kvo_core/results.h"

#include <sys/stat.h>

#include <algorithm>
#include <string_view>

#include "companions/common/error.h"
#include "companions/common/text_file.h"
#include "kvo_config.h"
#include "util/q_string.h"

namespace {

constexpr MapKind map_kinds[] = {g_map, var_map, z_map, p_map, tau2_map, I2_map, Q_map, pFWE_map};
constexpr std::string_view written_by_us = "KVO ";
constexpr std::string_view negative_suffix = "_n";

bool exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

std::string null_row(const std::string& name, const NullDistribution& null, bool negative) {
  std::string row =
      name + (negative ? negative_suffix : "").data() + "\t" + std::to_string(null.values());
  for (const double share : NullDistribution::stored_shares()) {
    row += '\t';
    row += text_of(null.quantile(share, negative));
  }
  return row + "\n";
}

/// The list of null distributions with those of the map left out.
std::string null_list_without(const std::string& name) {
  std::string kept = empty_null_list();
  if (!exists(null_list_file)) return kept;
  const std::string text = read_text(null_list_file);
  const std::vector<TextLine> lines = filled_lines(text);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const std::string first(words(lines[i].text).front());
    if (first == name || first == name + negative_suffix.data()) continue;
    kept += lines[i].text;
    kept += '\n';
  }
  return kept;
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

}  // namespace

void check_analysis_name(const std::string& name, const StudyTable& table) {
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

std::vector<std::string> read_map_list() {
  std::vector<std::string> names;
  if (!exists(map_list_file)) return names;
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

std::string empty_null_list() {
  std::string header = "name\tvalues";
  for (const double share : NullDistribution::stored_shares()) {
    header += '\t';
    header += text_of(share);
  }
  return header + "\n";
}

void list_map(Outputs& outputs, const std::string& name, const NullDistribution& null) {
  std::vector<std::string> names = read_map_list();
  if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
  std::string list;
  for (const std::string& each : names) list += each + "\n";
  outputs.write_text(map_list_file, list);
  outputs.write_text(null_list_file, null_list_without(name) + null_row(name, null, false) +
                                         null_row(name, null, true));
}

void remove_listed_maps(Outputs& outputs) {
  for (const std::string& name : read_map_list()) {
    // Anyone can have written the list; only what is a name of ours is one.
    if (name_fault(name) != nullptr) continue;
    for (const MapKind& kind : map_kinds) {
      const std::string file = name + kind.suffix + ".nii.gz";
      if (written_by_this_system(file)) outputs.remove(file);
    }
  }
}

std::string image_description(const std::string& command) {
  return std::string(written_by_us) + Q_format("%.2f ", KVO_VERSION).str() + command;
}
