// The jackknife against an engine that keeps the study table of each run.

#include "analyses/jackknife.h"

#include <gmock/gmock.h>

#include "analyses/mean.h"
#include "analysis_window.h"
#include "file_size_limit.h"
#include "shell/busy.h"
#include "workspace/files/file_names.h"

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;
namespace fs = std::filesystem;

const char* const FOUR_STUDIES = "study,n1,female\nA,10,1\nB,11,0\nC,12,\nD,13,1\n";

class Jackknife : public Analysis_window {
 protected:
  Jackknife() {
    load_table(FOUR_STUDIES);
    let_engine("");
  }

  /// Lets the engine keep the study table, do what the script says, and end well.
  void let_engine(const std::string& script) {
    set_engine("cp kvo_table.txt \"$folder/table.$run\"\n" + script + "\necho d\n");
  }

  static void jackknife(const char* filter = "") {
    Q_string name("M");
    kvo3_jackknife(name, filter);
  }

  /// Of each run since the last call the map, and the values of the variable that it was given.
  std::vector<std::string> runs_with_values() {
    std::vector<std::string> result;
    for (const Arguments& run : runs()) {
      const std::string file = "table." + std::to_string(result.size() + 1);
      const Q_table table = kvotable_read(read_text(engine_folder() / file));
      const long row = Q_get_table_row_pos(table, run.back().c_str());
      EXPECT_EQ(row, 3) << "behind the others";
      result.push_back(run.front() + ":");
      for (long column = 1; row > 0 && column < Q_table_ncol(table); ++column)
        result.back() += " " + *TABLE(table, row, column);
    }
    return result;
  }

  static int occurrences(const std::string& word) {
    int count = 0;
    const std::string text = pane_text(0);
    for (std::size_t at = 0; (at = text.find(word, at)) != std::string::npos; ++at) ++count;
    return count;
  }

  /// In the memory and, byte for byte, in its file.
  static void expect_table_restored() {
    EXPECT_EQ(read_text(KVO_TABLE_FILE), FOUR_STUDIES);
    EXPECT_EQ(KVO_TableT, kvotable_read(FOUR_STUDIES));
  }
};

TEST_F(Jackknife, LeavesOutOneStudyAtATimeAndGoesOnAfterARunThatFails) {
  for (const char* failure :
       {"", "echo 'WARNING: failed'; exit", "echo 'wfailed'; exit", "kill -9 $$"}) {
    SCOPED_TRACE(failure);
    const bool fails = *failure != '\0';
    let_engine(fails ? std::string("[ $run = 2 ] && { ") + failure + "; }" : "");
    clear_pane(0);
    jackknife();
    EXPECT_THAT(runs_with_values(), ElementsAre("MJKA: NA 1 1 1", "MJKB: 1 NA 1 1",
                                                "MJKC: 1 1 NA 1", "MJKD: 1 1 1 NA"));
    EXPECT_EQ(occurrences("DONE"), fails ? 3 : 4);
    EXPECT_EQ(occurrences("WARNING: "), fails ? 1 : 0);
    expect_table_restored();
  }
  jackknife("female");
  EXPECT_THAT(runs_with_values(), ElementsAre("MJKA: NA 0 NA 1", "MJKD: 1 0 NA NA"));
  expect_table_restored();
}

TEST_F(Jackknife, ThatDiedIsClearedUpAtTheNextLoad) {
  jackknife("female");
  for (const char* table : {"table.1", "table.2"}) {
    // What a program that is killed during the run leaves.
    load_table(read_text(engine_folder() / table));
    EXPECT_EQ(KVO_TableT, kvotable_read(FOUR_STUDIES));
    EXPECT_EQ(read_text(KVO_TABLE_FILE), Q_table_text(KVO_TableT));
    EXPECT_THAT(pane_text(0), HasSubstr("A jackknife analysis was interrupted"));
    clear_pane(0);
  }
}

TEST_F(Jackknife, StopsWhenTheTableCannotBeWritten) {
  for (const char* filter : {"", "female"}) {
    {
      const File_size_limit full_disk(3);
      jackknife(filter);
    }
    EXPECT_THAT(runs(), IsEmpty());
    expect_table_restored();
    EXPECT_THAT(pane_text(0), EndsWith("could not be written (File too large), so the jackknife "
                                       "analysis has been stopped.\n\n"));
  }
}

