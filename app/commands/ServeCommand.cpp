#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>

#include <app/Command.h>
#include <app/serve/ClipFolder.h>
#include <app/serve/ClipPage.h>
#include <app/serve/HttpServer.h>

extern char** environ;

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;

constexpr int greatestPort = 65'535;

/// A directory that goes with this object, and all that is in it.
class TemporaryFolder {
 public:
  [[nodiscard]] static std::optional<TemporaryFolder> make(const fs::path& where) {
    std::string path = (where / "clipworks-XXXXXX").native();
    if (::mkdtemp(path.data()) == nullptr) return std::nullopt;
    return TemporaryFolder(path);
  }
  TemporaryFolder(TemporaryFolder&& other) noexcept : path_(std::exchange(other.path_, {})) {}
  TemporaryFolder& operator=(TemporaryFolder&&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    if (!path_.empty()) fs::remove_all(path_, ignored);
  }
  [[nodiscard]] const fs::path& path() const { return path_; }

 private:
  explicit TemporaryFolder(fs::path path) : path_(std::move(path)) {}
  fs::path path_;
};

/// Leaves it to the desktop; where there is none, the address has been printed.
void openInBrowser(std::string address) {
  std::string program = "xdg-open";
  char* const words[] = {program.data(), address.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t process = 0;
  (void)::posix_spawnp(&process, program.c_str(), &actions, nullptr, words, environ);
  posix_spawn_file_actions_destroy(&actions);
}

class ServeCommand final : public Command {
 public:
  std::string name() const override { return "serve"; }
  std::string purpose() const override { return "Edit the clips of a directory in the browser, on this machine"; }
  std::string notes() const override {
    return "The address lets one browser in, once, and only from this machine. The page sees the clips of the directory\n"
           "and puts new files there; it replaces none. Clips are read by confined processes. Ctrl-C ends it.\n\n"
           "Example: clipworks serve ~/Videos";
  }
  void configure(CLI::App& parser) override {
    parser.add_option("DIR", directory_, "Where the clips are; default: the current directory")->type_name("");
    parser.add_option("--port", port_, "Of 127.0.0.1; default: any that is free")
        ->type_name("N")
        ->check(CLI::Range(1, greatestPort).description(""));
    parser.add_flag("--no-open", staysClosed_, "Print the address, and open no browser");
  }

  /// Reads no clip itself.
  Needs needs() const override { return {.isTrusted = true}; }

  Outcome run(const Program& program) override {
    if (program.options.planOnly) return wrongUse("serve makes nothing by itself; --plan is for commands that do");
    auto folder = ClipFolder::open(directory_);
    if (!folder) return failure(folder.error());
    std::error_code ignored;
    const auto temp = TemporaryFolder::make(program.options.temp.value_or(fs::temp_directory_path(ignored)));
    if (!temp) return failed("there is no place for intermediate files");
    WorkerOptions worker;
    worker.program = fs::read_symlink("/proc/self/exe", ignored);
    worker.requiresConfinement = program.options.confinement == ConfinementMode::required;
    worker.mostMemory = program.options.limits.memory.value_or(0);
    worker.mostFileBytes = program.options.limits.file.value_or(0);
    HttpServer server;
    const auto port = server.bind(port_);
    if (!port) return failure(port.error());
    ClipPage page(std::move(*folder), temp->path(), *port, worker);
    program.interruption.defer();
    const std::stop_callback ends(program.interruption.token(), [&server, &page] {
      page.end();
      server.stop();
    });
    program.reporter.keepEventsOff();
    program.reporter.text(page.address() + '\n');
    if (!staysClosed_) openInBrowser(page.address());
    server.serve(page);
    return {};
  }

 private:
  std::string directory_ = ".";
  int port_ = 0;
  bool staysClosed_ = false;
};

const RegisteredCommand<ServeCommand> registration;

}  // namespace
}  // namespace clipworks::app
