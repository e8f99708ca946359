#pragma once

// The format of the settings file: lines "key = value" of three known keys. A value cannot hold "="
// or a run of white space, nor be empty.

#include <string>
#include <string_view>
#include <vector>

#include "util/q_string.h"

/// The platform that the program is made for; names the settings file and the folder of programs.
inline constexpr const char* KVO_PLATFORM = "linux64";

struct Kvo_settings {
  Q_string working_directory;
  Q_string brain_viewer;
  Q_string brain_viewer_executable;
};

/// Stores the values that the content has; the last one of a key counts. Other settings, and lines
/// that are not of this format, are left alone.
void kvo_read_settings(std::string_view content, Kvo_settings& settings);

/// The content of the settings file: always the three lines and an empty one. A byte that would end
/// a line is written as a blank.
std::string kvo_settings_text(const Kvo_settings& settings);

/// A setting that the file does not give back as it was.
struct Kvo_lost_setting {
  const char* key;
  Q_string value;
  Q_string read_back;  ///< what the next start makes of it
};
/// The settings that the file cannot hold. An empty one does not count: it is how a setting that
/// was never made looks.
std::vector<Kvo_lost_setting> kvo_lost_settings(const Kvo_settings& settings);
