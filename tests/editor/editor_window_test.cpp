// The editor's window, used as a person uses it: with keys, the pointer, the clipboard and dialogs.

#include <gdk/gdkkeysyms.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <gtk/gtk.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <sstream>

#include "companions/kvo_edit/editor.h"
#include "companions/kvo_edit/editor_actions.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/table_file.h"
#include "dialog_driver.h"
#include "test_folder.h"

using namespace kvo::edit;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* FILE_NAME = "kvo_table.txt";

/// An editor on a file of that content, and its user.
class Session {
 public:
  explicit Session(const std::string& content) {
    write_text(FILE_NAME, content);
    reopen();
  }
  Session() { reopen(); }

  void reopen() {
    editor_.reset();
    editor_ = editor_open(open_document(FILE_NAME));
    handle_display_events();
    give_focus(editor_->window);
    settle();
  }

  Editor& editor() { return *editor_; }
  kvo::edit::Grid& grid() { return *editor_->grid; }
  std::string title() { return gtk_window_get_title(GTK_WINDOW(editor_->window)); }
  std::string status() { return gtk_label_get_text(GTK_LABEL(editor_->status)); }
  std::string table() { return document_text(editor_->document); }

  /// Does what a user does, one thing after the other: 'text' is typed, @name an action of the
  /// menu, (row,column) a click on a cell and ((row,column)) a double one; all else is a key,
  /// behind "S-", "C-" or "A-" with Shift, Control or Alt.
  Session& does(const std::string& steps) {
    std::istringstream words(steps);
    for (std::string word; words >> word;) {
      if (word[0] == '\'') {
        for (std::string more; word.back() != '\'' || word.size() == 1; word += " " + more)
          words >> more;
        Shown_dialog(editor_->window).type(word.substr(1, word.size() - 2));
      } else if (word[0] == '@') {
        gtk_action_activate(gtk_action_group_get_action(editor_->actions, word.c_str() + 1));
      } else if (word[0] == '(') {
        const bool twice = word[1] == '(';
        const long row = std::stol(word.substr(twice ? 2 : 1)),
                   column = std::stol(word.substr(word.find(',') + 1));
        click(row, column);
        if (twice) click(row, column, GDK_2BUTTON_PRESS);
      } else {
        key(word);
      }
      settle();
    }
    return *this;
  }
  bool can(const char* action) {
    return gtk_action_get_sensitive(gtk_action_group_get_action(editor_->actions, action)) != FALSE;
  }
  /// Presses the pointer's button on a cell.
  Session& click(long row, long column, GdkEventType type = GDK_BUTTON_PRESS, int state = 0) {
    GdkRectangle area;
    GtkTreePath* path = gtk_tree_path_new_from_indices(static_cast<int>(row), -1);
    gtk_tree_view_get_cell_area(grid().view, path,
                                gtk_tree_view_get_column(grid().view, static_cast<int>(column) + 1),
                                &area);
    gtk_tree_path_free(path);
    pointer(gtk_tree_view_get_bin_window(grid().view), type, area.x + area.width / 2,
            area.y + area.height / 2, state);
    return *this;
  }
  /// Presses the pointer's button on the name of a variable.
  Session& click_name(long column, GdkEventType type = GDK_BUTTON_PRESS, int state = 0) {
    GtkWidget* head = gtk_tree_view_get_column(grid().view, static_cast<int>(column) + 1)->button;
    pointer(GTK_BUTTON(head)->event_window, type, 5, 5, state);
    pointer(GTK_BUTTON(head)->event_window, GDK_BUTTON_RELEASE, 5, 5, state);
    return *this;
  }
  void pointer(GdkWindow* window, GdkEventType type, int x, int y, int state) {
    send_pointer(window, type, x, y, state);
    settle();
  }
  static void settle() {
    while (gtk_events_pending()) gtk_main_iteration();
  }

 private:
  void key(const std::string& name) {
    const std::map<std::string, GdkModifierType> states = {
        {"S-", GDK_SHIFT_MASK}, {"C-", GDK_CONTROL_MASK}, {"A-", GDK_MOD1_MASK}};
    const auto state = states.find(name.substr(0, 2));
    const bool held = state != states.end();
    Shown_dialog(editor_->window)
        .key(gdk_keyval_from_name(name.c_str() + (held ? 2 : 0)),
             held ? state->second : GdkModifierType(0));
  }

