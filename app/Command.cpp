#include <app/Command.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include <app/EditRun.h>
#include <app/StepCommand.h>

namespace clipworks::app {
namespace {

// A function's static, since registrations run while the globals of other files are being made.
std::vector<CommandRegistration::Factory>& factories() {
  static std::vector<CommandRegistration::Factory> instance;
  return instance;
}

}  // namespace

Needs needsOf(const std::vector<Command*>& commands) {
  Needs all;
  for (const auto* command : commands) {
    const Needs needs = command->needs();
    all.inputs.insert(all.inputs.end(), needs.inputs.begin(), needs.inputs.end());
    all.makesFiles = all.makesFiles || needs.makesFiles;
    if (needs.replacedName) all.replacedName = needs.replacedName;
    all.usesSoundServer = all.usesSoundServer || needs.usesSoundServer;
    all.isTrusted = all.isTrusted || needs.isTrusted;
  }
  return all;
}

Outcome runCommands(const std::vector<Command*>& commands, const Program& program) {
  try {
    if (commands.size() == 1) return commands.front()->run(program);
    std::vector<StepCommand*> steps;
    for (auto* command : commands) steps.push_back(&dynamic_cast<StepCommand&>(*command));
    return runEdit(steps, program);
  } catch (const std::bad_alloc&) {
    return failure(failureOf({ErrorCode::noMemory, "out of memory"}, program.options.limits));
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
