#include <clipworks/filedeck/FileSystem.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace clipworks {
namespace {

// The XDG base directories: a variable that is unset, empty or relative counts for nothing.
std::filesystem::path baseDirectory(const char* variable, const char* belowHome) {
  if (const char* value = std::getenv(variable); value != nullptr && std::filesystem::path(value).is_absolute()) {
    return value;
  }
  return NSHomeDirectory() / belowHome;
}

URL madeDirectory(const URL& url) {
  std::error_code ignored;  // the writer that finds no directory says so
  std::filesystem::create_directories(url.path(), ignored);
  return url;
}

}  // namespace

FileSystem::FileSystem()
    : outputs_(baseDirectory("XDG_DATA_HOME", ".local/share") / "clipworks" / "outputs"),
      temp_(baseDirectory("XDG_CACHE_HOME", ".cache") / "clipworks" / "temp") {}

FileSystem& FileSystem::shared() {
  static auto& instance = *new FileSystem;
  return instance;
}

URL FileSystem::outputsURL() const {
  const std::lock_guard lock(mutex_);
  return madeDirectory(outputs_);
}

URL FileSystem::tempURL() const {
  const std::lock_guard lock(mutex_);
  return madeDirectory(temp_);
}

void FileSystem::setOutputsURL(const URL& outputsURL) {
  const std::lock_guard lock(mutex_);
  outputs_ = outputsURL;
}

void FileSystem::setTempURL(const URL& tempURL) {
  const std::lock_guard lock(mutex_);
  temp_ = tempURL;
}

void FileSystem::deleteFile(const URL& at) const {
  std::error_code ignored;
  if (std::filesystem::is_directory(std::filesystem::symlink_status(at.path(), ignored))) return;
  std::filesystem::remove(at.path(), ignored);
}

}  // namespace clipworks
