// A command that does what a decoder would that has been taken over by a file: for the program that the tests confine.

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <app/Command.h>
#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::app {
namespace {

/// A value of `errno`, 0 for success.
int codeOf(long result) { return result < 0 ? errno : 0; }

template <class Address>
int connectTo(int family, int kind, const Address& address, std::size_t size) {
  const int socket = ::socket(family, kind, 0);
  if (socket < 0) return errno;
  int code = codeOf(::connect(socket, reinterpret_cast<const sockaddr*>(&address), static_cast<socklen_t>(size)));
  if (code == 0) code = codeOf(::send(socket, "x", 1, MSG_NOSIGNAL));
  ::close(socket);
  return code;
}

int connectToPort(int kind, const std::string& port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(port)));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return connectTo(AF_INET, kind, address, sizeof address);
}

int connectToUnix(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (path.front() == '@') address.sun_path[0] = '\0';
  return connectTo(AF_UNIX, SOCK_STREAM, address, offsetof(sockaddr_un, sun_path) + path.size());
}

int open(const std::string& path, int flags) {
  const int file = ::open(path.c_str(), flags, 0600);
  if (file < 0) return errno;
  ::close(file);
  return 0;
}

/// One after the other; none does anything.
int startChildren() {
  for (int i = 0; i < 200; ++i) {
    const pid_t child = ::fork();
    if (child < 0) return errno;
    if (child == 0) ::_exit(0);
    ::waitpid(child, nullptr, 0);
  }
  return 0;
}

int allocate(std::size_t bytes, int flags) {
  void* memory = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE, flags | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return errno;
  ::munmap(memory, bytes);
  return 0;
}

class ProbeCommand final : public Command {
 public:
  std::string name() const override { return "probe"; }
  std::string purpose() const override { return "Try what is forbidden"; }
  std::string notes() const override { return ""; }
  void configure(CLI::App& parser) override {
    parser.add_option("FILE", file_, "The input")->required();
    parser.add_option("ATTEMPT", attempts_, "What is tried, and on what")->required();
  }
  Needs needs() const override { return {{file_}, true}; }

  Outcome run(const Program& program) override {
    files_ = program.files.get();
    for (const auto& attempt : attempts_) {
      const auto separator = attempt.find('=');
      const int code = tried(attempt.substr(0, separator), attempt.substr(separator + 1));
      program.reporter.text(fmt::format("{} {}\n", attempt, code == 0 ? "done" : ::strerrorname_np(code)));
    }
    return {};
  }

 private:
  int tried(const std::string& what, const std::string& on) {
    static const std::map<std::string, std::function<int(const std::string&)>> attempts{
        {"read", [](const auto& path) { return open(path, O_RDONLY); }},
        {"list", [](const auto& path) { return open(path, O_RDONLY | O_DIRECTORY); }},
        {"write", [](const auto& path) { return open(path, O_WRONLY | O_CREAT); }},
        {"remove", [](const auto& path) { return codeOf(::unlink(path.c_str())); }},
        {"rename", [](const auto& path) { return codeOf(::rename(path.c_str(), (path + "-2").c_str())); }},
        {"chmod", [](const auto& path) { return codeOf(::chmod(path.c_str(), 0777)); }},
        {"utimes", [](const auto& path) { return codeOf(::utimensat(AT_FDCWD, path.c_str(), nullptr, 0)); }},
        {"tcp", [](const auto& port) { return connectToPort(SOCK_STREAM, port); }},
        {"udp", [](const auto& port) { return connectToPort(SOCK_DGRAM, port); }},
        {"unix", connectToUnix},
        {"exec",
         [](const auto& program) {
           const char* arguments[] = {program.c_str(), nullptr};
           return codeOf(::execv(program.c_str(), const_cast<char**>(arguments)));
         }},
        {"children", [](const auto&) { return startChildren(); }},
        {"trace",
         [](const auto& process) { return codeOf(::ptrace(PTRACE_ATTACH, std::stoi(process), nullptr, nullptr)); }},
        {"signal", [](const auto& process) { return codeOf(::kill(std::stoi(process), SIGTERM)); }},
        {"memory", [](const auto& bytes) { return allocate(std::stoul(bytes), MAP_PRIVATE); }},
        {"sharedMemory", [](const auto& bytes) { return allocate(std::stoul(bytes), MAP_SHARED); }},
    };
    if (const auto found = attempts.find(what); found != attempts.end()) return found->second(on);
    if (what == "wait") {
      (void)std::printf("waiting\n");
      (void)std::fflush(stdout);
      ::sleep(60);
    }
    if (what == "crash") (void)std::raise(std::stoi(on));
    if (what == "new") return makeFile(on, engine::ExistingName::kept);
    if (what == "replaced") return makeFile(on, engine::ExistingName::replaced);
    if (what == "fill") return fill(on);
    return EINVAL;
  }

  int makeFile(const std::string& path, engine::ExistingName existing) {
    auto file = files_->create(path);
    if (!file) return file.error();
    const auto named = (*file)->commit(existing);
    return named ? 0 : named.error();
  }

  /// Writes until that fails.
  int fill(const std::string& path) {
    auto file = files_->create(path);
    if (!file) return file.error();
    const std::vector<char> bytes(1 << 20);
    for (int i = 0; i < 64; ++i) {
      if (::write((*file)->handle().descriptor(), bytes.data(), bytes.size()) < 0) return errno;
    }
    return 0;
  }

  std::string file_;
  std::vector<std::string> attempts_;
  engine::NewFiles* files_ = nullptr;
};

const RegisteredCommand<ProbeCommand> registration;

}  // namespace
}  // namespace clipworks::app
