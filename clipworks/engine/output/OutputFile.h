#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::engine {

/// A file that gets its name once it is whole. Without `commit()` nothing is left.
/// One thread at a time; `cancel()` from any thread.
class OutputFile {
 public:
  /// `lengthLimit` in bytes; 0 is no limit. `files` makes it; null is the process itself.
  [[nodiscard]] static Expected<std::unique_ptr<OutputFile>> create(const std::filesystem::path& path,
                                                                    std::int64_t lengthLimit,
                                                                    ExistingName existing = ExistingName::kept,
                                                                    const std::shared_ptr<NewFiles>& files = nullptr);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  [[nodiscard]] const FileHandle& handle() const { return file_->handle(); }
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
  OutputFile(std::filesystem::path path, std::unique_ptr<NewFile> file, std::int64_t lengthLimit, ExistingName existing)
      : path_(std::move(path)), file_(std::move(file)), lengthLimit_(lengthLimit), existing_(existing) {}

  std::filesystem::path path_;
  std::unique_ptr<NewFile> file_;
  std::int64_t lengthLimit_;
  ExistingName existing_;
  std::atomic<bool> cancelled_ = false;
};

}  // namespace clipworks::engine
