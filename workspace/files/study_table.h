#pragma once

// The study table of the working folder and the variables that dialogs offer. The table is held
// transposed: a row for each variable with its name in column 0, a column for each study.

#include "util/text.h"
#include "workspace/files/text_table.h"

/// The variable that a jackknife adds to the table for as long as it runs.
inline constexpr const char* KVO_JACKKNIFE_VARIABLE = "TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS";

/// The study table as it was when it was last loaded (kvotable_load).
extern Q_table KVO_TableT;
/// A cell of the study table, with the checks of text tables.
const Q_cell& TABLE(long row, long column);

/// The study table that a file's content stands for: an empty cell is "NA", and so is a missing
/// one. Without a file the table has the variables "study" and "n1" and no studies.
Q_table kvotable_read(std::optional<std::string_view> content);

/// Why kvotable_read would end the program, to follow the file's name; empty when it would not.
std::string kvotable_fault(const char* path);

/// Removes the variables that the name of the jackknife's variable gives away as left by one that
/// did not come to its end. True when there was one.
bool kvotable_remove_leftover(Q_table& table);

/// Makes the list "(none)" and the names of all variables but "study", "n1" and "n2", in table
/// order. Returns its length.
int kvotable_get_variables(Q_string_list& list);
/// The same for the variables, whatever their names, whose values are all "0", "1" or "NA". In a
/// table without studies that is every variable.
int kvotable_get_variables_indicator(Q_string_list& list);
