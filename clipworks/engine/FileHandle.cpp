#include <clipworks/engine/FileHandle.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace clipworks::engine {
namespace {

tl::unexpected<Error> cannot(const std::string& be, const std::string& name, int code) {
  return failed(ErrorKind::unreadable, name + " cannot be " + be + ": " + std::strerror(code), code);
}

}  // namespace

Expected<std::shared_ptr<const FileHandle>> FileHandle::openForReading(const std::filesystem::path& path) {
  const std::string name = path.filename().string();
  // Without O_NONBLOCK, opening a pipe of that name would wait for its writer.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return cannot("opened", name, errno);
  return reading(descriptor, name);
}

Expected<std::shared_ptr<const FileHandle>> FileHandle::again(const FileHandle& open, const std::string& name) {
  const int descriptor = ::fcntl(open.descriptor(), F_DUPFD_CLOEXEC, 0);
  if (descriptor < 0) return cannot("read", name, errno);
  return reading(descriptor, name);
}

Expected<std::shared_ptr<const FileHandle>> FileHandle::reading(int descriptor, const std::string& name) {
  auto handle = std::make_shared<FileHandle>(descriptor);
  struct stat facts {};
  if (::fstat(descriptor, &facts) != 0) return cannot("read", name, errno);
  if (S_ISDIR(facts.st_mode)) return failed(ErrorKind::unreadable, name + " is a directory", EISDIR);
  if (!S_ISREG(facts.st_mode)) return failed(ErrorKind::unreadable, name + " is not a regular file");
  if (facts.st_size == 0) return failed(ErrorKind::notMedia, name + " is empty");
  handle->openedSize_ = facts.st_size;
  handle->openedTime_ = facts.st_mtim;
  return handle;
}

std::int64_t FileHandle::size() const {
  struct stat facts {};
  return ::fstat(descriptor_, &facts) == 0 ? static_cast<std::int64_t>(facts.st_size) : 0;
}

bool FileHandle::hasChanged() const {
  struct stat facts {};
  if (::fstat(descriptor_, &facts) != 0) return false;
  return facts.st_size != openedSize_ || facts.st_mtim.tv_sec != openedTime_.tv_sec ||
         facts.st_mtim.tv_nsec != openedTime_.tv_nsec;
}

std::int64_t FileHandle::readAt(std::int64_t offset, std::uint8_t* bytes, std::int64_t length) const {
  std::int64_t done = 0;
  while (done < length) {
    const ssize_t count = ::pread(descriptor_, bytes + done, static_cast<std::size_t>(length - done), offset + done);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) break;
    done += count;
  }
  return done;
}

}  // namespace clipworks::engine
