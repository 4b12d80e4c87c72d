#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <type_traits>

namespace clipworks::engine {

/// Reads big-endian numbers from the bytes of a box, one after the other, and never past their end: what is not there
/// reads as 0, and `isOverrun()` tells from then on that it happened. So a box of fixed layout is read in one go and
/// checked once. Does not own the bytes.
class BoxCursor {
 public:
  /// From the first of `bytes` on; they must outlive the cursor.
  explicit BoxCursor(std::span<const std::byte> bytes) : rest_(bytes) {}

  /// The bytes that have not been read.
  [[nodiscard]] std::span<const std::byte> rest() const { return rest_; }

  /// More was read or skipped than there was.
  [[nodiscard]] bool isOverrun() const { return isOverrun_; }

  /// Passes over `count` bytes.
  void skip(std::size_t count) {
    if (holds(count)) {
      rest_ = rest_.subspan(count);
    }
  }

  /// The next number of `T`'s width; two's complement where `T` is signed.
  template <std::integral T>
  [[nodiscard]] T read() {
    if (!holds(sizeof(T))) {
      return 0;
    }
    std::uint64_t value = 0;
    for (const std::byte byte : rest_.first(sizeof(T))) {
      value = value << 8 | std::to_integer<std::uint64_t>(byte);
    }
    rest_ = rest_.subspan(sizeof(T));
    return static_cast<T>(static_cast<std::make_unsigned_t<T>>(value));
  }

 private:
  [[nodiscard]] bool holds(std::size_t count) {
    if (count <= rest_.size()) {
      return true;
    }
    rest_ = {};
    isOverrun_ = true;
    return false;
  }

  std::span<const std::byte> rest_;
  bool isOverrun_ = false;
};

}  // namespace clipworks::engine
