#pragma once

// The folder of the table as the current one, for what the engine does there.

#include <filesystem>
#include <system_error>

#include "companions/kvo_edit/edit_layer.h"

namespace kvo::edit {

/// The folder of a table is the current one as long as this lives.
class Table_folder {
 public:
  explicit Table_folder(const std::filesystem::path& table)
      : before_(std::filesystem::current_path()) {
    std::filesystem::current_path(std::filesystem::absolute(table).parent_path());
  }
  ~Table_folder() {
    std::error_code ignored;
    std::filesystem::current_path(before_, ignored);
  }
  Table_folder(const Table_folder&) = delete;
  Table_folder& operator=(const Table_folder&) = delete;

 private:
  std::filesystem::path before_;
};

}  // namespace kvo::edit
