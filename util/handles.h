#pragma once

// Owners of the handles that C libraries give out; each closes its handle when it goes.

#include <dirent.h>
#include <glib-object.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

/// Makes a deleter of a C function.
template <auto function>
struct Q_call {
  template <typename T>
  void operator()(T* handle) const {
    function(handle);
  }
};

template <typename T>
using Q_heap_memory = std::unique_ptr<T, Q_call<std::free>>;
template <typename T>
using Q_g_memory = std::unique_ptr<T, Q_call<g_free>>;
template <typename T>
using Q_object = std::unique_ptr<T, Q_call<g_object_unref>>;
using Q_g_error = std::unique_ptr<GError, Q_call<g_error_free>>;
using Q_file = std::unique_ptr<std::FILE, Q_call<std::fclose>>;
using Q_gz_file = std::unique_ptr<gzFile_s, Q_call<gzclose>>;
using Q_pipe = std::unique_ptr<std::FILE, Q_call<pclose>>;
using Q_dir = std::unique_ptr<DIR, Q_call<closedir>>;

/// Owner of a file descriptor; -1 is none.
class Q_fd {
 public:
  Q_fd() = default;
  explicit Q_fd(int fd) : fd_(fd) {}
  Q_fd(Q_fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Q_fd& operator=(Q_fd&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  Q_fd(const Q_fd&) = delete;
  Q_fd& operator=(const Q_fd&) = delete;
  ~Q_fd() { reset(); }

  [[nodiscard]] int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Gives the descriptor to someone else to close.
  [[nodiscard]] int release() { return std::exchange(fd_, -1); }
  void reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

 private:
  int fd_ = -1;
};

/// Owner of a source of the default main context; removes it unless it has removed itself.
class Q_source {
 public:
  Q_source() = default;
  explicit Q_source(guint id) : id_(id) {}
  Q_source(Q_source&& other) noexcept : id_(std::exchange(other.id_, 0)) {}
  Q_source& operator=(Q_source&& other) noexcept {
    std::swap(id_, other.id_);
    return *this;
  }
  Q_source(const Q_source&) = delete;
  Q_source& operator=(const Q_source&) = delete;
  ~Q_source() {
    if (id_ != 0) g_source_remove(id_);
  }

  /// To be called by the source's own callback before it returns G_SOURCE_REMOVE.
  void forget() { id_ = 0; }

 private:
  guint id_ = 0;
};
