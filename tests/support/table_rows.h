#pragma once

// Tables of cases in files: a line for each case, with its cells parted by tabs.

#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "test_folder.h"

inline std::string replaced(std::string text, const std::string& old, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += by.size())
    text.replace(at, old.size(), by);
  return text;
}

/// A line with the words in it replaced, one after another, by what they stand for.
using Words = std::vector<std::pair<std::string, std::string>>;
inline std::string with_values(std::string line, const Words& words) {
  for (const auto& [word, value] : words) line = replaced(std::move(line), word, value);
  return line;
}

/// The lines behind the first, which names the columns, each as that many cells.
inline std::vector<std::vector<std::string>> table_rows(const char* path, const Words& words) {
  std::vector<std::vector<std::string>> rows;
  std::istringstream lines(read_text(path));
  for (std::string line; std::getline(lines, line);) {
    rows.emplace_back();
    std::istringstream cells(with_values(line, words));
    for (std::string cell; std::getline(cells, cell, '\t');) rows.back().push_back(cell);
    rows.back().resize(rows.front().size());
  }
  rows.erase(rows.begin());
  return rows;
}
