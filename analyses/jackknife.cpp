#include "analyses/jackknife.h"

#include <string>

#include "analyses/jackknife_plan.h"
#include "analyses/names.h"
#include "shell/busy.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "util/whole_file.h"
#include "workspace/files/study_table.h"
#include "workspace/load_table.h"

namespace {

/// Writes the table's file, or the fatal error that it is not writable.
bool write_file(const std::string& text, const char* consequence) {
  return kvotable_replace(text, Q_write_whole_or_die, consequence);
}

/// The indicator that tells the engine which studies to use. At the end of the scope it is removed
/// from the table, and the file gets its former content back.
class Temporary_variable {
 public:
  /// With the filter's values, or 1 for every study when the filter is empty.
  explicit Temporary_variable(const char* filter)
      : row_(Q_table_nrow(KVO_TableT)), file_before_(kvotable_file_text()) {
    Q_table_increase_nrow(KVO_TableT);
    Q_table_set(KVO_TableT, row_, 0, KVO_JACKKNIFE_VARIABLE);
    const long filter_row = *filter == '\0' ? -1 : Q_get_table_row_pos_or_die(KVO_TableT, filter);
    for (long column = 1; column < Q_table_ncol(KVO_TableT); ++column)
      set(column, filter_row < 0 ? "1" : TABLE(filter_row, column));
  }
  Temporary_variable(const Temporary_variable&) = delete;
  Temporary_variable& operator=(const Temporary_variable&) = delete;
  ~Temporary_variable() {
    kvotable_remove_leftover(KVO_TableT);
    if (written_) [[maybe_unused]]
      const bool told = write_file(
          file_before_, " and may still have the jackknife analysis' temporary variable.");
  }

  /// Runs the mean without the study; false when the table's file could not be written for it or
  /// the user has ended the run.
  [[nodiscard]] bool run_without(const Kvo_jackknife_run& run) {
    const Q_cell value = TABLE(row_, run.column);
    set(run.column, "NA");
    const bool saved =
        write_file(Q_table_text(KVO_TableT), ", so the jackknife analysis has been stopped.");
    written_ = written_ || saved;
    const bool goes_on = saved && kvo3_exec_core(true, "%s = mean %s", kvo_word(run.map).c_str(),
                                                 KVO_JACKKNIFE_VARIABLE);
    if (saved && !goes_on)
      Q_print_warning(0, "A command was cancelled, so the jackknife analysis has been stopped.\n");
    set(run.column, value);
    return goes_on;
  }

 private:
  void set(long column, const Q_cell& value) const {
    Q_table_set(KVO_TableT, row_, column, value.value_or("NA"));
  }

  long row_;
  std::string file_before_;
  bool written_ = false;
};

}  // namespace

void kvo3_jackknife(Q_string& name, const char* filter) {
  const Kvo_jackknife_plan plan = kvo_plan_jackknife(KVO_TableT, name.str(), filter);
  name = Q_string(plan.name);
  // So that no other work sees the study table in between.
  const Q_input_block block;
  Temporary_variable variable(filter);
  for (const Kvo_jackknife_run& run : plan.runs)
    if (!variable.run_without(run)) return;
}
