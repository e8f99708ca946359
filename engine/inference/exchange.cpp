#include "engine/inference/exchange.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "engine/base/parallel.h"
#include "engine/base/progress.h"
#include "engine/base/vectors.h"
#include "engine/base/wording.h"
#include "engine/inference/dispersion_z.h"
#include "engine/inference/exchange_rows.h"
#include "engine/inference/tails.h"
#include "util/text.h"

namespace kvo::inference {

namespace {

constexpr std::size_t least_exchanges = 10'000;
/// At most this many exchanges are examined for clusters and TFCE, which take most of the time.
constexpr std::size_t most_spatial = 500;
/// At most this many exchanges give the moments of a voxel's values.
constexpr std::size_t most_scored = 2000;
/// Sums of whole numbers are the same in any order. most_scored cubes of the largest normal_score()
/// with 10,000 studies fit.
constexpr double score_unit = 1.0 / (1 << 24);
/// Exchanges with maps in memory at the same time, and voxels of a tile.
constexpr std::size_t batch_rows = 64, tile_voxels = 32;
/// Exchanges with the same value in exact arithmetic may differ by this much.
constexpr float rounding = 1e-4F;
constexpr std::size_t exchange_dots = 20;
/// With fewer ways to exchange the studies than this, the reader is told what p is possible.
constexpr double few_ways = 1000;

using Tile = std::array<float, tile_voxels>;

/// The weighted effects in a tile, of the studies that have any, and the sum of squares that the
/// others() leave of them.
struct TileOfStudies {
  std::vector<std::size_t> studies{};
  std::vector<Tile> effects{};
  Tile squares{};
};

/// The projections of a tile on a row, and their z.
WIDEST_VECTORS void multiply(const float* row, const TileOfStudies& tile, float df, Tile& sums,
                             Tile& z) {
  sums = {};
  for (std::size_t i = 0; i < tile.studies.size(); ++i) {
    const float weight = row[tile.studies[i]];
    const float* __restrict effect = tile.effects[i].data();
    for (std::size_t v = 0; v < tile_voxels; ++v) sums[v] += weight * effect[v];
  }
  for (std::size_t v = 0; v < tile_voxels; ++v)
    z[v] = dispersion_z(sums[v], tile.squares[v] - sums[v] * sums[v], df);
}

/// What is counted in the voxels of a tile.
struct TileCounts {
  Tile observed{};
  std::array<double, tile_voxels> score{};  ///< of the observed value
  std::array<std::array<std::uint32_t, tile_voxels>, 2> beyond{};
  /// Sums of scores, their squares and cubes, in units of score_unit.
  std::array<std::array<std::int64_t, tile_voxels>, 3> powers{};
};

/// The largest values in either direction, for each place in a tile.
using Most = std::array<Tile, 2>;

/// The standard normal deviate at the same quantile as a partial correlation of this square when
/// effects are normal (from its t by Wallace 1959, Annals of Mathematical Statistics 30:1121).
double normal_score(float projection, float squares, float df) {
  if (!(squares > 0)) return 0;
  const float share = std::min(projection * projection / squares, 0.999999F);
  const float score = std::sqrt(-df * std::log1p(-share)) * (8 * df + 1) / (8 * df + 3);
  return double(std::copysign(score, projection));
}

WIDEST_VECTORS void count(const Tile& z, TileCounts& counts, Most& most) {
  for (std::size_t v = 0; v < tile_voxels; ++v) {
    const float limit = rounding * (1 + std::abs(counts.observed[v]));
    counts.beyond[0][v] += z[v] >= counts.observed[v] - limit ? 1 : 0;
    counts.beyond[1][v] += z[v] <= counts.observed[v] + limit ? 1 : 0;
    most[0][v] = most[0][v] > z[v] ? most[0][v] : z[v];
    most[1][v] = most[1][v] > -z[v] ? most[1][v] : -z[v];
  }
}

/// Adds the scores of an exchange.
void add_scores(const Tile& projections, const Tile& squares, float df, TileCounts& counts) {
  for (std::size_t v = 0; v < tile_voxels; ++v) {
    const double score = normal_score(projections[v], squares[v], df);
    counts.powers[0][v] += std::int64_t(score / score_unit);
    counts.powers[1][v] += std::int64_t(score * score / score_unit);
    counts.powers[2][v] += std::int64_t(score * score * score / score_unit);
  }
}

Moments moments_of(const TileCounts& counts, std::size_t v, double number) {
  const auto mean_of = [&](std::size_t power) {
    return double(counts.powers[power][v]) * score_unit / number;
  };
  const double mean = mean_of(0), square = mean_of(1), variance = square - mean * mean;
  const double cube = mean_of(2) - 3 * mean * square + 2 * mean * mean * mean;
  const double sd = std::sqrt(std::max(variance, 1e-12));
  return {mean, sd, cube / (sd * sd * sd)};
}

/// All exchanges of a coefficient.
class Exchanges {
 public:
  explicit Exchanges(const ExchangeRequest& request)
      : request_(request),
        rows_(request),
        voxels_(request.meta.mask.size()),
        // A single image has no residual.
        df_(std::max(1.0F, float(request.design.studies()) - float(request.design.coefficients()))),
        number_(std::max(least_exchanges, request.meta.record.randomizations)),
        spatial_(std::min(number_, most_spatial)),
        scored_(std::min(number_, most_scored)),
        counts_((voxels_ + tile_voxels - 1) / tile_voxels),
        observed_(voxels_) {
    for (int t = 0; t < omp_get_max_threads(); ++t) extents_.emplace_back(request.meta.mask);
  }

