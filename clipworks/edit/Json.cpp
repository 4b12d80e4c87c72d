#include <clipworks/edit/Json.h>

#include <nlohmann/json.hpp>

namespace clipworks {

std::string jsonText(const nlohmann::ordered_json& object) {
  return object.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

nlohmann::ordered_json jsonOf(const CMTime& time) {
  return {{"value", time.value}, {"timescale", time.timescale}, {"seconds", time.seconds()}};
}

nlohmann::ordered_json jsonOf(const CMTimeRange& range) {
  return {{"start", jsonOf(range.start)}, {"duration", jsonOf(range.duration)}};
}

}  // namespace clipworks
