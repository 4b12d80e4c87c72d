#include <tests/support/RunProgram.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <ostream>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {

namespace {

int checked(int value, const char* what) {
  if (value < 0) throw std::system_error(errno, std::generic_category(), what);
  return value;
}

/// Not through the descriptor, whose place in the file is the program's.
std::string contentsOf(int fd) { return fileBytes("/proc/self/fd/" + std::to_string(fd)); }

/// Sends what `next` gives until it gives nothing more or nobody reads any more, and closes the socket.
void feed(int socket, const std::function<std::string()>& next) {
  for (std::string bytes = next ? next() : ""; !bytes.empty(); bytes = next()) {
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
  return out << (result.timedOut ? "killed at its deadline, " : "") << "exit code " << result.exitCode << ", signal "
             << result.signal << "\nstandard output:\n"
             << result.standardOutput << "\nstandard error:\n"
             << result.standardError;
}

RunningProgram::RunningProgram(const std::vector<std::string>& argv, const ProgramOptions& options)
    : end_(std::chrono::steady_clock::now() + options.deadline),
      output_(checked(memfd_create("output", MFD_CLOEXEC), "memfd_create")),
      error_(checked(memfd_create("error", MFD_CLOEXEC), "memfd_create")) {
  // `env` changes the environment and the directory, and becomes the program.
  std::vector<std::string> words{"env", "-C", options.workingDirectory.empty() ? "." : options.workingDirectory};
  words.insert(words.end(), options.environment.begin(), options.environment.end());
  words.insert(words.end(), argv.begin(), argv.end());
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  // A socket, since writing to one whose reader has gone can be told not to raise SIGPIPE.
  std::array<int, 2> input{};
  checked(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input.data()), "socketpair");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[1], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output_, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, error_, STDERR_FILENO);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
  errno = posix_spawnp(&pid_, "env", &actions, &attributes, pointers.data(), environ);
  checked(-errno, "posix_spawnp");
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(input[1]);
  // Not glibc 2.36's own function: its header forgets to say that it is a C function.
  processFd_ = checked(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)), "pidfd_open");
  feeder_ = std::jthread(feed, input[0], options.nextInput);
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
  waitpid(std::exchange(pid_, -1), &status, 0);
  result_.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  result_.standardOutput = contentsOf(output_);
  result_.standardError = contentsOf(error_);
  return true;
}

}  // namespace clipworks::test
