#pragma once

#include <compare>
#include <concepts>
#include <cstdint>

#include <clipworks/media/base/Export.h>

namespace clipworks {

/// How a value that no longer fits its time scale is rounded.
enum class CMTimeRoundingMethod {
  roundHalfAwayFromZero,
  roundTowardZero,
  roundAwayFromZero,
  roundTowardPositiveInfinity,
  roundTowardNegativeInfinity,
  /// Towards zero when the new scale is coarser, away from zero when it is finer.
  quickTime,
};

/// Rational media time: `value` / `timescale` seconds, on the timeline numbered `epoch`.
/// A plain value without invariants; `flags` tells whether it is a number at all. The default is invalid.
/// Operations with an invalid operand are invalid; a number whose time scale is not positive counts as invalid in all
/// of them. Nothing here allocates or throws.
struct CLIPWORKS_API CMTime {
  /// Bits of `flags`.
  enum Flags : std::uint32_t {
    valid = 1U << 0,
    hasBeenRounded = 1U << 1,
    positiveInfinity = 1U << 2,
    negativeInfinity = 1U << 3,
    indefinite = 1U << 4,
    impliedValueMask = positiveInfinity | negativeInfinity | indefinite,
  };

  std::int64_t value = 0;
  std::int32_t timescale = 0;
  std::uint32_t flags = 0;
  std::int64_t epoch = 0;

  constexpr CMTime() = default;
  /// The four fields as they are.
  constexpr CMTime(std::int64_t value_, std::int32_t timescale_, std::uint32_t flags_, std::int64_t epoch_)
      : value(value_), timescale(timescale_), flags(flags_), epoch(epoch_) {}
  /// `CMTimeMake`: valid when the time scale is positive.
  constexpr CMTime(std::int64_t value_, std::int32_t timescale_)
      : value(value_), timescale(timescale_), flags(timescale_ > 0 ? valid : 0U) {}
  /// The same for the other integer types, which would be torn between the constructors above and below.
  template <std::integral Integer>
  constexpr CMTime(Integer value_, std::int32_t timescale_) : CMTime(static_cast<std::int64_t>(value_), timescale_) {}
  /// `CMTime(seconds:preferredTimescale:)`: the product of both in double precision, rounded half away from zero;
  /// the rounded flag is set when the result is not exactly `seconds`, that is, when `seconds()` does not give it back.
  /// When the value does not fit, the scale is halved until it does; what does not even fit at scale 1 is infinite.
  /// NaN and a scale that is not positive give an invalid time, infinities the infinite ones.
  CMTime(double seconds, std::int32_t preferredTimescale);

  /// It is a number, infinite or indefinite, rather than nothing at all.
  [[nodiscard]] constexpr bool isValid() const { return (flags & valid) != 0; }
  /// It is a number.
  [[nodiscard]] constexpr bool isNumeric() const { return (flags & (valid | impliedValueMask)) == valid; }
  /// It is later than every number.
  [[nodiscard]] constexpr bool isPositiveInfinity() const { return isValid() && (flags & positiveInfinity) != 0; }
  /// It is earlier than every number.
  [[nodiscard]] constexpr bool isNegativeInfinity() const { return isValid() && (flags & negativeInfinity) != 0; }
  /// It is a time that is not known, as the length of a live stream.
  [[nodiscard]] constexpr bool isIndefinite() const { return isValid() && (flags & indefinite) != 0; }
  /// An operation on the way to it lost something.
  [[nodiscard]] constexpr bool wasRounded() const { return isValid() && (flags & hasBeenRounded) != 0; }

  /// Seconds as a double; NaN when invalid or indefinite, ± infinity when infinite.
  [[nodiscard]] double seconds() const;

  /// The same instant at another time scale (`CMTimeConvertScale`); the rounded flag is set when it had to be rounded.
  /// Infinite where the value does not fit 64 bits; invalid for a scale that is not positive.
  [[nodiscard]] CMTime convertScale(std::int32_t newTimescale, CMTimeRoundingMethod method) const;

