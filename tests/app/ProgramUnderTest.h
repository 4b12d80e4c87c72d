#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <tests/support/BarCodeClip.h>
#include <tests/support/RunProgram.h>
#include <tests/support/TemporaryDirectory.h>

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

/// A clip without pictures, and one without sound.
[[nodiscard]] std::filesystem::path soundAlone();
[[nodiscard]] std::filesystem::path silentClip();

/// A clip whose loop as HEVC takes many seconds to encode.
[[nodiscard]] std::filesystem::path slowClip();

}  // namespace clipworks::test
