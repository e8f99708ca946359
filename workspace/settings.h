#pragma once

// The settings that are kept from one run to the next, in the installation's settings file.

#include "util/q_string.h"

/// The working folder, an absolute path; it is the current folder from start-up on.
extern Q_string kvo_s_user_dir;
/// "mricron", "fslview" or empty for no brain viewer.
extern Q_string kvo_s_brain_viewer;
/// Path of the brain viewer's executable; empty when it is not known.
extern Q_string kvo_s_brain_viewer_exe;

/// Path of the settings file.
Q_string kvo_settings_path();

/// Sets the brain viewer to "mricron", then takes over whatever settings the file has. A missing
/// file is not an error.
void kvo_load_kvo_ini();

/// Writes the settings, whole or not at all. The fatal error "File '%s' not writable" when the file
/// cannot be opened for writing; a console warning when the disk does not take it, and for each
/// setting that the file's format cannot hold.
void kvo_save_kvo_ini();
