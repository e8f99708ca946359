// The study-table editor: `kvo_edit FILE`.

#include <errno.h>
#include <gtk/gtk.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "companions/kvo_edit/editor.h"
#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/table_file.h"
#include "engine/base/refusal.h"
#include "engine/images/mask.h"
#include "kvo_config.h"
#include "resources/images.h"
#include "util/files.h"
#include "util/handles.h"

using namespace kvo::edit;

namespace {

constexpr const char* HELP =
    "Usage: kvo_edit FILE\n"
    "\n"
    "Edits a study table: a text file with a line for the names of the variables and a\n"
    "line for each study, its cells separated by tabs, blanks or commas. A file that\n"
    "does not exist is made when the table is saved.\n"
    "\n"
    "  --help     print this text and exit\n"
    "  --version  print the version and exit\n"
    "\n"
    "Exit status: 0 when the editor has been closed, 1 when it could not be opened.\n";

int fail(const std::string& reason) {
  std::fprintf(stderr, "kvo_edit: %s\n", reason.c_str());
  return 1;
}

/// A file of the installation that the program stands in.
std::string installed(const char* file) {
  const std::filesystem::path program = Q_started_program(program_invocation_name).str();
  return (program.parent_path() / "../.." / file).lexically_normal();
}

/// The look of the whole suite.
void take_over_look() {
  gtk_rc_add_default_file(installed("etc/kvo.gtkrc").c_str());
}

/// Where the brain is; nothing when the installation does not say it.
std::vector<bool> brain() {
  try {
    return read_mask(installed("share/mask_brain.nii.gz")).inside;
  } catch (const Refusal&) {
    return {};
  }
}

int run(const std::string& path) {
  const Q_object<GdkPixbuf> icon(kvo_image(image_kvo));
  gtk_window_set_default_icon(icon.get());
  try {
    const std::unique_ptr<Editor> editor = editor_open(open_document(path), brain());
    editor->example = installed("example/studies.csv");
    gtk_main();
    return 0;
  } catch (const Refusal& refusal) {
    say_failure(nullptr, "The table cannot be opened.", refusal.what());
    return fail(refusal.what());
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view argument = argv[i];
    if (argument == "--help" || argument == "-h") return std::fputs(HELP, stdout) < 0 ? 1 : 0;
    if (argument == "--version")
      return std::printf("kvo_edit (Quorvane) %.2f\n", KVO_VERSION) < 0 ? 1 : 0;
  }
  // Numbers have a full stop and texts are English, as everywhere in the suite.
  gtk_disable_setlocale();
  take_over_look();
  const bool has_display = gtk_init_check(&argc, &argv) != FALSE;
  const int first = argc > 1 && std::string_view(argv[1]) == "--" ? 2 : 1;
  if (argc != first + 1 || (first == 1 && argv[1][0] == '-'))
    return fail("one file is needed; see kvo_edit --help");
  if (!has_display) return fail("no display can be opened");
  return run(argv[first]);
}
