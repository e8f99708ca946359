#include "workspace/files/text_table.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <utility>

#include "util/error.h"
#include "util/lines.h"
#include "util/q_string.h"
#include "util/text.h"
#include "util/whole_file.h"

namespace {

constexpr std::size_t ROWS = 0;
constexpr std::size_t COLUMNS = 1;
constexpr std::size_t FIRST_CELL = 2;

long dimension(const Q_table& table, std::size_t slot) {
  long count = 0;
  if (slot < table.size() && table[slot])
    std::from_chars(table[slot]->data(), table[slot]->data() + table[slot]->size(), count);
  return count;
}

void set_dimension(Q_table& table, std::size_t slot, long count) {
  if (table.size() < FIRST_CELL) table.resize(FIRST_CELL);
  table[slot] = std::to_string(count);
}

std::size_t slot_of(long row, long column, long columns) {
  return FIRST_CELL + static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
         static_cast<std::size_t>(column);
}

std::size_t checked_slot(const Q_table& table, long row, long column) {
  const long columns = Q_table_ncol(table);
  if (row < 0 || row >= Q_table_nrow(table)) Q_error("Table does not have this row");
  if (column < 0 || column >= columns) Q_error("Table does not have this column");
  return slot_of(row, column, columns);
}

void load_header(Q_table& table, std::string_view line) {
  Q_table_increase_nrow(table);
  Q_line_cells cells(line);
  while (const auto cell = cells.next()) {
    const long column = Q_table_ncol(table);
    set_dimension(table, COLUMNS, column + 1);
    Q_table_set(table, 0, column, Q_trimmed(*cell));
  }
}

void load_row(Q_table& table, std::string_view line) {
  const long columns = Q_table_ncol(table);
  const std::size_t first = slot_of(Q_table_nrow(table), 0, columns);
  Q_table_increase_nrow(table);
  Q_line_cells cells(line);
  for (long column = 0; column < columns; ++column) {
    const auto cell = cells.next();
    if (!cell) return;
    table[first + static_cast<std::size_t>(column)] = Q_trimmed(*cell);
  }
}

/// Number, from 1, of the line that begins behind a part of a file's content. "\r\n" is one end.
std::size_t number_behind(std::string_view content) {
  std::size_t number = 1;
  for (std::size_t i = 0; i < content.size(); ++i)
    if (content[i] == '\n' || (content[i] == '\r' && content.substr(i + 1, 1) != "\n")) ++number;
  return number;
}

/// What loading a line of the content would lose; empty when nothing.
std::string loss_of(std::string_view content, const Q_line& line, std::size_t columns) {
  if (line.complete && line.consumed == line.text.size())
    return Q_format("it has more than %zu characters", Q_STRING_MAX).str();
  if (content.substr(line.text.size(), 1) == "\xFF") return "it has a byte of value 255";
  const std::vector<std::string> cells = Q_table_split_line(line.text);
  const auto beyond = cells.begin() + static_cast<std::ptrdiff_t>(std::min(columns, cells.size()));
  if (columns == 0 ||
      std::all_of(beyond, cells.end(), [](const auto& cell) { return cell.empty(); }))
    return "";
  return "there are " + Q_counted(cells.size(), "cell", "cells") + ", but the header has " +
         Q_counted(columns, "column", "columns") + " (each blank, tab or comma begins a new cell)";
}

/// The new row's slots may still hold cells of a row that the table had before.
void clear_last_row(Q_table& table) {
  const long columns = Q_table_ncol(table);
  const std::size_t first = slot_of(Q_table_nrow(table) - 1, 0, columns);
  const std::size_t end = first + static_cast<std::size_t>(columns);
  std::fill(table.begin() + static_cast<std::ptrdiff_t>(std::min(first, table.size())),
            table.begin() + static_cast<std::ptrdiff_t>(std::min(end, table.size())), std::nullopt);
  if (table.size() < end) table.resize(end);
}

/// Whether a file's table is small enough. A wide header makes every short line wide.
bool fits(std::string_view content) {
  std::size_t columns = 0;
  std::size_t rows = 0;
  for (bool more = true; more;) {
    const Q_line line = Q_first_line(content);
    content.remove_prefix(line.consumed);
    more = line.complete;
    const std::string_view text = Q_stripped_end(line.text);
    if (text.empty()) continue;
    const auto is_separator = [](char c) {
      return Q_TABLE_SEPARATORS.find(c) != std::string_view::npos;
    };
    if (++rows == 1)
      columns = 1 + static_cast<std::size_t>(std::ranges::count_if(text, is_separator));
  }
  return rows * columns <= Q_TABLE_MAX_CELLS;
}

}  // namespace

std::optional<std::string_view> Q_line_cells::next() {
  if (ended_) return std::nullopt;
  const std::size_t separator = rest_.find_first_of(Q_TABLE_SEPARATORS);
  const std::string_view cell = rest_.substr(0, separator);
  ended_ = separator == std::string_view::npos;
  if (!ended_) rest_.remove_prefix(separator + 1);
  return Q_stripped(cell);
}

