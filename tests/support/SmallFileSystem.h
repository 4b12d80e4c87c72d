#pragma once

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include <sys/mount.h>

#include <tests/support/TemporaryDirectory.h>

namespace clipworks::test {

/// A file system of its own with only so much room, for tests of what happens when it is full:
///
///     SmallFileSystem small(512);
///     if (!small.isMounted()) GTEST_SKIP() << small.whyNot();
///
/// It is a tmpfs, which only root may mount. Unmounted at the end.
class SmallFileSystem {
 public:
  /// Room for `kibibytes`, in whole pages.
  explicit SmallFileSystem(int kibibytes) {
    const std::string options = "size=" + std::to_string(kibibytes) + "k";
    if (mount("tmpfs", path().c_str(), "tmpfs", 0, options.c_str()) != 0) whyNot_ = std::strerror(errno);
  }
  ~SmallFileSystem() {
    // Detached, so that a file still open cannot keep the directory from being removed.
    if (isMounted()) umount2(path().c_str(), MNT_DETACH);
  }
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;

  [[nodiscard]] bool isMounted() const { return whyNot_.empty(); }
  [[nodiscard]] std::string whyNot() const { return "a small file system cannot be mounted here: " + whyNot_; }
  [[nodiscard]] const std::filesystem::path& path() const { return mountPoint_.path(); }

 private:
  TemporaryDirectory mountPoint_;
  std::string whyNot_;
};

}  // namespace clipworks::test
