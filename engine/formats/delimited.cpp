#include "engine/formats/delimited.h"

#include <algorithm>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "util/text.h"
#include "workspace/files/text_table.h"

namespace kvo::formats {

namespace {

char separator_of(std::string_view text) {
  const std::vector<TextLine> lines = filled_lines(text.substr(0, text.find('\n', 4096)));
  for (const TextLine& line : lines) {
    if (line.text.starts_with('#')) continue;
    const auto count = [&](char c) { return std::count(line.text.begin(), line.text.end(), c); };
    return count('\t') > 0 ? '\t' : count(';') > count(',') ? ';' : ',';
  }
  return ',';
}

/// Takes a text apart, beginning to end.
struct DelimitedReader {
  const std::string& path;
  std::string_view rest;
  char separator;
  std::size_t line = 1, cells = 0;

  /// The cell that begins here; afterwards the rest begins with what ended it.
  std::string next_cell() {
    std::string cell;
    if (rest.starts_with('"')) cell = quoted();
    const std::size_t end =
        std::min(rest.find_first_of(std::string{separator, '\n', '\r'}), rest.size());
    cell += Q_stripped(rest.substr(0, end));
    rest.remove_prefix(end);
    // The apostrophe that csv_line() puts before a text that a spreadsheet would take for a
    // formula.
    if (cell.starts_with('\'') && cell.find_first_of("=+-@") == 1) cell.erase(0, 1);
    if (++cells > Q_TABLE_MAX_CELLS)
      throw Refusal(at_line(path, line) + "there are more than " +
                    std::to_string(Q_TABLE_MAX_CELLS) + " cells.");
    return cell;
  }

  std::string quoted() {
    const std::size_t begun = line;
    std::string cell;
    rest.remove_prefix(1);
    while (true) {
      const std::size_t end = rest.find('"');
      if (end == std::string_view::npos)
        throw Refusal(at_line(path, begun) + "a quote is not closed.");
      const std::string_view part = rest.substr(0, end);
      line += std::size_t(std::count(part.begin(), part.end(), '\n'));
      cell += part;
      rest.remove_prefix(end + 1);
      if (!rest.starts_with('"')) return cell;
      cell += '"';
      rest.remove_prefix(1);
    }
  }

  DelimitedRow next_row() {
    DelimitedRow row{{}, line};
    row.cells.push_back(next_cell());
    while (rest.starts_with(separator)) {
      rest.remove_prefix(1);
      row.cells.push_back(next_cell());
    }
    if (!rest.empty()) rest.remove_prefix(rest.starts_with("\r\n") ? 2 : 1);
    ++line;
    return row;
  }
};

bool counts(const DelimitedRow& row) {
  return !row.cells[0].starts_with('#') &&
         std::any_of(row.cells.begin(), row.cells.end(),
                     [](const auto& cell) { return !cell.empty(); });
}

}  // namespace

Delimited delimited_of(const std::string& path, std::string_view text) {
  Delimited table{separator_of(text), {}};
  DelimitedReader reader{path, text, table.separator};
  while (!reader.rest.empty())
    if (DelimitedRow row = reader.next_row(); counts(row)) table.rows.push_back(std::move(row));
  return table;
}

}  // namespace kvo::formats
