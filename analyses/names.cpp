#include "analyses/names.h"

#include <algorithm>

#include "util/process.h"
#include "util/text.h"
#include "workspace/files/map_lists.h"

namespace {

/// Characters that separate the words of the command language, which has no quoting.
constexpr std::string_view NOT_IN_NAMES = " ,=+\"'";
/// Characters that the shell acts on anywhere in a word, including those that match file names.
constexpr std::string_view ACTING = "$`(){}[];&|<>\\*?";
/// Characters that it acts on only at the beginning of a word.
constexpr std::string_view ACTING_FIRST = "~#";
/// A file name that begins with one of these would be a hidden file or look like an option.
constexpr std::string_view NOT_FIRST_IN_FILE = ".-";

struct Named_character {
  char character;
  const char* name;
};
constexpr Named_character NAMED[] = {
    {'\n', "a line feed"}, {'\r', "a carriage return"}, {'\t', "a tab"}, {' ', "a blank"}};

bool holds(std::string_view set, char character) {
  return set.find(character) != std::string_view::npos;
}

std::string described(char character) {
  for (const Named_character& row : NAMED)
    if (row.character == character) return row.name;
  if (Q_is_control(character))
    return Q_format("the control character %i", static_cast<int>(character)).str();
  return Q_format("the character '%c'", character).str();
}

std::string refusal(std::string_view name, const std::string& fault) {
  const std::string text(name);
  return Q_format(
             "The name '%s' cannot be used in a command because it %s. Please change the name and "
             "try again.",
             text.c_str(), fault.c_str())
      .str();
}

std::string refusal(std::string_view name, const char* position, char character) {
  return refusal(name, std::string(position) + " " + described(character));
}

}  // namespace

std::string kvo_safe_name(std::string_view typed) {
  Q_string name(typed);
  Q_replace_escape(name);
  return name.str();
}

std::string kvo_name_refusal(std::string_view name) {
  for (const char character : name)
    if (holds(NOT_IN_NAMES, character) || Q_is_control(character))
      return refusal(name, "contains", character);
  return "";
}

std::string kvo_word(std::string_view name) {
  const bool acts = std::ranges::any_of(name, [](char c) { return holds(ACTING, c); }) ||
                    (!name.empty() && holds(ACTING_FIRST, name.front()));
  return acts ? Q_shell_quoted(name) : std::string(name);
}

std::string kvo_map_name_refusal(std::string_view name) {
  if (!kvo_is_negative_tail(name)) return "";
  return Q_format(
             "The name '%s' cannot be used: names that end with '_n' are kept for the negative "
             "tails of null distributions. Please change the name and try again.",
             std::string(name).c_str())
      .str();
}

std::string kvo_file_name_refusal(std::string_view name) {
  if (!name.empty() && holds(NOT_FIRST_IN_FILE, name.front()))
    return refusal(name, "begins with", name.front());
  if (holds(name, '/')) return refusal(name, "contains", '/');
  if (std::string reason = kvo_name_refusal(name); !reason.empty()) return reason;
  const char* fault = Q_name_fault(name);
  return fault != nullptr ? refusal(name, fault) : "";
}

std::string kvo_path_refusal(std::string_view path) {
  for (const char character : path)
    if (Q_is_control(character)) return refusal(path, "contains", character);
  return "";
}