TEST_F(Jackknife, DoesNotBeginWhereItWouldOverwriteSomething) {
  const std::string reason =
      "A jackknife analysis cannot write its variable into the file 'kvo_table.txt': ";
  const struct {
    const char* table;      ///< as loaded
    const char* meanwhile;  ///< a command of the shell
    const char* reason;
  } cases[] = {
      {FOUR_STUDIES, "echo study,n1 >kvo_table.txt", "another program has changed it since"},
      {FOUR_STUDIES, "rm kvo_table.txt", "another program has changed it since"},
      {FOUR_STUDIES, "cp * ..", "the study table in memory is that of another folder;"},
      {"study,age\nA,31,5\n", "true", "line 2: there are 3 cells, but the header has 2 columns"},
  };
  const auto table_file = [] {
    return fs::exists(KVO_TABLE_FILE) ? read_text(KVO_TABLE_FILE) : "none";
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.reason);
    load_table(c.table);
    EXPECT_EQ(std::system(c.meanwhile), 0);
    if (c.meanwhile[0] == 'c') fs::current_path("..");
    const std::string file = table_file();
    Dialog_driver user;
    user.play("Jackknife=yes | OK");
    kvo3_mean();
    EXPECT_THAT(user.messages().back(), StartsWith(reason + c.reason));
    EXPECT_EQ(pane_text(0) + pane_text(1), "");
    jackknife();
    EXPECT_THAT(runs(), IsEmpty());
    EXPECT_EQ(table_file(), file);
    clear_pane(0);
    fs::current_path(work());
  }
}

TEST_F(Jackknife, StopsWhenAnotherProgramChangesTheTable) {
  let_engine("[ $run = 2 ] && echo E,1,0 >>kvo_table.txt");
  jackknife();
  EXPECT_EQ(runs().size(), 2U);
  EXPECT_THAT(read_text(KVO_TABLE_FILE), EndsWith("\nE,1,0\n"));
  EXPECT_EQ(occurrences("another program has changed it since"), 2);
  EXPECT_EQ(KVO_TableT, kvotable_read(FOUR_STUDIES));
}

TEST_F(Jackknife, ShortensTheNameInPlace) {
  load_table("study\nTen_letter\nB\n");
  Q_string name(std::string(50, 'n'));
  kvo3_jackknife(name, "");
  EXPECT_EQ(name.str(), std::string(48, 'n'));
  EXPECT_EQ(runs().front().front(), std::string(48, 'n') + "JKTen_letter");
}

TEST_F(Jackknife, EndsWithACancelledRunOrTheWindowAndRestoresTheTable) {
  let_engine(
      "[ $run = 2 ] && { echo '  here'; while [ -e wait ]; do sleep 0.05; done; echo c; echo "
      "'WARNING: cancelled'; exit; }");
  // Where no pop-up has the input, nothing else has it either.
  std::vector<bool> guarded;
  const auto look = +[](GtkTextBuffer*, std::vector<bool>* seen) {
    if (!Q_busy) seen->push_back(gtk_grab_get_current() != nullptr);
  };
  g_signal_connect(Qw_v_OutputBuffer[0], "changed", G_CALLBACK(look), &guarded);
  const auto expect_ended = [&] {
    EXPECT_EQ(runs().size(), 2U);
    expect_table_restored();
    EXPECT_GE(guarded.size(), 2U);
    EXPECT_THAT(guarded, testing::Each(true));
    EXPECT_EQ(gtk_grab_get_current(), nullptr);
  };
  jackknife();
  expect_ended();
  EXPECT_THAT(pane_text(0), EndsWith("so the jackknife analysis has been stopped.\n\n"));
  write_text("wait", "");
  const auto close = +[](gpointer) -> gboolean {
    if (!pane_text(0).ends_with("  here\n")) return G_SOURCE_CONTINUE;
    gtk_widget_destroy(Qw_Window);
    return G_SOURCE_REMOVE;
  };
  g_timeout_add(1, close, nullptr);
  jackknife();
  fs::remove("wait");
  expect_ended();
  EXPECT_TRUE(Q_console_gone());
}

}  // namespace
