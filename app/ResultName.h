#pragma once

#include <string>

#include <app/Failure.h>

namespace clipworks::app {

/// Whether `name`, given as a result's name without its ending, is one: not empty, and without a path separator.
[[nodiscard]] Outcome checkResultName(const std::string& name);

}  // namespace clipworks::app
