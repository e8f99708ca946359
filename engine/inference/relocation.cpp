#include "engine/inference/relocation.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/inference/dispersion_z.h"
#include "engine/inference/placement.h"
#include "engine/maps/effect_maps.h"
#include "util/text.h"

namespace kvo::inference {

namespace {

constexpr std::size_t relocation_dots = 30;
/// Further randomizations, which determine the values beyond which clusters are formed.
constexpr std::size_t pilots = 20;

/// A study as the randomizations see it.
struct RelocatedStudy {
  PeakMap peaks;
  PeakGroups groups;
  const float* image;  ///< its effects; null without an image
  std::uint64_t hash;
};

/// Sums over the studies in some voxels: projections on the design's basis, and squares.
struct StudySums {
  std::vector<std::vector<float>> projections;
  std::vector<float> squares;

  StudySums(std::size_t coefficients, std::size_t voxels)
      : projections(coefficients, std::vector<float>(voxels)), squares(voxels) {}

  void clear(std::size_t voxels) {
    for (std::vector<float>& sums : projections) std::fill_n(sums.begin(), voxels, 0.0F);
    std::fill_n(squares.begin(), voxels, 0.0F);
  }
};

/// One thread's working space.
struct Workspace {
  PeakMap::Plane plane;
  std::optional<PathMap::Room> path_room;
  StudySums sums;
  std::vector<std::vector<Voxel>> voxels;  ///< of the studies' peaks
  std::vector<float> signs;                ///< of the studies' images
  std::vector<float> g, z;
  Extents extents;

  Workspace(std::size_t coefficients, std::size_t studies, const Mask& mask)
      : sums(coefficients, mask.size()),
        voxels(studies),
        signs(studies),
        g(mask.size()),
        z(mask.size()),
        extents(mask) {}
};

/// The places and heights of a study's peaks.
std::vector<double> peak_numbers(const Member& member) {
  std::vector<double> numbers;
  for (const Peak& peak : member.peaks) {
    numbers.insert(numbers.end(), peak.mm.begin(), peak.mm.end());
    numbers.push_back(peak.g);
  }
  return numbers;
}

/// The randomizations of a meta-analysis.
class Relocations {
 public:
  explicit Relocations(const RelocationRequest& request)
      : meta_(request.meta),
        mask_(meta_.mask),
        effects_(meta_.record, mask_, meta_.correlation),
        roots_(root_weights(meta_, request.tau2)),
        basis_(orthonormal(roots_.asDiagonal() * request.design.columns)),
        df_(float(std::max<Eigen::Index>(basis_.rows() - basis_.cols(), 1))),
        number_(meta_.record.randomizations) {
    // The intercept is what the other columns leave of its own.
    Eigen::VectorXd column = roots_;
    const Eigen::MatrixXd others =
        orthonormal(roots_.asDiagonal() * other_columns(request.design, 0));
    column -= others * (others.transpose() * column);
    const Eigen::VectorXd contrast = basis_.transpose() * column.normalized();
    contrast_.assign(contrast.begin(), contrast.end());
    std::vector<std::vector<PlacedPeak>> peaks;
    for (std::size_t s = 0; s < meta_.members.size(); ++s) {
      const Member& member = meta_.members[s];
      // Peaks too far from the mask for their kernel to reach it are not part of what was found in
      // it.
      PeakMap map = effects_.around_reaching(member.peaks);
      auto groups =
          peak_groups(map.peaks(), reaching_fwhm(meta_.record.fwhm, meta_.record.anisotropy));
      peaks.push_back(map.peaks());
      studies_.push_back({std::move(map), std::move(groups),
                          member.has_image ? request.studies.g[s].data() : nullptr,
                          name_hash(member.study.name, peak_numbers(member))});
    }
    placement_.emplace(mask_, peaks);
    scale_ = placement_->mean_square_of_kernel(
        reaching_fwhm(meta_.record.fwhm, meta_.record.anisotropy));
    for (float& square : scale_) square = std::sqrt(square);
    for (int t = 0; t < omp_get_max_threads(); ++t) {
      workspaces_.push_back(
          std::make_unique<Workspace>(std::size_t(basis_.cols()), studies_.size(), mask_));
      if (effects_.paths() != nullptr) workspaces_.back()->path_room.emplace(*effects_.paths());
    }
    observe(request.studies);
  }

