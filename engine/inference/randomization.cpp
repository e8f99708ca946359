#include "engine/inference/randomization.h"

#include <algorithm>
#include <memory>
#include <optional>

#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/inference/image_shuffle.h"
#include "engine/maps/effect_maps.h"
#include "util/text.h"

namespace kvo::inference {

namespace {

constexpr std::size_t randomization_dots = 30;

std::size_t largest_slice(const Mask& mask) {
  std::size_t largest = 0;
  for (std::size_t k = 0; k < mask.slices(); ++k)
    largest = std::max(largest, mask.slice_begin[k + 1] - mask.slice_begin[k]);
  return largest;
}

std::vector<std::size_t> filled_slices(const Mask& mask) {
  std::vector<std::size_t> slices;
  for (std::size_t k = 0; k < mask.slices(); ++k)
    if (mask.slice_begin[k] < mask.slice_begin[k + 1]) slices.push_back(k);
  return slices;
}

/// What one thread needs for its work.
struct Workspace {
  PeakMap::Plane plane;
  std::optional<PathMap::Room> path_room;
  ImageShuffle::Room image_room;
  StudyMaps maps;  ///< of a slice of a randomization
  std::vector<std::vector<float>> z;
  std::vector<float*> z_begins;
  std::vector<Voxel> voxels;

  Workspace(std::size_t studies, std::size_t z_maps, std::size_t slice)
      : maps{std::vector(studies, std::vector<float>(slice)),
             std::vector(studies, std::vector<float>(slice))},
        z(z_maps, std::vector<float>(slice)) {
    for (std::vector<float>& map : z) z_begins.push_back(map.data());
  }
};

/// A study as the randomizations see it.
struct RandomStudy {
  PeakMap peaks;
  const ImageShuffle* image;  ///< null without
  VarianceOfG variance;
  std::uint64_t hash;
  /// Its map in the present randomization, when that is not found a slice at a time.
  std::vector<float> whole_map;
};

/// The images of the studies that have one, made ready to be shuffled.
struct Images {
  std::optional<ShuffleSpace> space;
  std::vector<std::optional<ImageShuffle>> of_study;
  std::size_t count = 0;

  explicit Images(const RandomizationRequest& request) : of_study(request.images.size()) {
    const MetaAnalysis& meta = request.meta;
    std::vector<std::size_t> with_image;
    for (std::size_t s = 0; s < request.images.size(); ++s)
      if (!request.images[s].empty()) with_image.push_back(s);
    count = with_image.size();
    if (count == 0) return;
    Action action("Measuring the smoothness of " + Q_counted(count, "image", "images"), count,
                  randomization_dots);
    space.emplace(meta.mask);
    in_parallel(count, [&](std::size_t i, std::size_t) {
      const std::size_t s = with_image[i];
      of_study[s].emplace(*space, request.images[s], meta.record.seed,
                          name_hash(meta.members[s].study.name));
      action.step();
    });
    action.finish();
  }
};

/// What the randomizations of a meta-analysis share.
class Randomizations {
 public:
  Randomizations(const RandomizationRequest& request, const Images& images,
                 std::vector<NullDistribution>& nulls)
      : meta_(request.meta),
        slices_(filled_slices(meta_.mask)),
        statistic_(request.statistic),
        nulls_(nulls),
        effects_(meta_.record, meta_.mask, meta_.correlation) {
    for (std::size_t s = 0; s < meta_.members.size(); ++s) {
      const Member& member = meta_.members[s];
      const std::optional<ImageShuffle>& image = images.of_study[s];
      // Peaks too far from the mask for their kernel to reach it are no part of what was found in
      // it.
      studies_.push_back({effects_.around_reaching(member.peaks),
                          image ? &*image : nullptr,
                          variance_of_g(member.study.sample),
                          name_hash(member.study.name),
                          {}});
      if (!image && effects_.paths() == nullptr) continue;
      whole_.push_back(s);
      studies_.back().whole_map.resize(meta_.mask.size());
    }
    const auto threads = std::size_t(omp_get_max_threads());
    for (std::size_t t = 0; t < threads; ++t) {
      workspaces_.push_back(
          std::make_unique<Workspace>(studies_.size(), nulls.size(), largest_slice(meta_.mask)));
      if (effects_.paths() != nullptr) workspaces_.back()->path_room.emplace(*effects_.paths());
    }
  }

