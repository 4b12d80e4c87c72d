#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <app/serve/HttpServer.h>

namespace clipworks::app {

/// A file of one directory by its name alone. Nothing outside is reached: names have no slashes, and what is a link
/// counts where it leads.
class ClipFolder {
 public:
  /// Fails where `directory` is none that can be read.
  [[nodiscard]] static Result<ClipFolder, Failure> open(const std::filesystem::path& directory);

  /// Whether a file's name is one of a clip, by its ending.
  [[nodiscard]] static bool isClipName(const std::string& name);

  struct Entry {
    std::string name;
    std::uint64_t bytes = 0;
    std::int64_t changed = 0;  ///< milliseconds since 1970
  };

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  /// The files whose endings are those of clips, by name. Looks into none.
  [[nodiscard]] std::vector<Entry> list() const;
  /// Where a file is that lies in the directory; nothing for any other.
  [[nodiscard]] std::optional<std::filesystem::path> find(const std::string& name) const;
  /// The place for a new file: `name`, with a number where that is there already; nothing for a name that is none.
  [[nodiscard]] std::optional<std::filesystem::path> placeFor(const std::string& name) const;

 private:
  explicit ClipFolder(std::filesystem::path path) : path_(std::move(path)) {}
  std::filesystem::path path_;
};

/// A regular file, opened for reading; nothing where it is no longer one.
[[nodiscard]] std::optional<HttpFile> openedFile(const std::filesystem::path& path);

}  // namespace clipworks::app
