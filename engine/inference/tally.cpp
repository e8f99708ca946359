#include "engine/inference/tally.h"

#include <algorithm>
#include <cstring>
#include <functional>

namespace kvo::inference {

namespace {

/// Calls visit(list) for each list of a tally.
template <typename Of, typename Visit>
void for_each_list(Of& tally, const Visit& visit) {
  visit(tally.null.by_rank);
  visit(tally.null.by_bin);
  for (auto& largest : tally.largest)
    for (auto* list : {&largest.value, &largest.extent, &largest.tfce}) visit(*list);
  for (auto& list : tally.beyond) visit(list);
  for (auto& list : tally.powers) visit(list);
}

}  // namespace

bool fit_together(const Tally& a, const Tally& b) {
  const auto sizes_of = [](const Tally& tally) {
    std::vector<std::size_t> sizes{tally.null.by_rank.size(), tally.null.by_bin.size()};
    for (const auto& list : tally.beyond) sizes.push_back(list.size());
    for (const auto& list : tally.powers) sizes.push_back(list.size());
    return sizes;
  };
  return sizes_of(a) == sizes_of(b);
}

void add(Tally& to, const Tally& tally) {
  const auto add_counts = [](auto& sums, const auto& counts) {
    std::transform(counts.begin(), counts.end(), sums.begin(), sums.begin(), std::plus());
  };
  add_counts(to.null.by_rank, tally.null.by_rank);
  add_counts(to.null.by_bin, tally.null.by_bin);
  for (std::size_t t = 0; t < to.largest.size(); ++t) to.largest[t].add(tally.largest[t]);
  for (std::size_t t = 0; t < to.beyond.size(); ++t) add_counts(to.beyond[t], tally.beyond[t]);
  for (std::size_t i = 0; i < to.powers.size(); ++i) add_counts(to.powers[i], tally.powers[i]);
}

std::string bytes_of(const Tally& tally) {
  std::string bytes;
  for_each_list(tally, [&](const auto& list) {
    const std::uint64_t size = list.size();
    bytes.append(reinterpret_cast<const char*>(&size), sizeof size);
    bytes.append(reinterpret_cast<const char*>(list.data()), size * sizeof list[0]);
  });
  return bytes;
}

bool take_tally(std::string_view& bytes, Tally& tally) {
  bool whole = true;
  for_each_list(tally, [&](auto& list) {
    std::uint64_t size = 0;
    whole = whole && bytes.size() >= sizeof size;
    if (whole) std::memcpy(&size, bytes.data(), sizeof size);
    whole = whole && size <= (bytes.size() - sizeof size) / sizeof list[0];
    if (!whole) return;
    bytes.remove_prefix(sizeof size);
    list.resize(size);
    if (size > 0) std::memcpy(list.data(), bytes.data(), size * sizeof list[0]);
    bytes.remove_prefix(size * sizeof list[0]);
  });
  return whole;
}

}  // namespace kvo::inference
