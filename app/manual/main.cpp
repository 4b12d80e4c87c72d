// Writes what is installed beside the program and made from its list of commands: manual pages and completions.
//
//   clipworks_manual DIRECTORY

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include <app/CommandLine.h>
#include <app/manual/CommandSyntax.h>
#include <app/manual/ManualPage.h>
#include <app/manual/ShellCompletion.h>

namespace clipworks::app {
namespace {

void write(const std::filesystem::path& file, const std::string& text) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream stream(file, std::ios::binary);
  stream << text << std::flush;
  if (!stream) throw std::runtime_error(file.string() + " cannot be written");
}

void writeAll(const std::filesystem::path& directory) {
  // Pages of commands that are gone would be installed with the others.
  std::filesystem::remove_all(directory);
  const CommandLine commandLine;
  const CommandSyntax program = CommandSyntax::of(commandLine.parser());
  write(directory / "man1" / (program.name + ".1"), manualPage(program, CLIPWORKS_VERSION));
  for (const auto& command : program.commands) {
    write(directory / "man1" / (program.name + "-" + command.name + ".1"),
          manualPage(program, command, CLIPWORKS_VERSION));
  }
  write(directory / "bash" / program.name, bashCompletion(program));
  write(directory / "zsh" / ("_" + program.name), zshCompletion(program));
}

}  // namespace
}  // namespace clipworks::app

int main(int argc, char** argv) {
  if (argc != 2) {
    (void)std::fprintf(stderr, "usage: clipworks_manual DIRECTORY\n");
    return 2;
  }
  try {
    clipworks::app::writeAll(argv[1]);
    return 0;
  } catch (const std::exception& thrown) {
    (void)std::fprintf(stderr, "clipworks_manual: %s\n", thrown.what());
    return 1;
  }
}