  std::unique_ptr<Editor> editor_;
};

void put_on_clipboard(const std::string& text) {
  gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text.c_str(), -1);
}

std::string clipboard() {
  const Q_g_memory<char> text(
      gtk_clipboard_wait_for_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD)));
  return text == nullptr ? "" : text.get();
}

class EditorWindow : public testing::Test {
 protected:
  Test_folder folder_;
};

TEST_F(EditorWindow, WritesTheFileThatAPersonWouldHaveTyped) {
  Session session;
  EXPECT_EQ(session.title(), "kvo_table.txt - KVO table editor");
  // The first study, typed from cell to cell; Enter goes back to where the Tabs began.
  session.does("'Smith2004' Tab '12' Return");
  EXPECT_EQ(session.title(), "*kvo_table.txt - KVO table editor");
  // A new study with Tab behind the last cell.
  session.does("C-Return 'Jones2010' Tab '15' Tab 'Lee2012' Return");
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "Add variable");
    dialog.type("age");
    dialog.press("OK");
  });
  session.does("End @add_variable");
  // A block as a spreadsheet writes it, which brings one more variable and one more study.
  put_on_clipboard("31.5\t1\n28\t0\n40.2\t1\n35\t\n");
  session.does("C-Home End C-v");
  const std::string pasted =
      "study\tn1\tage\tvariable1\nSmith2004\t12\t31.5\t1\nJones2010\t15\t28\t0\n"
      "Lee2012\tNA\t40.2\t1\nNA\tNA\t35\tNA\n";
  EXPECT_EQ(session.table(), pasted);
  session.does("C-z");
  EXPECT_EQ(session.table(),
            "study\tn1\tage\nSmith2004\t12\tNA\nJones2010\t15\tNA\nLee2012\tNA\tNA\n");
  session.does("C-y C-s");
  EXPECT_EQ(session.title(), "kvo_table.txt - KVO table editor");
  EXPECT_EQ(read_text(FILE_NAME), pasted);
  session.reopen();
  EXPECT_EQ(session.table(), pasted);
  EXPECT_FALSE(session.can("undo"));
  // One value more: the other lines stay as they are.
  session.does("Down Down Right '9' Down C-s");
  EXPECT_THAT(read_text(FILE_NAME), HasSubstr("Lee2012\t9\t40.2\t1\nNA\tNA\t35\tNA\n"));
}

