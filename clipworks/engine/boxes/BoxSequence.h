#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>

namespace clipworks::engine {

/// The head of a box as it stands in the file, unchecked. ISO/IEC 14496-12, 4.2.
struct BoxHeader {
  std::uint32_t type = 0;
  std::uint64_t headerSize = 0;  ///< in bytes: 8, or 16 with a 64-bit size
  std::uint64_t size = 0;        ///< in bytes, head included, as claimed: may pass the end of the parent

  /// The size covers at least the head; otherwise nothing is known of the box, nor of what follows it.
  [[nodiscard]] bool isSound() const { return size >= headerSize; }
};

/// Reads the head at the front of `bytes`. A size of 0 stands for `bytesToEnd`, the distance from there to the end of
/// the parent. Null when the head is cut off.
[[nodiscard]] std::optional<BoxHeader> readBoxHeader(std::span<const std::byte> bytes, std::uint64_t bytesToEnd);

/// A box in memory; does not own its content.
struct Box {
  std::uint32_t type = 0;
  std::span<const std::byte> content;  ///< behind the head, and within the parent whatever the box claims
};

/// The boxes that lie one behind the other in the content of another, from first to last. A box that claims more than
/// its parent holds ends with it; one that does not even cover its own head ends the sequence. Every step moves on by
/// at least eight bytes, so a walk ends. Does not descend, and does not own the bytes.
class BoxSequence {
 public:
  /// The boxes in `content`, which must outlive the sequence and the boxes it returned.
  explicit BoxSequence(std::span<const std::byte> content) : rest_(content) {}

  /// The next box; null when there is no more.
  [[nodiscard]] std::optional<Box> next();

 private:
  std::span<const std::byte> rest_;
};

/// The content of the box at the end of `path`, each step of which is the first box of its type within the one before:
/// where a box that shall occur once occurs again, the first one counts. Null when a step is missing.
[[nodiscard]] std::optional<std::span<const std::byte>> findBox(std::span<const std::byte> content,
                                                                std::initializer_list<std::uint32_t> path);

}  // namespace clipworks::engine
