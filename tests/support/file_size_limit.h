#pragma once

// A disk that is full, for tests.

#include <sys/resource.h>

#include <csignal>

/// Makes the writing of files beyond a number of bytes fail while it lives.
class File_size_limit {
 public:
  explicit File_size_limit(rlim_t bytes) : handler_(signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &limit_);
    const rlimit low{bytes, limit_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
  }
  File_size_limit(const File_size_limit&) = delete;
  File_size_limit& operator=(const File_size_limit&) = delete;
  ~File_size_limit() {
    setrlimit(RLIMIT_FSIZE, &limit_);
    signal(SIGXFSZ, handler_);
  }

 private:
  rlimit limit_{};
  void (*handler_)(int);
};
