#include <tests/support/RunProgram.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace clipworks::test {

namespace {

void check(int code, const char* what) {
  if (code != 0) {
    throw std::system_error(code, std::generic_category(), what);
  }
}

std::vector<std::string> environmentWith(const std::vector<std::string>& changes) {
  std::vector<std::string> all = changes;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string_view line(*entry);
    const std::string_view name = line.substr(0, line.find('=') + 1);
    const bool replaced =
        std::any_of(changes.begin(), changes.end(), [&](const auto& c) { return c.starts_with(name); });
    if (!replaced) {
      all.emplace_back(line);
    }
  }
  return all;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
  std::vector<char*> result;
  result.reserve(strings.size() + 1);
  for (std::string& s : strings) {
    result.push_back(s.data());
  }
  result.push_back(nullptr);
  return result;
}

void closeFd(int& fd) {
  if (fd >= 0) {
    close(fd);
    fd = -1;
  }
}

/// Both ends of the three channels to a program. Standard input is a socket, since writing to one whose reader has gone
/// can be told not to raise SIGPIPE.
struct Channels {
  std::array<int, 2> input{-1, -1};
  std::array<int, 2> output{-1, -1};
  std::array<int, 2> error{-1, -1};

  Channels() {
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, input.data()) == 0 ? 0 : errno, "socketpair");
    check(pipe2(output.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    check(pipe2(error.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    for (const int ours : {input[0], output[0], error[0]}) {
      fcntl(ours, F_SETFL, fcntl(ours, F_GETFL) | O_NONBLOCK);
    }
  }
};

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
    : options_(std::move(options)), end_(std::chrono::steady_clock::now() + options_.deadline) {
  start(argv);
}

void RunningProgram::start(const std::vector<std::string>& argv) {
  Channels channels;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, channels.input[1], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, channels.output[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, channels.error[1], STDERR_FILENO);
  if (!options_.workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(&actions, options_.workingDirectory.c_str());
  }
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);

  std::vector<std::string> arguments = argv;
  std::vector<std::string> environment = environmentWith(options_.environment);
  const int code = posix_spawnp(&pid_, argv.at(0).c_str(), &actions, &attributes, pointers(arguments).data(),
                                pointers(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  for (int* theirs : {&channels.input[1], &channels.output[1], &channels.error[1]}) {
    closeFd(*theirs);
  }
  input_ = channels.input[0];
  output_ = channels.output[0];
  error_ = channels.error[0];
  if (code != 0) {
    pid_ = -1;
    result_.exitCode = 127;
    result_.standardError = argv.at(0) + " cannot be started: " + std::strerror(code);
    closeAll();
    return;
  }
  // Not glibc 2.36's own function: its header forgets to say that it is a C function.
  processFd_ = static_cast<int>(syscall(SYS_pidfd_open, pid_, 0));
  if (processFd_ < 0) {
    kill(-pid_, SIGKILL);
    check(errno, "pidfd_open");
  }
}

RunningProgram::~RunningProgram() {
  if (pid_ > 0) {
    kill(-pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  closeAll();
}

void RunningProgram::send(int signal) const {
  if (pid_ > 0) {
    kill(pid_, signal);
  }
}

bool RunningProgram::waitForText(std::string_view text) {
  const auto printed = [&] {
    return result_.standardOutput.find(text) != std::string::npos ||
           result_.standardError.find(text) != std::string::npos;
  };
  while (!printed()) {
    if (timeLeft().count() <= 0 || !step(timeLeft())) {
      return printed();
    }
  }
  return true;
}

ProgramResult RunningProgram::wait() {
  while (pid_ > 0 && step(timeLeft())) {
    if (timeLeft().count() <= 0) {
      result_.timedOut = true;
      kill(-pid_, SIGKILL);
      end_ = std::chrono::steady_clock::time_point::max();
    }
  }
  return result_;
}

std::chrono::milliseconds RunningProgram::timeLeft() const {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - std::chrono::steady_clock::now());
  return std::clamp(left, std::chrono::milliseconds(0), std::chrono::milliseconds(1'000'000));
}

bool RunningProgram::step(std::chrono::milliseconds patience) {
  if (pid_ <= 0) {
    return false;
  }
  feedInput();
  std::array<pollfd, 4> fds{{{output_, POLLIN, 0}, {error_, POLLIN, 0}, {input_, POLLOUT, 0}, {processFd_, POLLIN, 0}}};
  if (poll(fds.data(), fds.size(), static_cast<int>(patience.count())) < 0 && errno != EINTR) {
    check(errno, "poll");
  }
  takeOutput(output_, result_.standardOutput);
  takeOutput(error_, result_.standardError);
  if ((fds[3].revents & POLLIN) == 0) {
    return true;
  }
  // It has ended: what it printed is in the pipes by now. Its children may hold them open for longer; we don't wait.
  takeOutput(output_, result_.standardOutput);
  takeOutput(error_, result_.standardError);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  result_.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result_.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  closeAll();
  return false;
}

void RunningProgram::feedInput() {
  while (input_ >= 0) {
    if (inputSent_ == pendingInput_.size()) {
      pendingInput_ = options_.nextInput ? options_.nextInput() : std::string();
      inputSent_ = 0;
    }
    if (pendingInput_.empty()) {
      closeFd(input_);
      return;
    }
    const ssize_t sent =
        ::send(input_, pendingInput_.data() + inputSent_, pendingInput_.size() - inputSent_, MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) {
      return;
    }
    if (sent < 0) {
      closeFd(input_);  // the program reads no more
      return;
    }
    inputSent_ += static_cast<std::size_t>(sent);
  }
}

void RunningProgram::takeOutput(int& fd, std::string& into) {
  std::array<char, 65536> buffer;
  // Bounded, so that a program that never stops printing cannot keep us from its deadline.
  for (int i = 0; i < 64 && fd >= 0; ++i) {
    const ssize_t got = read(fd, buffer.data(), buffer.size());
    if (got > 0) {
      into.append(buffer.data(), static_cast<std::size_t>(got));
    } else if (got == 0) {
      closeFd(fd);
    } else {
      return;  // nothing there yet
    }
  }
}

void RunningProgram::closeAll() {
  for (int* fd : {&input_, &output_, &error_, &processFd_}) {
    closeFd(*fd);
  }
}

ProgramResult runProgram(const std::vector<std::string>& argv, ProgramOptions options) {
  return RunningProgram(argv, std::move(options)).wait();
}

}  // namespace clipworks::test
