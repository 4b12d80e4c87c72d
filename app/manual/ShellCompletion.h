#pragma once

#include <string>

#include <app/manual/CommandSyntax.h>

namespace clipworks::app {

/// A script that lets bash complete the program's commands, options, their values and files.
[[nodiscard]] std::string bashCompletion(const CommandSyntax& program);

/// The same for zsh, as a function file `_clipworks` of its completion system.
[[nodiscard]] std::string zshCompletion(const CommandSyntax& program);

}  // namespace clipworks::app
