#include "nifti/nifti_file.h"

#include <sys/mman.h>
#include <sys/sysinfo.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <future>
#include <utility>

#include "nifti/nifti_source.h"
#include "nifti/nifti_types.h"
#include "util/files.h"
#include "util/q_string.h"

namespace {

constexpr std::string_view HEADER_ENDING = ".hdr";
constexpr struct {
  const char* ending;
  Nifti_kind kind;
} KINDS[] = {{".nii.gz", Nifti_kind::compressed},
             {".nii", Nifti_kind::single_file},
             {HEADER_ENDING.data(), Nifti_kind::pair}};

/// No real file has its first voxel beyond this byte; up to here a float holds the offset exactly.
constexpr float LARGEST_OFFSET = 0x1p62F;
/// The first allocation for compressed data of unknown length, and the compression ratio that is
/// assumed without evidence.
constexpr std::size_t FIRST_BLOCK = std::size_t{1} << 20;
constexpr std::uint64_t USUAL_COMPRESSION = 8;

using Failure = std::optional<Nifti_error>;

[[gnu::format(printf, 2, 3)]] Nifti_error error(Nifti_problem problem, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(message, format);
  return {problem, message.str()};
}

std::uint64_t memory_of_machine() {
  struct sysinfo info {};
  if (sysinfo(&info) != 0) return UINT64_MAX;
  return (std::uint64_t{info.totalram} + info.totalswap) * info.mem_unit;
}

std::optional<Nifti_kind> kind_of(std::string_view path) {
  for (const auto& row : KINDS)
    if (path.ends_with(row.ending)) return row.kind;
  return std::nullopt;
}

/// An image that is being read.
struct Reading {
  Nifti_info info;
  std::string name;  // of the file in messages
  std::optional<Nifti_source> source;
  const Nifti_type* type = nullptr;
  std::uint64_t memory_left = 0;

