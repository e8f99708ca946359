#pragma once

// The external brain viewers that the settings can name.

#include <cstddef>
#include <span>

struct Brain_viewer {
  const char* stored_name;  ///< as in the settings file
  const char* shown_name;
  const char* standard_executable;
  const char* found_message;    ///< markup with one "%s", the executable
  const char* missing_message;  ///< markup
};

/// All viewers, in the order in which the settings dialog lists them behind "(disabled)".
std::span<const Brain_viewer> kvo_brain_viewers();

/// When the chosen viewer's executable does not exist: adopts the standard one, saves the settings
/// and says so, or warns that there is none. A chosen name that is none of the viewers' means no
/// viewer.
void kvo3_check_brain_viewer();
/// The same among the given viewers.
void kvo_check_brain_viewer(std::span<const Brain_viewer> viewers);
