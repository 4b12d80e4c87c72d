#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::app {

/// Which new files a confined process may have made.
struct FilePermissions {
  std::vector<std::filesystem::path> directories;
  std::vector<std::string> beginnings;  ///< of their names
  std::vector<std::string> endings;     ///< ".mp4"
  std::string replacedEnding{};         ///< of names that are replaced in any case; empty: none
  bool mayReplace = false;              ///< those that are there

  [[nodiscard]] bool allow(const std::filesystem::path& path) const;
  /// Of what is allowed.
  [[nodiscard]] bool mayReplaceAt(const std::filesystem::path& path) const;
};

/// Starts a process that makes new files for this one, which may give up its own rights to then: no directory has to be
/// open for writing, where a decoder that has been taken over could change what else lies there. What is asked for
/// beyond `permissions` fails with `EPERM`. The process ends with the last reference to the result, or with this
/// process. Before there are other threads. A value of `errno` where the system has no more processes or descriptors.
[[nodiscard]] tl::expected<std::shared_ptr<engine::NewFiles>, int> startFileBroker(FilePermissions permissions);

}  // namespace clipworks::app
