#pragma once

#include <cstdint>

#include <clipworks/engine/FFmpeg.h>

namespace clipworks::engine {

/// From a demuxer's times of one stream to ticks on the file's timeline: where a container's times may begin anywhere
/// (MPEG transport and program streams), the file's first instant is zero; where its counter wraps around, times go on.
struct StreamClock {
  AVRational unit{1, 1};       ///< of the demuxer's times, in seconds
  std::int32_t timescale = 1;  ///< ticks a second
  int wrapBits = 64;           ///< of the container's counter, in units; 64 where it never wraps
  std::int64_t zero = 0;       ///< where the timeline begins, in units

  /// `time` on the file's timeline, in ticks; AV_NOPTS_VALUE stays.
  [[nodiscard]] std::int64_t ticks(std::int64_t time) const {
    return time == AV_NOPTS_VALUE ? time : av_rescale_q(sinceZero(time), unit, AVRational{1, timescale});
  }
  /// A length of units, in ticks.
  [[nodiscard]] std::int64_t ticksOf(std::int64_t length) const {
    return av_rescale_q(length, unit, AVRational{1, timescale});
  }
  /// The demuxer's time, but for a wrap, at `ticks` of the timeline.
  [[nodiscard]] std::int64_t units(std::int64_t ticks) const {
    return zero + av_rescale_q(ticks, AVRational{1, timescale}, unit);
  }

 private:
  /// Demuxers undo a wrap by the first time they meet, which is not the same for each stream: what lies more than seven
  /// eighths of the counter's range after zero lies before it.
  [[nodiscard]] std::int64_t sinceZero(std::int64_t time) const {
    if (wrapBits >= 63) return time - zero;
    const std::int64_t range = std::int64_t{1} << wrapBits;
    const std::int64_t since = ((time - zero) % range + range) % range;
    return since < range / 8 * 7 ? since : since - range;
  }
};

}  // namespace clipworks::engine
