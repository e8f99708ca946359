#pragma once

// The bytes of an image's file, compressed or not.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "util/handles.h"
#include "util/read_file.h"

/// The buffer size for compressed streams; zlib's default is 8 KiB.
inline constexpr unsigned NIFTI_STREAM_BUFFER = 1U << 17;

/// A regular file open for reading.
class Nifti_source {
 public:
  /// Opens a file; as gzip when asked to, in which case an uncompressed file is read as well.
  /// Nothing, with the fault set, when that fails.
  static std::optional<Nifti_source> open(const std::string& path, bool compressed,
                                          Q_read_fault& fault);

  /// Reads up to `size` bytes, fewer only at the end of the data or where they are damaged.
  std::size_t read(char* to, std::size_t size);
  /// Seeks to a byte of the uncompressed data; false when that fails.
  bool seek(std::int64_t offset);
  /// Whether the data are undamaged as far as one can tell. Compressed data have a check sum behind
  /// them, which is looked at when all before it has been read. Reads on, so this comes last.
  bool sound();

  /// The number of bytes of the file itself.
  [[nodiscard]] std::uint64_t file_size() const { return file_size_; }
  [[nodiscard]] bool compressed() const { return stream_ != nullptr; }

 private:
  Q_fd file_;
  Q_gz_file stream_;
  std::uint64_t file_size_ = 0;
};
