#pragma once

#include <string>

#include <app/manual/CommandSyntax.h>

namespace clipworks::app {

/// The JSON schema (draft 2020-12) of the jobs whose options and steps `syntax` has, as text with line breaks.
[[nodiscard]] std::string jobSchema(const CommandSyntax& syntax);

}  // namespace clipworks::app
