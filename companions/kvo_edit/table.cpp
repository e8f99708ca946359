#include "companions/kvo_edit/table.h"

#include <algorithm>

namespace kvo::edit {

namespace {

std::size_t at(long position) {
  return static_cast<std::size_t>(position);
}

std::vector<long> positions_of(const auto& entries) {
  std::vector<long> positions;
  positions.reserve(entries.size());
  for (const auto& entry : entries) positions.push_back(entry.first);
  return positions;
}

/// Merges the entries, whose positions are those in the result, into the list in one pass.
template <typename T>
void insert_all(std::vector<T>& list, std::vector<std::pair<long, T>> entries) {
  std::vector<T> merged;
  merged.reserve(list.size() + entries.size());
  auto old = list.begin();
  for (auto& [position, entry] : entries) {
    const std::ptrdiff_t kept = position - static_cast<long>(merged.size());
    std::move(old, old + kept, std::back_inserter(merged));
    old += kept;
    merged.push_back(std::move(entry));
  }
  std::move(old, list.end(), std::back_inserter(merged));
  list = std::move(merged);
}

/// Removes the entries at the ascending positions in one pass and returns them with their places.
template <typename T>
std::vector<std::pair<long, T>> remove_all(std::vector<T>& list,
                                           const std::vector<long>& positions) {
  std::vector<std::pair<long, T>> removed;
  removed.reserve(positions.size());
  std::size_t kept = 0;
  auto next = positions.begin();
  for (std::size_t i = 0; i < list.size(); ++i) {
    if (next != positions.end() && at(*next) == i) {
      removed.emplace_back(*next++, std::move(list[i]));
    } else {
      if (kept != i) list[kept] = std::move(list[i]);
      ++kept;
    }
  }
  list.resize(kept);
  return removed;
}

template <typename T>
void reorder(std::vector<T>& list, const std::vector<long>& from) {
  std::vector<T> ordered;
  ordered.reserve(list.size());
  for (const long position : from) ordered.push_back(std::move(list[at(position)]));
  list = std::move(ordered);
}

std::vector<long> inverse_order(const std::vector<long>& from) {
  std::vector<long> inverse(from.size());
  for (std::size_t i = 0; i < from.size(); ++i) inverse[at(from[i])] = static_cast<long>(i);
  return inverse;
}

Edit apply(Table& table, Set_cells edit) {
  for (Cell_text& change : edit.cells)
    std::swap(table_row(table, change.row).cells[at(change.column)], change.text);
  // Where a cell is set twice, the inverse has to go back through the middle text.
  std::reverse(edit.cells.begin(), edit.cells.end());
  return edit;
}

Edit apply(Table& table, Insert_rows edit) {
  Remove_rows inverse{positions_of(edit.rows)};
  insert_all(table.rows, std::move(edit.rows));
  return inverse;
}

Edit apply(Table& table, const Remove_rows& edit) {
  return Insert_rows{remove_all(table.rows, edit.rows)};
}

Edit apply(Table& table, Insert_columns edit) {
  Remove_columns inverse{positions_of(edit.columns)};
  std::vector<std::pair<long, std::string>> cells(edit.columns.size());
  const auto insert_into = [&](Table_row& row, auto text_of) {
    for (std::size_t i = 0; i < cells.size(); ++i)
      cells[i] = {edit.columns[i].first, std::move(text_of(edit.columns[i].second))};
    insert_all(row.cells, cells);
  };
  insert_into(table.header, [](Table_column& column) -> std::string& { return column.name; });
  for (std::size_t row = 0; row < table.rows.size(); ++row)
    insert_into(table.rows[row],
                [&](Table_column& column) -> std::string& { return column.cells[row]; });
  return inverse;
}

Edit apply(Table& table, const Remove_columns& edit) {
  Insert_columns inverse;
  for (auto& [position, name] : remove_all(table.header.cells, edit.columns))
    inverse.columns.push_back({position, {std::move(name), {}}});
  for (auto& entry : inverse.columns) entry.second.cells.reserve(table.rows.size());
  for (Table_row& row : table.rows) {
    auto removed = remove_all(row.cells, edit.columns);
    for (std::size_t i = 0; i < removed.size(); ++i)
      inverse.columns[i].second.cells.push_back(std::move(removed[i].second));
  }
  return inverse;
}

Edit apply(Table& table, const Order_rows& edit) {
  reorder(table.rows, edit.from);
  return Order_rows{inverse_order(edit.from)};
}

Edit apply(Table& table, const Order_columns& edit) {
  reorder(table.header.cells, edit.from);
  for (Table_row& row : table.rows) reorder(row.cells, edit.from);
  return Order_columns{inverse_order(edit.from)};
}

}  // namespace

long row_count(const Table& table) {
  return static_cast<long>(table.rows.size());
}

long column_count(const Table& table) {
  return static_cast<long>(table.header.cells.size());
}

Table_row& table_row(Table& table, long row) {
  return row == HEADER ? table.header : table.rows[at(row)];
}

const Table_row& table_row(const Table& table, long row) {
  return row == HEADER ? table.header : table.rows[at(row)];
}

const std::string& cell(const Table& table, long row, long column) {
  return table_row(table, row).cells[at(column)];
}

long column_of(const Table& table, std::string_view name) {
  const auto& names = table.header.cells;
  const auto found = std::find(names.begin(), names.end(), name);
  return found == names.end() ? -1 : found - names.begin();
}

Edit apply_edit(Table& table, Edit edit) {
  return std::visit([&](auto& kind) { return apply(table, std::move(kind)); }, edit);
}

}  // namespace kvo::edit
