#pragma once

// A fresh folder that is the current folder while a test runs.

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

/// Makes a temporary folder and enters it; goes back and removes it with all that it holds at the
/// end.
class Test_folder {
 public:
  Test_folder() : before_(std::filesystem::current_path()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "kvo_test_XXXXXX").string();
    path_ = mkdtemp(pattern.data());
    std::filesystem::current_path(path_);
  }
  Test_folder(const Test_folder&) = delete;
  Test_folder& operator=(const Test_folder&) = delete;
  ~Test_folder() {
    std::filesystem::current_path(before_);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path before_;
  std::filesystem::path path_;
};

inline void write_text(const std::filesystem::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

inline std::string read_text(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The permissions of a file; none, as of no other file, when it is not there.
inline mode_t mode_of(const std::filesystem::path& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : mode_t{0};
}
