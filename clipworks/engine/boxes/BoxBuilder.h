#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace clipworks::engine {

/// Puts boxes together in memory, big-endian, each with its size in 32 bits: ISO/IEC 14496-12, 4.2. A box of 4 GiB or
/// more cannot be told.
class BoxBuilder {
 public:
  template <std::integral T>
  void put(T value) {
    for (std::size_t i = sizeof(T); i-- > 0;)
      bytes_.push_back(static_cast<std::byte>(static_cast<std::uint64_t>(value) >> (8 * i) & 0xFF));
  }
  void put(std::span<const std::byte> bytes) { bytes_.insert(bytes_.end(), bytes.begin(), bytes.end()); }
  void putZeros(std::size_t count) { bytes_.resize(bytes_.size() + count); }

  /// A box whose content `fill` puts.
  template <class Fill>
  void box(std::uint32_t type, Fill fill) {
    const std::size_t start = bytes_.size();
    put(std::uint32_t{0});
    put(type);
    fill();
    const std::size_t size = bytes_.size() - start;
    for (std::size_t i = 0; i < sizeof(std::uint32_t); ++i)
      bytes_[start + i] = static_cast<std::byte>(size >> (8 * (3 - i)) & 0xFF);
  }
  /// The same with a version and flags before it.
  template <class Fill>
  void fullBox(std::uint32_t type, std::uint8_t version, std::uint32_t flags, Fill fill) {
    box(type, [&] {
      put(std::uint32_t{version} << 24 | flags);
      fill();
    });
  }

  [[nodiscard]] std::size_t size() const { return bytes_.size(); }
  [[nodiscard]] std::vector<std::byte> take() { return std::exchange(bytes_, {}); }

 private:
  std::vector<std::byte> bytes_;
};

}  // namespace clipworks::engine