TEST_F(EditorWindow, EditsThePeaksOfTheStudyAtTheCursor) {
  const std::string peaks = "# space: MNI\n48 -38 -24 5.45\n-4 2 6 n\n";
  write_text("A.peaks.txt", peaks);
  write_text("C.nii.gz", "");
  Session session("study\tn1\nA\t16\nB\t12\nC\t20\n");
  Peaks_panel& panel = *session.editor().peaks;
  const auto texts = [&](long row) {
    return panel.shown->sheet.document.table.rows.at(std::size_t(row)).cells;
  };
  const auto title = [&] { return std::string(gtk_label_get_text(GTK_LABEL(panel.title))); };
  const auto notes = [&] { return std::string(gtk_label_get_text(GTK_LABEL(panel.notes))); };
  const auto go_to = [&](kvo::edit::Grid& grid) {
    gtk_widget_grab_focus(GTK_WIDGET(grid.view));
    Session::settle();
  };
  EXPECT_EQ(title(), "Peaks of A");
  EXPECT_THAT(texts(1), ElementsAre("-4", "2", "6", "-", "sign", ""));
  go_to(*panel.grid);
  session.does("'50' Tab '12b' Return");
  EXPECT_EQ(session.title(), "*kvo_table.txt - KVO table editor");
  Dialog_driver user;
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "Nothing has been saved.");
    dialog.press("OK");
  });
  session.does("C-s");
  EXPECT_EQ(read_text("A.peaks.txt"), peaks);
  session.does("C-z C-s");
  EXPECT_EQ(read_text("A.peaks.txt"), "# space: MNI\n50 -38 -24 5.45\n-4 2 6 n\n");
  EXPECT_EQ(session.title(), "kvo_table.txt - KVO table editor");
  EXPECT_EQ(session.table(), "study\tn1\nA\t16\nB\t12\nC\t20\n");
  // What has been saved can still be taken back, and made again.
  session.does("C-z");
  EXPECT_EQ(texts(0).front(), "48");
  session.does("C-y");
  EXPECT_EQ(session.title(), "kvo_table.txt - KVO table editor");
  // A study without a file gets one by pasting, and keeps its changes while others are shown.
  go_to(session.grid());
  session.does("Down");
  go_to(*panel.grid);
  put_on_clipboard("Insula \u221238 4 \u22122 4.51\nACC 2 10 42 3.9\n");
  user.then([](Shown_dialog& dialog) { dialog.press("Paste"); });
  session.does("C-v");
  go_to(session.grid());
  session.does("Down");
  EXPECT_EQ(notes(), "The study has an image, which tells more than peaks.");
  EXPECT_FALSE(std::filesystem::exists("B.peaks.txt"));
  session.does("Up");
  EXPECT_THAT(texts(0), ElementsAre("-38", "4", "-2", "4.51", "t", "Insula"));
  session.does("C-s");
  EXPECT_EQ(read_text("B.peaks.txt"),
            "# space: MNI\n-38 4 -2 4.51  # Insula\n2 10 42 3.9  # ACC\n");
  // What another program has done meanwhile is not lost unasked.
  go_to(*panel.grid);
  session.does("Delete");
  write_text("B.peaks.txt", "# space: MNI\n");
  user.then([](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "Another program has changed peaks. Overwrite them?");
    dialog.press("Cancel");
  });
  session.does("C-s");
  EXPECT_EQ(read_text("B.peaks.txt"), "# space: MNI\n");
  user.answer({}, "Load again");
  session.does("@reload");
  EXPECT_EQ(row_count(panel.shown->sheet.document.table), 0);
  // Files that cannot be read are said to be so, and stay.
  write_text("A.peaks.txt", "1 2 3 4\n");
  session.does("@reload");
  go_to(session.grid());
  session.does("C-Home");
  EXPECT_THAT(notes(), HasSubstr("has no line '# space: MNI'"));
  EXPECT_EQ(panel.shown, &panel.nothing);
}

TEST_F(EditorWindow, ImportsStudiesWithTheirPeaks) {
  Session session("study\tn1\nOld\t12\n");
  write_text("new.csv",
             "author,n,age,x,y,z,t\nSmith 2004,20,31,1,2,3,4.1\nSmith 2004,20,31,4,5,6,\n");
  Dialog_driver user;
  const auto chooses = [&](const char* space, const char* last) {
    user.answer({}, "Save").then([](Shown_dialog& dialog) {
      dialog.select(std::filesystem::absolute("new.csv"));
      dialog.press("Open");
    });
    user.answer({}, "Forward");
    user.answer({}, space);
    if (last == nullptr) return;
    user.then([last](Shown_dialog& dialog) {
      EXPECT_EQ(dialog.message(), "Import 1 study with 2 peaks?");
      gchar* text = nullptr;
      g_object_get(dialog.widget(), "secondary-text", &text, nullptr);
      EXPECT_THAT(Q_g_memory<char>(text).get(), HasSubstr("Smith_2004: 2 peaks, Talairach"));
      dialog.press(last);
    });
  };
  session.does("Right '13' Return");
  chooses("Talairach", "Cancel");
  session.does("@import");
  EXPECT_EQ(read_text(FILE_NAME), "study\tn1\nOld\t13\n");
  session.does("Up '14' Return");
  chooses("Talairach", "Import");
  session.does("@import");
  const std::string imported = "study\tn1\tage\nOld\t14\tNA\nSmith_2004\t20\t31\n";
  EXPECT_EQ(session.table(), imported);
  EXPECT_EQ(read_text(FILE_NAME), imported);
  EXPECT_EQ(read_text("Smith_2004.peaks.txt"),
            "# space: Talairach\n# Smith 2004\n1 2 3 4.1\n4 5 6 p\n");
  EXPECT_FALSE(has_changes(session.editor().document));
}

/// The drop-down lists of a dialog.
void collect_lists(GtkWidget* widget, gpointer lists) {
  if (GTK_IS_COMBO_BOX(widget))
    static_cast<std::vector<GtkWidget*>*>(lists)->push_back(widget);
  else if (GTK_IS_CONTAINER(widget))
    gtk_container_foreach(GTK_CONTAINER(widget), collect_lists, lists);
}

