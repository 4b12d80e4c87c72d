#include <clipworks/engine/output/DirectNewFiles.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <random>
#include <string>
#include <system_error>
#include <utility>

namespace clipworks::engine {
namespace {

constexpr mode_t newFileMode = 0666;  // less the process's mask

std::filesystem::path hiddenBeside(const std::filesystem::path& path) {
  std::random_device random;
  return path.parent_path() / ("." + path.filename().string() + "." + std::to_string(random()) + ".partial");
}

class DirectNewFile final : public NewFile {
 public:
  DirectNewFile(std::filesystem::path path, std::optional<std::filesystem::path> hidden, int descriptor)
      : path_(std::move(path)), hidden_(std::move(hidden)), handle_(descriptor) {}
  ~DirectNewFile() override {
    if (hidden_) ::unlink(hidden_->c_str());
  }

  [[nodiscard]] const FileHandle& handle() const override { return handle_; }

  [[nodiscard]] tl::expected<std::filesystem::path, int> commit(ExistingName existing) override {
    if (linkTo(path_)) return path_;
    int code = errno;
    std::filesystem::path numbered = path_;
    for (int number = 2; code == EEXIST && existing == ExistingName::numbered; ++number) {
      numbered.replace_filename(path_.stem().string() + "-" + std::to_string(number) + path_.extension().string());
      if (linkTo(numbered)) return numbered;
      code = errno;
    }
    if (code == EEXIST && existing == ExistingName::replaced) {
      // A link replaces nothing, a rename does, in one step.
      const auto beside = hiddenBeside(path_);
      if (linkTo(beside) && ::rename(beside.c_str(), path_.c_str()) == 0) return path_;
      code = errno;
      ::unlink(beside.c_str());
    }
    return tl::make_unexpected(code);
  }

 private:
  [[nodiscard]] bool linkTo(const std::filesystem::path& path) const {
    if (hidden_) return ::link(hidden_->c_str(), path.c_str()) == 0;
    const std::string anonymous = "/proc/self/fd/" + std::to_string(handle_.descriptor());
    return ::linkat(AT_FDCWD, anonymous.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
  }

  std::filesystem::path path_;
  std::optional<std::filesystem::path> hidden_;  // the name in use until commit, where there must be one
  FileHandle handle_;
};

}  // namespace

tl::expected<std::unique_ptr<NewFile>, int> DirectNewFiles::create(const std::filesystem::path& path) {
  const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  int descriptor = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, newFileMode);
  std::optional<std::filesystem::path> hidden;
  // EISDIR and ENOENT come from kernels and file systems that take O_TMPFILE for a plain open of the directory.
  if (descriptor < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)) {
    hidden = hiddenBeside(path);
    descriptor = ::open(hidden->c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, newFileMode);
  }
  if (descriptor < 0) return tl::make_unexpected(errno);
  return std::make_unique<DirectNewFile>(path, std::move(hidden), descriptor);
}

void DirectNewFiles::remove(const std::filesystem::path& path) {
  std::error_code ignored;
  std::filesystem::remove(path, ignored);
}

NewFiles& orDirect(const std::shared_ptr<NewFiles>& files) {
  static auto& direct = *new DirectNewFiles;  // never destroyed: used until the process ends
  return files ? *files : direct;
}

}  // namespace clipworks::engine
