#include "companions/kvo_edit/block.h"

#include <algorithm>

#include "engine/base/csv.h"
#include "util/text.h"

namespace kvo::edit {

namespace {

constexpr char QUOTE = '"';
constexpr std::string_view CELL_ENDS = "\t\n\r";

/// Whether a cell of these contents reads back as itself only when it stands in quotes.
bool needs_quotes(std::string_view content) {
  if (content.find_first_of(CELL_ENDS) != std::string_view::npos) return true;
  return content.size() > 1 && content.front() == QUOTE && content.back() == QUOTE &&
         content.substr(1, content.size() - 2).find(QUOTE) != std::string_view::npos;
}

/// Takes a cell in quotes from the text; false, with nothing taken, when there is none at its
/// beginning, or its quotes belong to it.
bool take_quoted(std::string_view& text, std::string& cell) {
  if (!text.starts_with(QUOTE)) return false;
  std::string content;
  bool has_quotes = false;
  std::size_t position = 1;
  for (;; ++position) {
    if (position >= text.size()) return false;
    if (text[position] == QUOTE) {
      if (!text.substr(position + 1).starts_with(QUOTE)) break;
      has_quotes = true;
      ++position;
    }
    content += text[position];
  }
  const std::string_view rest = text.substr(position + 1);
  if (!rest.empty() && CELL_ENDS.find(rest.front()) == std::string_view::npos) return false;
  if (!has_quotes && !needs_quotes(content)) return false;
  cell = std::move(content);
  text = rest;
  return true;
}

std::string take_cell(std::string_view& text) {
  std::string cell;
  if (take_quoted(text, cell)) return cell;
  const std::size_t length = std::min(text.find_first_of(CELL_ENDS), text.size());
  cell = Q_stripped(text.substr(0, length));
  text.remove_prefix(length);
  return cell;
}

}  // namespace

Block parse_block(std::string_view text) {
  Block block;
  while (!text.empty()) {
    block.emplace_back();
    for (;;) {
      block.back().push_back(take_cell(text));
      if (!text.starts_with('\t')) break;
      text.remove_prefix(1);
    }
    text.remove_prefix(std::min<std::size_t>(text.starts_with("\r\n") ? 2 : 1, text.size()));
  }
  return block;
}

std::string format_block(const Block& block) {
  std::string text;
  for (const std::vector<std::string>& row : block) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (i > 0) text += '\t';
      text += needs_quotes(row[i]) ? in_quotes(row[i]) : row[i];
    }
    text += '\n';
  }
  return text;
}

}  // namespace kvo::edit