  [[nodiscard]] std::size_t number() const { return number_; }

  /// Makes the randomizations with these numbers.
  Tally made(const std::vector<std::size_t>& numbers, Action& action) {
    NullDistribution null(observed_, workspaces_.size());
    Tally tally;
    for (LargestValues& largest : tally.largest)
      for (std::vector<float>* values : {&largest.value, &largest.extent, &largest.tfce})
        values->resize(numbers.size());
    in_parallel(numbers.size(), [&](std::size_t i, std::size_t thread) {
      Workspace& work = *workspaces_[thread];
      relocate(numbers[i], work);
      scale(work.z);
      null.count(work.z, thread);
      const auto [least, most] = std::minmax_element(work.z.begin(), work.z.end());
      tally.largest[0].value[i] = *most;
      tally.largest[1].value[i] = -*least;
      for (std::size_t t = 0; t < 2; ++t) {
        const Extents::Largest largest =
            work.extents.largest(work.z, t == 0 ? 1.0F : -1.0F, thresholds_[t]);
        tally.largest[t].extent[i] = largest.extent;
        tally.largest[t].tfce[i] = largest.tfce;
      }
      action.step();
    });
    null.finish();
    tally.null = null.counts();
    return tally;
  }

  TestedMap tested(const Tally& tally) {
    TestedMap tested{
        .null = NullDistribution(observed_, 1), .randomizations = number_, .spatial = number_};
    Found found{.thresholds = thresholds_, .largest = tally.largest};
    tested.null.add(tally.null);
    tested.null.finish();
    found.p = {tested.null.p(Tail::positive), tested.null.p(Tail::negative)};
    add_corrected(tested, std::move(found), observed_, workspaces_.front()->extents);
    tested.statistic = std::move(observed_);
    return tested;
  }

  /// Finds the values beyond which a share of forming_p lies in either direction.
  void find_thresholds(Action& action) {
    NullDistribution null({}, workspaces_.size());
    in_parallel(pilots, [&](std::size_t r, std::size_t thread) {
      // Counted down from the highest number, these are not among the randomizations.
      relocate(SIZE_MAX - r, *workspaces_[thread]);
      scale(workspaces_[thread]->z);
      null.count(workspaces_[thread]->z, thread);
      action.step();
    });
    null.finish();
    thresholds_ = thresholds_of(null);
  }

 private:
  void add(std::size_t study, const float* g, std::size_t begin, std::size_t n, StudySums& sums,
           float sign = 1) const {
    const float root = sign * float(roots_(Eigen::Index(study)));
    float* __restrict squares = sums.squares.data() + begin;
    for (std::size_t v = 0; v < n; ++v) squares[v] += root * g[v] * (root * g[v]);
    for (std::size_t j = 0; j < sums.projections.size(); ++j) {
      float* __restrict projection = sums.projections[j].data() + begin;
      const float part = root * float(basis_(Eigen::Index(study), Eigen::Index(j)));
      for (std::size_t v = 0; v < n; ++v) projection[v] += part * g[v];
    }
  }

  /// The statistic from the sums of `voxels` voxels.
  void finish(const StudySums& sums, std::size_t voxels, float* z) const {
    for (std::size_t v = 0; v < voxels; ++v) {
      float projection = 0, residual = sums.squares[v];
      for (std::size_t j = 0; j < contrast_.size(); ++j) {
        const float part = sums.projections[j][v];
        projection += contrast_[j] * part;
        residual -= part * part;
      }
      z[v] = dispersion_z(projection, residual, df_);
    }
  }

