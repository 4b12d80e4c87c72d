#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include <clipworks/engine/input/PictureTable.h>
#include <clipworks/media/composition/SegmentMapping.h>

namespace clipworks {

/// The pictures that a segment with media shows, by their numbers in the order of presentation: those that come on
/// screen within its source range, after the one that is on screen where it starts. Refers to what it was made of.
class SegmentPictures {
 public:
  SegmentPictures(const MediaSegment& segment, const engine::PictureTable& table);

  /// On screen where the segment starts between two pictures, or where it is a picture that is held.
  [[nodiscard]] std::optional<std::size_t> held() const { return held_; }
  /// The first that comes on screen within the segment; `end()` when none does.
  [[nodiscard]] std::size_t next() const { return next_; }
  /// Behind the last that does.
  [[nodiscard]] std::size_t end() const { return end_; }

  /// The first that the segment shows.
  [[nodiscard]] std::optional<std::size_t> first() const;
  [[nodiscard]] bool contains(std::size_t picture) const {
    return picture == held_ || (picture >= next_ && picture < end_);
  }
  /// The one on screen at `time` of the target; nothing as long as none has come.
  [[nodiscard]] std::optional<std::size_t> at(const CMTime& time) const;
  /// When it comes on screen, on the timeline of the target.
  [[nodiscard]] CMTime since(std::size_t picture) const;

 private:
  const MediaSegment& segment_;
  const engine::PictureTable& table_;
  std::int32_t scale_;
  std::optional<std::size_t> held_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
};

}  // namespace clipworks