  [[nodiscard]] std::size_t stored_bytes() const {
    return static_cast<std::size_t>(info.voxels_per_volume) * type->bytes();
  }
  [[nodiscard]] Nifti_error unexpected_end(std::int64_t volume) const {
    return error(Nifti_problem::ends_early,
                 "Unexpected end of NIfTI file '%s' when reading volume %i", name.c_str(),
                 static_cast<int>(volume));
  }
};

Failure count_voxels(Reading& r) {
  const Nifti_header& h = r.info.header;
  const char* name = r.name.c_str();
  if (h.dim[0] < 1 || h.dim[0] > 7)
    return error(Nifti_problem::wrong_size, "NIfTI file '%s' has a wrong size (%i dimensions)",
                 name, h.dim[0]);
  std::int64_t voxels = 1;
  for (int d = 1; d <= 3; ++d) {
    if (h.dim[d] < 1)
      return error(Nifti_problem::wrong_size,
                   "NIfTI file '%s' has a wrong size (%i along dimension %i)", name, h.dim[d], d);
    voxels *= h.dim[d];
  }
  std::int64_t volumes = 1;
  for (int d = 4; d <= h.dim[0]; ++d) volumes *= std::max<std::int64_t>(h.dim[d], 1);
  if (voxels > INT32_MAX || volumes > INT32_MAX)
    return error(Nifti_problem::wrong_size, "NIfTI file '%s' has a wrong size (too many voxels)",
                 name);
  r.info.voxels_per_volume = static_cast<std::int32_t>(voxels);
  r.info.n_volumes = static_cast<std::int32_t>(volumes);
  return std::nullopt;
}

Failure read_header(Reading& r) {
  Nifti_header& h = r.info.header;
  const char* name = r.name.c_str();
  if (r.source->read(reinterpret_cast<char*>(&h), sizeof h) < sizeof h)
    return error(Nifti_problem::not_nifti, "NIfTI file '%s' has a wrong header size", name);
  r.info.other_order = static_cast<std::uint16_t>(h.dim[0]) > 7;
  if (r.info.other_order) {
    nifti_swap_header(h);
    if (h.sizeof_hdr != sizeof h)
      return error(Nifti_problem::not_nifti,
                   "File '%s' is not a NIfTI file (wrong header size definition)", name);
  }
  if (!nifti_has_magic(h))
    return error(Nifti_problem::not_nifti,
                 "File '%s' is not a NIfTI file (unknown header type definition)", name);
  return count_voxels(r);
}

Failure open_source(Reading& r, const std::string& path) {
  const bool compressed = r.info.kind == Nifti_kind::compressed;
  Q_read_fault fault;
  r.source = Nifti_source::open(path, compressed, fault);
  if (r.source) return std::nullopt;
  if (fault.open_error == 0)
    return error(Nifti_problem::not_regular, "File '%s' %s", path.c_str(), fault.text.c_str());
  return error(Nifti_problem::not_found, "%s '%s' not found",
               compressed ? "Compressed file" : "File", path.c_str());
}

Failure open_image(Reading& r, const std::string& path) {
  const std::optional<std::string> found = nifti_find_file(path);
  if (!found)
    return error(Nifti_problem::not_found,
                 "File '%s' was not found or is not a NIfTI file (unknown extension)",
                 path.c_str());
  r.info.path = r.name = *found;
  r.info.kind = *kind_of(*found);
  if (Failure failure = open_source(r, *found)) return failure;
  return read_header(r);
}

/// Puts the source at the first voxel.
Failure go_to_voxels(Reading& r) {
  if (r.info.kind == Nifti_kind::pair) {
    std::string path = r.info.path;
    path.replace(path.size() - HEADER_ENDING.size(), HEADER_ENDING.size(), ".img");
    if (Failure failure = open_source(r, path)) return failure;
    r.name = r.info.path + "/.img";
    return std::nullopt;
  }
  const float offset = std::trunc(r.info.header.vox_offset);
  // Written so that NaN is refused too.
  const bool possible = offset >= 0 && offset <= LARGEST_OFFSET;
  if (!possible || !r.source->seek(static_cast<std::int64_t>(offset)))
    return error(Nifti_problem::wrong_size, "NIfTI file '%s' has a wrong size", r.name.c_str());
  return std::nullopt;
}

Failure check_type(Reading& r, bool all_types) {
  const Nifti_header& h = r.info.header;
  r.type = nifti_type(h.datatype);
  if (r.type == nullptr || (!r.type->basic && !all_types))
    return error(Nifti_problem::wrong_type,
                 "Header of NIfTI file '%s' defines an unsupported data type", r.name.c_str());
  if (h.bitpix != r.type->bits)
    return error(Nifti_problem::wrong_type, "Header of NIfTI file '%s' defines a wrong data type",
                 r.name.c_str());
  return std::nullopt;
}

/// Checks the sizes that the header promises against the caller's room, the file and the memory.
Failure check_room(Reading& r, const Nifti_options& options) {
  if (r.info.n_volumes > options.max_volumes)
    return error(Nifti_problem::too_many,
                 "NIfTI file '%s' has a wrong size (%i volumes, which is more than %i)",
                 r.name.c_str(), r.info.n_volumes, static_cast<int>(options.max_volumes));
  r.memory_left = options.max_bytes != 0 ? options.max_bytes : memory_of_machine();
  if (r.source->compressed()) return std::nullopt;  // its length is known at its end only

  const std::uint64_t offset =
      r.info.kind == Nifti_kind::pair ? 0 : static_cast<std::uint64_t>(r.info.header.vox_offset);
  const std::uint64_t size = r.source->file_size();
  const std::uint64_t whole = size > offset ? (size - offset) / r.stored_bytes() : 0;
  if (whole < static_cast<std::uint64_t>(r.info.n_volumes))
    return r.unexpected_end(static_cast<std::int64_t>(whole));
  const auto voxels = static_cast<std::uint64_t>(r.info.voxels_per_volume);
  if (r.memory_left / sizeof(float) / voxels < static_cast<std::uint64_t>(r.info.n_volumes))
    return error(Nifti_problem::memory, "Insufficient memory\n");
  return std::nullopt;
}

/// Memory that grows with what is read into it.
class Growing_memory {
 public:
  Growing_memory() = default;
  Growing_memory(Growing_memory&& other) noexcept
      : memory_(std::move(other.memory_)), size_(std::exchange(other.size_, 0)) {}
  Growing_memory& operator=(Growing_memory&& other) noexcept {
    std::swap(memory_, other.memory_);
    std::swap(size_, other.size_);
    return *this;
  }
  [[nodiscard]] char* data() { return memory_.get(); }
  [[nodiscard]] float* floats() { return reinterpret_cast<float*>(memory_.get()); }
  [[nodiscard]] std::size_t size() const { return size_; }
  [[nodiscard]] bool grow(std::size_t size) {
    if (size <= size_) return true;
    void* larger = std::realloc(memory_.get(), size);
    if (larger == nullptr) return false;
    [[maybe_unused]] const char* moved = memory_.release();
    memory_.reset(static_cast<char*>(larger));
    size_ = size;
    return true;
  }
  /// Hands the memory over as floats.
  Nifti_volume release() {
    size_ = 0;
    return Nifti_volume(reinterpret_cast<float*>(memory_.release()));
  }

