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
  word,      ///< the literal text of the argument's label
  name,      ///< a name of a map, mask or template
  variable,  ///< a column of the study table
  number,    ///< a number in the argument's range
  whole,     ///< a whole number in the argument's range
  file,      ///< the path of a file, without blanks
  model,     ///< [ "+" ] variable { "+" variable }
};

struct Argument {
  const char* label;
  Kind kind = Kind::name;
  bool optional = false;
  double least = 0, most = 0;
};

/// Where a part of a verb's method was published, for help to cite.
struct Reference {
  const char* part;                      ///< "random effects"
  std::array<const char*, 2> citations;  ///< the second may be null
};

/// One form of a verb: its grammar, its help and what it does. A verb with several forms has an
/// entry for each; they differ in the word that is their first argument.
struct Verb {
  const char* name;
  bool needs_name;  ///< whether "NAME =" must precede it; otherwise it must not
  std::span<const Argument> arguments;
  const char* summary;
  const char* example;
  const char* needs;  ///< what the working folder must hold besides the study files
  std::span<const Reference> references;
  /// Throws Refusal when the command cannot be carried out in the working folder.
  void (*check)(const Command&) = nullptr;
  /// Carries the command out.
  void (*run)(const Command&) = nullptr;
};

struct Command {
  const Verb* verb = nullptr;
  std::string name;  ///< the name before "=", or ""
  /// One text for each argument of the verb, "" for those left out.
  std::vector<std::string> arguments;

  [[nodiscard]] double number(std::size_t argument) const;
  /// The command as image headers record it: the same text however the command was typed.
  [[nodiscard]] std::string text() const;
};

/// Parses a command. Throws Refusal, saying what is wrong and what would be right, when the text is
/// not a command.
Command parse_command(const std::string& text, std::span<const Verb> verbs);

/// The grammar of a verb as help shows it: "NAME = mean [filter]".
std::string grammar_of(const Verb& verb);

/// The lines of text that explain the verbs, each with its grammar and an example.
std::vector<std::string> help_lines(std::span<const Verb> verbs);

}  // namespace kvo::base
