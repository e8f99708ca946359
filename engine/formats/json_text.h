#pragma once

// JSON that is written for other programs.

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "engine/formats/formats_layer.h"

namespace kvo::formats {

/// An object of texts, in the order in which they are written.
using JsonTexts = std::vector<std::pair<std::string, std::string>>;

struct JsonMember {
  std::string name;
  std::variant<std::string, std::vector<std::string>, JsonTexts, std::vector<JsonTexts>> value;
};
using JsonMembers = std::vector<JsonMember>;

/// The object's text, a line for each value. What is not UTF-8 becomes U+FFFD.
std::string json_text(const JsonMembers& members);

}  // namespace kvo::formats
