#include "nifti/nifti_write.h"

#include <fcntl.h>
#include <libdeflate.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <memory>

#include "nifti/nifti_source.h"
#include "util/q_string.h"
#include "util/whole_file.h"

static_assert(std::endian::native == std::endian::little, "files are written as memory holds them");

namespace {

constexpr std::size_t FIRST_VOXEL = 352;
constexpr std::size_t BLOCK = std::size_t{1} << 20;
/// An image of up to so many bytes is compressed at once, which is several times faster than zlib.
constexpr std::size_t LARGEST_AT_ONCE = std::size_t{64} << 20;
constexpr int COMPRESSION = 6;
constexpr char SINGLE_FILE_MAGIC[4] = {'n', '+', '1', '\0'};

std::span<const char> bytes_of(const Nifti_header& header) {
  return {reinterpret_cast<const char*>(&header), sizeof header};
}

/// A stream of bytes into a file, through zlib also when nothing is compressed.
class Sink {
 public:
  /// No file name or time stamp goes into the gzip header.
  Sink(int file, bool compressed) {
    // zlib closes the descriptor that it is given; the caller's stays open.
    Q_fd duplicate(fcntl(file, F_DUPFD_CLOEXEC, 0));
    if (!duplicate) return;
    errno = ENOMEM;
    stream_.reset(gzdopen(duplicate.get(), compressed ? "wb6" : "wbT"));
    if (stream_ == nullptr) return;
    [[maybe_unused]] const int owned_by_stream = duplicate.release();
    gzbuffer(stream_.get(), NIFTI_STREAM_BUFFER);
  }

  [[nodiscard]] bool write(std::span<const char> bytes) {
    while (stream_ != nullptr && !bytes.empty()) {
      const std::size_t size = std::min(bytes.size(), BLOCK);
      if (gzwrite(stream_.get(), bytes.data(), static_cast<unsigned>(size)) !=
          static_cast<int>(size))
        return false;
      bytes = bytes.subspan(size);
    }
    return stream_ != nullptr;
  }

  /// Writes what is left; to be called once, at the end.
  [[nodiscard]] bool finish() { return stream_ != nullptr && gzclose(stream_.release()) == Z_OK; }

 private:
  Q_gz_file stream_;
};

using Compressor = std::unique_ptr<libdeflate_compressor, Q_call<libdeflate_free_compressor>>;

/// Writes the pieces as one gzip member without file name or time stamp. False, with errno set,
/// after an error.
bool write_at_once(int file, std::span<const std::span<const char>> pieces) {
  std::vector<char> bytes;
  for (const std::span<const char> piece : pieces)
    bytes.insert(bytes.end(), piece.begin(), piece.end());
  const Compressor compressor(libdeflate_alloc_compressor(COMPRESSION));
  errno = ENOMEM;
  if (compressor == nullptr) return false;
  std::vector<char> packed(libdeflate_gzip_compress_bound(compressor.get(), bytes.size()));
  const std::size_t size = libdeflate_gzip_compress(compressor.get(), bytes.data(), bytes.size(),
                                                    packed.data(), packed.size());
  return size > 0 && Q_write_all(file, {packed.data(), size});
}

bool is_compressed(const std::string& path) {
  return path.ends_with(".gz");
}

Nifti_error not_writable(const std::string& path) {
  const int reason = errno;
  return {Nifti_problem::not_writable,
          Q_format("File '%s' not writable (%s)", path.c_str(), std::strerror(reason)).str()};
}

/// Copies what is left of a source. False when writing failed.
bool copy_rest(Nifti_source& source, Sink& sink) {
  std::vector<char> block(BLOCK);
  while (const std::size_t size = source.read(block.data(), block.size()))
    if (!sink.write(std::span(block).first(size))) return false;
  return true;
}

}  // namespace

bool nifti_write_to(int file, bool compressed, const Nifti_header& header,
                    std::span<const std::span<const float>> volumes) {
  Nifti_header h = header;
  h.sizeof_hdr = sizeof h;
  h.datatype = NIFTI_FLOAT32;
  h.bitpix = 8 * sizeof(float);
  h.vox_offset = FIRST_VOXEL;
  // Some software leaves NaN here, which other software then computes with.
  if (!std::isfinite(h.scl_slope) || !std::isfinite(h.scl_inter)) {
    h.scl_slope = 1;
    h.scl_inter = 0;
  }
  std::memcpy(h.magic, SINGLE_FILE_MAGIC, sizeof h.magic);
  constexpr std::array<char, FIRST_VOXEL - sizeof h> no_extension{};

  std::vector<std::span<const char>> pieces{bytes_of(h), no_extension};
  std::size_t size = FIRST_VOXEL;
  for (const std::span<const float> volume : volumes) {
    pieces.emplace_back(reinterpret_cast<const char*>(volume.data()), volume.size_bytes());
    size += volume.size_bytes();
  }
  if (compressed && size <= LARGEST_AT_ONCE) return write_at_once(file, pieces);
  Sink sink(file, compressed);
  for (const std::span<const char> piece : pieces)
    if (!sink.write(piece)) return false;
  return sink.finish();
}

std::optional<Nifti_error> nifti_write(const std::string& path, const Nifti_image& image,
                                       const Nifti_go_on& go_on) {
  std::vector<std::span<const float>> volumes;
  for (std::size_t volume = 0; volume < image.volumes.size(); ++volume)
    volumes.push_back(image.values(volume));
  bool given_up = false;
  const bool written = Q_replace_file(path.c_str(), [&](int file) {
    if (!nifti_write_to(file, is_compressed(path), image.header, volumes)) return false;
    given_up = !go_on();
    return !given_up;
  });
  if (written || given_up) return std::nullopt;
  return not_writable(path);
}

std::optional<Nifti_error> nifti_rewrite_header(const std::string& path,
                                                const std::function<void(Nifti_header&)>& change,
                                                const Nifti_go_on& go_on) {
  const auto result = nifti_read_info(path);
  if (const auto* error = std::get_if<Nifti_error>(&result)) return *error;
  const auto& info = std::get<Nifti_info>(result);
  Nifti_header header = info.header;
  change(header);
  if (info.other_order) nifti_swap_header(header);

  Q_read_fault ignored;
  auto source = Nifti_source::open(info.path, is_compressed(info.path), ignored);
  Nifti_header old;
  if (!source || source->read(reinterpret_cast<char*>(&old), sizeof old) < sizeof old)
    return Nifti_error{Nifti_problem::not_found,
                       Q_format("File '%s' not found", info.path.c_str()).str()};
  bool given_up = false;
  bool damaged = false;
  const bool written = Q_replace_file(info.path.c_str(), [&](int file) {
    Sink sink(file, is_compressed(info.path));
    if (!sink.write(bytes_of(header)) || !copy_rest(*source, sink) || !sink.finish()) return false;
    damaged = !source->sound();
    given_up = !damaged && !go_on();
    return !damaged && !given_up;
  });
  if (damaged)
    return Nifti_error{Nifti_problem::ends_early,
                       Q_format("Unexpected end of NIfTI file '%s'", info.path.c_str()).str()};
  if (written || given_up) return std::nullopt;
  return not_writable(info.path);
}
