#include "engine/inference/p_maps.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "engine/base/exists.h"
#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/images/mask.h"
#include "engine/maps/folder_maps.h"

namespace kvo::inference {

namespace {

std::vector<float> read_if_there(const std::string& path) {
  return path_exists(path) ? read_p_map(path).values : std::vector<float>();
}

std::vector<float> mirrored(const std::vector<float>& p, std::size_t null_values) {
  const double smallest = 1 / (1 + double(null_values));
  std::vector<float> negative;
  negative.reserve(p.size());
  for (const float value : p)
    negative.push_back(float(std::min(1 - double(value) + smallest, 1.0)));
  return negative;
}

}  // namespace

Image read_p_map(const std::string& path) {
  Image image = read_on_mni_grid(path);
  const auto wrong = std::find_if(image.values.begin(), image.values.end(),
                                  [](float p) { return !(p > 0 && p <= 1); });
  if (wrong == image.values.end()) return image;
  const auto [x, y, z] = mm_of(image.grid.voxel(std::size_t(wrong - image.values.begin())));
  throw Refusal("'" + path + "': the value " + text_of(*wrong) + " at MNI " + std::to_string(x) +
                "," + std::to_string(y) + "," + std::to_string(z) +
                " is no p value: those are above 0 and not above 1.");
}

std::optional<double> p_of_no_effect(const Image& map) {
  if (map.intent_code != p_map.intent_code || !(map.intent_p1 > 0 && map.intent_p1 <= 1))
    return std::nullopt;
  return map.intent_p1;
}

std::array<std::vector<float>, 2> read_uncorrected(const std::string& map) {
  std::array tails{read_p_map(map_file(map, p_map)).values,
                   read_if_there(map_file(map, negative_p_map))};
  if (tails[1].empty()) tails[1] = mirrored(tails[0], null_values_of(map));
  return tails;
}

BothTails read_tails(const std::string& map) {
  BothTails tails;
  auto [positive, negative] = read_uncorrected(map);
  tails.positive[0] = std::move(positive);
  tails.negative[0] = std::move(negative);
  for (std::size_t kind = 1; kind < p_map_kinds.size(); ++kind) {
    tails.positive[kind] = read_if_there(map_file(map, p_map_kinds[kind].positive));
    tails.negative[kind] = read_if_there(map_file(map, p_map_kinds[kind].negative));
  }
  return tails;
}

std::array<std::vector<float>, 2> read_chosen(const ChosenP& chosen) {
  const PMapKinds& kinds = p_map_kinds[chosen.kind];
  if (!chosen.both)
    return {read_p_map(map_file(chosen.map, kinds.positive)).values,
            read_p_map(map_file(chosen.map, kinds.negative)).values};
  std::vector<float> both = read_p_map(map_file(chosen.map, kinds.both)).values;
  return {both, std::move(both)};
}

}  // namespace kvo::inference
