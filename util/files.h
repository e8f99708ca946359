#pragma once

// File operations by formatted path. The quiet ones report a failure by their result or not at all;
// the `_or_die` ones end the program through Q_error.

#include <string>
#include <vector>

#include "util/handles.h"
#include "util/q_string.h"

/// Absolute path, without a final slash, of the folder that holds the program and its companions.
extern Q_string Qs_ProgramDir;
/// The installation root: absolute path of the folder two levels above the program folder.
extern Q_string kvo_s_dir;

/// Names and other texts, each stored at its exact length.
using Q_string_list = std::vector<std::string>;

/// 1 when the path names an existing entry (file or folder) of a folder that can be listed, else 0.
/// Exact byte comparison; the path is split at its last slash or backslash.
[[gnu::format(printf, 1, 2)]] int Q_file_exists(const char* format, ...);
/// Exactly Q_file_exists: no search along PATH, no test of the execute permission.
[[gnu::format(printf, 1, 2)]] int Q_program_exists(const char* format, ...);

/// Opens a regular file for reading; null when that fails.
[[gnu::format(printf, 1, 2)]] Q_file Q_openr(const char* format, ...);
/// Opens for writing, creating or emptying the file; null when that fails.
[[gnu::format(printf, 1, 2)]] Q_file Q_openw(const char* format, ...);
/// Q_openr, or the fatal error "File '%s' not found".
[[gnu::format(printf, 1, 2)]] Q_file Q_openr_or_die(const char* format, ...);
/// Q_openw, or the fatal error "File '%s' not writable".
[[gnu::format(printf, 1, 2)]] Q_file Q_openw_or_die(const char* format, ...);
/// Opens a gzip-compressed or plain regular file for reading, or the fatal error "Compressed file
/// '%s' not found".
[[gnu::format(printf, 1, 2)]] Q_gz_file Q_openr_gz_or_die(const char* format, ...);

/// Removes a file; a failure is ignored.
[[gnu::format(printf, 1, 2)]] void Q_rm(const char* format, ...);
/// Makes a folder with mode 0755 less the umask; a failure is ignored.
[[gnu::format(printf, 1, 2)]] void Q_mkdir(const char* format, ...);
/// Enters a folder; a failure is ignored.
[[gnu::format(printf, 1, 2)]] void Q_chdir(const char* format, ...);
/// Enters a folder, or the fatal error "Folder '%s' not found".
[[gnu::format(printf, 1, 2)]] void Q_chdir_or_die(const char* format, ...);
/// Sets the mode to exactly 0755; a failure is ignored.
[[gnu::format(printf, 1, 2)]] void Q_chmod_x(const char* format, ...);

/// Copies the regular file `source` (a plain path) byte for byte to the formatted path, whole or
/// not at all: the copy gets its name once it is complete, so a running program is never written
/// over. A source or target that cannot be opened, read or written is a fatal error. Copying a file
/// onto itself does nothing.
[[gnu::format(printf, 2, 3)]] void Q_cp(const char* source, const char* format, ...);

/// Stores in `list` the names of the folder's entries that begin with the prefix and end with the
/// suffix, in ascending byte order, and returns their number. 0, with the list untouched, when the
/// folder cannot be listed. Hidden entries, "." and ".." are treated like any other name.
int Q_ls(Q_string_list& list, const char* folder, const char* prefix, const char* suffix);

/// Stores the absolute path of the current folder.
void Q_getdir(Q_string& folder);

/// From the path by which the program was started, fills Qs_ProgramDir and stores the installation
/// root in `root`. The current folder is the same afterwards. A folder that cannot be entered is a
/// fatal error.
void Q_getprogdir(Q_string& root, const char* program_path);

/// The path to give to Q_getprogdir, from the program's first command-line word: the word itself,
/// unless it was found along PATH (it has no slash) or is a symbolic link outside an installation;
/// then it is the path of the running program's own file. A link inside an installation is kept:
/// that is how users who share one set of programs each have a root and settings of their own.
Q_string Q_started_program(const char* first_word);
