#include "companions/kvo_edit/import_studies.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "companions/kvo_edit/columns_dialog.h"
#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/table_file.h"
#include "companions/kvo_edit/table_folder.h"
#include "engine/base/refusal.h"
#include "engine/formats/delimited.h"
#include "engine/formats/folder_studies.h"
#include "engine/formats/foreign_file.h"
#include "engine/formats/peaks_table.h"
#include "util/handles.h"
#include "util/text.h"
#include "workspace/files/file_names.h"

namespace kvo::edit {

namespace {

namespace fs = std::filesystem;

constexpr int TALAIRACH = 1;                    // an answer
constexpr const char* CLIPBOARD = "clipboard";  // in messages, where files have their names

std::optional<std::string> ask_file(GtkWidget* window, const fs::path& folder) {
  GtkWidget* dialog = gtk_file_chooser_dialog_new(
      "Import studies", GTK_WINDOW(window), GTK_FILE_CHOOSER_ACTION_OPEN, GTK_STOCK_CANCEL,
      GTK_RESPONSE_CANCEL, GTK_STOCK_OPEN, GTK_RESPONSE_ACCEPT, nullptr);
  gtk_dialog_set_default_response(GTK_DIALOG(dialog), GTK_RESPONSE_ACCEPT);
  gtk_file_chooser_set_current_folder(GTK_FILE_CHOOSER(dialog), folder.c_str());
  GtkFileFilter* filter = gtk_file_filter_new();
  gtk_file_filter_set_name(filter, "Tables, lists of foci, study sets");
  for (const char* pattern : {"*.csv", "*.tsv", "*.txt", "*.json", "*.CSV", "*.TSV", "*.TXT"})
    gtk_file_filter_add_pattern(filter, pattern);
  gtk_file_chooser_add_filter(GTK_FILE_CHOOSER(dialog), filter);
  std::optional<std::string> path;
  if (gtk_dialog_run(GTK_DIALOG(dialog)) == GTK_RESPONSE_ACCEPT) {
    const Q_g_memory<char> chosen(gtk_file_chooser_get_filename(GTK_FILE_CHOOSER(dialog)));
    if (chosen != nullptr) path = chosen.get();
  }
  gtk_widget_destroy(dialog);
  return path;
}

/// Reads studies, whose space is the one given where nothing says it.
using Reader = std::function<formats::NewStudies(Space)>;

/// The studies; nothing when the user is asked for their space and does not say it.
std::optional<formats::NewStudies> read_asking(GtkWidget* window, const Reader& read) {
  try {
    return read(Space::unknown);
  } catch (const formats::UnknownSpace&) {
    const int answer = ask(window, "In which space are the coordinates?",
                           "Nothing there says it. The paper's section on methods does: where it "
                           "names SPM or FSL and nothing else, it is MNI.",
                           {{GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL},
                            {"_Talairach", TALAIRACH},
                            {"_MNI", GTK_RESPONSE_ACCEPT}});
    if (answer == GTK_RESPONSE_CANCEL) return std::nullopt;
    return read(answer == TALAIRACH ? Space::talairach : Space::mni);
  }
}

/// What will happen, for the user to agree to.
bool agreed(GtkWidget* window, const formats::NewStudies& studies,
            const formats::ImportPlan& plan) {
  std::size_t peaks = 0;
  for (const formats::NewStudy* study : plan.added) peaks += study->peaks.peaks.size();
  std::string text;
  constexpr std::size_t MOST = 12;
  for (std::size_t i = 0; i < plan.added.size() && i < MOST; ++i)
    text += plan.added[i]->name + ": " +
            Q_counted(plan.added[i]->peaks.peaks.size(), "peak", "peaks") + ", " +
            name_of(plan.added[i]->peaks.space) + "\n";
  if (plan.added.size() > MOST)
    text += "... and " + std::to_string(plan.added.size() - MOST) + " more\n";
  if (plan.known > 0)
    text += "\n" + Q_counted(plan.known, "study is", "studies are") + " here already.";
  for (const std::string& remark : studies.remarks) text += "\n" + remark;
  const std::string question = "Import " + Q_counted(plan.added.size(), "study", "studies") +
                               " with " + Q_counted(peaks, "peak", "peaks") + "?";
  return ask(window, question, text,
             {{GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL}, {"_Import", GTK_RESPONSE_ACCEPT}}) ==
         GTK_RESPONSE_ACCEPT;
}

/// Whether the table's file has been changed.
bool import_read(Editor& editor, const Reader& read) {
  const auto studies = read_asking(editor.window, read);
  if (!studies) return false;
  const Table_folder folder(editor.document.path);
  const formats::ImportPlan plan = formats::import_plan(*studies);
  if (plan.added.empty()) throw Refusal("All of these studies are in the table already.");
  if (!agreed(editor.window, *studies, plan)) return false;
  // The table may have changed while the user was reading.
  formats::write_import(formats::import_plan(*studies));
  return true;
}

/// Whether the file agrees with the table, after asking to save it.
bool saved_before(Editor& editor) {
  if (!has_changes(editor.document)) return true;
  return ask(editor.window, "Save the table before studies are imported?",
             "They are added to the table's file.",
             {{GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL}, {GTK_STOCK_SAVE, GTK_RESPONSE_ACCEPT}}) ==
             GTK_RESPONSE_ACCEPT &&
         editor_save(editor);
}

/// What the columns of a table hold, as the user agrees; nothing when cancelled.
std::optional<std::vector<formats::Role>> agreed_columns(Editor& editor, const std::string& path,
                                                         const std::string& text) {
  const formats::Delimited table = formats::delimited_of(path, text);
  if (table.rows.empty()) throw Refusal("'" + path + "' is empty.");
  return ask_columns(editor.window, table);
}

Reader reader_of_file(Editor& editor, const std::string& path) {
  if (formats::file_kind(path) == formats::FileKind::bundle)
    throw Refusal("A bundle is unpacked in an empty folder: type 'import " + path +
                  "' into the command field there.");
  std::vector<formats::Role> roles;
  if (const std::optional<std::string> text = formats::text_of_table(path)) {
    const auto agreed = agreed_columns(editor, path, *text);
    if (!agreed) return nullptr;
    roles = *agreed;
  }
  return [path, roles](Space space) { return formats::read_foreign(path, space, roles); };
}

/// Imports what the source gives to read, unless it gives nothing.
void import_by(Editor& editor, const std::function<Reader()>& source) {
  try {
    if (fs::path(editor.document.path).filename() != KVO_TABLE_FILE)
      throw Refusal("Studies can be imported into the table of a meta-analysis alone, '" +
                    std::string(KVO_TABLE_FILE) + "'.");
    if (!saved_before(editor)) return;
    const Reader read = source();
    if (!read || !import_read(editor, read)) return;
    editor.document = open_document(editor.document.path);
  } catch (const Refusal& refusal) {
    say_failure(editor.window, "The studies have not been imported.", refusal.what());
  }
  editor_refresh(editor);
  editor_recheck(editor);
}

}  // namespace

void import_studies(Editor& editor) {
  import_by(editor, [&]() -> Reader {
    const std::optional<std::string> path =
        ask_file(editor.window, fs::absolute(editor.document.path).parent_path());
    return path ? reader_of_file(editor, *path) : nullptr;
  });
}

void import_pasted_studies(Editor& editor) {
  import_by(editor, [&]() -> Reader {
    std::string text = clipboard_text();
    if (text.empty())
      throw Refusal("The clipboard holds no text. Copy the cells of a spreadsheet first.");
    const auto roles = agreed_columns(editor, CLIPBOARD, text);
    if (!roles) return nullptr;
    return [block = std::move(text), roles = *roles](Space space) {
      return formats::new_studies(formats::table_studies(CLIPBOARD, block, roles), CLIPBOARD,
                                  space);
    };
  });
}

void import_example(Editor& editor) {
  import_by(editor, [&]() -> Reader {
    if (!fs::exists(editor.example))
      throw Refusal("The example has not been installed: '" + editor.example + "' is missing.");
    const std::string path = editor.example;
    return [path](Space space) { return formats::read_foreign(path, space); };
  });
}

bool names_coordinates(const std::string& block) {
  try {
    const formats::Delimited table = formats::delimited_of(CLIPBOARD, block);
    if (table.rows.empty()) return false;
    const std::vector<formats::Role> roles = formats::guessed_roles(table.rows.front().cells);
    return std::ranges::count(roles, formats::Role::x) == 1 &&
           std::ranges::count(roles, formats::Role::y) == 1 &&
           std::ranges::count(roles, formats::Role::z) == 1;
  } catch (const Refusal&) {
    return false;
  }
}

bool names_studies(std::vector<std::string>& cells) {
  const std::vector<formats::Role> roles = formats::guessed_roles(cells);
  if (std::ranges::count(roles, formats::Role::study) != 1) return false;
  for (std::size_t c = 0; c < cells.size(); ++c)
    for (const auto& [role, name] :
         {std::pair{formats::Role::study, "study"}, std::pair{formats::Role::n1, "n1"},
          std::pair{formats::Role::n2, "n2"}})
      if (roles[c] == role) cells[c] = name;
  return true;
}

}  // namespace kvo::edit