 private:
  Q_heap_memory<char> memory_;
  std::size_t size_ = 0;
};

/// Reads one volume as it is stored, in one go when the data that it needs are known or likely to
/// be there. For compressed data that claim to be longer, memory grows with what has actually
/// arrived.
Failure read_stored(Reading& r, std::int64_t volume, Growing_memory& memory) {
  const std::size_t wanted = r.stored_bytes();
  std::size_t done = 0;
  while (done < wanted) {
    std::size_t size = wanted;
    if (r.source->compressed()) {
      const std::uint64_t believed =
          std::max<std::uint64_t>(FIRST_BLOCK, USUAL_COMPRESSION * r.source->file_size());
      // As much as has already been read, of this volume or an earlier one, may well come again.
      const std::uint64_t seen = volume > 0 ? wanted : 2 * std::uint64_t{done};
      size = static_cast<std::size_t>(std::min<std::uint64_t>(wanted, std::max(believed, seen)));
    }
    if (size / r.type->bytes() > r.memory_left / sizeof(float) || !memory.grow(size))
      return error(Nifti_problem::memory, "Insufficient memory\n");
    done += r.source->read(memory.data() + done, size - done);
    if (done < size) return r.unexpected_end(volume);
  }
  return std::nullopt;
}

/// Memory of that size with its pages already mapped: page faults would take about as long as the
/// reading itself. Empty when there is not enough.
Growing_memory provided_memory(std::size_t size) {
  Growing_memory memory;
  if (!memory.grow(size)) return memory;
  constexpr std::size_t PAGE = 4096;
  void* first = memory.data();
  std::size_t whole_pages = size;
  // Where the system does not support this, pages are mapped on first write as usual.
  if (std::align(PAGE, PAGE, first, whole_pages) != nullptr)
    madvise(first, whole_pages / PAGE * PAGE, MADV_POPULATE_WRITE);
  return memory;
}

/// Whether work beside the reading is worth its thread and its memory: another large volume is to
/// come, and the file has shown that it holds such volumes.
bool more_to_come(const Reading& r, std::int64_t volume, std::size_t bytes) {
  return bytes >= FIRST_BLOCK && volume > 0 && volume + 1 < r.info.n_volumes &&
         r.memory_left / 2 >= bytes;
}

/// Reads volumes of floats directly into their final memory.
Failure read_floats(Reading& r, const Nifti_scaling& scaling, std::vector<Nifti_volume>& volumes) {
  const auto voxels = static_cast<std::size_t>(r.info.voxels_per_volume);
  const std::size_t bytes = voxels * sizeof(float);
  std::future<Growing_memory> ahead;  // for the next volume
  for (std::int64_t volume = 0; volume < r.info.n_volumes; ++volume) {
    Growing_memory values = ahead.valid() ? ahead.get() : Growing_memory();
    if (more_to_come(r, volume, bytes)) ahead = std::async(provided_memory, bytes);
    if (Failure failure = read_stored(r, volume, values)) return failure;
    r.type->convert(values.data(), r.info.other_order, scaling, values.floats(), voxels);
    r.memory_left -= bytes;
    volumes.push_back(values.release());
  }
  return std::nullopt;
}

/// A volume as it was stored, to be used again, and as floats; no floats when there is no memory.
struct Converted {
  Growing_memory stored;
  Growing_memory values;
};

Converted convert_volume(const Reading& r, const Nifti_scaling& scaling, Growing_memory stored) {
  const auto voxels = static_cast<std::size_t>(r.info.voxels_per_volume);
  Converted result{std::move(stored), {}};
  if (result.values.grow(voxels * sizeof(float)))
    r.type->convert(result.stored.data(), r.info.other_order, scaling, result.values.floats(),
                    voxels);
  return result;
}

/// Reads volumes of other numbers; each is converted while the next one is read.
Failure read_others(Reading& r, const Nifti_scaling& scaling, std::vector<Nifti_volume>& volumes) {
  const std::size_t bytes = static_cast<std::size_t>(r.info.voxels_per_volume) * sizeof(float);
  Growing_memory stored;
  std::future<Converted> conversion;
  const auto finish_conversion = [&] {
    Converted converted = conversion.get();
    stored = std::move(converted.stored);
    if (converted.values.size() == 0) return false;
    volumes.push_back(converted.values.release());
    return true;
  };
  for (std::int64_t volume = 0; volume < r.info.n_volumes; ++volume) {
    Growing_memory next;
    std::swap(next, stored);
    if (Failure failure = read_stored(r, volume, next)) return failure;
    if (conversion.valid() && !finish_conversion()) break;
    r.memory_left -= bytes;
    const auto policy = more_to_come(r, volume, bytes) ? std::launch::async | std::launch::deferred
                                                       : std::launch::deferred;
    conversion = std::async(policy, [&r, &scaling, next = std::move(next)]() mutable {
      return convert_volume(r, scaling, std::move(next));
    });
  }
  if (conversion.valid() && finish_conversion()) return std::nullopt;
  return error(Nifti_problem::memory, "Insufficient memory\n");
}

Failure find_scaling(const Reading& r, Nifti_scaling& scaling) {
  const Nifti_header& h = r.info.header;
  scaling.applies =
      h.scl_slope != 0 && std::isfinite(h.scl_slope) && !(h.scl_slope == 1 && h.scl_inter == 0);
  if (!scaling.applies) return std::nullopt;
  if (!std::isfinite(h.scl_inter))
    return error(Nifti_problem::wrong_type, "Header of NIfTI file '%s' defines a wrong scaling",
                 r.name.c_str());
  scaling.slope = h.scl_slope;
  scaling.intercept = h.scl_inter;
  return std::nullopt;
}

Failure read_image(Reading& r, const Nifti_options& options, std::vector<Nifti_volume>& volumes) {
  Nifti_scaling scaling;
  if (Failure failure = go_to_voxels(r)) return failure;
  if (Failure failure = check_type(r, options.all_types)) return failure;
  if (Failure failure = check_room(r, options)) return failure;
  if (Failure failure = find_scaling(r, scaling)) return failure;
  const auto read_volumes = r.type->code == NIFTI_FLOAT32 ? read_floats : read_others;
  if (Failure failure = read_volumes(r, scaling, volumes)) return failure;
  if (!r.source->sound()) return r.unexpected_end(r.info.n_volumes - 1);

  Nifti_header& h = r.info.header;
  h.datatype = NIFTI_FLOAT32;
  h.bitpix = 8 * sizeof(float);
  if (scaling.applies) {
    h.scl_slope = 1;
    h.scl_inter = 0;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> nifti_find_file(const std::string& path) {
  if (kind_of(path)) return path;
  for (const auto& row : KINDS)
    if (Q_file_exists("%s%s", path.c_str(), row.ending) != 0) return path + row.ending;
  return std::nullopt;
}

Nifti_result<Nifti_info> nifti_read_info(const std::string& path) {
  Reading reading;
  if (Failure failure = open_image(reading, path)) return *failure;
  return reading.info;
}

Nifti_result<Nifti_image> nifti_read(const std::string& path, const Nifti_options& options) {
  Reading reading;
  if (Failure failure = open_image(reading, path)) return *failure;
  Nifti_image image;
  if (Failure failure = read_image(reading, options, image.volumes)) return *failure;
  static_cast<Nifti_info&>(image) = reading.info;
  return image;
}
