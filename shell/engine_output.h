#pragma once

// The engine's progress stream: what its lines mean. Needs no window and no process.

#include <string_view>

/// The kinds of lines that the engine writes, each told by how the line begins.
enum class Engine_line { empty, done, failed, warning, action, dot, cancelled, ok, output };

struct Engine_event {
  Engine_line kind;
  std::string_view text;  ///< what the console shows of the line; a part of the line itself

  /// Whether the run has ended with this line.
  [[nodiscard]] bool closes() const {
    return kind == Engine_line::done || kind == Engine_line::failed || kind == Engine_line::warning;
  }
};

/// What a line (without its line end) of the stream means: "d" done, "WARNING" failed, "w" warning,
/// "a" an action begins, "." progress, "c" cancelled, "o" the action is done, anything else output.
Engine_event Q_engine_event(std::string_view line);
