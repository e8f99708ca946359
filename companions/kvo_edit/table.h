#pragma once

// The study table as the editor holds it: texts in rows and columns, each row with the line of the
// file that it comes from, and the elementary edits, each of which has an inverse.

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "engine/studies/studies_layer.h"

namespace kvo::edit {

using namespace studies;

/// The row number of the names of the variables; studies are counted from 0.
inline constexpr long HEADER = -1;

/// A line of the loaded file, in three parts that follow each other in it.
struct Row_source {
  std::string_view before;  ///< blank lines that the loader skips
  std::string_view text;
  std::string_view end;  ///< the line's end; empty when the file ends without one
};

struct Table_row {
  std::vector<std::string> cells;  ///< as many as the table has columns; a missing one is empty
  std::optional<Row_source> source;
};

struct Table {
  Table_row header;
  std::vector<Table_row> rows;
};

long row_count(const Table& table);
long column_count(const Table& table);
Table_row& table_row(Table& table, long row);
const Table_row& table_row(const Table& table, long row);
/// The text of a cell; row HEADER holds the names of the variables.
const std::string& cell(const Table& table, long row, long column);
/// The first column of that name; -1 when there is none.
long column_of(const Table& table, std::string_view name);

/// A rectangle of cells, all four included.
struct Cell_range {
  long first_row = 0;
  long first_column = 0;
  long last_row = 0;
  long last_column = 0;
  bool operator==(const Cell_range&) const = default;
  [[nodiscard]] bool contains(long row, long column) const {
    return row >= first_row && row <= last_row && column >= first_column && column <= last_column;
  }
};

struct Cell_text {
  long row;
  long column;
  std::string text;
};
struct Table_column {
  std::string name;
  std::vector<std::string> cells;
};

struct Set_cells {
  std::vector<Cell_text> cells;
};
/// Positions are those that the rows have afterwards, ascending.
struct Insert_rows {
  std::vector<std::pair<long, Table_row>> rows;
};
/// Positions are those before, ascending.
struct Remove_rows {
  std::vector<long> rows;
};
struct Insert_columns {
  std::vector<std::pair<long, Table_column>> columns;
};
struct Remove_columns {
  std::vector<long> columns;
};
/// The row at position i comes from position from[i].
struct Order_rows {
  std::vector<long> from;
};
struct Order_columns {
  std::vector<long> from;
};
using Edit = std::variant<Set_cells, Insert_rows, Remove_rows, Insert_columns, Remove_columns,
                          Order_rows, Order_columns>;

/// Makes the edit, whose positions must exist, and returns the one that takes it back.
Edit apply_edit(Table& table, Edit edit);

}  // namespace kvo::edit
