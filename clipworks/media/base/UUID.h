#pragma once

#include <array>
#include <cstdint>
#include <string>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// A universally unique identifier: a random one, version 4 of RFC 4122. A value.
class CLIPWORKS_API UUID {
 public:
  /// `UUID()`: a new identifier from the system's source of random numbers. Any thread.
  [[nodiscard]] static UUID make();

  /// 36 characters, hexadecimal digits in uppercase: `E621E1F8-C36C-495A-93FC-0C247A3E6E5F`.
  [[nodiscard]] std::string uuidString() const;

  friend bool operator==(const UUID&, const UUID&) = default;

 private:
  explicit UUID(const std::array<std::uint8_t, 16>& bytes) : bytes_(bytes) {}

  std::array<std::uint8_t, 16> bytes_;
};

}  // namespace clipworks