  [[nodiscard]] std::size_t number() const { return number_; }
  [[nodiscard]] bool flips() const { return rows_.flips(); }
  [[nodiscard]] double ways() const { return rows_.ways(); }

  void observe() {
    std::vector<float> row(rows_.studies());
    rows_.write(0, row.data());
    in_parallel(counts_.size(), [&](std::size_t tile, std::size_t) {
      const TileOfStudies studies = tile_of(tile);
      Tile projections;
      TileCounts& counts = counts_[tile];
      multiply(row.data(), studies, df_, projections, counts.observed);
      for (std::size_t v = 0; v < tile_voxels; ++v)
        counts.score[v] = normal_score(projections[v], studies.squares[v], df_);
      std::copy_n(counts.observed.begin(), voxels_of(tile),
                  observed_.begin() + std::ptrdiff_t(tile * tile_voxels));
    });
  }

  /// Makes the exchanges with these numbers, in ascending order; a step is a batch.
  Tally made(const std::vector<std::size_t>& numbers, Action& action) {
    thresholds_ = forming_thresholds();
    NullDistribution null({}, extents_.size());
    Tally tally;
    const auto looked_at =
        std::size_t(std::lower_bound(numbers.begin(), numbers.end(), spatial_) - numbers.begin());
    for (LargestValues& largest : tally.largest) {
      largest.value.resize(numbers.size());
      largest.extent.resize(looked_at);
      largest.tfce.resize(looked_at);
    }
    for (std::size_t first = 0; first < numbers.size(); first += batch_rows) {
      const std::size_t rows = std::min(batch_rows, numbers.size() - first);
      run_batch(std::span(numbers).subspan(first, rows), first, null, tally.largest);
      action.step();
    }
    null.finish();
    tally.null = null.counts();
    leave_counts(tally);
    return tally;
  }

  TestedMap tested(const Tally& tally) {
    TestedMap tested{
        .null = NullDistribution({}, 1), .randomizations = number_, .spatial = spatial_};
    Found found{.thresholds = thresholds_, .largest = tally.largest};
    tested.null.add(tally.null);
    take_counts(tally);
    tested.null.finish();
    for (std::vector<float>& p : found.p) p.resize(voxels_);
    in_parallel(counts_.size(), [&](std::size_t tile, std::size_t) { write_p(tile, found.p); });
    add_corrected(tested, std::move(found), observed_, extents_.front());
    tested.statistic = std::move(observed_);
    return tested;
  }

