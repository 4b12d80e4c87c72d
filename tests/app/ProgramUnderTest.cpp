#include <tests/app/ProgramUnderTest.h>

#include <sstream>

namespace clipworks::test {

Arguments clipworksCommand(const Arguments& arguments) {
  Arguments command{CLIPWORKS_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

Arguments clipworksCommand(const fs::path& outputs, const Arguments& arguments) {
  Arguments command = clipworksCommand(arguments);
  command.insert(command.begin() + 1, {"--outputs", outputs});
  return command;
}

ProgramResult runClipworks(const Arguments& arguments, ProgramOptions options) {
  return runProgram(clipworksCommand(arguments), std::move(options));
}

ProgramResult runClipworks(const fs::path& outputs, const Arguments& arguments, ProgramOptions options) {
  return runProgram(clipworksCommand(outputs, arguments), std::move(options));
}

Made::Made(const Arguments& arguments) {
  const auto result = runClipworks(outputs.path(), arguments);
  const auto names = namesIn(outputs.path());
  EXPECT_TRUE(result.exitCode == 0 && names.size() == 1 && result.standardError.empty()) << result;
  file = outputs.file(names.empty() ? "" : *names.begin());
  EXPECT_EQ(result.standardOutput, file.string() + "\n");
}

void expectFailure(const fs::path& outputs, const ProgramResult& result, int exitCode, const std::string& sentence) {
  EXPECT_EQ(result.exitCode, exitCode) << result;
  const auto errors = eventsOf(result, "error");
  ASSERT_EQ(errors.size(), 1U) << result;
  EXPECT_EQ(eventsOf(result).back(), errors.front()) << "something follows the error\n" << result;
  EXPECT_THAT(eventsOf(result, "done"), testing::IsEmpty()) << result;
  const std::string message = errors.front().at("message");
  EXPECT_THAT(message, testing::HasSubstr(sentence));
  EXPECT_EQ(result.standardError, "clipworks: " + message + "\n");
  EXPECT_EQ(namesIn(outputs), Names{});
}

std::vector<nlohmann::json> eventsOf(const ProgramResult& result, const std::string& kind) {
  std::vector<nlohmann::json> events;
  std::istringstream lines(result.standardOutput);
  for (std::string line; std::getline(lines, line);) events.push_back(nlohmann::json::parse(line));
  std::erase_if(events, [&](const nlohmann::json& event) { return !kind.empty() && event.at("event") != kind; });
  return events;
}

Names namesIn(const fs::path& directory) {
  Names names;
  for (const auto& entry : fs::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

std::string soundAlone() {
  return BarCodeClip({.frames = 0, .channels = 1, .audioSeconds = 2, .extension = ".m4a"}).path();
}

std::string silentClip() { return BarCodeClip({.audioCodec = ""}).path(); }

std::string datedClip() {
  return BarCodeClip({.outputArguments = {"-metadata", "creation_time=2024-05-06T07:08:09Z"}}).path();
}

std::string slowClip() { return BarCodeClip({.width = 1280, .height = 720, .frames = 300}).path(); }

}  // namespace clipworks::test
