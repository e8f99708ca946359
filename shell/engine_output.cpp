#include "shell/engine_output.h"

namespace {

struct Rule {
  std::string_view begins;
  Engine_line kind;
  std::size_t skipped;  // characters in front of the text
};
constexpr Rule RULES[] = {
    {"d", Engine_line::done, 1},    {"WARNING", Engine_line::failed, 9},
    {"w", Engine_line::warning, 1}, {"a", Engine_line::action, 1},
    {".", Engine_line::dot, 1},     {"c", Engine_line::cancelled, 1},
    {"o", Engine_line::ok, 1},
};

}  // namespace

Engine_event Q_engine_event(std::string_view line) {
  if (line.empty()) return {Engine_line::empty, line};
  for (const Rule& rule : RULES)
    if (line.starts_with(rule.begins))
      return {rule.kind, line.size() > rule.skipped ? line.substr(rule.skipped) : ""};
  return {Engine_line::output, line};
}
