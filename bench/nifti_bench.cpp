// Reading of a series of 200 volumes on the 2 mm MNI grid, as floats and as whole numbers, in both
// byte orders and compressed, beside what the system and zlib alone need for the same bytes: one
// read() of the file into fresh memory, one gzread() after the other of the volumes. Each time is
// the best of several in the same run.
//
// Usage: nifti_bench [VOLUMES]

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "nifti/byte_order.h"
#include "nifti/nifti_file.h"
#include "test_folder.h"

namespace {

constexpr int REPEATS = 5;
constexpr std::int16_t GRID[3] = {91, 109, 91};
constexpr std::size_t VOXELS = std::size_t{91} * 109 * 91;

/// The fastest of some calls, without the giving back of what they return.
template <typename Work>
double best_seconds(int repeats, const Work& work) {
  double best = 1e9;
  for (int i = 0; i < repeats; ++i) {
    const auto start = std::chrono::steady_clock::now();
    const auto kept = work();
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    best = std::min(best, time.count());
  }
  return best;
}

/// Writes a series whose values look like those of images: smooth, with some noise, 0 outside.
template <typename T>
std::size_t write_series(const char* path, int volumes, bool other_order, bool compressed) {
  Nifti_header h{};
  h.sizeof_hdr = sizeof h;
  const std::int16_t dim[8] = {4, GRID[0], GRID[1], GRID[2], static_cast<std::int16_t>(volumes),
                               1, 1,       1};
  std::memcpy(h.dim, dim, sizeof dim);
  h.datatype = sizeof(T) == 4 ? NIFTI_FLOAT32 : 4;
  h.bitpix = 8 * sizeof(T);
  h.vox_offset = 352;
  std::memcpy(h.magic, "n+1", 4);
  if (other_order) nifti_swap_header(h);
  const Q_gz_file file(gzopen(path, compressed ? "wb1" : "wbT"));
  gzwrite(file.get(), &h, sizeof h);
  gzwrite(file.get(), "\0\0\0", 4);
  std::vector<T> values(VOXELS);
  std::uint32_t noise = 1;
  for (int volume = 0; volume < volumes; ++volume) {
    for (std::size_t i = 0; i < VOXELS; ++i) {
      noise = noise * 1664525U + 1013904223U;
      const bool outside = i / 500 % 4 == 0;
      const T value = static_cast<T>(outside ? 0 : (noise >> 22));
      values[i] = other_order ? nifti_swapped(value) : value;
    }
    gzwrite(file.get(), values.data(), static_cast<unsigned>(VOXELS * sizeof(T)));
  }
  return static_cast<std::size_t>(volumes) * VOXELS * sizeof(T);
}

Nifti_result<Nifti_image> read_image(const char* path) {
  auto result = nifti_read(path);
  if (const auto* error = std::get_if<Nifti_error>(&result)) {
    std::fprintf(stderr, "%s\n", error->message.c_str());
    std::exit(1);
  }
  return result;
}

/// The file's bytes in one read, into memory that is fresh as the reader's is.
Q_heap_memory<char> read_plainly(const char* path, std::size_t bytes) {
  const Q_fd file(open(path, O_RDONLY | O_CLOEXEC));
  Q_heap_memory<char> memory(static_cast<char*>(std::malloc(bytes)));
  if (read(file.get(), memory.get(), bytes) != static_cast<ssize_t>(bytes)) std::exit(1);
  return memory;
}

/// The compressed file's bytes, volume by volume, into memory that is used again.
Q_heap_memory<char> inflate_plainly(const char* path, std::size_t volume_bytes) {
  const Q_gz_file file(gzopen(path, "rb"));
  gzbuffer(file.get(), 1U << 17);
  Q_heap_memory<char> memory(static_cast<char*>(std::malloc(volume_bytes)));
  while (gzread(file.get(), memory.get(), static_cast<unsigned>(volume_bytes)) > 0) continue;
  return memory;
}

/// The most memory that a process which only reads the image has had, in bytes.
double peak_memory(const char* path) {
  const pid_t child = fork();
  if (child == 0) {
    read_image(path);
    _exit(0);
  }
  struct rusage usage {};
  wait4(child, nullptr, 0, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024;
}

}  // namespace

int main(int argc, char** argv) {
  const int volumes = argc > 1 ? std::atoi(argv[1]) : 200;
  const Test_folder folder;
  const auto kept = static_cast<double>(volumes) * VOXELS * sizeof(float);
  std::printf("%i volumes of 91 x 109 x 91 voxels, %.0f MB as floats\n", volumes, kept / 1e6);

  const struct {
    const char* name;
    const char* path;
    std::size_t (*write)(const char*, int, bool, bool);
    bool other_order;
  } plain[] = {{"float", "f.nii", write_series<float>, false},
               {"float, other order", "F.nii", write_series<float>, true},
               {"int16", "i.nii", write_series<std::int16_t>, false},
               {"int16, other order", "I.nii", write_series<std::int16_t>, true}};
  for (const auto& c : plain) {
    const std::size_t bytes = c.write(c.path, volumes, c.other_order, false);
    const double alone = best_seconds(REPEATS, [&] { return read_plainly(c.path, bytes); });
    const double ours = best_seconds(REPEATS, [&] { return read_image(c.path); });
    std::printf(
        "%-20s %.3f s, read() alone %.3f s: %.2f of its speed (goal for float: 0.6), "
        "%.2f GB/s of floats (goal for int16: 1), peak memory %.3f of the volumes (goal: < 1.1)\n",
        c.name, ours, alone, alone / ours, kept / ours / 1e9, peak_memory(c.path) / kept);
    std::filesystem::remove(c.path);
  }
  const struct {
    const char* name;
    const char* path;
    std::size_t (*write)(const char*, int, bool, bool);
    std::size_t value_bytes;
  } compressed[] = {{"float, compressed", "f.nii.gz", write_series<float>, 4},
                    {"int16, compressed", "i.nii.gz", write_series<std::int16_t>, 2}};
  for (const auto& c : compressed) {
    c.write(c.path, volumes, false, true);
    const double alone =
        best_seconds(3, [&] { return inflate_plainly(c.path, VOXELS * c.value_bytes); });
    const double ours = best_seconds(3, [&] { return read_image(c.path); });
    std::printf(
        "%-20s %.3f s, zlib alone %.3f s: %.2f of its time (goal: < 1.15), peak memory %.3f of the "
        "volumes (goal: < 1.1)\n",
        c.name, ours, alone, ours / alone, peak_memory(c.path) / kept);
    std::filesystem::remove(c.path);
  }
  return 0;
}
