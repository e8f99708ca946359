// What the lines of the engine's stream mean.

#include "shell/engine_output.h"

#include <string>

#include "each.h"

namespace {

TEST(EngineEvent, IsToldByHowTheLineBegins) {
  using Event = std::tuple<Engine_line, std::string, bool>;
  const std::string zero("\0d", 2);
  expect_each<std::string, Event>(
      [](const std::string& line) {
        const Engine_event event = Q_engine_event(line);
        return Event(event.kind, event.text, event.closes());
      },
      {{"", {Engine_line::empty, "", false}},
       {"d", {Engine_line::done, "", true}},
       {"done", {Engine_line::done, "one", true}},
       {"WARNING: No maps.", {Engine_line::failed, "No maps.", true}},
       {"WARNING:", {Engine_line::failed, "", true}},
       {"WARNINGxyz", {Engine_line::failed, "z", true}},
       {"wNo maps.", {Engine_line::warning, "No maps.", true}},
       {"WARNIN", {Engine_line::output, "WARNIN", false}},
       {"aReading", {Engine_line::action, "Reading", false}},
       {"..", {Engine_line::dot, ".", false}},
       {"cby the user", {Engine_line::cancelled, "by the user", false}},
       {"ok", {Engine_line::ok, "k", false}},
       {" d", {Engine_line::output, " d", false}},
       {"D", {Engine_line::output, "D", false}},
       {zero, {Engine_line::output, zero, false}}});
}

}  // namespace
