#include "companions/kvo_edit/operations.h"

#include <glib.h>

#include <algorithm>
#include <numeric>
#include <optional>
#include <utility>

#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/handles.h"
#include "util/text.h"

namespace kvo::edit {

namespace {

/// Collects the cells that really change.
class Cell_changes {
 public:
  explicit Cell_changes(const Table& table) : table_(table) {}

  void set(long row, long column, std::string text) {
    const std::string& old = cell(table_, row, column);
    if (text == old || (is_missing(text) && is_missing(old))) return;
    cells_.push_back({row, column, std::move(text)});
  }
  /// The same for a cell that an earlier edit of the step will have added.
  void set_new(long row, long column, std::string text) {
    if (!text.empty()) cells_.push_back({row, column, std::move(text)});
  }
  void append_to(std::vector<Edit>& edits) {
    if (!cells_.empty()) edits.emplace_back(Set_cells{std::move(cells_)});
  }

 private:
  const Table& table_;
  std::vector<Cell_text> cells_;
};

void make_cell_change(Document& document, std::string label, Cell_changes& changes,
                      const Cell_range& where) {
  std::vector<Edit> edits;
  changes.append_to(edits);
  make_change(document, std::move(label), std::move(edits), where);
}

std::vector<long> sequence(long first, long last) {
  std::vector<long> positions(static_cast<std::size_t>(last - first + 1));
  std::iota(positions.begin(), positions.end(), first);
  return positions;
}

/// New cells are written as missing, so that no line of the file is left short.
std::vector<std::string> missing_values(long count) {
  return std::vector<std::string>(static_cast<std::size_t>(count), "NA");
}

Edit new_rows(long at, long count, long columns) {
  Insert_rows edit;
  for (long i = 0; i < count; ++i) {
    Table_row row;
    row.cells = missing_values(columns);
    edit.rows.emplace_back(at + i, std::move(row));
  }
  return edit;
}

/// The order in which the positions from first to last have moved by one.
std::optional<std::vector<long>> moved_order(long count, long first, long last, bool forwards) {
  if (forwards ? last + 1 >= count : first <= 0) return std::nullopt;
  std::vector<long> order = sequence(0, count - 1);
  const auto begin = order.begin();
  if (forwards)
    std::rotate(begin + first, begin + last + 1, begin + last + 2);
  else
    std::rotate(begin + first - 1, begin + first, begin + last + 1);
  return order;
}

/// What a value is ordered by.
struct Sort_key {
  enum { number, text, missing } kind = missing;
  double value = 0;
  std::string folded;

