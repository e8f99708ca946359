#pragma once

// The suite laid out as an SPM toolbox: its files and the texts that it needs. Asks nothing; the
// dialogs around it are in integrations/spm_extension.h.

#include <functional>
#include <string>
#include <string_view>

/// Copies this installation (Qs_ProgramDir) into the folder "KVO" of `folder`, an absolute path.
/// Files that are there already are replaced, but for the settings file. Missing source files are a
/// fatal error before anything is written; a target that cannot be written is one at its turn. The
/// program folder is the current folder meanwhile and stays it. `after_file` is called after each
/// file.
void kvo_copy_toolbox(const char* folder, const std::function<void()>& after_file);

/// Writes the toolbox's Matlab function file, or a fatal error "File '%s' not writable".
void kvo_write_matlab_file(const char* folder);
/// Content of the Matlab function file.
std::string kvo_matlab_file_text();

/// Whether Matlab's command and the shell that Matlab starts the program with both take the path
/// for one word, as they get it without quotes.
bool kvo_is_plain_path(std::string_view path);
