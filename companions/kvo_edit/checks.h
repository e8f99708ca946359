#pragma once

// What is wrong with a cell, in words for the user, by the rules that the engine goes by
// (engine/studies/study_rules.h).

#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "companions/kvo_edit/table.h"

namespace kvo::edit {

enum class Severity {
  note,    ///< an analysis may need more than there is, or cannot use it
  problem  ///< the engine refuses the table for it
};

struct Fault {
  Severity severity;
  std::string text;  ///< whole sentences, plain text
};

/// What the checks know beside the cell itself.
struct Check_index {
  std::unordered_map<std::string, long> study_names;
  std::unordered_map<std::string, long> variable_names;
  long study_column = -1;
  long n1_column = -1, n2_column = -1;
  long threshold_t_column = -1, threshold_p_column = -1;
  std::unordered_set<std::string> files;  ///< peaks files and images of the table's folder
};

/// Lists the table's folder again. A folder that cannot be listed has no files.
void refresh_files(Check_index& index, const std::string& folder);
/// Takes in the names of the table; to be called after every change.
void refresh_names(Check_index& index, const Table& table);

/// What is wrong with a cell, or with the name of a variable (row HEADER).
std::optional<Fault> fault_of(const Check_index& index, const Table& table, long row, long column);
/// Why the name cannot be that of a variable, as a sentence; nothing when it can. `allowed` is how
/// many variables of the table may have the name: 1 when the table holds it already, else 0.
std::optional<std::string> variable_name_fault(const Check_index& index, const std::string& name,
                                               long allowed);

struct Cell_place {
  long row;
  long column;
  bool operator==(const Cell_place&) const = default;
};
/// The places of all faults, row by row from the names on.
std::vector<Cell_place> all_faults(const Check_index& index, const Table& table);

}  // namespace kvo::edit
