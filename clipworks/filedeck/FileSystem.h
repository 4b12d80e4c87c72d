#pragma once

#include <mutex>

#include <clipworks/media/base/Export.h>
#include <clipworks/media/base/URL.h>

namespace clipworks {

/// Where the operations put their files: one shared instance, with directories that the host may set. Thread-safe.
class CLIPWORKS_API FileSystem {
 public:
  /// The one instance. Never destroyed: work of the platform may ask it until the very end of the process.
  [[nodiscard]] static FileSystem& shared();
  FileSystem(const FileSystem&) = delete;
  FileSystem& operator=(const FileSystem&) = delete;

  /// Directory for final products; made when it is missing. By default `clipworks/outputs` below `$XDG_DATA_HOME`
  /// (`~/.local/share`).
  [[nodiscard]] URL outputsURL() const;
  /// Directory for scratch files; made when it is missing. By default `clipworks/temp` below `$XDG_CACHE_HOME`
  /// (`~/.cache`).
  [[nodiscard]] URL tempURL() const;

  /// Changes a directory, for operations that have not chosen their file yet.
  void setOutputsURL(const URL& outputsURL);
  void setTempURL(const URL& tempURL);

  /// `deleteFile(at:)`: removes the file if one is there. A missing file, or one that cannot be removed, is no error;
  /// directories are left alone.
  void deleteFile(const URL& at) const;

 private:
  FileSystem();
  mutable std::mutex mutex_;
  URL outputs_;  // guarded by mutex_
  URL temp_;     // guarded by mutex_
};

}  // namespace clipworks
