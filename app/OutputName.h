#pragma once

#include <string>

#include <app/Failure.h>

namespace clipworks::app {

/// Whether `--name` may be given `name`: it names a file in the outputs directory, without its ending.
[[nodiscard]] Outcome checkOutputName(const std::string& name);

}  // namespace clipworks::app
