#include <clipworks/media/base/FileManager.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace clipworks {
namespace {

std::filesystem::path configDirectory() {
  const char* value = std::getenv("XDG_CONFIG_HOME");
  const bool counts = value != nullptr && std::filesystem::path(value).is_absolute();
  return counts ? std::filesystem::path(value) : NSHomeDirectory() / ".config";
}

/// The line `XDG_DOCUMENTS_DIR="$HOME/Documents"` of xdg-user-dirs: an absolute path, or one below the home directory.
std::optional<std::filesystem::path> configuredDocuments() {
  const std::string name = "XDG_DOCUMENTS_DIR=\"";
  const std::string home = "$HOME/";
  std::ifstream lines(configDirectory() / "user-dirs.dirs");
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(name)) continue;
    const std::string value = line.substr(name.size(), line.rfind('"') - name.size());
    if (value.starts_with(home)) return NSHomeDirectory() / value.substr(home.size());
    if (value.starts_with('/')) return value;
  }
  return std::nullopt;
}

}  // namespace

FileManager& FileManager::default_() {
  // Never destroyed: work may outlive the end of main().
  static auto* instance = new FileManager();
  return *instance;
}

std::vector<URL> FileManager::urls(SearchPathDirectory, SearchPathDomainMask) const {
  const std::lock_guard lock(mutex_);
  if (documents_) return {*documents_};
  const URL documents(configuredDocuments().value_or(NSHomeDirectory() / "Documents"));
  std::error_code ignored;  // the writer that finds no directory says so
  std::filesystem::create_directories(documents.path(), ignored);
  return {documents};
}

void FileManager::setDocumentDirectory(const URL& documentDirectory) {
  const std::lock_guard lock(mutex_);
  documents_ = documentDirectory;
}

Result<void, NSError> FileManager::removeItem(const URL& at) const {
  std::error_code error;
  const auto kind = std::filesystem::symlink_status(at.path(), error).type();
  int code = error.value();
  if (kind == std::filesystem::file_type::directory) {
    code = EISDIR;
  } else if (code == 0 && !std::filesystem::remove(at.path(), error)) {
    code = error ? error.value() : ENOENT;
  }
  if (code == 0) return {};
  return failure(makePosixError(code, at.lastPathComponent() + " cannot be removed"));
}

}  // namespace clipworks
