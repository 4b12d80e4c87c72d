#include <app/Serving.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <exception>
#include <utility>

#include <nlohmann/json.hpp>

#include <app/Failure.h>
#include <clipworks/edit/CodecTables.h>

namespace clipworks::app {
namespace {

using nlohmann::json;

struct Job {
  json number;
  std::vector<std::string> words;
  std::string directory;
};

/// Starts this process again, with what the system's libraries read when a process starts: memory then comes from one
/// heap, which keeps what it has and is made of huge pages, and every symbol is bound before jobs are copied from here.
/// Small jobs spend most of their time in the kernel, and save some of that so. Where that cannot be, all goes on as it
/// is.
void startAgainForSmallJobs() {
  constexpr const char* memory =
      "glibc.malloc.hugetlb=1:glibc.malloc.arena_max=1:glibc.malloc.mmap_threshold=268435456:"
      "glibc.malloc.trim_threshold=268435456";
  if (::getenv("LD_BIND_NOW") != nullptr) {  // It was.
    ::prctl(PR_SET_NAME, "clipworks");
    return;
  }
  ::setenv("LD_BIND_NOW", "1", 0);
  ::setenv("GLIBC_TUNABLES", memory, 0);
  ::execl("/proc/self/exe", "clipworks", "worker", nullptr);
}

class Server {
 public:
  explicit Server(const RunProgram& run) : run_(run) {}
  ~Server() {
    if (children_ >= 0) ::close(children_);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  int serve() {
    sigset_t ended;
    sigemptyset(&ended);
    sigaddset(&ended, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &ended, &unblocked_);
    children_ = ::signalfd(-1, &ended, SFD_CLOEXEC);
    if (children_ < 0) return static_cast<int>(ExitCode::tryAgain);
    while (isOpen_ || isRunning()) {
      pollfd awaited[] = {{children_, POLLIN, 0}, {isOpen_ ? STDIN_FILENO : -1, POLLIN, 0}};
      if (::poll(awaited, 2, -1) < 0 && errno != EINTR) return static_cast<int>(ExitCode::failed);
      if (awaited[1].revents != 0) readLines();
      if (awaited[0].revents != 0) noteEnd();
      if (!isRunning() && !waiting_.empty()) start();
    }
    return static_cast<int>(ExitCode::done);
  }

 private:
  [[nodiscard]] bool isRunning() const { return running_ > 0; }

  void readLines() {
    std::array<char, 65'536> bytes;
    const ssize_t count = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) return;
    if (count <= 0) {
      isOpen_ = false;
      waiting_.clear();
      if (isRunning()) ::kill(running_, SIGTERM);
      return;
    }
    text_.append(bytes.data(), static_cast<std::size_t>(count));
    for (std::size_t end = text_.find('\n'); end != std::string::npos; end = text_.find('\n')) {
      take(text_.substr(0, end));
      text_.erase(0, end + 1);
    }
  }

  void take(const std::string& line) {
    try {
      const json message = json::parse(line);
      if (message.contains("cancel")) return cancel(message.at("cancel"));
      Job job{message.at("job"), {"clipworks", "--json"}, message.value("directory", "")};
      for (const auto& word : message.at("arguments")) job.words.push_back(word.get<std::string>());
      waiting_.push_back(std::move(job));
    } catch (const json::exception& broken) {
      tell({{"event", "error"}, {"message", std::string("not a job: ") + broken.what()}});
    }
  }

  void cancel(const json& number) {
    if (isRunning() && number == number_) ::kill(running_, SIGTERM);
    std::erase_if(waiting_, [this, &number](const Job& job) {
      if (job.number != number) return false;
      tell({{"event", "ended"}, {"job", number}, {"code", static_cast<int>(ExitCode::interrupted)}});
      return true;
    });
  }

  void start() {
    const Job job = std::move(waiting_.front());
    waiting_.pop_front();
    number_ = job.number;
    const pid_t server = ::getpid();
    running_ = ::fork();
    if (running_ == 0) ::_exit(work(job, server));
    if (running_ > 0) return;
    tell({{"event", "ended"}, {"job", number_}, {"code", static_cast<int>(ExitCode::tryAgain)}});
  }

  /// In the new process.
  int work(const Job& job, pid_t server) {
    // What serves nobody any more must not go on.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != server) return static_cast<int>(ExitCode::interrupted);
    ::sigprocmask(SIG_SETMASK, &unblocked_, nullptr);
    ::close(std::exchange(children_, -1));
    const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ::dup2(nothing, STDIN_FILENO);
    ::close(nothing);
    if (!job.directory.empty() && ::chdir(job.directory.c_str()) != 0) return static_cast<int>(ExitCode::failed);
    const int code = run_(job.words);
    (void)std::fflush(nullptr);
    return code;
  }

  void noteEnd() {
    signalfd_siginfo ignored{};
    (void)!::read(children_, &ignored, sizeof ignored);
    int status = 0;
    if (!isRunning() || ::waitpid(running_, &status, WNOHANG) != running_) return;
    running_ = 0;
    json event{{"event", "ended"}, {"job", number_}};
    if (WIFSIGNALED(status)) {
      event["signal"] = WTERMSIG(status);
    } else {
      event["code"] = WEXITSTATUS(status);
    }
    tell(event);
  }

  static void tell(const json& event) {
    const std::string line = event.dump(-1, ' ', false, json::error_handler_t::replace) + '\n';
    (void)std::fwrite(line.data(), 1, line.size(), stdout);
    (void)std::fflush(stdout);
  }

  const RunProgram& run_;
  sigset_t unblocked_{};
  int children_ = -1;  // readable when one has ended
  bool isOpen_ = true;
  std::string text_;
  std::deque<Job> waiting_;
  pid_t running_ = 0;
  json number_;  // of what runs
};

}  // namespace

int serveJobs(const RunProgram& run) {
  startAgainForSmallJobs();
  buildCodecTables();
  return Server(run).serve();
}

}  // namespace clipworks::app
