#pragma once

#include <cstdint>

#include <clipworks/media/time/CMTime.h>
#include <clipworks/media/time/CMTimeRange.h>

/// Which times may stand on a timeline of media. Pure values.
namespace clipworks {

/// The end of every timeline, about 68 years. Up to there each instant fits 64 bits at each time scale.
inline constexpr std::int64_t latestSecond = std::int64_t{1} << 31;

/// `time` is a number in epoch 0, at most `latestSecond` away from zero.
[[nodiscard]] inline bool isPlaceable(const CMTime& time) {
  return time.isNumeric() && time.timescale > 0 && time.epoch == 0 && time <= CMTime(latestSecond, 1) &&
         time >= CMTime(-latestSecond, 1);
}

/// Start and duration are placeable, and the duration is not negative.
[[nodiscard]] inline bool isPlaceable(const CMTimeRange& range) {
  return isPlaceable(range.start) && isPlaceable(range.duration) && range.duration >= kCMTimeZero;
}

}  // namespace clipworks
