#include "resources/share/regions.h"

#include <algorithm>
#include <array>

namespace kvo::share {

namespace {

// The labels of the tractography atlas have no names in the package. They count the structures of
// Catani and Thiebaut de Schotten 2008 (Cortex 44:1105) in alphabetical order, which their places
// confirm, and each hemisphere has its own: 1 to 16 left, 101 to 116 right. Left out are those that
// have no region of their own here: 7 cortico-ponto-cerebellar tract, 9 fornix, 10 and 15 inferior
// and superior cerebellar peduncles, 13 internal capsule.
struct TractRegion {
  int label;
  int region;
};
constexpr TractRegion tract_regions[] = {
    {1, 117},  {101, 117},  // anterior commissure
    {2, 120},  {102, 121},  // arcuate network, anterior segment
    {3, 122},  {103, 123},  // arcuate network, long segment
    {4, 124},  {104, 125},  // arcuate network, posterior segment
    {5, 127},  {105, 130},  // cingulum
    {16, 129}, {116, 131},  // uncinate fasciculus
    {6, 132},  {106, 132},  // corpus callosum
    {8, 133},  {108, 134},  // cortico-spinal projections
    {12, 164}, {112, 165},  // inferior fronto-occipital fasciculus
    {11, 166}, {111, 167},  // inferior longitudinal fasciculus
    {14, 168}, {114, 169},  // optic radiations
};

constexpr float peduncle_label = 1;  // of the atlas of deep white matter
constexpr float peduncle_region = 139;

/// Brodmann's areas are areas of the cortex: the amygdala, the deep nuclei from caudate to thalamus
/// and the cerebellum have none.
bool is_cortical(int region) {
  const bool amygdala = region == 41 || region == 42;
  const bool deep_nucleus = region >= 71 && region <= 78;
  return region >= 1 && region <= 90 && !amygdala && !deep_nucleus;
}

/// The most frequent label of the voxel, the lowest of equals; 0 when less than half is labelled.
float majority(Samples samples) {
  constexpr std::ptrdiff_t half = points_per_voxel / 2;
  if (std::count_if(samples.begin(), samples.end(), [](float s) { return s > 0; }) < half) return 0;
  std::array<float, points_per_voxel> sorted{};
  std::copy(samples.begin(), samples.end(), sorted.begin());
  std::sort(sorted.begin(), sorted.end());
  const auto labelled = std::upper_bound(sorted.begin(), sorted.end(), 0.0F);
  float best = 0;
  std::ptrdiff_t best_count = 0;
  for (auto from = labelled; from != sorted.end();) {
    const auto to = std::upper_bound(from, sorted.end(), *from);
    if (to - from > best_count) {
      best_count = to - from;
      best = *from;
    }
    from = to;
  }
  return best;
}

Volume resampled_labels(const Image& labels) {
  return measure_voxels(labels, Sampling::nearest, {}, majority);
}

/// The tractography atlas in our region numbers, before it is resampled, so that both halves of a
/// structure that crosses the midline count together.
Image tract_region_image(const Image& tracts) {
  Image regions = tracts;
  for (float& value : regions.values) {
    const auto* row = std::find_if(std::begin(tract_regions), std::end(tract_regions),
                                   [&](const TractRegion& t) { return float(t.label) == value; });
    value = row == std::end(tract_regions) ? 0.0F : float(row->region);
  }
  return regions;
}

/// The deep white-matter atlas is packaged with a header that mirrors it: by its list of names and
/// by the anatomy of the other images, its first voxel lies on the right.
Image unmirrored(const Image& image) {
  Image turned = image;
  const int length = image.grid.size[0];
  for (int k = 0; k < image.grid.size[2]; ++k)
    for (int j = 0; j < image.grid.size[1]; ++j)
      for (int i = 0; i < length; ++i)
        turned.values[image.grid.index(i, j, k)] =
            image.values[image.grid.index(length - 1 - i, j, k)];
  return turned;
}

}  // namespace

Volume region_atlas(const Sources& sources) {
  Volume regions = resampled_labels(sources.aal);
  const Volume areas = resampled_labels(sources.brodmann);
  const Volume tracts = resampled_labels(tract_region_image(sources.tracts));
  const Volume deep = resampled_labels(unmirrored(sources.core_tracts));
  for (std::size_t v = 0; v < regions.size(); ++v) {
    if (regions[v] > 0) {
      if (is_cortical(int(regions[v]))) regions[v] = float(regions[v] + areas[v] / 100.0);
    } else if (deep[v] == peduncle_label) {
      regions[v] = peduncle_region;
    } else {
      regions[v] = tracts[v];
    }
  }
  return regions;
}

Volume core_tract_fraction(const Sources& sources) {
  return measure_voxels(unmirrored(sources.core_tracts), Sampling::nearest, {}, [](Samples s) {
    return float(std::count_if(s.begin(), s.end(), [](float label) { return label > 0; })) /
           float(points_per_voxel);
  });
}

}  // namespace kvo::share
