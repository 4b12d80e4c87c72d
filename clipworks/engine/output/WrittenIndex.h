#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <clipworks/engine/FileHandle.h>

namespace clipworks::engine {

/// The index (`moov`) of a file that was written here, in memory, and where it lies.
struct WrittenIndex {
  std::int64_t boxPosition = 0;  ///< of its head
  std::int64_t position = 0;     ///< of its content
  std::vector<std::byte> content;

  /// Reads it; the first box of the file lies at `start`. Nothing when there is none.
  [[nodiscard]] static std::optional<WrittenIndex> read(const FileHandle& file, std::int64_t start);
};

}  // namespace clipworks::engine
