#include "engine/inference/exchange_rows.h"

#include <array>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "engine/inference/dispersion_z.h"
#include "engine/inference/random_stream.h"

namespace kvo::inference {

namespace {

/// The number of sign patterns of the studies, or of different orders of a column's values, some of
/// which may be equal.
double ways_to_exchange(const Eigen::VectorXd& column, bool flips) {
  if (flips) return std::exp2(double(column.size()));
  std::map<double, double> counts;
  for (const double value : column) counts[value] += 1;
  double log_ways = std::lgamma(double(column.size()) + 1);
  for (const auto& [value, count] : counts) log_ways -= std::lgamma(count + 1);
  return std::exp(log_ways);
}

/// The effects of the studies in the middle of the mask, which differ between meta-analyses.
std::vector<double> exchanged_numbers(const ExchangeRequest& request) {
  std::vector<double> numbers;
  const std::size_t voxel = request.meta.mask.size() / 2;
  for (std::size_t s = 0; s < request.meta.members.size(); ++s) {
    std::array<float, SparseMap::stretch> g{};
    const std::size_t begin = voxel / g.size() * g.size();
    request.studies.copy_effects(s, begin, voxel - begin + 1, g.data());
    numbers.push_back(double(g[voxel - begin]));
  }
  const auto column = request.design.columns.col(Eigen::Index(request.coefficient));
  numbers.insert(numbers.end(), column.begin(), column.end());
  return numbers;
}

}  // namespace

ExchangeRows::ExchangeRows(const ExchangeRequest& request)
    : seed_(request.meta.record.seed),
      hash_(name_hash(request.name, exchanged_numbers(request))),
      flips_(request.coefficient == 0),
      roots_(root_weights(request.meta, request.tau2)) {
  const Eigen::MatrixXd others = other_columns(request.design, request.coefficient);
  const Eigen::MatrixXd basis = orthonormal(others);
  column_ = request.design.columns.col(Eigen::Index(request.coefficient));
  ways_ = ways_to_exchange(column_, flips_);
  column_ -= basis * (basis.transpose() * column_);
  others_ = orthonormal(roots_.asDiagonal() * others);
}

void ExchangeRows::write(std::size_t number, float* row) const {
  Eigen::VectorXd values = column_;
  RandomStream random(seed_, number, hash_);
  for (Eigen::Index s = values.size(); number > 0 && s-- > 0;) {
    if (!flips_)
      std::swap(values(s), values(Eigen::Index(random.below(std::uint32_t(s) + 1))));
    else if (random.below(2) == 1)
      values(s) = -values(s);
  }
  values.array() *= roots_.array();
  const double before = values.norm();
  for (int twice = 0; twice < 2; ++twice) values -= others_ * (others_.transpose() * values);
  const double norm = values.norm();
  // A term that the others explain entirely has no coefficient.
  values *= norm > 1e-9 * before ? 1 / norm : 0;
  for (Eigen::Index s = 0; s < values.size(); ++s) row[s] = float(values(s));
}

}  // namespace kvo::inference
