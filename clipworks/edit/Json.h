#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <clipworks/media/time/CMTimeRange.h>

namespace clipworks {

/// On one line; bytes that are not UTF-8 become the replacement character.
[[nodiscard]] std::string jsonText(const nlohmann::ordered_json& object);

/// A time for other programs: `value`, `timescale` and, as a number, `seconds`.
[[nodiscard]] nlohmann::ordered_json jsonOf(const CMTime& time);
/// `start` and `duration`.
[[nodiscard]] nlohmann::ordered_json jsonOf(const CMTimeRange& range);

}  // namespace clipworks
