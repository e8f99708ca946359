#include "companions/kvo_edit/table_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "engine/studies/study_rules.h"
#include "util/lines.h"
#include "util/q_string.h"
#include "util/read_file.h"
#include "util/text.h"
#include "util/whole_file.h"
#include "workspace/files/text_table.h"

namespace kvo::edit {

namespace {

/// What is on disk; nothing when there is no file.
std::optional<std::string> content_of(const std::string& path) {
  Q_read_fault fault;
  std::optional<std::string> content = Q_table_read(path.c_str(), fault);
  if (!content && fault.open_error != ENOENT) throw unread(path, fault);
  return content;
}

/// The lines of the content that are not blank, each with its surroundings; what follows the last
/// one is left in `content`.
std::vector<Row_source> take_lines(std::string_view& content) {
  std::vector<Row_source> lines;
  std::size_t begin = 0;
  std::size_t position = 0;
  for (bool more = true; more;) {
    const Q_line line = Q_first_line(content.substr(position));
    more = line.complete;
    const std::size_t text_end = position + line.text.size();
    std::size_t end = position + line.consumed;
    if (content.substr(text_end).starts_with("\r\n")) end = text_end + 2;
    if (line.text.find_first_not_of(Q_WHITE_SPACE) != std::string_view::npos) {
      lines.push_back({content.substr(begin, position - begin), line.text,
                       content.substr(text_end, end - text_end)});
      begin = end;
    }
    position = end;
  }
  content.remove_prefix(begin);
  return lines;
}

char separator_of(std::string_view header) {
  char most_frequent = Q_TABLE_SEPARATORS.front();
  for (const char separator : Q_TABLE_SEPARATORS)
    if (std::ranges::count(header, separator) > std::ranges::count(header, most_frequent))
      most_frequent = separator;
  return most_frequent;
}

Table_format format_of(const Row_source& header, const Row_source& last) {
  Table_format format;
  const std::string_view rest = header.text.substr(Q_stripped_end(header.text).size());
  // With a single column, the separator behind it is all that tells.
  format.separator = separator_of(header.text);
  if (rest == std::string_view(&format.separator, 1)) format.after_cells = std::string(rest);
  if (header.end == "\r\n" || header.end == "\r") format.line_end = std::string(header.end);
  format.final_line_end = !last.end.empty();
  return format;
}

std::vector<std::string> cells_of(std::string_view line, std::size_t columns) {
  std::vector<std::string> cells = Q_table_split_line(line);
  cells.resize(columns);
  return cells;
}

/// Whether the line that a row comes from can stand for it: the loader makes the row's cells of it.
/// What follows the last cell, which the loader ignores, stays only in a table that is as wide as
/// it was, or a removed variable would stay there.
class Kept_lines {
 public:
  explicit Kept_lines(const Table& table) {
    if (table.header.source) columns_ = Q_table_split_line(table.header.source->text).size();
  }

  [[nodiscard]] bool has(const Table_row& row, bool is_header) const {
    if (!row.source) return false;
    const std::vector<std::string> cells = Q_table_split_line(row.source->text);
    if (is_header) return cells == row.cells;
    if (cells.size() > row.cells.size() && row.cells.size() != columns_) return false;
    for (std::size_t i = 0; i < row.cells.size(); ++i)
      if ((i < cells.size() ? std::string_view(cells[i]) : "") != row.cells[i]) return false;
    return true;
  }

