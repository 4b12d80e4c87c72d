#pragma once

#include <string>

#include <app/manual/CommandSyntax.h>

namespace clipworks::app {

/// The manual page of the program itself, in the language of man(7).
[[nodiscard]] std::string manualPage(const CommandSyntax& program, const std::string& version);

/// The manual page of one of the program's commands: clipworks-NAME(1).
[[nodiscard]] std::string manualPage(const CommandSyntax& program, const CommandSyntax& command,
                                     const std::string& version);

}  // namespace clipworks::app
