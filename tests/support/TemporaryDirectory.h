#pragma once

#include <filesystem>
#include <string>

#include <sys/types.h>

namespace clipworks::test {

/// A new empty directory below the system's temporary one, removed with everything in it at the end, even where a
/// test took away write permissions. A forked child (a death test) leaves it alone.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path file(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
  pid_t owner_;
};

/// All of a file; nothing where it cannot be read.
[[nodiscard]] std::string bytesOf(const std::filesystem::path& file);

}  // namespace clipworks::test
