#include "util/files.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "util/error.h"
#include "util/read_file.h"
#include "util/text.h"
#include "util/whole_file.h"

Q_string Qs_ProgramDir;
Q_string kvo_s_dir;

namespace {

struct Split_path {
  std::string folder;  // with its final separator; "." when the path has none
  std::string name;
};

Split_path split_path(const std::string& path) {
  const std::size_t separator = path.find_last_of("/\\");
  if (separator == std::string::npos) return {".", path};
  return {path.substr(0, separator + 1), path.substr(separator + 1)};
}

int file_exists(const Q_string& path) {
  const auto [folder, name] = split_path(path.str());
  const Q_dir listing(opendir(folder.c_str()));
  if (listing == nullptr) return 0;
  while (const dirent* entry = readdir(listing.get()))
    if (name == entry->d_name) return 1;
  return 0;
}

Q_string current_folder() {
  Q_string folder;
  Q_getdir(folder);
  return folder;
}

/// Whether a program's path leads through the program folder of an installation.
bool stands_in_installation(const std::string& program) {
  const std::string look = split_path(program).folder + "../../etc/kvo.gtkrc";
  return access(look.c_str(), F_OK) == 0;
}

bool same_file(int file, const char* path) {
  struct stat a {};
  struct stat b {};
  return fstat(file, &a) == 0 && stat(path, &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

Q_file stream_of(Q_fd fd) {
  Q_file file(fd ? fdopen(fd.get(), "r") : nullptr);
  if (file != nullptr) {
    [[maybe_unused]] const int owned_by_stream = fd.release();
  }
  return file;
}

}  // namespace

int Q_file_exists(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  return file_exists(path);
}

int Q_program_exists(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  return file_exists(path);
}

Q_file Q_openr(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  Q_read_fault ignored;
  return stream_of(Q_open_regular(path.c_str(), ignored));
}

Q_file Q_openw(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  return Q_file(std::fopen(path.c_str(), "w"));
}

Q_file Q_openr_or_die(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  Q_file file = Q_openr("%s", path.c_str());
  if (file == nullptr) Q_error("File '%s' not found", path.c_str());
  return file;
}

Q_file Q_openw_or_die(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  Q_file file = Q_openw("%s", path.c_str());
  if (file == nullptr) Q_error("File '%s' not writable", path.c_str());
  return file;
}

Q_gz_file Q_openr_gz_or_die(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  Q_read_fault ignored;
  Q_fd fd = Q_open_regular(path.c_str(), ignored);
  Q_gz_file file(fd ? gzdopen(fd.get(), "rb") : nullptr);
  if (file == nullptr) Q_error("Compressed file '%s' not found", path.c_str());
  [[maybe_unused]] const int owned_by_stream = fd.release();
  return file;
}

void Q_rm(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  std::remove(path.c_str());
}

void Q_mkdir(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  mkdir(path.c_str(), 0755);
}

void Q_chdir(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  [[maybe_unused]] const int ignored = chdir(path.c_str());
}

void Q_chdir_or_die(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  if (chdir(path.c_str()) != 0) Q_error("Folder '%s' not found", path.c_str());
}

void Q_chmod_x(const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  chmod(path.c_str(), 0755);
}

void Q_cp(const char* source, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(target, format);
  Q_read_fault fault;
  const Q_fd in = Q_open_regular(source, fault);
  if (!in && fault.open_error != 0) Q_error("Copy: source file '%s' not found", source);
  if (!in) Q_error("Copy: source file '%s' %s", source, fault.text.c_str());
  if (same_file(in.get(), target.c_str())) return;
  bool readable = true;
  const bool written = Q_replace_file(target.c_str(), [&](int out) {
    std::vector<char> block(262144);
    for (;;) {
      const ssize_t length = Q_read_some(in.get(), block.data(), block.size());
      readable = length >= 0;
      if (length <= 0) return readable;
      if (!Q_write_all(out, {block.data(), static_cast<std::size_t>(length)})) return false;
    }
  });
  if (!readable) Q_error("Copy: source file '%s' not readable", source);
  if (!written) Q_error("Copy: target file '%s' not writable", target.c_str());
}

int Q_ls(Q_string_list& list, const char* folder, const char* prefix, const char* suffix) {
  const Q_dir listing(opendir(folder));
  if (listing == nullptr) return 0;
  list.clear();
  while (const dirent* entry = readdir(listing.get())) {
    const std::string_view name = entry->d_name;
    if (name.starts_with(prefix) && name.ends_with(suffix)) list.emplace_back(name);
  }
  const int count = static_cast<int>(list.size());
  Q_sort_string_asc(count, list);
  return count;
}

void Q_getdir(Q_string& folder) {
  const Q_heap_memory<char> path(getcwd(nullptr, 0));
  folder = Q_string(path != nullptr ? path.get() : "");
}

void Q_getprogdir(Q_string& root, const char* program_path) {
  const Q_string start = current_folder();
  Q_chdir_or_die("%s", split_path(program_path).folder.c_str());
  Q_getdir(Qs_ProgramDir);
  Q_chdir_or_die("%s", start.c_str());
  Q_chdir_or_die("%s/../..", Qs_ProgramDir.c_str());
  Q_getdir(root);
  Q_chdir_or_die("%s", start.c_str());
}

Q_string Q_started_program(const char* first_word) {
  struct stat status {};
  const bool link = lstat(first_word, &status) == 0 && S_ISLNK(status.st_mode);
  const bool has_folder = std::strchr(first_word, '/') != nullptr;
  if (has_folder && (!link || stands_in_installation(first_word))) return first_word;
  const Q_heap_memory<char> program(realpath("/proc/self/exe", nullptr));
  return program != nullptr ? program.get() : first_word;
}
