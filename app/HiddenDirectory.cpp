#include <app/HiddenDirectory.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <system_error>

namespace clipworks::app {
namespace {

constexpr std::string_view namePrefix = ".clipworks-";
constexpr std::size_t randomLetters = 6;  // that mkdtemp() puts in the place of as many X

/// A locked descriptor of the directory; -1 when another process has it, or it cannot be opened.
int lockOf(const std::filesystem::path& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (descriptor < 0) return -1;
  if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) return descriptor;
  ::close(descriptor);
  return -1;
}

/// Whether `path` still leads to the directory of the descriptor.
bool isStillAt(const std::filesystem::path& path, int descriptor) {
  struct stat opened {};
  struct stat found {};
  return ::fstat(descriptor, &opened) == 0 && ::stat(path.c_str(), &found) == 0 && opened.st_ino == found.st_ino &&
         opened.st_dev == found.st_dev;
}

/// What runs left in `parent` that ended without cleaning up.
void removeOrphans(const std::filesystem::path& parent) {
  std::error_code error;  // what cannot be listed or removed stays hidden
  for (auto entry = std::filesystem::directory_iterator(parent, error);
       !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.size() != namePrefix.size() + randomLetters || !name.starts_with(namePrefix)) continue;
    const int lock = lockOf(entry->path());
    if (lock < 0) continue;
    std::error_code ignored;
    std::filesystem::remove_all(entry->path(), ignored);
    ::close(lock);
  }
}

}  // namespace

Result<std::unique_ptr<HiddenDirectory>, Failure> HiddenDirectory::make(const std::filesystem::path& parent,
                                                                        const std::string& role) {
  removeOrphans(parent);
  for (;;) {
    std::string path = (parent / namePrefix).string() + std::string(randomLetters, 'X');
    if (::mkdtemp(path.data()) == nullptr) {
      const int code = errno;
      if (code == ENOENT) return failed("the " + role + " directory " + parent.string() + " does not exist");
      if (code == ENOTDIR) return failed("the " + role + " directory " + parent.string() + " is not a directory");
      return failed("nothing can be written to the " + role + " directory " + parent.string() + ": " +
                    std::strerror(code));
    }
    const int lock = lockOf(path);
    // Another run may have taken it for an orphan before it was locked; where locks do not exist, nobody removes any.
    if (lock >= 0 ? isStillAt(path, lock) : ::access(path.c_str(), F_OK) == 0) {
      return std::unique_ptr<HiddenDirectory>(new HiddenDirectory(path, lock));
    }
    if (lock >= 0) ::close(lock);
  }
}

HiddenDirectory::~HiddenDirectory() {
  // After an interruption work that cannot be stopped may still put files into it.
  constexpr int attempts = 100;
  std::error_code error;  // what cannot be removed stays hidden
  for (int i = 0; i < attempts; ++i) {
    std::filesystem::remove_all(path_, error);
    if (!error) break;
  }
  if (lock_ >= 0) ::close(lock_);
}

}  // namespace clipworks::app