TEST_F(EditorWindow, BeginsWithStudiesFromElsewhere) {
  struct {
    const char *clipboard, *action;
    bool asks;
    std::string table;
  } const cases[] = {
      {"study\tn1\tage\nA\t12\t30\n", "paste_studies", false, "study\tn1\tage\nA\t12\t30\n"},
      {"A\t12\n", "paste_studies", false, "study\tn1\nA\t12\n"},
      {"Author\tN\nA\t12\n", "paste_studies", false, "study\tn1\nA\t12\n"},
      {"Study\tN\tx\ty\tz\tT\tspace\nA b\t12\t\u221230\t4\t6\t4,5\tMNI\n", "paste_studies", true,
       "study\tn1\nA_b\t12\n"},
      {"Who\tN\tx\ty\tz\tPeak T\nA b\t12\t\u221230\t4\t6\t4.5\n", "import_pasted", true,
       "study\tn1\nA_b\t12\n"},
      {"", "example", true, "study\tn1\nOne\t20\n"},
  };
  write_text("example.csv", "study,n1,x,y,z,space\nOne,20,1,2,3,MNI\n");
  for (const auto& [clipboard, action, asks, table] : cases) {
    SCOPED_TRACE(table);
    Session session("study\tn1\n");
    session.editor().example = "example.csv";
    EXPECT_TRUE(gtk_widget_get_visible(session.editor().beginning));
    put_on_clipboard(clipboard);
    Dialog_driver user;
    std::filesystem::remove("A_b.peaks.txt");
    const bool has_names = std::string(clipboard).starts_with("Study");
    if (asks && *clipboard != '\0')
      user.then([&](Shown_dialog& dialog) {
        EXPECT_EQ(dialog.message(), "What the columns hold");
        std::vector<GtkWidget*> lists;
        collect_lists(dialog.widget(), &lists);
        GtkDialog* shown = GTK_DIALOG(dialog.widget());
        GtkWidget* forward = gtk_dialog_get_widget_for_response(shown, GTK_RESPONSE_ACCEPT);
        EXPECT_EQ(gtk_widget_get_sensitive(forward) != FALSE, has_names);
        gtk_combo_box_set_active(GTK_COMBO_BOX(lists.back()), 0);  // of the first column
        dialog.press("Forward");
      });
    if (asks && *clipboard != '\0' && !has_names) user.answer({}, "MNI");
    if (asks)
      user.then([](Shown_dialog& dialog) {
        EXPECT_EQ(dialog.message(), "Import 1 study with 1 peak?");
        dialog.press("Import");
      });
    session.does(std::string("@") + action);
    EXPECT_EQ(session.table(), table);
    EXPECT_FALSE(gtk_widget_get_visible(session.editor().beginning));
    if (table.find("A_b") != std::string::npos) {
      EXPECT_THAT(read_text("A_b.peaks.txt"), HasSubstr("-30 4 6 4.5"));
    }
  }
}

