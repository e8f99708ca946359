// Usage: engine_bench STUDIES TERMS MASK G_MAP... VAR_MAP...
// Prints the seconds that the estimate of all maps takes on one thread: the least of several runs.
// It is the mean without terms, else a linear model. The maps are copied, again and again, to make
// so many studies; the values of the terms do not matter.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>

#include "engine/images/mask.h"
#include "engine/model/meta_regression.h"

using namespace kvo::model;

namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double least_seconds(const std::function<void()>& work) {
  double best = 1e9;
  for (const double begin = seconds(); seconds() - begin < 2;) {
    const double start = seconds();
    work();
    best = std::min(best, seconds() - start);
  }
  return best;
}

Design design_of(std::size_t terms, std::size_t studies) {
  std::vector<Term> list;
  for (std::size_t t = 1; t <= terms; ++t) {
    list.push_back({std::to_string(t), {}});
    for (std::size_t s = 1; s <= studies; ++s)
      list.back().values.push_back(std::cos(double(s * t)));
  }
  return make_design(list, studies);
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t studies = std::stoul(argv[1]), terms = std::stoul(argv[2]);
  const std::vector<std::string> files(argv + 4, argv + argc);
  const Mask mask = read_mask(argv[3]);
  std::vector<std::vector<float>> maps;
  maps.reserve(files.size());
  for (const std::string& file : files) maps.push_back(read_map(file, mask));
  std::vector<std::vector<float>> g_maps, var_maps;
  std::vector<const float*> g, var;
  for (std::size_t s = 0; s < studies; ++s) {
    g_maps.push_back(maps[s % (maps.size() / 2)]);
    var_maps.push_back(maps[maps.size() / 2 + s % (maps.size() / 2)]);
    g.push_back(g_maps.back().data());
    var.push_back(var_maps.back().data());
  }

  std::vector<std::vector<float>> results(3 * terms + 6, std::vector<float>(mask.size()));
  std::vector<float*> to;
  to.reserve(results.size());
  for (std::vector<float>& result : results) to.push_back(result.data());
  const Design design = design_of(terms, studies);
  const auto fit_all = [&] {
    const std::span<float* const> coefficients(to.data() + 3, 3 * terms + 3);
    fit_model_maps(design, g, var, mask.size(),
                   {.z = coefficients.subspan(0, terms + 1),
                    .g = coefficients.subspan(terms + 1, terms + 1),
                    .var = coefficients.subspan(2 * terms + 2, terms + 1),
                    .tau2 = to[0],
                    .I2 = to[1],
                    .Q = to[2]});
  };
  std::printf("%.9f\n", least_seconds(fit_all));
}
