#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/FileHandle.h>

namespace clipworks::engine {

/// A file that has no name until it is whole: written anonymously in its directory (`O_TMPFILE`) and linked by
/// `commit()`, so that a name in the directory is always a complete file, even after a kill. Where the file system
/// lacks that, a hidden name is used and removed again. Without `commit()` nothing is left.
/// One thread at a time; `cancel()` from any thread.
class OutputFile {
 public:
  /// What becomes of a file that has the name already.
  enum class Existing {
    kept,      ///< nothing can be written then
    replaced,  ///< in one step, by `commit()`
    numbered,  ///< it stays; the new one gets "-2" behind its name, or the first number that is free
  };

  /// `lengthLimit` in bytes; 0 is no limit.
  [[nodiscard]] static Expected<std::unique_ptr<OutputFile>> create(const std::filesystem::path& path,
                                                                    std::int64_t lengthLimit,
                                                                    Existing existing = Existing::kept);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();

  [[nodiscard]] const FileHandle& handle() const { return handle_; }
  [[nodiscard]] std::string name() const { return path_.filename().string(); }
  /// Where it is, once `commit()` has succeeded.
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  /// Writes all bytes at `offset`. Fails with `unwritable`, `lengthLimit` or `cancelled`.
  [[nodiscard]] Expected<void> writeAt(std::int64_t offset, const std::uint8_t* bytes, std::int64_t length);

  /// Gives the file its name. Fails when something of that name is there and not to be replaced.
  [[nodiscard]] Expected<void> commit();

  /// Makes every further write fail with `cancelled`.
  void cancel() { cancelled_.store(true, std::memory_order_relaxed); }

 private:
  OutputFile(std::filesystem::path path, std::optional<std::filesystem::path> hidden, int descriptor,
             std::int64_t lengthLimit, Existing existing)
      : path_(std::move(path)),
        hidden_(std::move(hidden)),
        handle_(descriptor),
        lengthLimit_(lengthLimit),
        existing_(existing) {}
  [[nodiscard]] bool linkTo(const std::filesystem::path& path) const;

  std::filesystem::path path_;
  std::optional<std::filesystem::path> hidden_;  // the name in use until commit, where there must be one
  FileHandle handle_;
  std::int64_t lengthLimit_;
  Existing existing_;
  std::atomic<bool> cancelled_ = false;
};

}  // namespace clipworks::engine
