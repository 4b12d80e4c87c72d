#pragma once

#include <cstdint>
#include <limits>
#include <numeric>

#include <clipworks/media/time/CMTime.h>

/// Exact placement of media: integer arithmetic on time scales, through 128 bits. Nothing here overflows, aborts or
/// allocates; what does not fit 64 bits becomes the nearest number that does.
namespace clipworks {

__extension__ typedef __int128 Int128;

/// `number` as a 64-bit integer, or the nearest one.
[[nodiscard]] constexpr std::int64_t saturated(Int128 number) {
  constexpr Int128 most = std::numeric_limits<std::int64_t>::max();
  constexpr Int128 least = std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(number > most ? most : number < least ? least : number);
}

/// `numerator` / `denominator` (positive) as an integer; `isCoarser` is what `quickTime` asks: whether the result
/// counts larger units than the numerator did.
[[nodiscard]] constexpr Int128 divideRounded(Int128 numerator, Int128 denominator, CMTimeRoundingMethod method,
                                             bool isCoarser) {
  const Int128 quotient = numerator / denominator;  // towards zero
  const Int128 remainder = numerator % denominator;
  if (remainder == 0) return quotient;
  const int away = numerator < 0 ? -1 : 1;
  const Int128 distance = remainder < 0 ? -remainder : remainder;
  switch (method) {
    case CMTimeRoundingMethod::roundHalfAwayFromZero:
      return distance >= denominator - distance ? quotient + away : quotient;
    case CMTimeRoundingMethod::roundTowardZero:
      return quotient;
    case CMTimeRoundingMethod::roundAwayFromZero:
      return quotient + away;
    case CMTimeRoundingMethod::roundTowardPositiveInfinity:
      return away > 0 ? quotient + 1 : quotient;
    case CMTimeRoundingMethod::roundTowardNegativeInfinity:
      return away < 0 ? quotient - 1 : quotient;
    case CMTimeRoundingMethod::quickTime:
      return isCoarser ? quotient : quotient + away;
  }
  return quotient;
}

/// `a` × `b` / `c`: a count of 1/`c` in counts of 1/`b`. When `c` is 0: 0, or the most or least number that there is,
/// by the sign of the product. `quickTime` rounds towards zero when |b| < |c|, else away from it.
[[nodiscard]] constexpr std::int64_t mulDiv(
    std::int64_t a, std::int64_t b, std::int64_t c,
    CMTimeRoundingMethod rounding = CMTimeRoundingMethod::roundHalfAwayFromZero) {
  const Int128 product = static_cast<Int128>(a) * b;
  if (c == 0) return product == 0 ? 0 : saturated(product > 0 ? Int128{1} << 100 : -(Int128{1} << 100));
  const Int128 divisor = c < 0 ? -static_cast<Int128>(c) : static_cast<Int128>(c);
  const Int128 factor = b < 0 ? -static_cast<Int128>(b) : static_cast<Int128>(b);
  return saturated(divideRounded(c < 0 ? -product : product, divisor, rounding, factor < divisor));
}

/// The instant of `time` in counts of 1/`timescale` (positive) from 0; its epoch does not count. Infinities give the
/// most and the least number that there is; times that are no instant, and scales that are not positive, give 0.
[[nodiscard]] constexpr std::int64_t ticks(const CMTime& time, std::int32_t timescale,
                                           CMTimeRoundingMethod method = CMTimeRoundingMethod::roundHalfAwayFromZero) {
  if (timescale <= 0 || time.isIndefinite()) return 0;
  if (time.isPositiveInfinity()) return std::numeric_limits<std::int64_t>::max();
  if (time.isNegativeInfinity()) return std::numeric_limits<std::int64_t>::min();
  if (!time.isNumeric() || time.timescale <= 0) return 0;
  return mulDiv(time.value, timescale, time.timescale, method);
}

/// The lowest common multiple of two time scales, when it is `limit` at most; else 0. So at a scale that is not
/// positive.
[[nodiscard]] constexpr std::int32_t commonTimescale(std::int32_t a, std::int32_t b,
                                                     std::int32_t limit = kCMTimeMaxTimescale) {
  if (a <= 0 || b <= 0) return 0;
  const std::int64_t multiple = std::lcm(std::int64_t{a}, std::int64_t{b});
  return multiple <= limit ? static_cast<std::int32_t>(multiple) : 0;
}

}  // namespace clipworks
