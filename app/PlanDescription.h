#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include <clipworks/edit/Plan.h>

namespace clipworks::app {

/// `plan` as an object: `length`, `bytes` where known, `memory`, `tracks` with their `stretches`, `leftOut`, `remarks`.
[[nodiscard]] nlohmann::ordered_json describedForPrograms(const Plan& plan);

/// The same as text, on one line.
[[nodiscard]] std::string jsonTextOf(const Plan& plan);

}  // namespace clipworks::app
