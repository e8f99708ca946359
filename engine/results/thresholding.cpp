#include "engine/results/thresholding.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string_view>
#include <utility>

#include "engine/base/refusal.h"
#include "engine/inference/p_maps.h"
#include "engine/results/cluster_result.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::results {

namespace {

constexpr const char* verb_name = "threshold";
/// Between the names of the map and of the thresholds.
constexpr const char* result_mark = "_z_p_";

/// "threshold MyMean, p, 0.00500, 1.000, 10" of "MyMean_z_p_0.00500_1.000_10.nii.gz".
std::string command_of_name(const std::string& file) {
  const std::size_t mark = file.rfind(result_mark);
  if (mark == std::string::npos || !file.ends_with(KVO_IMAGE_SUFFIX)) return "";
  const std::size_t begin = mark + std::string_view(result_mark).size();
  const std::size_t end = file.size() - std::string_view(KVO_IMAGE_SUFFIX).size();
  std::string command = std::string(verb_name) + " " + file.substr(0, mark) + ", p, ";
  for (const char c : file.substr(begin, end - begin)) command += c == '_' ? ',' : c;
  return command;
}

/// The command that the image says it is made by, or that its name tells where the header has no
/// room for it; nothing when that is none that thresholds.
std::optional<Command> command_of_result(const std::string& file, std::span<const Verb> verbs) {
  if (!file.ends_with(KVO_IMAGE_SUFFIX) || !written_by_this_system(file)) return std::nullopt;
  try {
    std::string text = command_of_image(file);
    if (text.empty()) text = command_of_name(file);
    if (text.empty()) return std::nullopt;
    Command command = parse_command(text, verbs);
    if (command.verb->name != std::string_view(verb_name)) return std::nullopt;
    return command;
  } catch (const Refusal&) {
    return std::nullopt;
  }
}

}  // namespace

ThresholdRequest threshold_request(const Command& command) {
  const double p = command.number(2), height = command.number(3);
  return {.map = command.arguments[0],
          .p = float(p),
          .height = float(height),
          .extent = std::size_t(command.number(4)),
          .p_text = threshold_text(p, 5),
          .height_text = threshold_text(height, 3)};
}

std::string threshold_base(const ThresholdRequest& request) {
  return request.map + result_mark + request.p_text + "_" + request.height_text + "_" +
         std::to_string(request.extent);
}

std::string name_of_p(const ChosenP& chosen) {
  return std::string(chosen.both ? "two-tailed " : "") + p_map_kinds[chosen.kind].heading;
}

std::string criteria_text(const ThresholdRequest& request, const ChosenP& chosen) {
  return name_of_p(chosen) + " < " + request.p_text + ", peak |z| at least " + request.height_text +
         ", at least " + Q_counted(request.extent, "voxel", "voxels");
}

std::array<std::vector<float>, 2> thresholded_p(const ChosenP& chosen) {
  if (chosen.kind > 0 || chosen.both) return read_chosen(chosen);
  return read_uncorrected(chosen.map);
}

std::vector<float> beyond(const Mask& mask, std::span<const float> z,
                          const std::array<std::vector<float>, 2>& p, float threshold) {
  std::vector<float> kept(mni_grid().voxels());
  for (std::size_t n = 0; n < mask.size(); ++n) {
    const std::uint32_t index = mask.grid_index[n];
    if (p[z[n] > 0 ? 0 : 1][index] < threshold) kept[index] = z[n];
  }
  return kept;
}

bool survives(const Cluster& cluster, const ThresholdRequest& request) {
  return cluster.voxels() >= request.extent &&
         std::abs(cluster.peaks.front().z) >= double(request.height);
}

std::vector<Cluster> surviving_clusters(const ThresholdRequest& request, const ChosenP& chosen,
                                        const Mask& mask) {
  const std::vector<float> z = read_map(map_file(chosen.map, z_map), mask);
  std::vector<Cluster> clusters = clusters_of(beyond(mask, z, thresholded_p(chosen), request.p));
  std::erase_if(clusters, [&](const Cluster& cluster) { return !survives(cluster, request); });
  return clusters;
}

std::optional<ThresholdedImage> newest_thresholded(const std::string& analysis,
                                                   std::span<const Verb> verbs) {
  namespace fs = std::filesystem;
  std::optional<ThresholdedImage> newest;
  fs::file_time_type newest_time;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(".", ignored)) {
    const std::string file = entry.path().filename();
    if (!file.starts_with(analysis) || file.find(result_mark) == std::string::npos) continue;
    std::optional<Command> command = command_of_result(file, verbs);
    if (!command) continue;
    const std::string& map = command->arguments[0];
    if (map != analysis && chosen_p(map).map != analysis) continue;
    const fs::file_time_type time = fs::last_write_time(file, ignored);
    if (newest && std::pair(time, file) <= std::pair(newest_time, newest->file)) continue;
    newest = {file, std::move(*command)};
    newest_time = time;
  }
  return newest;
}

}  // namespace kvo::results
