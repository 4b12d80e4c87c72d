#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include <app/Failure.h>

namespace clipworks::app {

/// A directory of a new hidden name that belongs to this process, and goes with everything in it at the end. It is
/// locked while the process lives; those in the same place whose process is gone are removed when a new one is made.
class HiddenDirectory {
 public:
  /// In `parent`, which people know as `role`: "outputs", "temp". Fails with a sentence.
  [[nodiscard]] static Result<std::unique_ptr<HiddenDirectory>, Failure> make(const std::filesystem::path& parent,
                                                                              const std::string& role);
  ~HiddenDirectory();
  HiddenDirectory(const HiddenDirectory&) = delete;
  HiddenDirectory& operator=(const HiddenDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

 private:
  HiddenDirectory(std::filesystem::path path, int lock) : path_(std::move(path)), lock_(lock) {}

  std::filesystem::path path_;
  int lock_;  // a descriptor of the directory
};

}  // namespace clipworks::app
