#pragma once

#include <filesystem>
#include <string>

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
  explicit SmallFileSystem(int kibibytes);
  ~SmallFileSystem();
  SmallFileSystem(const SmallFileSystem&) = delete;
  SmallFileSystem& operator=(const SmallFileSystem&) = delete;

  [[nodiscard]] bool isMounted() const { return whyNot_.empty(); }
  [[nodiscard]] const std::string& whyNot() const { return whyNot_; }
  [[nodiscard]] std::filesystem::path path() const { return mountPoint_.path(); }

 private:
  TemporaryDirectory mountPoint_;
  std::string whyNot_;
};

}  // namespace clipworks::test