 private:
  std::size_t columns_ = 0;
};

std::string new_line(const Table_row& row, const Table_format& format) {
  std::string line;
  for (std::size_t i = 0; i < row.cells.size(); ++i) {
    if (i > 0) line += format.separator;
    line += row.cells[i].empty() ? missing_value : row.cells[i];
  }
  return line += format.after_cells;
}

void append_row(std::string& text, const Table_row& row, bool is_kept, const Table_format& format,
                bool with_end) {
  const Row_source none;
  const Row_source& source = row.source ? *row.source : none;
  text += source.before;
  if (is_kept)
    text += source.text;
  else
    text += new_line(row, format);
  if (with_end) text += source.end.empty() ? std::string_view(format.line_end) : source.end;
}

}  // namespace

Document document_of(std::string path, std::optional<std::string> content) {
  Document document;
  document.path = std::move(path);
  document.loaded = std::make_shared<const std::string>(content.value_or(""));
  document.on_disk = std::move(content);
  std::string_view rest = *document.loaded;
  const std::vector<Row_source> lines = take_lines(rest);
  if (lines.empty()) {
    document.table.header.cells = {"study", "n1"};
    return document;
  }
  document.format = format_of(lines.front(), lines.back());
  document.format.after_rows = rest;
  document.table.header = {Q_table_split_line(lines.front().text), lines.front()};
  const std::size_t columns = document.table.header.cells.size();
  document.table.rows.reserve(lines.size() - 1);
  for (auto line = lines.begin() + 1; line != lines.end(); ++line)
    document.table.rows.push_back({cells_of(line->text, columns), *line});
  return document;
}

Document open_document(const std::string& path) {
  return document_of(path, content_of(path));
}

std::string document_text(const Document& document) {
  const Table& table = document.table;
  const Table_format& format = document.format;
  const long rows = row_count(table);
  const bool final_end = format.final_line_end || !format.after_rows.empty();
  std::string text;
  const Kept_lines kept(table);
  for (long row = HEADER; row < rows; ++row) {
    const Table_row& cells = table_row(table, row);
    append_row(text, cells, kept.has(cells, row == HEADER), format, row + 1 < rows || final_end);
  }
  return text += format.after_rows;
}

const char* storage_fault(std::string_view text) {
  if (const char* fault = cell_fault(text)) return fault;
  for (const char character : text) {
    switch (character) {
      case ' ':
        return "holds a blank";
      case '\t':
        return "holds a tab";
      case ',':
        return "holds a comma";
      case '\0':
      case '\xff':
        return "holds a byte that is not text";
      default:
        break;
    }
  }
  return nullptr;
}

std::size_t cells_of_long_line(const Table& table, long row) {
  const Table_row& cells = table_row(table, row);
  if (!cells.source) return 0;
  const std::vector<std::string> in_file = Q_table_split_line(cells.source->text);
  const std::size_t variables = cells.cells.size();
  const bool beyond = in_file.size() > variables &&
                      std::any_of(in_file.begin() + static_cast<std::ptrdiff_t>(variables),
                                  in_file.end(), [](const auto& cell) { return !cell.empty(); });
  return beyond && Kept_lines(table).has(cells, row == HEADER) ? in_file.size() : 0;
}

std::string cell_description(const Table& table, long row, long column) {
  const std::string& name = cell(table, HEADER, column);
  const std::string number = std::to_string(column + 1);
  if (row == HEADER) return std::string("the name of variable ").append(number);
  const std::string row_number = std::to_string(row + 1);
  const long study = column_of(table, "study");
  if (column == study) return std::string("the name of study ").append(row_number);
  const std::string variable = is_missing(name) ? std::string("variable ").append(number)
                                                : Q_format("the variable '%s'", name.c_str()).str();
  if (study < 0 || is_missing(cell(table, row, study))) return variable + " of study " + row_number;
  return variable + " of the study '" + cell(table, row, study) + "'";
}

std::optional<Unsavable> first_unsavable(const Document& document) {
  const Table& table = document.table;
  const Kept_lines kept(table);
  for (long row = HEADER; row < row_count(table); ++row) {
    const Table_row& cells = table_row(table, row);
    if (kept.has(cells, row == HEADER)) continue;
    for (long column = 0; column < column_count(table); ++column) {
      const std::string& text = cell(table, row, column);
      if (const char* fault = storage_fault(text))
        return Unsavable{row, column,
                         "'" + text + "' (" + cell_description(table, row, column) + ") " + fault +
                             ", which the table file cannot hold in a cell."};
    }
    if (new_line(cells, document.format).size() > Q_STRING_MAX)
      return Unsavable{row, 0,
                       Q_format("Line %li of the table would be longer than %zu bytes, which no "
                                "reader of the table takes in.",
                                row + 2, Q_STRING_MAX)
                           .str()};
  }
  return std::nullopt;
}

bool changed_on_disk(const Document& document) {
  try {
    return content_of(document.path) != document.on_disk;
  } catch (const Refusal&) {
    return true;
  }
}

void save_document(Document& document) {
  if (const std::optional<Unsavable> unsavable = first_unsavable(document))
    throw Refusal(unsavable->message);
  std::string text = document_text(document);
  if (!Q_write_whole(document.path.c_str(), text))
    throw Refusal("'" + document.path + "' cannot be written: " + std::strerror(errno) + ".");
  document.on_disk = std::move(text);
  document.saved_at = document.undo_steps.size();
}

}  // namespace kvo::edit
