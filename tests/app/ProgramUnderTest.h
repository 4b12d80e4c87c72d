#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include <tests/support/RunProgram.h>

namespace clipworks::test {

using Arguments = std::vector<std::string>;

/// The program with its arguments, as `RunningProgram` takes it.
[[nodiscard]] Arguments clipworksCommand(const Arguments& arguments);

/// Runs the program to its end.
ProgramResult runClipworks(const Arguments& arguments, ProgramOptions options = {});

/// Each line of standard output as JSON; throws for a line that is none.
[[nodiscard]] std::vector<nlohmann::json> eventsOf(const ProgramResult& result);

/// The events of one kind.
[[nodiscard]] std::vector<nlohmann::json> eventsOf(const ProgramResult& result, const std::string& kind);

/// The names in a directory, hidden ones too.
[[nodiscard]] std::set<std::string> namesIn(const std::filesystem::path& directory);

/// A clip whose loop as HEVC takes many seconds to encode.
[[nodiscard]] std::filesystem::path slowClip();

}  // namespace clipworks::test
