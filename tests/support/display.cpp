#include "display.h"

#include <gtest/gtest.h>

#include "server.h"
#include "util/handles.h"

namespace {

constexpr gint64 PATIENCE_US = 60 * G_USEC_PER_SEC;

struct Free_event {
  void operator()(GdkEvent* event) const { gdk_event_free(event); }
};
using Event = std::unique_ptr<GdkEvent, Free_event>;

Event new_event(GdkEventType type, GdkWindow* window) {
  Event event(gdk_event_new(type));
  event->any.window = GDK_WINDOW(g_object_ref(window));
  return event;
}

void send_focus(GtkWidget* window, bool in) {
  const Event event = new_event(GDK_FOCUS_CHANGE, gtk_widget_get_window(window));
  event->focus_change.in = in ? TRUE : FALSE;
  gtk_main_do_event(event.get());
}

}  // namespace

bool wait_until(const std::function<bool()>& condition) {
  const gint64 end = g_get_monotonic_time() + PATIENCE_US;
  while (!condition()) {
    if (g_get_monotonic_time() > end) return false;
    if (g_main_context_iteration(nullptr, FALSE) == FALSE) g_usleep(1000);
  }
  return true;
}

void handle_display_events() {
  gdk_display_sync(gdk_display_get_default());
  while (const Event event{gdk_event_get()}) gtk_main_do_event(event.get());
}

void give_focus(GtkWidget* window) {
  if (gtk_window_is_active(GTK_WINDOW(window))) return;
  GList* windows = gtk_window_list_toplevels();
  for (GList* node = windows; node != nullptr; node = node->next)
    if (gtk_window_is_active(GTK_WINDOW(node->data))) send_focus(GTK_WIDGET(node->data), false);
  g_list_free(windows);
  send_focus(window, true);
}

void send_pointer(GdkWindow* window, GdkEventType type, int x, int y, int state) {
  const Event event = new_event(type, window);
  if (type == GDK_MOTION_NOTIFY) {
    event->motion.x = x;
    event->motion.y = y;
  } else if (type == GDK_ENTER_NOTIFY || type == GDK_LEAVE_NOTIFY) {
    event->crossing.x = x;
    event->crossing.y = y;
    event->crossing.mode = GDK_CROSSING_NORMAL;
    event->crossing.detail = GDK_NOTIFY_NONLINEAR;
  } else {
    event->button.x = x;
    event->button.y = y;
    event->button.button = 1;
    event->button.state = static_cast<guint>(state);
    event->button.device = gdk_device_get_core_pointer();
  }
  gtk_main_do_event(event.get());
}

std::vector<gulong> windows_of_property(const char* name) {
  GdkAtom type{};
  int format = 0;
  int length = 0;
  guchar* raw = nullptr;
  if (!gdk_property_get(gdk_get_default_root_window(), gdk_atom_intern(name, FALSE),
                        gdk_atom_intern("WINDOW", FALSE), 0, 4096, FALSE, &type, &format, &length,
                        &raw))
    return {};
  const Q_g_memory<guchar> value(raw);
  const auto* const windows = reinterpret_cast<const gulong*>(raw);
  return {windows, windows + static_cast<std::size_t>(length) / sizeof(gulong)};
}

void start_window_manager() {
  static const char* const command[] = {"openbox", "--sm-disable", nullptr};
  start_server(command);
  // It manages windows only some time after it has announced itself, and overlooks a window that is
  // shown in between: one is shown again and again until it is managed.
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  EXPECT_TRUE(wait_until([&, shown = gint64{0}]() mutable {
    if (!windows_of_property("_NET_CLIENT_LIST").empty()) return true;
    if (g_get_monotonic_time() > shown + G_USEC_PER_SEC / 4) {
      gtk_widget_hide(window);
      gtk_widget_show(window);
      shown = g_get_monotonic_time();
    }
    return false;
  })) << "openbox could not be started";
  gtk_widget_destroy(window);
  EXPECT_TRUE(wait_until([] { return windows_of_property("_NET_CLIENT_LIST").empty(); }));
}
