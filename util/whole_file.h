#pragma once

// Writing of a file whole or not at all.

#include <functional>
#include <string_view>

/// Writes the whole text. False, with errno set, after an error.
bool Q_write_all(int fd, std::string_view text);

/// Replaces a file, or creates it, by what `write` writes to the descriptor that it is given: a
/// temporary file beside it, which is flushed to the disk and then takes the file's name and mode,
/// so that a crash or a full disk leaves the old file. A symbolic link keeps pointing at its
/// target, which is what is replaced. False, with the file as it was and errno set, when any step
/// fails or `write` returns false.
bool Q_replace_file(const char* path, const std::function<bool(int fd)>& write);

/// Makes a file of a text that no crash or full disk leaves half written. False, with errno set,
/// when any step fails; it is EEXIST, with nothing changed, when the name is taken, be it by a link
/// that leads nowhere.
bool Q_create_whole(const char* path, std::string_view text);

/// Replaces the content of a file by a text, or creates it, as Q_replace_file does. Where the
/// folder takes no new file, an existing one that may be written is written in place. False, with
/// the content as it was and errno set, when any step fails.
bool Q_write_whole(const char* path, std::string_view text);
/// Whether Q_write_whole may write there, as far as can be told before it does.
bool Q_can_write_whole(const char* path);
/// Q_write_whole, or the fatal error "File '%s' not writable" when the file cannot be opened for
/// writing. False, with the content as it was and errno set, when the disk does not take the text:
/// it is full, or a limit or a quota is reached.
[[nodiscard]] bool Q_write_whole_or_die(const char* path, std::string_view text);
