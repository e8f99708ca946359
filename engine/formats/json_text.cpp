#include "engine/formats/json_text.h"

#include <nlohmann/json.hpp>

namespace kvo::formats {

namespace {

using Json = nlohmann::ordered_json;

struct Builder {
  Json operator()(const std::string& text) const { return text; }
  Json operator()(double number) const { return number; }
  Json operator()(const JsonList& list) const {
    Json json = Json::array();
    for (const JsonValue& each : list) json.push_back(std::visit(*this, each.value));
    return json;
  }
  Json operator()(const JsonMembers& members) const {
    Json json = Json::object();
    for (const auto& [name, each] : members) json[name] = std::visit(*this, each.value);
    return json;
  }
};

}  // namespace

std::string json_text(const JsonMembers& members) {
  return Builder{}(members).dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kvo::formats
