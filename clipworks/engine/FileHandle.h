#pragma once

#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include <clipworks/engine/Error.h>

namespace clipworks::engine {

/// An open descriptor, closed at the end. Reads and writes carry their own offset, so that several readers share one.
class FileHandle {
 public:
  /// Opens an existing regular file for reading. Fails with a sentence that names it.
  [[nodiscard]] static Expected<std::shared_ptr<const FileHandle>> openForReading(const std::filesystem::path& path);

  /// A second descriptor for reading of a file that is open. Fails in the same way.
  [[nodiscard]] static Expected<std::shared_ptr<const FileHandle>> again(const FileHandle& open,
                                                                         const std::string& name);

  explicit FileHandle(int descriptor) : descriptor_(descriptor) {}
  FileHandle(FileHandle&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileHandle& operator=(FileHandle&&) = delete;
  FileHandle(const FileHandle&) = delete;
  FileHandle& operator=(const FileHandle&) = delete;
  ~FileHandle() {
    if (descriptor_ >= 0) ::close(descriptor_);
  }

  [[nodiscard]] int descriptor() const { return descriptor_; }
  [[nodiscard]] std::int64_t size() const;
  /// When it was opened for reading: bytes, and nanoseconds since 1970 of its last change of content.
  [[nodiscard]] std::int64_t openedSize() const { return openedSize_; }
  [[nodiscard]] std::int64_t openedTime() const { return openedTime_.tv_sec * 1'000'000'000 + openedTime_.tv_nsec; }
  /// Whether the file was written since it was opened for reading, as far as its size and time tell.
  [[nodiscard]] bool hasChanged() const;

  /// Reads up to `length` bytes at `offset`; fewer only at the end of the file. -1 with `errno` on failure.
  [[nodiscard]] std::int64_t readAt(std::int64_t offset, std::uint8_t* bytes, std::int64_t length) const;

 private:
  /// Takes `descriptor`, a regular file with something in it.
  static Expected<std::shared_ptr<const FileHandle>> reading(int descriptor, const std::string& name);

  int descriptor_;
  std::int64_t openedSize_ = 0;  // bytes
  timespec openedTime_{};        // of its last change of content
};

}  // namespace clipworks::engine
