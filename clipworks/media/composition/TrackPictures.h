#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include <clipworks/engine/Error.h>
#include <clipworks/engine/input/SampleTable.h>
#include <clipworks/media/composition/SegmentMapping.h>

namespace clipworks {

/// Which picture a track shows at any instant of its timeline: the one question that rendering and taking stills share.
/// Keeps the tables of picture times that it needs. One thread at a time.
class TrackPictures {
 public:
  /// A picture by its number in the order of presentation of its coded track.
  struct OnScreen {
    std::shared_ptr<const MediaTrack> media;
    std::size_t picture = 0;
    std::size_t segment = 0;  ///< the one that shows it first; its number in `segments()`
  };

  /// `segments` in order, without holes.
  explicit TrackPictures(std::vector<MediaSegment> segments) : segments_(std::move(segments)) {}

  [[nodiscard]] const std::vector<MediaSegment>& segments() const { return segments_; }

  /// What is on screen at `t`; nothing in an explicit hole, before the first picture and outside the track. Padding shows
  /// what was on screen before it.
  [[nodiscard]] engine::Expected<std::optional<OnScreen>> at(const CMTime& t);

 private:
  engine::Expected<std::optional<OnScreen>> inSegment(std::size_t segment, const CMTime& sourceTime, bool justBefore);

  std::vector<MediaSegment> segments_;
};

}  // namespace clipworks
