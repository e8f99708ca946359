#pragma once

// A table of texts and its file format: one line a row, cells separated by single tabs, blanks or
// commas, no quoting. Numbers are texts too; callers convert a cell when they need its value.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "util/read_file.h"

/// A cell; a row that was too short in its file leaves cells absent.
using Q_cell = std::optional<std::string>;

/// Slot 0 holds the number of rows and slot 1 the number of columns, as decimal text (absent: 0);
/// slot 2 + row * columns + column holds a cell. Slots that are not there (yet) count as absent.
/// Changing the columns of a table that has rows gives its cells other places.
using Q_table = std::vector<Q_cell>;

long Q_table_nrow(const Q_table& table);
long Q_table_ncol(const Q_table& table);

/// A cell, or the fatal error "Table does not have this row" or "Table does not have this column".
/// The reference is valid until the table is changed.
const Q_cell& TABLE(const Q_table& table, long row, long column);
/// Stores a text in a cell, with the checks of TABLE.
void Q_table_set(Q_table& table, long row, long column, std::string text);

/// Adds a row of absent cells at the end.
void Q_table_increase_nrow(Q_table& table);
/// Removes a row with its cells; the rows behind it move up. Checked as TABLE checks.
void Q_table_remove_row(Q_table& table, long row);

/// Index of the first row whose first cell equals the name byte for byte; -1 when none does.
/// Rows without columns are a fatal error.
long Q_get_table_row_pos(const Q_table& table, std::string_view name);
/// Q_get_table_row_pos, or the fatal error "Row '%s' not found in the table.".
long Q_get_table_row_pos_or_die(const Q_table& table, const char* name);

/// Transposes the table in place.
void Q_table_t(Q_table& table);

/// The most cells of a table that is read from a file.
inline constexpr std::size_t Q_TABLE_MAX_CELLS = 5'000'000;
/// The content of a table's file. None, with the fault set, when it cannot be read or has more
/// cells than that.
std::optional<std::string> Q_table_read(const char* path, Q_read_fault& fault);

/// Reads a file into the table: row 0 becomes the line that names the columns, every further line
/// a row. Blank lines are skipped, cells beyond the last column ignored. When the table has rows
/// already, all lines are appended as rows. A file that Q_table_read does not read is a fatal
/// error.
[[gnu::format(printf, 2, 3)]] void Q_table_load(Q_table& table, const char* format, ...);
/// Q_table_load of a file's content.
void Q_table_load_text(Q_table& table, std::string_view content);
/// The first line of a file's content of which loading drops or tears something, and what, so that
/// saving would lose it: "line 3: there are 4 cells, but the header has 3 columns". Nothing when
/// all of the content is loaded.
std::optional<std::string> Q_table_loss(std::string_view content);

/// The characters each of which ends a cell.
inline constexpr std::string_view Q_TABLE_SEPARATORS = "\t ,";

/// The cells of a line, one after the other, as they stand in the file but for white space at their
/// ends. Two separators in a row have an empty cell between them.
class Q_line_cells {
 public:
  explicit Q_line_cells(std::string_view line) : rest_(line) {}
  /// The next cell; nothing behind the last one.
  std::optional<std::string_view> next();

 private:
  std::string_view rest_;
  bool ended_ = false;
};
/// The cells of one line of a file, trimmed, as loading splits it: white space at the line's end
/// does not count. None when the line is blank.
std::vector<std::string> Q_table_split_line(std::string_view line);

/// Writes the table transposed, whole or not at all: a line for each column, each cell followed by
/// a tab, absent ones as "NA". Transposed after loading, a table is thus written as it was in its
/// file. The fatal error "File '%s' not writable" when the file cannot be opened for writing;
/// false, with the old file as it was and errno set, when the disk does not take the new one.
[[nodiscard]] [[gnu::format(printf, 2, 3)]] bool Q_table_save(const Q_table& table,
                                                              const char* format, ...);
/// What Q_table_save writes.
std::string Q_table_text(const Q_table& table);
