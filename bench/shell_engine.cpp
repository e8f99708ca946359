// A stand-in for the engine that writes a stream of a known shape:
//   kvo_parse lines N     N output lines, as fast as they can be written
//   kvo_parse timed N MS  N lines, one each MS milliseconds, each with the time of its writing
//   kvo_parse silent S    nothing for S seconds

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

int main(int argc, char** argv) {
  const std::string_view mode = argc > 1 ? argv[1] : "";
  const long first = argc > 2 ? std::atol(argv[2]) : 0;
  const long second = argc > 3 ? std::atol(argv[3]) : 0;
  if (mode == "silent") std::this_thread::sleep_for(std::chrono::seconds(first));
  for (long i = 0; mode != "silent" && i < first; ++i) {
    if (mode == "timed") {
      std::this_thread::sleep_for(std::chrono::milliseconds(second));
      const auto now = std::chrono::steady_clock::now().time_since_epoch();
      std::printf("  %ld at %lld\n", i,
                  static_cast<long long>(std::chrono::nanoseconds(now).count()));
      std::fflush(stdout);
    } else {
      std::printf("  Cluster %ld: peak z %.3f at (%ld, %ld, %ld), 120 voxels\n", i,
                  1.0 + static_cast<double>(i % 500) / 100, i % 90, i % 100, i % 80);
    }
  }
  std::puts("d");
  return 0;
}
