#pragma once

// Tables of cells between commas, semicolons or tabs, as spreadsheets write them (RFC 4180).

#include <string>
#include <string_view>
#include <vector>

#include "engine/formats/formats_layer.h"

namespace kvo::formats {

struct DelimitedRow {
  std::vector<std::string> cells;
  std::size_t line = 0;
};

struct Delimited {
  char separator = ',';
  std::vector<DelimitedRow> rows;  ///< blank lines, and those that begin with "#", left out
};

/// The rows of a text. The separator is the one that is most frequent in the first row. Quotes may
/// hold separators, line ends and doubled quotes. Throws Refusal, naming the path and the line,
/// when a quote is not closed or there are too many cells.
Delimited delimited_of(const std::string& path, std::string_view text);

}  // namespace kvo::formats