  [[nodiscard]] std::size_t steps() const { return meta_.record.randomizations * slices_.size(); }

  /// A slice at a time, so that all the studies' values of it stay in the cache. Images and paths
  /// need whole maps: of these there is one for each study, and the threads share first the
  /// studies of a randomization and then its slices.
  void run(Action& action) {
    const std::size_t repeats = meta_.record.randomizations, slices = slices_.size();
    const std::size_t at_once = whole_.empty() ? repeats : 1;
    for (std::size_t first = 0; first < repeats; first += at_once) {
      in_parallel(whole_.size(), [&](std::size_t i, std::size_t thread) {
        make_whole_map(first, studies_[whole_[i]], *workspaces_[thread]);
      });
      in_parallel(at_once * slices, [&](std::size_t item, std::size_t thread) {
        count_slice(first + item / slices, slices_[item % slices], thread);
        action.step();
      });
    }
  }

 private:
  /// The voxels of the mask that a study's peaks are moved to.
  void place_peaks(std::size_t repeat, const RandomStudy& study, std::vector<Voxel>& voxels) const {
    RandomStream random(meta_.record.seed, repeat, study.hash);
    voxels.clear();
    for (std::size_t p = 0; p < study.peaks.peaks().size(); ++p)
      voxels.push_back(meta_.mask.voxel(random.below(std::uint32_t(meta_.mask.size()))));
  }

  void make_whole_map(std::size_t repeat, RandomStudy& study, Workspace& work) const {
    if (study.image != nullptr) {
      study.image->shuffle(repeat, work.image_room, study.whole_map.data());
      return;
    }
    place_peaks(repeat, study, work.voxels);
    effects_.paths()->effects(study.peaks.peaks(), work.voxels, *work.path_room,
                              study.whole_map.data());
  }

  void count_slice(std::size_t repeat, std::size_t k, std::size_t thread) const {
    const std::size_t begin = meta_.mask.slice_begin[k];
    const std::size_t voxels = meta_.mask.slice_begin[k + 1] - begin;
    Workspace& work = *workspaces_[thread];
    for (std::size_t s = 0; s < studies_.size(); ++s) {
      const RandomStudy& study = studies_[s];
      float* g = work.maps.g[s].data();
      if (study.whole_map.empty()) {
        place_peaks(repeat, study, work.voxels);
        study.peaks.effects(work.voxels, int(k), meta_.mask, work.plane, g);
      } else {
        std::copy_n(study.whole_map.data() + begin, voxels, g);
      }
      float* var = work.maps.var[s].data();
      for (std::size_t v = 0; v < voxels; ++v) var[v] = float(study.variance.at(g[v]));
    }
    statistic_(work.maps.effects(0), work.maps.variances(0), voxels, work.z_begins);
    for (std::size_t map = 0; map < nulls_.size(); ++map)
      nulls_[map].count(std::span(work.z[map]).first(voxels), repeat, thread);
  }

  const MetaAnalysis& meta_;
  std::vector<std::size_t> slices_;
  const Statistic& statistic_;
  std::vector<NullDistribution>& nulls_;
  EffectMaps effects_;
  std::vector<RandomStudy> studies_;
  std::vector<std::size_t> whole_;                      ///< the studies that have a whole map
  std::vector<std::unique_ptr<Workspace>> workspaces_;  ///< of each thread
};

/// What the randomizations do, for the user.
std::string action_text(std::size_t studies, std::size_t images, std::size_t repeats) {
  const std::string moving = "oving the peaks to random places", shuffling = "huffling the images";
  const std::string what = images == 0         ? "M" + moving
                           : images == studies ? "S" + shuffling
                                               : "M" + moving + " and s" + shuffling;
  return what + " (" + Q_counted(repeats, "time", "times") + ")";
}

}  // namespace

std::vector<NullDistribution> randomized(const RandomizationRequest& request) {
  const std::size_t repeats = request.meta.record.randomizations;
  std::vector<NullDistribution> nulls;
  for (const std::vector<float>& map : request.observed)
    nulls.emplace_back(map, repeats, std::size_t(omp_get_max_threads()));
  const Images images(request);
  Randomizations randomizations(request, images, nulls);
  Action action(action_text(request.meta.members.size(), images.count, repeats),
                randomizations.steps(), randomization_dots);
  randomizations.run(action);
  for (NullDistribution& null : nulls) null.finish();
  action.finish();
  return nulls;
}

}  // namespace kvo::inference
