#include <clipworks/media/base/UUID.h>

#include <cstddef>
#include <random>

#include <sys/random.h>

namespace clipworks {

namespace {

void fillWithRandomBytes(std::array<std::uint8_t, 16>& bytes) {
  // Requests of up to 256 bytes are never cut short once the system's generator is seeded (getrandom(2)).
  if (getrandom(bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size())) return;
  std::random_device device;
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(device());
}

}  // namespace

UUID UUID::make() {
  std::array<std::uint8_t, 16> bytes{};
  fillWithRandomBytes(bytes);
  // RFC 4122, 4.4: version 4 in the upper half of byte 6, variant binary 10 in the upper bits of byte 8.
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0fU) | 0x40U);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3fU) | 0x80U);
  return UUID(bytes);
}

std::string UUID::uuidString() const {
  constexpr const char* digits = "0123456789ABCDEF";
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes_.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += digits[bytes_[i] >> 4U];
    text += digits[bytes_[i] & 0x0fU];
  }
  return text;
}

}  // namespace clipworks
