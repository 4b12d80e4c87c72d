#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// The location of a local file. A value; two URLs are equal when their paths are.
class CLIPWORKS_API URL {
 public:
  URL() = default;
  /// `URL(fileURLWithPath:)`. Takes the path as given, absolute or relative; touches no file.
  explicit URL(std::filesystem::path fileURLWithPath);

  /// The path as it was given.
  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  /// A location with `name` below this one. The name is used as given.
  [[nodiscard]] URL appendingPathComponent(const std::string& name) const;

  /// The name of the file: the path's last component.
  [[nodiscard]] std::string lastPathComponent() const;

  /// The part of the name after its last dot, without the dot; empty when there is none.
  [[nodiscard]] std::string pathExtension() const;

  /// Bytes that this process may still write on the file system that holds the location
  /// (the resource value `volumeAvailableCapacityForImportantUsage`); nothing when it cannot be read.
  [[nodiscard]] std::optional<std::int64_t> volumeAvailableCapacityForImportantUsage() const;

  friend bool operator==(const URL& a, const URL& b) { return a.path_ == b.path_; }

 private:
  std::filesystem::path path_;
};

/// The user's home directory: the variable HOME, else the account's entry, else "/".
[[nodiscard]] CLIPWORKS_API std::filesystem::path NSHomeDirectory();

}  // namespace clipworks