 private:
  [[nodiscard]] TileOfStudies tile_of(std::size_t tile) const {
    const std::size_t begin = tile * tile_voxels, n = std::min(tile_voxels, voxels_ - begin);
    TileOfStudies studies;
    studies.effects.reserve(rows_.studies());
    const Eigen::MatrixXd& others = rows_.others();
    std::vector<Tile> projections(std::size_t(others.cols()));
    for (std::size_t s = 0; s < rows_.studies(); ++s) {
      Tile effects{};
      if (!request_.studies.copy_effects(s, begin, n, effects.data())) continue;
      const auto root = float(rows_.roots()(Eigen::Index(s)));
      for (float& effect : effects) effect *= root;
      for (std::size_t v = 0; v < n; ++v) studies.squares[v] += effects[v] * effects[v];
      for (std::size_t j = 0; j < projections.size(); ++j) {
        const auto part = float(others(Eigen::Index(s), Eigen::Index(j)));
        for (std::size_t v = 0; v < n; ++v) projections[j][v] += part * effects[v];
      }
      studies.studies.push_back(s);
      studies.effects.push_back(effects);
    }
    for (const Tile& projection : projections)
      for (std::size_t v = 0; v < n; ++v) studies.squares[v] -= projection[v] * projection[v];
    return studies;
  }

  /// The values beyond which a share of forming_p lies in either direction in further exchanges.
  std::array<float, 2> forming_thresholds() {
    const std::size_t studies = rows_.studies();
    std::vector<float> table(batch_rows * studies);
    for (std::size_t r = 0; r < batch_rows; ++r)
      rows_.write(number_ + r + 1, table.data() + r * studies);
    NullDistribution null({}, extents_.size());
    in_parallel(counts_.size(), [&](std::size_t tile, std::size_t thread) {
      const TileOfStudies maps = tile_of(tile);
      const std::size_t n = std::min(tile_voxels, voxels_ - tile * tile_voxels);
      Tile projections, z;
      for (std::size_t r = 0; r < batch_rows; ++r) {
        multiply(table.data() + r * studies, maps, df_, projections, z);
        null.count(std::span(z).first(n), thread);
      }
    });
    null.finish();
    return thresholds_of(null);
  }

  /// Makes the exchanges of a batch; the first goes to that place in the list of largest values.
  void run_batch(std::span<const std::size_t> numbers, std::size_t place, NullDistribution& null,
                 std::array<LargestValues, 2>& found) {
    const std::size_t rows = numbers.size(), studies = rows_.studies();
    std::vector<float> table(rows * studies);
    for (std::size_t r = 0; r < rows; ++r) rows_.write(numbers[r] + 1, table.data() + r * studies);
    const auto count_below = [&](std::size_t limit) {
      return std::size_t(std::lower_bound(numbers.begin(), numbers.end(), limit) - numbers.begin());
    };
    const std::size_t looked_at = count_below(spatial_), scored = count_below(scored_);
    maps_.resize(looked_at, std::vector<float>(voxels_));
    // For each thread and row. In a map of zeros the largest value is 0.
    std::vector<std::vector<Most>> most(extents_.size(), std::vector<Most>(rows));
    in_parallel(counts_.size(), [&](std::size_t tile, std::size_t thread) {
      const TileOfStudies maps = tile_of(tile);
      Tile projections, z;
      for (std::size_t r = 0; r < rows; ++r) {
        multiply(table.data() + r * studies, maps, df_, projections, z);
        count(z, counts_[tile], most[thread][r]);
        if (r < scored) add_scores(projections, maps.squares, df_, counts_[tile]);
        if (r < looked_at)
          std::copy_n(z.begin(), voxels_of(tile),
                      maps_[r].begin() + std::ptrdiff_t(tile * tile_voxels));
      }
    });
    for (std::size_t t = 0; t < 2; ++t)
      for (std::size_t r = 0; r < rows; ++r) {
        float& largest = found[t].value[place + r];
        for (const std::vector<Most>& of_thread : most)
          largest =
              std::max(largest, *std::max_element(of_thread[r][t].begin(), of_thread[r][t].end()));
      }
    in_parallel(looked_at, [&](std::size_t r, std::size_t thread) {
      null.count(maps_[r], thread);
      for (std::size_t t = 0; t < 2; ++t) {
        const Extents::Largest largest =
            extents_[thread].largest(maps_[r], t == 0 ? 1.0F : -1.0F, thresholds_[t]);
        found[t].extent[place + r] = largest.extent;
        found[t].tfce[place + r] = largest.tfce;
      }
    });
  }