  void observe(const StudyMaps& studies) {
    observed_.resize(mask_.size());
    StudySums sums(std::size_t(basis_.cols()), mask_.size());
    std::vector<float> g(mask_.size());
    for (std::size_t s = 0; s < studies_.size(); ++s)
      if (studies.copy_effects(s, 0, mask_.size(), g.data()))
        add(s, g.data(), 0, mask_.size(), sums);
    finish(sums, mask_.size(), observed_.data());
    scale(observed_);
  }

  /// Leaves the map of a randomization in the workspace.
  void relocate(std::size_t repeat, Workspace& work) const {
    for (std::size_t s = 0; s < studies_.size(); ++s) {
      RandomStream random(meta_.record.seed, repeat, studies_[s].hash);
      work.signs[s] = random.below(2) == 0 ? 1.0F : -1.0F;
      place_groups(studies_[s].peaks.peaks(), studies_[s].groups, mask_, *placement_, random,
                   work.voxels[s]);
    }
    work.sums.clear(mask_.size());
    // Kernels a slice at a time, so that the sums stay in the cache.
    for (std::size_t k = 0; effects_.paths() == nullptr && k < mask_.slices(); ++k) {
      const std::size_t begin = mask_.slice_begin[k], n = mask_.slice_begin[k + 1] - begin;
      for (std::size_t s = 0; n > 0 && s < studies_.size(); ++s) {
        if (studies_[s].image != nullptr) continue;
        studies_[s].peaks.effects(work.voxels[s], int(k), mask_, work.plane, work.g.data());
        add(s, work.g.data(), begin, n, work.sums);
      }
    }
    for (std::size_t s = 0; s < studies_.size(); ++s) {
      if (studies_[s].image != nullptr) {
        add(s, studies_[s].image, 0, mask_.size(), work.sums, work.signs[s]);
      } else if (effects_.paths() != nullptr) {
        effects_.paths()->effects(studies_[s].peaks.peaks(), work.voxels[s], *work.path_room);
        for (const auto& [begin, end] : work.path_room->runs)
          add(s, work.path_room->g.data() + begin, begin, end - begin, work.sums);
      }
    }
    finish(work.sums, mask_.size(), work.z.data());
  }

  void scale(std::vector<float>& z) const {
    for (std::size_t v = 0; v < z.size(); ++v) z[v] /= scale_[v];
  }

  const MetaAnalysis& meta_;
  const Mask& mask_;
  EffectMaps effects_;
  Eigen::VectorXd roots_;
  Eigen::MatrixXd basis_;        ///< of the design's columns times the roots of the weights
  std::vector<float> contrast_;  ///< turns the projections into the intercept
  float df_;
  std::size_t number_;
  std::vector<RelocatedStudy> studies_;
  std::optional<Placement> placement_;
  std::vector<std::unique_ptr<Workspace>> workspaces_;  ///< of each thread
  std::vector<float> observed_, scale_;
  std::array<float, 2> thresholds_{};
};

/// What the randomizations do, for the user.
std::string action_text(const MetaAnalysis& meta, std::size_t times) {
  const bool images = std::any_of(meta.members.begin(), meta.members.end(),
                                  [](const Member& member) { return member.has_image; });
  return std::string("Moving peaks to random places") +
         (images ? " and turning images round at random" : "") +
         times_text(times, meta.record.randomizations);
}

}  // namespace

std::optional<TestedMap> tested_by_relocation(const RelocationRequest& request,
                                              const Shared& shared, Tally& part) {
  Relocations relocations(request);
  const std::vector<std::size_t> numbers = shared.numbers_to_make(relocations.number());
  Action action(action_text(request.meta, numbers.size()), pilots + numbers.size(),
                relocation_dots);
  relocations.find_thresholds(action);
  part = relocations.made(numbers, action);
  action.finish();
  if (shared.only) return std::nullopt;
  shared.add_others(0, part);
  return relocations.tested(part);
}

}  // namespace kvo::inference
