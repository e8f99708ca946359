#pragma once

// The console's two panes and a command entry in a window, put together as the main window does,
// and an installation whose engine a test writes itself.

#include <gtk/gtk.h>

#include <filesystem>
#include <string>

#include "shell/command_runner.h"
#include "shell/console.h"
#include "shell/window.h"
#include "test_folder.h"
#include "util/files.h"
#include "util/handles.h"

/// Shows the window while it exists; one at a time.
class Test_panes {
 public:
  Test_panes() {
    Qw_Window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
    g_signal_connect(Qw_Window, "destroy", G_CALLBACK(gtk_widget_destroyed), &Qw_Window);
    gtk_window_set_default_size(GTK_WINDOW(Qw_Window), 800, 600);
    GtkWidget* paned = gtk_vpaned_new();
    for (std::size_t pane = 0; pane < 2; ++pane) {
      GtkWidget* frame = Q_new_pane(pane, pane == 1);
      if (pane == 0) gtk_widget_set_size_request(frame, -1, 350);
      if (pane == 0) gtk_paned_add1(GTK_PANED(paned), frame);
      if (pane == 1) gtk_paned_add2(GTK_PANED(paned), frame);
    }
    combo_box_ = gtk_combo_box_entry_new_text();
    kvo3_connect_entry(entry());
    GtkWidget* box = gtk_vbox_new(FALSE, 0);
    gtk_box_pack_start(GTK_BOX(box), paned, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(box), combo_box_, FALSE, FALSE, 0);
    gtk_container_add(GTK_CONTAINER(Qw_Window), box);
    gtk_widget_show_all(Qw_Window);
    Q_process_events();
  }
  Test_panes(const Test_panes&) = delete;
  Test_panes& operator=(const Test_panes&) = delete;
  ~Test_panes() {
    if (Qw_Window != nullptr) gtk_widget_destroy(Qw_Window);
    Q_process_events();
  }

  [[nodiscard]] GtkWidget* combo_box() const { return combo_box_; }
  [[nodiscard]] GtkWidget* entry() const { return gtk_bin_get_child(GTK_BIN(combo_box_)); }

 private:
  GtkWidget* combo_box_ = nullptr;
};

/// The whole text of a pane.
inline std::string pane_text(std::size_t pane) {
  GtkTextIter start;
  GtkTextIter end;
  gtk_text_buffer_get_bounds(Qw_v_OutputBuffer.at(pane), &start, &end);
  const Q_g_memory<char> text(
      gtk_text_buffer_get_text(Qw_v_OutputBuffer.at(pane), &start, &end, FALSE));
  return text.get();
}

inline void clear_pane(std::size_t pane) {
  gtk_text_buffer_set_text(Qw_v_OutputBuffer.at(pane), "", 0);
}

/// A program folder whose name asks for proper quoting, and makes it the one that engines are
/// started from.
inline std::filesystem::path make_program_folder(const std::filesystem::path& root) {
  std::filesystem::path folder = root / "it's \"bin\" $HOME `x` \\" / "linux 64";
  std::filesystem::create_directories(folder);
  Qs_ProgramDir = Q_string(folder.string());
  return folder;
}

inline void write_program(const std::filesystem::path& path, const std::string& text) {
  // Written under another name, so that no process that starts meanwhile holds it open for writing.
  const std::filesystem::path draft = path.string() + ".draft";
  write_text(draft, text);
  std::filesystem::permissions(draft, std::filesystem::perms(0755));
  std::filesystem::rename(draft, path);
}
