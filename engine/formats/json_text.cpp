#include "engine/formats/json_text.h"

#include <nlohmann/json.hpp>

namespace kvo::formats {

namespace {

using Json = nlohmann::ordered_json;

struct JsonBuilder {
  Json operator()(const std::string& text) const { return text; }
  Json operator()(const JsonTexts& texts) const {
    Json json = Json::object();
    for (const auto& [name, text] : texts) json[name] = text;
    return json;
  }
  template <typename T>
  Json operator()(const std::vector<T>& list) const {
    Json json = Json::array();
    for (const T& each : list) json.push_back((*this)(each));
    return json;
  }
};

}  // namespace

std::string json_text(const JsonMembers& members) {
  Json json = Json::object();
  for (const auto& [name, value] : members) json[name] = std::visit(JsonBuilder{}, value);
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kvo::formats
