#pragma once

#include <clipworks/media/base/Export.h>
#include <clipworks/media/time/CMTime.h>

namespace clipworks {

/// A stretch of a timeline: from `start` on, `duration` long, the end not included. A plain value without invariants;
/// the default is invalid. Operations with an invalid range are invalid, or false. Nothing here allocates or throws.
struct CLIPWORKS_API CMTimeRange {
  CMTime start;
  CMTime duration;

  constexpr CMTimeRange() = default;
  /// `CMTimeRange(start:duration:)`.
  constexpr CMTimeRange(const CMTime& start_, const CMTime& duration_) : start(start_), duration(duration_) {}
  /// `CMTimeRange(start:end:)`: `duration` is `end` − `start`, and so negative when the end comes first; such a range
  /// is not valid.
  [[nodiscard]] static CMTimeRange fromTo(const CMTime& start, const CMTime& end);

  /// `start` + `duration`: the first instant that is not in the range.
  [[nodiscard]] CMTime end() const;

  /// Both times are valid, and the duration is not negative and in epoch 0. Infinite and indefinite times are valid.
  [[nodiscard]] bool isValid() const;
  /// Valid, with a duration of zero: no instant is in it.
  [[nodiscard]] bool isEmpty() const;
  /// Valid, with a start or a duration that is indefinite.
  [[nodiscard]] bool isIndefinite() const;

  /// `start` ≤ `time` < `end()`.
  [[nodiscard]] bool containsTime(const CMTime& time) const;
  /// The other range lies within this one; ends may be equal. An empty range lies within when its start is between
  /// `start` and `end()`, both included.
  [[nodiscard]] bool containsTimeRange(const CMTimeRange& other) const;

  /// The instants that are in both; `kCMTimeRangeZero` when there is none.
  [[nodiscard]] CMTimeRange intersection(const CMTimeRange& other) const;
  /// The smallest range that holds both, and so what lies between them; invalid when they are in different epochs.
  [[nodiscard]] CMTimeRange unionWith(const CMTimeRange& other) const;

  /// The same start and the same duration, whatever their time scales.
  friend bool operator==(const CMTimeRange& a, const CMTimeRange& b) {
    return a.start == b.start && a.duration == b.duration;
  }
};

/// Start and duration zero.
inline constexpr CMTimeRange kCMTimeRangeZero{kCMTimeZero, kCMTimeZero};
/// No range.
inline constexpr CMTimeRange kCMTimeRangeInvalid{};

/// A range of one timeline that is presented at a range of another one.
struct CMTimeMapping {
  CMTimeRange source;
  CMTimeRange target;

  friend bool operator==(const CMTimeMapping&, const CMTimeMapping&) = default;
};

}  // namespace clipworks
