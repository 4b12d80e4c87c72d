#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

#include <clipworks/engine/boxes/BoxCursor.h>

namespace clipworks::engine {

/// Reads a box that begins with a version and flags, and whose times and durations are 32 bits wide in version 0 and 64
/// in version 1: `mvhd`, `tkhd`, `mdhd`, `mehd`, `elst`. Does not own the bytes.
class FullBoxCursor : public BoxCursor {
 public:
  /// Stands behind the flags. Null for other versions, which shall be passed over (ISO/IEC 14496-12, 4.2), and for a
  /// box too short for a version. `content` must outlive the cursor.
  [[nodiscard]] static std::optional<FullBoxCursor> open(std::span<const std::byte> content) {
    FullBoxCursor cursor(content);
    const std::uint32_t version = cursor.read<std::uint32_t>() >> 24;
    if (cursor.isOverrun() || version > 1) {
      return std::nullopt;
    }
    cursor.isWide_ = version == 1;
    return cursor;
  }

  /// Bytes of a time or a duration: 4 or 8.
  [[nodiscard]] std::size_t timeBytes() const { return isWide_ ? sizeof(std::uint64_t) : sizeof(std::uint32_t); }

  /// A time or duration that is not negative.
  [[nodiscard]] std::uint64_t readTime() { return isWide_ ? read<std::uint64_t>() : read<std::uint32_t>(); }

  /// A time that may be negative.
  [[nodiscard]] std::int64_t readSignedTime() { return isWide_ ? read<std::int64_t>() : read<std::int32_t>(); }

  /// The duration of a whole movie or media; 0 where all ones say that it is unknown.
  [[nodiscard]] std::uint64_t readWholeDuration() {
    const std::uint64_t unknown =
        isWide_ ? std::numeric_limits<std::uint64_t>::max() : std::numeric_limits<std::uint32_t>::max();
    const std::uint64_t duration = readTime();
    return duration == unknown ? 0 : duration;
  }

 private:
  explicit FullBoxCursor(std::span<const std::byte> content) : BoxCursor(content) {}

  bool isWide_ = false;
};

}  // namespace clipworks::engine
