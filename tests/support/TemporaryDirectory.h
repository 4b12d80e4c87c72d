#pragma once

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

#include <unistd.h>

namespace clipworks::test {

/// A new empty directory below the system's temporary one, removed with everything in it at the end, even where a
/// test took away its write permission. A forked child (a death test) leaves it alone.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    const char* base = std::getenv("TMPDIR");
    std::filesystem::create_directories(base != nullptr ? base : "/tmp");
    std::string name = std::string(base != nullptr ? base : "/tmp") + "/clipworks-test-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
  }
  ~TemporaryDirectory() {
    namespace fs = std::filesystem;
    if (getpid() != owner_) return;
    std::error_code ignored;
    fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
    fs::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  [[nodiscard]] std::filesystem::path file(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
  pid_t owner_ = getpid();
};

/// The names in a directory, hidden ones too.
[[nodiscard]] inline std::set<std::string> namesIn(const std::filesystem::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) names.insert(entry.path().filename());
  return names;
}

/// All of a file; nothing where it cannot be read.
[[nodiscard]] inline std::string fileBytes(const std::filesystem::path& file) {
  std::ostringstream bytes;
  bytes << std::ifstream(file, std::ios::binary).rdbuf();
  return std::move(bytes).str();
}

/// Makes `file` hold nothing but `bytes`; returns it.
inline std::filesystem::path writeTo(const std::filesystem::path& file, const std::string& bytes) {
  std::ofstream(file, std::ios::binary) << bytes;
  return file;
}

}  // namespace clipworks::test
