// The jackknife against an engine that keeps the study table of each run.

#include "analyses/jackknife.h"

#include <gmock/gmock.h>

#include <functional>

#include "analyses/mean.h"
#include "analysis_window.h"
#include "file_size_limit.h"
#include "shell/busy.h"
#include "workspace/files/file_names.h"

namespace {

using testing::HasSubstr;

const char* const VARIABLE = "TEMPORAL_COLUMN_FOR_JACKKNIFE_ANALYSIS";
const char* const FOUR_STUDIES = "study,n1,female\nA,10,1\nB,11,0\nC,12,\nD,13,1\n";

class Jackknife : public Analysis_window {
 protected:
  Jackknife() {
    write_text("kvo_maps.txt", "");
    load_table(FOUR_STUDIES);
    set_engine("cp kvo_table.txt \"$folder/table.$run\"\necho d\n");
  }

  /// Asks for a jackknife.
  void jackknife(const char* name, const char* filter) {
    user.answer({{"Name", name}, {"Filter", filter}, {"Jackknife", "yes"}});
    kvo3_mean();
  }

  /// The temporary variable's values in the study table of a run, "" when it is not the last one.
  [[nodiscard]] std::string values(int run) const {
    const Q_table table =
        kvotable_read(read_text(engine_folder() / ("table." + std::to_string(run))));
    const long row = Q_get_table_row_pos(table, VARIABLE);
    if (row != 3 || Q_table_nrow(table) != 4) return "";
    std::string text;
    for (long column = 1; column < Q_table_ncol(table); ++column)
      text += *TABLE(table, row, column) + " ";
    return text;
  }

  static int occurrences(const std::string& text, const std::string& word) {
    int count = 0;
    for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1))
      ++count;
    return count;
  }

  /// In the memory and, byte for byte, in its file.
  static void expect_table_restored() {
    EXPECT_EQ(read_text(KVO_TABLE_FILE), FOUR_STUDIES);
    EXPECT_EQ(KVO_TableT, kvotable_read(FOUR_STUDIES));
  }
};

TEST_F(Jackknife, LeavesOutOneStudyAtATime) {
  jackknife("My Mean", "(none)");
  const std::vector<Arguments> expected = {
      {"My_MeanJKA", "=", "mean", VARIABLE},
      {"My_MeanJKB", "=", "mean", VARIABLE},
      {"My_MeanJKC", "=", "mean", VARIABLE},
      {"My_MeanJKD", "=", "mean", VARIABLE},
  };
  EXPECT_EQ(runs(), expected);
  EXPECT_EQ(values(1), "NA 1 1 1 ");
  EXPECT_EQ(values(2), "1 NA 1 1 ");
  EXPECT_EQ(values(3), "1 1 NA 1 ");
  EXPECT_EQ(values(4), "1 1 1 NA ");
  expect_table_restored();
  const std::string run = std::string(" = mean ") + VARIABLE + "\n\n";
  EXPECT_EQ(batch(), "# Perform a jackknife analysis of all the studies as 'My_Mean':\nMy_MeanJKA" +
                         run + "My_MeanJKB" + run + "My_MeanJKC" + run + "My_MeanJKD" + run);
  EXPECT_EQ(Qs_HelpTopic, "mean");
}

TEST_F(Jackknife, OfASubgroupKeepsTheFilter) {
  jackknife("M", "female");
  const std::vector<Arguments> expected = {{"MJKA", "=", "mean", VARIABLE},
                                           {"MJKD", "=", "mean", VARIABLE}};
  EXPECT_EQ(runs(), expected);
  EXPECT_EQ(values(1), "NA 0 NA 1 ");
  EXPECT_EQ(values(2), "1 0 NA NA ");
  expect_table_restored();
  EXPECT_THAT(
      batch(),
      testing::StartsWith("# Perform a jackknife analysis of the subgroup 'female' as 'M':\nMJKA"));
}

TEST_F(Jackknife, GoesOnAfterARunThatFails) {
  for (const char* failure : {"echo 'WARNING: it failed'", "echo 'wit failed'", "kill -9 $$"}) {
    SCOPED_TRACE(failure);
    load_table(FOUR_STUDIES);
    set_engine(std::string("cp kvo_table.txt \"$folder/table.$run\"\n[ $run = 2 ] && { ") +
               failure + "; exit 1; }\necho d\n");
    jackknife("M", "(none)");
    EXPECT_EQ(runs().size(), 4);
    EXPECT_EQ(values(3), "1 1 NA 1 ");
    expect_table_restored();
    EXPECT_EQ(occurrences(pane_text(0), "WARNING: "), 1);
    EXPECT_EQ(occurrences(pane_text(0), "DONE"), 3);
    clear_pane(0);
  }
}

