#include <app/JsonText.h>

#include <nlohmann/json.hpp>

namespace clipworks::app {

std::string jsonText(const nlohmann::ordered_json& object) {
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace clipworks::app
