// Prints what the reader makes of images, for tests in other languages: of each a line with the
// kind, the numbers of volumes and voxels and some of the header, then all values as they are in
// memory.
//
// Usage: print_image [all-types] PATH...

#include <cstdio>
#include <string_view>

#include "nifti/nifti_file.h"

int main(int argc, char** argv) {
  Nifti_options options;
  for (int i = 1; i < argc; ++i) {
    if (std::string_view(argv[i]) == "all-types") {
      options.all_types = true;
      continue;
    }
    const auto result = nifti_read(argv[i], options);
    if (const auto* error = std::get_if<Nifti_error>(&result)) {
      std::fprintf(stderr, "%s\n", error->message.c_str());
      return 1;
    }
    const auto& image = std::get<Nifti_image>(result);
    const Nifti_header& h = image.header;
    std::printf("%i %i %i %i %i", static_cast<int>(image.kind), image.n_volumes,
                image.voxels_per_volume, h.intent_code, h.sform_code);
    for (const std::int16_t size : h.dim) std::printf(" %i", size);
    for (const float size : h.pixdim) std::printf(" %.9g", size);
    std::printf("\n");
    for (std::size_t volume = 0; volume < image.volumes.size(); ++volume) {
      const auto values = image.values(volume);
      std::fwrite(values.data(), sizeof(float), values.size(), stdout);
    }
  }
  return 0;
}
