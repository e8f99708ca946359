#include "companions/common/install.h"

#include <filesystem>

#include "companions/common/error.h"

namespace {

std::filesystem::path program_folder() {
  std::error_code error;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) throw Refusal("The folder of the program cannot be found: " + error.message() + ".");
  return program.parent_path();
}

}  // namespace

std::string companion_path(const std::string& program) {
  return program_folder() / program;
}

std::string share_path(const std::string& file) {
  return program_folder().parent_path().parent_path() / "share" / file;
}
