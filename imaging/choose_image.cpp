#include "imaging/choose_image.h"

#include <gtk/gtk.h>

#include "dialogs/frame.h"
#include "dialogs/help.h"
#include "dialogs/input.h"
#include "util/files.h"

namespace {

constexpr int HELP_BUTTON_PADDING = 10;

struct Kind {
  const char* pattern;
  const char* name;
};
constexpr Kind KINDS[] = {
    {"*.nii.gz", "NIfTI compressed"}, {"*.nii", "NIfTI"}, {"*.hdr", "NIfTI pair"}};
constexpr const char* PATTERNS[] = {KINDS[0].pattern, KINDS[1].pattern, KINDS[2].pattern};

void add_filter(GtkFileChooser* chooser, const std::string& name,
                std::span<const char* const> patterns) {
  GtkFileFilter* filter = gtk_file_filter_new();
  gtk_file_filter_set_name(filter, name.c_str());
  for (const char* pattern : patterns) gtk_file_filter_add_pattern(filter, pattern);
  gtk_file_chooser_add_filter(chooser, filter);
}

void add_help_button(GtkWidget* dialog) {
  GtkWidget* button = Q_input_new_button("Help", Q_show_help, GTK_STOCK_HELP, "");
  gtk_box_pack_start(GTK_BOX(gtk_dialog_get_content_area(GTK_DIALOG(dialog))), button, FALSE, FALSE,
                     HELP_BUTTON_PADDING);
  gtk_widget_show(button);
}

}  // namespace

std::string kvo_filter_name(const char* pattern) {
  const char* name = "[unknown type]";
  for (const Kind& kind : KINDS)
    if (g_str_equal(kind.pattern, pattern)) name = kind.name;
  return Q_format("%s files (%s)", name, pattern).str();
}

std::string kvo_all_filter_name(std::span<const char* const> patterns) {
  std::string name = "All supported files (";
  for (const char* pattern : patterns)
    name.append(pattern == patterns.front() ? "" : ", ").append(pattern);
  return name + ")";
}

std::optional<std::string> kvo3_choose_image() {
  Q_dialog dialog(gtk_file_chooser_dialog_new(
      "Select a NIfTI file", nullptr, GTK_FILE_CHOOSER_ACTION_OPEN, GTK_STOCK_CANCEL,
      GTK_RESPONSE_CANCEL, GTK_STOCK_OPEN, GTK_RESPONSE_OK, nullptr));
  GtkFileChooser* chooser = GTK_FILE_CHOOSER(dialog.get());
  add_help_button(dialog.get());
  add_filter(chooser, kvo_all_filter_name(PATTERNS), PATTERNS);
  for (const char* const& pattern : PATTERNS)
    add_filter(chooser, kvo_filter_name(pattern), {&pattern, 1});
  Q_string folder;
  Q_getdir(folder);
  gtk_file_chooser_set_current_folder(chooser, folder.c_str());
  if (!dialog.run()) return std::nullopt;
  Q_string path;
  Q_input_get_file(dialog.get(), path);
  return path.empty() ? std::nullopt : std::optional(path.str());
}
