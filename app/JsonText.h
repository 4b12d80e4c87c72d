#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace clipworks::app {

/// `object` on one line. Paths and metadata need not be UTF-8; what is not becomes a replacement character.
[[nodiscard]] std::string jsonText(const nlohmann::ordered_json& object);

}  // namespace clipworks::app
