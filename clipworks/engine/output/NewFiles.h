#pragma once

#include <filesystem>
#include <memory>

#include <tl/expected.hpp>

#include <clipworks/engine/FileHandle.h>

namespace clipworks::engine {

/// What becomes of a file that has a new one's name already.
enum class ExistingName {
  kept,      ///< the new one gets no name then
  replaced,  ///< in one step
  numbered,  ///< it stays; the new one gets "-2" behind its name, or the first number that is free
};

/// A file that has no name yet. When this goes without `commit()`, nothing is left of it.
class NewFile {
 public:
  NewFile() = default;
  virtual ~NewFile() = default;
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// For reading and writing; lives as long as this.
  [[nodiscard]] virtual const FileHandle& handle() const = 0;
  /// Gives it its name, and returns the one that it got, or a value of `errno`.
  [[nodiscard]] virtual tl::expected<std::filesystem::path, int> commit(ExistingName existing) = 0;
};

/// Makes new files. A process that may not write to any directory has another one do it. For any thread.
class NewFiles {
 public:
  NewFiles() = default;
  virtual ~NewFiles() = default;
  NewFiles(const NewFiles&) = delete;
  NewFiles& operator=(const NewFiles&) = delete;

  /// A file that is to become `path`, or a value of `errno`.
  [[nodiscard]] virtual tl::expected<std::unique_ptr<NewFile>, int> create(const std::filesystem::path& path) = 0;
  /// Removes a file that got its name from here, if it is there still.
  virtual void remove(const std::filesystem::path& path) = 0;
};

}  // namespace clipworks::engine
