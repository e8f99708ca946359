// Text tables: any content is read, all cells can be reached, and a table that was written is read
// and written back unchanged.

#include <cstdint>

#include "check.h"
#include "workspace/files/study_table.h"

namespace {

/// What a loader reads back from a row may differ from what was written only when a cell is empty
/// or long enough for its line to be cut; such tables are only walked through.
bool survives_writing(const Q_table& table) {
  constexpr std::size_t LONGEST = 40000;
  for (long column = 0; column < Q_table_ncol(table); ++column) {
    std::size_t length = 0;
    for (long row = 0; row < Q_table_nrow(table); ++row) {
      const Q_cell& cell = TABLE(table, row, column);
      if (!cell || cell->empty() || cell->find(' ') != std::string::npos) return false;
      length += cell->size() + 1;
    }
    if (length > LONGEST) return false;
  }
  return Q_table_ncol(table) > 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  Q_table twice;
  Q_table_load_text(twice, content);
  Q_table_load_text(twice, content);

  KVO_TableT = kvotable_read(content);
  Q_string_list list;
  check(kvotable_get_variables(list) <= Q_table_nrow(KVO_TableT) + 1);
  check(kvotable_get_variables_indicator(list) <= Q_table_nrow(KVO_TableT) + 1);
  const std::string text = Q_table_text(KVO_TableT);
  if (survives_writing(KVO_TableT)) check(Q_table_text(kvotable_read(text)) == text);
  kvotable_remove_leftover(KVO_TableT);
  check(Q_table_nrow(KVO_TableT) < 1 ||
        Q_get_table_row_pos(KVO_TableT, KVO_JACKKNIFE_VARIABLE) == -1);
  return 0;
}
