#include "companions/kvo_edit/peaks_opener.h"

#include <filesystem>

#include "companions/kvo_edit/editor_dialogs.h"
#include "companions/kvo_edit/grid_edit.h"
#include "companions/kvo_edit/peaks.h"
#include "engine/base/refusal.h"
#include "util/handles.h"

namespace kvo::edit {

namespace {

constexpr const char* OPENER = "xdg-open";

/// What becomes of the opener is known long after it was started.
struct Started {
  GtkWidget* window;
  std::string path;
};

void on_ended(GPid pid, int status, gpointer data) {
  const std::unique_ptr<Started> started(static_cast<Started*>(data));
  g_spawn_close_pid(pid);
  GtkWidget*& window = started->window;
  if (window == nullptr) return;
  g_object_remove_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&window));
  if (status != 0)
    say_failure(window, "The peaks file cannot be opened.",
                std::string("The desktop (") + OPENER + ") has no program that opens '" +
                    shown_text(started->path) + "'.");
}

void open_with_desktop(GtkWidget* window, const std::string& path) {
  const char* const arguments[] = {OPENER, path.c_str(), nullptr};
  GPid pid = 0;
  GError* raw_error = nullptr;
  const gboolean done = g_spawn_async(nullptr, const_cast<char**>(arguments), nullptr,
                                      GSpawnFlags(G_SPAWN_SEARCH_PATH | G_SPAWN_DO_NOT_REAP_CHILD),
                                      nullptr, nullptr, &pid, &raw_error);
  const Q_g_error error(raw_error);
  if (done == FALSE)
    throw Refusal(std::string("'") + OPENER + "' cannot be started: " + error->message);
  auto* started = new Started{window, path};
  g_object_add_weak_pointer(G_OBJECT(window), reinterpret_cast<gpointer*>(&started->window));
  g_child_watch_add(pid, on_ended, started);
}

}  // namespace

void offer_and_open_peaks(GtkWidget* window, const std::string& path) {
  std::error_code ignored;
  if (!std::filesystem::exists(path, ignored)) {
    const std::string name = std::filesystem::path(path).filename();
    if (ask(window, "Make the file '" + name + "'?",
            "The study has no peaks file yet. The new one will have no peaks, which means that the "
            "study found nothing, until you add them.",
            {{GTK_STOCK_CANCEL, GTK_RESPONSE_CANCEL}, {"_Make and open", GTK_RESPONSE_ACCEPT}}) !=
        GTK_RESPONSE_ACCEPT)
      return;
    create_peaks_file(path);
  }
  open_with_desktop(window, path);
}

}  // namespace kvo::edit
