#pragma once

// JSON that is written for other programs.

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "engine/formats/formats_layer.h"

namespace kvo::formats {

struct JsonValue;
using JsonList = std::vector<JsonValue>;
/// In the order in which they are to stand.
using JsonMembers = std::vector<std::pair<std::string, JsonValue>>;

struct JsonValue {
  std::variant<std::string, double, JsonList, JsonMembers> value;
};

/// The object's text, a line for each value. What is not UTF-8 becomes U+FFFD.
std::string json_text(const JsonMembers& members);

}  // namespace kvo::formats