  /// Value, scale, flags and epoch all alike. `==` asks for the same instant instead.
  [[nodiscard]] constexpr bool isIdenticalTo(const CMTime& other) const {
    return value == other.value && timescale == other.timescale && flags == other.flags && epoch == other.epoch;
  }
};

/// 0 at time scale 1.
inline constexpr CMTime kCMTimeZero{0, 1, CMTime::valid, 0};
/// No time at all.
inline constexpr CMTime kCMTimeInvalid{};
/// Later than every number.
inline constexpr CMTime kCMTimePositiveInfinity{0, 0, CMTime::valid | CMTime::positiveInfinity, 0};
/// Earlier than every number.
inline constexpr CMTime kCMTimeNegativeInfinity{0, 0, CMTime::valid | CMTime::negativeInfinity, 0};
/// A time that is not known, such as the length of a live stream.
inline constexpr CMTime kCMTimeIndefinite{0, 0, CMTime::valid | CMTime::indefinite, 0};

/// The finest time scale.
inline constexpr std::int32_t kCMTimeMaxTimescale = 0x7fffffff;

/// `CMTimeMake`: valid, in epoch 0, when the time scale is positive.
[[nodiscard]] constexpr CMTime CMTimeMake(std::int64_t value, std::int32_t timescale) {
  return CMTime(value, timescale);
}

/// `CMTimeMakeWithEpoch`: the same in an epoch.
[[nodiscard]] constexpr CMTime CMTimeMakeWithEpoch(std::int64_t value, std::int32_t timescale, std::int64_t epoch) {
  return CMTime(value, timescale, timescale > 0 ? std::uint32_t{CMTime::valid} : 0U, epoch);
}

/// The sum, exact where the time scale allows it. The rules, for `-` too:
/// - The scale is the lowest common multiple of both while it fits 31 bits, else `kCMTimeMaxTimescale`. When the value
///   does not fit 64 bits, the scale is halved until it does; what does not even fit at scale 1 is infinite.
/// - The exact sum is rounded once, half away from zero. The rounded flag is set when that lost something, or when an
///   operand has it.
/// - An infinite operand makes the result infinite; both infinities together make it invalid. Else an indefinite
///   operand makes it indefinite.
/// - Numbers in epoch 0 are lengths: added to a time in epoch e they give a time in e. Two times of the same other
///   epoch give a result in epoch 0; times in different epochs other than 0 have an unknown distance: invalid.
[[nodiscard]] CLIPWORKS_API CMTime operator+(const CMTime& a, const CMTime& b);
/// `a` + (−`b`). So the distance of two times in one epoch is in epoch 0.
[[nodiscard]] CLIPWORKS_API CMTime operator-(const CMTime& a, const CMTime& b);
/// The opposite; infinities swap.
[[nodiscard]] CLIPWORKS_API CMTime operator-(const CMTime& time);
inline CMTime& operator+=(CMTime& a, const CMTime& b) { return a = a + b; }
inline CMTime& operator-=(CMTime& a, const CMTime& b) { return a = a - b; }

/// A total order of instants, exact whatever the time scales: invalid < −∞ < numbers < indefinite < +∞; numbers by
/// epoch first. All invalid times are equivalent; when several flags of a kind are set, indefinite counts before +∞,
/// and that before −∞.
[[nodiscard]] CLIPWORKS_API std::weak_ordering operator<=>(const CMTime& a, const CMTime& b);
/// The same instant, whatever the time scales and rounded flags. `isIdenticalTo` asks for the same representation.
[[nodiscard]] CLIPWORKS_API bool operator==(const CMTime& a, const CMTime& b);

/// The distance from zero; −∞ gives +∞.
[[nodiscard]] CLIPWORKS_API CMTime CMTimeAbsoluteValue(const CMTime& time);
/// The earlier one by the order above, `a` when they are equivalent; invalid when one is.
[[nodiscard]] CLIPWORKS_API CMTime CMTimeMinimum(const CMTime& a, const CMTime& b);
/// The later one by the order above, `a` when they are equivalent; invalid when one is.
[[nodiscard]] CLIPWORKS_API CMTime CMTimeMaximum(const CMTime& a, const CMTime& b);

/// `time` × `multiplier` at the same time scale; overflow as in a sum. Infinities keep or swap their sign, 0 times one
/// is invalid. The epoch stays.
[[nodiscard]] CLIPWORKS_API CMTime CMTimeMultiply(const CMTime& time, std::int32_t multiplier);
/// `time` × `multiplier` / `divisor`, exact where possible: at the time's own scale, else at its least multiple that
/// fits 31 bits, else at the reduced fraction's denominator; else rounded half away from zero at `kCMTimeMaxTimescale`.
/// Overflow as in a sum; invalid when `divisor` is 0; infinities as in `CMTimeMultiply`.
[[nodiscard]] CLIPWORKS_API CMTime CMTimeMultiplyByRatio(const CMTime& time, std::int32_t multiplier,
                                                         std::int32_t divisor);
/// `time` × `multiplier`: at the time's own scale when that is exact, else at this scale doubled while it is below
/// 65,536, as far as needed. Rounded half away from zero, with the rounded flag when that lost something. Overflow as
/// in a sum; a NaN gives an invalid time, an infinite multiplier an infinite one (invalid for 0 × ∞).
[[nodiscard]] CLIPWORKS_API CMTime CMTimeMultiplyByFloat64(const CMTime& time, double multiplier);

}  // namespace clipworks
