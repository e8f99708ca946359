// Measures the loading of study tables: its time, its growth with the number of cells and its
// memory. Prints "name value unit (goal ...)" lines.

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/test_folder.h"
#include "util/read_file.h"
#include "workspace/files/file_names.h"
#include "workspace/files/study_table.h"

namespace {

constexpr long VARIABLES = 30;

std::string table_text(long cells) {
  std::string text;
  for (long cell = 0; cell < cells; ++cell)
    text.append(std::to_string(cell * 7919 % 100000))
        .append(cell % VARIABLES == VARIABLES - 1 ? "\n" : "\t");
  return text;
}

/// Returns the seconds of the fastest of some loads.
double measure(long cells) {
  write_text(KVO_TABLE_FILE, table_text(cells));
  double fastest = 1e9;
  for (int i = 0; i < 5; ++i) {
    KVO_TableT = Q_table();
    const auto start = std::chrono::steady_clock::now();
    KVO_TableT = kvotable_read(Q_read_text(KVO_TABLE_FILE));
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    fastest = std::min(fastest, time.count());
  }
  if (Q_table_nrow(KVO_TableT) * Q_table_ncol(KVO_TableT) != cells) {
    std::fprintf(stderr, "cells are missing in the table\n");
    std::exit(1);
  }
  return fastest;
}

}  // namespace

int main() {
  const Test_folder folder;
  double per_cell = 0;
  for (const long cells : {30000L, 300000L, 3001020L}) {
    const double seconds = measure(cells);
    std::printf("table_%ld_load %.4f s%s\n", cells, seconds, cells > 3001000 ? " (goal < 1)" : "");
    if (per_cell > 0)
      std::printf("table_%ld_growth %.2f x per cell\n", cells,
                  seconds / static_cast<double>(cells) / per_cell);
    per_cell = seconds / static_cast<double>(cells);
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("table_peak_memory %ld MB (goal < 400)\n", usage.ru_maxrss / 1024);
  return 0;
}