TEST_F(EditorWindow, EditsInPlace) {
  const std::string before = "study,n1,n2\na,1,2\nb,3,4\n";
  struct {
    const char *what, *steps;
    std::string after;
    Cell_place cursor;
  } const cases[] = {
      {"typing replaces, Enter goes down", "'xyz' Return", "n1,n2\nxyz,1,2\nb,3,4\n", {1, 0}},
      {"F2 changes", "F2 End 'x' Return", "n1,n2\nax,1,2\nb,3,4\n", {1, 0}},
      {"F2 selects all", "F2 'x' Return", "n1,n2\nx,1,2\nb,3,4\n", {1, 0}},
      {"arrows in a changed cell", "F2 End Left 'x' Return", "n1,n2\nxa,1,2\nb,3,4\n", {1, 0}},
      {"arrows leave a typed cell", "'x' Right", "n1,n2\nx,1,2\nb,3,4\n", {0, 1}},
      {"Escape gives up", "'x' Escape", "", {0, 0}},
      {"Shift and Tab go back", "Down 'x' S-ISO_Left_Tab", "n1,n2\na,1,2\nx,3,4\n", {0, 2}},
      {"Shift and Enter go up", "Down 'x' S-Return", "n1,n2\na,1,2\nx,3,4\n", {0, 0}},
      {"Delete takes a letter", "F2 End 'xy' Home Delete Return", "n1,n2\nxy,1,2\nb,3,4\n", {1, 0}},
      {"Delete clears", "S-Down S-Right Delete", "n1,n2\nNA,NA,2\nNA,NA,4\n", {1, 1}},
      {"Backspace begins anew", "BackSpace Return", "n1,n2\nNA,1,2\nb,3,4\n", {1, 0}},
      {"a click elsewhere stores", "'x' (1,2)", "n1,n2\nx,1,2\nb,3,4\n", {1, 2}},
      {"a double click edits", "((1,1)) '7' Tab", "n1,n2\na,1,2\nb,7,4\n", {1, 2}},
      {"undo while typing", "'x' C-z", "", {0, 0}},
      {"markup and percent signs", "'<b>%s&' Return", "n1,n2\n<b>%s&,1,2\nb,3,4\n", {1, 0}},
      {"a study up", "Down A-Up", "n1,n2\nb,3,4\na,1,2\n", {0, 0}},
      {"a variable to the right", "Right A-Right", "n2,n1\na,2,1\nb,4,3\n", {0, 2}},
      {"sorting", "End @sort_descending", "n1,n2\nb,3,4\na,1,2\n", {0, 2}},
      {"cut and paste", "S-Right C-x Down Home C-v", "n1,n2\nNA,NA,2\na,1,4\n", {1, 0}},
      {"removing", "@remove_study End @remove_variable", "n1\nb,3\n", {0, 1}},
  };
  for (const auto& c : cases) {
    Session session(before);
    session.does(c.steps);
    EXPECT_EQ(session.table(), c.after.empty() ? before : "study," + c.after) << c.what;
    EXPECT_EQ(session.grid().cursor, c.cursor)
        << c.what << ": " << session.grid().cursor.row << ", " << session.grid().cursor.column;
    while (session.can("undo")) session.does("C-z");
    EXPECT_EQ(session.table(), before) << c.what;
  }
}

TEST_F(EditorWindow, SelectsAndCopiesBlocks) {
  Session session("study n1 n2\na 1 2\nb 3 NA\n%s<b> 5 6\n");
  session.does("(0,1) S-Down S-Right C-c");
  EXPECT_EQ(clipboard(), "1\t2\n3\tNA\n");
  session.click(2, 0).click(1, 1, GDK_BUTTON_PRESS, GDK_SHIFT_MASK).does("C-c");
  EXPECT_EQ(clipboard(), "b\t3\n%s<b>\t5\n");
  session.does("(1,-1) @copy_with_names");
  EXPECT_EQ(clipboard(), "study\tn1\tn2\nb\t3\tNA\n");
  session.does("C-a C-c");
  EXPECT_EQ(clipboard(), "a\t1\t2\nb\t3\tNA\n%s<b>\t5\t6\n");
  // Dragging stretches the selection until the button is released.
  session.click(0, 0).click(1, 1, GDK_MOTION_NOTIFY).click(1, 1, GDK_BUTTON_RELEASE);
  session.click(2, 2, GDK_MOTION_NOTIFY);
  EXPECT_EQ(grid_selection(session.grid()), (Cell_range{0, 0, 1, 1}));
}

TEST_F(EditorWindow, SelectsAndRenamesVariablesByTheirNames) {
  Session session("study,n1,n2\na,1,2\nb,3,4\n");
  session.click_name(1);
  EXPECT_EQ(grid_selection(session.grid()), (Cell_range{0, 1, 1, 1}));
  session.click_name(2, GDK_BUTTON_PRESS, GDK_SHIFT_MASK);
  EXPECT_EQ(grid_selection(session.grid()), (Cell_range{0, 1, 1, 2}));
  session.click_name(-1);
  EXPECT_EQ(grid_selection(session.grid()), (Cell_range{0, 0, 1, 2}));
  Dialog_driver user;
  user.then([&](Shown_dialog& dialog) {
    EXPECT_EQ(dialog.message(), "Rename variable");
    for (const char* name : {"n1", "a b", "NA", "a+b", "m"}) {
      GtkWidget* entry = gtk_window_get_focus(GTK_WINDOW(dialog.widget()));
      gtk_editable_select_region(GTK_EDITABLE(entry), 0, -1);
      dialog.type(name);
      GtkWidget* ok =
          gtk_dialog_get_widget_for_response(GTK_DIALOG(dialog.widget()), GTK_RESPONSE_OK);
      EXPECT_EQ(gtk_widget_get_sensitive(ok) != FALSE, std::string(name) == "m") << name;
    }
    dialog.key(GDK_KEY_Return);
  });
  session.click_name(2).click_name(2, GDK_2BUTTON_PRESS);
  EXPECT_EQ(session.table(), "study,n1,m\na,1,2\nb,3,4\n");
  user.answer({}, "Cancel");
  session.does("S-F2");
  EXPECT_EQ(user.waiting(), 0U);
}