  explicit Sort_key(const std::string& cell) {
    if (is_missing(cell)) return;
    if (const std::optional<double> read = number_of(cell)) {
      kind = number;
      value = *read;
      return;
    }
    kind = text;
    const Q_g_memory<char> valid(g_utf8_make_valid(cell.data(), static_cast<gssize>(cell.size())));
    folded = Q_g_memory<char>(g_utf8_casefold(valid.get(), -1)).get();
  }
};

/// Whether the first key comes before the second; missing values are last in both directions.
bool comes_before(const Sort_key& a, const Sort_key& b, bool descending) {
  if (a.kind == Sort_key::missing || b.kind == Sort_key::missing) return a.kind < b.kind;
  const auto less = [](const Sort_key& x, const Sort_key& y) {
    if (x.kind != y.kind) return x.kind < y.kind;
    return x.kind == Sort_key::number ? x.value < y.value : x.folded < y.folded;
  };
  return descending ? less(b, a) : less(a, b);
}

long width_of(const Block& block) {
  std::size_t width = 0;
  for (const auto& row : block) width = std::max(width, row.size());
  return static_cast<long>(width);
}

std::string block_cell(const Block& block, long row, long column) {
  const auto& cells = block[static_cast<std::size_t>(row)];
  const auto position = static_cast<std::size_t>(column);
  return position < cells.size() ? cells[position] : std::string();
}

std::string unused_name(const std::vector<std::string>& names) {
  for (long number = 1;; ++number) {
    std::string name = "variable" + std::to_string(number);
    if (std::ranges::find(names, name) == names.end()) return name;
  }
}

/// The edits that give the table at least so many rows and columns.
std::vector<Edit> grow(const Table& table, long rows, long columns) {
  std::vector<Edit> edits;
  const long old_rows = row_count(table);
  if (rows > old_rows) edits.push_back(new_rows(old_rows, rows - old_rows, column_count(table)));
  Insert_columns added;
  std::vector<std::string> names = table.header.cells;
  const long cells = std::max(rows, old_rows);
  for (long column = column_count(table); column < columns; ++column) {
    names.push_back(unused_name(names));
    added.columns.push_back({column, {names.back(), missing_values(cells)}});
  }
  if (!added.columns.empty()) edits.emplace_back(std::move(added));
  return edits;
}

}  // namespace

void set_text(Document& document, long row, long column, const std::string& text) {
  Cell_changes changes(document.table);
  changes.set(row, column, text);
  make_cell_change(document, row == HEADER ? "rename variable" : "edit", changes,
                   {row, column, row, column});
}

void clear_cells(Document& document, const Cell_range& range) {
  Cell_changes changes(document.table);
  for (long row = range.first_row; row <= range.last_row; ++row)
    for (long column = range.first_column; column <= range.last_column; ++column)
      changes.set(row, column, "");
  make_cell_change(document, "clear", changes, range);
}

void replace_separators(Document& document, const Cell_range& range, bool names) {
  Cell_changes changes(document.table);
  const auto replace = [&](long row) {
    for (long column = range.first_column; column <= range.last_column; ++column) {
      std::string text = cell(document.table, row, column);
      for (char& character : text)
        if (character == ',' || Q_WHITE_SPACE.find(character) != std::string_view::npos)
          character = '_';
      changes.set(row, column, std::move(text));
    }
  };
  if (names) replace(HEADER);
  for (long row = range.first_row; row <= range.last_row; ++row) replace(row);
  make_cell_change(document, "replace separators", changes, range);
}

void add_studies(Document& document, long at, long count) {
  const long columns = column_count(document.table);
  make_change(document, "add study", {new_rows(at, count, columns)},
              {at, 0, at + count - 1, columns - 1});
}

void add_variable(Document& document, long at, const std::string& name) {
  const long rows = row_count(document.table);
  Insert_columns edit;
  edit.columns.push_back({at, {name, missing_values(rows)}});
  make_change(document, "add variable", {std::move(edit)}, {0, at, rows - 1, at});
}

void remove_studies(Document& document, long first, long last) {
  make_change(document, "remove study", {Remove_rows{sequence(first, last)}},
              {first, 0, last, column_count(document.table) - 1});
}

bool remove_variables(Document& document, long first, long last) {
  if (last - first + 1 >= column_count(document.table)) return false;
  make_change(document, "remove variable", {Remove_columns{sequence(first, last)}},
              {0, first, row_count(document.table) - 1, last});
  return true;
}

bool move_studies(Document& document, long first, long last, bool down) {
  auto order = moved_order(row_count(document.table), first, last, down);
  if (!order) return false;
  make_change(document, "move study", {Order_rows{*std::move(order)}},
              {first, 0, last, column_count(document.table) - 1});
  return true;
}

bool move_variables(Document& document, long first, long last, bool right) {
  auto order = moved_order(column_count(document.table), first, last, right);
  if (!order) return false;
  make_change(document, "move variable", {Order_columns{*std::move(order)}},
              {0, first, row_count(document.table) - 1, last});
  return true;
}

void place_variable(Document& document, long from, long to) {
  if (from == to) return;
  std::vector<long> order = sequence(0, column_count(document.table) - 1);
  order.erase(order.begin() + from);
  order.insert(order.begin() + to, from);
  make_change(document, "move variable", {Order_columns{std::move(order)}},
              {0, to, row_count(document.table) - 1, to});
}

void sort_studies(Document& document, long column, bool descending) {
  const Table& table = document.table;
  std::vector<Sort_key> keys;
  keys.reserve(table.rows.size());
  for (long row = 0; row < row_count(table); ++row) keys.emplace_back(cell(table, row, column));
  std::vector<long> order = sequence(0, row_count(table) - 1);
  std::stable_sort(order.begin(), order.end(), [&](long a, long b) {
    return comes_before(keys[static_cast<std::size_t>(a)], keys[static_cast<std::size_t>(b)],
                        descending);
  });
  if (std::ranges::is_sorted(order)) return;
  make_change(document, "sort", {Order_rows{std::move(order)}},
              {0, column, row_count(table) - 1, column});
}

Block copy_cells(const Document& document, const Cell_range& range, bool names) {
  Block block;
  const auto copy = [&](long row) {
    block.emplace_back();
    for (long column = range.first_column; column <= range.last_column; ++column) {
      const std::string& text = cell(document.table, row, column);
      block.back().push_back(text.empty() ? "NA" : text);
    }
  };
  if (names) copy(HEADER);
  for (long row = range.first_row; row <= range.last_row; ++row) copy(row);
  return block;
}

Cell_range paste_block(Document& document, const Cell_range& range, const Block& block,
                       bool names) {
  const Table& table = document.table;
  const long header_rows = names ? 1 : 0;
  long height = static_cast<long>(block.size()) - header_rows;
  long width = width_of(block);
  if (height < 0 || width == 0) return range;
  const bool fills = !names && height == 1 && width == 1;
  if (fills) {
    height = range.last_row - range.first_row + 1;
    width = range.last_column - range.first_column + 1;
  }
  const Cell_range target = {range.first_row, range.first_column, range.first_row + height - 1,
                             range.first_column + width - 1};
  const long old_rows = row_count(table);
  const long old_columns = column_count(table);
  std::vector<Edit> edits = grow(table, target.last_row + 1, target.last_column + 1);

  Cell_changes changes(table);
  const auto place = [&](long row, long column, std::string text) {
    if (row < old_rows && column < old_columns)
      changes.set(row, column, std::move(text));
    else
      changes.set_new(row, column, std::move(text));
  };
  for (long i = 0; i < width; ++i) {
    const long column = target.first_column + i;
    if (names) place(HEADER, column, block_cell(block, 0, i));
    for (long row = 0; row < height; ++row)
      place(target.first_row + row, column,
            fills ? block[0][0] : block_cell(block, row + header_rows, i));
  }
  changes.append_to(edits);
  make_change(document, "paste", std::move(edits), target);
  return target;
}

std::string new_variable_name(const Table& table) {
  return unused_name(table.header.cells);
}

}  // namespace kvo::edit