long Q_table_nrow(const Q_table& table) {
  return dimension(table, ROWS);
}
long Q_table_ncol(const Q_table& table) {
  return dimension(table, COLUMNS);
}

const Q_cell& TABLE(const Q_table& table, long row, long column) {
  static const Q_cell absent;
  const std::size_t slot = checked_slot(table, row, column);
  return slot < table.size() ? table[slot] : absent;
}

void Q_table_set(Q_table& table, long row, long column, std::string text) {
  const std::size_t slot = checked_slot(table, row, column);
  if (slot >= table.size()) table.resize(slot + 1);
  table[slot] = std::move(text);
}

void Q_table_increase_nrow(Q_table& table) {
  set_dimension(table, ROWS, Q_table_nrow(table) + 1);
  clear_last_row(table);
}

void Q_table_remove_row(Q_table& table, long row) {
  const long columns = Q_table_ncol(table);
  const std::size_t first = columns < 1 ? FIRST_CELL : checked_slot(table, row, 0);
  const std::size_t end = first + static_cast<std::size_t>(columns);
  if (table.size() < end) table.resize(end);
  table.erase(table.begin() + static_cast<std::ptrdiff_t>(first),
              table.begin() + static_cast<std::ptrdiff_t>(end));
  set_dimension(table, ROWS, Q_table_nrow(table) - 1);
}

long Q_get_table_row_pos(const Q_table& table, std::string_view name) {
  const long rows = Q_table_nrow(table);
  for (long row = 0; row < rows; ++row)
    if (TABLE(table, row, 0) == name) return row;
  return -1;
}

long Q_get_table_row_pos_or_die(const Q_table& table, const char* name) {
  const long row = Q_get_table_row_pos(table, name);
  if (row < 0) Q_error("Row '%s' not found in the table.", name);
  return row;
}

void Q_table_t(Q_table& table) {
  const long rows = Q_table_nrow(table);
  const long columns = Q_table_ncol(table);
  if (table.size() < FIRST_CELL) table.resize(FIRST_CELL);
  Q_table transposed(slot_of(rows, 0, columns));
  transposed[ROWS] = std::move(table[COLUMNS]);
  transposed[COLUMNS] = std::move(table[ROWS]);
  table.resize(transposed.size());
  for (long row = 0; row < rows; ++row)
    for (long column = 0; column < columns; ++column)
      transposed[slot_of(column, row, rows)] = std::move(table[slot_of(row, column, columns)]);
  table = std::move(transposed);
}

std::optional<std::string> Q_table_read(const char* path, Q_read_fault& fault) {
  std::optional<std::string> content = Q_read_text(path, fault);
  if (content && !fits(*content)) {
    fault = {0, "has more than " + std::to_string(Q_TABLE_MAX_CELLS) + " cells"};
    return std::nullopt;
  }
  return content;
}

void Q_table_load(Q_table& table, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  Q_read_fault fault;
  const std::optional<std::string> content = Q_table_read(path.c_str(), fault);
  if (!content) Q_die_of_read_fault(path.c_str(), fault);
  try {
    Q_table_load_text(table, *content);
  } catch (const std::bad_alloc&) {
    Q_error("Insufficient memory\n");
  }
}

void Q_table_load_text(Q_table& table, std::string_view content) {
  bool more = true;
  while (more) {
    const Q_line line = Q_first_line(content);
    content.remove_prefix(line.consumed);
    more = line.complete;
    const std::string_view text = Q_stripped_end(line.text);
    if (text.empty()) continue;
    if (Q_table_nrow(table) < 1)
      load_header(table, text);
    else
      load_row(table, text);
  }
}

std::optional<std::string> Q_table_loss(std::string_view content) {
  std::size_t columns = 0;  // none before the header has been met
  std::size_t start = 0;
  for (bool more = true; more;) {
    const std::string_view rest = content.substr(start);
    const Q_line line = Q_first_line(rest);
    if (const std::string loss = loss_of(rest, line, columns); !loss.empty())
      return Q_format("line %zu: %s", number_behind(content.substr(0, start)), loss.c_str()).str();
    if (columns == 0) columns = Q_table_split_line(line.text).size();
    start += line.consumed;
    more = line.complete;
  }
  return std::nullopt;
}

std::vector<std::string> Q_table_split_line(std::string_view line) {
  const std::string_view text = Q_stripped_end(line);
  std::vector<std::string> cells;
  if (text.empty()) return cells;
  Q_line_cells left(text);
  while (const auto cell = left.next()) cells.push_back(Q_trimmed(*cell));
  return cells;
}

std::string Q_table_text(const Q_table& table) {
  std::string text;
  const long rows = Q_table_nrow(table);
  const long columns = Q_table_ncol(table);
  for (long column = 0; column < columns; ++column) {
    for (long row = 0; row < rows; ++row) {
      const Q_cell& cell = TABLE(table, row, column);
      text += cell ? *cell : "NA";
      text += '\t';
    }
    text += '\n';
  }
  return text;
}

bool Q_table_save(const Q_table& table, const char* format, ...) {
  Q_FORMAT_ARGUMENTS(path, format);
  return Q_write_whole_or_die(path.c_str(), Q_table_text(table));
}
