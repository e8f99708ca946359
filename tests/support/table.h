#pragma once

// Cases of tests in tables: lines with tabs between cells, of which those that begin with "#" or
// are empty do not count. \n, \t, \r, \v and \xHH are bytes, {TEXT*N} is so many times a text.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

using Cells = std::vector<std::string>;

/// The parts between separators; the last of so many takes the rest.
inline Cells split(const std::string& text, const std::string& separator, std::size_t most) {
  Cells parts;
  std::size_t begin = 0;
  for (std::size_t end = 0; parts.size() + 1 < most; begin = end + separator.size()) {
    end = text.find(separator, begin);
    if (end == std::string::npos) break;
    parts.push_back(text.substr(begin, end - begin));
  }
  parts.push_back(text.substr(begin));
  return parts;
}

/// The text that a cell stands for.
inline std::string written_out(const std::string& cell) {
  static const std::map<char, char> bytes = {{'n', '\n'}, {'t', '\t'}, {'r', '\r'}, {'v', '\v'}};
  std::string text;
  for (std::size_t i = 0; i < cell.size(); ++i) {
    if (cell.compare(i, 2, "\\x") == 0) {
      text += static_cast<char>(std::stoi(cell.substr(i + 2, 2), nullptr, 16));
      i += 3;
    } else if (cell[i] == '\\') {
      text += bytes.at(cell[++i]);
    } else if (cell[i] == '{') {
      const std::size_t end = cell.find('}', i);
      const std::size_t star = cell.rfind('*', end);
      const std::string part = written_out(cell.substr(i + 1, star - i - 1));
      for (int times = std::stoi(cell.substr(star + 1)); times > 0; --times) text += part;
      i = end;
    } else {
      text += cell[i];
    }
  }
  return text;
}

/// The lines of a table with so many cells each; those at the end may be left out.
inline std::vector<Cells> read_table(const char* path, std::size_t columns) {
  std::vector<Cells> table;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    table.push_back(split(line, "\t", columns));
    table.back().resize(columns);
    for (std::string& cell : table.back()) cell = written_out(cell);
  }
  EXPECT_FALSE(table.empty()) << path;
  return table;
}
