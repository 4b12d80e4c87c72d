#include <tests/support/TemporaryDirectory.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <system_error>

#include <unistd.h>

namespace clipworks::test {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() : owner_(getpid()) {
  const char* base = std::getenv("TMPDIR");
  std::string name = fs::path(base != nullptr && *base != '\0' ? base : "/tmp") / "clipworks-test-";
  name += std::string(6, 'X');  // mkdtemp() replaces these
  fs::create_directories(fs::path(name).parent_path());
  if (mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "no temporary directory at " + name);
  }
  path_ = name;
}

TemporaryDirectory::~TemporaryDirectory() {
  if (getpid() != owner_) return;
  std::error_code ignored;
  fs::permissions(path_, fs::perms::owner_all, fs::perm_options::add, ignored);
  for (fs::recursive_directory_iterator it(path_, ignored), end; !ignored && it != end; it.increment(ignored)) {
    if (it->symlink_status(ignored).type() == fs::file_type::directory) {
      fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
    }
  }
  fs::remove_all(path_, ignored);
}

std::string bytesOf(const fs::path& file) {
  std::ostringstream bytes;
  bytes << std::ifstream(file, std::ios::binary).rdbuf();
  return std::move(bytes).str();
}

}  // namespace clipworks::test
