#include <app/Command.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace clipworks::app {
namespace {

// A function's static, since registrations run while the globals of other files are being made.
std::vector<CommandRegistration::Factory>& factories() {
  static std::vector<CommandRegistration::Factory> instance;
  return instance;
}

}  // namespace

Outcome runCommand(Command& command, const Program& program) {
  try {
    return command.run(program);
  } catch (const std::bad_alloc&) {
    return failed("out of memory");
  } catch (const std::exception& thrown) {
    return failed(thrown.what());
  }
}

CommandRegistration::CommandRegistration(Factory factory) { factories().push_back(std::move(factory)); }

std::vector<std::unique_ptr<Command>> makeCommands() {
  std::vector<std::unique_ptr<Command>> commands;
  for (const auto& make : factories()) commands.push_back(make());
  std::sort(commands.begin(), commands.end(), [](const auto& a, const auto& b) { return a->name() < b->name(); });
  return commands;
}

}  // namespace clipworks::app
