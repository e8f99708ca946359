// Usage: engine_bench MASK G_MAP... VAR_MAP...
// Prints the seconds that the estimate of all maps takes on one thread: the least of several runs.

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "companions/kvo_core/mask.h"
#include "companions/kvo_core/pooling.h"

namespace {

double seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> files(argv + 2, argv + argc);
  const Mask mask = read_mask(argv[1]);
  std::vector<std::vector<float>> maps;
  for (const std::string& file : files) maps.push_back(read_map(file, mask));
  std::vector<const float*> g, var;
  for (std::size_t m = 0; m < maps.size(); ++m)
    (m < maps.size() / 2 ? g : var).push_back(maps[m].data());

  std::vector<std::vector<float>> results(6, std::vector<float>(mask.size()));
  double best = 1e9;
  for (const double begin = seconds(); seconds() - begin < 2;) {
    const double start = seconds();
    pool(g, var, mask.size(),
         {.z = results[0].data(),
          .g = results[1].data(),
          .var = results[2].data(),
          .tau2 = results[3].data(),
          .I2 = results[4].data(),
          .Q = results[5].data()});
    best = std::min(best, seconds() - start);
  }
  std::printf("%.9f\n", best);
}
