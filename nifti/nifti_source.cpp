#include "nifti/nifti_source.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

namespace {

/// The most that one call of zlib or of the system reads.
constexpr std::size_t LONGEST_READ = std::size_t{1} << 30;

}  // namespace

std::optional<Nifti_source> Nifti_source::open(const std::string& path, bool compressed,
                                               Q_read_fault& fault) {
  Nifti_source source;
  source.file_ = Q_open_regular(path.c_str(), fault);
  if (!source.file_) return std::nullopt;
  struct stat status {};
  fstat(source.file_.get(), &status);
  source.file_size_ = static_cast<std::uint64_t>(status.st_size);
  if (compressed) {
    source.stream_.reset(gzdopen(source.file_.get(), "rb"));
    if (source.stream_ == nullptr) {
      fault = {ENOMEM, std::string("cannot be opened: ") + std::strerror(ENOMEM)};
      return std::nullopt;
    }
    [[maybe_unused]] const int owned_by_stream = source.file_.release();
    gzbuffer(source.stream_.get(), NIFTI_STREAM_BUFFER);
  }
  return source;
}

std::size_t Nifti_source::read(char* to, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    std::size_t wanted = std::min(size - done, LONGEST_READ);
    // The last byte is read by itself: only then does zlib look at what comes behind it, and
    // notices data that end without their check sum.
    if (stream_ != nullptr && wanted > 1) --wanted;
    const ssize_t got = stream_ != nullptr
                            ? gzread(stream_.get(), to + done, static_cast<unsigned>(wanted))
                            : Q_read_some(file_.get(), to + done, wanted);
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  return done;
}

bool Nifti_source::seek(std::int64_t offset) {
  if (offset < 0) return false;
  if (stream_ != nullptr) return gzseek(stream_.get(), offset, SEEK_SET) == offset;
  return lseek(file_.get(), offset, SEEK_SET) == offset;
}

bool Nifti_source::sound() {
  if (stream_ == nullptr) return true;
  char beyond = 0;
  const bool readable = gzread(stream_.get(), &beyond, 1) >= 0;
  // Data that end too early do not make a read fail; zlib only remembers the error.
  int error = Z_OK;
  gzerror(stream_.get(), &error);
  return readable && error == Z_OK;
}
