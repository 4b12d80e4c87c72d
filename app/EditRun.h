#pragma once

#include <vector>

#include <app/Command.h>
#include <app/StepCommand.h>

namespace clipworks::app {

/// Makes the movie of `steps`, the first of which names its files, one movie each; or tells its plan, where that is all
/// that is asked for.
[[nodiscard]] Outcome runEdit(const std::vector<StepCommand*>& steps, const Program& program);

}  // namespace clipworks::app
