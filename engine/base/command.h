#pragma once

// The command language: what a verb is, and how the words of a command become one.

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace kvo::base {

struct Command;

/// What an argument may be.
enum class Kind {
  word,      ///< exactly the text of the argument's label
  name,      ///< a name of a map, mask or template
  variable,  ///< a column of the study table
  number,    ///< a number of the argument's range
  whole,     ///< a whole number of the argument's range
  file,      ///< the path of a file, without blanks
  model,     ///< [ "+" ] variable { "+" variable }
};

struct Argument {
  const char* label;
  Kind kind = Kind::name;
  bool optional = false;
  double least = 0, most = 0;
};

/// What help says of a part of a verb's method: where it is published.
struct Reference {
  const char* part;                      ///< "random effects"
  std::array<const char*, 2> citations;  ///< the second may be null
};

/// A verb in one form: its grammar, its help and what it does. A verb with several forms has an
/// entry for each; they differ in a word that the first argument is.
struct Verb {
  const char* name;
  bool needs_name;  ///< whether "NAME =" stands before it; if not, it may not
  std::span<const Argument> arguments;
  const char* summary;
  const char* example;
  const char* needs;  ///< what must be in the working folder for it, beyond the study files
  std::span<const Reference> references;
  /// Throws Refusal when the command cannot be carried out in the working folder.
  void (*check)(const Command&) = nullptr;
  /// Carries the command out.
  void (*run)(const Command&) = nullptr;
};

struct Command {
  const Verb* verb = nullptr;
  std::string name;  ///< what stands before "=", or ""
  /// One text for each argument of the verb, "" for those that were left out.
  std::vector<std::string> arguments;

  [[nodiscard]] double number(std::size_t argument) const;
  /// The command as it is written in the headers of images: the same text for every way to write
  /// the same command.
  [[nodiscard]] std::string text() const;
};

/// Parses a command. Throws Refusal, saying what is wrong and what would be right, when the text is
/// not one.
Command parse_command(const std::string& text, std::span<const Verb> verbs);

/// The grammar of a verb as help shows it: "NAME = mean [filter]".
std::string grammar_of(const Verb& verb);

/// The lines of text that explain the verbs, each with its grammar and an example.
std::vector<std::string> help_lines(std::span<const Verb> verbs);

}  // namespace kvo::base
