// Images: any bytes are read or refused, whatever kind of file they stand in, and no more memory is
// asked for than what the file really holds can fill. The first byte of an input chooses the kind.

#include <sanitizer/allocator_interface.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "check.h"
#include "nifti/nifti_affine.h"
#include "nifti/nifti_file.h"

namespace {

constexpr std::size_t HEADER = 348;
/// What one byte of compressed data can become at most, and what the reader asks for in advance.
constexpr std::size_t MOST_EXPANSION = 1032;
constexpr std::size_t IN_ADVANCE = std::size_t{2} << 20;

std::size_t largest_allocation = 0;

void note_allocation(const volatile void* /*memory*/, std::size_t size) {
  largest_allocation = std::max(largest_allocation, size);
}

/// A folder in memory, removed at the end.
const std::string& folder() {
  static const std::string path = [] {
    std::string pattern = "/dev/shm/kvo_fuzz_XXXXXX";
    check(mkdtemp(pattern.data()) != nullptr);
    __sanitizer_install_malloc_and_free_hooks(note_allocation, nullptr);
    return pattern;
  }();
  [[maybe_unused]] static const int registered =
      std::atexit([] { std::filesystem::remove_all(folder()); });
  return path;
}

void write(const char* name, std::string_view bytes) {
  std::ofstream(folder() + "/" + name, std::ios::binary) << bytes;
}

void write_compressed(const char* name, std::string_view bytes) {
  const Q_gz_file file(gzopen((folder() + "/" + name).c_str(), "wb1"));
  gzwrite(file.get(), bytes.data(), static_cast<unsigned>(bytes.size()));
}

/// Reads the file, which can hold at most `room` bytes of values.
void read(const char* name, bool all_types, std::size_t room) {
  Nifti_options options;
  options.all_types = all_types;
  largest_allocation = 0;
  const auto result = nifti_read(folder() + "/" + name, options);
  // A byte may become a float.
  check(largest_allocation <= sizeof(float) * std::max(2 * room, IN_ADVANCE));
  if (const auto* error = std::get_if<Nifti_error>(&result)) {
    check(!error->message.empty());
    return;
  }
  const auto& image = std::get<Nifti_image>(result);
  check(image.n_volumes >= 1 && image.voxels_per_volume >= 1);
  check(image.volumes.size() == static_cast<std::size_t>(image.n_volumes));
  check(image.volumes.size() * static_cast<std::size_t>(image.voxels_per_volume) <= room);
  std::size_t positive = 0;  // looks at all values
  for (std::size_t volume = 0; volume < image.volumes.size(); ++volume)
    positive += static_cast<std::size_t>(
        std::ranges::count_if(image.values(volume), [](float value) { return value > 0; }));
  check(positive <= room);
  if (const auto qform = nifti_qform(image.header)) nifti_places_voxels(*qform);
  nifti_places_voxels(nifti_sform(image.header));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const unsigned choice = data[0];
  const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
  const bool all_types = (choice & 4) != 0;
  switch (choice % 4) {
    case 0:
      write("x.nii", bytes);
      read("x.nii", all_types, bytes.size());
      break;
    case 1:
      write("x.nii.gz", bytes);
      read("x.nii.gz", all_types, bytes.size() * MOST_EXPANSION);
      break;
    case 2:
      write_compressed("x.nii.gz", bytes);
      read("x.nii.gz", all_types, bytes.size());
      break;
    default:
      write("x.hdr", bytes.substr(0, HEADER));
      write("x.img", bytes.size() > HEADER ? bytes.substr(HEADER) : "");
      read("x.hdr", all_types, bytes.size());
  }
  return 0;
}
