#include <clipworks/worker/Worker.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include <clipworks/edit/EditErrors.h>

extern char** environ;

namespace clipworks {
namespace {

using nlohmann::json;

ErrorCode codeNamed(std::string_view text, ErrorCode otherwise) {
  for (int i = 0; i <= static_cast<int>(ErrorCode::internal); ++i) {
    if (name(static_cast<ErrorCode>(i)) == text) return static_cast<ErrorCode>(i);
  }
  return otherwise;
}

/// For failures of which the program tells no more than its exit code.
ErrorCode codeOfExit(int code) {
  switch (code) {
    case 2:
      return ErrorCode::badArgument;
    case 3:
      return ErrorCode::limitReached;
    case 4:
      return ErrorCode::noMemory;
    case 130:
      return ErrorCode::cancelled;
    default:
      return ErrorCode::internal;
  }
}

/// What a job told, and how it ended.
struct Told {
  WorkerReport report;
  std::optional<Error> error;

  void take(const json& event) {
    const std::string kind = event.value("event", "");
    if (kind == "error") {
      error = Error{codeNamed(event.value("code", ""), ErrorCode::internal), event.value("message", "")};
    } else if (kind == "done") {
      report.wasDone = event.value("skipped", false);
      for (const auto& path : event.at("outputs")) report.paths.emplace_back(path.get<std::string>());
      const json confinement = event.value("confinement", json::object());
      report.landlock = confinement.value("landlock", 0);
      report.systemCalls = confinement.value("seccomp", false);
    }
  }

