#include "engine/base/install.h"

#include <errno.h>

#include <filesystem>

#include "engine/base/refusal.h"
#include "util/files.h"

namespace kvo::base {

namespace {

std::filesystem::path program_folder() {
  const std::string program = Q_started_program(program_invocation_name).str();
  std::error_code error;
  std::filesystem::path folder =
      std::filesystem::canonical(std::filesystem::path(program).parent_path(), error);
  if (error) throw Refusal("The folder of the program cannot be found: " + error.message() + ".");
  return folder;
}

}  // namespace

std::string companion_path(const std::string& program) {
  return program_folder() / program;
}

std::string share_path(const std::string& file) {
  return program_folder().parent_path().parent_path() / "share" / file;
}

}  // namespace kvo::base
