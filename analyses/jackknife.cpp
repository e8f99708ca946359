#include "analyses/jackknife.h"

#include <gtk/gtk.h>

#include <cerrno>
#include <cstring>

#include "analyses/jackknife_plan.h"
#include "analyses/names.h"
#include "shell/command_runner.h"
#include "shell/console.h"
#include "util/text.h"
#include "workspace/study_table.h"

namespace {

/// Keeps the user's input from the main window, also between two runs: another action would find a
/// study table in between.
class Input_block {
 public:
  Input_block() : widget_(gtk_invisible_new()) { gtk_grab_add(widget_); }
  Input_block(const Input_block&) = delete;
  Input_block& operator=(const Input_block&) = delete;
  ~Input_block() {
    gtk_grab_remove(widget_);
    gtk_widget_destroy(widget_);
  }

 private:
  GtkWidget* widget_;
};

bool save_table(const char* consequence) {
  if (Q_table_save(KVO_TableT, "%s", KVO_TABLE_FILE)) return true;
  const std::string reason = Q_markup_escape(std::strerror(errno));
  Q_print_warning(0, "The file '%s' could not be written (%s)%s\n", KVO_TABLE_FILE, reason.c_str(),
                  consequence);
  return false;
}

/// The indicator that tells the engine which studies to take; gone from the table and its file at
/// the end of the scope.
class Temporary_variable {
 public:
  /// With the filter's values, or 1 for every study when the filter is empty.
  explicit Temporary_variable(const char* filter) : row_(Q_table_nrow(KVO_TableT)) {
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
    save_table(" and still has the jackknife analysis' temporary variable.");
  }

  /// Runs the mean without the study; false when the table could not be saved for it.
  [[nodiscard]] bool run_without(const Kvo_jackknife_run& run) {
    const Q_cell value = TABLE(row_, run.column);
    set(run.column, "NA");
    const bool saved = save_table(", so the jackknife analysis has been stopped.");
    if (saved)
      kvo3_exec_core(true, "%s = mean %s", kvo_word(run.map).c_str(), KVO_JACKKNIFE_VARIABLE);
    set(run.column, value);
    return saved;
  }

 private:
  void set(long column, const Q_cell& value) const {
    Q_table_set(KVO_TableT, row_, column, value.value_or("NA"));
  }

  long row_;
};

}  // namespace

void kvo3_jackknife(Q_string& name, const char* filter) {
  const Kvo_jackknife_plan plan = kvo_plan_jackknife(KVO_TableT, name.str(), filter);
  name = Q_string(plan.name);
  const Input_block block;
  Temporary_variable variable(filter);
  for (const Kvo_jackknife_run& run : plan.runs)
    if (!variable.run_without(run)) return;
}