TEST_F(EditorWindow, SaysWhereInAPaperAValueStands) {
  Session session(
      "study,threshold_t,threshold_p,peaks_per_cluster,peak_distance,cluster_extent,age,age\n");
  Dialog_driver user;
  std::string all;
  user.then([&](Shown_dialog& dialog) {
    gchar* text = nullptr;
    g_object_get(dialog.widget(), "secondary-text", &text, nullptr);
    all = Q_g_memory<char>(text).get();
    dialog.press("Close");
  });
  session.does("@listing");
  for (int column = 1; column <= 7; ++column) {
    GtkTreeViewColumn* shown = gtk_tree_view_get_column(session.grid().view, column + 1);
    const Q_g_memory<char> help(gtk_widget_get_tooltip_text(shown->button));
    if (column > 5)
      EXPECT_STREQ(help.get(), "Another variable has the same name.");
    else if (help == nullptr)
      ADD_FAILURE() << column;
    else
      EXPECT_THAT(all, HasSubstr(help.get()));
  }
}

TEST_F(EditorWindow, ShowsMarksAndGoesToThem) {
  write_text("a.peaks.txt", "# space: MNI\n");
  Session session("study,n1,n2\na,2,2\nb,x,4\n");
  EXPECT_EQ(session.status(), "The name of study 1");
  EXPECT_THAT(gtk_label_get_text(GTK_LABEL(session.editor().counts)),
              HasSubstr("2 studies, 3 variables, 2 marks"));
  session.does("F8");
  EXPECT_EQ(session.grid().cursor, (Cell_place{1, 0}));
  EXPECT_THAT(session.status(), HasSubstr("no peaks file 'b.peaks.txt'"));
  session.does("F8");
  EXPECT_EQ(session.status(),
            "The variable 'n1' of the study 'b': The sample size is not a whole number from 2 to "
            "1000000000.");
  session.does("'9' Up F8");
  EXPECT_EQ(session.grid().cursor, (Cell_place{1, 0}));
  // A file that appears meanwhile is seen when the window is looked at again.
  write_text("b.nii.gz", "");
  editor_recheck(session.editor());
  Session::settle();
  EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(session.editor().counts)), "2 studies, 3 variables");
}

TEST_F(EditorWindow, RefusesToSaveWhatTheFileCannotHold) {
  const std::string before = "study,n1\na,1\nb,2\n";
  Session session(before);
  session.does("Down 'Smith 2004' Return Up");
  Dialog_driver user;
  user.answer({}, "OK").answer({}, "Save").answer({}, "OK");
  session.does("C-s");
  EXPECT_THAT(user.messages(), ElementsAre("The table has not been saved."));
  EXPECT_EQ(read_text(FILE_NAME), before);
  EXPECT_EQ(session.grid().cursor, (Cell_place{1, 0}));
  Shown_dialog(session.editor().window).close();
  EXPECT_FALSE(session.editor().closed);
  session.does("@replace_separators C-s");
  EXPECT_EQ(read_text(FILE_NAME), "study,n1\na,1\nSmith_2004,2\n");
}

