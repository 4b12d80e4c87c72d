#include <app/confinement/FileBroker.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <string_view>
#include <utility>

#include <clipworks/edit/MakeMovie.h>

namespace clipworks::app {
namespace {

namespace fs = std::filesystem;
using engine::ExistingName;
using engine::NewFile;

// More files without a name than any command has at once.
constexpr std::size_t mostNewFiles = 16;

enum class Task : std::uint8_t { create, commit, abandon, remove };

/// What is asked for, one message each; a path follows. Every task but `abandon` is answered.
struct Question {
  Task task = Task::create;
  ExistingName existing = ExistingName::kept;
  std::uint32_t file = 0;
};

/// A path follows where a file was named, and a descriptor goes with it where one was created.
struct Answer {
  int code = 0;
  std::uint32_t file = 0;
};

struct Bytes {
  std::array<char, sizeof(Question) + PATH_MAX> content;
  std::size_t size = 0;

  template <class Head>
  [[nodiscard]] static Bytes of(const Head& head, std::string_view path) {
    Bytes bytes;
    std::memcpy(bytes.content.data(), &head, sizeof head);
    bytes.size = sizeof head + std::min(path.size(), bytes.content.size() - sizeof head);
    std::memcpy(bytes.content.data() + sizeof head, path.data(), bytes.size - sizeof head);
    return bytes;
  }
  template <class Head>
  [[nodiscard]] bool read(Head& head, std::string& path) const {
    if (size < sizeof head) return false;
    std::memcpy(&head, content.data(), sizeof head);
    path.assign(content.data() + sizeof head, size - sizeof head);
    return true;
  }
};

union DescriptorMessage {
  cmsghdr aligned;
  char bytes[CMSG_SPACE(sizeof(int))];
};

bool send(int socket, Bytes message, int descriptor = -1) {
  iovec content{message.content.data(), message.size};
  msghdr header{};
  header.msg_iov = &content;
  header.msg_iovlen = 1;
  DescriptorMessage passed{};
  if (descriptor >= 0) {
    header.msg_control = passed.bytes;
    header.msg_controllen = sizeof passed.bytes;
    cmsghdr* part = CMSG_FIRSTHDR(&header);
    part->cmsg_level = SOL_SOCKET;
    part->cmsg_type = SCM_RIGHTS;
    part->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(part), &descriptor, sizeof descriptor);
  }
  return ::sendmsg(socket, &header, MSG_NOSIGNAL) == static_cast<ssize_t>(message.size);
}

bool receive(int socket, Bytes& message, int* descriptor = nullptr) {
  iovec content{message.content.data(), message.content.size()};
  msghdr header{};
  header.msg_iov = &content;
  header.msg_iovlen = 1;
  DescriptorMessage passed{};
  if (descriptor != nullptr) {
    header.msg_control = passed.bytes;
    header.msg_controllen = sizeof passed.bytes;
  }
  ssize_t count = 0;
  do {
    count = ::recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
  } while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  message.size = static_cast<std::size_t>(count);
  const cmsghdr* part = descriptor != nullptr ? CMSG_FIRSTHDR(&header) : nullptr;
  if (part != nullptr && part->cmsg_type == SCM_RIGHTS) std::memcpy(descriptor, CMSG_DATA(part), sizeof *descriptor);
  return true;
}

/// The other process. What it is asked may come from whoever has taken over the first one.
class Broker {
 public:
  Broker(int socket, FilePermissions permissions) : socket_(socket), permissions_(std::move(permissions)) {}

  void serve() {
    Bytes message;
    while (receive(socket_, message)) {
      Question question;
      std::string path;
      if (!message.read(question, path)) return;
      if (question.task == Task::abandon) {
        files_.erase(question.file);
      } else if (!answer(question, path)) {
        return;
      }
    }
  }

 private:
  bool answer(const Question& question, const std::string& path) {
    switch (question.task) {
      case Task::create:
        return create(path);
      case Task::commit:
        return commit(question);
      case Task::remove:
        if (std::find(named_.begin(), named_.end(), path) == named_.end()) return refuse(EPERM);
        direct_->remove(path);
        return send(socket_, Bytes::of(Answer{}, ""));
      default:
        return false;
    }
  }

  bool create(const fs::path& path) {
    if (!permissions_.allow(path)) return refuse(EPERM);
    if (files_.size() == mostNewFiles) return refuse(EMFILE);
    auto file = direct_->create(path);
    if (!file) return refuse(file.error());
    const int descriptor = (*file)->handle().descriptor();
    files_[++last_] = {path, std::move(*file)};
    return send(socket_, Bytes::of(Answer{0, last_}, ""), descriptor);
  }

  bool commit(const Question& question) {
    const auto found = files_.find(question.file);
    if (found == files_.end()) return refuse(EBADF);
    auto& [path, file] = found->second;
    const bool isKnown = question.existing <= ExistingName::numbered;
    if (!isKnown || (question.existing == ExistingName::replaced && !permissions_.mayReplaceAt(path)))
      return refuse(EPERM);
    const auto name = file->commit(question.existing);
    if (!name) return refuse(name.error());
    files_.erase(found);
    named_.push_back(*name);
    return send(socket_, Bytes::of(Answer{}, name->native()));
  }

  bool refuse(int code) { return send(socket_, Bytes::of(Answer{code, 0}, "")); }

