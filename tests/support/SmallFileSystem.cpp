#include <tests/support/SmallFileSystem.h>

#include <cerrno>
#include <cstring>

#include <sys/mount.h>

namespace clipworks::test {

SmallFileSystem::SmallFileSystem(int kibibytes) {
  const std::string options = "size=" + std::to_string(kibibytes) + "k";
  if (mount("tmpfs", mountPoint_.path().c_str(), "tmpfs", 0, options.c_str()) != 0) {
    whyNot_ = std::string("a small file system cannot be mounted here: ") + std::strerror(errno);
  }
}

SmallFileSystem::~SmallFileSystem() {
  if (isMounted()) {
    // Detached, so that a file still open cannot keep the directory from being removed.
    umount2(mountPoint_.path().c_str(), MNT_DETACH);
  }
}

}  // namespace clipworks::test
