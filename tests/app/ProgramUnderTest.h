#pragma once

#include <filesystem>
#include <set>
#include <sstream>
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

/// The program with its arguments, as `RunningProgram` takes it; what it makes goes to `outputs`, where it is given.
inline Arguments clipworksCommand(const fs::path& outputs, const Arguments& arguments) {
  Arguments command{CLIPWORKS_PROGRAM};
  if (!outputs.empty()) command.insert(command.end(), {"--outputs", outputs});
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

/// Runs the program to its end.
inline ProgramResult runClipworks(const fs::path& outputs, const Arguments& arguments,
                                  const ProgramOptions& options = {}) {
  return runProgram(clipworksCommand(outputs, arguments), options);
}
inline ProgramResult runClipworks(const Arguments& arguments, const ProgramOptions& options = {}) {
  return runClipworks("", arguments, options);
}

/// A run that succeeds: it makes one file in a directory of its own, prints its path and nothing else.
struct Made {
  explicit Made(const Arguments& arguments) {
    const auto result = runClipworks(outputs.path(), arguments);
    const auto names = namesIn(outputs.path());
    EXPECT_TRUE(result.succeeded() && names.size() == 1 && result.standardError.empty()) << result;
    file = outputs.file(names.empty() ? "" : *names.begin());
    EXPECT_EQ(result.standardOutput, file.string() + "\n");
  }

  TemporaryDirectory outputs;
  fs::path file;
};

/// Each line of standard output as JSON; throws for a line that is none. With `kind`, the events of that kind.
inline std::vector<nlohmann::json> eventsOf(const ProgramResult& result, const std::string& kind = "") {
  std::vector<nlohmann::json> events;
  std::istringstream lines(result.standardOutput);
  for (std::string line; std::getline(lines, line);) events.push_back(nlohmann::json::parse(line));
  std::erase_if(events, [&](const nlohmann::json& event) { return !kind.empty() && event.at("event") != kind; });
  return events;
}

/// A clip without pictures, one without sound, and one that was recorded on 2024-05-06.
inline std::string soundAlone() {
  return BarCodeClip({.frames = 0, .channels = 1, .audioSeconds = 2, .extension = ".m4a"}).path();
}
inline std::string silentClip() { return BarCodeClip({.audioCodec = ""}).path(); }
inline std::string datedClip() {
  return BarCodeClip({.outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}}).path();
}

/// A clip whose loop as HEVC takes many seconds to encode.
inline std::string slowClip() { return BarCodeClip({.width = 1280, .height = 720, .frames = 300}).path(); }

}  // namespace clipworks::test
