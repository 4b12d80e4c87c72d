#pragma once

#include <clipworks/engine/output/NewFiles.h>

namespace clipworks::engine {

/// Makes files by the process itself: without a name (`O_TMPFILE`), linked by `commit()`, so that a name in the
/// directory is always a complete file, even after a kill. Where the file system lacks that, a hidden name is used and
/// removed again.
class DirectNewFiles final : public NewFiles {
 public:
  [[nodiscard]] tl::expected<std::unique_ptr<NewFile>, int> create(const std::filesystem::path& path) override;
  void remove(const std::filesystem::path& path) override;
};

/// `files`, or those that the process makes itself where that is null.
[[nodiscard]] NewFiles& orDirect(const std::shared_ptr<NewFiles>& files);

}  // namespace clipworks::engine
