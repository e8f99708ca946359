#pragma once

// Reading of whole files that anybody may have made. Only regular files, and links to them, are
// read: nothing waits for the other end of a named pipe, and no device fills the memory.

#include <sys/types.h>

#include <cstddef>
#include <optional>
#include <string>

#include "util/handles.h"

/// The largest text file that is read: 64 MiB.
inline constexpr std::size_t Q_TEXT_FILE_MAX = std::size_t{64} << 20;

/// Why a file was not read.
struct Q_read_fault {
  int open_error = 0;  ///< of the system, when the file could not be opened
  std::string text;  ///< to follow the file's name: "cannot be opened: No such file or directory",
                     ///< "is not a regular file", "is larger than 64 MiB", "cannot be read: ..."
};

/// Opens a regular file for reading. None, with the fault set, when that fails.
Q_fd Q_open_regular(const char* path, Q_read_fault& fault);

/// read() of up to `size` bytes, repeated when a signal interrupts it: 0 at the end of the file, -1
/// with errno set after an error.
ssize_t Q_read_some(int fd, char* to, std::size_t size);

/// The whole content of a regular file of at most `limit` bytes, which are whole MiB. None, with
/// the fault set, when it cannot be read.
std::optional<std::string> Q_read_file(const char* path, std::size_t limit, Q_read_fault& fault);

/// The content of a text file without the UTF-8 byte order mark that it may begin with. None, with
/// the fault set, when it cannot be read or is larger than Q_TEXT_FILE_MAX.
std::optional<std::string> Q_read_text(const char* path, Q_read_fault& fault);
/// Q_read_text for callers that do not need the reason.
std::optional<std::string> Q_read_text(const char* path);
/// The fatal error for a file that was not read: "File '%s' not found" when it could not be opened,
/// and otherwise one with the whole path that says why.
[[noreturn]] void Q_die_of_read_fault(const char* path, const Q_read_fault& fault);
/// Q_read_text, or that fatal error.
std::string Q_read_text_or_die(const char* path);
