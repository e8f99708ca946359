#pragma once

// What the toolkit's log would show.

#include <glib.h>

#include <string>
#include <vector>

/// Collects the warnings and failed preconditions that are logged while it exists, which are then
/// not shown.
class Logged_warnings {
 public:
  Logged_warnings() : before_(g_log_set_default_handler(keep, this)) {}
  Logged_warnings(const Logged_warnings&) = delete;
  Logged_warnings& operator=(const Logged_warnings&) = delete;
  ~Logged_warnings() { g_log_set_default_handler(before_, nullptr); }

  std::vector<std::string> messages;

 private:
  static void keep(const gchar* /*domain*/, GLogLevelFlags /*level*/, const gchar* message,
                   gpointer self) {
    static_cast<Logged_warnings*>(self)->messages.emplace_back(message);
  }
  GLogFunc before_;
};
