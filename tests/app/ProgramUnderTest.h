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

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;
using Names = std::set<std::string>;

/// The program with its arguments, as `RunningProgram` takes it; the second form makes what it makes in `outputs`.
[[nodiscard]] Arguments clipworksCommand(const Arguments& arguments);
[[nodiscard]] Arguments clipworksCommand(const fs::path& outputs, const Arguments& arguments);

/// Runs the program to its end.
ProgramResult runClipworks(const Arguments& arguments, ProgramOptions options = {});
ProgramResult runClipworks(const fs::path& outputs, const Arguments& arguments, ProgramOptions options = {});

/// A run that succeeds: it makes one file in a directory of its own, prints its path and nothing else.
struct Made {
  explicit Made(const Arguments& arguments);

  TemporaryDirectory outputs;
  fs::path file;
};

/// What must hold of every failure, told with --json: one sentence, and nothing in `outputs`.
void expectFailure(const fs::path& outputs, const ProgramResult& result, int exitCode, const std::string& sentence);

/// Each line of standard output as JSON; throws for a line that is none. With `kind`, the events of that kind.
[[nodiscard]] std::vector<nlohmann::json> eventsOf(const ProgramResult& result, const std::string& kind = "");

/// The names in a directory, hidden ones too.
[[nodiscard]] Names namesIn(const fs::path& directory);

/// A clip without pictures, one without sound, and one that was recorded on 2024-05-06.
[[nodiscard]] std::string soundAlone();
[[nodiscard]] std::string silentClip();
[[nodiscard]] std::string datedClip();

/// A clip whose loop as HEVC takes many seconds to encode.
[[nodiscard]] std::string slowClip();

}  // namespace clipworks::test