  int socket_;
  FilePermissions permissions_;
  const std::unique_ptr<engine::NewFiles> direct_ = newFilesOfThisProcess();
  struct Unnamed {
    fs::path path;
    std::unique_ptr<NewFile> file;
  };
  std::map<std::uint32_t, Unnamed> files_;
  std::uint32_t last_ = 0;
  std::vector<fs::path> named_;
};

/// The way to it, for any thread. Ends it with itself.
class Line {
 public:
  Line(int socket, pid_t broker) : socket_(socket), broker_(broker) {}
  ~Line() {
    ::close(socket_);
    while (::waitpid(broker_, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  tl::expected<Answer, int> ask(const Question& question, std::string& path, int* descriptor = nullptr) {
    const std::lock_guard lock(mutex_);
    Bytes message = Bytes::of(question, path);
    Answer answer;
    // By write(): the confined process may send nothing through sockets.
    if (::write(socket_, message.content.data(), message.size) != static_cast<ssize_t>(message.size) ||
        !receive(socket_, message, descriptor) || !message.read(answer, path))
      return tl::make_unexpected(EPIPE);
    if (answer.code != 0) return tl::make_unexpected(answer.code);
    return answer;
  }
  void tell(const Question& question) {
    const std::lock_guard lock(mutex_);
    const Bytes message = Bytes::of(question, "");
    (void)!::write(socket_, message.content.data(), message.size);
  }

 private:
  std::mutex mutex_;
  int socket_;
  pid_t broker_;
};

class BrokeredFile final : public NewFile {
 public:
  BrokeredFile(std::shared_ptr<Line> line, std::uint32_t number, int descriptor)
      : line_(std::move(line)), number_(number), handle_(descriptor) {}
  ~BrokeredFile() override { line_->tell({Task::abandon, ExistingName::kept, number_}); }

  [[nodiscard]] const engine::FileHandle& handle() const override { return handle_; }
  [[nodiscard]] tl::expected<fs::path, int> commit(ExistingName existing) override {
    std::string path;
    const auto answer = line_->ask({Task::commit, existing, number_}, path);
    if (!answer) return tl::make_unexpected(answer.error());
    return fs::path(path);
  }

 private:
  std::shared_ptr<Line> line_;
  std::uint32_t number_;
  engine::FileHandle handle_;
};

class BrokeredFiles final : public engine::NewFiles {
 public:
  BrokeredFiles(int socket, pid_t broker) : line_(std::make_shared<Line>(socket, broker)) {}

  [[nodiscard]] tl::expected<std::unique_ptr<NewFile>, int> create(const fs::path& path) override {
    std::string text = path.native();
    int descriptor = -1;
    const auto answer = line_->ask({Task::create, ExistingName::kept, 0}, text, &descriptor);
    if (!answer) return tl::make_unexpected(answer.error());
    if (descriptor < 0) return tl::make_unexpected(EMFILE);  // this process can have no more
    return std::make_unique<BrokeredFile>(line_, answer->file, descriptor);
  }
  void remove(const fs::path& path) override {
    std::string text = path.native();
    (void)line_->ask({Task::remove, ExistingName::kept, 0}, text);
  }

 private:
  std::shared_ptr<Line> line_;
};

[[noreturn]] void runBroker(int socket, FilePermissions permissions) {
  ::prctl(PR_SET_NAME, "clipworks-files");
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) std::signal(signal, SIG_IGN);
  // Whoever reads what this program prints must not wait for this process.
  const int keeps = ::fcntl(socket, F_DUPFD_CLOEXEC, 3);
  if (keeps == 3 || ::dup3(keeps, 3, O_CLOEXEC) == 3) {
    ::close_range(4, ~0U, 0);
    for (int standard = 0; standard < 3; ++standard) ::close(standard);
    for (int standard = 0; standard < 3; ++standard) (void)!::open("/dev/null", O_RDWR);
    Broker(3, std::move(permissions)).serve();
  }
  ::_exit(0);
}

std::string directoryOf(const fs::path& path) {
  const auto directory = path.parent_path().lexically_normal().native();
  return directory.empty() ? "." : directory;
}

}  // namespace

bool FilePermissions::allow(const fs::path& path) const {
  const std::string name = path.filename().native();
  const bool isNamed = std::find(endings.begin(), endings.end(), path.extension().native()) != endings.end() ||
                       (!replacedEnding.empty() && name.ends_with(replacedEnding));
  return std::any_of(directories.begin(), directories.end(),
                     [&path](const fs::path& directory) { return directoryOf(directory / "") == directoryOf(path); }) &&
         std::any_of(beginnings.begin(), beginnings.end(),
                     [&name](const std::string& beginning) { return name.starts_with(beginning); }) &&
         isNamed && name.find('\0') == std::string::npos;
}

bool FilePermissions::mayReplaceAt(const fs::path& path) const {
  return mayReplace || (!replacedEnding.empty() && path.native().ends_with(replacedEnding));
}

tl::expected<std::shared_ptr<engine::NewFiles>, int> startFileBroker(FilePermissions permissions) {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return tl::make_unexpected(errno);
  const pid_t broker = ::fork();
  if (broker < 0) {
    const int code = errno;
    ::close(ends[0]);
    ::close(ends[1]);
    return tl::make_unexpected(code);
  }
  if (broker == 0) runBroker(ends[1], std::move(permissions));
  ::close(ends[1]);
  return std::make_shared<BrokeredFiles>(ends[0], broker);
}

}  // namespace clipworks::app
