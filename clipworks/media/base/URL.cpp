#include <clipworks/media/base/URL.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <system_error>
#include <utility>
#include <vector>

#include <pwd.h>
#include <unistd.h>

namespace clipworks {

URL::URL(std::filesystem::path fileURLWithPath) : path_(std::move(fileURLWithPath)) {}

URL URL::appendingPathComponent(const std::string& name) const {
  // Not `path / name`: that drops the path when the name begins with a slash.
  std::string joined = path_.native();
  const bool hasSlash = joined.ends_with('/') || name.starts_with('/');
  if (!joined.empty() && !hasSlash) joined += '/';
  if (joined.ends_with('/') && name.starts_with('/')) joined.pop_back();
  return URL(joined + name);
}

std::string URL::lastPathComponent() const {
  std::string path = path_.native();
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path == "/" ? path : std::filesystem::path(path).filename().native();
}

std::string URL::pathExtension() const {
  const std::string extension = std::filesystem::path(lastPathComponent()).extension().native();
  return extension.empty() ? extension : extension.substr(1);
}

std::optional<std::int64_t> URL::volumeAvailableCapacityForImportantUsage() const {
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(path_, error);
  if (error) return std::nullopt;
  constexpr std::uintmax_t most = std::numeric_limits<std::int64_t>::max();
  return static_cast<std::int64_t>(space.available < most ? space.available : most);
}

std::filesystem::path NSHomeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && *home != '\0') return home;
  std::vector<char> buffer(1024);
  passwd entry{};
  passwd* found = nullptr;
  while (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE && buffer.size() < 1U << 20U) {
    buffer.resize(buffer.size() * 2);
  }
  return found != nullptr && found->pw_dir != nullptr && *found->pw_dir != '\0' ? found->pw_dir : "/";
}

}  // namespace clipworks
