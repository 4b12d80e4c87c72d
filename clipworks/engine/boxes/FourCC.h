#pragma once

#include <cstdint>

namespace clipworks::engine {

/// A four-character code as the big-endian number that stands in the file: `fourCC("moov")`.
[[nodiscard]] consteval std::uint32_t fourCC(const char (&name)[5]) {
  std::uint32_t code = 0;
  for (int i = 0; i < 4; ++i) {
    code = code << 8 | static_cast<unsigned char>(name[i]);
  }
  return code;
}

}  // namespace clipworks::engine
