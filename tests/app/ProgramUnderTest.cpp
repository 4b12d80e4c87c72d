#include <tests/app/ProgramUnderTest.h>

#include <sstream>

namespace clipworks::test {

Arguments clipworksCommand(const Arguments& arguments) {
  Arguments command{CLIPWORKS_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

ProgramResult runClipworks(const Arguments& arguments, ProgramOptions options) {
  return runProgram(clipworksCommand(arguments), std::move(options));
}

std::vector<nlohmann::json> eventsOf(const ProgramResult& result) {
  std::vector<nlohmann::json> events;
  std::istringstream lines(result.standardOutput);
  for (std::string line; std::getline(lines, line);) events.push_back(nlohmann::json::parse(line));
  return events;
}

std::vector<nlohmann::json> eventsOf(const ProgramResult& result, const std::string& kind) {
  auto events = eventsOf(result);
  std::erase_if(events, [&kind](const nlohmann::json& event) { return event.at("event") != kind; });
  return events;
}

std::set<std::string> namesIn(const std::filesystem::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

std::filesystem::path soundAlone() {
  return BarCodeClip({.frames = 0, .channels = 1, .audioSeconds = 2, .extension = ".m4a"}).path();
}

std::filesystem::path silentClip() { return BarCodeClip({.audioCodec = ""}).path(); }

std::filesystem::path slowClip() { return BarCodeClip({.width = 1280, .height = 720, .frames = 300}).path(); }

}  // namespace clipworks::test