TEST_F(EditorWindow, AsksBeforeOverwritingAnotherProgramsChanges) {
  Session session("study,n1\na,1\n");
  const std::string theirs = "study,n1\na,7\n";
  write_text(FILE_NAME, theirs);
  Dialog_driver user;
  user.answer({}, "Cancel").answer({}, "Overwrite").answer({}, "Load again");
  session.does("'x' Return C-s");
  EXPECT_EQ(read_text(FILE_NAME), theirs);
  session.does("C-s");
  EXPECT_EQ(read_text(FILE_NAME), "study,n1\nx,1\n");
  write_text(FILE_NAME, theirs);
  session.does("'y' Return @reload");
  EXPECT_EQ(session.table(), theirs);
  EXPECT_FALSE(session.can("undo"));
}

TEST_F(EditorWindow, AsksAboutChangesWhenItIsClosed) {
  const std::string before = "study,n1\na,1\n";
  struct {
    const char* answer;  ///< null when nothing is asked
    bool closed;
    std::string file;
  } const cases[] = {{nullptr, true, before},
                     {"Cancel", false, before},
                     {"Don't save", true, before},
                     {"Save", true, "study,n1\nx,1\n"}};
  for (const auto& c : cases) {
    Session session(before);
    Dialog_driver user;
    if (c.answer != nullptr) {
      session.does("'x'");  // What is still being typed counts as a change.
      user.answer({}, c.answer);
    }
    Shown_dialog(session.editor().window).close();
    EXPECT_EQ(session.editor().closed, c.closed) << (c.answer ? c.answer : "no changes");
    EXPECT_EQ(read_text(FILE_NAME), c.file) << (c.answer ? c.answer : "no changes");
  }
}

/// The desktop's opener is a script here that writes down what it was given.
TEST_F(EditorWindow, OpensThePeaksFile) {
  write_text("xdg-open", "#!/bin/sh\necho \"$#:$1\" > opened\n");
  chmod("xdg-open", 0755);
  const char* programs = getenv("PATH");
  ASSERT_NE(programs, nullptr);
  const std::string old_path = programs;
  setenv("PATH", (folder_.path().string() + ":" + old_path).c_str(), 1);
  Session session("study,n1\n$(x)`y`,1\n");
  const std::string path = folder_.path().string() + "/$(x)`y`.peaks.txt";
  Dialog_driver user;
  user.answer({}, "Cancel").answer({}, "Make and open");
  session.does("C-p");
  EXPECT_FALSE(std::filesystem::exists(path));
  session.does("C-p");
  EXPECT_THAT(read_text(path), testing::StartsWith("# space: MNI\n"));
  EXPECT_TRUE(wait_until([] { return read_text("opened").ends_with('\n'); }));
  EXPECT_EQ(read_text("opened"), "1:" + path + "\n");
  // Without a program that opens it the user hears of it.
  write_text("xdg-open", "#!/bin/sh\nexit 3\n");
  user.answer({}, "OK");
  session.does("C-p");
  EXPECT_TRUE(wait_until([&] { return user.waiting() == 0; }));
  EXPECT_EQ(user.messages().back(), "The peaks file cannot be opened.");
  setenv("PATH", old_path.c_str(), 1);
}

TEST_F(EditorWindow, FollowsAVariableThatIsDragged) {
  Session session("study,n1,n2\na,1,2\n");
  GtkTreeView* view = session.grid().view;
  gtk_tree_view_move_column_after(view, gtk_tree_view_get_column(view, 3),
                                  gtk_tree_view_get_column(view, 0));
  Session::settle();
  EXPECT_EQ(session.table(), "n2,study,n1\n2,a,1\n");
  GtkWidget* label = gtk_tree_view_column_get_widget(gtk_tree_view_get_column(view, 1));
  EXPECT_STREQ(gtk_label_get_text(GTK_LABEL(label)), "n2");
  session.does("C-z");
  EXPECT_EQ(session.table(), "study,n1,n2\na,1,2\n");
}

TEST_F(EditorWindow, LeavesActionsOutThatNeedStudies) {
  Session session("study,n1\n");
  for (const char* action :
       {"cut", "copy", "clear", "remove_study", "sort_ascending", "open_peaks"})
    EXPECT_FALSE(session.can(action)) << action;
  EXPECT_THAT(session.status(), HasSubstr("Or type a study"));
  session.does("Delete Down Tab C-c");
  EXPECT_EQ(session.table(), "study,n1\n");
  session.does("'x' Return");
  EXPECT_EQ(session.table(), "study,n1\nNA,x\n");
  EXPECT_TRUE(session.can("remove_study"));
}

}  // namespace