  [[nodiscard]] std::size_t voxels_of(std::size_t tile) const {
    return std::min(tile_voxels, voxels_ - tile * tile_voxels);
  }

  /// Calls visit(counts of a tile, those of its voxels in the tally) for each kind of count.
  template <typename Tally, typename Visit>
  void for_each_count(Tally& tally, const Visit& visit) {
    for (std::size_t tile = 0; tile < counts_.size(); ++tile) {
      const std::size_t begin = tile * tile_voxels, n = voxels_of(tile);
      for (std::size_t t = 0; t < tally.beyond.size(); ++t)
        visit(std::span(counts_[tile].beyond[t]).first(n), tally.beyond[t].begin() + begin);
      for (std::size_t i = 0; i < tally.powers.size(); ++i)
        visit(std::span(counts_[tile].powers[i]).first(n), tally.powers[i].begin() + begin);
    }
  }
  void leave_counts(Tally& tally) {
    for (auto& list : tally.beyond) list.resize(voxels_);
    for (auto& list : tally.powers) list.resize(voxels_);
    for_each_count(tally, [](auto counts, auto of_tally) {
      std::copy(counts.begin(), counts.end(), of_tally);
    });
  }
  void take_counts(const Tally& tally) {
    for_each_count(tally, [](auto counts, auto of_tally) {
      std::copy_n(of_tally, counts.size(), counts.begin());
    });
  }

  void write_p(std::size_t tile, std::array<std::vector<float>, 2>& p) const {
    const TileCounts& counts = counts_[tile];
    const double all = 1 + double(number_);
    for (std::size_t v = 0; v < tile_voxels && tile * tile_voxels + v < voxels_; ++v)
      for (std::size_t t = 0; t < 2; ++t) {
        double each = (1 + double(counts.beyond[t][v])) / all;
        if (counts.beyond[t][v] < few_beyond) {
          Moments moments = moments_of(counts, v, double(scored_));
          double value = counts.score[v];
          if (t == 1) {
            value = -value;
            moments.mean = -moments.mean;
            moments.skewness = -moments.skewness;
          }
          // At most two decades below what can be counted, and never above what few_beyond values
          // would give.
          each = std::clamp(pearson_tail(value, moments), 0.01 / all, double(few_beyond + 1) / all);
          each = std::max(each, 1 / rows_.ways());
        }
        p[t][tile * tile_voxels + v] = float(each);
      }
  }

  const ExchangeRequest& request_;
  ExchangeRows rows_;
  std::size_t voxels_;
  float df_;
  std::size_t number_, spatial_, scored_;
  std::vector<TileCounts> counts_;
  std::vector<float> observed_;
  std::array<float, 2> thresholds_{};
  std::vector<Extents> extents_;  ///< of each thread
  std::vector<std::vector<float>> maps_;
};

}  // namespace

std::optional<TestedMap> tested_by_exchange(const ExchangeRequest& request, const Shared& shared,
                                            Tally& part) {
  Exchanges exchanges(request);
  const std::vector<std::size_t> numbers = shared.numbers_to_make(exchanges.number());
  const std::string times = times_text(numbers.size(), exchanges.number());
  Action action((exchanges.flips() ? "Turning images round at random"
                                   : "Dealing out " + request.name + " to the studies at random") +
                    times,
                (numbers.size() + batch_rows - 1) / batch_rows, exchange_dots);
  exchanges.observe();
  part = exchanges.made(numbers, action);
  action.finish();
  if (shared.only) return std::nullopt;
  shared.add_others(request.coefficient, part);
  TestedMap tested = exchanges.tested(part);
  if (exchanges.ways() < few_ways)
    say(std::string("There are only ") + Q_count_text(std::size_t(std::lround(exchanges.ways()))) +
        (exchanges.flips() ? " combinations of signs" : " ways to deal out " + request.name) +
        " with " + Q_counted(request.meta.members.size(), "study", "studies") +
        ": no p can be below " + p_text(1 / exchanges.ways()));
  return tested;
}

}  // namespace kvo::inference
