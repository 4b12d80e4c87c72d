// Loaded into the program with LD_PRELOAD: reading the file FAULT_FILE at or behind the byte FAULT_FROM fails as a
// broken disk does, with EIO.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

namespace {

using Pread = ssize_t (*)(int, void*, std::size_t, off_t);

bool isBroken(int descriptor) {
  static const char* const path = std::getenv("FAULT_FILE");
  struct stat broken {};
  struct stat read {};
  return path != nullptr && ::stat(path, &broken) == 0 && ::fstat(descriptor, &read) == 0 &&
         broken.st_ino == read.st_ino && broken.st_dev == read.st_dev;
}

ssize_t readUpToFault(const char* name, int descriptor, void* bytes, std::size_t count, off_t offset) {
  const auto real = reinterpret_cast<Pread>(::dlsym(RTLD_NEXT, name));
  static const off_t from = std::atoll(std::getenv("FAULT_FROM"));
  if (!isBroken(descriptor)) return real(descriptor, bytes, count, offset);
  if (offset >= from) {
    errno = EIO;
    return -1;
  }
  return real(descriptor, bytes, std::min(count, static_cast<std::size_t>(from - offset)), offset);
}

}  // namespace

extern "C" {
__attribute__((visibility("default"))) ssize_t pread(int descriptor, void* bytes, std::size_t count, off_t offset) {
  return readUpToFault("pread", descriptor, bytes, count, offset);
}

__attribute__((visibility("default"))) ssize_t pread64(int descriptor, void* bytes, std::size_t count, off_t offset) {
  return readUpToFault("pread64", descriptor, bytes, count, offset);
}
}
