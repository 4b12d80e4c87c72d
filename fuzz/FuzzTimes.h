#pragma once

#include <array>
#include <cstdint>

#include <clipworks/media/time/CMTime.h>
#include <clipworks/media/time/CMTimeRange.h>
#include <fuzz/FuzzInput.h>

namespace clipworks::fuzz {

/// A time as clips have them, or one at the edge of what fits, or not a number at all.
[[nodiscard]] inline CMTime takeTime(FuzzInput& input) {
  constexpr std::array<std::int32_t, 10> usualScales{1, 24, 30, 600, 1000, 30'000, 44'100, 48'000, 90'000, 1'000'000};
  switch (input.between(0, 5)) {
    case 0:
    case 1:
      return CMTime{input.take<std::int16_t>(), usualScales[static_cast<std::size_t>(input.between(0, 9))]};
    case 2:
      return CMTime{input.take<std::int32_t>(), usualScales[static_cast<std::size_t>(input.between(0, 9))]};
    case 3:
      return CMTime{input.take<std::int64_t>(), input.take<std::int32_t>()};  // braces: evaluated in this order
    case 4:
      return CMTime{input.take<double>(), input.take<std::int32_t>()};
    default: {
      const auto value = input.take<std::int64_t>();
      const auto scale = input.take<std::int32_t>();
      const auto flags = input.take<std::uint8_t>();
      return CMTime(value, scale, flags & 31U, input.take<std::int8_t>());
    }
  }
}

[[nodiscard]] inline CMTimeRange takeRange(FuzzInput& input) {
  const CMTime start = takeTime(input);
  return CMTimeRange(start, takeTime(input));
}

}  // namespace clipworks::fuzz
