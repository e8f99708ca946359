// What the lines of the engine's stream mean.

#include "shell/engine_output.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(EngineEvent, IsToldByHowTheLineBegins) {
  struct Case {
    std::string line;
    Engine_line kind;
    std::string text;
    bool closes;
  };
  const Case cases[] = {
      {"", Engine_line::empty, "", false},
      {"d", Engine_line::done, "", true},
      {"done", Engine_line::done, "one", true},
      {"WARNING: No maps.", Engine_line::failed, "No maps.", true},
      {"WARNING", Engine_line::failed, "", true},
      {"WARNING:", Engine_line::failed, "", true},
      {"WARNING: ", Engine_line::failed, "", true},
      {"WARNINGxyz", Engine_line::failed, "z", true},
      {"wNo maps.", Engine_line::warning, "No maps.", true},
      {"w", Engine_line::warning, "", true},
      {"warning", Engine_line::warning, "arning", true},
      {"WARNIN", Engine_line::output, "WARNIN", false},
      {"Warning", Engine_line::output, "Warning", false},
      {"aReading", Engine_line::action, "Reading", false},
      {"a", Engine_line::action, "", false},
      {".", Engine_line::dot, "", false},
      {"..", Engine_line::dot, ".", false},
      {"cby the user", Engine_line::cancelled, "by the user", false},
      {"o", Engine_line::ok, "", false},
      {"ok", Engine_line::ok, "k", false},
      {" d", Engine_line::output, " d", false},
      {"D", Engine_line::output, "D", false},
      {"%s", Engine_line::output, "%s", false},
      {std::string("\0d", 2), Engine_line::output, std::string("\0d", 2), false},
  };
  for (const Case& c : cases) {
    const Engine_event event = Q_engine_event(c.line);
    EXPECT_EQ(event.kind, c.kind) << "'" << c.line << "'";
    EXPECT_EQ(event.text, c.text) << "'" << c.line << "'";
    EXPECT_EQ(event.closes(), c.closes) << "'" << c.line << "'";
  }
}

}  // namespace
