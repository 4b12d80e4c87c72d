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

}  // namespace

Expected<std::unique_ptr<OutputFile>> OutputFile::create(const std::filesystem::path& path, std::int64_t lengthLimit) {
  const std::filesystem::path directory = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
  const std::string what = "nothing can be written to " + directory.string();
  // Found again when the file gets its name; said here, it costs nobody an export.
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) == 0) {
    return tl::make_unexpected(unwritable(path.filename().string() + " cannot be put in place", EEXIST));
  }
  int descriptor = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, newFileMode);
  std::optional<std::filesystem::path> hidden;
  // EISDIR and ENOENT come from kernels and file systems that take O_TMPFILE for a plain open of the directory.
  if (descriptor < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == ENOENT || errno == EINVAL)) {
    std::random_device random;
    hidden = directory / ("." + path.filename().string() + "." + std::to_string(random()) + ".partial");
    descriptor = ::open(hidden->c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, newFileMode);
  }
  if (descriptor < 0) return tl::make_unexpected(unwritable(what, errno));
  return std::unique_ptr<OutputFile>(new OutputFile(path, hidden, descriptor, lengthLimit));
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

Expected<void> OutputFile::commit() {
  int code = 0;
  if (hidden_) {
    code = ::link(hidden_->c_str(), path_.c_str());
  } else {
    const std::string anonymous = "/proc/self/fd/" + std::to_string(handle_.descriptor());
    code = ::linkat(AT_FDCWD, anonymous.c_str(), AT_FDCWD, path_.c_str(), AT_SYMLINK_FOLLOW);
  }
  if (code != 0) return tl::make_unexpected(unwritable(name() + " cannot be put in place", errno));
  return {};
}

}  // namespace clipworks::engine
