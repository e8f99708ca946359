#include "engine/base/command.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string_view>

#include "engine/base/refusal.h"
#include "engine/base/text_file.h"
#include "util/text.h"

namespace kvo::base {

namespace {

/// A name, a number or one of the characters ",", "=" and "+".
using Tokens = std::vector<std::string>;

constexpr std::string_view punctuation = ",=+";

bool is_punctuation(const std::string& token) {
  return token.size() == 1 && punctuation.find(token[0]) != std::string_view::npos;
}

Tokens tokens_of(const std::string& text) {
  Tokens tokens;
  bool in_word = false;
  for (const char c : text) {
    if (c == '"' || c == '\'') throw Refusal("A command cannot hold quotes: " + text + ".");
    if (c == ' ' || c == '\t' || c == '\n') {
      in_word = false;
    } else if (punctuation.find(c) != std::string_view::npos) {
      tokens.emplace_back(1, c);
      in_word = false;
    } else {
      if (!in_word) tokens.emplace_back();
      tokens.back() += c;
      in_word = true;
    }
  }
  return tokens;
}

[[noreturn]] void refuse_form(const Verb& verb, const std::string& what) {
  throw Refusal(what + ". The command is: " + grammar_of(verb) + " (example: " + verb.example +
                ").");
}

void check_range(const Verb& verb, const Argument& argument, const std::string& text) {
  const std::optional<double> value = number_of(text);
  const bool whole = argument.kind == Kind::whole;
  if (value && *value >= argument.least && *value <= argument.most &&
      (!whole || *value == std::floor(*value)))
    return;
  refuse_form(verb, "The " + std::string(argument.label) + " '" + text + "' is not a " +
                        (whole ? "whole " : "") + "number from " + text_of(argument.least) +
                        " to " + text_of(argument.most));
}

/// The variables of a model, separated by plus signs; a leading plus sign is allowed.
std::string checked_model(const Verb& verb, const Tokens& tokens) {
  std::string model;
  for (std::size_t i = tokens[0] == "+" ? 1 : 0; i < tokens.size() || model.empty(); i += 2) {
    const bool wants_more = i + 1 < tokens.size();
    if (i >= tokens.size() || is_punctuation(tokens[i]) ||
        (wants_more && (tokens[i + 1] != "+" || i + 2 == tokens.size())))
      refuse_form(verb, "The model is not a list of variables with '+' between them");
    model += (model.empty() ? "" : " + ") + tokens[i];
  }
  return model;
}

std::string checked_argument(const Verb& verb, const Argument& argument, const Tokens& tokens) {
  const std::string label = argument.label;
  if (tokens.empty()) {
    if (argument.optional) return "";
    refuse_form(verb, "The " + label + " is missing");
  }
  if (argument.kind == Kind::model) return checked_model(verb, tokens);
  // "+5" is a number, although a plus sign is a token of its own.
  const bool numeric = argument.kind == Kind::number || argument.kind == Kind::whole;
  const bool signed_number = numeric && tokens.size() == 2 && tokens[0] == "+";
  if (tokens.size() > 1 && !signed_number)
    refuse_form(verb, "'" + tokens[1] + "' is not expected after '" + tokens[0] + "'");
  const std::string& text = tokens.back();
  if (numeric) check_range(verb, argument, text);
  if (argument.kind == Kind::word && text != label)
    refuse_form(verb, "'" + label + "' is expected instead of '" + text + "'");
  if (argument.kind == Kind::name)
    if (const char* fault = Q_name_fault(text); fault != nullptr)
      refuse_form(verb, "The " + label + " '" + text + "' " + fault);
  return text;
}

/// The tokens between the commas.
std::vector<Tokens> split_arguments(std::span<const std::string> tokens) {
  std::vector<Tokens> arguments(1);
  for (const std::string& token : tokens) {
    if (token == ",")
      arguments.emplace_back();
    else
      arguments.back().push_back(token);
  }
  return arguments;
}

/// "Effect sizes: Hedges 1981; random effects: DerSimonian and Laird 1986, Raudenbush 2009."
std::string references_text(std::span<const Reference> references) {
  std::string text;
  for (const auto& [part, citations] : references) {
    text += (text.empty() ? "" : "; ") + std::string(part) + ": " + citations[0];
    if (citations[1] != nullptr) text += std::string(", ") + citations[1];
  }
  text[0] = char(std::toupper(static_cast<unsigned char>(text[0])));
  return text + ".";
}

const Verb& verb_of(const std::string& name, const std::vector<Tokens>& given,
                    std::span<const Verb> verbs) {
  const Verb* found = nullptr;
  for (const Verb& verb : verbs) {
    if (name != verb.name) continue;
    found = &verb;
    const bool by_word = !verb.arguments.empty() && verb.arguments[0].kind == Kind::word;
    if (!by_word || (given[0].size() == 1 && given[0][0] == verb.arguments[0].label)) return verb;
  }
  if (found != nullptr) {
    std::string forms;
    for (const Verb& verb : verbs)
      if (name == verb.name) forms += (forms.empty() ? "" : " or ") + grammar_of(verb);
    throw Refusal("The command '" + name + "' is: " + forms + ".");
  }
  std::string names;
  for (const Verb& verb : verbs)
    if (names.find(verb.name) == std::string::npos) names += std::string(", ") + verb.name;
  throw Refusal("'" + name + "' is not a command. The commands are: help" + names + ".");
}

}  // namespace

double Command::number(std::size_t argument) const {
  return number_of(arguments.at(argument)).value();
}

std::string Command::text() const {
  std::string text = name.empty() ? "" : name + " = ";
  text += verb->name;
  std::size_t used = arguments.size();
  while (used > 0 && arguments[used - 1].empty()) --used;
  for (std::size_t i = 0; i < used; ++i) text += (i == 0 ? " " : ", ") + arguments[i];
  return text;
}

Command parse_command(const std::string& text, std::span<const Verb> verbs) {
  const Tokens tokens = tokens_of(text);
  std::span<const std::string> left = tokens;
  if (left.empty()) throw Refusal("There is no command. Type help to see the commands.");
  Command command;
  if (left.size() > 1 && left[1] == "=") {
    command.name = left[0];
    left = left.subspan(2);
  }
  if (left.empty() || is_punctuation(left[0]) || is_punctuation(command.name))
    throw Refusal("'" + text + "' is not a command. Type help to see the commands.");
  const std::vector<Tokens> given = split_arguments(left.subspan(1));
  const Verb& verb = verb_of(left[0], given, verbs);
  command.verb = &verb;
  if (verb.needs_name && command.name.empty())
    refuse_form(verb, "'" + std::string(verb.name) + "' needs a name for its result");
  if (!verb.needs_name && !command.name.empty())
    refuse_form(verb, "'" + std::string(verb.name) + "' takes no name");
  if (const char* fault = Q_name_fault(command.name); verb.needs_name && fault != nullptr)
    throw Refusal("The name '" + command.name + "' " + fault + ".");
  if (given.size() > verb.arguments.size() && !(given.size() == 1 && given[0].empty()))
    refuse_form(verb, "'" + std::string(verb.name) + "' has too many arguments");
  for (std::size_t i = 0; i < verb.arguments.size(); ++i)
    command.arguments.push_back(
        checked_argument(verb, verb.arguments[i], i < given.size() ? given[i] : Tokens()));
  return command;
}

std::string grammar_of(const Verb& verb) {
  std::string grammar = verb.needs_name ? "NAME = " : "";
  grammar += verb.name;
  for (std::size_t i = 0; i < verb.arguments.size(); ++i) {
    const Argument& argument = verb.arguments[i];
    const std::string text = std::string(i == 0 ? "" : ", ") + argument.label;
    grammar += argument.optional ? " [" + text + "]" : (i == 0 ? " " : "") + text;
  }
  return grammar;
}

std::vector<std::string> help_lines(std::span<const Verb> verbs) {
  std::vector<std::string> lines;
  for (const Verb& verb : verbs) {
    lines.push_back(grammar_of(verb));
    lines.push_back(std::string("    ") + verb.summary);
    lines.push_back(std::string("    Example: ") + verb.example);
    if (*verb.needs != '\0') lines.push_back(std::string("    Needs ") + verb.needs);
    if (!verb.references.empty()) lines.push_back("    " + references_text(verb.references));
  }
  lines.push_back("A model is: variable + variable + ... (a plus sign may stand in front).");
  lines.push_back("A filter is a variable: the studies take part where it is not 0.");
  lines.push_back("Variables are columns of kvo_table.txt. They are yours to add and to name.");
  return lines;
}

}  // namespace kvo::base