TEST_F(Jackknife, ThatDiedIsClearedUpAtTheNextLoad) {
  jackknife("M", "female");
  for (const char* table : {"table.1", "table.2"}) {
    clear_pane(0);
    // What a program that is killed during the run leaves.
    std::filesystem::copy_file(engine_folder() / table, KVO_TABLE_FILE,
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_THAT(read_text(KVO_TABLE_FILE), HasSubstr(VARIABLE));
    kvotable_load(KVO_TABLE_FILE);
    EXPECT_EQ(KVO_TableT, kvotable_read(FOUR_STUDIES));
    EXPECT_EQ(read_text(KVO_TABLE_FILE), Q_table_text(KVO_TableT));
    EXPECT_THAT(pane_text(0), HasSubstr("A jackknife analysis was interrupted"));
  }
}

TEST_F(Jackknife, StopsWhenTheTableCannotBeWritten) {
  const Q_table table = KVO_TableT;
  for (const char* filter : {"", "female"}) {
    clear_pane(0);
    Q_string name("M");
    {
      const File_size_limit full_disk(3);
      kvo3_jackknife(name, filter);
    }
    EXPECT_EQ(runs(), std::vector<Arguments>{});
    EXPECT_EQ(KVO_TableT, table);
    EXPECT_EQ(read_text(KVO_TABLE_FILE), FOUR_STUDIES);
    EXPECT_THAT(pane_text(0), HasSubstr("could not be written (File too large), so the jackknife "
                                        "analysis has been stopped.\n"));
  }
}

TEST_F(Jackknife, DoesNotBeginWhereItWouldOverwriteSomething) {
  std::filesystem::create_directory("other");
  const std::string reason = "cannot write its variable into the file 'kvo_table.txt': ";
  const struct {
    const char* file;  ///< as loaded
    std::function<void()> meanwhile;
    std::string reason;
  } cases[] = {
      {FOUR_STUDIES, [] { write_text(KVO_TABLE_FILE, "study,n1\nA,5\n"); },
       reason + "another program has changed it"},
      {FOUR_STUDIES, [] { std::filesystem::remove(KVO_TABLE_FILE); },
       reason + "another program has changed it"},
      {FOUR_STUDIES,
       [] {
         std::filesystem::current_path("other");
         write_text("kvo_maps.txt", "");
         write_text(KVO_TABLE_FILE, FOUR_STUDIES);
       },
       reason + "the study table in memory is that of another folder"},
      {"study,age\nA,31,5\n", [] {}, reason + "line 2: there are 3 cells, but the header has 2"},
  };
  const auto table_file = [] {
    return std::filesystem::exists(KVO_TABLE_FILE) ? read_text(KVO_TABLE_FILE) : "none";
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    std::filesystem::current_path(work());
    load_table(c.file);
    c.meanwhile();
    const std::string file = table_file();
    user.answer({{"Jackknife", "yes"}}).then(press_ok);
    kvo3_mean();
    EXPECT_THAT(user.messages().back(), HasSubstr(c.reason));
    expect_nothing_run();
    Q_string name("M");
    kvo3_jackknife(name, "");
    EXPECT_EQ(runs(), std::vector<Arguments>{});
    EXPECT_EQ(table_file(), file);
    clear_pane(0);
  }
  std::filesystem::current_path(work());
}

TEST_F(Jackknife, StopsWhenAnotherProgramChangesTheTable) {
  set_engine("[ $run = 2 ] && echo E,1,0 >>kvo_table.txt\necho d\n");
  jackknife("M", "(none)");
  EXPECT_EQ(runs().size(), 2);
  EXPECT_THAT(read_text(KVO_TABLE_FILE), testing::EndsWith("\nE,1,0\n"));
  EXPECT_EQ(occurrences(pane_text(0), "another program has changed it"), 2);
  EXPECT_EQ(KVO_TableT, kvotable_read(FOUR_STUDIES));
}

TEST_F(Jackknife, ShortensTheNameInPlace) {
  load_table("study\nTen_letter\nB\n");
  Q_string name(std::string(50, 'n'));
  kvo3_jackknife(name, "");
  EXPECT_EQ(name.str(), std::string(48, 'n'));
  EXPECT_EQ(runs().front().front(), std::string(48, 'n') + "JKTen_letter");
}

TEST_F(Jackknife, EndsWithTheWindowOrACancelledRunAndRestoresTheTable) {
  for (const bool closed : {false, true}) {
    if (closed) write_text("wait", "");
    set_engine(
        "[ $run = 2 ] || { echo d; exit; }\n"
        "echo '  here'; while [ -e wait ]; do sleep 0.05; done; echo c; echo 'WARNING: "
        "cancelled'\n");
    // Where no pop-up has the input, nothing else has it either.
    std::vector<bool> guarded;
    const auto look = +[](GtkTextBuffer*, std::vector<bool>* seen) {
      if (!Q_busy) seen->push_back(gtk_grab_get_current() != nullptr);
    };
    g_signal_connect(Qw_v_OutputBuffer[0], "changed", G_CALLBACK(look), &guarded);
    const auto close = +[](gpointer) -> gboolean {
      if (!pane_text(0).ends_with("  here\n")) return G_SOURCE_CONTINUE;
      gtk_widget_destroy(Qw_Window);
      return G_SOURCE_REMOVE;
    };
    if (closed) g_timeout_add(1, close, nullptr);
    Q_string name("M");
    kvo3_jackknife(name, "");
    std::filesystem::remove("wait");
    EXPECT_EQ(runs().size(), 2U);
    expect_table_restored();
    EXPECT_GE(guarded.size(), 2U);
    EXPECT_THAT(guarded, testing::Each(true));
    EXPECT_EQ(gtk_grab_get_current(), nullptr);
    EXPECT_EQ(Q_console_gone(), closed);
    if (closed) continue;
    EXPECT_THAT(pane_text(0), testing::EndsWith("so the jackknife analysis has been stopped.\n\n"));
    g_signal_handlers_disconnect_by_data(Qw_v_OutputBuffer[0], &guarded);
  }
}

TEST_F(Jackknife, WithoutStudiesIsRefused) {
  const struct {
    const char *table, *filter;
  } cases[] = {{"study n1\n", "(none)"}, {"study n1 none\nA 1 0\nB 1 NA\n", "none"}};
  for (const auto& c : cases) {
    load_table(c.table);
    user.answer({{"Filter", c.filter}, {"Jackknife", "yes"}}).then(press_ok);
    kvo3_mean();
    EXPECT_EQ(user.messages().back(), "No studies found. Please edit table and try again.");
    expect_nothing_run();
    EXPECT_EQ(read_text(KVO_TABLE_FILE), c.table);
  }
}

}  // namespace
