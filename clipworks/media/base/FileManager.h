#pragma once

#include <mutex>
#include <optional>
#include <vector>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/NSError.h>
#include <clipworks/media/base/Result.h>
#include <clipworks/media/base/URL.h>

namespace clipworks {

/// Which of the user's directories.
enum class SearchPathDirectory { documentDirectory };
/// Whose directories.
enum class SearchPathDomainMask { userDomainMask };

/// The user's directories, and files in them. One instance; thread-safe.
class CLIPWORKS_API FileManager {
 public:
  /// `FileManager.default`.
  [[nodiscard]] static FileManager&
  default_();  // NOLINT(readability-identifier-naming): the plain word is the language's
  FileManager(const FileManager&) = delete;
  FileManager& operator=(const FileManager&) = delete;

  /// `urls(for:in:)`: one location. By default the documents directory is the one of the user's XDG user directories
  /// (`XDG_DOCUMENTS_DIR` in `user-dirs.dirs`), else `~/Documents`, and is made when it is missing.
  [[nodiscard]] std::vector<URL> urls(SearchPathDirectory for_, SearchPathDomainMask in) const;

  /// Changes the documents directory, for what has not asked for it yet. The new one is not made.
  void setDocumentDirectory(const URL& documentDirectory);

  /// `removeItem(at:)`: removes the file. Fails when there is none, or it cannot be removed; directories are left
  /// alone.
  Result<void, NSError> removeItem(const URL& at) const;

 private:
  FileManager() = default;
  mutable std::mutex mutex_;
  std::optional<URL> documents_;  // guarded by mutex_; nothing: the user's own
};

}  // namespace clipworks
