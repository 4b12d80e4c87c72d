#include <clipworks/engine/output/OutputFile.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <random>

namespace clipworks::engine {
namespace {

constexpr mode_t newFileMode = 0666;  // less the process's mask

Error unwritable(const std::string& what, int code) {
  return Error{ErrorKind::unwritable, what + ": " + std::strerror(code), code};
}

std::filesystem::path hiddenBeside(const std::filesystem::path& path) {
  std::random_device random;
  return path.parent_path() / ("." + path.filename().string() + "." + std::to_string(random()) + ".partial");
}

}  // namespace

Expected<std::unique_ptr<OutputFile>> OutputFile::create(const std::filesystem::path& path, std::int64_t lengthLimit,
                                                         Existing existing) {
  const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  const std::string what = "nothing can be written to " + directory.string();
  // Found again when the file gets its name; said here, it costs nobody an export.
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) == 0 &&
      (existing == Existing::kept || (existing == Existing::replaced && S_ISDIR(facts.st_mode)))) {
    return tl::make_unexpected(unwritable(path.filename().string() + " cannot be put in place", EEXIST));
  }
  int descriptor = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, newFileMode);
  std::optional<std::filesystem::path> hidden;
  // EISDIR and ENOENT come from kernels and file systems that take O_TMPFILE for a plain open of the directory.
  if (descriptor < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)) {
    hidden = hiddenBeside(path);
    descriptor = ::open(hidden->c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, newFileMode);
  }
  if (descriptor < 0) return tl::make_unexpected(unwritable(what, errno));
  return std::unique_ptr<OutputFile>(new OutputFile(path, hidden, descriptor, lengthLimit, existing));
}

OutputFile::~OutputFile() {
  if (hidden_) ::unlink(hidden_->c_str());
}

Expected<void> OutputFile::writeAt(std::int64_t offset, const std::uint8_t* bytes, std::int64_t length) {
  if (cancelled_.load(std::memory_order_relaxed)) return failed(ErrorKind::cancelled, "cancelled");
  if (lengthLimit_ > 0 && offset + length > lengthLimit_) {
    return failed(ErrorKind::lengthLimit,
                  name() + " would be longer than the limit of " + std::to_string(lengthLimit_) + " bytes");
  }
  while (length > 0) {
    const ssize_t count = ::pwrite(handle_.descriptor(), bytes, static_cast<std::size_t>(length), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return tl::make_unexpected(unwritable(name() + " cannot be written", errno));
    bytes += count;
    offset += count;
    length -= count;
  }
  return {};
}

bool OutputFile::linkTo(const std::filesystem::path& path) const {
  if (hidden_) return ::link(hidden_->c_str(), path.c_str()) == 0;
  const std::string anonymous = "/proc/self/fd/" + std::to_string(handle_.descriptor());
  return ::linkat(AT_FDCWD, anonymous.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

Expected<void> OutputFile::commit() {
  if (linkTo(path_)) return {};
  int code = errno;
  const std::filesystem::path asked = path_;
  for (int number = 2; code == EEXIST && existing_ == Existing::numbered; ++number) {
    path_.replace_filename(asked.stem().string() + "-" + std::to_string(number) + asked.extension().string());
    if (linkTo(path_)) return {};
    code = errno;
  }
  if (code == EEXIST && existing_ == Existing::replaced) {
    // A link replaces nothing, a rename does, in one step.
    const auto beside = hiddenBeside(path_);
    if (linkTo(beside) && ::rename(beside.c_str(), path_.c_str()) == 0) return {};
    code = errno;
    ::unlink(beside.c_str());
  }
  return tl::make_unexpected(unwritable(name() + " cannot be put in place", code));
}

}  // namespace clipworks::engine