  Result<WorkerReport, Error> end(const json& event) {
    if (const int signal = event.value("signal", 0); signal != 0) {
      const std::string by = "the job was ended by a signal (" + std::string(::strsignal(signal)) + ")";
      return signal == SIGKILL ? failed(ErrorCode::noMemory, by + "; the system does so where memory is short")
                               : failed(ErrorCode::internal, by);
    }
    const int code = event.value("code", 0);
    if (code == 0) return std::move(report);
    if (!error) error = Error{ErrorCode::internal, "the job failed"};
    const ErrorCode byCode = codeOfExit(code);
    if (error->code == ErrorCode::internal || byCode == ErrorCode::limitReached) error->code = byCode;
    return failure(*error);
  }
};

}  // namespace

/// One process of the program, and the lines to and from it.
class Worker::Process {
 public:
  static Result<std::unique_ptr<Process>, Error> start(const std::filesystem::path& program) {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
      return failed(ErrorCode::noMemory, std::string("a worker needs a socket: ") + std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // What a host has open and forgot to mark, such as its clients' connections, is no concern of a decoder.
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    std::string text = program.native();
    std::string word = "worker";
    char* const arguments[] = {text.data(), word.data(), nullptr};
    pid_t process = 0;
    const int code = ::posix_spawnp(&process, text.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (code == 0) return std::unique_ptr<Process>(new Process(process, ends[0]));
    ::close(ends[0]);
    return failed(ErrorCode::notFound, text + " cannot be started: " + std::strerror(code));
  }

  ~Process() {
    ::close(socket_);
    while (::waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  /// False where it is gone.
  bool send(const json& message) {
    const std::string line = message.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
    const std::lock_guard lock(mutex_);  // a request to stop comes on its own thread
    for (std::size_t sent = 0; sent < line.size();) {
      const ssize_t count = ::send(socket_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) return false;
      sent += static_cast<std::size_t>(count);
    }
    return true;
  }

  /// The next line; nothing where it is gone.
  std::optional<std::string> line() {
    for (;;) {
      if (const std::size_t end = text_.find('\n'); end != std::string::npos) {
        std::string found = text_.substr(0, end);
        text_.erase(0, end + 1);
        return found;
      }
      std::array<char, 4096> bytes;
      const ssize_t count = ::recv(socket_, bytes.data(), bytes.size(), 0);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return std::nullopt;
      text_.append(bytes.data(), static_cast<std::size_t>(count));
    }
  }

 private:
  Process(pid_t process, int socket) : process_(process), socket_(socket) {}

  pid_t process_;
  int socket_;
  std::mutex mutex_;
  std::string text_;
};

struct Worker::State {
  std::mutex mutex;  // held for the time of a job
  std::unique_ptr<Process> process;
  std::int64_t jobs = 0;
};

Worker::Worker(WorkerOptions options) : options_(std::move(options)), state_(std::make_unique<State>()) {}
Worker::~Worker() = default;

std::vector<std::string> Worker::limited(const std::vector<std::string>& arguments, std::int64_t mostFileBytes) const {
  std::vector<std::string> all{"--confinement", options_.requiresConfinement ? "require" : "auto"};
  const auto add = [&all](const char* option, auto value) {
    if (value > 0) all.insert(all.end(), {option, std::to_string(value)});
  };
  add("--memory", options_.mostMemory);
  add("--timeout", options_.mostSeconds);
  add("--max-output", mostFileBytes);
  all.insert(all.end(), arguments.begin(), arguments.end());
  return all;
}

Result<WorkerReport, Error> Worker::run(const std::vector<std::string>& arguments, const OnProgress& onProgress,
                                        const std::stop_token& stop) {
  return run(arguments, options_.mostFileBytes, onProgress, stop);
}

Result<WorkerReport, Error> Worker::run(const std::vector<std::string>& arguments, std::int64_t mostFileBytes,
                                        const OnProgress& onProgress, const std::stop_token& stop) {
  const std::lock_guard lock(state_->mutex);
  if (stop.stop_requested()) return failed(ErrorCode::cancelled, "cancelled");
  const std::int64_t number = ++state_->jobs;
  std::error_code ignored;
  const json job{{"job", number},
                 {"arguments", limited(arguments, mostFileBytes)},
                 {"directory", std::filesystem::current_path(ignored).native()}};
  if (!state_->process || !state_->process->send(job)) {
    state_->process.reset();
    auto started = Process::start(options_.program);
    if (!started) return failure(started.error());
    state_->process = std::move(*started);
    if (!state_->process->send(job)) {
      state_->process.reset();
      return failed(ErrorCode::internal, options_.program.string() + " ended at once");
    }
  }
  Process& process = *state_->process;
  const std::stop_callback cancels(stop, [&process, number] { process.send({{"cancel", number}}); });
  Told told;
  std::exception_ptr thrown;
  while (const auto line = process.line()) {
    const json event = json::parse(*line, nullptr, false);
    if (!event.is_object()) continue;
    if (event.value("event", "") == "ended") {
      if (thrown) std::rethrow_exception(thrown);
      return told.end(event);
    }
    if (!event.contains("event")) told.report.text += *line + '\n';
    told.take(event);
    if (!onProgress || thrown || event.value("event", "") != "progress") continue;
    try {
      onProgress(event.value("value", 0.0));
    } catch (...) {
      thrown = std::current_exception();
      process.send({{"cancel", number}});
    }
  }
  state_->process.reset();
  if (thrown) std::rethrow_exception(thrown);
  return failed(ErrorCode::internal, "the worker ended in the midst of the job");
}

Result<WorkerReport, Error> Worker::makeMovie(const Edit& edit, const std::filesystem::path& path,
                                              const MovieOptions& options) {
  std::vector<std::string> arguments{"edit", edit.json()};
  if (options.existing == ExistingFile::numbered)
    return failed(ErrorCode::badArgument, "a worker's file is not numbered; choose a name that is free");
  arguments.insert(arguments.end(), {"-o", path.native()});
  if (options.existing == ExistingFile::replaced) arguments.emplace_back("--force");
  if (options.plan.codec != CodecChoice::automatic)
    arguments.insert(arguments.end(), {"--codec", options.plan.codec == CodecChoice::hevc ? "hevc" : "h264"});
  if (!options.plan.keepsMetadata) arguments.emplace_back("--strip-metadata");
  if (!options.plan.hidesPictures) arguments.emplace_back("--clean");
  if (options.verification != Verification::automatic)
    arguments.emplace_back(options.verification == Verification::always ? "--verify" : "--no-verify");
  if (options.isStrict) arguments.emplace_back("--strict");
  if (options.threads > 0) arguments.insert(arguments.end(), {"--threads", std::to_string(options.threads)});
  const auto [fewer, more] = std::minmax(options.mostBytes, options_.mostFileBytes);
  OnProgress onProgress;
  if (options.onProgress) onProgress = [&options](double share) { options.onProgress({share, 0, std::nullopt, ""}); };
  return run(arguments, fewer > 0 ? fewer : more, onProgress, options.stop);
}

}  // namespace clipworks
