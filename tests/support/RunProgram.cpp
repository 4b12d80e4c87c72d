#include <tests/support/RunProgram.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ostream>
#include <system_error>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace clipworks::test {

namespace {

std::vector<std::string> environmentWith(const std::vector<std::string>& changes) {
  std::vector<std::string> all = changes;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view line(*entry);
    const std::string_view name = line.substr(0, line.find('=') + 1);
    const bool replaced =
        std::any_of(changes.begin(), changes.end(), [&](const auto& c) { return c.starts_with(name); });
    if (!replaced) all.emplace_back(line);
  }
  return all;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (std::string& s : strings) result.push_back(s.data());
  result.push_back(nullptr);
  return result;
}

int checked(int value, const char* what) {
  if (value < 0) throw std::system_error(errno, std::generic_category(), what);
  return value;
}

std::string contentsOf(int fd) {
  struct stat file {};
  checked(fstat(fd, &file), "fstat");
  std::string bytes(static_cast<std::size_t>(file.st_size), '\0');
  bytes.resize(static_cast<std::size_t>(checked(static_cast<int>(pread(fd, bytes.data(), bytes.size(), 0)), "pread")));
  return bytes;
}

/// Sends what `next` gives until it gives nothing more or nobody reads any more, and closes the socket.
void feed(int socket, const std::function<std::string()>& next) {
  for (std::string bytes = next(); !bytes.empty(); bytes = next()) {
    for (std::string_view rest = bytes; !rest.empty();) {
      const ssize_t sent = send(socket, rest.data(), rest.size(), MSG_NOSIGNAL);
      if (sent <= 0) return void(close(socket));
      rest.remove_prefix(static_cast<std::size_t>(sent));
    }
  }
  close(socket);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ProgramResult& result) {
  if (result.timedOut) {
    out << "killed at its deadline";
  } else if (result.signal != 0) {
    out << "ended by signal " << result.signal << " (" << strsignal(result.signal) << ")";
  } else {
    out << "exit code " << result.exitCode;
  }
  return out << "\nstandard output:\n" << result.standardOutput << "\nstandard error:\n" << result.standardError;
}

RunningProgram::RunningProgram(const std::vector<std::string>& argv, ProgramOptions options)
    : options_(std::move(options)),
      end_(std::chrono::steady_clock::now() + options_.deadline),
      output_(checked(memfd_create("output", MFD_CLOEXEC), "memfd_create")),
      error_(checked(memfd_create("error", MFD_CLOEXEC), "memfd_create")) {
  start(argv);
}

void RunningProgram::start(std::vector<std::string> argv) {
  // A socket, since writing to one whose reader has gone can be told not to raise SIGPIPE.
  std::array<int, 2> input{};
  checked(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input.data()), "socketpair");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[1], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output_, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, error_, STDERR_FILENO);
  if (!options_.workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, options_.workingDirectory.c_str());
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  std::vector<std::string> environment = environmentWith(options_.environment);
  const int code = posix_spawnp(&pid_, argv.at(0).c_str(), &actions, &attributes, pointers(argv).data(),
                                pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(input[1]);
  if (code != 0) {
    close(input[0]);
    pid_ = -1;
    result_.exitCode = 127;
    result_.standardError = argv.at(0) + " cannot be started: " + std::strerror(code);
    return;
  }
  // Not glibc 2.36's own function: its header forgets to say that it is a C function.
  processFd_ = checked(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)), "pidfd_open");
  if (options_.nextInput) {
    feeder_ = std::jthread(feed, input[0], options_.nextInput);
  } else {
    close(input[0]);
  }
}

RunningProgram::~RunningProgram() {
  if (pid_ > 0) {
    kill(-pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  for (const int fd : {output_, error_, processFd_}) close(fd);
}

void RunningProgram::send(int signal) const {
  if (pid_ > 0) kill(pid_, signal);
}

bool RunningProgram::waitForText(std::string_view text) {
  // Asked before looking, so that the last words of a program that has ended are seen.
  for (bool isLast = false; !isLast;) {
    isLast = hasEnded(std::min(timeLeft(), std::chrono::milliseconds(5))) || timeLeft().count() == 0;
    for (const int fd : {output_, error_}) {
      if (contentsOf(fd).find(text) != std::string::npos) return true;
    }
  }
  return false;
}

ProgramResult RunningProgram::wait() {
  if (!hasEnded(timeLeft())) {
    result_.timedOut = true;
    kill(-pid_, SIGKILL);
    while (!hasEnded(std::chrono::seconds(60))) {
    }
  }
  return result_;
}

std::chrono::milliseconds RunningProgram::timeLeft() const {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
  return std::max(left, std::chrono::milliseconds(0));
}

bool RunningProgram::hasEnded(std::chrono::milliseconds patience) {
  if (pid_ <= 0) return true;
  pollfd process{processFd_, POLLIN, 0};
  if (poll(&process, 1, static_cast<int>(patience.count())) <= 0) return false;
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  result_.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  result_.standardOutput = contentsOf(output_);
  result_.standardError = contentsOf(error_);
  return true;
}

ProgramResult runProgram(const std::vector<std::string>& argv, ProgramOptions options) {
  return RunningProgram(argv, std::move(options)).wait();
}

}  // namespace clipworks::test
